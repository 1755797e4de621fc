// The settings store and its file form (config4.ini, profiles *.pro4).

#include "frame/settings_store.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <unordered_map>
#include <unordered_set>

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
// never loses what the user had: "<file>.bak", "<file>.bak1", ... False (with
// no half copy left) when no copy could be made; the save must not go on then.
bool KeepDamagedCopy(const std::filesystem::path& file, std::string* why) {
  std::error_code ec;
  for (int n = 0; n < 100; ++n) {
    std::filesystem::path copy = file;
    copy += n == 0 ? std::string(".bak") : ".bak" + std::to_string(n);
    if (std::filesystem::exists(copy, ec) || std::filesystem::is_symlink(copy, ec)) continue;
    std::string bytes;
    if (!ReadWholeFile(file, &bytes, why)) return false;
    // Written like the settings themselves: whole, or not at all.
    return WriteFileAtomic(copy, bytes, why);
  }
  if (why) *why = "no free name for a copy";
  return false;
}

// An index from folded key name to the entry's position in a section.
std::unordered_map<std::string, std::size_t> KeyIndex(const IniSection& sec) {
  std::unordered_map<std::string, std::size_t> index;
  index.reserve(sec.entries.size());
  for (std::size_t i = 0; i < sec.entries.size(); ++i) {
    index.try_emplace(FoldName(sec.entries[i].first), i);
  }
  return index;
}

// Sets key=value in the section: the entry of that name (without regard to
// case) takes the value, else a new entry goes to the end.
void SetEntry(IniSection& sec, std::unordered_map<std::string, std::size_t>& index,
              std::string_view key, std::string_view value) {
  auto [it, fresh] = index.try_emplace(FoldName(key), sec.entries.size());
  if (fresh) {
    sec.entries.emplace_back(std::string(key), std::string(value));
  } else {
    sec.entries[it->second].second = std::string(value);
  }
}

// The section of that name (without regard to case); made at the end when new.
IniSection& SectionOf(IniDocument& doc, std::string_view name) {
  for (auto& x : doc.sections) {
    if (SameName(x.name, name)) return x;
  }
  doc.sections.push_back({std::string(name), {}});
  return doc.sections.back();
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

std::string FoldName(std::string_view name) {
  return LowerCase(name);
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
  // Names are compared without regard to case through their folded forms, so
  // that a section of many keys is read in time linear in its size.
  std::unordered_map<std::string, std::size_t> sectionIndex;
  std::vector<std::unordered_set<std::string>> keysSeen;
  std::size_t current = 0;
  bool inSection = false;
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
        inSection = false;
        continue;
      }
      std::string name(Trim(line.substr(1, close - 1)));
      auto [it, fresh] = sectionIndex.try_emplace(FoldName(name), doc.sections.size());
      if (fresh) {
        doc.sections.push_back({std::move(name), {}});
        keysSeen.emplace_back();
      }
      current = it->second;
      inSection = true;
      continue;
    }
    const auto eq = line.find('=');
    if (eq == std::string_view::npos || !inSection) {
      ++doc.badLines;
      continue;
    }
    std::string key(Trim(line.substr(0, eq)));
    if (key.empty()) {
      ++doc.badLines;
      continue;
    }
    // The first of two equal keys wins.
    if (!keysSeen[current].insert(FoldName(key)).second) continue;
    doc.sections[current].entries.emplace_back(std::move(key),
                                               std::string(Unquote(Trim(line.substr(eq + 1)))));
  }
  return doc;
}

bool ReadIniFile(const std::filesystem::path& file, IniDocument* doc, std::string* error,
                 const TextCatalog& texts) {
  std::string bytes;
  if (!ReadWholeFile(file, &bytes, error, texts)) return false;
  TextEncoding found{};
  std::string text = DecodeText(bytes, true, &found);
  const bool utf16 = found == TextEncoding::Utf16le || found == TextEncoding::Utf16be ||
                     found == TextEncoding::Utf16leNoBom;
  if (!utf16 || bytes.size() % 2 == 0) {
    *doc = ParseIni(text);
    return true;
  }
  // A UTF-16 file of an odd length was cut: its last line is not whole and
  // may hold half a value. Only the whole lines are read; the cut one counts
  // as a line that could not be read.
  text = DecodeText(std::string_view(bytes).substr(0, bytes.size() - 1), true);
  const auto lastBreak = text.rfind('\n');
  text.resize(lastBreak == std::string::npos ? 0 : lastBreak + 1);
  *doc = ParseIni(text);
  if (!doc->binary) ++doc->badLines;
  return true;
}

bool ReadIniFile(const std::filesystem::path& file, IniDocument* doc, std::string* error) {
  return ReadIniFile(file, doc, error, GermanTexts());
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

const std::string* SettingsStore::Find(std::string_view section, std::string_view key) const {
  auto f = folded_.find(FoldName(section));
  if (f == folded_.end()) return nullptr;
  auto k = f->second.keys.find(FoldName(key));
  if (k == f->second.keys.end()) return nullptr;
  return &values_.at(f->second.name).at(k->second);
}

std::string SettingsStore::Get(std::string_view section, std::string_view key,
                               std::string_view fallback) const {
  const std::string* v = Find(section, key);
  return v ? *v : std::string(fallback);
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
  return Find(section, key) != nullptr;
}

void SettingsStore::Set(std::string_view section, std::string_view key, std::string value) {
  // A name already held keeps the spelling it has.
  auto [f, freshSection] = folded_.try_emplace(FoldName(section));
  if (freshSection) f->second.name = std::string(section);
  auto& keys = values_[f->second.name];
  auto [k, freshKey] = f->second.keys.try_emplace(FoldName(key));
  if (freshKey) k->second = std::string(key);
  keys[k->second] = std::move(value);
}

void SettingsStore::SetInt(std::string_view section, std::string_view key, long long v) {
  Set(section, key, std::to_string(v));
}

void SettingsStore::SetBool(std::string_view section, std::string_view key, bool v) {
  Set(section, key, v ? "1" : "0");
}

void SettingsStore::Remove(std::string_view section, std::string_view key) {
  auto f = folded_.find(FoldName(section));
  if (f == folded_.end()) return;
  auto k = f->second.keys.find(FoldName(key));
  if (k == f->second.keys.end()) return;
  auto s = values_.find(f->second.name);
  s->second.erase(k->second);
  f->second.keys.erase(k);
  if (s->second.empty()) {
    values_.erase(s);
    folded_.erase(f);
  }
}

// ---------------------------------------------------------------- load / save

bool EinstellungenLaden(SettingsStore& s, const std::filesystem::path& file, std::string* error,
                        const TextCatalog& texts) {
  s.Clear();
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return true;
  IniDocument doc;
  std::string why;
  if (!ReadIniFile(file, &doc, &why, texts)) {
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
  auto fail = [&](const std::string& why) {
    if (error) *error = texts.Get(txt::T9011, {file.string(), why});
    return false;
  };
  // A FIFO or device in the file's place stays as it is.
  if (ExistsButNotRegular(file)) return fail(texts.Get(txt::T9020));
  // Start from what the file holds, so that keys of other versions or other
  // windows survive; then lay the store over it.
  IniDocument doc;
  std::error_code ec;
  if (std::filesystem::exists(file, ec)) {
    std::string why;
    if (!ReadIniFile(file, &doc, &why, texts) || doc.binary) {
      if (!KeepDamagedCopy(file, &why)) return fail(why);
      doc = IniDocument{};
    } else if (doc.badLines > 0) {
      // The lines we could not read would be lost.
      if (!KeepDamagedCopy(file, &why)) return fail(why);
    }
  }
  std::unordered_map<std::string, std::size_t> sectionIndex;
  for (std::size_t i = 0; i < doc.sections.size(); ++i) {
    sectionIndex.try_emplace(FoldName(doc.sections[i].name), i);
  }
  for (const auto& [secName, keys] : s.Sections()) {
    auto [at, fresh] = sectionIndex.try_emplace(FoldName(secName), doc.sections.size());
    if (fresh) doc.sections.push_back({secName, {}});
    IniSection& sec = doc.sections[at->second];
    if (!fresh) {
      // Known keys that the store no longer holds read as their defaults;
      // dropping them keeps shortened lists (V0, V1, ...) from coming back.
      std::erase_if(sec.entries, [&](const auto& e) {
        return SettingsStore::DefaultOf(sec.name, e.first) != nullptr && !s.Has(secName, e.first);
      });
    }
    // Keys the file holds keep their place; new ones follow in the store's order.
    auto index = KeyIndex(sec);
    for (const auto& [k, v] : keys) SetEntry(sec, index, k, v);
  }
  std::string why;
  if (!WriteFileAtomic(file, SerializeIni(doc), &why, texts)) return fail(why);
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
  const TextCatalog& texts = GermanTexts();
  auto fail = [&](const std::string& why) {
    if (error) *error = texts.Get(txt::T9011, {file.string(), why});
    return false;
  };
  if (ExistsButNotRegular(file)) return fail(texts.Get(txt::T9020));
  IniDocument doc;
  std::error_code ec;
  if (std::filesystem::exists(file, ec)) {
    std::string why;
    if (!ReadIniFile(file, &doc, &why) || doc.binary) {
      if (!KeepDamagedCopy(file, &why)) return fail(why);
      doc = IniDocument{};
    } else if (doc.badLines > 0) {
      if (!KeepDamagedCopy(file, &why)) return fail(why);
    }
  }
  IniSection& sec = SectionOf(doc, section);
  auto index = KeyIndex(sec);
  SetEntry(sec, index, key, value);
  std::string why;
  if (!WriteFileAtomic(file, SerializeIni(doc), &why)) return fail(why);
  return true;
}

}  // namespace kelvor
