// Searches for similar pictures on folders of real photographs made with
// ImageMagick: turned, mirrored, resaved and unrelated pictures, and files
// that are no pictures at all.

#include <cstdlib>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
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
#include "support/png_header.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::Group;
using test::Groups;

using test::PngHeaderOnly;

class SimilarPicturesSearch : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    test::OnlyCriteria(settings_, {kCritSimilarPics});
    Set("SimiliarImagesAlgo", "2");  // pHash
    Set("SimilarPicsThumbSizeIndex", "1");
    Set("SimilarPicsMatchPercent", "91");
  }

  void Set(const std::string& key, std::string value) {
    settings_.Set("DupVerz", key, std::move(value));
  }

  // Runs ImageMagick's convert in the tree; the test fails if it cannot.
  void Convert(const std::string& args) {
    const std::string cmd = "cd '" + tree_.string() + "' && convert " + args + " 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << "convert failed (package imagemagick): " << cmd;
  }
  // A photograph of 256 x 192 pixels, different for each seed.
  void Photo(const std::string& name, int seed) {
    Convert("-size 256x192 -seed " + std::to_string(seed) + " plasma:fractal -quality 92 " + name);
  }

  Groups Run() {
    SourceFolderRow row;
    row.path = tree_.string();
    SearchOptions o = Init_Variablen(settings_, texts_);
    o.Content.readAheadThreads = threads_;
    engine_ = std::make_unique<SearchEngine>(
        SearchContext{std::move(o), texts_, *logger_, progress_, prompt_, run_});
    EXPECT_TRUE(engine_->Search_Start({row}));
    return test::GroupsBelow(engine_->Result(), tree_);
  }

  std::string RunLog() const { return test::ReadUtf16File(data_ / "run.txt"); }

  test::TempDir tmp_;
  fs::path tree_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  ProgressSink progress_;
  test::SilentPrompt prompt_;
  RunState run_;
  std::unique_ptr<SearchEngine> engine_;
  unsigned threads_ = 0;  // workers reading pictures ahead; 0: one per core
};

TEST_F(SimilarPicturesSearch, TurnedAndMirroredCopiesJoinOnlyWithTheirForms) {
  test::HangGuard guard(std::chrono::seconds(300), "turned pictures");
  for (int seed : {11, 22, 33}) {
    const std::string p = "p" + std::to_string(seed);
    Photo(p + ".jpg", seed);
    fs::copy_file(tree_ / (p + ".jpg"), tree_ / (p + "_copy.jpg"));
    Convert(p + ".jpg -rotate 90 " + p + "_r90.jpg");
    Convert(p + ".jpg -rotate 180 " + p + "_r180.jpg");
    Convert(p + ".jpg -rotate 270 " + p + "_r270.jpg");
    Convert(p + ".jpg -flop " + p + "_mirror.jpg");
  }
  // Turned by a quarter, a picture changes its format and ratio.
  Set("SimiliarImagesOnlySameFormat", "0");
  Set("SimiliarImagesOnlySameRatio", "0");

  // Without the forms, only the untouched copies meet.
  EXPECT_EQ(Run(), (Groups{{"p11.jpg", "p11_copy.jpg"},
                           {"p22.jpg", "p22_copy.jpg"},
                           {"p33.jpg", "p33_copy.jpg"}}));
  // The switch alone, with no form chosen, changes nothing.
  Set("SimiliarImagesRotateFlip", "1");
  EXPECT_EQ(Run().size(), 3u);
  EXPECT_EQ(engine_->Result().DupCount(), 6);

  // With the seven forms each copy joins its original's group.
  for (int form = 1; form <= 7; ++form) Set("SimiliarImagesRotateFlip" + std::to_string(form), "1");
  Groups expected;
  for (int seed : {11, 22, 33}) {
    const std::string p = "p" + std::to_string(seed);
    expected.insert(Group{p + ".jpg", p + "_copy.jpg", p + "_r90.jpg", p + "_r180.jpg",
                          p + "_r270.jpg", p + "_mirror.jpg"});
  }
  EXPECT_EQ(Run(), expected);
  // One hash a picture, however many representatives it meets.
  EXPECT_EQ(engine_->Stats().ChecksumCount, 18);
  EXPECT_EQ(RunLog().find("Fehler"), std::string::npos) << RunLog();
}

TEST_F(SimilarPicturesSearch, ResavedHalfSizeCopiesJoinAndUnrelatedPhotosDoNot) {
  test::HangGuard guard(std::chrono::seconds(300), "resaved pictures");
  for (int seed : {5, 6, 7}) {
    const std::string p = "q" + std::to_string(seed);
    Photo(p + ".jpg", seed);
    Convert(p + ".jpg -resize 50% -quality 60 " + p + "_half.jpg");
  }
  for (int seed : {101, 202, 303, 404}) Photo("other" + std::to_string(seed) + ".jpg", seed);
  // Same format and ratio (the default gates) hold for a half-size copy.
  EXPECT_EQ(
      Run(),
      (Groups{{"q5.jpg", "q5_half.jpg"}, {"q6.jpg", "q6_half.jpg"}, {"q7.jpg", "q7_half.jpg"}}));

  // Only equal sizes: the half-size copies stay apart.
  Set("SimiliarImagesOnlySameDimension", "1");
  EXPECT_EQ(Run(), Groups{});
  Set("SimiliarImagesOnlySameDimension", "0");

  // The other hashes and sizes run too; an unrelated photo never joins.
  for (const char* algo : {"0", "1"}) {
    for (const char* size : {"0", "1"}) {
      SCOPED_TRACE(std::string("algo ") + algo + " size " + size);
      Set("SimiliarImagesAlgo", algo);
      Set("SimilarPicsThumbSizeIndex", size);
      for (const Group& g : Run()) {
        for (const std::string& f : g) EXPECT_EQ(f.rfind("other", 0), std::string::npos) << f;
      }
    }
  }
}

TEST_F(SimilarPicturesSearch, BadFilesAreLoggedOnceAndNeverGrouped) {
  test::HangGuard guard(std::chrono::seconds(300), "bad pictures");
  Photo("a.jpg", 41);
  fs::copy_file(tree_ / "a.jpg", tree_ / "a_copy.jpg");
  Photo("b.png", 42);
  const std::string good = test::ReadBytes(tree_ / "a.jpg");
  tmp_.Write("tree/cut.jpg", good.substr(0, good.size() / 2));
  tmp_.Write("tree/empty.jpg", "");
  tmp_.Write("tree/noise.png", std::string(5000, '\x5a'));
  tmp_.Write("tree/text.jpg", "Only text, though the name says otherwise.\n");
  tmp_.Write("tree/huge.png", PngHeaderOnly(30000, 30000));
  // A PNG that calls itself a GIF.
  fs::copy_file(tree_ / "b.png", tree_ / "b_lies.gif");
  // Let every file meet every other.
  Set("SimiliarImagesOnlySameFileType", "0");
  Set("SimiliarImagesOnlySameFormat", "0");
  Set("SimiliarImagesOnlySameRatio", "0");

  const Groups groups = Run();
  ASSERT_FALSE(groups.empty());
  for (const Group& g : groups) {
    for (const char* bad : {"cut.jpg", "empty.jpg", "noise.png", "text.jpg", "huge.png"})
      EXPECT_EQ(g.count(bad), 0u) << bad;
  }
  EXPECT_TRUE(groups.count(Group{"a.jpg", "a_copy.jpg"}));
  const std::string log = RunLog();
  for (const char* bad : {"cut.jpg", "noise.png", "text.jpg", "huge.png"}) {
    SCOPED_TRACE(bad);
    const std::regex line("Beim Erstellen der Prüfsumme von Datei '" + (tree_ / bad).string() +
                          "' ist ein Fehler aufgetreten: [^\\r\\n]+");
    const auto n =
        std::distance(std::sregex_iterator(log.begin(), log.end(), line), std::sregex_iterator());
    EXPECT_EQ(n, 1) << log;
  }
  EXPECT_NE(log.find("too large"), std::string::npos) << log;
  // The empty file never reaches the comparison.
  EXPECT_EQ(log.find("empty.jpg"), std::string::npos) << log;
}

TEST_F(SimilarPicturesSearch, PercentageAndCountsOfOneGroup) {
  test::HangGuard guard(std::chrono::seconds(120), "percentages");
  Photo("x.png", 9);
  Convert("x.png -resize 50% -quality 60 x_half.jpg");
  Convert("x.png -quality 95 x.jpg");
  Set("SimiliarImagesOnlySameFileType", "0");
  EXPECT_EQ(Run(), (Groups{{"x.png", "x.jpg", "x_half.jpg"}}));
  // Each file hashed once; every pair that met compared once (no forms).
  EXPECT_EQ(engine_->Stats().ChecksumCount, 3);
  EXPECT_GE(engine_->Stats().CompareCount, 2);
  EXPECT_LE(engine_->Stats().CompareCount, 3);
}

// What a user sees of one search: groups, each grouped file's match and
// reference mark, the counters and the run log's lines about hashes, in
// their order.
struct PictureOutcome {
  Groups groups;
  std::map<std::string, std::pair<double, int>> cells;
  std::int64_t compares = 0;
  std::int32_t hashes = 0;
  std::vector<std::string> lines;
  bool operator==(const PictureOutcome&) const = default;
};

TEST_F(SimilarPicturesSearch, OneWorkerOrFourGiveTheSameSearch) {
  test::HangGuard guard(std::chrono::seconds(300), "pictures read ahead");
  fs::create_directories(tree_ / "a");
  fs::create_directories(tree_ / "b");
  Photo("a/p11.jpg", 11);
  Convert("a/p11.jpg -rotate 90 a/p11_r90.jpg");
  Convert("a/p11.jpg -flop b/p11_mirror.jpg");
  fs::copy_file(tree_ / "a/p11.jpg", tree_ / "b/p11_copy.jpg");
  Photo("a/p22.jpg", 22);
  Convert("a/p22.jpg -resize 50% -quality 60 b/p22_half.jpg");
  Photo("a/x.png", 33);
  Convert("a/x.png -quality 95 b/x_copy.png");
  const std::string good = test::ReadBytes(tree_ / "a/p11.jpg");
  tmp_.Write("tree/a/cut.jpg", good.substr(0, good.size() / 2));
  tmp_.Write("tree/a/noise.png", std::string(5000, '\x5a'));
  tmp_.Write("tree/b/text.jpg", "Only text, though the name says otherwise.\n");
  // Alone of their types: read ahead, yet never needed by the search, so
  // neither hashed nor reported.
  tmp_.Write("tree/b/text.bmp", "Only text, though the name says otherwise.\n");
  Photo("b/lone.tif", 44);
  Set("SimiliarImagesOnlySameFormat", "0");
  Set("SimiliarImagesOnlySameRatio", "0");
  Set("SimiliarImagesRotateFlip", "1");
  for (int form = 1; form <= 7; ++form) Set("SimiliarImagesRotateFlip" + std::to_string(form), "1");

  const auto search = [&](unsigned threads) {
    threads_ = threads;
    const std::string before = RunLog();
    PictureOutcome o;
    o.groups = Run();
    const ResultModel& r = engine_->Result();
    r.ForEachGroup([&](RowRef g) {
      r.ForEachFile(g, [&](RowRef f) {
        o.cells[r.File_GetPathFromNode(f)] = {CellAsDouble(r.Cell(f, CellKey::similar)),
                                              CellAsInt(r.Cell(f, CellKey::IsRefFile))};
        return true;
      });
      return true;
    });
    o.compares = engine_->Stats().CompareCount;
    o.hashes = engine_->Stats().ChecksumCount;
    const std::string after = RunLog();
    std::istringstream in(after.rfind(before, 0) == 0 ? after.substr(before.size()) : after);
    for (std::string line; std::getline(in, line);) {
      if (line.find("Prüfsumme") == std::string::npos) continue;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      o.lines.push_back(line.substr(std::min(line.size(), line.find(" - ") + 3)));
    }
    return o;
  };
  const PictureOutcome one = search(1);
  EXPECT_EQ(one.groups,
            (Groups{{"a/p11.jpg", "a/p11_r90.jpg", "b/p11_mirror.jpg", "b/p11_copy.jpg"},
                    {"a/p22.jpg", "b/p22_half.jpg"},
                    {"a/x.png", "b/x_copy.png"}}));
  // The eight good pictures that met another of their type.
  EXPECT_EQ(one.hashes, 8);
  std::string lines;
  for (const std::string& l : one.lines) lines += l + "\n";
  for (const char* bad : {"cut.jpg", "noise.png", "text.jpg"})
    EXPECT_NE(lines.find(bad), std::string::npos) << bad << "\n" << lines;
  for (const char* lone : {"text.bmp", "lone.tif"})
    EXPECT_EQ(lines.find(lone), std::string::npos) << lone << "\n" << lines;
  for (unsigned threads : {4u, 1u, 4u}) {
    SCOPED_TRACE(threads);
    const PictureOutcome again = search(threads);
    EXPECT_EQ(again.groups, one.groups);
    EXPECT_EQ(again.cells, one.cells);
    EXPECT_EQ(again.compares, one.compares);
    EXPECT_EQ(again.hashes, one.hashes);
    EXPECT_EQ(again.lines, one.lines);
  }
}

TEST_F(SimilarPicturesSearch, AFolderOfManyPicturesIsReadAheadToItsEnd) {
  test::HangGuard guard(std::chrono::seconds(300), "many pictures");
  // More files than the read-ahead queues at once: the window moves along.
  Convert("-size 64x48 -seed 3 plasma:fractal small.png");
  Group all{"small.png"};
  for (int i = 0; i < 300; ++i) {
    const std::string name = "s" + std::to_string(i) + ".png";
    fs::copy_file(tree_ / "small.png", tree_ / name);
    all.insert(name);
  }
  for (unsigned threads : {1u, 4u}) {
    SCOPED_TRACE(threads);
    threads_ = threads;
    EXPECT_EQ(Run(), Groups{all});
    EXPECT_EQ(engine_->Stats().ChecksumCount, 301);
    EXPECT_EQ(engine_->Stats().CompareCount, 300);
  }
}

}  // namespace
}  // namespace kelvor
