#pragma once
// Numbered texts and their translation. German is the source language: every
// text has a number and a German default (text_table.def); a language file
// maps numbers to translated texts.

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kelvor {

class SettingsStore;

struct TextDef {
  int number;
  std::string_view german;
};

// Named constants T<number> for every entry of text_table.def.
namespace txt {
#define KELVOR_TEXT(n, s) inline constexpr TextDef T##n{n, s};
#include "frame/text_table.def"
#undef KELVOR_TEXT
}  // namespace txt

// All texts in table order, for producing a complete language file.
const TextDef* AllTexts(std::size_t* count);

// Language codes: operating-system primary language numbers plus two pseudo
// codes (888888 traditional Chinese, 999999 the user's own lang.txt).
inline constexpr int kLangGerman = 7;
inline constexpr int kLangEnglish = 9;
inline constexpr int kLangUser = 999999;

class TextCatalog {
 public:
  // Built-in German, no file.
  TextCatalog() = default;

  int Language() const { return language_; }
  std::size_t Size() const { return table_.size(); }

  // GetTranslatedText: the translated text for `number`, or `german` when the
  // language is German, the number is <= 0, the table is empty or lacks it.
  // "%!" becomes CR LF, then %1, %2, ... are replaced by the parameters.
  std::string Get(int number, std::string_view german,
                  std::initializer_list<std::string_view> params = {}) const;
  std::string Get(const TextDef& t, std::initializer_list<std::string_view> params = {}) const {
    return Get(t.number, t.german, params);
  }

  // Init_Sprache: chooses the language from the settings ("Lang", "UseLangTxt"
  // of section "Allgemein"), else from `locale` (the name the environment
  // gives: LC_ALL, else LC_MESSAGES, else LANG; empty when none), and loads
  // its file from `langFolder`. Problems are reported in `*message` (may be
  // null).
  void Init_Sprache(const SettingsStore& settings, const std::filesystem::path& langFolder,
                    std::string* message = nullptr, std::string_view locale = {});

  // LoadTextFromFile: replaces the table by the file's lines "number,<d>text<d>".
  // Returns false (table cleared) when the file cannot be read.
  bool LoadTextFromFile(const std::filesystem::path& file, std::string* message = nullptr);

  void SetLanguage(int code) { language_ = code; }

  // Writes a complete language file: a comment header, then one line
  // number,"German default" per text, as UTF-16LE with byte-order mark.
  // A translator's starting point for lang.txt.
  static bool WriteTemplate(const std::filesystem::path& file, std::string* error = nullptr);

 private:
  int language_ = kLangGerman;
  std::unordered_map<int, std::string> table_;
};

// Free form used across the program.
inline std::string GetTranslatedText(const TextCatalog& c, const TextDef& t,
                                     std::initializer_list<std::string_view> params = {}) {
  return c.Get(t, params);
}

// Language file name for a code ("lang_eng.txt"), empty for German.
std::string LanguageFileName(int code);

// Maps a POSIX locale name such as "fr_FR.UTF-8" to a language code.
int LanguageCodeFromLocale(std::string_view locale);

}  // namespace kelvor
