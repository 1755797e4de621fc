#pragma once
// Unicode helpers on UTF-8 text (the program's inner form). Case mapping goes
// through utf8proc, never through byte-wise tolower. Invalid UTF-8 (Linux file
// names may hold any bytes) passes through byte for byte.

#include <string>
#include <string_view>

namespace kelvor {

// Lower case of every code point; invalid bytes are copied unchanged.
std::string LowerCase(std::string_view s);
// Appends LowerCase(s) to out (no allocation when out has room).
void AppendLowerCase(std::string_view s, std::string& out);
std::string UpperCase(std::string_view s);

bool IsValidUtf8(std::string_view s);
// For display: invalid sequences become U+FFFD.
std::string DisplayUtf8(std::string_view s);

// Code points of s, and back. An invalid byte b maps to U+DC00 + b (the lone
// surrogates U+DC80..U+DCFF), so that such bytes stay distinct and round-trip.
std::u32string ToCodePoints(std::string_view s);
std::string FromCodePoints(std::u32string_view s);
// Decodes the code point that begins at s[i] (strict UTF-8: no overlong
// forms, no surrogates). Returns the bytes used, or 0 when s[i] begins no
// valid sequence. For loops that must not allocate.
std::size_t DecodeUtf8(std::string_view s, std::size_t i, char32_t* cp);

// UTF-16LE <-> UTF-8, for the files Kelvor writes as UTF-16.
std::string Utf8ToUtf16le(std::string_view s);
std::string Utf16leToUtf8(std::string_view bytes);

}  // namespace kelvor
