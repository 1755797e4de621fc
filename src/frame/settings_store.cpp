// The settings store and its file form (config4.ini, profiles *.pro4).

#include "frame/settings_store.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "frame/ini_file.h"
#include "frame/text_file.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

// A value read through the profile interface holds at most 4095 characters
// (a buffer of 4096 with its terminator).
constexpr std::size_t kMaxValueChars = 4095;

std::string LimitValue(std::string_view v) {
  if (v.size() <= kMaxValueChars) return std::string(v);
  std::u32string cps = ToCodePoints(v);
  if (cps.size() <= kMaxValueChars) return std::string(v);
  cps.resize(kMaxValueChars);
  return FromCodePoints(cps);
}

std::string_view Trim(std::string_view s) {
  const auto first = s.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const auto last = s.find_last_not_of(" \t\r\n");
  return s.substr(first, last - first + 1);
}

bool HasControlChars(std::string_view text) {
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x20 && c != '\t' && c != '\r' && c != '\n') return true;
  }
  return false;
}

// Finds a map entry by exact name, else without regard to case.
template <typename Map>
auto FindName(Map& m, std::string_view name) -> decltype(m.begin()) {
  auto it = m.find(std::string(name));
  if (it != m.end()) return it;
  for (auto i = m.begin(); i != m.end(); ++i) {
    if (SameName(i->first, name)) return i;
  }
  return m.end();
}

bool ParseLong(std::string_view text, long long* out) {
  const std::string t(Trim(text));
  if (t.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(t.c_str(), &end, 10);
  if (errno != 0 || end == nullptr || *end != '\0') {
    // Accept a decimal number by its integral part ("5.0").
    char* dend = nullptr;
    const double d = std::strtod(t.c_str(), &dend);
    if (dend == nullptr || *dend != '\0' || d != d || d > 9.2e18 || d < -9.2e18) return false;
    *out = static_cast<long long>(d);
    return true;
  }
  *out = v;
  return true;
}

bool ParseDouble(std::string_view text, double* out) {
  std::string t(Trim(text));
  if (t.empty()) return false;
  for (char& c : t) {
    if (c == ',') c = '.';
  }
  char* end = nullptr;
  const double d = std::strtod(t.c_str(), &end);
  if (end == nullptr || *end != '\0') return false;
  *out = d;
  return true;
}

const TextCatalog& GermanTexts() {
  static const TextCatalog german;  // immutable built-in German texts
  return german;
}

// Copies a file that could not be understood aside, so that saving over it
// never loses what the user had: "<file>.bak", "<file>.bak1", ...
void KeepDamagedCopy(const std::filesystem::path& file) {
  std::error_code ec;
  for (int n = 0; n < 100; ++n) {
    std::filesystem::path copy = file;
    copy += n == 0 ? std::string(".bak") : ".bak" + std::to_string(n);
    if (std::filesystem::exists(copy, ec)) continue;
    std::filesystem::copy_file(file, copy, ec);
    return;
  }
}

std::string CleanValue(std::string_view v) {
  // A line break would end the line in the file; keep the value on one line.
  std::string out(v);
  for (char& c : out) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  return out;
}

}  // namespace

// ---------------------------------------------------------------- file layout

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() == b.size()) {
    bool equal = true;
    for (std::size_t i = 0; i < a.size() && equal; ++i) {
      char x = a[i], y = b[i];
      if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
      if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
      equal = x == y;
    }
    if (equal) return true;
  }
  return LowerCase(a) == LowerCase(b);
}

std::string_view Unquote(std::string_view v) {
  if (v.size() >= 2 && v.front() == '"' && v.back() == '"') return v.substr(1, v.size() - 2);
  return v;
}

IniDocument ParseIni(std::string_view text) {
  IniDocument doc;
  if (HasControlChars(text)) {
    doc.binary = true;
    return doc;
  }
  IniSection* current = nullptr;
  std::size_t pos = 0;
  while (pos <= text.size()) {
    std::size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = Trim(text.substr(pos, end - pos));
    pos = end + 1;
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[') {
      const auto close = line.find(']');
      if (close == std::string_view::npos) {
        ++doc.badLines;
        current = nullptr;
        continue;
      }
      const std::string name(Trim(line.substr(1, close - 1)));
      current = nullptr;
      for (auto& s : doc.sections) {
        if (SameName(s.name, name)) current = &s;
      }
      if (current == nullptr) {
        doc.sections.push_back({name, {}});
        current = &doc.sections.back();
      }
      continue;
    }
    const auto eq = line.find('=');
    if (eq == std::string_view::npos || current == nullptr) {
      ++doc.badLines;
      continue;
    }
    const std::string key(Trim(line.substr(0, eq)));
    if (key.empty()) {
      ++doc.badLines;
      continue;
    }
    bool seen = false;  // the first of two equal keys wins
    for (const auto& e : current->entries) {
      if (SameName(e.first, key)) seen = true;
    }
    if (!seen) current->entries.emplace_back(key, std::string(Unquote(Trim(line.substr(eq + 1)))));
  }
  return doc;
}

bool ReadIniFile(const std::filesystem::path& file, IniDocument* doc, std::string* error) {
  std::string bytes;
  if (!ReadWholeFile(file, &bytes, error)) return false;
  *doc = ParseIni(DecodeText(bytes, true));
  return true;
}

std::string SerializeIni(const IniDocument& doc) {
  std::string text;
  for (const auto& s : doc.sections) {
    text += '[';
    text += s.name;
    text += "]\r\n";
    for (const auto& [k, v] : s.entries) {
      text += k;
      text += "=\"";
      text += CleanValue(v);
      text += "\"\r\n";
    }
  }
  return Utf16leWithBom(text);
}

// ---------------------------------------------------------------- the store

std::string SettingsStore::Get(std::string_view section, std::string_view key) const {
  const char* d = DefaultOf(section, key);
  return Get(section, key, d ? d : "");
}

std::string SettingsStore::Get(std::string_view section, std::string_view key,
                               std::string_view fallback) const {
  auto s = FindName(values_, section);
  if (s == values_.end()) return std::string(fallback);
  auto k = FindName(s->second, key);
  if (k == s->second.end()) return std::string(fallback);
  return k->second;
}

long long SettingsStore::GetInt(std::string_view section, std::string_view key) const {
  long long v = 0;
  if (ParseLong(Get(section, key), &v)) return v;
  const char* d = DefaultOf(section, key);
  if (d != nullptr && ParseLong(d, &v)) return v;
  return 0;
}

double SettingsStore::GetDouble(std::string_view section, std::string_view key) const {
  double v = 0;
  if (ParseDouble(Get(section, key), &v)) return v;
  const char* d = DefaultOf(section, key);
  if (d != nullptr && ParseDouble(d, &v)) return v;
  return 0;
}

bool SettingsStore::GetBool(std::string_view section, std::string_view key) const {
  return GetInt(section, key) != 0;
}

bool SettingsStore::Has(std::string_view section, std::string_view key) const {
  auto s = FindName(values_, section);
  return s != values_.end() && FindName(s->second, key) != s->second.end();
}

void SettingsStore::Set(std::string_view section, std::string_view key, std::string value) {
  auto s = FindName(values_, section);
  if (s == values_.end()) s = values_.emplace(std::string(section), decltype(s->second){}).first;
  auto k = FindName(s->second, key);
  if (k == s->second.end()) {
    s->second.emplace(std::string(key), std::move(value));
  } else {
    k->second = std::move(value);
  }
}

void SettingsStore::SetInt(std::string_view section, std::string_view key, long long v) {
  Set(section, key, std::to_string(v));
}

void SettingsStore::SetBool(std::string_view section, std::string_view key, bool v) {
  Set(section, key, v ? "1" : "0");
}

void SettingsStore::Remove(std::string_view section, std::string_view key) {
  auto s = FindName(values_, section);
  if (s == values_.end()) return;
  auto k = FindName(s->second, key);
  if (k != s->second.end()) s->second.erase(k);
  if (s->second.empty()) values_.erase(s);
}

// ---------------------------------------------------------------- load / save

bool EinstellungenLaden(SettingsStore& s, const std::filesystem::path& file, std::string* error,
                        const TextCatalog& texts) {
  s.Clear();
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return true;
  IniDocument doc;
  std::string why;
  if (!ReadIniFile(file, &doc, &why)) {
    if (error) *error = texts.Get(txt::T9010, {file.string(), why});
    return false;
  }
  if (doc.binary) {
    if (error) *error = texts.Get(txt::T9008, {file.string(), "binary data"});
    return false;
  }
  for (const auto& sec : doc.sections) {
    for (const auto& [k, v] : sec.entries) s.Set(sec.name, k, LimitValue(v));
  }
  if (doc.badLines > 0) {
    if (error) *error = texts.Get(txt::T9009, {file.string(), std::to_string(doc.badLines)});
    return false;
  }
  return true;
}

bool EinstellungenLaden(SettingsStore& s, const std::filesystem::path& file, std::string* error) {
  return EinstellungenLaden(s, file, error, GermanTexts());
}

bool EinstellungenSpeichern(const SettingsStore& s, const std::filesystem::path& file,
                            std::string* error, const TextCatalog& texts) {
  // Start from what the file holds, so that keys of other versions or other
  // windows survive; then lay the store over it.
  IniDocument doc;
  std::error_code ec;
  if (std::filesystem::exists(file, ec)) {
    std::string why;
    if (!ReadIniFile(file, &doc, &why) || doc.binary) {
      KeepDamagedCopy(file);
      doc = IniDocument{};
    } else if (doc.badLines > 0) {
      KeepDamagedCopy(file);  // the lines we could not read would be lost
    }
  }
  for (const auto& [secName, keys] : s.Sections()) {
    IniSection* sec = nullptr;
    for (auto& x : doc.sections) {
      if (SameName(x.name, secName)) sec = &x;
    }
    if (sec == nullptr) {
      doc.sections.push_back({secName, {}});
      sec = &doc.sections.back();
    } else {
      // Known keys that the store no longer holds read as their defaults;
      // dropping them keeps shortened lists (V0, V1, ...) from coming back.
      std::erase_if(sec->entries, [&](const auto& e) {
        return SettingsStore::DefaultOf(sec->name, e.first) != nullptr && !s.Has(secName, e.first);
      });
    }
    for (const auto& [k, v] : keys) {
      bool replaced = false;
      for (auto& e : sec->entries) {
        if (SameName(e.first, k)) {
          e.second = v;
          replaced = true;
        }
      }
      if (!replaced) sec->entries.emplace_back(k, v);
    }
  }
  std::string why;
  if (!WriteFileAtomic(file, SerializeIni(doc), &why)) {
    if (error) *error = texts.Get(txt::T9011, {file.string(), why});
    return false;
  }
  return true;
}

bool EinstellungenSpeichern(const SettingsStore& s, const std::filesystem::path& file,
                            std::string* error) {
  return EinstellungenSpeichern(s, file, error, GermanTexts());
}

std::string ProfileGetItemWide(std::string_view section, std::string_view key,
                               std::string_view deflt, const std::filesystem::path& file) {
  IniDocument doc;
  std::string why;
  if (!ReadIniFile(file, &doc, &why) || doc.binary) return std::string(deflt);
  for (const auto& sec : doc.sections) {
    if (!SameName(sec.name, section)) continue;
    for (const auto& [k, v] : sec.entries) {
      if (SameName(k, key)) return LimitValue(v);
    }
  }
  return std::string(deflt);
}

bool ProfileWriteItemWide(std::string_view section, std::string_view key, std::string_view value,
                          const std::filesystem::path& file, std::string* error) {
  IniDocument doc;
  std::error_code ec;
  if (std::filesystem::exists(file, ec)) {
    std::string why;
    if (!ReadIniFile(file, &doc, &why) || doc.binary) {
      KeepDamagedCopy(file);
      doc = IniDocument{};
    }
  }
  IniSection* sec = nullptr;
  for (auto& x : doc.sections) {
    if (SameName(x.name, section)) sec = &x;
  }
  if (sec == nullptr) {
    doc.sections.push_back({std::string(section), {}});
    sec = &doc.sections.back();
  }
  bool replaced = false;
  for (auto& e : sec->entries) {
    if (SameName(e.first, key)) {
      e.second = std::string(value);
      replaced = true;
    }
  }
  if (!replaced) sec->entries.emplace_back(std::string(key), std::string(value));
  std::string why;
  if (!WriteFileAtomic(file, SerializeIni(doc), &why)) {
    if (error) *error = GermanTexts().Get(txt::T9011, {file.string(), why});
    return false;
  }
  return true;
}

}  // namespace kelvor
