#pragma once
// Crypt / CryptUnicode: a light reversible cipher for values kept in the
// settings file (not a protection against a determined reader).
//
// The text is walked by position, and with it the key from its first
// character, starting the key again when it ends. Each cipher character is the
// text character XOR the key character: Crypt works on bytes, CryptUnicode on
// 16-bit units. Applying the same call with the same key again gives the
// original text back. An empty text or an empty key returns the text as it is.
// The result may hold any byte or unit (zero too); store it in hexadecimal
// (CryptToHex) where a text is needed.

#include <string>
#include <string_view>

namespace kelvor {

std::string Crypt(std::string_view text, std::string_view key);
std::u16string CryptUnicode(std::u16string_view text, std::u16string_view key);

// Two lower-case hexadecimal digits per byte, and back (false on bad input).
std::string CryptToHex(std::string_view bytes);
bool CryptFromHex(std::string_view hex, std::string* bytes);

}  // namespace kelvor
