#include <gtest/gtest.h>

#include <memory>
#include <regex>

#include "frame/formats.h"
#include "frame/log.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/text_file.h"
#include "frame/texts.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::ReadBytes;
using test::ReadUtf16File;
using test::TempDir;

struct PanelSpy : ProgressSink {
  std::vector<std::string> lines;
  void LogPanel(std::string_view line) override { lines.emplace_back(line); }
};

std::string Entry(double date, std::string_view text) {
  return FormatDate(date, kLogDateFormat) + " - " + std::string(text) + "\r\n";
}

TEST(Log, LinesAreUtf16WithStampAndErrorForm) {
  TempDir dir;
  const auto file = dir / "Kelvor4.txt";
  ASSERT_TRUE(AppendLogLine(file, "Suche gestartet ä"));
  ASSERT_TRUE(AppendLogLine(file, "kaputt", true));
  EXPECT_EQ(ReadBytes(file).substr(0, 2), "\xFF\xFE");
  const std::string text = ReadUtf16File(file);
  const std::regex line(R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d - Suche gestartet ä\r\n)"
                        R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d - ERROR: kaputt\r\n)");
  EXPECT_TRUE(std::regex_match(text, line)) << text;
  EXPECT_FALSE(AppendLogLine(dir / "missing" / "x.txt", "dropped"));
}

TEST(Log, LoggerWritesRunAndGeneralLogAndThePanel) {
  TempDir dir;
  Logger logger(dir / "general.txt", dir / "run.txt", dir / "last.txt");
  PanelSpy panel;
  logger.SetPanel(&panel);
  logger.LogProtokoll("eins");
  logger.LogProtokoll("zwei", false, false);
  logger.LogProtokollMain("haupt");
  EXPECT_EQ(panel.lines, std::vector<std::string>{"eins"});
  EXPECT_NE(ReadUtf16File(dir / "run.txt").find(" - zwei\r\n"), std::string::npos);
  EXPECT_NE(ReadUtf16File(dir / "general.txt").find(" - haupt\r\n"), std::string::npos);
}

TEST(Log, CutKeepsRecentEntriesWithTheirContinuationRows) {
  TempDir dir;
  const double now = DateNow();
  const std::string content = Entry(now - 20, "alt") + "alt Folgezeile\r\n" +
                              Entry(now - 2, "neu mit%!zwei Zeilen") + "Folgezeile neu\r\n" +
                              Entry(now - 30, "sehr alt") + "1234 - keine Datumszeile\r\n" +
                              Entry(now - 0.5, "ganz neu");
  const auto file = dir.Write("log.txt", Utf16leWithBom(content));
  std::string error;
  ASSERT_TRUE(Cut_Logfile(10, file, &error, TextCatalog{}, now)) << error;
  const std::string kept = ReadUtf16File(file);
  EXPECT_EQ(kept, Entry(now - 2, "neu mit%!zwei Zeilen") + "Folgezeile neu\r\n" +
                      Entry(now - 0.5, "ganz neu"));
  EXPECT_FALSE(std::filesystem::exists(dir / "log.txt.tmp"));
}

TEST(Log, CutOfOnlyOldEntriesLeavesTheByteOrderMark) {
  TempDir dir;
  const double now = DateNow();
  const auto file = dir.Write("log.txt", Utf16leWithBom(Entry(now - 11, "alt") + "mehr\r\n"));
  std::string error;
  ASSERT_TRUE(Cut_Logfile(10, file, &error, TextCatalog{}, now));
  EXPECT_EQ(ReadBytes(file), "\xFF\xFE");
  EXPECT_TRUE(Cut_Logfile(10, dir / "none.txt", &error));  // missing: nothing to do
}

TEST(Log, CutReportsAFileThatCannotBeRead) {
  TempDir dir;
  const auto folder = dir.Mkdir("log.txt");  // a folder in place of the file
  std::string error;
  EXPECT_FALSE(Cut_Logfile(10, folder, &error));
  EXPECT_NE(error.find("konnte nicht geöffnet werden"), std::string::npos) << error;
}

TEST(Log, SaveTmpLogAppendsToGeneralAndKeepsLastSearch) {
  TempDir dir;
  auto owned = std::make_unique<Logger>(dir / "Kelvor4.txt", dir / "temp" / "123.txt",
                                        dir / "lastsearch.txt");
  Logger& logger = *owned;
  std::filesystem::create_directory(dir / "temp");
  logger.LogProtokollMain("start");
  logger.LogProtokoll("lauf eins");
  logger.LogProtokoll("lauf zwei", true);
  std::string error;
  ASSERT_TRUE(logger.SaveTmpLog(&error)) << error;
  const std::string general = ReadUtf16File(dir / "Kelvor4.txt");
  EXPECT_LT(general.find(" - start\r\n"), general.find(" - lauf eins\r\n"));
  EXPECT_NE(general.find(" - ERROR: lauf zwei\r\n"), std::string::npos);
  EXPECT_EQ(general.find("\xEF\xBB\xBF"), std::string::npos);  // no mark in the middle
  const std::string last = ReadUtf16File(dir / "lastsearch.txt");
  EXPECT_NE(last.find("lauf eins"), std::string::npos);
  EXPECT_EQ(last.find("start"), std::string::npos);
  EXPECT_EQ(ReadBytes(dir / "temp" / "123.txt"), "\xFF\xFE");  // a fresh run log
  // Nobody searched again: the empty run log goes with the logger, and only it.
  owned.reset();
  EXPECT_FALSE(std::filesystem::exists(dir / "temp" / "123.txt"));
  EXPECT_TRUE(std::filesystem::exists(dir / "lastsearch.txt"));
  {
    Logger again(dir / "Kelvor4.txt", dir / "temp" / "124.txt", dir / "lastsearch.txt");
    again.LogProtokoll("eine Zeile");
  }
  EXPECT_NE(ReadUtf16File(dir / "temp" / "124.txt").find("eine Zeile"), std::string::npos);
}

TEST(Log, LogfileDelFollowsItsSettings) {
  TempDir dir;
  const double now = DateNow();
  const auto general = dir.Write("Kelvor4.txt", Utf16leWithBom(Entry(now - 8, "alt")));
  Logger logger(general, dir / "run.txt", dir / "last.txt");
  SettingsStore s;
  s.SetBool("DupVerz", "LogDel", false);
  LogfileDEL(s, logger, TextCatalog{});
  EXPECT_NE(ReadUtf16File(general).find(" - alt"), std::string::npos);

  s.SetBool("DupVerz", "LogDel", true);
  s.SetInt("DupVerz", "LogDelDays", 5);
  LogfileDEL(s, logger, TextCatalog{});
  const std::string text = ReadUtf16File(general);
  EXPECT_EQ(text.find(" - alt"), std::string::npos);
  EXPECT_NE(text.find("Protokolleinträge älter als 5 Tag(e) werden aus der Protokolldatei '" +
                      general.string() + "' gelöscht."),
            std::string::npos)
      << text;
}

}  // namespace
}  // namespace kelvor
