// The similar-music comparator on fingerprints handed in ahead of the
// cascade, as a worker pool would: no tool runs, and the walk over the
// earlier files decides as it does with fingerprints made on the spot.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compare/similar_audio.h"
#include "data/file_record_collection.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/texts.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

class SimilarAudioComparatorTest : public ::testing::Test {
 protected:
  SimilarAudioComparatorTest()
      : log_(tmp_ / "general.txt", tmp_ / "run.txt", tmp_ / "last.txt"),
        cmp_(
            Options(), files_, [](const FileRecord& r) { return Path(r.Name); }, texts_, log_,
            run_) {}

  static SimilarAudioOptions Options() {
    SimilarAudioOptions o;
    o.fingerprint.tool = "/nonexistent/fpcalc";  // only fingerprints handed in
    o.matchPercent = 70;
    return o;
  }
  static std::string Path(const std::string& name) { return "/music/" + name + ".wav"; }

  struct Placed {
    bool matched = false;
    std::int32_t node = 0;  // the partner, the new representative, or kFileFails
  };
  // Places the file `name` as the cascade does: the partner the comparator
  // names, or a representative under a key of its own.
  Placed Place(const std::string& name, std::vector<std::uint32_t> words) {
    cmp_.AcceptFingerprint(Path(name), AudioFingerprint{std::move(words), {}});
    return PlaceAsIs(name);
  }
  Placed PlaceAsIs(const std::string& name) {
    FileRecord rec;
    rec.Name = name;
    rec.Extension = "wav";
    rec.SourceNr = 1;
    rec.GroupID = -1;
    const std::string path = Path(name);
    CascadeFile file{rec, path};
    file.key = "K";
    cmp_.BeginFile();
    const std::int32_t hit = cmp_.SearchCollection(file, files_, 1, {});
    lastPercent_ = rec.PercentMatch;
    lastHadError_ = rec.HaveErrorMessage;
    if (hit > 0) return {true, hit};
    if (hit == Comparator::kFileFails) return {false, hit};
    const std::int32_t node = files_.Add("K/" + std::to_string(++serial_), rec);
    EXPECT_NE(node, 0);
    rec.RecordNumber = node;
    cmp_.BecameRepresentative("K", rec);
    return {false, node};
  }

  test::TempDir tmp_;
  TextCatalog texts_;
  Logger log_;
  RunState run_;
  CStringCollection2 files_;
  SimilarAudioComparator cmp_;
  int lastPercent_ = 0;
  bool lastHadError_ = false;
  int serial_ = 0;
};

TEST_F(SimilarAudioComparatorTest, FingerprintsHandedInDecideTheFirstPartner) {
  const std::vector<std::uint32_t> tune(50, 0x5A5A1234u), other(50, 0x0000FFFFu);
  std::vector<std::uint32_t> nearTune = tune;
  for (std::size_t i = 0; i < 10; ++i) nearTune[i] ^= 0x00000001u;  // 10 words one bit apart

  EXPECT_FALSE(Place("a", tune).matched);  // the first file is kept
  const Placed b = Place("b", other);
  EXPECT_FALSE(b.matched);
  EXPECT_EQ(b.node, 2);

  const Placed c = Place("c", nearTune);
  EXPECT_TRUE(c.matched);
  EXPECT_EQ(c.node, 1);
  // 40 equal words, and 10 that differ in one bit and count their common set bits.
  EXPECT_EQ(lastPercent_, AudioMatchPercent(tune, nearTune));
  EXPECT_LT(lastPercent_, 100);
  const std::int32_t a = 1;
  EXPECT_EQ(files_.PercentMatch(a), 100);
  EXPECT_TRUE(files_.IsReferenceFile(a));
  EXPECT_EQ(cmp_.ChecksumCount(), 3);  // no tool ran: all three were handed in
  EXPECT_EQ(cmp_.CompareCount(), 2);   // b met a; c met a and matched
}

TEST_F(SimilarAudioComparatorTest, AFileWithoutFingerprintLeavesTheSearch) {
  Place("a", std::vector<std::uint32_t>(50, 7u));
  // No fingerprint handed in and no tool: the new file cannot be measured.
  const Placed lost = PlaceAsIs("lost");
  EXPECT_FALSE(lost.matched);
  EXPECT_EQ(lost.node, Comparator::kFileFails);
  EXPECT_TRUE(lastHadError_);
  EXPECT_EQ(files_.Count(), 1);
  const std::string log = test::ReadUtf16File(tmp_ / "run.txt");
  EXPECT_NE(log.find("Beim Erstellen der Prüfsumme von Datei '/music/lost.wav' ist ein Fehler "
                     "aufgetreten: "),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("(8)"), std::string::npos) << log;
}

}  // namespace
}  // namespace kelvor
