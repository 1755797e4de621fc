// The search filters: tables built from the settings, the tests on names,
// paths and sizes, and the lines they put into the search log.

#include "search/filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "frame/settings_store.h"
#include "frame/texts.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

// Settings for the file list: rows as "text" (checked) or "-text" (unchecked).
void FileRows(SettingsStore& s, std::vector<std::string> rows, bool on = true) {
  s.SetBool("Dateifilter", "Verwenden", on);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool checked = rows[i].empty() || rows[i][0] != '-';
    s.Set("DupFilter", "F" + std::to_string(i), checked ? rows[i] : rows[i].substr(1));
    s.SetInt("DupFilter", "C" + std::to_string(i), checked ? 1 : 0);
  }
}

void FolderRows(SettingsStore& s, std::vector<std::string> rows) {
  s.SetBool("Ordnerfilter", "Verwenden", true);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    s.Set("DupFilterOrdner", "F" + std::to_string(i), rows[i]);
    s.SetInt("DupFilterOrdner", "C" + std::to_string(i), 1);
  }
}

FilterOptions Build(const SettingsStore& s, std::vector<FilterProblem>* problems = nullptr) {
  return Init_FilterOptionen(s, false, problems, [](std::string_view name) {
    return name == "DATA" ? std::optional<std::string>("/srv/Data") : std::nullopt;
  });
}

bool Excluded(const FilterOptions& f, std::string_view path, uint64_t size = 100) {
  const fs::path p(path);
  return f.Search_CheckFileFilter(size, p.filename().string(), path);
}

// What a search over `root` would look at: the folder filter decides which
// folders are entered, the file filter which files are taken.
std::vector<std::string> Scan(const FilterOptions& f, const fs::path& root) {
  std::vector<std::string> kept;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string path = it->path().string();
    const std::string name = it->path().filename().string();
    if (it->is_directory()) {
      if (f.Search_CheckFolderFilter(name, path)) it.disable_recursion_pending();
    } else if (!f.Search_CheckFileFilter(it->file_size(), name, path)) {
      kept.push_back(fs::relative(it->path(), root).string());
    }
  }
  std::sort(kept.begin(), kept.end());
  return kept;
}

TEST(FilterKind, DependsOnWildcardsAndSlash) {
  EXPECT_EQ(FilterTyp_Festlegen("thumbs.db", 0), kFilterNameEqual);
  EXPECT_EQ(FilterTyp_Festlegen("/home/u/x.txt", 0), kFilterPathEqual);
  EXPECT_EQ(FilterTyp_Festlegen("*.tmp", 0), kFilterNamePattern);
  EXPECT_EQ(FilterTyp_Festlegen("img##.png", 0), kFilterNamePattern);
  EXPECT_EQ(FilterTyp_Festlegen("*/cache/?", 0), kFilterPathPattern);
  // Brackets alone do not make a pattern; value 1 turns wildcards off.
  EXPECT_EQ(FilterTyp_Festlegen("[draft]", 0), kFilterNameEqual);
  EXPECT_EQ(FilterTyp_Festlegen("*.tmp", 1), kFilterNameEqual);
  EXPECT_EQ(FilterTyp_Festlegen("/x/*.tmp", 1), kFilterPathEqual);
}

TEST(FilterRows, SplitTrimCheckedAndSwitch) {
  SettingsStore s;
  FileRows(s, {" *.tmp | *.bak ", "|", "-*.log", "  ", "a.txt||b.txt"});
  FilterOptions f = Build(s);
  ASSERT_EQ(f.Files.ActiveFilterCount, 4);
  EXPECT_EQ(f.Files.Entries[0].ShownText, "*.tmp");
  EXPECT_EQ(f.Files.Entries[1].ShownText, "*.bak");
  EXPECT_EQ(f.Files.Entries[2].ShownText, "a.txt");
  EXPECT_EQ(f.Files.Entries[3].ShownText, "b.txt");
  EXPECT_TRUE(Excluded(f, "/d/x.bak"));
  EXPECT_FALSE(Excluded(f, "/d/x.log"));  // unchecked row

  // Rows are read in the order of their numbers, not of their keys' text.
  SettingsStore order;
  order.SetBool("Dateifilter", "Verwenden", true);
  order.Set("DupFilter", "F10", "ten");
  order.SetInt("DupFilter", "C10", 1);
  order.Set("DupFilter", "F2", "two");
  order.SetInt("DupFilter", "C2", 1);
  f = Build(order);
  ASSERT_EQ(f.Files.Entries.size(), 2u);
  EXPECT_EQ(f.Files.Entries[0].ShownText, "two");

  // Switch off, or nothing checked: everything passes in both modes.
  for (const char* mode : {"0", "1"}) {
    SettingsStore off;
    FileRows(off, {"*.tmp"}, false);
    off.Set("DupFilter", "Filtertyp", mode);
    f = Build(off);
    EXPECT_EQ(f.Files.ActiveFilterCount, 0);
    EXPECT_FALSE(Excluded(f, "/d/x.tmp"));
    EXPECT_FALSE(Excluded(f, "/d/x.txt"));
    SettingsStore none;
    FileRows(none, {"-*.tmp", "-*.txt"});
    none.Set("DupFilter", "Filtertyp", mode);
    f = Build(none);
    EXPECT_EQ(f.Files.ActiveFilterCount, 0);
    EXPECT_FALSE(Excluded(f, "/d/x.tmp"));
    EXPECT_FALSE(Excluded(f, "/d/x.txt"));
  }
}

TEST(FileFilter, KindsAndInclusiveOrExclusive) {
  SettingsStore s;
  FileRows(s, {"thumbs.db", "/data/keep/notes.txt", "*.tmp", "*/cache/*.bin"});
  FilterOptions f = Build(s);
  EXPECT_EQ(f.Files.FilterMode, 0);
  EXPECT_TRUE(Excluded(f, "/data/a/Thumbs.db"));  // name, equal, any folder
  EXPECT_FALSE(Excluded(f, "/data/a/thumbs.db.old"));
  EXPECT_TRUE(Excluded(f, "/data/keep/notes.txt"));  // full path, equal
  EXPECT_FALSE(Excluded(f, "/data/other/notes.txt"));
  EXPECT_TRUE(Excluded(f, "/data/x.TMP"));             // name, pattern
  EXPECT_TRUE(Excluded(f, "/home/u/cache/blob.bin"));  // path, pattern
  EXPECT_FALSE(Excluded(f, "/home/u/cachet/blob.bin"));
  EXPECT_FALSE(Excluded(f, "/data/x.txt"));

  s.SetInt("DupFilter", "Filtertyp", 1);  // inclusive: only what matches is taken
  f = Build(s);
  EXPECT_EQ(f.Files.FilterMode, 1);
  EXPECT_FALSE(Excluded(f, "/data/x.tmp"));
  EXPECT_FALSE(Excluded(f, "/data/keep/notes.txt"));
  EXPECT_TRUE(Excluded(f, "/data/x.txt"));
}

TEST(FileFilter, CaseModesAndUnicodeLetters) {
  SettingsStore s;
  FileRows(s, {"*.TMP", "Ärger.txt", "/Data/ÜBER/*"});
  FilterOptions f = Build(s);
  EXPECT_TRUE(f.Check_Filter_Dateien("a.tmp", "/x/a.tmp"));
  EXPECT_TRUE(f.Check_Filter_Dateien("ärger.txt", "/x/ärger.txt"));
  EXPECT_TRUE(f.Check_Filter_Dateien("ÄRGER.TXT", "/x/ÄRGER.TXT"));
  EXPECT_TRUE(f.Check_Filter_Dateien("n", "/data/über/n"));
  EXPECT_FALSE(f.Check_Filter_Dateien("arger.txt", "/x/arger.txt"));

  s.SetInt("DateiFilterGrossKlein", "Aktiv", 1);
  f = Build(s);
  EXPECT_FALSE(f.Check_Filter_Dateien("a.tmp", "/x/a.tmp"));
  EXPECT_TRUE(f.Check_Filter_Dateien("a.TMP", "/x/a.TMP"));
  EXPECT_FALSE(f.Check_Filter_Dateien("ärger.txt", "/x/ärger.txt"));
  EXPECT_TRUE(f.Check_Filter_Dateien("Ärger.txt", "/x/Ärger.txt"));
  EXPECT_FALSE(f.Check_Filter_Dateien("n", "/data/über/n"));
  EXPECT_TRUE(f.Check_Filter_Dateien("n", "/Data/ÜBER/n"));
}

TEST(FileFilter, WildcardOptionBracketsAndOddNames) {
  SettingsStore s;
  FileRows(s, {"[*]", "x#.txt"});
  FilterOptions f = Build(s);
  EXPECT_TRUE(f.Check_Filter_Dateien("*", "/d/*"));
  EXPECT_FALSE(f.Check_Filter_Dateien("a", "/d/a"));
  EXPECT_TRUE(f.Check_Filter_Dateien("x7.txt", "/d/x7.txt"));

  s.SetInt("DateiFilterPlatzhalter", "Aktiv", 1);  // every filter is plain text
  f = Build(s);
  EXPECT_FALSE(f.Check_Filter_Dateien("x7.txt", "/d/x7.txt"));
  EXPECT_TRUE(f.Check_Filter_Dateien("x#.txt", "/d/x#.txt"));
  EXPECT_TRUE(f.Check_Filter_Dateien("[*]", "/d/[*]"));

  // Names that are not valid UTF-8 are tested byte for byte, never repaired.
  SettingsStore odd;
  FileRows(odd, {"*.tmp", "?\xff?.dat"});
  f = Build(odd);
  EXPECT_TRUE(f.Check_Filter_Dateien("\xfe\xff.TMP", "/d/\xfe\xff.TMP"));
  EXPECT_TRUE(
      f.Check_Filter_Dateien("a\xff"
                             "b.dat",
                             "/d/a\xff"
                             "b.dat"));
  EXPECT_FALSE(
      f.Check_Filter_Dateien("a\xfe"
                             "b.dat",
                             "/d/a\xfe"
                             "b.dat"));
  EXPECT_FALSE(f.Check_Filter_Dateien("\xc3", "/d/\xc3"));
}

TEST(FileFilter, InvalidPatternIsReportedOnceAndMatchesNothing) {
  SettingsStore s;
  FileRows(s, {"[abc*", "*.tmp"});
  std::vector<FilterProblem> problems;
  FilterOptions f = Build(s, &problems);
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].filter, "[abc*");
  EXPECT_FALSE(problems[0].folderTable);
  const std::string line = problems[0].Text(TextCatalog());
  EXPECT_NE(line.find("Der Filter '[abc*' ist ein ungültiges Textmuster"), std::string::npos);
  EXPECT_NE(line.find("modFilter.Check_Filter_Dateien"), std::string::npos);
  // Only the valid filter acts; the bad one stays counted and never matches.
  EXPECT_EQ(f.Files.ActiveFilterCount, 2);
  EXPECT_FALSE(Excluded(f, "/d/[abc*"));
  EXPECT_FALSE(Excluded(f, "/d/abc"));
  EXPECT_TRUE(Excluded(f, "/d/a.tmp"));

  SettingsStore folders;
  FolderRows(folders, {"cache[z-a]*"});
  problems.clear();
  f = Build(folders, &problems);
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_TRUE(problems[0].folderTable);
  EXPECT_FALSE(f.Search_CheckFolderFilter("cache1", "/d/cache1"));
}

TEST(FileFilter, VariablesInFilters) {
  SettingsStore s;
  FileRows(s, {"%DATA%/a.txt", "%UNKNOWN%.txt"});
  FilterOptions f = Build(s);
  EXPECT_EQ(f.Files.Entries[0].FilterKind, kFilterPathEqual);
  EXPECT_TRUE(Excluded(f, "/srv/data/a.txt"));
  EXPECT_TRUE(Excluded(f, "/x/%unknown%.txt"));
  EXPECT_EQ(ReplaceFilterVariables("%A%-%B%-%A",
                                   [](std::string_view n) {
                                     return n == "A" ? std::optional<std::string>("1")
                                                     : std::nullopt;
                                   }),
            "1-%B%-%A");
}

TEST(SizeFilter, LimitsUnitsAndTwoConditions) {
  SettingsStore s;
  s.SetBool("FilterGrösse", "Aktiv", true);
  s.SetInt("FilterGrösse", "Art", 0);  // at least 1 KB
  s.SetInt("FilterGrösse", "Typ", 1);
  s.SetInt("FilterGrösse", "Grösse", 1);
  FilterOptions f = Build(s);
  EXPECT_FALSE(Excluded(f, "/d/a", 1024));
  EXPECT_TRUE(Excluded(f, "/d/a", 1023));

  s.SetInt("FilterGrösse", "Art", 1);  // at most 1 KB: 1.5 KB is not 1 KB
  f = Build(s);
  EXPECT_FALSE(Excluded(f, "/d/a", 1024));
  EXPECT_TRUE(Excluded(f, "/d/a", 1025));
  EXPECT_TRUE(Excluded(f, "/d/a", 1536));

  const uint64_t unit[] = {1, 1024, 1048576, 1073741824, 1099511627776};
  for (int u = 0; u <= 4; ++u) {
    s.SetInt("FilterGrösse", "Art", 0);
    s.SetInt("FilterGrösse", "Typ", u);
    s.SetInt("FilterGrösse", "Grösse", 3);
    f = Build(s);
    EXPECT_FALSE(Excluded(f, "/d/a", 3 * unit[u])) << u;
    EXPECT_TRUE(Excluded(f, "/d/a", 3 * unit[u] - 1)) << u;
    s.SetInt("FilterGrösse", "Art", 1);
    f = Build(s);
    EXPECT_FALSE(Excluded(f, "/d/a", 3 * unit[u])) << u;
    EXPECT_TRUE(Excluded(f, "/d/a", 3 * unit[u] + 1)) << u;
  }

  // At least 1 KB and at most 2 MB; the second only counts when switched on.
  s.SetInt("FilterGrösse", "Art", 0);
  s.SetInt("FilterGrösse", "Typ", 1);
  s.SetInt("FilterGrösse", "Grösse", 1);
  s.SetInt("FilterGrösse", "Typ2", 2);
  s.SetInt("FilterGrösse", "Grösse2", 2);
  f = Build(s);
  EXPECT_EQ(f.Size2.SizeCompare, 1);  // the default of the second is "at most"
  EXPECT_FALSE(Excluded(f, "/d/a", 5 * 1048576));
  s.SetBool("FilterGrösse", "Aktiv2", true);
  f = Build(s);
  EXPECT_TRUE(Excluded(f, "/d/a", 5 * 1048576));
  EXPECT_FALSE(Excluded(f, "/d/a", 2 * 1048576));
  EXPECT_TRUE(Excluded(f, "/d/a", 1000));

  // An empty limit is 0; with "at least 0" every file passes.
  s.SetBool("FilterGrösse", "Aktiv2", false);
  s.Set("FilterGrösse", "Grösse", "");
  f = Build(s);
  EXPECT_EQ(f.Size1.SizeLimit, 0);
  EXPECT_FALSE(Excluded(f, "/d/a", 1));

  // Switched off: no size counts.
  s.SetBool("FilterGrösse", "Aktiv", false);
  s.Set("FilterGrösse", "Grösse", "999");
  f = Build(s);
  EXPECT_FALSE(Excluded(f, "/d/a", 1));
}

TEST(SizeFilter, ZeroByteFilesComeFirst) {
  SettingsStore s;
  FileRows(s, {"*.keep"});
  s.SetInt("DupFilter", "Filtertyp", 1);
  FilterOptions f = Init_FilterOptionen(s, true);
  EXPECT_TRUE(f.Search_CheckFileFilter(0, "a.keep", "/d/a.keep"));
  EXPECT_FALSE(f.Search_CheckFileFilter(1, "a.keep", "/d/a.keep"));
  f = Init_FilterOptionen(s, false);
  EXPECT_FALSE(f.Search_CheckFileFilter(0, "a.keep", "/d/a.keep"));
}

TEST(FolderFilter, NamePathAndSubfolderRule) {
  SettingsStore s;
  FolderRows(s, {"node_modules", "/data/Temp", "*/build-#"});
  s.Set("OrdnerFilterPlatzhalter", "Aktiv", "0");
  FilterOptions f = Build(s);
  // A name filter acts at any depth; a trailing "/" of the path is cut.
  EXPECT_TRUE(f.Search_CheckFolderFilter("node_modules", "/a/b/c/node_modules/"));
  EXPECT_TRUE(f.Search_CheckFolderFilter("Temp", "/data/Temp"));
  EXPECT_FALSE(f.Search_CheckFolderFilter("x", "/data/Temp/x"));  // subfolder rule off
  EXPECT_TRUE(f.Search_CheckFolderFilter("build-1", "/src/build-1"));
  EXPECT_FALSE(f.Search_CheckFolderFilter("x", "/src/build-1/x"));

  // Subfolders included, case ignored: the folder and what lies below it.
  s.SetInt("OrdnerFilterUnterordner", "Aktiv", 1);
  f = Build(s);
  EXPECT_TRUE(f.Check_Filter_Ordner("x", "/data/temp/x"));
  EXPECT_TRUE(f.Check_Filter_Ordner("temp", "/DATA/TEMP"));
  EXPECT_FALSE(f.Check_Filter_Ordner("Temporary", "/data/Temporary"));
  EXPECT_FALSE(f.Check_Filter_Ordner("x", "/src/build-1/x"));  // a pattern never reaches below
  // With case: the first characters must equal the filter, so "Temporary" counts.
  s.SetInt("OrdnerFilterGrossKlein", "Aktiv", 1);
  f = Build(s);
  EXPECT_TRUE(f.Check_Filter_Ordner("x", "/data/Temp/x"));
  EXPECT_TRUE(f.Check_Filter_Ordner("Temporary", "/data/Temporary"));
  EXPECT_FALSE(f.Check_Filter_Ordner("x", "/data/temp/x"));

  // A filter written with a trailing "/" still means the folder.
  SettingsStore slash;
  FolderRows(slash, {"/data/Temp/"});
  f = Build(slash);
  EXPECT_TRUE(f.Search_CheckFolderFilter("Temp", "/data/Temp"));

  // Inclusive: only matching folders are entered.
  SettingsStore inc;
  FolderRows(inc, {"docs"});
  inc.SetInt("DupFilterOrdner", "Filtertyp", 1);
  f = Build(inc);
  EXPECT_FALSE(f.Search_CheckFolderFilter("Docs", "/h/Docs"));
  EXPECT_TRUE(f.Search_CheckFolderFilter("music", "/h/music"));
}

TEST(FolderFilter, TrashPresetWhileNoRowIsStored) {
  SettingsStore defaults;
  FilterOptions f = Build(defaults);
  ASSERT_EQ(f.Folders.ActiveFilterCount, 2);
  EXPECT_EQ(f.Folders.FilterMode, 0);
  EXPECT_TRUE(f.Search_CheckFolderFilter(".Trash-1000", "/media/usb/.Trash-1000"));
  EXPECT_TRUE(f.Search_CheckFolderFilter("Trash", "/home/u/.local/share/Trash"));
  EXPECT_FALSE(f.Search_CheckFolderFilter("Trash", "/home/u/Trash"));
  EXPECT_FALSE(f.Search_CheckFolderFilter("share", "/home/u/.local/share"));

  // Rows of the user's own replace the preset; the switch turns it off.
  SettingsStore own;
  FolderRows(own, {"tmp"});
  f = Build(own);
  EXPECT_FALSE(f.Search_CheckFolderFilter(".Trash-1000", "/media/usb/.Trash-1000"));
  defaults.SetBool("Ordnerfilter", "Verwenden", false);
  f = Build(defaults);
  EXPECT_FALSE(f.Search_CheckFolderFilter(".Trash-1000", "/media/usb/.Trash-1000"));
}

TEST(Filters, ScanOfARealTreeFromAConfigFile) {
  test::TempDir dir;
  const fs::path root = dir.Mkdir("src");
  dir.Write("src/a.txt", "12345");
  dir.Write("src/b.TMP", "12345");
  dir.Write("src/empty.txt", "");
  dir.Write("src/big.txt", std::string(3000, 'x'));
  dir.Write("src/.Trash-1000/files/gone.txt", "12345");
  dir.Write("src/Äpfel/c.txt", "12345");
  dir.Write("src/skip/d.txt", "12345");
  dir.Write("src/skip2/e.txt", "12345");

  const fs::path ini = dir / "config4.ini";
  {
    std::string text = "[Dateifilter]\nVerwenden=\"1\"\n";
    text += "[DupFilter]\nF0=\"*.tmp\"\nC0=\"1\"\nFiltertyp=\"0\"\n";
    text += "[Ordnerfilter]\nVerwenden=\"1\"\n";
    text += "[DupFilterOrdner]\nF0=\"" + std::string(kTrashFolderFilter) + "\"\nC0=\"1\"\n";
    text += "F1=\"" + (root / "skip").string() + "\"\nC1=\"1\"\nF2=\"SKIP2\"\nC2=\"1\"\n";
    text += "[FilterGrösse]\nAktiv=\"1\"\nArt=\"1\"\nTyp=\"1\"\nGrösse=\"2\"\n";
    dir.Write("config4.ini", text);
  }
  SettingsStore s;
  std::string error;
  ASSERT_TRUE(EinstellungenLaden(s, ini, &error)) << error;
  FilterOptions f = Init_FilterOptionen(s, true);
  EXPECT_EQ(Scan(f, root), (std::vector<std::string>{"a.txt", "Äpfel/c.txt"}));
}

TEST(Filters, LogHeaderLines) {
  SettingsStore s;
  FileRows(s, {"*.tmp|*.bak"});
  s.SetInt("DupFilter", "Filtertyp", 1);
  s.SetBool("FilterGrösse", "Aktiv", true);
  s.SetInt("FilterGrösse", "Typ", 1);
  s.SetInt("FilterGrösse", "Grösse", 10);
  FilterOptions f = Build(s);
  const TextCatalog texts;
  std::vector<std::string> lines = FilterLogHeaderLines(f, texts);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Ordnerfilter aktiviert: 2",
                       "Filterart: Exklusive",
                       "1.Ordnerfilter: .Trash-*",
                       "2.Ordnerfilter: */.local/share/Trash",
                       "Dateifilter aktiviert: 2",
                       "Filterart: Inklusive",
                       "1.Dateifilter: *.tmp",
                       "2.Dateifilter: *.bak",
                       "Filter für Dateigröße aktiviert: mindestens 10 KB",
                   }));

  s.SetBool("FilterGrösse", "Aktiv2", true);
  s.SetInt("FilterGrösse", "Typ2", 3);
  s.SetInt("FilterGrösse", "Grösse2", 4);
  s.SetBool("Ordnerfilter", "Verwenden", false);
  s.SetBool("Dateifilter", "Verwenden", false);
  f = Build(s);
  lines = FilterLogHeaderLines(f, texts);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Filter für Dateigröße aktiviert: mindestens 10 KB + höchstens 4 GB"}));

  s.SetBool("FilterGrösse", "Aktiv", false);
  EXPECT_TRUE(FilterLogHeaderLines(Build(s), texts).empty());
}

TEST(Filters, EscapeAndUnescapeRewriteBothLists) {
  SettingsStore s;
  FileRows(s, {"a*.txt", "plain"});
  FolderRows(s, {"dir?"});
  Filter_Escape_Wildcards(s);
  EXPECT_EQ(s.Get("DupFilter", "F0"), "a[*].txt");
  EXPECT_EQ(s.Get("DupFilter", "F1"), "plain");
  EXPECT_EQ(s.Get("DupFilterOrdner", "F0"), "dir[?]");
  FilterOptions f = Build(s);
  EXPECT_TRUE(f.Check_Filter_Dateien("a*.txt", "/d/a*.txt"));
  EXPECT_FALSE(f.Check_Filter_Dateien("ab.txt", "/d/ab.txt"));
  Filter_Unescape_Wildcards(s);
  EXPECT_EQ(s.Get("DupFilter", "F0"), "a*.txt");
  EXPECT_EQ(s.Get("DupFilterOrdner", "F0"), "dir?");
}

}  // namespace
}  // namespace kelvor
