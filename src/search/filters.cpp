// Filter tables of a search and the tests the scan runs on every file and
// folder. See filters.h for the rules.

#include "search/filters.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>
#include <utility>

#include "frame/settings_store.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

constexpr std::string_view kFileRowsSection = "DupFilter";
constexpr std::string_view kFolderRowsSection = "DupFilterOrdner";
constexpr std::string_view kSizeSection = "FilterGrösse";

std::string_view Trim(std::string_view s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

// A whole number from a settings text; `fallback` when it is none. An empty
// text box is 0, as the setup window writes it back.
long long ParseInt(std::string_view text, long long fallback) {
  text = Trim(text);
  if (text.empty()) return 0;
  if (text.front() == '+') text.remove_prefix(1);
  long long v = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size()) return fallback;
  return v;
}

long long IntSetting(const SettingsStore& s, std::string_view section, std::string_view key,
                     long long fallback) {
  return ParseInt(s.Get(section, key, std::to_string(fallback)), fallback);
}

uint8_t FlagSetting(const SettingsStore& s, std::string_view section, std::string_view key,
                    long long fallback) {
  return IntSetting(s, section, key, fallback) != 0 ? 1 : 0;
}

SizeCondition ReadSizeCondition(const SettingsStore& s, std::string_view suffix, int defaultArt) {
  const std::string suf(suffix);
  SizeCondition c;
  c.SizeCompare = IntSetting(s, kSizeSection, "Art" + suf, defaultArt) == 0 ? 0 : 1;
  const long long unit = IntSetting(s, kSizeSection, "Typ" + suf, 0);
  c.SizeUnit = unit >= 0 && unit <= 4 ? static_cast<uint8_t>(unit) : 0;
  const long long limit = IntSetting(s, kSizeSection, "Grösse" + suf, 0);
  c.SizeLimit = static_cast<int32_t>(std::clamp<long long>(limit, INT32_MIN, INT32_MAX));
  return c;
}

// Kind 1: with IncludeSubfolders the filter also takes the folders below it.
// Ignoring case, the folder must be the filter or lie below it ("/tmp" takes
// "/tmp/x", not "/temporary"); with case, any path that begins with the
// filter's text counts ("/Tmp" takes "/Tmporary" too), as the two modes have
// always differed.
bool SubfolderMatch(std::string_view path, std::string_view filter, bool caseSensitive) {
  if (caseSensitive || (!filter.empty() && filter.back() == '/')) return path.starts_with(filter);
  return path.starts_with(filter) && (path.size() == filter.size() || path[filter.size()] == '/');
}

const char* UnitWord(uint8_t unit) {
  static constexpr const char* kUnits[] = {"Bytes", "KB", "MB", "GB", "TB"};
  return kUnits[unit <= 4 ? unit : 0];
}

std::string DescribeSize(const SizeCondition& c, const TextCatalog& texts) {
  std::string s = texts.Get(c.SizeCompare == 0 ? txt::T9400 : txt::T9401);
  s += ' ';
  s += std::to_string(c.SizeLimit);
  s += ' ';
  s += UnitWord(c.SizeUnit);
  return s;
}

void NormaliseTable(FilterTable& t, bool folders, std::vector<FilterProblem>* problems,
                    const FilterVariableLookup& lookup) {
  std::erase_if(t.Entries, [](const FilterEntry& e) { return !e.FilterEnabled; });
  t.UsesName = t.UsesPath = false;
  for (FilterEntry& e : t.Entries) {
    std::string text = ReplaceFilterVariables(e.ShownText, lookup);
    // A variable may bring a "/" with it ("%HOME%"), so the kind is fixed
    // again on the text that is tested.
    if (text != e.ShownText) e.FilterKind = FilterTyp_Festlegen(text, t.UseWildcardValue);
    if (!t.CaseSensitive) text = LowerCase(text);
    // Folder paths are tested without a trailing "/", so a filter written
    // with one must lose it too.
    if (folders && (e.FilterKind == kFilterPathEqual || e.FilterKind == kFilterPathPattern) &&
        text.size() > 1 && text.back() == '/') {
      text.pop_back();
    }
    e.FilterText = std::move(text);
    if (e.FilterKind == kFilterNamePattern || e.FilterKind == kFilterPathPattern) {
      std::string error;
      if (!e.Pattern.Compile(e.FilterText, false, &error) && problems) {
        problems->push_back({e.ShownText, error, folders});
      }
    }
    if (e.FilterKind == kFilterNameEqual || e.FilterKind == kFilterNamePattern) {
      t.UsesName = true;
    } else {
      t.UsesPath = true;
    }
  }
  t.ActiveFilterCount = t.FilterCount();
}

char AsciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::vector<std::pair<std::string, std::string>> RowKeys(const SettingsStore& settings,
                                                         std::string_view section) {
  std::vector<std::pair<std::string, std::string>> keys;
  const auto& sections = settings.Sections();
  auto it = sections.find(std::string(section));
  if (it == sections.end()) {
    // The file may spell a section in another case, as Windows allowed.
    it = std::find_if(sections.begin(), sections.end(), [&](const auto& entry) {
      return std::equal(entry.first.begin(), entry.first.end(), section.begin(), section.end(),
                        [](char a, char b) { return AsciiLower(a) == AsciiLower(b); });
    });
  }
  if (it == sections.end()) return keys;
  for (const auto& [key, value] : it->second) {
    if (key.size() < 2 || (key[0] != 'F' && key[0] != 'f')) continue;
    if (!std::all_of(key.begin() + 1, key.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      continue;
    }
    keys.emplace_back(key, value);
  }
  return keys;
}

void RewriteRows(SettingsStore& settings, std::string (*rewrite)(std::string_view)) {
  for (const std::string_view section : {kFileRowsSection, kFolderRowsSection}) {
    for (const auto& [key, value] : RowKeys(settings, section)) {
      settings.Set(section, key, rewrite(value));
    }
  }
}

}  // namespace

bool SizeCondition::Excludes(uint64_t size) const {
  static constexpr double kDivisor[] = {1.0, 1024.0, 1048576.0, 1073741824.0, 1099511627776.0};
  const double value = static_cast<double>(size) / kDivisor[SizeUnit <= 4 ? SizeUnit : 0];
  const auto limit = static_cast<double>(SizeLimit);
  return SizeCompare == 0 ? value < limit : value > limit;
}

bool FilterOptions::MatchTable(const FilterTable& t, std::string_view name, std::string_view path,
                               bool folders) const {
  if (folders && path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (!t.CaseSensitive) {
    if (t.UsesName) {
      nameBuf_.clear();
      AppendLowerCase(name, nameBuf_);
      name = nameBuf_;
    }
    if (t.UsesPath) {
      pathBuf_.clear();
      AppendLowerCase(path, pathBuf_);
      path = pathBuf_;
    }
  }
  for (const FilterEntry& e : t.Entries) {
    switch (e.FilterKind) {
      case kFilterNameEqual:
        if (name == e.FilterText) return true;
        break;
      case kFilterPathEqual:
        if (folders && t.IncludeSubfolders) {
          if (SubfolderMatch(path, e.FilterText, t.CaseSensitive != 0)) return true;
        } else if (path == e.FilterText) {
          return true;
        }
        break;
      case kFilterNamePattern:
        if (e.Pattern.Match(name)) return true;
        break;
      case kFilterPathPattern:
        if (e.Pattern.Match(path)) return true;
        break;
      default:
        break;
    }
  }
  return false;
}

bool FilterOptions::Check_Filter_Dateien(std::string_view fileName,
                                         std::string_view fullPath) const {
  if (Files.ActiveFilterCount == 0) return false;
  return MatchTable(Files, fileName, fullPath, false);
}

bool FilterOptions::Check_Filter_Ordner(std::string_view folderName,
                                        std::string_view folderPath) const {
  return MatchTable(Folders, folderName, folderPath, true);
}

bool FilterOptions::Search_CheckFileFilter(uint64_t size, std::string_view fileName,
                                           std::string_view fullPath) const {
  if (size == 0 && Ignore0byteFiles) return true;
  if (SizeFilterActive) {
    if (Size1.Excludes(size)) return true;
    if (SizeFilter2Active && Size2.Excludes(size)) return true;
  }
  if (Files.ActiveFilterCount >= 1) {
    const bool m = Check_Filter_Dateien(fileName, fullPath);
    return Files.FilterMode == 0 ? m : !m;
  }
  return false;
}

bool FilterOptions::Search_CheckFolderFilter(std::string_view folderName,
                                             std::string_view folderPath) const {
  if (Folders.ActiveFilterCount == 0) return false;
  const bool m = Check_Filter_Ordner(folderName, folderPath);
  return Folders.FilterMode == 0 ? m : !m;
}

std::string FilterProblem::Text(const TextCatalog& texts) const {
  std::string s = texts.Get(txt::T9402, {filter, description});
  s += folderTable ? " (modFilter.Check_Filter_Ordner)" : " (modFilter.Check_Filter_Dateien)";
  return s;
}

int32_t FilterTyp_Festlegen(std::string_view filter, uint8_t useWildcardValue) {
  const bool wildcard =
      useWildcardValue == 0 && filter.find_first_of("*?#") != std::string_view::npos;
  const bool path = filter.find('/') != std::string_view::npos;
  if (wildcard) return path ? kFilterPathPattern : kFilterNamePattern;
  return path ? kFilterPathEqual : kFilterNameEqual;
}

std::vector<FilterRow> ReadFilterRows(const SettingsStore& settings, std::string_view section) {
  std::vector<std::pair<long long, FilterRow>> numbered;
  for (auto& [key, value] : RowKeys(settings, section)) {
    const long long n = ParseInt(std::string_view(key).substr(1), -1);
    const std::string checkKey = "C" + key.substr(1);
    FilterRow row;
    row.text = std::move(value);
    row.checked = ParseInt(settings.Get(section, checkKey, "0"), 0) != 0;
    numbered.emplace_back(n, std::move(row));
  }
  std::stable_sort(numbered.begin(), numbered.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<FilterRow> rows;
  rows.reserve(numbered.size());
  for (auto& [n, row] : numbered) rows.push_back(std::move(row));
  return rows;
}

FilterTable BuildFilterTable(const std::vector<FilterRow>& rows, bool switchOn, uint8_t filterMode,
                             uint8_t useWildcardValue, uint8_t caseSensitive,
                             uint8_t includeSubfolders) {
  FilterTable t;
  t.FilterMode = filterMode;
  t.UseWildcardValue = useWildcardValue;
  t.CaseSensitive = caseSensitive;
  t.IncludeSubfolders = includeSubfolders;
  if (!switchOn) return t;
  for (const FilterRow& row : rows) {
    if (!row.checked) continue;
    std::string_view rest = row.text;
    while (true) {
      const std::size_t bar = rest.find('|');
      const std::string_view part = Trim(rest.substr(0, bar));
      if (!part.empty()) {
        FilterEntry e;
        e.ShownText = std::string(part);
        e.FilterText = e.ShownText;
        e.FilterKind = FilterTyp_Festlegen(part, useWildcardValue);
        t.Entries.push_back(std::move(e));
        ++t.ActiveFilterCount;
      }
      if (bar == std::string_view::npos) break;
      rest.remove_prefix(bar + 1);
    }
  }
  return t;
}

void Init_All_Filters(FilterOptions& options, std::vector<FilterProblem>* problems,
                      const FilterVariableLookup& lookup) {
  NormaliseTable(options.Files, false, problems, lookup);
  NormaliseTable(options.Folders, true, problems, lookup);
}

FilterOptions Init_FilterOptionen(const SettingsStore& settings, bool ignore0byteFiles,
                                  std::vector<FilterProblem>* problems,
                                  const FilterVariableLookup& lookup) {
  FilterOptions o;
  o.Ignore0byteFiles = ignore0byteFiles;

  o.Files = BuildFilterTable(ReadFilterRows(settings, kFileRowsSection),
                             FlagSetting(settings, "Dateifilter", "Verwenden", 0) != 0,
                             FlagSetting(settings, kFileRowsSection, "Filtertyp", 0),
                             FlagSetting(settings, "DateiFilterPlatzhalter", "Aktiv", 0),
                             FlagSetting(settings, "DateiFilterGrossKlein", "Aktiv", 0));

  std::vector<FilterRow> folderRows = ReadFilterRows(settings, kFolderRowsSection);
  if (folderRows.empty()) folderRows.push_back({std::string(kTrashFolderFilter), true});
  o.Folders =
      BuildFilterTable(folderRows, FlagSetting(settings, "Ordnerfilter", "Verwenden", 1) != 0,
                       FlagSetting(settings, kFolderRowsSection, "Filtertyp", 0),
                       FlagSetting(settings, "OrdnerFilterPlatzhalter", "Aktiv", 0),
                       FlagSetting(settings, "OrdnerFilterGrossKlein", "Aktiv", 0),
                       FlagSetting(settings, "OrdnerFilterUnterordner", "Aktiv", 0));

  o.SizeFilterActive = FlagSetting(settings, kSizeSection, "Aktiv", 0);
  o.Size1 = ReadSizeCondition(settings, "", 0);
  o.SizeFilter2Active = FlagSetting(settings, kSizeSection, "Aktiv2", 0);
  o.Size2 = ReadSizeCondition(settings, "2", 1);

  Init_All_Filters(o, problems, lookup);
  return o;
}

std::string ReplaceFilterVariables(std::string_view text, const FilterVariableLookup& lookup) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t open = text.find('%', i);
    if (open == std::string_view::npos) break;
    const std::size_t close = text.find('%', open + 1);
    if (close == std::string_view::npos) break;
    out.append(text.substr(i, open - i));
    const std::string_view name = text.substr(open + 1, close - open - 1);
    std::optional<std::string> value;
    if (!name.empty()) {
      if (lookup) {
        value = lookup(name);
      } else if (const char* env = std::getenv(std::string(name).c_str())) {
        value = env;
      }
    }
    if (value) {
      out += *value;
    } else {
      out.append(text.substr(open, close - open + 1));
    }
    i = close + 1;
  }
  out.append(text.substr(std::min(i, text.size())));
  return out;
}

std::vector<std::string> FilterLogHeaderLines(const FilterOptions& options,
                                              const TextCatalog& texts) {
  std::vector<std::string> lines;
  const auto table = [&](const FilterTable& t, const TextDef& active, const TextDef& entry) {
    if (t.ActiveFilterCount <= 0) return;
    lines.push_back(texts.Get(active, {std::to_string(t.ActiveFilterCount)}));
    lines.push_back(texts.Get(t.FilterMode == 1 ? txt::T5344 : txt::T5345));
    int n = 0;
    for (const FilterEntry& e : t.Entries) {
      lines.push_back(texts.Get(entry, {std::to_string(++n), e.ShownText}));
    }
  };
  table(options.Folders, txt::T5175, txt::T5343);
  table(options.Files, txt::T5174, txt::T5342);
  if (options.SizeFilterActive) {
    std::string line = texts.Get(txt::T5176);
    line += ": ";
    line += DescribeSize(options.Size1, texts);
    if (options.SizeFilter2Active) {
      line += " + ";
      line += DescribeSize(options.Size2, texts);
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

void Filter_Escape_Wildcards(SettingsStore& settings) {
  RewriteRows(settings, EscapeWildcards);
}

void Filter_Unescape_Wildcards(SettingsStore& settings) {
  RewriteRows(settings, UnescapeWildcards);
}

}  // namespace kelvor
