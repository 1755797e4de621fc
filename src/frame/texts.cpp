// Numbered texts, language choice and language files.

#include "frame/texts.h"

#include <system_error>

#include "frame/settings_store.h"
#include "frame/text_file.h"

namespace kelvor {
namespace {

const TextDef kAllTexts[] = {
#define KELVOR_TEXT(n, s) {n, s},
#include "frame/text_table.def"
#undef KELVOR_TEXT
};

struct LangFile {
  int code;
  const char* file;
};

const LangFile kLangFiles[] = {
    {9, "lang_eng.txt"},      {1, "lang_ara.txt"},     {4, "lang_chi.txt"},  {5, "lang_cze.txt"},
    {8, "lang_gre.txt"},      {10, "lang_spa.txt"},    {11, "lang_fin.txt"}, {12, "lang_fre.txt"},
    {14, "lang_hun.txt"},     {16, "lang_ita.txt"},    {18, "lang_kor.txt"}, {19, "lang_dut.txt"},
    {21, "lang_pol.txt"},     {22, "lang_por.txt"},    {25, "lang_rus.txt"}, {29, "lang_swe.txt"},
    {30, "lang_tha.txt"},     {31, "lang_tur.txt"},    {34, "lang_ukr.txt"}, {36, "lang_slo.txt"},
    {888888, "lang_cht.txt"}, {kLangUser, "lang.txt"},
};

bool KnownCode(int code) {
  if (code == kLangGerman) return true;
  for (const auto& l : kLangFiles) {
    if (l.code == code) return true;
  }
  return false;
}

std::string_view TrimRight(std::string_view s) {
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
    s.remove_suffix(1);
  }
  return s;
}

std::string_view TrimBoth(std::string_view s) {
  s = TrimRight(s);
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  return s;
}

bool ParseNumber(std::string_view s, int* out) {
  s = TrimBoth(s);
  if (s.empty() || s.size() > 9) return false;
  int v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + (c - '0');
  }
  *out = v;
  return true;
}

// Replaces %1, %2, ... in one pass, so that a parameter's own text is never
// searched again. With ten or more parameters "%10" is the tenth.
std::string Substitute(std::string_view text, std::initializer_list<std::string_view> params) {
  std::string out;
  out.reserve(text.size() + 16);
  const std::string_view* p = params.begin();
  const std::size_t count = params.size();
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%' && i + 1 < text.size()) {
      if (text[i + 1] == '!') {
        out += "\r\n";
        ++i;
        continue;
      }
      if (text[i + 1] >= '1' && text[i + 1] <= '9') {
        std::size_t n = static_cast<std::size_t>(text[i + 1] - '0');
        std::size_t used = 1;
        if (i + 2 < text.size() && text[i + 2] >= '0' && text[i + 2] <= '9') {
          const std::size_t two = n * 10 + static_cast<std::size_t>(text[i + 2] - '0');
          if (two <= count) {
            n = two;
            used = 2;
          }
        }
        if (n <= count) {
          out.append(p[n - 1]);
          i += used;
          continue;
        }
      }
    }
    out.push_back(c);
  }
  return out;
}

}  // namespace

const TextDef* AllTexts(std::size_t* count) {
  if (count) *count = sizeof(kAllTexts) / sizeof(kAllTexts[0]);
  return kAllTexts;
}

std::string LanguageFileName(int code) {
  for (const auto& l : kLangFiles) {
    if (l.code == code) return l.file;
  }
  return {};
}

int LanguageCodeFromLocale(std::string_view locale) {
  // "ll_CC.codeset@modifier": the language, and the country for Chinese.
  const auto cut = locale.find_first_of(".@");
  const std::string_view name = locale.substr(0, cut);
  const std::string_view lang = name.substr(0, name.find_first_of("_-"));
  struct Map {
    std::string_view lang;
    int code;
  };
  static constexpr Map kMap[] = {
      {"de", 7},  {"en", 9},  {"ar", 1},  {"zh", 4},  {"cs", 5},  {"el", 8},  {"es", 10},
      {"fi", 11}, {"fr", 12}, {"hu", 14}, {"it", 16}, {"ko", 18}, {"nl", 19}, {"pl", 21},
      {"pt", 22}, {"ru", 25}, {"sv", 29}, {"th", 30}, {"tr", 31}, {"uk", 34}, {"sl", 36},
  };
  for (const auto& m : kMap) {
    if (m.lang != lang) continue;
    if (m.code == 4) {
      const std::string_view country = name.size() > 3 ? name.substr(3) : std::string_view{};
      if (country == "TW" || country == "HK" || country == "MO") return 888888;
    }
    return m.code;
  }
  return 0;
}

std::string TextCatalog::Get(int number, std::string_view german,
                             std::initializer_list<std::string_view> params) const {
  std::string_view text = german;
  if (language_ != kLangGerman && number > 0 && !table_.empty()) {
    auto it = table_.find(number);
    if (it != table_.end() && !it->second.empty()) text = it->second;
  }
  return Substitute(text, params);
}

void TextCatalog::Init_Sprache(const SettingsStore& settings,
                               const std::filesystem::path& langFolder, std::string* message,
                               std::string_view locale) {
  int code = static_cast<int>(settings.GetInt("Allgemein", "Lang"));
  if (code == 0 && !locale.empty()) code = LanguageCodeFromLocale(locale);
  if (!KnownCode(code)) code = kLangEnglish;
  if (settings.GetBool("Allgemein", "UseLangTxt")) code = kLangUser;

  table_.clear();
  language_ = code;
  if (code == kLangGerman) return;  // built in: no file is read

  std::filesystem::path file = langFolder / LanguageFileName(code);
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) {
    language_ = kLangEnglish;
    const std::filesystem::path english = langFolder / LanguageFileName(kLangEnglish);
    if (!std::filesystem::exists(english, ec)) {
      if (message) *message = Get(txt::T9019, {english.string()});
      return;
    }
    file = english;
  }
  LoadTextFromFile(file, message);
}

bool TextCatalog::LoadTextFromFile(const std::filesystem::path& file, std::string* message) {
  table_.clear();
  std::string bytes, why;
  if (!ReadWholeFile(file, &bytes, &why)) {
    if (message) *message = Get(txt::T9018, {file.string(), why});
    return false;
  }
  const std::string text = DecodeText(bytes, false);
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    std::string_view line = TrimRight(std::string_view(text).substr(pos, end - pos));
    pos = end + 1;
    if (TrimBoth(line).empty() || TrimBoth(line).front() == '#') continue;
    const auto comma = line.find(',');
    if (comma == std::string_view::npos) continue;
    int number = 0;
    if (!ParseNumber(line.substr(0, comma), &number)) continue;
    std::string_view body = line.substr(comma + 1);
    // The text stands between two delimiter characters.
    body = body.size() >= 2 ? body.substr(1, body.size() - 2) : std::string_view{};
    table_[number] = std::string(body);
  }
  return true;
}

bool TextCatalog::WriteTemplate(const std::filesystem::path& file, std::string* error) {
  std::string text =
      "# Kelvor language file. One text a line: number,\"text\".\r\n"
      "# %1, %2, ... are filled in by the program; %! is a line break.\r\n"
      "# Lines beginning with # are comments.\r\n";
  std::size_t count = 0;
  const TextDef* all = AllTexts(&count);
  for (std::size_t i = 0; i < count; ++i) {
    text += std::to_string(all[i].number);
    text += ",\"";
    text += all[i].german;
    text += "\"\r\n";
  }
  return WriteFileAtomic(file, Utf16leWithBom(text), error);
}

}  // namespace kelvor
