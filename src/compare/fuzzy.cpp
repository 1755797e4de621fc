// Similarity measures for file names. Each works on code points held in the
// caller's FuzzyScratch; positions are 0-based here. Recursions over sub-ranges
// run from an explicit work list, so that long strings cannot exhaust the
// stack and nothing is allocated once the scratch has grown.

#include "compare/fuzzy.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>

#include "frame/unicode.h"

namespace kelvor {
namespace {

using Pos = std::int32_t;
using Text = std::u32string_view;

// Bytes that are no UTF-8 map to the lone surrogates U+DC80..U+DCFF, as
// ToCodePoints does; case mapping leaves those alone.
constexpr char32_t kEscapeBase = 0xDC00;

enum class Fold { kNone, kUpper, kLower };

char32_t FoldOne(char32_t c, Fold fold) {
  if (c < 0x80) {
    if (fold == Fold::kLower && c >= U'A' && c <= U'Z') return c + 32;
    if (fold == Fold::kUpper && c >= U'a' && c <= U'z') return c - 32;
    return c;
  }
  if (fold == Fold::kNone || (c >= 0xD800 && c <= 0xDFFF)) return c;
  const auto cp = static_cast<utf8proc_int32_t>(c);
  return static_cast<char32_t>(fold == Fold::kLower ? utf8proc_tolower(cp) : utf8proc_toupper(cp));
}

// The code points of s into out, folded. Simple case mapping is one to one,
// so out has as many positions as s has characters.
void Decode(std::string_view s, Fold fold, std::u32string& out) {
  out.clear();
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      out.push_back(FoldOne(b, fold));
      ++i;
      continue;
    }
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) {
      out.push_back(kEscapeBase + b);
      ++i;
    } else {
      out.push_back(FoldOne(cp, fold));
      i += n;
    }
  }
}

void FoldInPlace(std::u32string& s, Fold fold) {
  for (char32_t& c : s) c = FoldOne(c, fold);
}

// Leading and trailing spaces off.
Text Trim(Text s) {
  std::size_t first = 0, last = s.size();
  while (first < last && s[first] == U' ') ++first;
  while (last > first && s[last - 1] == U' ') --last;
  return s.substr(first, last - first);
}

Pos Len(Text s) {
  return static_cast<Pos>(s.size());
}

// Single precision result: the exact value rounded once to float.
double Single(double v) {
  return static_cast<double>(static_cast<float>(v));
}

struct Run {
  Pos length = 0, atA = 0, atB = 0;
};

// The longest common run of a[beginA, endA) and b[beginB, endB) (ends
// exclusive), trying each start in a, and for each each start in b; only a
// strictly longer run replaces the best, so among equal ones the first met
// stays. Starts that leave no room for a longer run are skipped, which
// changes nothing in the outcome.
Run LongestRun(Text a, Pos beginA, Pos endA, Text b, Pos beginB, Pos endB) {
  Run best;
  for (Pos i = beginA; i < endA && endA - i > best.length; ++i) {
    const char32_t first = a[i];
    for (Pos j = beginB; j < endB && endB - j > best.length; ++j) {
      if (b[j] != first) continue;
      Pos k = 1;
      while (i + k < endA && j + k < endB && a[i + k] == b[j + k]) ++k;
      if (k > best.length) best = {k, i, j};
    }
  }
  return best;
}

// Characters in common by recursive longest runs, on both sides of each run.
Pos CommonByRuns(Text a, Text b, std::vector<Pos>& work) {
  Pos common = 0;
  work.clear();
  work.insert(work.end(), {0, Len(a), 0, Len(b)});
  while (!work.empty()) {
    const Pos endB = work.back(), beginB = work.end()[-2], endA = work.end()[-3],
              beginA = work.end()[-4];
    work.resize(work.size() - 4);
    if (beginA >= endA || beginB >= endB) continue;
    const Run r = LongestRun(a, beginA, endA, b, beginB, endB);
    if (r.length == 0) continue;
    common += r.length;
    work.insert(work.end(), {r.atA + r.length, endA, r.atB + r.length, endB});
    work.insert(work.end(), {beginA, r.atA, beginB, r.atB});
  }
  return common;
}

// --- FuzzyMatch ------------------------------------------------------------

Pos IndexOf(Text s, char32_t c, Pos from) {
  if (from >= Len(s)) return -1;
  const std::size_t at = s.find(c, static_cast<std::size_t>(from));
  return at == Text::npos ? -1 : static_cast<Pos>(at);
}

// Each position i of a takes the first position p of its character in b; a
// p already noted in used[0..i] is given up for the next free one further on,
// as long as the search start stays below a's last index, and is kept as it
// is when none turns up. The entries of `used` start at 0, so position 0
// counts as taken from the beginning.
double FuzzyMatchArrays(Text a, Text b, std::vector<Pos>& used) {
  const Pos n = Len(a);
  const double step = 1.0 / n;
  used.assign(static_cast<std::size_t>(n), 0);
  auto taken = [&](Pos p, Pos upTo) {
    for (Pos k = 0; k <= upTo; ++k)
      if (used[k] == p) return true;
    return false;
  };
  double sum = 0;
  for (Pos i = 0; i < n; ++i) {
    const char32_t c = a[i];
    Pos p = IndexOf(b, c, 0);
    if (p != -1 && taken(p, i)) {
      Pos start = p + 1;
      while (start < n - 1) {
        const Pos q = IndexOf(b, c, start);
        if (q == -1) break;
        if (!taken(q, i)) {
          p = q;
          break;
        }
        start = q + 1;
      }
    }
    if (p != -1) {
      used[i] = p;
      sum += 1.0 - std::abs(p - i) * step;
    }
  }
  double result = sum / (n - 1);
  if (result > 1) result -= 1;
  return result;
}

// --- MatchDiff -------------------------------------------------------------

// The longest common run for MatchDiff, bounds inclusive. Each start j in b
// looks for the starts in a with the same character below endA; a run may
// reach endA but never begins there. Only a strictly longer run replaces
// the best; the walks stop where no longer run can follow.
Run SeekMatch(Text a, Pos beginA, Pos endA, Text b, Pos beginB, Pos endB) {
  Run best;
  for (Pos j = beginB; j <= endB && best.length + j <= endB; ++j) {
    const char32_t c = b[j];
    Pos i = beginA;
    while (i < endA) {
      while (i < endA && a[i] != c) ++i;
      if (i >= endA) break;
      Pos k = 0;
      while (i + k <= endA && j + k <= endB && a[i + k] == b[j + k]) ++k;
      if (k > best.length) best = {k, i, j};
      ++i;
      if (best.length > endA - i + 1) break;
    }
  }
  return best;
}

// Characters of a not covered by common runs with b.
Pos FindDiffs(Text a, Text b, std::vector<Pos>& work) {
  // Take off the common start, then the common end.
  const Pos lastA = Len(a) - 1, lastB = Len(b) - 1;
  Pos k = 0;
  while (k <= std::min(lastA, lastB) && a[k] == b[k]) ++k;
  const Pos beginA = k, beginB = k;
  Pos endA, endB;
  if (k > lastA) {
    endA = -1;
    endB = lastB;
  } else if (k > lastB) {
    endB = -1;
    endA = lastA;
  } else {
    endA = lastA;
    endB = lastB;
    while (endA >= beginA && endB >= beginB && a[endA] == b[endB]) {
      --endA;
      --endB;
    }
  }
  if (endA == -1 && endB > 0) return 0;
  if (endB == -1 && endA > 0) return endA - beginA + 1;
  if (endA == -1 && endB == -1) return 0;
  // Anything else goes on, even a range left empty: for two equal
  // one-character strings endA is -1 and beginA 1, which counts -1 below.

  Pos missing = 0;
  work.clear();
  work.insert(work.end(), {beginA, endA, beginB, endB});
  while (!work.empty()) {
    const Pos e2 = work.back(), b2 = work.end()[-2], e1 = work.end()[-3], b1 = work.end()[-4];
    work.resize(work.size() - 4);
    const Run r = SeekMatch(a, b1, e1, b, b2, e2);
    if (r.length == 0) {
      missing += e1 - b1 + 1;
      continue;
    }
    work.insert(work.end(), {r.atA + r.length, e1, r.atB + r.length, e2});
    work.insert(work.end(), {b1, r.atA - 1, b2, r.atB - 1});
  }
  return missing;
}

// --- WordMatch -------------------------------------------------------------

// Appends the words of s as (start, length) pairs; returns their count.
Pos SplitWords(Text s, Text delimiters, std::vector<Pos>& words) {
  Pos count = 0, start = 0;
  const Pos n = Len(s);
  for (Pos i = 0; i <= n; ++i) {
    if (i == n || delimiters.find(s[i]) != Text::npos) {
      if (i > start) {
        words.push_back(start);
        words.push_back(i - start);
        ++count;
      }
      start = i + 1;
    }
  }
  return count;
}

// --- FuzzyPercent ----------------------------------------------------------

// hits and total are 16-bit counters: passing 32767 ends the measure.
struct Tally {
  std::int32_t hits = 0, total = 0;
  bool overflow = false;
  void AddTotal(std::int64_t n) {
    if (total + n > 32767) {
      overflow = true;
      return;
    }
    total += static_cast<std::int32_t>(n);
  }
  void Hit() { ++hits; }
};

// Each character of s is looked for in t after the previous hit; found within
// four positions it is a hit and the new anchor, otherwise the anchor moves on
// by one.
void FuzzyAlg1(Text s, Text t, Tally& tally) {
  tally.AddTotal(Len(s));
  if (tally.overflow) return;
  Pos p = 0;  // 1-based position of the last hit in t
  for (char32_t c : s) {
    const Pos found = IndexOf(t, c, p);  // 0-based, from position p + 1
    if (found != -1 && found + 1 <= p + 4) {
      tally.Hit();
      p = found + 1;
    } else {
      ++p;
    }
  }
}

// The pieces of n characters of s, for every n from 2 up, each found at most
// once in a fresh copy of t (a found piece is overwritten with zeros there).
void FuzzyAlg2(Text s, Text t, Tally& tally, std::u32string& copy) {
  const Pos len = Len(s);
  for (Pos n = 2; n <= len; ++n) {
    copy.assign(t);
    tally.AddTotal(len / n);
    if (tally.overflow) return;
    for (Pos at = 0; at <= len - n; at += n) {
      const std::size_t found = copy.find(s.substr(at, n));
      if (found == std::u32string::npos) continue;
      tally.Hit();
      std::fill_n(copy.begin() + static_cast<std::ptrdiff_t>(found), n, U'\0');
    }
  }
}

}  // namespace

// --- The measures ----------------------------------------------------------

double SmartMatch(std::string_view a, std::string_view b, FuzzyScratch& s) {
  Decode(a, Fold::kUpper, s.a);
  Decode(b, Fold::kUpper, s.b);
  if (s.a == s.b) return 1.0;
  if (s.a.empty() || s.b.empty()) return 0.0;
  const Pos common = CommonByRuns(s.a, s.b, s.regions);
  return 2.0 * common / static_cast<double>(s.a.size() + s.b.size());
}

double FuzzyMatch(std::string_view a, std::string_view b, FuzzyScratch& s) {
  if (a.empty() || b.empty()) return 0.0;
  Decode(a, Fold::kNone, s.a);
  Decode(b, Fold::kNone, s.b);
  if (s.a.size() == 1 && s.b.size() == 1) return s.a == s.b ? 1.0 : 0.0;
  FoldInPlace(s.a, Fold::kUpper);
  FoldInPlace(s.b, Fold::kUpper);
  // The longer one leads; with equal lengths, b.
  if (s.a.size() > s.b.size()) return FuzzyMatchArrays(s.a, s.b, s.ints);
  return FuzzyMatchArrays(s.b, s.a, s.ints);
}

int LevenshteinDistance(std::string_view a, std::string_view b, FuzzyScratch& s) {
  Decode(a, Fold::kLower, s.a);
  Decode(b, Fold::kLower, s.b);
  const Text x = s.a, y = s.b;
  const Pos n = Len(x), m = Len(y);
  // One row of the (n + 1) x (m + 1) matrix at a time.
  std::vector<Pos>& row = s.ints;
  row.resize(static_cast<std::size_t>(m) + 1);
  for (Pos j = 0; j <= m; ++j) row[j] = j;
  for (Pos i = 1; i <= n; ++i) {
    Pos diagonal = row[0];
    row[0] = i;
    for (Pos j = 1; j <= m; ++j) {
      const Pos above = row[j];
      row[j] = x[i - 1] == y[j - 1] ? diagonal : 1 + std::min({diagonal, above, row[j - 1]});
      diagonal = above;
    }
  }
  return row[m];
}

double Levenshtein(std::string_view a, std::string_view b, FuzzyScratch& s) {
  const int distance = LevenshteinDistance(a, b, s);
  const std::size_t longer = std::max(s.a.size(), s.b.size());
  if (longer == 0) return 0.0;  // nothing to divide by
  return Single(1.0 - distance / static_cast<double>(longer));
}

double Ratcliff(std::string_view a, std::string_view b, FuzzyScratch& s) {
  if (a == b) return 1.0;
  if (a.empty() || b.empty()) return 0.0;
  Decode(a, Fold::kLower, s.a);
  Decode(b, Fold::kLower, s.b);
  const Text x = s.a, y = s.b;
  Pos score = 0;
  std::vector<Pos>& work = s.regions;
  work.clear();
  // Each entry: start and length in a, start and length in b.
  work.insert(work.end(), {0, Len(x), 0, Len(y)});
  while (!work.empty()) {
    const Pos lenB = work.back(), atB = work.end()[-2], lenA = work.end()[-3], atA = work.end()[-4];
    work.resize(work.size() - 4);
    if (lenA == 0 || lenB == 0) continue;
    const Run r = LongestRun(x, atA, atA + lenA, y, atB, atB + lenB);
    if (r.length == 0) continue;
    score += 2 * r.length;
    const Pos foundA = r.atA - atA, foundB = r.atB - atB;  // characters on the left
    work.insert(work.end(), {atA, foundA, atB, foundB});
    // 1-based position of the first character after the run. The rest goes on
    // one character short, and a rest of a single character not at all.
    const Pos nextA = foundA + r.length + 1, nextB = foundB + r.length + 1;
    if (nextB >= lenB || nextA >= lenA) continue;
    work.insert(work.end(), {atA + nextA - 1, lenA - nextA, atB + nextB - 1, lenB - nextB});
  }
  return Single(score / static_cast<double>(x.size() + y.size()));
}

double MatchDiff(std::string_view a, std::string_view b, FuzzyScratch& s) {
  if (a.empty() || b.empty()) return 0.0;
  Decode(a, Fold::kNone, s.a);
  Decode(b, Fold::kNone, s.b);
  const Pos d = FindDiffs(s.a, s.b, s.regions);
  if (d != 0) return 1.0 - d / static_cast<double>(s.a.size());
  return static_cast<double>(std::min(s.a.size(), s.b.size())) /
         static_cast<double>(std::max(s.a.size(), s.b.size()));
}

double WordMatch(std::string_view a, std::string_view b, std::string_view delimiters,
                 FuzzyScratch& s) {
  Decode(a, Fold::kLower, s.a);
  Decode(b, Fold::kLower, s.b);
  Decode(delimiters, Fold::kNone, s.delimiters);
  const Text x = Trim(s.a), y = Trim(s.b);
  if (x.empty() || y.empty()) return 0.0;
  std::vector<Pos>& words = s.ints;  // (start, length) pairs, a's words first
  words.clear();
  const Pos c1 = SplitWords(x, s.delimiters, words);
  const Pos c2 = SplitWords(y, s.delimiters, words);
  if (c1 == 0 || c2 == 0) return 0.0;
  const double unit = 1.0 / std::max(c1, c2);
  auto word = [&](Text in, Pos k) { return in.substr(words[2 * k], words[2 * k + 1]); };

  // Each word of the string with more words (a when equal) is matched against
  // the unused words of the other; a hit uses that word up, and the walk goes
  // on with the next one, so one word can use up several equal words.
  std::vector<std::uint8_t>& used = s.flags;
  used.assign(static_cast<std::size_t>(c1 + c2), 0);
  const bool aLeads = c1 >= c2;
  const Text lead = aLeads ? x : y, other = aLeads ? y : x;
  const Pos leadFirst = aLeads ? 0 : c1, otherFirst = aLeads ? c1 : 0;
  const Pos leadCount = aLeads ? c1 : c2, otherCount = aLeads ? c2 : c1;
  Pos hits = 0;
  for (Pos i = 0; i < leadCount && hits < otherCount; ++i) {
    const Text w = word(lead, leadFirst + i);
    for (Pos j = 0; j < otherCount; ++j) {
      if (used[otherFirst + j] || word(other, otherFirst + j) != w) continue;
      used[otherFirst + j] = 1;
      if (++hits == otherCount) break;
    }
  }
  if ((c1 >= c2 && hits == c1) || (c1 < c2 && hits == c2)) return 1.0;
  return hits * unit;
}

double FuzzyPercent(std::string_view a, std::string_view b, FuzzyScratch& s) {
  Decode(a, Fold::kLower, s.a);
  Decode(b, Fold::kLower, s.b);
  const Text x = Trim(s.a), y = Trim(s.b);
  if (x == y) return 1.0;
  if (x.size() < 2) return 0.0;
  Tally tally;
  const bool aShorter = x.size() < y.size();
  FuzzyAlg1(x, y, tally);
  if (aShorter) FuzzyAlg1(y, x, tally);
  FuzzyAlg2(x, y, tally, s.copy);
  if (aShorter) FuzzyAlg2(y, x, tally, s.copy);
  if (tally.overflow) return 0.0;
  return Single(tally.hits / static_cast<double>(tally.total));
}

double Simil(std::string_view a, std::string_view b, FuzzyScratch& s) {
  if (a == b) return 1.0;
  if (a.empty() || b.empty()) return 0.0;
  Decode(a, Fold::kLower, s.a);
  Decode(b, Fold::kLower, s.b);
  const Pos common = CommonByRuns(s.a, s.b, s.regions);
  return 2.0 * common / static_cast<double>(s.a.size() + s.b.size());
}

double MeasureSimilarity(NameMeasure method, std::string_view a, std::string_view b,
                         std::string_view delimiters, FuzzyScratch& s) {
  switch (method) {
    case NameMeasure::kSmartMatch:
      return SmartMatch(a, b, s);
    case NameMeasure::kFuzzyMatch:
      return FuzzyMatch(a, b, s);
    case NameMeasure::kLevenshtein:
      return Levenshtein(a, b, s);
    case NameMeasure::kRatcliff:
      return Ratcliff(a, b, s);
    case NameMeasure::kMatchDiff:
      return MatchDiff(a, b, s);
    case NameMeasure::kWordMatch:
      return WordMatch(a, b, delimiters, s);
    case NameMeasure::kFuzzyPercent:
      return FuzzyPercent(a, b, s);
    case NameMeasure::kSimil:
      return Simil(a, b, s);
  }
  return 0.0;
}

void FoldedCodePoints(std::string_view s, bool upper, std::u32string& out) {
  Decode(s, upper ? Fold::kUpper : Fold::kLower, out);
}

void WordMatchWords(std::string_view s, std::string_view delimiters, FuzzyScratch& scratch,
                    std::vector<std::u32string>& out) {
  out.clear();
  Decode(s, Fold::kLower, scratch.a);
  Decode(delimiters, Fold::kNone, scratch.delimiters);
  const Text x = Trim(scratch.a);
  std::vector<Pos>& words = scratch.ints;
  words.clear();
  const Pos count = SplitWords(x, scratch.delimiters, words);
  for (Pos k = 0; k < count; ++k) out.emplace_back(x.substr(words[2 * k], words[2 * k + 1]));
}

// Overloads with a scratch of their own.
double SmartMatch(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return SmartMatch(a, b, s);
}
double FuzzyMatch(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return FuzzyMatch(a, b, s);
}
double Levenshtein(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return Levenshtein(a, b, s);
}
double Ratcliff(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return Ratcliff(a, b, s);
}
double MatchDiff(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return MatchDiff(a, b, s);
}
double WordMatch(std::string_view a, std::string_view b, std::string_view delimiters) {
  FuzzyScratch s;
  return WordMatch(a, b, delimiters, s);
}
double FuzzyPercent(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return FuzzyPercent(a, b, s);
}
double Simil(std::string_view a, std::string_view b) {
  FuzzyScratch s;
  return Simil(a, b, s);
}

}  // namespace kelvor
