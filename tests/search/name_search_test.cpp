// Searches by similar file names on real files: which files group, the
// similarity each row shows, the threshold, names left empty by the ignored
// texts, references and the source-folder rules.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/options.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::Group;
using test::Groups;

class NameSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    test::OnlyCriteria(settings_, {kCritName});
    Set("PartialFilenameCompare", "1");
  }

  void Set(const char* key, std::string value) { settings_.Set("DupVerz", key, std::move(value)); }
  // The measure by its place in the list, and the percentage.
  void Measure(int method, int percent) {
    Set("PartialFilenameCompareMethod", std::to_string(method));
    Set("PartialFilenameComparePercent", std::to_string(percent));
  }
  void W(const std::string& rel) { tmp_.Write("tree/" + rel, rel); }

  // Searches the given folders below the tree, in this order.
  Groups Run(const std::vector<std::string>& sources) {
    std::vector<SourceFolderRow> rows;
    for (const auto& s : sources) {
      SourceFolderRow r;
      r.path = (tree_ / s).string();
      rows.push_back(r);
    }
    EXPECT_EQ(StartSearchForDups(settings_, rows, texts_), "");
    engine_ = std::make_unique<SearchEngine>(SearchContext{
        Init_Variablen(settings_, texts_), texts_, *logger_, progress_, prompt_, run_});
    EXPECT_TRUE(engine_->Search_Start(rows));
    return test::GroupsBelow(engine_->Result(), tree_);
  }

  // The similarity each file row shows, by path below the tree.
  std::map<std::string, double> Similar() const {
    std::map<std::string, double> out;
    const ResultModel& r = engine_->Result();
    const std::string prefix = tree_.string() + "/";
    r.ForEachGroup([&](RowRef g) {
      r.ForEachFile(g, [&](RowRef f) {
        out[r.File_GetPathFromNode(f).substr(prefix.size())] =
            CellAsDouble(r.Cell(f, CellKey::similar));
        return true;
      });
      return true;
    });
    return out;
  }

  std::string RunLog() const { return test::ReadUtf16File(data_ / "run.txt"); }

  test::TempDir tmp_;
  fs::path tree_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  test::SilentProgress progress_;
  test::SilentPrompt prompt_;
  RunState run_;
  std::unique_ptr<SearchEngine> engine_;
};

TEST_F(NameSearchTest, WordMatchGroupsTheSameWordsInAnyOrder) {
  W("p/holiday photos 2019.jpg");
  W("p/2019_Holiday-Photos.jpg");
  W("p/holiday photos 2020.jpg");
  Measure(5, 90);
  EXPECT_EQ(Run({"p"}), (Groups{{"p/holiday photos 2019.jpg", "p/2019_Holiday-Photos.jpg"}}));
  EXPECT_EQ(Similar(), (std::map<std::string, double>{{"p/holiday photos 2019.jpg", 100},
                                                      {"p/2019_Holiday-Photos.jpg", 100}}));
  // Two of three words are not enough at 90 %, and plenty at 60 %.
  Measure(5, 60);
  EXPECT_EQ(Run({"p"}).begin()->size(), 3u);
  // Without the similarity only equal names group.
  Set("PartialFilenameCompare", "0");
  EXPECT_EQ(Run({"p"}), Groups{});
}

TEST_F(NameSearchTest, ThresholdIsInclusive) {
  // SmartMatch: 9 of 10 characters in common gives exactly 0.9.
  W("a/abcdefghij.txt");
  W("b/ABCDEFGHIx.txt");
  Measure(0, 90);
  EXPECT_EQ(Run({"a", "b"}), (Groups{{"a/abcdefghij.txt", "b/ABCDEFGHIx.txt"}}));
  EXPECT_EQ(Similar()["b/ABCDEFGHIx.txt"], 90);
  EXPECT_EQ(Similar()["a/abcdefghij.txt"], 100);
  Measure(0, 91);
  EXPECT_EQ(Run({"a", "b"}), Groups{});
}

TEST_F(NameSearchTest, NamesEmptyAfterIgnoredTextNeverGroup) {
  // "copy" and "(2)" taken out leave nothing of the first two names;
  // SmartMatch would call two empty names equal.
  W("e/copy.txt");
  W("e/copy(2).txt");
  W("e/report.txt");
  W("e/Report copy.txt");
  Set("IgnoreText", "1");
  Set("IgnoreTextText", ":copy/(2)/ :");
  Measure(0, 90);
  EXPECT_EQ(Run({"e"}), (Groups{{"e/report.txt", "e/Report copy.txt"}}));
  const std::string log = RunLog();
  EXPECT_NE(log.find("'" + (tree_ / "e/copy.txt").string() + "' ist ohne die ignorierten"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("'" + (tree_ / "e/copy(2).txt").string() + "' ist ohne die ignorierten"),
            std::string::npos)
      << log;
}

TEST_F(NameSearchTest, ReferencesTakeNewFilesAndMembersDoNot) {
  // Each file in its own source folder, so that they arrive in this order.
  W("s1/abcdefghij.txt");
  W("s2/abcdefghiX.txt");  // joins s1's file, which becomes the reference
  W("s3/abcdefghXY.txt");  // near s2's file only, and that one is a member
  W("s4/ABCDEFGHIJ.txt");  // joins the reference's group
  Measure(0, 90);
  EXPECT_EQ(Run({"s1", "s2", "s3", "s4"}),
            (Groups{{"s1/abcdefghij.txt", "s2/abcdefghiX.txt", "s4/ABCDEFGHIJ.txt"}}));
  EXPECT_EQ(Similar()["s4/ABCDEFGHIJ.txt"], 100);
}

TEST_F(NameSearchTest, OnlyAcrossSourceFolders) {
  W("one/holiday photos.jpg");
  W("one/photos holiday.jpg");
  W("two/Holiday_Photos.png");
  Measure(5, 90);
  Set("SourceFolderCompareMode", "2");
  // The two files of "one" never meet each other; the first of them to come
  // takes "two"'s file into its group.
  const Groups g = Run({"one", "two"});
  ASSERT_EQ(g.size(), 1u);
  EXPECT_EQ(g.begin()->size(), 2u);
  EXPECT_EQ(g.begin()->count("two/Holiday_Photos.png"), 1u);
}

TEST_F(NameSearchTest, NameMethodsShapeTheKey) {
  // Only the first five characters count, after "_" and "-" are taken out.
  W("k/IMG_2019-holiday.jpg");
  W("k/img2019 beach.jpg");
  W("k/IMG_3020.jpg");
  Set("FileNameCompareMethod", "1");
  Set("FileNameCompareOnlyFirstCharsCount", "5");
  Set("IgnoreChars", "1");
  Set("IgnoreCharsText", ":_-:");
  Measure(2, 100);  // Levenshtein, case folded
  EXPECT_EQ(Run({"k"}), (Groups{{"k/IMG_2019-holiday.jpg", "k/img2019 beach.jpg"}}));
}

TEST_F(NameSearchTest, OptionsOfTheSimilarity) {
  // Content switches the similarity off; a measure outside the list is the
  // last one, as the search's description names it.
  test::OnlyCriteria(settings_, {kCritName, kCritContent});
  EXPECT_FALSE(Init_Variablen(settings_, texts_).PartialFilenameCompare);
  test::OnlyCriteria(settings_, {kCritName});
  Set("PartialFilenameCompareMethod", "12");
  Set("PartialFilenameComparePercent", "85");
  const SearchOptions o = Init_Variablen(settings_, texts_);
  EXPECT_TRUE(o.PartialFilenameCompare);
  EXPECT_EQ(o.PartialCompareMethod, 7);
  EXPECT_DOUBLE_EQ(o.PartialPercent, 0.85);
  EXPECT_NE(o.Description.find("(Simil: 85%)"), std::string::npos) << o.Description;
}

}  // namespace
}  // namespace kelvor
