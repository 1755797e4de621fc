#pragma once
// Similarity measures for file names: pure functions of two UTF-8 strings,
// each giving a value from 0 to 1 (MatchDiff can give more for a pair of equal
// one-character strings, see there). The user's threshold is judged against
// these values, so every measure keeps its own case rule, its own treatment of
// blanks, its precision and its oddities; they are not meant to agree.
//
// All of them work on Unicode code points, so that one accented letter is one
// position. Bytes that are no valid UTF-8 each count as one position of their
// own (U+DC00 + byte, as ToCodePoints maps them). Case folding is utf8proc's
// simple per-code-point mapping, so folding never changes a length. "Trimmed"
// means leading and trailing spaces (U+0020) are dropped, nothing else.
//
// The measures are called for every pair of names in a search. Each has an
// overload taking a FuzzyScratch that keeps the working memory between calls:
// once its buffers have grown to the longest names seen, a call allocates
// nothing. The overloads without one make a scratch per call.
//
// Three measures compute in single precision: FuzzyPercent, Levenshtein and
// Ratcliff return a float value widened to double, so 9 of 10 is 0.89999998
// and does not reach a threshold of 0.9. The others are double precision.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

// The delimiters of WordMatch unless the user sets others.
inline constexpr std::string_view kDefaultWordDelimiters = " ,_.;-";

// Working memory of the measures, owned by the caller and reused from call to
// call (one per thread). Its contents mean nothing between calls.
struct FuzzyScratch {
  std::u32string a, b, copy, delimiters;
  std::vector<std::int32_t> ints;
  std::vector<std::int32_t> regions;
  std::vector<std::uint8_t> flags;
};

// Upper case; equal strings give 1, an empty one 0. Otherwise 2 x the
// characters found by recursive longest common runs / (Len(a) + Len(b)). Among
// runs of equal length the one met first (a's position, then b's) is taken.
double SmartMatch(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double SmartMatch(std::string_view a, std::string_view b);

// Upper case. Each character of the longer string (b when the lengths are
// equal) is looked up in the other and scores 1 - distance / length; the sum
// is divided by length - 1 and loses 1 when above 1. Position 0 of the other
// string always counts as taken, and equal strings of three or more
// characters do not give 1 (abc/abc gives 0.5). Two one-character strings are
// compared exactly, with case.
double FuzzyMatch(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double FuzzyMatch(std::string_view a, std::string_view b);

// Lower case; 1 - edit distance / the longer length, in single precision.
// Two empty strings give 0.
double Levenshtein(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double Levenshtein(std::string_view a, std::string_view b);
// The edit distance itself, on the lower-cased code points.
int LevenshteinDistance(std::string_view a, std::string_view b, FuzzyScratch& scratch);

// Exactly equal strings give 1, an empty one 0; then lower case and
// 2 x matched / (Len(a) + Len(b)) by recursive longest common substrings, in
// single precision. The rest to the right of a match is taken one character
// short, so a last character is never matched on its own (abcd/abxd: 0.5).
double Ratcliff(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double Ratcliff(std::string_view a, std::string_view b);

// Case counts. d = the characters of a not covered by common runs (after
// taking off the common start and end); 1 - d / Len(a), or, when d is 0,
// the shorter length / the longer one. An empty string gives 0. A run that
// would begin at the last position of a's open range is not found. The pair of
// two equal one-character strings gives 2: the stripped bounds leave an empty
// range that counts -1 characters.
double MatchDiff(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double MatchDiff(std::string_view a, std::string_view b);

// Lower case, trimmed. Both are split into words at any of `delimiters`
// (compared exactly with the lower-cased text); the words found in the other
// string, whatever their order, / the larger word count. So 1 needs as many
// words on both sides, all found.
double WordMatch(std::string_view a, std::string_view b, std::string_view delimiters,
                 FuzzyScratch& scratch);
double WordMatch(std::string_view a, std::string_view b,
                 std::string_view delimiters = kDefaultWordDelimiters);

// Lower case, trimmed; equal gives 1, an a of fewer than two characters 0 (so
// it is not symmetric). hits / total from two walks: characters of one found
// in the other close after the previous hit, and the 2-, 3-, ... character
// pieces of one found in the other, in single precision. The counters are
// 16-bit: when total would pass 32767 (strings of a few thousand characters)
// the result is 0.
double FuzzyPercent(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double FuzzyPercent(std::string_view a, std::string_view b);

// Kelvor's own gestalt measure: exactly equal gives 1, an empty string 0;
// then lower case and 2 x matched / (Len(a) + Len(b)) by recursive longest
// common substrings on both sides of each match, in double precision.
double Simil(std::string_view a, std::string_view b, FuzzyScratch& scratch);
double Simil(std::string_view a, std::string_view b);

// What the search needs to bound a measure without computing it: the code
// points of s under a measure's case rule (upper for SmartMatch and
// FuzzyMatch, lower for Levenshtein, Ratcliff and Simil), and the words
// WordMatch makes of s (lower case, trimmed, split at `delimiters`).
void FoldedCodePoints(std::string_view s, bool upper, std::u32string& out);
void WordMatchWords(std::string_view s, std::string_view delimiters, FuzzyScratch& scratch,
                    std::vector<std::u32string>& out);

// The measures in the order the user chooses among them.
enum class NameMeasure : int {
  kSmartMatch = 0,
  kFuzzyMatch = 1,
  kLevenshtein = 2,
  kRatcliff = 3,
  kMatchDiff = 4,
  kWordMatch = 5,
  kFuzzyPercent = 6,
  kSimil = 7,
};

// The measure `method` of (a, b); `delimiters` serve WordMatch only. A
// value outside the list measures nothing and gives 0.
double MeasureSimilarity(NameMeasure method, std::string_view a, std::string_view b,
                         std::string_view delimiters, FuzzyScratch& scratch);

}  // namespace kelvor
