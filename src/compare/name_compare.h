#pragma once
// Similar file names: a new file is measured against every earlier record of
// the collection, in the collection's order, and matches the first whose name
// key is similar enough. There is no key that groups candidates, so the walk
// is linear per file; what makes it fast is a bound per measure, worked out
// from what each name is made of, that rules out most pairs without running
// the measure (see name_compare.cpp for why each bound holds).

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "compare/comparator.h"
#include "compare/fuzzy.h"

namespace kelvor {

class LongOperation;
class Logger;
class TextCatalog;

struct NameCompareOptions {
  NameMeasure method = NameMeasure::kSmartMatch;
  double threshold = 0.9;  // inclusive: a pair at exactly this value matches
  std::string delimiters = std::string(kDefaultWordDelimiters);  // WordMatch only
  // Which pairs of source folders may meet: 0 all, 1 only the same source,
  // 2 only different sources, 3 different sources with the same relative folder.
  int sourceRule = 0;
  // Skip pairs that the bounds rule out. Off, every eligible pair is measured
  // (the plain walk the bounds are tested against).
  bool prune = true;
};

class NameComparator final : public WalkingComparator {
 public:
  NameComparator(NameCompareOptions opt, const TextCatalog& texts, Logger& log,
                 LongOperation& pacing, const std::function<void()>& refresh);
  ~NameComparator() override;

  CascadeStep Step() const override { return CascadeStep::FuzzyNames; }

  // Search_ComparePartialName: the node of the first record from
  // `startPosition` on whose name key is similar enough to the file's;
  // kNoMatch for none (also when a stop ended the walk). A hit marks
  // a record that was in no group as a reference at 100 %, and sets the
  // file's PercentMatch to the similarity.
  std::int32_t SearchCollection(CascadeFile& file, CStringCollection2& files,
                                std::int32_t startPosition,
                                const std::function<std::string(std::int32_t)>& pathOf) override;

  std::int64_t CompareCount() const override { return compares_; }
  // Pairs the bounds ruled out (counted as comparisons all the same).
  std::int64_t PrunedCount() const { return pruned_; }

 private:
  struct Shape;  // what the bounds know of one name
  void MakeShape(std::string_view nameKey, Shape& out, std::vector<char32_t>& cps,
                 std::vector<std::uint64_t>& words);
  bool CannotReach(const Shape& candidate, const Shape& key) const;

  NameCompareOptions opt_;
  const TextCatalog& texts_;
  Logger& log_;
  LongOperation& pacing_;
  const std::function<void()>& refresh_;
  FuzzyScratch scratch_;
  // What the bounds know of every record (by node number, made as records
  // come), their folded characters or word hashes in two pools, and the same
  // of the file being placed.
  std::vector<Shape> shapes_;
  std::vector<char32_t> cpPool_;
  std::vector<std::uint64_t> wordPool_;
  std::unique_ptr<Shape> keyShape_;
  std::vector<char32_t> keyCps_;
  std::vector<std::uint64_t> keyWords_;
  std::u32string folded_;
  std::vector<std::u32string> words_;
  std::uint32_t sincePacing_ = 0;
  std::int64_t compares_ = 0;
  std::int64_t pruned_ = 0;
};

}  // namespace kelvor
