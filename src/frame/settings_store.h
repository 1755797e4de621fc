#pragma once
// The settings store: the state of the setup window's controls, read from and
// written to config4.ini (or a profile .pro4, the same kind of file).
//
// Values are text, as in the file. A key that is absent reads as its default
// from the table of known keys (settings_defaults.cpp); an unknown key reads as
// the fallback the caller gives.

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kelvor {

class TextCatalog;

class SettingsStore {
 public:
  // Value of section/key; absent -> known default -> "" .
  std::string Get(std::string_view section, std::string_view key) const;
  // Value of section/key; absent -> `fallback` (the known default is ignored).
  std::string Get(std::string_view section, std::string_view key, std::string_view fallback) const;
  // Numeric forms: text that is not a number reads as the default.
  long long GetInt(std::string_view section, std::string_view key) const;
  double GetDouble(std::string_view section, std::string_view key) const;
  // "0" is off, any other number is on (-1 and 1 both mean on).
  bool GetBool(std::string_view section, std::string_view key) const;

  bool Has(std::string_view section, std::string_view key) const;
  void Set(std::string_view section, std::string_view key, std::string value);
  void SetInt(std::string_view section, std::string_view key, long long v);
  void SetBool(std::string_view section, std::string_view key, bool v);
  void Remove(std::string_view section, std::string_view key);
  void Clear() {
    values_.clear();
    folded_.clear();
  }

  // Known default of a key, or nullptr for an unknown key.
  static const char* DefaultOf(std::string_view section, std::string_view key);

  // Everything held, in section order (used by the writer).
  const std::map<std::string, std::map<std::string, std::string>>& Sections() const {
    return values_;
  }

 private:
  // The value of section/key by name without regard to case, or nullptr.
  const std::string* Find(std::string_view section, std::string_view key) const;

  std::map<std::string, std::map<std::string, std::string>> values_;
  // Names without regard to case: folded section name -> the section's name
  // as held in values_, and folded key name -> the key's name as held. One
  // hash probe finds a name however many a section holds.
  struct FoldedSection {
    std::string name;
    std::unordered_map<std::string, std::string> keys;
  };
  std::unordered_map<std::string, FoldedSection> folded_;
};

// EinstellungenLaden: reads every section and key of the file into `s`
// (replacing what `s` held). A missing file gives all defaults and true.
// A file that cannot be read or is malformed keeps what could be read, puts a
// message into *error and returns false; the caller logs it.
bool EinstellungenLaden(SettingsStore& s, const std::filesystem::path& file, std::string* error);

// EinstellungenSpeichern: writes `s` as UTF-16LE with byte-order mark, through
// a temporary file and a rename, so a crash never leaves half a file.
// Keys the file held that `s` does not know are kept.
bool EinstellungenSpeichern(const SettingsStore& s, const std::filesystem::path& file,
                            std::string* error);

// ProfileGetItemWide: reads one key of a settings-style file; `Default` when
// absent; a value enclosed in double quotes loses them.
std::string ProfileGetItemWide(std::string_view section, std::string_view key,
                               std::string_view deflt, const std::filesystem::path& file);

// The same with the messages in the catalog's language (the forms above use
// the built-in German texts). A file that could not be understood, wholly or
// in part, is copied to "<file>.bak" before a save replaces it.
bool EinstellungenLaden(SettingsStore& s, const std::filesystem::path& file, std::string* error,
                        const TextCatalog& texts);
bool EinstellungenSpeichern(const SettingsStore& s, const std::filesystem::path& file,
                            std::string* error, const TextCatalog& texts);

// The writer: one key, value written between double quotes. Atomic.
bool ProfileWriteItemWide(std::string_view section, std::string_view key, std::string_view value,
                          const std::filesystem::path& file, std::string* error = nullptr);

}  // namespace kelvor
