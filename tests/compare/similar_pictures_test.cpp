// The similar-pictures comparator on a collection of its own: what it writes
// into the records it meets, the route of a new file that cannot be read, the
// source and hard-link rules, and probes handed over by a read-ahead.

#include "compare/similar_pictures.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "data/file_record_collection.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

class SimilarPicturesComparatorTest : public ::testing::Test {
 protected:
  SimilarPicturesComparatorTest()
      : logger_(dir_ / "general.txt", dir_ / "run.txt", dir_ / "last.txt"), pacing_(run_) {
    opt_.algo = PicHashAlgo::kPerceptual;
    opt_.side = 16;
    opt_.matchPercent = 91;
  }

  void Convert(const std::string& args) {
    const std::string cmd = "cd '" + dir_.path().string() + "' && convert " + args + " 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << "convert failed: " << cmd;
  }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }

  FileRecord Record(const std::string& name, int source = 1) {
    FileRecord r;
    const std::size_t dot = name.rfind('.');
    r.Name = name.substr(0, dot);
    r.Extension = name.substr(dot + 1);
    r.SourceNr = source;
    r.GroupID = -1;
    return r;
  }
  // Adds a representative; its full path is the test folder and its name.
  std::int32_t AddRep(const std::string& name, int source = 1) {
    FileRecord r = Record(name, source);
    const std::int32_t pos = files_.Add("K/" + std::to_string(paths_.size() + 1), r);
    paths_.push_back(P(name));
    return pos;
  }

  std::unique_ptr<SimilarPicturesComparator> Make() {
    return std::make_unique<SimilarPicturesComparator>(opt_, texts_, logger_, progress_, pacing_,
                                                       [] {});
  }
  // Measures the file `name` against the collection.
  std::int32_t Meet(SimilarPicturesComparator& c, FileRecord& rec, const std::string& name) {
    const std::string path = P(name);
    CascadeFile file{rec, path};
    c.BeginFile();
    return c.SearchCollection(file, files_, 1, [this](std::int32_t pos) {
      return paths_[static_cast<std::size_t>(pos - 1)];
    });
  }
  std::string RunLog() const { return test::ReadUtf16File(dir_ / "run.txt"); }

  test::TempDir dir_;
  TextCatalog texts_;
  Logger logger_;
  ProgressSink progress_;
  RunState run_;
  LongOperation pacing_;
  SimilarPictureOptions opt_;
  CStringCollection2 files_;
  std::vector<std::string> paths_;
};

TEST_F(SimilarPicturesComparatorTest, HitWritesPercentagesSizesAndHashesIntoTheRecords) {
  Convert("-size 256x192 -seed 3 plasma:fractal x.png");
  Convert("x.png -resize 50% -quality 60 x_half.png");
  Convert("-size 256x192 -seed 4 plasma:fractal other.png");
  opt_.forms = (1u << 1) | (1u << 4);
  auto c = Make();
  const std::int32_t other = AddRep("other.png");
  const std::int32_t x = AddRep("x.png");

  FileRecord rec = Record("x_half.png");
  EXPECT_EQ(Meet(*c, rec, "x_half.png"), x);
  // The new file's percentage, the representative's 100 and its mark.
  EXPECT_GE(rec.PercentMatch, 91);
  EXPECT_LT(rec.PercentMatch, 100);
  EXPECT_EQ(files_.PercentMatch(x), 100);
  EXPECT_TRUE(files_.IsReferenceFile(x));
  EXPECT_FALSE(files_.IsReferenceFile(other));
  // Sizes and hashes stay on the records: of the chosen forms only.
  EXPECT_EQ(rec.PicWidth, 128);
  EXPECT_EQ(rec.PicHeight, 96);
  EXPECT_EQ(rec.PicFormat, 1);
  EXPECT_DOUBLE_EQ(rec.PicRatio, 1.3);
  EXPECT_EQ(files_.PicWidth(x), 256);
  EXPECT_DOUBLE_EQ(files_.PicRatio(x), 1.3);
  for (std::int32_t pos : {other, x}) {
    EXPECT_TRUE(files_.HashCreated(pos, 0));
    EXPECT_TRUE(files_.HashCreated(pos, 1));
    EXPECT_FALSE(files_.HashCreated(pos, 2));
    EXPECT_TRUE(files_.HashCreated(pos, 4));
    EXPECT_EQ(files_.HashArrayView(pos, 0).size(), 64u);
  }
  EXPECT_TRUE(rec.HashCreated[0]);
  EXPECT_EQ(c->ChecksumCount(), 3);
  // Against `other` form 0 and the two forms, then `x` form 0 hits.
  EXPECT_EQ(c->CompareCount(), 4);

  // A later file meets the reference file again; hashes are not made twice.
  FileRecord again = Record("x.png");
  again.Name = "x";
  EXPECT_EQ(Meet(*c, again, "x.png"), x);
  EXPECT_EQ(again.PercentMatch, 100);
  EXPECT_EQ(c->ChecksumCount(), 4);
}

TEST_F(SimilarPicturesComparatorTest, UnreadableFilesTakeTheirRoutes) {
  Convert("-size 256x192 -seed 8 plasma:fractal good.jpg");
  std::string bytes = test::ReadBytes(dir_ / "good.jpg");
  dir_.Write("cut.jpg", bytes.substr(0, bytes.size() / 2));
  dir_.Write("text.jpg", "no picture");
  auto c = Make();
  AddRep("good.jpg");

  // A new file whose header reads but whose pixels do not leaves the search.
  FileRecord cut = Record("cut.jpg");
  EXPECT_EQ(Meet(*c, cut, "cut.jpg"), Comparator::kFileFails);
  EXPECT_TRUE(cut.HaveErrorMessage);
  // A new file without a readable header is out, but stays a representative.
  FileRecord text = Record("text.jpg");
  EXPECT_EQ(Meet(*c, text, "text.jpg"), Comparator::kNoMatch);
  EXPECT_TRUE(text.HaveErrorMessage);
  const std::string log = RunLog();
  EXPECT_NE(log.find("Beim Erstellen der Prüfsumme von Datei '" + P("cut.jpg") +
                     "' ist ein Fehler aufgetreten: "),
            std::string::npos)
      << log;
  // The header failed at the format gate, for the new file.
  EXPECT_NE(log.find(" (2)"), std::string::npos) << log;

  // A representative that cannot be read is logged once and skipped after.
  const std::int32_t bad = AddRep("text.jpg");
  Convert("-size 256x192 -seed 9 plasma:fractal far.jpg");
  opt_.sameFormat = opt_.sameRatio = false;
  auto open = Make();
  for (int round = 0; round < 2; ++round) {
    FileRecord far = Record("far.jpg");
    EXPECT_EQ(Meet(*open, far, "far.jpg"), Comparator::kNoMatch);
  }
  EXPECT_TRUE(files_.HaveErrorMessage(bad));
  const std::string after = RunLog();
  EXPECT_NE(after.find(" (7)"), std::string::npos) << after;
  std::size_t n = 0;
  for (std::size_t p = after.find("'" + P("text.jpg") + "'"); p != std::string::npos;
       p = after.find("'" + P("text.jpg") + "'", p + 1))
    ++n;
  EXPECT_EQ(n, 2u) << after;  // once as a new file, once as a representative
}

TEST_F(SimilarPicturesComparatorTest, SourceAndHardLinkRulesComeBeforeReading) {
  // Paths that do not exist: a rule that lets the pair meet would fail on them.
  opt_.sameFormat = opt_.sameRatio = false;
  opt_.sourceRule = PicSourceRule::kAcross;
  auto across = Make();
  AddRep("a.jpg", 1);
  FileRecord rec = Record("b.jpg", 1);
  EXPECT_EQ(Meet(*across, rec, "b.jpg"), Comparator::kNoMatch);
  EXPECT_EQ(across->CompareCount(), 0);
  EXPECT_EQ(RunLog(), "");

  // Equal hard links count as a hit at 100 % without a hash.
  opt_.sourceRule = PicSourceRule::kAll;
  opt_.dontCompareHardlinks = true;
  auto links = Make();
  files_.SetNumberOfLinks(1, 2);
  files_.SetVolumeSerialNumber(1, 7);
  files_.SetFileIndexLow(1, 99);
  FileRecord link = Record("b.jpg", 2);
  link.NumberOfLinks = 2;
  link.VolumeSerialNumber = 7;
  link.FileIndexLow = 99;
  EXPECT_EQ(Meet(*links, link, "b.jpg"), 1);
  EXPECT_EQ(link.PercentMatch, 100);
  EXPECT_EQ(links->ChecksumCount(), 0);
  // Other identities go on to the hash (and fail here: no such file).
  link.FileIndexLow = 98;
  link.GroupID = -1;
  EXPECT_EQ(Meet(*links, link, "b.jpg"), Comparator::kFileFails);
}

TEST_F(SimilarPicturesComparatorTest, ProbesMadeAheadAreTakenInsteadOfReading) {
  Convert("-size 256x192 -seed 21 plasma:fractal a.png");
  Convert("-size 256x192 -seed 22 plasma:fractal b.png");
  auto c = Make();
  AddRep("a.png");
  // Made on another thread, as a worker pool would.
  PictureProbe probe;
  std::thread worker([&] { probe = ProbePicture(P("a.png"), c->Request()); });
  worker.join();
  ASSERT_TRUE(probe.hashed) << probe.hashError;
  EXPECT_EQ(probe.width, 256);
  EXPECT_EQ(probe.format, 1);
  // Handed over for b.png, a's probe stands for b: b now matches a.
  c->TakeProbe(P("b.png"), probe);
  EXPECT_EQ(c->ProbesWaiting(), 1u);
  FileRecord b = Record("b.png");
  EXPECT_EQ(Meet(*c, b, "b.png"), 1);
  EXPECT_EQ(b.PercentMatch, 100);
  EXPECT_EQ(c->ProbesWaiting(), 0u);

  // Read from disk, b does not match a.
  auto fresh = Make();
  files_.SetGroupID(1, -1);
  files_.SetIsReferenceFile(1, false);
  FileRecord b2 = Record("b.png");
  EXPECT_EQ(Meet(*fresh, b2, "b.png"), Comparator::kNoMatch);
}

}  // namespace
}  // namespace kelvor
