// The search setup: the options record, the rules between criteria, the start
// checks, archive recognition and the command line.

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/settings_store.h"
#include "frame/texts.h"
#include "archive/archive_types.h"
#include "search/command_line.h"
#include "search/options.h"
#include "search/source_folders.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

constexpr const char* kSec = "DupVerz";

bool Crit(const SettingsStore& s, int i) {
  return s.GetBool(kSec, "Suchkriterien" + std::to_string(i));
}

std::vector<int> On(const SettingsStore& s) {
  std::vector<int> out;
  for (int i = 0; i < kCriterionCount; ++i)
    if (Crit(s, i)) out.push_back(i);
  return out;
}

void Only(SettingsStore& s, std::initializer_list<int> on) {
  for (int i = 0; i < kCriterionCount; ++i)
    s.SetBool(kSec, "Suchkriterien" + std::to_string(i), false);
  for (int i : on) s.SetBool(kSec, "Suchkriterien" + std::to_string(i), true);
}

TEST(InitVariablen, GroupTitleModeAndDerivedOptions) {
  SettingsStore s;
  TextCatalog t;
  struct Case {
    std::initializer_list<int> criteria;
    int mode;
  };
  for (const Case& c : std::initializer_list<Case>{{{0}, 0},
                                                   {{0, 1}, 1},
                                                   {{1}, 2},
                                                   {{1, 2}, 2},
                                                   {{2, 4}, 3},
                                                   {{3}, 3},
                                                   {{4, 6}, 4},
                                                   {{5, 6}, 5},
                                                   {{6}, 6},
                                                   {{7}, 7},
                                                   {{8}, 8},
                                                   {{9}, 9},
                                                   {{}, -1}}) {
    Only(s, c.criteria);
    EXPECT_EQ(Init_Variablen(s, t).GroupTitleMode, c.mode) << c.criteria.size();
  }

  // The ceiling of duplicates: the field only when its box is on.
  Only(s, {2});
  s.Set(kSec, "CancelSearchMaxDupCount", "17");
  EXPECT_EQ(Init_Variablen(s, t).MaxDupCount, 2000000);
  s.Set(kSec, "CancelSearchMaxDup", "1");
  EXPECT_EQ(Init_Variablen(s, t).MaxDupCount, 17);

  // Zero-byte files: ignored on request, always with content.
  SearchOptions o = Init_Variablen(s, t);
  EXPECT_FALSE(o.Ignore0ByteFiles);
  Only(s, {3});
  o = Init_Variablen(s, t);
  EXPECT_TRUE(o.Ignore0ByteFiles);
  EXPECT_EQ(o.Content.mode, 2);  // SHA-1 by default
  EXPECT_EQ(o.HashLength, 20);
  EXPECT_EQ(o.ChecksumText, "Erstelle SHA1-160 Prüfsumme");
  EXPECT_TRUE(o.Content.checksumCache);  // kept across runs by default
  s.Set("DupVerz", "ChecksumCache", "0");
  EXPECT_FALSE(Init_Variablen(s, t).Content.checksumCache);
  s.Set("DupVerz", "ChecksumCache", "1");
  for (int c : {8, 9}) {
    Only(s, {c});
    EXPECT_TRUE(Init_Variablen(s, t).Ignore0ByteFiles) << c;
  }

  // File name method: n of 0 compares all characters.
  Only(s, {0});
  s.Set(kSec, "FileNameCompareMethod", "1");
  s.Set(kSec, "FileNameCompareOnlyFirstCharsCount", "3");
  EXPECT_EQ(Init_Variablen(s, t).FileNameMethod, 1);
  s.Set(kSec, "FileNameCompareOnlyFirstCharsCount", "0");
  EXPECT_EQ(Init_Variablen(s, t).FileNameMethod, 0);

  // Ignored text and characters: on with an empty field counts as off.
  s.Set(kSec, "IgnoreText", "1");
  s.Set(kSec, "IgnoreTextText", "");
  EXPECT_FALSE(Init_Variablen(s, t).IgnoreText);
  s.Set(kSec, "IgnoreTextText", "copy/ (1)");
  o = Init_Variablen(s, t);
  EXPECT_TRUE(o.IgnoreText);
  EXPECT_EQ(o.IgnoreTexts, (std::vector<std::string>{"copy", " (1)"}));
  s.Set(kSec, "IgnoreChars", "1");
  s.Set(kSec, "IgnoreCharsText", "");
  EXPECT_FALSE(Init_Variablen(s, t).IgnoreChars);
  s.Set(kSec, "IgnoreCharsText", "_ä_-ä");
  o = Init_Variablen(s, t);
  EXPECT_TRUE(o.IgnoreChars);
  EXPECT_EQ(o.IgnoreCharList, (std::vector<std::string>{"_", "ä", "-"}));

  // Hard links force the hard link column; archives never run with them.
  Only(s, {7});
  s.Set(kSec, "ScanArchives", "1");
  s.Set(kSec, "ScanArchive", "1000000000000000");
  o = Init_Variablen(s, t);
  EXPECT_TRUE(o.ShowHardlinks);
  EXPECT_FALSE(o.ScanArchives);
  Only(s, {2});
  EXPECT_TRUE(Init_Variablen(s, t).ScanArchives);
  s.Set(kSec, "ScanArchive", "0000000000000000");
  EXPECT_FALSE(Init_Variablen(s, t).ScanArchives);
}

// The record holds everything a run reads: the compiled filters and what the
// log and the result show, so that the engine needs no settings.
TEST(InitVariablen, HoldsTheFiltersAndWhatTheRunShows) {
  SettingsStore s;
  TextCatalog t;
  Only(s, {kCritSize});
  s.SetInt("Optionen", "FormatSize", 2);
  s.SetInt("Optionen", "GroupBackColor", 123);
  s.SetBool("Dateifilter", "Verwenden", true);
  s.Set("DupFilter", "F0", "*.tmp");
  s.SetInt("DupFilter", "C0", 1);
  s.Set("DupFilter", "F1", "*[a");
  s.SetInt("DupFilter", "C1", 1);
  const SearchOptions o = Init_Variablen(s, t);
  EXPECT_EQ(o.Description, GetSearchDescription(s, t));
  EXPECT_FALSE(o.Description.empty());
  EXPECT_EQ(o.FormatSize, 2);
  EXPECT_EQ(o.Colors.GroupBackColor, 123);
  EXPECT_EQ(o.Colors.GroupTextColor, ResultColors{}.GroupTextColor);
  EXPECT_TRUE(o.Filters.Search_CheckFileFilter(10, "a.tmp", "/x/a.tmp"));
  EXPECT_FALSE(o.Filters.Search_CheckFileFilter(10, "a.txt", "/x/a.txt"));
  ASSERT_EQ(o.FilterProblems.size(), 1u);
  EXPECT_EQ(o.FilterProblems[0].filter, "*[a");
  // Zero-byte files follow the record's own rule.
  EXPECT_FALSE(o.Filters.Search_CheckFileFilter(0, "a.txt", "/x/a.txt"));
  s.SetBool(kSec, "NullByte", true);
  EXPECT_TRUE(Init_Variablen(s, t).Filters.Search_CheckFileFilter(0, "a.txt", "/x/a.txt"));
}

TEST(InitVariablen, PictureOptionsAsTheSetupMendsThem) {
  TextCatalog t;
  SettingsStore s;
  SearchOptions o = Init_Variablen(s, t);
  EXPECT_EQ(o.PictureMatch, 91);
  EXPECT_EQ(o.ThumbnailSize, 16);
  EXPECT_FALSE(o.PicRotateFlip);
  // The switch without a chosen form is off; the forms are items 1 to 7.
  s.Set("DupVerz", "SimiliarImagesRotateFlip", "1");
  EXPECT_FALSE(Init_Variablen(s, t).PicRotateFlip);
  s.Set("DupVerz", "SimiliarImagesRotateFlip3", "1");
  s.Set("DupVerz", "SimiliarImagesRotateFlip7", "1");
  o = Init_Variablen(s, t);
  EXPECT_TRUE(o.PicRotateFlip);
  EXPECT_EQ(o.PicForms, (1u << 3) | (1u << 7));
  s.Set("DupVerz", "SimiliarImagesRotateFlip", "0");
  EXPECT_EQ(Init_Variablen(s, t).PicForms, 0u);
  // The percentage: not a number 95, above 100 or not above 0 gives 100.
  for (auto [text, value] : {std::pair{"abc", 95}, std::pair{"101", 100}, std::pair{"0", 100},
                             std::pair{"-5", 100}, std::pair{" 80 ", 80}}) {
    s.Set("DupVerz", "SimilarPicsMatchPercent", text);
    EXPECT_EQ(Init_Variablen(s, t).PictureMatch, value) << text;
  }
  // 24 x 24 only with pHash.
  s.Set("DupVerz", "SimilarPicsThumbSizeIndex", "2");
  s.Set("DupVerz", "SimiliarImagesAlgo", "0");
  EXPECT_EQ(Init_Variablen(s, t).ThumbnailSize, 16);
  s.Set("DupVerz", "SimiliarImagesAlgo", "2");
  EXPECT_EQ(Init_Variablen(s, t).ThumbnailSize, 24);
}

TEST(ChkSuchKriterien, RulesBetweenCriteria) {
  SettingsStore s;
  Only(s, {0, 2, 3});
  // A stand-alone criterion switches every other one off.
  chkSuchKriterien_Click(s, kCritHardlink, true);
  EXPECT_EQ(On(s), std::vector<int>{7});
  // Any of 2..6 clears hard links.
  chkSuchKriterien_Click(s, kCritDateA, true);
  EXPECT_EQ(On(s), std::vector<int>{4});
  chkSuchKriterien_Click(s, kCritSimilarAudio, true);
  EXPECT_EQ(On(s), std::vector<int>{9});
  // Similar audio never runs with size or name.
  chkSuchKriterien_Click(s, kCritSize, true);
  EXPECT_EQ(On(s), std::vector<int>{2});
  chkSuchKriterien_Click(s, kCritSimilarPics, true);
  chkSuchKriterien_Click(s, kCritName, true);
  EXPECT_EQ(On(s), std::vector<int>{0});

  // Dependent options.
  s.Set(kSec, "ScanArchives", "1");
  chkSuchKriterien_Click(s, kCritHardlink, true);
  EXPECT_FALSE(s.GetBool(kSec, "ScanArchives"));
  Only(s, {3});
  s.Set(kSec, "DontCompareHardlinks", "1");
  chkSuchKriterien_Click(s, kCritSize, true);
  EXPECT_TRUE(s.GetBool(kSec, "DontCompareHardlinks"));
  chkSuchKriterien_Click(s, kCritContent, false);
  EXPECT_FALSE(s.GetBool(kSec, "DontCompareHardlinks"));
  Only(s, {0});
  s.Set(kSec, "PartialFilenameCompare", "1");
  chkSuchKriterien_Click(s, kCritSize, true);
  EXPECT_TRUE(s.GetBool(kSec, "PartialFilenameCompare"));
  chkSuchKriterien_Click(s, kCritContent, true);
  EXPECT_FALSE(s.GetBool(kSec, "PartialFilenameCompare"));
}

TEST(GetSearchDescription, JoinsCaptionsWithTheirDetails) {
  SettingsStore s;
  TextCatalog t;
  Only(s, {0, 2});
  EXPECT_EQ(GetSearchDescription(s, t),
            "Finde Duplikate anhand dem gleichen Dateinamen (ohne Dateiendung) + Finde Duplikate "
            "anhand der gleichen Dateigröße");
  Only(s, {3});
  EXPECT_EQ(GetSearchDescription(s, t), "Finde Duplikate anhand dem gleichen Inhalt SHA1-160");
  s.Set(kSec, "ContentCompare", "0");
  s.Set(kSec, "ContentComparePercent", "50");
  EXPECT_EQ(GetSearchDescription(s, t),
            "Finde Duplikate anhand dem gleichen Inhalt Byte für Byte (50%)");
  Only(s, {4});
  s.Set(kSec, "IgnoreTime", "1");
  EXPECT_EQ(GetSearchDescription(s, t),
            "Finde Duplikate anhand dem gleichen Änderungsdatum (ohne Uhrzeit)");
  Only(s, {0});
  s.Set(kSec, "FileNameCompareMethod", "1");
  s.Set(kSec, "FileNameCompareOnlyFirstCharsCount", "4");
  EXPECT_EQ(GetSearchDescription(s, t),
            "Finde Duplikate anhand dem gleichen Dateinamen (ohne Dateiendung) (Vergleiche nur "
            "Zeichen am Anfang eines Dateinamen: 4 Zeichen)");
  Only(s, {});
  EXPECT_EQ(GetSearchDescription(s, t), "");
}

TEST(StartSearchForDups, ChecksInTheirOrder) {
  test::TempDir tmp;
  const std::string a = tmp.Mkdir("a").string(), ab = tmp.Mkdir("a/b").string(),
                    c = tmp.Mkdir("c").string();
  const std::string gone = (tmp.path() / "gone").string();
  SettingsStore s;
  TextCatalog t;
  auto row = [](std::string p, bool sub = true, bool checked = true) {
    SourceFolderRow r;
    r.path = std::move(p);
    r.subfolders = sub;
    r.checked = checked;
    return r;
  };

  Only(s, {});
  EXPECT_EQ(StartSearchForDups(s, {row(a)}, t), "Es ist kein Suchkriterium ausgewählt.");
  Only(s, {2});
  EXPECT_EQ(StartSearchForDups(s, {}, t), "Es ist kein Quellordner ausgewählt!");
  EXPECT_EQ(StartSearchForDups(s, {row(a, true, false)}, t), "Es ist kein Quellordner ausgewählt!");
  EXPECT_EQ(StartSearchForDups(s, {row(a), row(gone)}, t),
            "Der Quellordner '" + gone + "' konnte nicht gefunden werden!");
  // A missing folder that is not checked does not matter.
  EXPECT_EQ(StartSearchForDups(s, {row(a), row(gone, true, false)}, t), "");
  // The path is normalised first.
  EXPECT_EQ(StartSearchForDups(s, {row("  " + a + "//")}, t), "");

  EXPECT_EQ(StartSearchForDups(s, {row(a), row(ab)}, t),
            "Der Suchvorgang kann nicht durchgeführt werden:\r\n\r\n'" + a + "' und '" + ab +
                "' überschneiden sich.");
  EXPECT_NE(StartSearchForDups(s, {row(a), row(a + "/")}, t), "");
  EXPECT_NE(StartSearchForDups(s, {row(c), row("/")}, t), "");
  // The upper row without subfolders: accepted.
  EXPECT_EQ(StartSearchForDups(s, {row(a, false), row(ab)}, t), "");
  // Names that only begin alike do not overlap.
  const std::string a2 = tmp.Mkdir("a2").string();
  EXPECT_EQ(StartSearchForDups(s, {row(a), row(a2)}, t), "");

  s.Set(kSec, "SourceFolderCompareMode", "2");
  EXPECT_EQ(StartSearchForDups(s, {row(a)}, t),
            "Die ausgewählte Vergleichsmethode 'Vergleiche Dateien nur zwischen verschiedenen "
            "Quellordnern' benötigt mindestens 2 Quellordner!");
  EXPECT_EQ(StartSearchForDups(s, {row(a), row(c)}, t), "");
}

TEST(ArchiveTypeOf, RecognisesTheListedTypes) {
  std::array<bool, 17> all{};
  all.fill(true);
  EXPECT_EQ(ArchiveTypeOf("a.zip", all), 1);
  EXPECT_EQ(ArchiveTypeOf("A.ZIP", all), 1);
  EXPECT_EQ(ArchiveTypeOf("a.rar", all), 2);
  EXPECT_EQ(ArchiveTypeOf("a.part1.rar", all), 2);
  EXPECT_EQ(ArchiveTypeOf("a.part01.rar", all), 2);
  EXPECT_EQ(ArchiveTypeOf("a.part2.rar", all), 0);
  EXPECT_EQ(ArchiveTypeOf("a.gz", all), 7);
  EXPECT_EQ(ArchiveTypeOf("a.tar.gz", all), 0);
  EXPECT_EQ(ArchiveTypeOf("a.tar", all), 6);
  EXPECT_EQ(ArchiveTypeOf("a.7z.001", all), 3);
  EXPECT_EQ(ArchiveTypeOf("a.zip.001", all), 1);
  EXPECT_EQ(ArchiveTypeOf("a.tar.001", all), 6);
  EXPECT_EQ(ArchiveTypeOf("a.001", all), 0);
  EXPECT_EQ(ArchiveTypeOf("a.cbt", all), 16);
  EXPECT_EQ(ArchiveTypeOf("zip", all), 0);
  EXPECT_EQ(ArchiveTypeOf("a.txt", all), 0);

  std::array<bool, 17> only7z{};
  only7z[3] = true;
  EXPECT_EQ(ArchiveTypeOf("a.7z.001", only7z), 3);
  EXPECT_EQ(ArchiveTypeOf("a.zip", only7z), 0);
  EXPECT_EQ(ArchiveTypeOf("a.zip.001", only7z), 0);
}

TEST(InitKommandozeile, ItemsShapeTheSetup) {
  test::TempDir tmp;
  const auto profiles = tmp.Mkdir("profile");
  tmp.Write("profile/Fotos.pro4", "");
  const std::string folder = tmp.Mkdir("my folder").string();
  SettingsStore s;
  Only(s, {0, 1});

  // An empty line changes nothing.
  CommandLine cl = Init_Kommandozeile({}, s, profiles);
  EXPECT_TRUE(cl.empty);
  EXPECT_EQ(On(s), (std::vector<int>{0, 1}));
  EXPECT_TRUE(Init_Kommandozeile({"-RESTART"}, s, profiles).empty);

  cl = Init_Kommandozeile({"-s23", folder}, s, profiles);
  EXPECT_FALSE(cl.empty);
  EXPECT_EQ(On(s), (std::vector<int>{2, 3}));
  EXPECT_EQ(cl.folders, std::vector<std::string>{folder});
  EXPECT_TRUE(cl.unknown.empty());

  cl = Init_Kommandozeile({"-sa"}, s, profiles);
  EXPECT_EQ(On(s), std::vector<int>{9});

  cl = Init_Kommandozeile({"-s2", "-c0", "\"" + folder + "\""}, s, profiles);
  EXPECT_EQ(On(s), (std::vector<int>{2, 3}));
  EXPECT_EQ(s.Get(kSec, "ContentCompare"), "0");
  EXPECT_EQ(cl.folders, std::vector<std::string>{folder});

  cl = Init_Kommandozeile({"-p:\"Fotos\"", "-p:\"Missing\""}, s, profiles);
  EXPECT_EQ(cl.profileName, "Fotos");
  EXPECT_EQ(cl.profilePath, profiles / "Fotos.pro4");
  cl = Init_Kommandozeile({"-p:\"Missing\""}, s, profiles);
  EXPECT_TRUE(cl.profileName.empty());

  cl = Init_Kommandozeile({"-x", "-sx", "-s"}, s, profiles);
  EXPECT_EQ(cl.unknown, (std::vector<std::string>{"-x", "-sx", "-s"}));

  // "-RESTART" beside other items belongs to the start-up and is no error.
  cl = Init_Kommandozeile({"-RESTART", "-s2", folder}, s, profiles);
  EXPECT_TRUE(cl.unknown.empty());
  EXPECT_EQ(cl.folders, std::vector<std::string>{folder});

  // Items are told apart by their first characters: "-sab" is "-sa", "-cx"
  // switches content on and leaves the method, "-n1" is "-n". "-s2x" has no
  // numeric rest and "-p" no name, so they are no item of the list.
  s.Set(kSec, "ContentCompare", "4");
  cl = Init_Kommandozeile({"-s2", "-cx", "-n1", "-s2x", "-p"}, s, profiles);
  EXPECT_EQ(On(s), (std::vector<int>{2, 3}));
  EXPECT_EQ(s.Get(kSec, "ContentCompare"), "4");
  EXPECT_TRUE(cl.flagN);
  EXPECT_EQ(cl.unknown, (std::vector<std::string>{"-s2x", "-p"}));
  cl = Init_Kommandozeile({"-sab"}, s, profiles);
  EXPECT_EQ(On(s), std::vector<int>{9});
  cl = Init_Kommandozeile({"-s0", "-hq"}, s, profiles);
  EXPECT_EQ(On(s), std::vector<int>{8});  // similar pictures rule out names
  EXPECT_TRUE(cl.unknown.empty());

  // Folders: the rows lose their marks, existing folders come in checked, a
  // missing one is left out without a word.
  const std::string gone = tmp.path().string() + "/gone";
  std::vector<SourceFolderRow> rows(1);
  rows[0].path = "/somewhere/else";
  cl = Init_Kommandozeile({"-s2", folder, gone}, s, profiles);
  ApplyCommandLineFolders(cl, rows);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_FALSE(rows[0].checked);
  EXPECT_EQ(rows[1].path, folder);
  EXPECT_TRUE(rows[1].checked);
  TextCatalog t;
  EXPECT_EQ(StartSearchForDups(s, rows, t), "");
  // Only missing folders: nothing is checked.
  rows.resize(1);
  cl = Init_Kommandozeile({"-s2", gone}, s, profiles);
  ApplyCommandLineFolders(cl, rows);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(StartSearchForDups(s, rows, t), "Es ist kein Quellordner ausgewählt!");
}

// The command line's folders come first, the profile after them: a profile
// with its own folders replaces them, one without keeps them.
TEST(InitKommandozeile, ProfileIsLoadedAfterTheFolders) {
  test::TempDir tmp;
  const auto profiles = tmp.Mkdir("profile");
  const std::string mine = tmp.Mkdir("mine").string(), theirs = tmp.Mkdir("theirs").string();
  const TextCatalog t;
  {
    SettingsStore p;
    Only(p, {0});
    StoreSourceFolders(p, {SourceFolderRow{theirs, true, false, false, ""}});
    std::string error;
    ASSERT_TRUE(EinstellungenSpeichern(p, profiles / "Mit.pro4", &error, t)) << error;
    Only(p, {1});
    StoreSourceFolders(p, {});
    ASSERT_TRUE(EinstellungenSpeichern(p, profiles / "Ohne.pro4", &error, t)) << error;
  }
  auto apply = [&](std::vector<std::string> items, SettingsStore& s) {
    CommandLine cl = Init_Kommandozeile(items, s, profiles);
    std::string error;
    auto rows = ApplyCommandLine(cl, s, profiles, t, &error);
    EXPECT_EQ(error, "");
    return rows;
  };

  SettingsStore s;
  StoreSourceFolders(s, {SourceFolderRow{"/old", true, true, false, ""}});
  auto rows = apply({"-s2", mine, "-p:Mit"}, s);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].path, theirs);
  EXPECT_TRUE(rows[0].checked);
  EXPECT_FALSE(rows[0].subfolders);
  // The profile's criteria count, as it is loaded last.
  EXPECT_EQ(On(s), std::vector<int>{0});

  SettingsStore s2;
  StoreSourceFolders(s2, {SourceFolderRow{"/old", true, true, false, ""}});
  rows = apply({"-p:\"Ohne\"", mine}, s2);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].path, "/old");
  EXPECT_FALSE(rows[0].checked);
  EXPECT_EQ(rows[1].path, mine);
  EXPECT_TRUE(rows[1].checked);
  EXPECT_EQ(On(s2), std::vector<int>{1});

  // No profile: only the folders.
  SettingsStore s3;
  rows = apply({"-s2", mine}, s3);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].path, mine);
}

TEST(StartSearchForDups, SimilaritySwitchesPassTheCheck) {
  test::TempDir tmp;
  const std::string a = tmp.Mkdir("a").string();
  SourceFolderRow row;
  row.path = a;
  TextCatalog t;
  SettingsStore s;
  for (const char* item : {"-s8", "-h", "-h2", "-d0", "-s9", "-sa", "-l30", "-a1"}) {
    SCOPED_TRACE(item);
    Only(s, {2});
    Init_Kommandozeile({item}, s, tmp.path());
    EXPECT_EQ(StartSearchForDups(s, {row}, t), "");
  }
  Only(s, {2});
  EXPECT_EQ(StartSearchForDups(s, {row}, t), "");
}

}  // namespace
}  // namespace kelvor
