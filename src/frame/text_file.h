#pragma once
// Reading and writing whole text files in the encodings Kelvor meets: the
// UTF-16LE files it writes itself, and UTF-8 or UTF-16BE files that users or
// other tools made. Writing goes through a temporary file and a rename.

#include <filesystem>
#include <string>
#include <string_view>

namespace kelvor {

class TextCatalog;

enum class TextEncoding { Utf16le, Utf16be, Utf8Bom, Utf8, Utf16leNoBom, Latin1 };

// Decodes raw file bytes into UTF-8. The order: UTF-16LE mark, UTF-16BE mark,
// UTF-8 mark, then (only with `guessUtf16`) UTF-16LE without a mark when the
// bytes look like it, valid UTF-8, and otherwise Latin-1 (each byte one code
// point), which stands in for the Windows system code page.
std::string DecodeText(std::string_view bytes, bool guessUtf16, TextEncoding* found = nullptr);

// Whole file as bytes; false with *error on failure. Only a regular file is
// read: the file is opened without waiting (a FIFO with no writer would block
// an ordinary open for ever), and a FIFO, device or folder is refused with
// the text 9020 ("keine reguläre Datei") in the catalog's language.
bool ReadWholeFile(const std::filesystem::path& file, std::string* bytes, std::string* error);
bool ReadWholeFile(const std::filesystem::path& file, std::string* bytes, std::string* error,
                   const TextCatalog& texts);

// True when `file` exists (symbolic links followed) and is no regular file.
bool ExistsButNotRegular(const std::filesystem::path& file);

// Writes `bytes` to `file` through "<file>.tmp-<pid>" in the same folder,
// fsync and rename: readers see either the old or the new file, never half.
// Something that is not a regular file (a FIFO, ...) is never replaced.
bool WriteFileAtomic(const std::filesystem::path& file, std::string_view bytes, std::string* error);
bool WriteFileAtomic(const std::filesystem::path& file, std::string_view bytes, std::string* error,
                     const TextCatalog& texts);

// UTF-8 text as UTF-16LE bytes behind the byte-order mark FF FE.
std::string Utf16leWithBom(std::string_view utf8);

}  // namespace kelvor
