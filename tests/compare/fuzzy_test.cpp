// The similarity measures for file names, with values worked out by hand from
// each measure's rules, their case and blank rules, precision and oddities,
// and Levenshtein against Debian's python3-levenshtein.

#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "compare/fuzzy.h"
#include "frame/unicode.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

// The single-precision value nearest to n / m, as the three single-precision
// measures return it.
double F(double n, double m) {
  return static_cast<double>(static_cast<float>(n / m));
}

bool IsAscii(const std::string& s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

TEST(SmartMatch, UpperCaseRunsAndCodePoints) {
  EXPECT_EQ(SmartMatch("ABC", "abc"), 1.0);
  EXPECT_EQ(SmartMatch("", ""), 1.0);  // equal before anything else
  EXPECT_EQ(SmartMatch("abc", ""), 0.0);
  EXPECT_EQ(SmartMatch("", "abc"), 0.0);
  EXPECT_EQ(SmartMatch("abc", "xyz"), 0.0);
  // ABCD/ABXD: run AB, then right of it CD/XD gives D: 3 in common, 2 x 3 / 8.
  EXPECT_DOUBLE_EQ(SmartMatch("abcd", "abxd"), 0.75);
  // MÜLLER/MUELLER: run LLER (4), left of it MÜ/MUE gives M (1): 2 x 5 / (6 + 7).
  // Ü is one position; as bytes the lengths would be 7 and 7.
  EXPECT_DOUBLE_EQ(SmartMatch("Müller", "MUELLER"), 10.0 / 13.0);
  // Upper case folds the dotless i to I, so both are I.
  EXPECT_EQ(SmartMatch("ı", "i"), 1.0);
  // The Kelvin sign has no upper-case form other than itself: K and k differ.
  EXPECT_EQ(SmartMatch("\u212A", "k"), 0.0);
  // Blanks are kept: "ab " / "ab" has AB in common, 2 x 2 / 5.
  EXPECT_DOUBLE_EQ(SmartMatch("ab ", "ab"), 0.8);
}

TEST(FuzzyMatch, OddSumAndTakenFirstPosition) {
  EXPECT_EQ(FuzzyMatch("", ""), 0.0);
  EXPECT_EQ(FuzzyMatch("abc", ""), 0.0);
  // Two single characters compare exactly, case and all.
  EXPECT_EQ(FuzzyMatch("a", "a"), 1.0);
  EXPECT_EQ(FuzzyMatch("a", "A"), 0.0);
  // ABC/ABC: every position finds itself, sum 3; 3 / (3 - 1) = 1.5, above 1,
  // so 1 comes off: equal strings give 0.5.
  EXPECT_EQ(FuzzyMatch("abc", "ABC"), 0.5);
  // Two characters: sum 2 / 1 = 2, less 1: exactly 1.
  EXPECT_EQ(FuzzyMatch("ab", "ab"), 1.0);
  // ABCX (b leads on equal lengths) in ABCD: A, B, C at their places, X
  // nowhere: 3 / 3 = 1. One wrong letter scores higher than none.
  EXPECT_EQ(FuzzyMatch("abcd", "abcx"), 1.0);
  // AAB leads, looked up in AB (step 1/3). A: first at 0, which counts as
  // taken, no other A, so 0 stays: 1. A: again 0, 1 - 1/3. B at 1: 1 - 1/3.
  // Sum 7/3, / 2 = 7/6, less 1 = 1/6.
  EXPECT_DOUBLE_EQ(FuzzyMatch("ab", "aab"), 1.0 / 6.0);
  // ABAB in ABAB (step 1/4). A at 0 is taken, the next A at 2 is free:
  // 1 - 2/4. B at 1: 1. A at 0 taken, at 2 taken, the search start 3 is not
  // below the last index 3: 0 stays, 1 - 2/4. B at 1 taken, B at 3 free: 1.
  // Sum 3, / 3 = 1.
  EXPECT_EQ(FuzzyMatch("abab", "abab"), 1.0);
  // Upper case: the dotless i and i are both I.
  EXPECT_EQ(FuzzyMatch("xı", "xi"), 1.0);
}

TEST(Levenshtein, LowerCaseEditDistanceInSinglePrecision) {
  EXPECT_EQ(Levenshtein("ABC", "abc"), 1.0);
  EXPECT_EQ(Levenshtein("kitten", "sitting"), F(4, 7));  // distance 3
  EXPECT_EQ(Levenshtein("", "abc"), 0.0);
  EXPECT_EQ(Levenshtein("", ""), 0.0);  // nothing to divide by
  // One edit in ten: 0.9 in single precision, which stays below 0.9.
  const double nine = Levenshtein("abcdefghij", "ABCDEFGHIX");
  EXPECT_EQ(nine, static_cast<double>(0.9f));
  EXPECT_LT(nine, 0.9);
  // straße/strasse: ß -> s and one more s: distance 2 of 7.
  EXPECT_EQ(Levenshtein("Straße", "STRASSE"), F(5, 7));
  // Lower case maps the Kelvin sign to k.
  EXPECT_EQ(Levenshtein("\u212A", "k"), 1.0);
  // Blanks count: "ab " / "ab" is one insertion of 3.
  EXPECT_EQ(Levenshtein("ab ", "ab"), F(2, 3));
  FuzzyScratch scratch;
  EXPECT_EQ(LevenshteinDistance("Ärger", "ärgern", scratch), 1);
}

TEST(Ratcliff, ExactTestLowerCaseAndShortRightRest) {
  EXPECT_EQ(Ratcliff("abc", "abc"), 1.0);
  EXPECT_EQ(Ratcliff("", ""), 1.0);
  EXPECT_EQ(Ratcliff("abc", ""), 0.0);
  EXPECT_EQ(Ratcliff("ABC", "abc"), 1.0);  // run abc: 6 / 6
  // abcd/abxd: run ab (score 4); the rests cd/xd go on one short, as c/x:
  // nothing. 4 / 8. The d at the end is never matched.
  EXPECT_EQ(Ratcliff("abcd", "abxd"), 0.5);
  // abXc/abYc: run ab; the rests Xc/Yc go on as X/Y: 4 / 8.
  EXPECT_EQ(Ratcliff("abXc", "abYc"), 0.5);
  // abXcd/abYcd: run ab (the first of the two of length 2); the rests xcd/ycd
  // go on as xc/yc: run c (score 6); its rest is a single character, left
  // alone. 6 / 10.
  EXPECT_EQ(Ratcliff("abXcd", "abYcd"), F(6, 10));
  // abc/abd: run ab, the rest c/d is a single character: 4 / 6 in single
  // precision.
  EXPECT_EQ(Ratcliff("abc", "abd"), F(4, 6));
  EXPECT_NE(Ratcliff("abc", "abd"), 4.0 / 6.0);
  // Left of a run nothing is cut: xyab/xzab: run ab at the end (score 4); on
  // its left xy/xz, run x (score 6): 6 / 8.
  EXPECT_EQ(Ratcliff("xyab", "xzab"), F(6, 8));
  // Lower case keeps the dotless i apart from i.
  EXPECT_EQ(Ratcliff("ı", "i"), 0.0);
}

TEST(MatchDiff, CaseCountsPrefixesAndOpenEnd) {
  EXPECT_EQ(MatchDiff("ABC", "abc"), 0.0);     // nothing in common: d 3, 1 - 3/3
  EXPECT_EQ(MatchDiff("abc", "abcdef"), 0.5);  // all of a is a prefix: d 0, 3/6
  EXPECT_EQ(MatchDiff("abcdef", "abc"), 0.5);  // d = def = 3, 1 - 3/6
  EXPECT_EQ(MatchDiff("", "abc"), 0.0);
  EXPECT_EQ(MatchDiff("abc", ""), 0.0);
  EXPECT_EQ(MatchDiff("ab", "ab"), 1.0);  // d 0, 2/2
  // a/a: the common start covers all of a; the end of b's rest is 0, which is
  // not above 0, so the empty range of a (1 to -1) is counted: d = -1,
  // 1 - (-1)/1 = 2.
  EXPECT_EQ(MatchDiff("a", "a"), 2.0);
  // Abc/abc: the common end bc leaves A/a: d 1, 1 - 1/3.
  EXPECT_DOUBLE_EQ(MatchDiff("Abc", "abc"), 1.0 - 1.0 / 3.0);
  // xabcy/zabcw: run abc in the middle, x and y are left: d 2, 1 - 2/5.
  EXPECT_DOUBLE_EQ(MatchDiff("xabcy", "zabcw"), 0.6);
  // pqz/zrs: z is a's last position, where no run may begin: d 3, 0.
  EXPECT_EQ(MatchDiff("pqz", "zrs"), 0.0);
  // abcX/abcYX: after the common start abc and end X nothing of a is left;
  // b keeps Y, which does not count: d 0, 4/5.
  EXPECT_DOUBLE_EQ(MatchDiff("abcX", "abcYX"), 0.8);
  // Müller/Muller: ü against u in the middle: d 1 of 6 positions.
  EXPECT_DOUBLE_EQ(MatchDiff("Müller", "Muller"), 1.0 - 1.0 / 6.0);
}

TEST(WordMatch, WordsInAnyOrder) {
  EXPECT_EQ(WordMatch("Hello World", "world hello"), 1.0);
  EXPECT_EQ(WordMatch("the_file-name.txt", "Name File the TXT"), 1.0);
  EXPECT_EQ(WordMatch("  hello ", "HELLO"), 1.0);  // trimmed, lower case
  EXPECT_EQ(WordMatch("   ", "x"), 0.0);
  EXPECT_EQ(WordMatch("", ""), 0.0);
  EXPECT_EQ(WordMatch("._-", "x"), 0.0);  // no word at all
  // Three words against two: both of b found, 2 x 1/3; and the other way.
  EXPECT_DOUBLE_EQ(WordMatch("a b c", "a b"), 2 * (1.0 / 3.0));
  EXPECT_DOUBLE_EQ(WordMatch("a b", "a b c"), 2 * (1.0 / 3.0));
  // x x / x y: the first x uses up b's x, the second finds nothing: 1/2.
  EXPECT_EQ(WordMatch("x x", "x y"), 0.5);
  // x y / x x: a's x uses up both x of b; two hits as a has two words: 1.
  EXPECT_EQ(WordMatch("x y", "x x"), 1.0);
  // Delimiters of one's own; the defaults do not split at "+".
  EXPECT_EQ(WordMatch("a+b", "b+a", "+"), 1.0);
  EXPECT_EQ(WordMatch("a+b", "b+a"), 0.0);
  // Delimiters are compared with the lower-cased text as they stand.
  EXPECT_EQ(WordMatch("aXb", "bXa", "X"), 0.0);
  EXPECT_EQ(WordMatch("aXb", "bXa", "x"), 1.0);
  // Words of letters beyond ASCII.
  EXPECT_EQ(WordMatch("Größe Änderung", "änderung grösse"), 0.5);
}

TEST(FuzzyPercent, AsymmetricWalksInSinglePrecision) {
  EXPECT_EQ(FuzzyPercent("a", "abc"), 0.0);  // a has fewer than two characters
  // abc/a: walk 1 abc in a: a hit, b and c nothing (total 3, hits 1). Walk 2
  // abc in a: ab no (total + 1), abc no (total + 1). 1 / 5.
  EXPECT_EQ(FuzzyPercent("abc", "a"), F(1, 5));
  EXPECT_NE(FuzzyPercent("abc", "a"), 0.0);
  EXPECT_EQ(FuzzyPercent(" Abc ", "abc"), 1.0);  // trimmed and lower case: equal
  EXPECT_EQ(FuzzyPercent("", ""), 1.0);
  // ab/abc, a shorter, so all four walks:
  //   walk 1 ab in abc: a, b hit (2/2); abc in ab: a, b hit, c not (4/5);
  //   walk 2 ab in abc: ab (5/6); abc in ab: ab (6/7), abc not (6/8).
  EXPECT_EQ(FuzzyPercent("ab", "abc"), F(6, 8));
  // ab/axxxb: walk 1 ab: a at 1, b at 5 = 1 + 4, close enough (2/2); axxxb
  // in ab: a (3/7). Walk 2 ab: no (3/8); axxxb: 2 + 1 + 1 + 1 pieces, none
  // (3/13).
  EXPECT_EQ(FuzzyPercent("ab", "axxxb"), F(3, 13));
  // ab/axxxxb: b at 6 is beyond 1 + 4 (1/2); axxxxb in ab: a (2/8); walk 2
  // ab: no (2/9); axxxxb: 3 + 2 + 1 + 1 + 1 pieces, none (2/17).
  EXPECT_EQ(FuzzyPercent("ab", "axxxxb"), F(2, 17));
}

TEST(FuzzyPercent, SixteenBitCountersEndLongMeasures) {
  // n x "a" against n x "a" + "b": every character and piece is found except
  // b in walk 1 and the pieces holding b in walk 2, one for each divisor
  // (>= 2) of n + 1. total = the sum over k from 1 of (n / k) + ((n + 1) / k).
  auto total = [](int n) {
    int t = 0;
    for (int k = 1; k <= n + 1; ++k) t += n / k + (n + 1) / k;
    return t;
  };
  // 1501 = 19 x 79: misses b, 19, 79 and 1501.
  const int t = total(1500);
  ASSERT_LE(t, 32767);
  EXPECT_EQ(FuzzyPercent(std::string(1500, 'a'), std::string(1500, 'a') + "b"), F(t - 4, t));
  // Longer strings take total past 32767: the measure gives 0.
  ASSERT_GT(total(4000), 32767);
  EXPECT_EQ(FuzzyPercent(std::string(4000, 'a'), std::string(4000, 'a') + "b"), 0.0);
}

TEST(Simil, GestaltWithoutShortRest) {
  EXPECT_EQ(Simil("abc", "abc"), 1.0);
  EXPECT_EQ(Simil("", ""), 1.0);
  EXPECT_EQ(Simil("abc", ""), 0.0);
  EXPECT_EQ(Simil("ABC", "abc"), 1.0);
  // Where Ratcliff stops one short, the last characters count here.
  EXPECT_DOUBLE_EQ(Simil("abcd", "abxd"), 0.75);
  EXPECT_DOUBLE_EQ(Simil("abXc", "abYc"), 0.75);
  EXPECT_DOUBLE_EQ(Simil("abXcd", "abYcd"), 0.8);
  EXPECT_DOUBLE_EQ(Simil("Müller", "MUELLER"), 10.0 / 13.0);
  EXPECT_EQ(Simil("ı", "i"), 0.0);
}

TEST(FuzzyMeasures, MethodNumbersPickTheirMeasure) {
  FuzzyScratch s;
  const std::string a = "abXcd", b = "abYcd";
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kSmartMatch, a, b, "", s), SmartMatch(a, b));
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kFuzzyMatch, a, b, "", s), FuzzyMatch(a, b));
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kLevenshtein, a, b, "", s), Levenshtein(a, b));
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kRatcliff, a, b, "", s), Ratcliff(a, b));
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kMatchDiff, a, b, "", s), MatchDiff(a, b));
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kWordMatch, "aXb", "bXa", "x", s), 1.0);
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kFuzzyPercent, a, b, "", s), FuzzyPercent(a, b));
  EXPECT_EQ(MeasureSimilarity(NameMeasure::kSimil, a, b, "", s), Simil(a, b));
  EXPECT_EQ(MeasureSimilarity(static_cast<NameMeasure>(8), a, a, "", s), 0.0);
  // The values differ, so a mix-up would show.
  EXPECT_NE(Ratcliff(a, b), Simil(a, b));
  EXPECT_NE(SmartMatch(a, b), FuzzyMatch(a, b));
}

// Random names from a small alphabet with letters beyond ASCII (two- to
// four-byte UTF-8), upper and lower case, blanks and delimiters.
std::vector<std::pair<std::string, std::string>> RandomPairs(int count, std::uint32_t seed) {
  static const std::vector<std::string> kLetters = {"a", "b", "c", "A", "B", "x", " ", "_", "ä",
                                                    "Ä", "ß", "é", "É", "€", "Ω", "ω", "𝄞"};
  std::mt19937 rng(seed);
  auto word = [&] {
    std::string s;
    const int n = static_cast<int>(rng() % 13);
    for (int i = 0; i < n; ++i) s += kLetters[rng() % kLetters.size()];
    return s;
  };
  std::vector<std::pair<std::string, std::string>> pairs;
  for (int i = 0; i < count; ++i) {
    std::string a = word(), b = word();
    if (i % 4 == 0) b = a + word();  // some pairs that share a lot
    pairs.emplace_back(a, b);
  }
  return pairs;
}

TEST(FuzzyMeasures, ReusedScratchGivesTheSameValues) {
  FuzzyScratch shared;
  for (const auto& [a, b] : RandomPairs(300, 7)) {
    SCOPED_TRACE(a + " | " + b);
    FuzzyScratch fresh;
    EXPECT_EQ(SmartMatch(a, b, shared), SmartMatch(a, b, fresh));
    EXPECT_EQ(FuzzyMatch(a, b, shared), FuzzyMatch(a, b, fresh));
    EXPECT_EQ(Levenshtein(a, b, shared), Levenshtein(a, b, fresh));
    EXPECT_EQ(Ratcliff(a, b, shared), Ratcliff(a, b, fresh));
    EXPECT_EQ(MatchDiff(a, b, shared), MatchDiff(a, b, fresh));
    EXPECT_EQ(WordMatch(a, b, kDefaultWordDelimiters, shared),
              WordMatch(a, b, kDefaultWordDelimiters, fresh));
    EXPECT_EQ(FuzzyPercent(a, b, shared), FuzzyPercent(a, b, fresh));
    EXPECT_EQ(Simil(a, b, shared), Simil(a, b, fresh));
    const double s = Simil(a, b, shared);
    EXPECT_GE(s, 0.0);
    EXPECT_LE(s, 1.0);
  }
}

// Debian's python3-levenshtein lives in the system interpreter's packages; a
// python3 found first on PATH (pyenv, a virtual environment) may not see it.
constexpr const char* kSystemPython = "/usr/bin/python3";

constexpr const char* kDistanceScript = R"(import sys
try:
    import Levenshtein
except ImportError:
    sys.exit(3)
with open(sys.argv[1], encoding="utf-8", newline="\n") as src, \
     open(sys.argv[2], "w", encoding="utf-8") as out:
    for line in src.read().split("\n")[:-1]:
        a, b = line.split("\t")
        out.write("%d\n" % Levenshtein.distance(a, b))
)";

TEST(Levenshtein, AgreesWithPythonLevenshteinOnRandomPairs) {
  const auto pairs = RandomPairs(400, 20240611);
  test::TempDir dir;
  const auto script = dir.Write("distance.py", kDistanceScript);
  // The independent side gets the lower-cased strings; ours folds itself.
  std::string input;
  for (const auto& [a, b] : pairs) input += LowerCase(a) + "\t" + LowerCase(b) + "\n";
  const auto in = dir.Write("pairs.txt", input);
  const auto out = dir / "distances.txt";
  const std::string cmd = std::string(kSystemPython) + " '" + script.string() + "' '" +
                          in.string() + "' '" + out.string() + "' 2>'" +
                          (dir / "stderr.txt").string() + "'";
  const int status = std::system(cmd.c_str());
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  ASSERT_NE(code, 3) << "the Python module Levenshtein is missing: install Debian's "
                        "python3-levenshtein (scripts/install-deps)";
  ASSERT_EQ(code, 0) << "could not run " << kSystemPython
                     << " (Debian's python3, scripts/install-deps): "
                     << test::ReadBytes(dir / "stderr.txt");

  std::istringstream lines(test::ReadBytes(out));
  FuzzyScratch scratch;
  int checked = 0, nonAscii = 0;
  for (const auto& [a, b] : pairs) {
    int expected = -1;
    ASSERT_TRUE(lines >> expected) << "fewer distances than pairs";
    SCOPED_TRACE(a + " | " + b);
    EXPECT_EQ(LevenshteinDistance(a, b, scratch), expected);
    const std::size_t longer = std::max(ToCodePoints(a).size(), ToCodePoints(b).size());
    if (longer > 0) {
      EXPECT_EQ(Levenshtein(a, b, scratch),
                F(static_cast<double>(longer) - expected, static_cast<double>(longer)));
    }
    ++checked;
    if (!IsAscii(a) || !IsAscii(b)) ++nonAscii;
  }
  EXPECT_EQ(checked, 400);
  EXPECT_GT(nonAscii, 200);
}

}  // namespace
}  // namespace kelvor
