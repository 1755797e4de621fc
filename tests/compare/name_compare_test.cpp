// The walk of similar names over a file record collection: the walk with its
// bounds gives exactly what measuring every pair gives, on random names for
// each measure; eligibility, reference marks, the inclusive threshold, the
// source-folder rules and names left empty.

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compare/compare_fixture.h"
#include "compare/name_compare.h"
#include "data/file_record_collection.h"
#include "frame/long_operation.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

// What the cascade does around the comparator, for names only: a file that
// matches nothing enters the collection; one that matches joins the
// partner's group (opening it when the partner had none) and stays out.
class NameWalk {
 public:
  NameWalk(NameCompareOptions opt, Logger& log, const TextCatalog& texts)
      : pacing_(run_), cmp_(std::move(opt), texts, log, pacing_, refresh_) {}

  struct Placed {
    std::int32_t node = -1;     // the partner, -1 none
    std::uint8_t percent = 0;   // the file's PercentMatch
    std::int64_t compares = 0;  // the walk's comparison count after the file
  };

  Placed Add(const std::string& nameKey, int sourceNr = 1, const std::string& path = "") {
    FileRecord rec;
    rec.Name = rec.NameKey = nameKey;
    rec.SourceNr = sourceNr;
    rec.Path = path;
    const std::string full = "/x" + path + "/" + nameKey;
    CascadeFile file{rec, full};
    Placed p;
    p.node = cmp_.SearchCollection(file, files_, 1, {});
    p.percent = rec.PercentMatch;
    p.compares = cmp_.CompareCount();
    if (p.node < 0) {
      files_.Add("K/" + std::to_string(++serial_), rec);
    } else if (files_.GroupID(p.node) == -1) {
      files_.SetGroupID(p.node, ++groups_);
    }
    return p;
  }

  CStringCollection2& Files() { return files_; }
  const NameComparator& Comparator() const { return cmp_; }

 private:
  RunState run_;
  LongOperation pacing_;
  std::function<void()> refresh_;
  NameComparator cmp_;
  CStringCollection2 files_;
  int serial_ = 0, groups_ = 0;
};

class NameCompareTest : public test::CompareTest {
 protected:
  NameWalk Walk(NameMeasure m, double threshold, bool prune = true, int sourceRule = 0) {
    NameCompareOptions o;
    o.method = m;
    o.threshold = threshold;
    o.prune = prune;
    o.sourceRule = sourceRule;
    return NameWalk(o, log_, texts_);
  }
  TextCatalog texts_;
};

// Names built from a small stock of words, delimiters and edits, so that
// near and exact repeats are common and many pairs sit near any threshold.
std::vector<std::string> RandomNames(std::size_t n, std::uint32_t seed) {
  static const char* kWords[] = {"holiday", "Holiday", "photos", "PHOTOS", "2019", "2020",
                                 "img",     "DSC",     "final",  "report", "(2)",  "été",
                                 "Größe",   "a",       "ab",     "Kopie",  "copy", "x"};
  static const char* kDelims[] = {" ", "_", "-", ".", "", ",", ";", "  "};
  static const char32_t kEdit[] = {U'a', U'b', U'x', U'Z', U'é', U'Ä', U' ', U'_', U'1', U'-'};
  std::mt19937 rng(seed);
  auto pick = [&](std::size_t k) { return static_cast<std::size_t>(rng() % k); };
  std::vector<std::string> out;
  for (std::size_t i = 0; i < n; ++i) {
    if (!out.empty() && pick(5) == 0) {  // a repeat of an earlier name
      out.push_back(out[pick(out.size())]);
      continue;
    }
    std::string s;
    const std::size_t words = 1 + pick(4);
    for (std::size_t w = 0; w < words; ++w) {
      if (w > 0) s += kDelims[pick(std::size(kDelims))];
      s += kWords[pick(std::size(kWords))];
    }
    std::u32string cps = ToCodePoints(s);
    for (std::size_t e = pick(3); e > 0 && !cps.empty(); --e) {
      const std::size_t at = pick(cps.size());
      switch (pick(3)) {
        case 0:
          cps.erase(at, 1);
          break;
        case 1:
          cps.insert(cps.begin() + static_cast<std::ptrdiff_t>(at), kEdit[pick(std::size(kEdit))]);
          break;
        default:
          cps[at] = kEdit[pick(std::size(kEdit))];
          break;
      }
    }
    if (cps.empty()) cps = U"y";
    out.push_back(FromCodePoints(cps));
  }
  return out;
}

TEST_F(NameCompareTest, BoundsChangeNothingAgainstThePlainWalk) {
  const NameMeasure measures[] = {NameMeasure::kSmartMatch,  NameMeasure::kFuzzyMatch,
                                  NameMeasure::kLevenshtein, NameMeasure::kRatcliff,
                                  NameMeasure::kWordMatch,   NameMeasure::kSimil};
  std::uint32_t seed = 7;
  for (NameMeasure m : measures) {
    for (double threshold : {0.9, 0.75}) {
      const std::vector<std::string> names = RandomNames(2000, ++seed);
      NameWalk pruned = Walk(m, threshold, true), plain = Walk(m, threshold, false);
      int hits = 0;
      for (std::size_t i = 0; i < names.size(); ++i) {
        const NameWalk::Placed a = pruned.Add(names[i]), b = plain.Add(names[i]);
        ASSERT_EQ(a.node, b.node) << static_cast<int>(m) << " " << threshold << " at " << i << " "
                                  << names[i];
        ASSERT_EQ(a.percent, b.percent) << names[i];
        ASSERT_EQ(a.compares, b.compares) << names[i];
        hits += a.node > 0;
      }
      // The names hold enough near pairs for the walk to mean something, and
      // the bounds do rule pairs out.
      EXPECT_GT(hits, 50) << static_cast<int>(m);
      EXPECT_LT(hits, 1900) << static_cast<int>(m);
      EXPECT_GT(pruned.Comparator().PrunedCount(), 0) << static_cast<int>(m);
      EXPECT_EQ(plain.Comparator().PrunedCount(), 0);
    }
  }
}

TEST_F(NameCompareTest, ThresholdIsInclusiveAndPercentIsStored) {
  // SmartMatch: 9 of 10 characters in common, 2 x 9 / 20 = 0.9 exactly.
  NameWalk at90 = Walk(NameMeasure::kSmartMatch, 0.9);
  EXPECT_EQ(at90.Add("abcdefghij").node, -1);
  NameWalk::Placed p = at90.Add("ABCDEFGHIx");
  EXPECT_EQ(p.node, 1);
  EXPECT_EQ(p.percent, 90);
  // The partner became a reference at 100 %.
  EXPECT_TRUE(at90.Files().IsReferenceFile(1));
  EXPECT_EQ(at90.Files().PercentMatch(1), 100);

  NameWalk at91 = Walk(NameMeasure::kSmartMatch, 0.91);
  at91.Add("abcdefghij");
  EXPECT_EQ(at91.Add("ABCDEFGHIx").node, -1);
  EXPECT_FALSE(at91.Files().IsReferenceFile(1));

  // Single precision: Levenshtein's 9 of 10 is 0.89999998 and misses 90 %.
  NameWalk lev = Walk(NameMeasure::kLevenshtein, 0.9);
  lev.Add("abcdefghij");
  EXPECT_EQ(lev.Add("abcdefghix").node, -1);
  NameWalk lev89 = Walk(NameMeasure::kLevenshtein, 0.89);
  lev89.Add("abcdefghij");
  EXPECT_EQ(lev89.Add("abcdefghix").percent, 90);

  // MatchDiff of two equal one-character names measures 2: stored as 200.
  NameWalk diff = Walk(NameMeasure::kMatchDiff, 0.9);
  diff.Add("q");
  EXPECT_EQ(diff.Add("q").percent, 200);
}

TEST_F(NameCompareTest, ReferencesAndGroupMembers) {
  NameWalk w = Walk(NameMeasure::kSmartMatch, 0.9);
  w.Add("abcdefghij");                     // node 1
  EXPECT_EQ(w.Add("abcdefghiX").node, 1);  // joins 1; stays out of the collection
  // A third name near the second only: the second is no candidate, and the
  // first is too far (2 x 8 / 20 = 0.8).
  EXPECT_EQ(w.Add("abcdefghXY").node, -1);  // node 2
  // The reference still takes new files, which keep counting comparisons.
  const std::int64_t before = w.Comparator().CompareCount();
  EXPECT_EQ(w.Add("Abcdefghij").node, 1);
  EXPECT_EQ(w.Comparator().CompareCount(), before + 1);

  // A record in a group that is no reference is never measured.
  w.Files().SetGroupID(2, 5);
  const std::int64_t counted = w.Comparator().CompareCount();
  EXPECT_EQ(w.Add("zzzzzzzzzz").node, -1);
  EXPECT_EQ(w.Comparator().CompareCount(), counted + 1);  // only node 1
}

TEST_F(NameCompareTest, SourceFolderRules) {
  // 1: only inside one source; 2: only across; 3: across, same folder.
  NameWalk same = Walk(NameMeasure::kWordMatch, 0.9, true, 1);
  same.Add("holiday photos", 1);
  EXPECT_EQ(same.Add("photos holiday", 2).node, -1);
  EXPECT_EQ(same.Add("photos_holiday", 1).node, 1);

  NameWalk across = Walk(NameMeasure::kWordMatch, 0.9, true, 2);
  across.Add("holiday photos", 1);
  EXPECT_EQ(across.Add("photos holiday", 1).node, -1);
  EXPECT_EQ(across.Add("photos-holiday", 2).node, 1);

  NameWalk samePath = Walk(NameMeasure::kWordMatch, 0.9, true, 3);
  samePath.Add("holiday photos", 1, "/a");
  EXPECT_EQ(samePath.Add("photos holiday", 2, "/b").node, -1);
  EXPECT_EQ(samePath.Add("photos holiday", 1, "/a").node, -1);
  EXPECT_EQ(samePath.Add("photos.holiday", 2, "/a").node, 1);
}

TEST_F(NameCompareTest, EmptyNamesAreNeverMeasured) {
  // SmartMatch gives two empty names 1; they must not meet all the same.
  NameWalk w = Walk(NameMeasure::kSmartMatch, 0.9);
  EXPECT_EQ(w.Add("").node, -1);
  EXPECT_EQ(w.Add("").node, -1);
  EXPECT_EQ(w.Add("name").node, -1);
  EXPECT_EQ(w.Comparator().CompareCount(), 0);
  EXPECT_EQ(Count(RunLog(), "ist ohne die ignorierten Zeichen und Texte leer"), 2) << RunLog();
}

}  // namespace
}  // namespace kelvor
