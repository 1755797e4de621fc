// The search engine on real file trees: which groups a search finds, what it
// writes into the run's log and which counters it leaves behind.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadUtf16File;
using test::SetMtime;
using test::TempDir;

using test::Group;
using test::Groups;

struct RecordingSink : ProgressSink {
  std::map<Label, std::string> labels;
  std::vector<Label> order;
  std::vector<std::string> panel;
  int lastPercent = -1;
  // Called once when a label is first set to a non-trivial value: the stop
  // bar of a test.
  std::function<void(Label, std::string_view)> onLabel;
  void SetLabel(Label l, std::string_view text) override {
    labels[l] = std::string(text);
    order.push_back(l);
    if (onLabel) onLabel(l, text);
  }
  void ProgressBar(int percent) override { lastPercent = percent; }
  void LogPanel(std::string_view line) override { panel.emplace_back(line); }
};

struct ScriptedPrompt : Prompt {
  std::vector<std::string> messages;
  std::vector<std::string> questions;
  bool answer = false;
  void Message(std::string_view text, MessageIcon) override { messages.emplace_back(text); }
  bool AskYesNo(std::string_view text) override {
    questions.emplace_back(text);
    return answer;
  }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
};

// Local time of a day and hour as seconds since the epoch.
std::int64_t LocalTime(int year, int month, int day, int hour) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_isdst = -1;
  return static_cast<std::int64_t>(std::mktime(&tm));
}

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    logger_->SetPanel(&progress_);
  }

  // Switches exactly the given criteria on.
  void Criteria(std::initializer_list<int> on) { test::OnlyCriteria(settings_, on); }
  void Set(const char* key, std::string value) { settings_.Set("DupVerz", key, std::move(value)); }

  fs::path W(const std::string& rel, std::string_view content) {
    return tmp_.Write("tree/" + rel, content);
  }

  // Runs a search over the given folders below the tree ("" = the tree).
  Groups Run(std::vector<std::string> sources = {""}) {
    std::vector<SourceFolderRow> rows;
    for (const auto& s : sources) {
      SourceFolderRow r;
      r.path = s.empty() ? tree_.string() : (tree_ / s).string();
      rows.push_back(r);
    }
    engine_ = std::make_unique<SearchEngine>(SearchContext{
        Init_Variablen(settings_, texts_), texts_, *logger_, progress_, prompt_, run_});
    EXPECT_TRUE(engine_->Search_Start(rows));
    return Collect();
  }

  // Runs a search over eight equal files with the statistics line on, held
  // once it has found a duplicate so that the next file gets a full progress
  // refresh, which writes the line. False when the run never held.
  bool RunHeldForStatistics() {
    for (int i = 0; i < 8; ++i) W("f" + std::to_string(i), "12345");
    Criteria({2});
    Set("LogStatistic", "1");
    Set("LogStatisticMinutes", "0");
    bool held = false;
    progress_.onLabel = [&](Label l, std::string_view text) {
      if (l == Label::Dups && text != "0" && !held) {
        held = true;
        ::usleep(1200 * 1000);
      }
    };
    Run();
    progress_.onLabel = nullptr;
    return held;
  }

  std::string Rel(const std::string& full) const {
    const std::string prefix = tree_.string() + "/";
    return full.rfind(prefix, 0) == 0 ? full.substr(prefix.size()) : full;
  }

  Groups Collect() const { return test::GroupsBelow(engine_->Result(), tree_); }

  // Group titles, each with its files, for checks on titles.
  std::map<std::string, Group> Titled() const {
    std::map<std::string, Group> out;
    ResultModel& r = engine_->Result();
    r.ForEachGroup([&](RowRef g) {
      Group& files = out[r.Caption(g)];
      r.ForEachFile(g, [&](RowRef f) {
        files.insert(Rel(r.File_GetPathFromNode(f)));
        return true;
      });
      return true;
    });
    return out;
  }

  std::string RunLog() const { return ReadUtf16File(data_ / "run.txt"); }
  std::string GeneralLog() const { return ReadUtf16File(data_ / "Kelvor4.txt"); }

  TempDir tmp_;
  fs::path tree_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  RecordingSink progress_;
  ScriptedPrompt prompt_;
  RunState run_;
  std::unique_ptr<SearchEngine> engine_;
};

TEST_F(EngineTest, NameExtensionAndSize) {
  W("name/a/Report.txt", "one");
  W("name/b/REPORT.doc", "two two");
  W("name/c/other.txt", "three");
  Criteria({0});
  EXPECT_EQ(Run({"name"}), (Groups{{"name/a/Report.txt", "name/b/REPORT.doc"}}));

  // Name and extension together: the extensions now differ.
  Criteria({0, 1});
  EXPECT_EQ(Run({"name"}), Groups{});

  W("ext/a/x.txt", "1");
  W("ext/b/y.TXT", "22");
  W("ext/a/README", "333");
  W("ext/b/Makefile", "4444");
  W("ext/c/z.pdf", "55555");
  Criteria({1});
  Run({"ext"});
  auto titled = Titled();
  ASSERT_EQ(titled.size(), 2u);
  EXPECT_EQ(titled["[Ohne Dateiendung]"], (Group{"ext/a/README", "ext/b/Makefile"}));
  EXPECT_EQ(titled["TXT"], (Group{"ext/a/x.txt", "ext/b/y.TXT"}));

  // Size: zero-byte files are equal in size too as long as they are not ignored.
  W("size/a.bin", "12345");
  W("size/b.dat", "abcde");
  W("size/sub/c", "xxxxx");
  W("size/seven", "1234567");
  W("size/empty1", "");
  W("size/sub/empty2", "");
  Criteria({2});
  EXPECT_EQ(Run({"size"}), (Groups{{"size/a.bin", "size/b.dat", "size/sub/c"},
                                   {"size/empty1", "size/sub/empty2"}}));
  EXPECT_EQ(engine_->Result().DupCount(), 5);
  EXPECT_EQ(engine_->Stats().FilesChecked, 6);

  // The ignore option drops them, and counts them as excluded.
  Set("NullByte", "1");
  EXPECT_EQ(Run({"size"}), (Groups{{"size/a.bin", "size/b.dat", "size/sub/c"}}));
  EXPECT_EQ(engine_->Stats().FilesChecked, 6);
  EXPECT_EQ(engine_->Stats().FilesExcluded, 2);
}

TEST_F(EngineTest, DatesAttributesAndHardLinks) {
  SetMtime(W("dates/a/one", "1"), LocalTime(2021, 3, 15, 8));
  SetMtime(W("dates/b/two", "22"), LocalTime(2021, 3, 15, 20));
  SetMtime(W("dates/c/three", "333"), LocalTime(2021, 3, 16, 8));
  Criteria({4});
  EXPECT_EQ(Run({"dates"}), Groups{});
  Set("IgnoreTime", "1");
  EXPECT_EQ(Run({"dates"}), (Groups{{"dates/a/one", "dates/b/two"}}));
  auto titled = Titled();
  ASSERT_EQ(titled.size(), 1u);
  const std::string title = titled.begin()->first;
  EXPECT_NE(title.find("2021"), std::string::npos) << title;
  EXPECT_NE(title.find("15"), std::string::npos) << title;
  EXPECT_EQ(title.find(':'), std::string::npos) << "no time in " << title;
  Set("IgnoreTime", "0");

  // Attributes: read-only files against plain ones.
  W("attr/r1", "a");
  W("attr/sub/r2", "bb");
  W("attr/n1", "ccc");
  W("attr/sub/n2", "dddd");
  ::chmod((tree_ / "attr/r1").c_str(), 0444);
  ::chmod((tree_ / "attr/sub/r2").c_str(), 0444);
  Criteria({6});
  Run({"attr"});
  titled = Titled();
  ASSERT_EQ(titled.size(), 2u);
  EXPECT_EQ(titled["R"], (Group{"attr/r1", "attr/sub/r2"}));
  EXPECT_EQ(titled["[Keine Attribute]"], (Group{"attr/n1", "attr/sub/n2"}));

  // Hard links: linked files form groups, files with one link never appear.
  W("links/a/orig", "linked content");
  W("links/c/single", "linked content");
  W("links/d/other", "x");
  fs::create_directories(tree_ / "links/b");
  fs::create_hard_link(tree_ / "links/a/orig", tree_ / "links/b/link");
  fs::create_hard_link(tree_ / "links/d/other", tree_ / "links/d/other2");
  Criteria({7});
  EXPECT_EQ(Run({"links"}),
            (Groups{{"links/a/orig", "links/b/link"}, {"links/d/other", "links/d/other2"}}));
  for (const auto& [t, files] : Titled()) {
    EXPECT_GE(t.size(), 4u);
    EXPECT_EQ(t.substr(t.size() - 4), " (2)") << t;
  }
}

TEST_F(EngineTest, ContentBySha1AndSideBySide) {
  const std::string body(3000, 'q');
  W("a/one.bin", body);
  W("b/two.bin", body);
  W("c/three.other", body);
  W("d/last.bin", body.substr(0, 2999) + "Z");
  W("d/first.bin", "Z" + body.substr(1));
  W("e/empty1", "");
  W("e/empty2", "");
  const Groups expected{{"a/one.bin", "b/two.bin", "c/three.other"}};
  Criteria({3});
  for (const char* mode : {"2", "0"}) {
    SCOPED_TRACE(mode);
    Set("ContentCompare", mode);
    EXPECT_EQ(Run(), expected);
    EXPECT_EQ(engine_->Result().DupCount(), 3);
    EXPECT_EQ(engine_->Stats().FilesChecked, 7);
    // Empty files never take part in a content search.
    EXPECT_EQ(engine_->Stats().FilesExcluded, 2);
    EXPECT_GT(engine_->Stats().CompareCount, 0);
  }
  EXPECT_NE(RunLog().find("Dateivergleiche: "), std::string::npos);
}

// Many files of one size with several contents, spread over folders so that
// every key gets a long chain of representatives: checksums and byte by byte
// must find exactly the content classes, with the same number of compares.
TEST_F(EngineTest, LongChainsOfOneSize) {
  Groups expected;
  for (int content = 0; content < 7; ++content) {
    std::string body(2048, static_cast<char>('a' + content));
    body[content * 100] = '#';  // differ somewhere inside, not only at the ends
    Group g;
    for (int copy = 0; copy <= content % 3; ++copy) {
      std::string rel = "f" + std::to_string((content * 5 + copy * 3) % 4) + "/c" +
                        std::to_string(content) + "_" + std::to_string(copy) + ".bin";
      W(rel, body);
      g.insert(rel);
    }
    if (g.size() > 1) expected.insert(g);
  }
  // Larger files that differ only in the middle, far from both ends.
  std::string big(20000, 'm');
  W("f0/mid_a.bin", big);
  W("f2/mid_b.bin", big);
  big[10000] = 'X';
  W("f1/mid_c.bin", big);
  expected.insert(Group{"f0/mid_a.bin", "f2/mid_b.bin"});
  Criteria({3});
  std::int64_t compares[2] = {0, 0};
  int i = 0;
  for (const char* mode : {"2", "0"}) {
    SCOPED_TRACE(mode);
    Set("ContentCompare", mode);
    EXPECT_EQ(Run(), expected);
    compares[i++] = engine_->Stats().CompareCount;
  }
  EXPECT_EQ(compares[0], compares[1]);
}

TEST_F(EngineTest, SourceFolderCompareModes) {
  const std::string x(100, 'x'), y(100, 'y');
  W("s1/same.txt", x);
  W("s2/same.txt", x);
  W("s1/in1.dat", y);
  W("s1/sub/in2.dat", y);
  Criteria({3});

  // 1: only inside the same source folder.
  Set("SourceFolderCompareMode", "1");
  EXPECT_EQ(Run({"s1", "s2"}), (Groups{{"s1/in1.dat", "s1/sub/in2.dat"}}));

  // 2: only between source folders.
  Set("SourceFolderCompareMode", "2");
  EXPECT_EQ(Run({"s1", "s2"}), (Groups{{"s1/same.txt", "s2/same.txt"}}));
  // An outside file links the two equal files of one source.
  W("s3/link.dat", y);
  W("s3/same.txt", x);
  EXPECT_EQ(Run({"s1", "s2", "s3"}), (Groups{{"s1/in1.dat", "s1/sub/in2.dat", "s3/link.dat"},
                                             {"s1/same.txt", "s2/same.txt", "s3/same.txt"}}));

  // 2 without content: the key alone decides.
  Criteria({0, 2});
  EXPECT_EQ(Run({"s1", "s2"}), (Groups{{"s1/same.txt", "s2/same.txt"}}));

  // 3: only the same relative path in different source folders.
  Set("SourceFolderCompareMode", "3");
  W("p1/d/x.txt", x);
  W("p2/d/x.txt", x);
  W("p1/e/y.txt", y);
  W("p2/f/y.txt", y);
  W("p1/g/a.txt", x);
  W("p1/g/b.txt", x);
  for (int crit : {2, 3}) {
    SCOPED_TRACE(crit);
    Criteria({crit});
    EXPECT_EQ(Run({"p1", "p2"}), (Groups{{"p1/d/x.txt", "p2/d/x.txt"}}));
  }
}

TEST_F(EngineTest, RunLogLinesCountersAndMaximum) {
  W("one/a.txt", "same size");
  W("one/b.txt", "SAME SIZE");
  W("two/c.txt", "different size");
  Criteria({2});
  EXPECT_EQ(Run({"one", "two"}), (Groups{{"one/a.txt", "one/b.txt"}}));
  const SearchStatistics& st = engine_->Stats();
  EXPECT_EQ(st.FilesTotal, 3);
  EXPECT_EQ(st.FilesChecked, 3);
  EXPECT_EQ(st.GroupCount, 1);
  EXPECT_EQ(st.FoldersSearched, 2);
  EXPECT_EQ(progress_.labels[Label::Gruppen], "1");
  EXPECT_EQ(progress_.labels[Label::Dups], "2");
  EXPECT_NE(progress_.labels[Label::Suchmethode].find("Dateigröße"), std::string::npos);
  EXPECT_EQ(engine_->ClosingMessage().rfind("Duplikate: 2 (", 0), 0u) << engine_->ClosingMessage();

  ASSERT_TRUE(logger_->SaveTmpLog());
  const std::string log = ReadUtf16File(data_ / "lastsearch.txt");
  for (const std::string& line :
       {std::string("Suchmethode: Finde Duplikate anhand der gleichen Dateigröße"),
        "1.Quellordner: " + (tree_ / "one").string(), "2.Quellordner: " + (tree_ / "two").string(),
        std::string("Dateianzahl: 3"), std::string("Überprüfte Dateien: 3"),
        std::string("Duplikate: 2"), std::string("Gruppen: 1"), std::string("Dateivergleiche: "),
        std::string("Zeitaufwand: ")}) {
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n---\n" << log;
  }
  // The closing lines in their order, the time with two-digit hours.
  std::size_t at = 0;
  for (const char* line : {"Dateianzahl: 3\r\n", "Überprüfte Dateien: 3\r\n", "Gruppen: 1\r\n",
                           "Dateivergleiche: ", "Duplikate: 2 (", "Zeitaufwand: "}) {
    std::size_t next = log.find(line, at);
    ASSERT_NE(next, std::string::npos) << line << " after " << at << "\n---\n" << log;
    at = next;
  }
  EXPECT_TRUE(std::regex_search(log, std::regex("Zeitaufwand: [0-9]{2}:[0-9]{2}:[0-9]{2}\r\n")))
      << log;
  // The panel saw the same lines.
  EXPECT_FALSE(progress_.panel.empty());

  // A run without duplicates says so.
  Criteria({0, 2});
  EXPECT_EQ(Run({"one", "two"}), Groups{});
  EXPECT_EQ(engine_->ClosingMessage(),
            "Es wurden 2 Ordner und 3 Dateien durchsucht und keine Duplikate gefunden.");

  // The maximum of duplicates stops the run with reason 6.
  for (int i = 0; i < 6; ++i) W("many/f" + std::to_string(i), "12345");
  Criteria({2});
  Set("CancelSearchMaxDup", "1");
  Set("CancelSearchMaxDupCount", "2");
  Run({"many"});
  EXPECT_EQ(run_.StopReason.load(), kStopMaxDups);
  EXPECT_EQ(engine_->Result().DupCount(), 2);
  EXPECT_LT(engine_->Stats().FilesChecked, 6);
  EXPECT_NE(RunLog().find("Die Suche wurde abgebrochen, da die festgelegte Maximalanzahl von 2 "
                          "Duplikaten gefunden wurde."),
            std::string::npos);
}

TEST_F(EngineTest, StopByTheUser) {
  for (int i = 0; i < 6; ++i) W("f" + std::to_string(i), "12345");
  Criteria({2});
  // A "No" to the question changes nothing.
  prompt_.answer = false;
  bool asked = false;
  progress_.onLabel = [&](Label l, std::string_view text) {
    if (l == Label::Dups && text == "2" && !asked) {
      asked = true;
      engine_->cmdStop_Click(0);
    }
  };
  EXPECT_EQ(Run().begin()->size(), 6u);
  EXPECT_EQ(prompt_.questions.size(), 1u);
  EXPECT_EQ(run_.StopReason.load(), kStopNone);

  // "Yes" in the compare pass: the run ends with what it found.
  prompt_.answer = true;
  asked = false;
  EXPECT_EQ(Run().begin()->size(), 2u);
  EXPECT_EQ(run_.StopReason.load(), kStopUser);
  EXPECT_EQ(engine_->Stats().FilesChecked, 2);
  std::string log = RunLog();
  EXPECT_NE(log.find("Die Suche wurde von dem Anwender abgebrochen."), std::string::npos);
  EXPECT_NE(log.find("Überprüfte Dateien: 2 / 6"), std::string::npos) << log;

  // "Yes" during the counting pass: no compare pass, no statistics, an empty
  // result.
  fs::remove(data_ / "run.txt");
  progress_.onLabel = [&](Label l, std::string_view text) {
    if (l == Label::SourceNr && text != "-" && !asked) {
      asked = true;
      engine_->CancelSearch();
    }
  };
  asked = false;
  EXPECT_EQ(Run(), Groups{});
  EXPECT_EQ(engine_->Result().DupCount(), 0);
  EXPECT_EQ(engine_->Stats().FilesChecked, 0);
  log = RunLog();
  EXPECT_NE(log.find("Die Anzahl der Dateien wird ermittelt..."), std::string::npos) << log;
  // The run leaves straight after counting: no stop reason, no statistics,
  // no time line.
  for (const char* line : {"Dateianzahl:", "Die Suche wurde von dem Anwender abgebrochen.",
                           "Überprüfte Dateien", "Zeitaufwand"})
    EXPECT_EQ(log.find(line), std::string::npos) << line << "\n---\n" << log;
}

TEST_F(EngineTest, StartWithMissingFolders) {
  W("here/a", "1");
  W("here/b", "2");
  Criteria({2});
  SourceFolderRow gone, here;
  gone.path = (tree_ / "gone").string();
  here.path = (tree_ / "here").string();
  engine_ = std::make_unique<SearchEngine>(
      SearchContext{Init_Variablen(settings_, texts_), texts_, *logger_, progress_, prompt_, run_});
  // One of two missing: logged, the search goes on.
  EXPECT_TRUE(engine_->Search_Start({gone, here}));
  EXPECT_EQ(Collect(), (Groups{{"here/a", "here/b"}}));
  const std::string missing =
      "Der Quellordner '" + (tree_ / "gone").string() + "' konnte nicht gefunden werden!";
  EXPECT_NE(RunLog().find(missing), std::string::npos);
  EXPECT_TRUE(prompt_.messages.empty());
  // All missing: one box, no run.
  EXPECT_FALSE(engine_->Search_Start({gone}));
  ASSERT_EQ(prompt_.messages.size(), 1u);
  EXPECT_EQ(prompt_.messages[0], missing);
}

TEST_F(EngineTest, OddNamesDeepTreesAndLinks) {
  // A name that is not valid UTF-8 keeps its bytes.
  const std::string bad = "bad\xff\xfe name.txt";
  W("odd/a/" + bad, "1");
  W("odd/b/" + bad, "22");
  Criteria({0, 1});
  EXPECT_EQ(Run({"odd"}), (Groups{{"odd/a/" + bad, "odd/b/" + bad}}));
  engine_->Result().ForEachGroup([&](RowRef g) {
    engine_->Result().ForEachFile(g, [&](RowRef f) {
      const std::string p = engine_->Result().File_GetPathFromNode(f);
      struct stat st;
      EXPECT_EQ(::stat(p.c_str(), &st), 0) << p;
      return true;
    });
    return true;
  });

  // A tree deeper than the system's path limit.
  W("deep/deep.txt", "top");
  {
    int fd = ::open((tree_ / "deep").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    const std::string seg = "folder_of_twenty_chr";
    for (int i = 0; i < 300; ++i) {
      ASSERT_EQ(::mkdirat(fd, seg.c_str(), 0755), 0);
      int next = ::openat(fd, seg.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      ::close(fd);
      ASSERT_GE(next, 0);
      fd = next;
    }
    int f = ::openat(fd, "deep.txt", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(f, 0);
    ASSERT_EQ(::write(f, "bottom", 6), 6);
    ::close(f);
    ::close(fd);
  }
  Criteria({0, 1});
  Groups deep = Run({"deep"});
  ASSERT_EQ(deep.size(), 1u);
  ASSERT_EQ(deep.begin()->size(), 2u);
  EXPECT_TRUE(deep.begin()->count("deep/deep.txt"));
  std::size_t longest = 0;
  for (const auto& p : *deep.begin()) longest = std::max(longest, p.size());
  EXPECT_GT(longest, 6000u);
  EXPECT_EQ(engine_->Stats().FilesTotal, 2);
  test::RemoveDeep(tree_, "deep");

  // Symbolic links: a loop is walked once, a link to a file is no file.
  W("loop/f.txt", "1");
  W("loop/a/f.txt", "22");
  W("loop/a/b/f.txt", "333");
  fs::create_directory_symlink("..", tree_ / "loop/a/back");
  fs::create_directory_symlink("../..", tree_ / "loop/a/b/up");
  fs::create_directory_symlink(".", tree_ / "loop/self");
  fs::create_symlink("f.txt", tree_ / "loop/alias.txt");
  fs::create_symlink("nowhere", tree_ / "loop/dangling");
  ASSERT_TRUE(settings_.GetBool("DupVerz", "NTFSordner"));
  Criteria({1});
  EXPECT_EQ(Run({"loop"}), (Groups{{"loop/f.txt", "loop/a/f.txt", "loop/a/b/f.txt"}}));
  EXPECT_EQ(engine_->Stats().FilesTotal, 3);
  EXPECT_EQ(engine_->Stats().FilesChecked, 3);

  // Links to folders are not entered with following off.
  W("ext/x.txt", "x");
  fs::create_directory_symlink(tree_ / "ext", tree_ / "loop/toext");
  Set("NTFSordner", "0");
  EXPECT_EQ(Run({"loop"}), (Groups{{"loop/f.txt", "loop/a/f.txt", "loop/a/b/f.txt"}}));
  EXPECT_EQ(engine_->Stats().FoldersExcluded, 0);
  Set("NTFSordner", "1");
  EXPECT_EQ(Run({"loop"}),
            (Groups{{"loop/f.txt", "loop/a/f.txt", "loop/a/b/f.txt", "loop/toext/x.txt"}}));

  // A folder that cannot be read is skipped.
  if (::geteuid() != 0) {
    W("locked/open/f.txt", "1");
    W("locked/shut/f.txt", "2");
    W("locked/f.txt", "3");
    ::chmod((tree_ / "locked/shut").c_str(), 0);
    EXPECT_EQ(Run({"locked"}), (Groups{{"locked/f.txt", "locked/open/f.txt"}}));
    ::chmod((tree_ / "locked/shut").c_str(), 0755);
  }
}

TEST_F(EngineTest, StatisticsLineCarriesThePanelsCaptions) {
  ASSERT_TRUE(RunHeldForStatistics());
  const std::string log = RunLog();
  const std::regex line(
      "Dauer: [0-9]{2}:[0-9]{2}:[0-9]{2}, Fortschritt: [0-9]+%, Dateien: [0-9]+ / 8, [0-9]+ "
      "Duplikate, [0-9]+ Gruppen, [0-9]+ Vergleiche, 0 Prüfsummen, 0 Archive, 0 entpackt, 0 "
      "Dateien ausgeschlossen, 0 Ordner ausgeschlossen, RAM: [0-9.]+\r\n");
  EXPECT_TRUE(std::regex_search(log, line)) << log;
}

TEST_F(EngineTest, StatisticsLineFollowsTheLanguage) {
  const auto file = tmp_.Write("lang_en.txt", "9450,\"Memory:\"\n");
  texts_.SetLanguage(kLangEnglish);
  ASSERT_TRUE(texts_.LoadTextFromFile(file));
  ASSERT_TRUE(RunHeldForStatistics());
  const std::string log = RunLog();
  EXPECT_TRUE(std::regex_search(log, std::regex(", Memory: [0-9.]+\r\n"))) << log;
  EXPECT_EQ(log.find("RAM:"), std::string::npos) << log;
}

TEST_F(EngineTest, DatesAreWholeSeconds) {
  // Sets the change date to `seconds` and `nanos` past 15 March 2021, 8:00.
  const std::int64_t base = LocalTime(2021, 3, 15, 8);
  auto stamp = [&](const char* rel, std::int64_t seconds, long nanos) {
    const fs::path p = W(rel, rel);
    struct timespec ts[2];
    ts[0].tv_sec = ts[1].tv_sec = static_cast<time_t>(base + seconds);
    ts[0].tv_nsec = ts[1].tv_nsec = nanos;
    ASSERT_EQ(::utimensat(AT_FDCWD, p.c_str(), ts, 0), 0);
  };
  // Within one second, 0.4 s apart: one date.
  stamp("a/one", 5, 100000000);
  stamp("b/two", 5, 500000000);
  // Across a second, 0.4 s or 0.4 ms apart: two dates.
  stamp("c/three", 10, 900000000);
  stamp("d/four", 11, 300000000);
  stamp("e/five", 20, 999800000);
  stamp("f/six", 21, 200000);
  Criteria({4});
  EXPECT_EQ(Run(), (Groups{{"a/one", "b/two"}}));
  ResultModel& r = engine_->Result();
  r.ForEachGroup([&](RowRef g) {
    r.ForEachFile(g, [&](RowRef f) {
      const double seconds = CellAsDouble(r.Cell(f, CellKey::dateVal)) * 86400.0;
      EXPECT_NEAR(seconds, std::round(seconds), 1e-3);
      return true;
    });
    return true;
  });

  // A blank date format falls back to day, month, year and the time.
  Set("DateFormat3", "");
  Run();
  auto titled = Titled();
  ASSERT_EQ(titled.size(), 1u);
  EXPECT_EQ(titled.begin()->first, "15/03/2021 08:00:05");
}

TEST_F(EngineTest, FilesWithoutDuplicates) {
  W("a", "12345");
  W("sub/b", "abcde");
  W("c", "1234567");
  W("sub/d", "123456789");
  Criteria({2});

  Set("ShowOnlyFilesWithoutDups", "1");
  Run();
  auto titled = Titled();
  ASSERT_EQ(titled.size(), 1u);
  EXPECT_EQ(titled.begin()->first, "Dateien ohne Duplikate");
  EXPECT_EQ(titled.begin()->second, (Group{"c", "sub/d"}));
  // This mode logs its count and neither the statistics nor the time line.
  const std::string log = RunLog();
  EXPECT_NE(log.find("Es wurden 2 Dateien ohne Duplikate gefunden."), std::string::npos);
  EXPECT_EQ(log.find("Überprüfte Dateien"), std::string::npos) << log;
  EXPECT_EQ(log.find("Zeitaufwand"), std::string::npos) << log;
  Set("ShowOnlyFilesWithoutDups", "0");

  // The general log gets the heading only when there are such files.
  Set("LogFilesWithNoDups", "1");
  EXPECT_EQ(Run(), (Groups{{"a", "sub/b"}}));
  std::string general = GeneralLog();
  EXPECT_NE(general.find("Dateien ohne Duplikate:"), std::string::npos);
  EXPECT_NE(general.find((tree_ / "c").string()), std::string::npos);
  EXPECT_NE(general.find((tree_ / "sub/d").string()), std::string::npos);
  EXPECT_EQ(general.find((tree_ / "a").string() + "\r\n"), std::string::npos);

  fs::remove(data_ / "Kelvor4.txt");
  fs::remove(tree_ / "c");
  fs::remove(tree_ / "sub/d");
  EXPECT_EQ(Run(), (Groups{{"a", "sub/b"}}));
  EXPECT_EQ(GeneralLog().find("Dateien ohne Duplikate:"), std::string::npos);
  Set("LogFilesWithNoDups", "0");
}

TEST_F(EngineTest, GroupsNotInAllSourcesRemoved) {
  W("s1/x.txt", "1");
  W("s2/x.txt", "22");
  W("s3/x.txt", "333");
  W("s1/y.txt", "4444");
  W("s2/y.txt", "55555");
  Criteria({0, 1});
  const Groups all{{"s1/x.txt", "s2/x.txt", "s3/x.txt"}, {"s1/y.txt", "s2/y.txt"}};
  EXPECT_EQ(Run({"s1", "s2", "s3"}), all);
  Set("RemoveGroupsDupsNotInsideAllSources", "1");
  EXPECT_EQ(Run({"s1", "s2", "s3"}), (Groups{{"s1/x.txt", "s2/x.txt", "s3/x.txt"}}));
  // With the two sources that hold both groups, both stay.
  EXPECT_EQ(Run({"s1", "s2"}), (Groups{{"s1/x.txt", "s2/x.txt"}, {"s1/y.txt", "s2/y.txt"}}));
}

}  // namespace
}  // namespace kelvor
