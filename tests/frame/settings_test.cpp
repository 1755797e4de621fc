#include <gtest/gtest.h>

#include <sys/stat.h>

#include "frame/settings_store.h"
#include "frame/text_file.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::HangGuard;
using test::ReadBytes;
using test::ReadUtf16File;
using test::TempDir;

TEST(Settings, MissingFileGivesTheDefaults) {
  TempDir dir;
  SettingsStore s;
  s.Set("DupVerz", "ContentCompare", "5");
  std::string error;
  ASSERT_TRUE(EinstellungenLaden(s, dir / "config4.ini", &error));
  EXPECT_FALSE(s.Has("DupVerz", "ContentCompare"));
  EXPECT_EQ(s.GetInt("DupVerz", "ContentCompare"), 2);
  EXPECT_EQ(s.Get("DupVerz", "DateFormat3"), "dd/MM/yyyy hh:nn:ss");
  EXPECT_EQ(s.Get("DupVerz", "PartialFilenameCompareMethodDelimiterChars"), " ,_.;-");
  EXPECT_EQ(s.GetInt("DupVerz", "SimiliarImagesAlgo"), 0);
  EXPECT_EQ(s.GetInt("DupVerz", "SimilarPicsMatchPercent"), 91);
  EXPECT_EQ(s.GetInt("DupVerz", "Suchkriterien7"), 0);
  EXPECT_EQ(s.GetInt("DupVerz", "CompareBuffer1"), 32768);
  EXPECT_EQ(s.GetInt("FilterGrösse", "Art2"), 1);
  EXPECT_EQ(s.GetInt("Ordnerfilter", "Verwenden"), 1);
  EXPECT_EQ(s.GetInt("PICendungen", "C12"), -1);
  EXPECT_EQ(s.GetInt("Optionen", "3FolderColumnIndex"), -1);
  EXPECT_EQ(s.GetInt("Optionen", "GroupBackColor"), 16382443);
  EXPECT_EQ(s.GetInt("Allgemein", "Lang"), 0);
  EXPECT_TRUE(s.GetBool("DupVerz", "LogDel"));
  EXPECT_EQ(SettingsStore::DefaultOf("DupVerz", "NoSuchKey"), nullptr);
  EXPECT_EQ(SettingsStore::DefaultOf("Ordnerlist", "Vx"), nullptr);
  EXPECT_EQ(s.Get("DupVerz", "NoSuchKey", "fb"), "fb");
}

TEST(Settings, RoundTripWritesUtf16WithQuotesAndKeepsUnknownKeys) {
  TempDir dir;
  const auto file = dir.Write("config4.ini",
                              "[DupVerz]\nForeignKey=\"kept\"\nContentCompare=3\n"
                              "[Ordnerlist]\nV0=\"/a\"\nV1=\"/b\"\nV2=\"/c\"\n");
  SettingsStore s;
  std::string error;
  ASSERT_TRUE(EinstellungenLaden(s, file, &error)) << error;
  EXPECT_EQ(s.Get("dupverz", "contentcompare"), "3");  // names without regard to case
  s.Set("DupVerz", "IgnoreCharsText", "a \"quoted\" text ä");
  s.Remove("Ordnerlist", "V2");
  s.Remove("DupVerz", "ForeignKey");
  s.SetBool("DupVerz", "Suchkriterien3", true);
  ASSERT_TRUE(EinstellungenSpeichern(s, file, &error)) << error;

  const std::string bytes = ReadBytes(file);
  ASSERT_GE(bytes.size(), 2u);
  EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
  const std::string text = ReadUtf16File(file);
  EXPECT_NE(text.find("ContentCompare=\"3\"\r\n"), std::string::npos);
  EXPECT_NE(text.find("IgnoreCharsText=\"a \"quoted\" text ä\"\r\n"), std::string::npos);
  EXPECT_NE(text.find("ForeignKey=\"kept\""), std::string::npos);  // unknown: survives
  EXPECT_EQ(text.find("V2="), std::string::npos);                  // known: list shrinks

  SettingsStore again;
  ASSERT_TRUE(EinstellungenLaden(again, file, &error)) << error;
  EXPECT_EQ(again.Get("DupVerz", "IgnoreCharsText"), "a \"quoted\" text ä");
  EXPECT_EQ(again.GetInt("DupVerz", "Suchkriterien3"), 1);
  EXPECT_EQ(again.Get("Ordnerlist", "V1"), "/b");
  EXPECT_FALSE(again.Has("Ordnerlist", "V2"));
  // No temporary file is left behind.
  int entries = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(dir.path())) ++entries;
  EXPECT_EQ(entries, 1);
}

TEST(Settings, ReadsUtf8AndUtf16BigEndian) {
  TempDir dir;
  const auto utf8 = dir.Write("a.ini", "\xEF\xBB\xBF[Allgemein]\r\nLang=\"12\"\r\n");
  EXPECT_EQ(ProfileGetItemWide("Allgemein", "Lang", "0", utf8), "12");
  const auto plain = dir.Write("b.ini", "[FilterGrösse]\nGrösse = 17 \n");
  EXPECT_EQ(ProfileGetItemWide("FilterGrösse", "Grösse", "0", plain), "17");
  std::string be = "\xFE\xFF";
  for (char c : std::string("[S]\r\nK=v\r\n")) {
    be.push_back('\0');
    be.push_back(c);
  }
  const auto big = dir.Write("c.ini", be);
  EXPECT_EQ(ProfileGetItemWide("S", "K", "d", big), "v");
  EXPECT_EQ(ProfileGetItemWide("S", "Missing", "d", big), "d");
  EXPECT_EQ(ProfileGetItemWide("S", "K", "d", dir / "none.ini"), "d");
}

TEST(Settings, LongValuesAreCutAt4095Characters) {
  TempDir dir;
  const auto file = dir / "x.ini";
  ASSERT_TRUE(ProfileWriteItemWide("S", "K", std::string(5000, 'x'), file));
  EXPECT_EQ(ProfileGetItemWide("S", "K", "", file).size(), 4095u);
  // The writer keeps the other keys of the file.
  ASSERT_TRUE(ProfileWriteItemWide("S", "L", "2", file));
  EXPECT_EQ(ProfileGetItemWide("S", "K", "", file).size(), 4095u);
}

TEST(Settings, BinaryFileGivesDefaultsAMessageAndIsNeverLost) {
  TempDir dir;
  std::string junk;
  for (int i = 0; i < 300; ++i) junk.push_back(static_cast<char>((i * 37) % 256));
  const auto file = dir.Write("config4.ini", junk);
  SettingsStore s;
  std::string error;
  EXPECT_FALSE(EinstellungenLaden(s, file, &error));
  EXPECT_NE(error.find("config4.ini"), std::string::npos);
  EXPECT_EQ(s.GetInt("DupVerz", "ContentCompare"), 2);
  EXPECT_EQ(ReadBytes(file), junk);  // reading does not touch it

  s.SetInt("DupVerz", "ContentCompare", 4);
  ASSERT_TRUE(EinstellungenSpeichern(s, file, &error));
  EXPECT_EQ(ReadBytes(dir / "config4.ini.bak"), junk);  // kept aside before the save
  SettingsStore again;
  EXPECT_TRUE(EinstellungenLaden(again, file, &error));
  EXPECT_EQ(again.GetInt("DupVerz", "ContentCompare"), 4);
}

TEST(Settings, StrayLinesAreReportedAndTheRestIsRead) {
  TempDir dir;
  const auto file = dir.Write("config4.ini", "[DupVerz]\nthis is no key\nLogDelDays=3\n");
  SettingsStore s;
  std::string error;
  EXPECT_FALSE(EinstellungenLaden(s, file, &error));
  EXPECT_NE(error.find("1"), std::string::npos);
  EXPECT_EQ(s.GetInt("DupVerz", "LogDelDays"), 3);
}

TEST(Settings, NumbersThatAreNoNumbersReadAsDefault) {
  SettingsStore s;
  s.Set("DupVerz", "LogDelDays", "ten");
  s.Set("DupVerz", "PartialFilenameComparePercent", "87,5");
  EXPECT_EQ(s.GetInt("DupVerz", "LogDelDays"), 10);
  EXPECT_DOUBLE_EQ(s.GetDouble("DupVerz", "PartialFilenameComparePercent"), 87.5);
  s.Set("DupVerz", "NTFSordner", "-1");
  EXPECT_TRUE(s.GetBool("DupVerz", "NTFSordner"));
}

TEST(Settings, ManyKeysInOneSectionSurviveARoundTripInTheirOrder) {
  // 40,000 keys in one section, as a shared profile may hold them: folder rows
  // V0, A0, V1, A1, ... They are read, changed, written and read again; the
  // rows keep their order, and reading stays fast enough for the guard.
  constexpr int kRows = 20000;
  TempDir dir;
  std::string text = "[DupVerz]\r\nContentCompare=\"3\"\r\n[Ordnerlist]\r\n";
  for (int i = 0; i < kRows; ++i) {
    text += "V" + std::to_string(i) + "=\"/data/folder " + std::to_string(i) + " ä\"\r\n";
    text += "A" + std::to_string(i) + "=\"" + std::to_string(i % 2) + "\"\r\n";
  }
  text += "v7=\"the first of two equal keys wins\"\r\n";
  text += "[ordnerLIST]\r\nZz=\"a section named twice is one section\"\r\n";
  const auto file = dir.Write("config4.ini", Utf16leWithBom(text));

  HangGuard guard(std::chrono::seconds(90), "reading and writing 40,000 keys");
  SettingsStore s;
  std::string error;
  ASSERT_TRUE(EinstellungenLaden(s, file, &error)) << error;
  EXPECT_EQ(s.Get("Ordnerlist", "V7"), "/data/folder 7 ä");
  EXPECT_EQ(s.Get("ORDNERLIST", "a19999"), "1");
  EXPECT_EQ(s.Get("Ordnerlist", "Zz"), "a section named twice is one section");
  EXPECT_EQ(s.Sections().at("Ordnerlist").size(), 2u * kRows + 1);
  // The last row leaves the list, one row changes, one key is new.
  s.Remove("Ordnerlist", "V" + std::to_string(kRows - 1));
  s.Remove("Ordnerlist", "A" + std::to_string(kRows - 1));
  s.Set("ordnerlist", "v5", "/changed");
  s.Set("Ordnerlist", "Neu", "new key");
  ASSERT_TRUE(EinstellungenSpeichern(s, file, &error)) << error;

  // The file holds the rows in the order they had, the new key behind them.
  const std::string written = ReadUtf16File(file);
  std::size_t pos = written.find("[Ordnerlist]\r\n");
  ASSERT_NE(pos, std::string::npos) << written.substr(0, 200);
  std::vector<std::string> keys;
  for (pos += 14; pos < written.size() && written[pos] != '[';) {
    const std::size_t end = written.find("\r\n", pos);
    keys.push_back(written.substr(pos, written.find('=', pos) - pos));
    pos = end + 2;
  }
  std::vector<std::string> expected;
  for (int i = 0; i + 1 < kRows; ++i) {
    expected.push_back("V" + std::to_string(i));
    expected.push_back("A" + std::to_string(i));
  }
  expected.push_back("Zz");
  expected.push_back("Neu");
  EXPECT_EQ(keys, expected);

  SettingsStore again;
  ASSERT_TRUE(EinstellungenLaden(again, file, &error)) << error;
  for (int i = 0; i + 1 < kRows; ++i) {
    const std::string n = std::to_string(i);
    const std::string want = i == 5 ? "/changed" : "/data/folder " + n + " ä";
    ASSERT_EQ(again.Get("Ordnerlist", "V" + n), want) << i;
    ASSERT_EQ(again.Get("Ordnerlist", "A" + n), std::to_string(i % 2)) << i;
  }
  EXPECT_FALSE(again.Has("Ordnerlist", "V" + std::to_string(kRows - 1)));
  EXPECT_EQ(again.Get("Ordnerlist", "Neu"), "new key");
  EXPECT_EQ(again.GetInt("DupVerz", "ContentCompare"), 3);
}

TEST(Settings, AFileCutToAnOddByteCountIsReported) {
  TempDir dir;
  const std::string whole = Utf16leWithBom("[DupVerz]\r\nLogDelDays=\"3\"\r\nLogDel=\"0\"\r\n");
  // Cut inside the last value: the half line must not be taken as a value.
  const std::string cut = whole.substr(0, whole.size() - 9);
  ASSERT_EQ(cut.size() % 2, 1u);
  const auto file = dir.Write("config4.ini", cut);
  SettingsStore s;
  std::string error;
  EXPECT_FALSE(EinstellungenLaden(s, file, &error));
  EXPECT_NE(error.find("config4.ini"), std::string::npos) << error;
  EXPECT_NE(error.find("1 ungültige Zeile"), std::string::npos) << error;
  EXPECT_EQ(s.GetInt("DupVerz", "LogDelDays"), 3);  // the whole lines are read
  EXPECT_FALSE(s.Has("DupVerz", "LogDel"));
  EXPECT_EQ(ReadBytes(file), cut);

  // Saving keeps the damaged file aside first.
  ASSERT_TRUE(EinstellungenSpeichern(s, file, &error)) << error;
  EXPECT_EQ(ReadBytes(dir / "config4.ini.bak"), cut);
}

TEST(Settings, AFifoIsNeitherReadNorReplaced) {
  TempDir dir;
  const auto file = dir / "config4.ini";
  ASSERT_EQ(::mkfifo(file.c_str(), 0644), 0);
  HangGuard guard(std::chrono::seconds(20), "reading a FIFO as config4.ini");
  SettingsStore s;
  std::string error;
  EXPECT_FALSE(EinstellungenLaden(s, file, &error));
  EXPECT_NE(error.find("'" + file.string() + "' konnte nicht gelesen werden"), std::string::npos)
      << error;
  EXPECT_NE(error.find("keine reguläre Datei"), std::string::npos) << error;
  EXPECT_EQ(s.GetInt("DupVerz", "ContentCompare"), 2);
  EXPECT_EQ(ProfileGetItemWide("DupVerz", "ContentCompare", "d", file), "d");

  // Saving does not put a file in the FIFO's place.
  error.clear();
  EXPECT_FALSE(EinstellungenSpeichern(s, file, &error));
  EXPECT_NE(error.find("konnte nicht gespeichert werden"), std::string::npos) << error;
  EXPECT_FALSE(ProfileWriteItemWide("S", "K", "v", file));
  struct stat st {};
  ASSERT_EQ(::lstat(file.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
  EXPECT_FALSE(std::filesystem::exists(dir / "config4.ini.bak"));
}

}  // namespace
}  // namespace kelvor
