#pragma once
// The filters of a search: which folders are entered and which files are
// looked at. Two tables, one for files and one for folders, each with its own
// switch, include-or-exclude mode, wildcard and case option, and a size filter
// with up to two conditions for files.
//
// Init_FilterOptionen compiles the settings into a FilterOptions record once
// at the start of a search; the scan then asks Search_CheckFolderFilter for
// each folder and Search_CheckFileFilter for each file (archive members too).
// The tests run for every file, so everything that can be done once is done
// at init: the kind of each filter is fixed, the texts are lower-cased, the
// patterns compiled. Per call only the two arguments are lower-cased, into
// buffers the record keeps; one record therefore serves one thread.
//
// Filter rows: a row may hold several filters separated by "|"; each part is
// trimmed and empty parts are dropped. Only checked rows count.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/pattern.h"

namespace kelvor {

class SettingsStore;
class TextCatalog;

// The folder filter row used while the settings hold no folder filter row at
// all: the freedesktop.org trash folders (".Trash-1000" at the top of a mount,
// and the home trash).
inline constexpr std::string_view kTrashFolderFilter = ".Trash-*|*/.local/share/Trash";

// FilterKind: what a filter is tested against, and how.
inline constexpr int32_t kFilterNameEqual = 0;    // bare name, equality
inline constexpr int32_t kFilterPathEqual = 1;    // full path, equality
inline constexpr int32_t kFilterNamePattern = 2;  // bare name, pattern
inline constexpr int32_t kFilterPathPattern = 3;  // full path, pattern

struct FilterRow {
  std::string text;
  bool checked = false;
};

struct FilterEntry {
  std::string FilterText;  // as tested: variables replaced, lower-cased when case is ignored
  std::string ShownText;   // as the user wrote it, trimmed (for the log)
  int32_t FilterKind = kFilterNameEqual;
  bool FilterEnabled = true;
  LikePattern Pattern;  // kinds 2 and 3; an invalid pattern matches nothing
};

struct FilterTable {
  std::vector<FilterEntry> Entries;
  // Entries the tests use; 0 means the list is switched off or empty.
  int32_t ActiveFilterCount = 0;
  uint8_t FilterMode = 0;         // 1: only what matches passes; 0: what matches is left out
  uint8_t UseWildcardValue = 0;   // 0: "*", "?", "#" make a pattern; 1: every filter is plain text
  uint8_t CaseSensitive = 0;      // 0: case is ignored (Unicode lower case)
  uint8_t IncludeSubfolders = 0;  // folders: a full-path filter also takes the folders below it
  // Derived at init: whether any entry looks at the name or at the path, so
  // that only what is needed gets lower-cased per call.
  bool UsesName = false;
  bool UsesPath = false;

  int32_t FilterCount() const { return static_cast<int32_t>(Entries.size()); }
};

struct SizeCondition {
  uint8_t SizeCompare = 0;  // 0: at least; otherwise: at most
  uint8_t SizeUnit = 0;     // 0 bytes, 1 KB, 2 MB, 3 GB, 4 TB (powers of 1024)
  int32_t SizeLimit = 0;

  // True when a file of `size` bytes fails the condition. The size is taken
  // to the unit in floating point, so 1.5 KB is not 1 KB; the limit itself
  // passes in both senses.
  bool Excludes(uint64_t size) const;
};

class FilterOptions {
 public:
  FilterTable Files;
  FilterTable Folders;
  uint8_t SizeFilterActive = 0;
  uint8_t SizeFilter2Active = 0;
  SizeCondition Size1;
  SizeCondition Size2{1, 0, 0};
  // Zero-byte files are left out (the "NullByte" option, or forced by the
  // criteria; the caller decides).
  bool Ignore0byteFiles = false;

  // True when any filter of the file table matches. False when the table is off.
  bool Check_Filter_Dateien(std::string_view fileName, std::string_view fullPath) const;
  // True when any filter of the folder table matches. The caller checks
  // Folders.ActiveFilterCount first (Search_CheckFolderFilter does).
  bool Check_Filter_Ordner(std::string_view folderName, std::string_view folderPath) const;
  // True when the file is to be left out: zero bytes with Ignore0byteFiles,
  // the size filter, then the file table in its mode.
  bool Search_CheckFileFilter(uint64_t size, std::string_view fileName,
                              std::string_view fullPath) const;
  // The folder decision of the scan: true when the folder is not entered.
  bool Search_CheckFolderFilter(std::string_view folderName, std::string_view folderPath) const;

 private:
  bool MatchTable(const FilterTable& t, std::string_view name, std::string_view path,
                  bool folders) const;
  mutable std::string nameBuf_, pathBuf_;
};

// Looks up the value of a variable written "%NAME%" in a filter; nullopt
// leaves the text as it stands. The default reads the environment.
using FilterVariableLookup = std::function<std::optional<std::string>(std::string_view name)>;

// A filter that is not a valid pattern: it matches nothing, and the caller
// logs it once.
struct FilterProblem {
  std::string filter;       // the filter as the user wrote it
  std::string description;  // what is wrong with it
  bool folderTable = false;

  // The log line: text 9402 and where the fault was found.
  std::string Text(const TextCatalog& texts) const;
};

// Init_FilterOptionen: builds both tables and the size filter from the
// settings (sections Dateifilter, DupFilter, DateiFilterPlatzhalter,
// DateiFilterGrossKlein, Ordnerfilter, DupFilterOrdner, OrdnerFilterPlatzhalter,
// OrdnerFilterGrossKlein, OrdnerFilterUnterordner, FilterGrösse) and
// normalises them (Init_All_Filters). The key Filtertyp of DupFilter and
// DupFilterOrdner holds the mode: 1 inclusive, anything else exclusive. While
// DupFilterOrdner holds no row at all, kTrashFolderFilter is its one checked
// row. Invalid patterns are put into *problems (may be null).
FilterOptions Init_FilterOptionen(const SettingsStore& settings, bool ignore0byteFiles,
                                  std::vector<FilterProblem>* problems = nullptr,
                                  const FilterVariableLookup& lookup = {});

// The rows of a filter list section (keys F<n>, C<n>), in the order of their
// numbers. A section without any F key gives no rows.
std::vector<FilterRow> ReadFilterRows(const SettingsStore& settings, std::string_view section);

// Builds one table from rows: with `switchOn`, each checked row is split at
// "|" and each part becomes an entry. Call Init_All_Filters afterwards.
FilterTable BuildFilterTable(const std::vector<FilterRow>& rows, bool switchOn, uint8_t filterMode,
                             uint8_t useWildcardValue, uint8_t caseSensitive,
                             uint8_t includeSubfolders = 0);

// FilterTyp_Festlegen: the kind of one filter text.
int32_t FilterTyp_Festlegen(std::string_view filter, uint8_t useWildcardValue);

// Init_All_Filters: replaces variables, lower-cases when case is ignored,
// drops disabled entries and compiles the patterns of both tables.
void Init_All_Filters(FilterOptions& options, std::vector<FilterProblem>* problems = nullptr,
                      const FilterVariableLookup& lookup = {});

// Replaces every "%NAME%" whose value `lookup` knows (the environment when
// `lookup` is empty); other text stays.
std::string ReplaceFilterVariables(std::string_view text, const FilterVariableLookup& lookup);

// The filter lines of a search log's header: the folder filters, the file
// filters and the size filter, each block only when it is in use.
std::vector<std::string> FilterLogHeaderLines(const FilterOptions& options,
                                              const TextCatalog& texts);

// Filter_Escape_Wildcards / Filter_Unescape_Wildcards: rewrite the text of
// every row of both filter lists in the settings.
void Filter_Escape_Wildcards(SettingsStore& settings);
void Filter_Unescape_Wildcards(SettingsStore& settings);

}  // namespace kelvor
