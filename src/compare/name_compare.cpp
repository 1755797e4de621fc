// Similar file names: the linear walk over the collection, and the bounds that
// let it pass over pairs whose measure cannot reach the threshold.
//
// Why skipping is safe. A pair is skipped only when a bound B, computed from
// the two names' shapes, satisfies B < threshold and the measure's value v is
// provably v <= B. Then v < threshold: the pair is no hit in the plain walk
// either. The walk visits the same records in the same order, counts the
// same comparisons and stops at the same first hit, so the node returned, the
// similarity stored and every later decision are those of the plain walk.
//
// Each bound is computed with the very expression the measure ends with, the
// count it depends on replaced by a count that is never smaller; since
// integer-to-double conversion, division and multiplication by a positive
// number and rounding to float are all monotone, B >= v holds for the
// computed values, not only for the exact ones. The counts:
//
//  - SmartMatch and Simil: 2 x common / (Len(a) + Len(b)). The common
//    characters are runs of equal (folded) characters, disjoint in both
//    strings, so they pair positions of a with positions of b holding the
//    same character: common <= I, the size of the intersection of the two
//    strings as multisets of characters. (Equal strings have I = Len, so B = 1.)
//  - Ratcliff: score / (Len(a) + Len(b)) in single precision, score = 2 x the
//    matched characters, disjoint runs again: score <= 2 x I.
//  - Levenshtein: 1 - d / max(Len) in single precision. An edit script keeps
//    at most I characters of the longer string unchanged (kept characters
//    pair equal characters), and each other character of it costs at least
//    one edit: d >= max(Len) - I.
//  - FuzzyMatch: sum / (Len(A) - 1) for the longer string A, where each
//    position of A whose character occurs anywhere in B adds a term in
//    (0, 1] and the others add nothing. With N such positions the
//    floating-point sum is at most N (each partial sum stays at or below the
//    integer count so far, by monotone rounding). So the value before the
//    "minus 1 above 1" rule is at most N / (Len(A) - 1); that rule only
//    lowers it. Two one-character strings are compared exactly: not bounded.
//  - WordMatch: each hit uses up a distinct word of the string with fewer
//    words (the "other") that equals some word of the one with more: hits <=
//    M, the other's words found among the lead's words (as a set, since one
//    lead word may use up several equal words), and hits <= the smaller word
//    count. The value is 1 only when both counts are equal and every word
//    hits (then M covers all, and B is taken as 1); otherwise hits x
//    (1 / the larger count). Words are compared by a 64-bit hash here: a
//    collision can only make M larger, never smaller. Before the words are
//    looked at, the smaller count alone (M's upper end) is tried the same way.
//  - MatchDiff and FuzzyPercent have no bound: every pair is measured.
//
// The counts I and N are first bounded from above by a histogram of each
// name: its characters counted in 64 buckets. Characters of one bucket are
// not told apart, so the sum over buckets of the smaller count is at least I,
// and the count of A's characters in buckets where B has any is at least N.
// Only when that looser bound passes are the exact counts made (from the
// sorted characters), and only when those pass is the measure run. A name
// with more than 255 characters in one bucket has no histogram and goes
// straight to the exact counts.

#include "compare/name_compare.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "data/file_record_collection.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

// How many candidates pass between two looks at the pacing (pause, stop,
// refresh). A look reads the clock; a pruned candidate costs a few
// nanoseconds, so looking at each would cost more than the walk itself.
constexpr std::uint32_t kPacingEvery = 128;

bool CaseUpper(NameMeasure m) {
  return m == NameMeasure::kSmartMatch || m == NameMeasure::kFuzzyMatch;
}

bool HasBound(NameMeasure m) {
  return m != NameMeasure::kMatchDiff && m != NameMeasure::kFuzzyPercent;
}

std::uint64_t HashWord(std::u32string_view w) {
  std::uint64_t h = 1469598103934665603ULL;
  for (char32_t c : w) {
    h ^= static_cast<std::uint64_t>(c);
    h *= 1099511628211ULL;
  }
  return h;
}

// Size of the intersection of two sorted sequences as multisets.
template <typename T>
std::uint32_t CommonCount(const T* a, std::uint32_t na, const T* b, std::uint32_t nb) {
  std::uint32_t i = 0, j = 0, n = 0;
  while (i < na && j < nb) {
    if (a[i] < b[j]) {
      ++i;
    } else if (b[j] < a[i]) {
      ++j;
    } else {
      ++n;
      ++i;
      ++j;
    }
  }
  return n;
}

// Elements of the sorted sequence x (with repeats) that occur in the sorted
// sequence s.
template <typename T>
std::uint32_t FoundIn(const T* x, std::uint32_t nx, const T* s, std::uint32_t ns) {
  std::uint32_t i = 0, j = 0, n = 0;
  while (i < nx && j < ns) {
    if (x[i] < s[j]) {
      ++i;
    } else if (s[j] < x[i]) {
      ++j;
    } else {
      ++n;
      ++i;
    }
  }
  return n;
}

double Single(double v) {
  return static_cast<double>(static_cast<float>(v));
}

// The similarity as the record keeps it: times 100, rounded to the nearest
// whole number (halves to even), as a byte.
std::uint8_t PercentByte(double similarity) {
  const double v = std::nearbyint(similarity * 100.0);
  return static_cast<std::uint8_t>(std::clamp(v, 0.0, 255.0));
}

constexpr std::size_t kBuckets = 64;

std::size_t BucketOf(char32_t c) {
  if (c >= U'a' && c <= U'z') return c - U'a' + 1;  // as A-Z after upper case
  return c & 63;
}

// Sum over buckets of the smaller count.
std::uint32_t HistCommon(const std::uint8_t* a, const std::uint8_t* b) {
#if defined(__SSE2__)
  __m128i sum = _mm_setzero_si128();
  for (std::size_t k = 0; k < kBuckets; k += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + k));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + k));
    sum = _mm_add_epi64(sum, _mm_sad_epu8(_mm_min_epu8(x, y), _mm_setzero_si128()));
  }
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum) +
                                    _mm_cvtsi128_si32(_mm_srli_si128(sum, 8)));
#else
  std::uint32_t n = 0;
  for (std::size_t k = 0; k < kBuckets; ++k) n += std::min(a[k], b[k]);
  return n;
#endif
}

// Sum of a's counts over the buckets where b has any.
std::uint32_t HistFoundIn(const std::uint8_t* a, const std::uint8_t* b) {
#if defined(__SSE2__)
  __m128i sum = _mm_setzero_si128();
  for (std::size_t k = 0; k < kBuckets; k += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + k));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + k));
    const __m128i bEmpty = _mm_cmpeq_epi8(y, _mm_setzero_si128());
    sum = _mm_add_epi64(sum, _mm_sad_epu8(_mm_andnot_si128(bEmpty, x), _mm_setzero_si128()));
  }
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum) +
                                    _mm_cvtsi128_si32(_mm_srli_si128(sum, 8)));
#else
  std::uint32_t n = 0;
  for (std::size_t k = 0; k < kBuckets; ++k) n += b[k] != 0 ? a[k] : 0;
  return n;
#endif
}

}  // namespace

struct NameComparator::Shape {
  std::uint8_t hist[kBuckets] = {};  // characters per bucket
  bool hasHist = false;              // false: a bucket overflowed
  std::uint32_t length = 0;          // code points (the measures' Len)
  std::uint32_t at = 0;              // first element in the pool
  std::uint32_t count = 0;           // sorted folded code points, or sorted word hashes
  bool empty = true;                 // the name key is empty: never measured
};

NameComparator::NameComparator(NameCompareOptions opt, const TextCatalog& texts, Logger& log,
                               LongOperation& pacing, const std::function<void()>& refresh)
    : opt_(std::move(opt)),
      texts_(texts),
      log_(log),
      pacing_(pacing),
      refresh_(refresh),
      keyShape_(std::make_unique<Shape>()) {}

NameComparator::~NameComparator() = default;

void NameComparator::MakeShape(std::string_view nameKey, Shape& out, std::vector<char32_t>& cps,
                               std::vector<std::uint64_t>& words) {
  out = Shape{};
  out.empty = nameKey.empty();
  if (out.empty || !opt_.prune || !HasBound(opt_.method)) return;
  if (opt_.method == NameMeasure::kWordMatch) {
    WordMatchWords(nameKey, opt_.delimiters, scratch_, words_);
    out.at = static_cast<std::uint32_t>(words.size());
    for (const auto& w : words_) words.push_back(HashWord(w));
    out.count = static_cast<std::uint32_t>(words_.size());
    std::sort(words.begin() + out.at, words.end());
    return;
  }
  FoldedCodePoints(nameKey, CaseUpper(opt_.method), folded_);
  out.length = static_cast<std::uint32_t>(folded_.size());
  out.at = static_cast<std::uint32_t>(cps.size());
  out.count = out.length;
  out.hasHist = true;
  for (char32_t c : folded_) {
    std::uint8_t& h = out.hist[BucketOf(c)];
    if (h == 255) out.hasHist = false;
    ++h;
  }
  cps.insert(cps.end(), folded_.begin(), folded_.end());
  std::sort(cps.begin() + out.at, cps.end());
}

// True when the measure of (candidate, key) provably stays below the
// threshold; the reasons are at the top of this file.
bool NameComparator::CannotReach(const Shape& a, const Shape& b) const {
  const double t = opt_.threshold;
  if (opt_.method == NameMeasure::kWordMatch) {
    const std::uint32_t c1 = a.count, c2 = b.count;
    if (c1 == 0 || c2 == 0) return 0.0 < t;
    const std::uint32_t larger = std::max(c1, c2), smaller = std::min(c1, c2);
    // First by the counts alone (every word of the smaller side found).
    if (smaller != larger && smaller * (1.0 / larger) < t) return true;
    const bool aLeads = c1 >= c2;
    const Shape& lead = aLeads ? a : b;
    const Shape& other = aLeads ? b : a;
    const std::uint64_t* leadWords = (aLeads ? wordPool_.data() : keyWords_.data()) + lead.at;
    const std::uint64_t* otherWords = (aLeads ? keyWords_.data() : wordPool_.data()) + other.at;
    const std::uint32_t m =
        std::min(FoundIn(otherWords, other.count, leadWords, lead.count), other.count);
    const double bound = m == larger ? 1.0 : m * (1.0 / larger);
    return bound < t;
  }
  const std::uint32_t la = a.length, lb = b.length;
  if (la == 0 || lb == 0) return false;
  const bool hist = a.hasHist && b.hasHist;
  const char32_t* ca = cpPool_.data() + a.at;
  const char32_t* cb = keyCps_.data() + b.at;
  switch (opt_.method) {
    case NameMeasure::kSmartMatch:
    case NameMeasure::kSimil: {
      if (hist && 2.0 * HistCommon(a.hist, b.hist) / static_cast<double>(la + lb) < t) return true;
      const std::uint32_t common = CommonCount(ca, la, cb, lb);
      return 2.0 * common / static_cast<double>(la + lb) < t;
    }
    case NameMeasure::kRatcliff: {
      if (hist && Single(static_cast<std::int32_t>(2 * HistCommon(a.hist, b.hist)) /
                         static_cast<double>(la + lb)) < t)
        return true;
      const auto score = static_cast<std::int32_t>(2 * CommonCount(ca, la, cb, lb));
      return Single(score / static_cast<double>(la + lb)) < t;
    }
    case NameMeasure::kLevenshtein: {
      const std::uint32_t longer = std::max(la, lb);
      if (hist && Single(1.0 - static_cast<std::int32_t>(longer - HistCommon(a.hist, b.hist)) /
                                   static_cast<double>(longer)) < t)
        return true;
      const auto least = static_cast<std::int32_t>(longer - CommonCount(ca, la, cb, lb));
      return Single(1.0 - least / static_cast<double>(longer)) < t;
    }
    case NameMeasure::kFuzzyMatch: {
      if (la == 1 && lb == 1) return false;
      // A is the longer string, b when both are as long.
      const bool aIsA = la > lb;
      const std::uint32_t n = aIsA ? la : lb;
      if (hist && (aIsA ? HistFoundIn(a.hist, b.hist) : HistFoundIn(b.hist, a.hist)) /
                          static_cast<double>(static_cast<std::int32_t>(n) - 1) <
                      t)
        return true;
      const std::uint32_t found = aIsA ? FoundIn(ca, la, cb, lb) : FoundIn(cb, lb, ca, la);
      return found / static_cast<double>(static_cast<std::int32_t>(n) - 1) < t;
    }
    default:
      return false;
  }
}

std::int32_t NameComparator::SearchCollection(
    CascadeFile& file, CStringCollection2& files, std::int32_t startPosition,
    const std::function<std::string(std::int32_t)>& /*pathOf*/) {
  FileRecord& rec = file.rec;
  // Only a file in no group, or a reference, looks for a partner.
  if (rec.GroupID != -1 && !rec.IsReferenceFile) return kNoMatch;
  if (rec.NameKey.empty()) {
    log_.LogProtokoll(texts_.Get(txt::T9500, {DisplayUtf8(file.path)}), true);
    return kNoMatch;
  }
  // The shapes of records added since the last file, in node order.
  const std::int32_t count = files.Count();
  while (static_cast<std::int32_t>(shapes_.size()) <= count) {
    const auto node = static_cast<std::int32_t>(shapes_.size());
    shapes_.emplace_back();
    if (node >= 1) MakeShape(files.NameKey(node), shapes_.back(), cpPool_, wordPool_);
  }
  keyCps_.clear();
  keyWords_.clear();
  MakeShape(rec.NameKey, *keyShape_, keyCps_, keyWords_);
  const bool prune = opt_.prune && HasBound(opt_.method);
  const bool newIsReference = rec.IsReferenceFile;

  for (std::int32_t i = std::max(1, startPosition); i <= count; ++i) {
    if (++sincePacing_ == kPacingEvery) {
      sincePacing_ = 0;
      if (!pacing_.Step(refresh_)) return kNoMatch;
    }
    // A record in a group takes part only as a reference, and only for a
    // file that is none.
    if (files.GroupID(i) != -1 && !(files.IsReferenceFile(i) && !newIsReference)) continue;
    switch (opt_.sourceRule) {
      case 1:
        if (files.SourceNr(i) != rec.SourceNr) continue;
        break;
      case 2:
        if (files.SourceNr(i) == rec.SourceNr) continue;
        break;
      case 3:
        if (files.SourceNr(i) == rec.SourceNr || files.Path(i) != rec.Path) continue;
        break;
      default:
        break;
    }
    const Shape& candidate = shapes_[static_cast<std::size_t>(i)];
    if (candidate.empty) continue;
    ++compares_;
    if (prune && CannotReach(candidate, *keyShape_)) {
      ++pruned_;
      continue;
    }
    const double similarity =
        MeasureSimilarity(opt_.method, files.NameKey(i), rec.NameKey, opt_.delimiters, scratch_);
    if (similarity < opt_.threshold) continue;
    if (files.GroupID(i) == -1) {
      files.SetPercentMatch(i, 100);
      files.SetIsReferenceFile(i, true);
    }
    rec.PercentMatch = PercentByte(similarity);
    return i;
  }
  return kNoMatch;
}

}  // namespace kelvor
