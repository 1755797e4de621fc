#pragma once
// The settings-file layout: "[section]" lines and "key=value" lines, in the
// order the file holds them. Used by the settings store and the profiles.

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvor {

class TextCatalog;

struct IniSection {
  std::string name;
  std::vector<std::pair<std::string, std::string>> entries;  // values without quotes
};

struct IniDocument {
  std::vector<IniSection> sections;
  int badLines = 0;     // lines that are neither section, key, comment nor blank,
                        // and the last line of a UTF-16 file cut inside a character
  bool binary = false;  // control characters: not a text file, nothing was taken
};

// Removes one pair of enclosing double quotes.
std::string_view Unquote(std::string_view v);

// Parses decoded (UTF-8) text. Keys and section names are trimmed; a value is
// trimmed and loses one pair of enclosing quotes; ';' begins a comment line.
IniDocument ParseIni(std::string_view text);

// Reads and parses a file. Returns false when it cannot be read (*error set,
// in the catalog's language). Only a regular file is read.
bool ReadIniFile(const std::filesystem::path& file, IniDocument* doc, std::string* error);
bool ReadIniFile(const std::filesystem::path& file, IniDocument* doc, std::string* error,
                 const TextCatalog& texts);

// The file text as UTF-16LE with byte-order mark, values in double quotes.
std::string SerializeIni(const IniDocument& doc);

// Case-insensitive (Unicode) equality of names, as profile files treat them.
bool SameName(std::string_view a, std::string_view b);
// The form of a name that SameName compares: SameName(a, b) is
// FoldName(a) == FoldName(b). Used as the key of name indexes.
std::string FoldName(std::string_view name);

}  // namespace kelvor
