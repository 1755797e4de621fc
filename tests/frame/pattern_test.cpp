// The wildcard pattern language shared by the filters and the result searches.

#include "frame/pattern.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace kelvor {
namespace {

bool M(std::string_view text, std::string_view pattern, bool ignoreCase = false) {
  std::string error;
  const bool r = LikeMatch(text, pattern, ignoreCase, &error);
  EXPECT_EQ(error, "") << "pattern " << pattern;
  return r;
}

TEST(LikePattern, WildcardsOfEveryKind) {
  EXPECT_TRUE(M("report.tmp", "*.tmp"));
  EXPECT_FALSE(M("report.tmp.txt", "*.tmp"));
  EXPECT_TRUE(M("~$doc.docx", "~$*"));
  EXPECT_TRUE(M("a cache file", "*cache*"));
  EXPECT_TRUE(M("", "*"));
  EXPECT_TRUE(M("", ""));
  EXPECT_FALSE(M("x", ""));
  EXPECT_TRUE(M("abc", "a?c"));
  EXPECT_FALSE(M("ac", "a?c"));
  EXPECT_TRUE(M("img_0042.jpg", "img_####.jpg"));
  EXPECT_FALSE(M("img_00a2.jpg", "img_####.jpg"));
  EXPECT_TRUE(M("a.b.c.d", "*.*.*"));
  EXPECT_TRUE(M("aaab", "*a*b"));
  EXPECT_FALSE(M("aaba", "*a*b"));
  EXPECT_TRUE(M("mississippi", "m*iss*ppi"));
  EXPECT_TRUE(M("a!b", "a!b"));  // "!" outside brackets is itself
  EXPECT_TRUE(M("a]b", "a]b"));  // so is "]"
}

TEST(LikePattern, SetsRangesAndNegation) {
  EXPECT_TRUE(M("file3", "file[0-4]"));
  EXPECT_FALSE(M("file5", "file[0-4]"));
  EXPECT_TRUE(M("b", "[abc]"));
  EXPECT_FALSE(M("d", "[abc]"));
  EXPECT_TRUE(M("d", "[!abc]"));
  EXPECT_FALSE(M("a", "[!abc]"));
  EXPECT_TRUE(M("Y", "[A-CX-Z]"));
  EXPECT_FALSE(M("M", "[A-CX-Z]"));
  EXPECT_TRUE(M("-", "[-a]"));  // a hyphen at either end is itself
  EXPECT_TRUE(M("-", "[a-]"));
  EXPECT_FALSE(M("-", "[!ab-]"));
  EXPECT_TRUE(M("!", "[!]"));    // nothing to negate: the set of "!"
  EXPECT_TRUE(M("ab", "a[]b"));  // "[]" stands for nothing
  // Specials in brackets stand for themselves.
  EXPECT_TRUE(M("*", "[*]"));
  EXPECT_FALSE(M("x", "[*]"));
  EXPECT_TRUE(M("a?b", "a[?]b"));
  EXPECT_FALSE(M("axb", "a[?]b"));
  EXPECT_TRUE(M("#1", "[#]#"));
  EXPECT_TRUE(M("[x", "[[]x"));
}

TEST(LikePattern, InvalidPatternsAreReportedAndMatchNothing) {
  for (const char* bad : {"[abc", "*.[tx", "file[z-a]", "[9-0]*"}) {
    LikePattern p;
    std::string error;
    EXPECT_FALSE(p.Compile(bad, false, &error)) << bad;
    EXPECT_NE(error.find("Invalid pattern"), std::string::npos) << bad;
    EXPECT_FALSE(p.Valid());
    EXPECT_FALSE(p.Match("abc"));
    EXPECT_FALSE(p.Match(""));
  }
  std::string error;
  EXPECT_FALSE(LikeMatch("[abc", "[abc", false, &error));
  EXPECT_FALSE(error.empty());
}

TEST(LikePattern, UnicodeLettersAndCase) {
  EXPECT_TRUE(M("Ä.txt", "?.txt"));  // one letter is one character
  EXPECT_TRUE(M("Ü", "[Ä-Ü]"));
  EXPECT_FALSE(M("ä", "[Ä-Ü]"));
  EXPECT_FALSE(M("Äpfel.TXT", "ä*.txt"));
  EXPECT_TRUE(M("Äpfel.TXT", "ä*.txt", true));
  EXPECT_TRUE(M("äpfel.txt", "Ä*.TXT", true));
  EXPECT_TRUE(M("ÉTÉ", "[à-ÿ]t[é]", true));
  EXPECT_TRUE(M("日本語.txt", "???.txt"));
  EXPECT_TRUE(M("straße", "STRA?E", true));
}

TEST(LikePattern, NamesWithInvalidUtf8Bytes) {
  const std::string name =
      "a\xff"
      "b.txt";
  EXPECT_TRUE(M(name, "a?b.txt"));
  EXPECT_TRUE(M(name, "*.txt"));
  EXPECT_TRUE(M(name, "a*b*"));
  EXPECT_FALSE(M(name, "ab*"));
  EXPECT_TRUE(M(name, "A?B.TXT", true));
  // A stray continuation byte is one character, not glued to its neighbour.
  EXPECT_TRUE(
      M("\xc3"
        "a",
        "??"));
  EXPECT_TRUE(M("x\x80", "x?"));
  // A pattern holding a stray byte matches that byte.
  EXPECT_TRUE(M("a\xfe", "a\xfe"));
  EXPECT_TRUE(M("za\xfe", "*a\xfe"));
  EXPECT_FALSE(M("za\xfd", "*a\xfe"));
}

// A plain recursive matcher over ASCII, to hold the compiled one to.
bool Reference(std::string_view t, std::string_view p) {
  if (p.empty()) return t.empty();
  if (p[0] == '*') {
    for (std::size_t k = 0; k <= t.size(); ++k) {
      if (Reference(t.substr(k), p.substr(1))) return true;
    }
    return false;
  }
  if (t.empty()) return p.substr(0, 2) == "[]" && Reference(t, p.substr(2));
  if (p[0] == '[') {
    const std::size_t close = p.find(']', 1);
    const std::string_view set = p.substr(1, close - 1);
    if (set.empty()) return Reference(t, p.substr(close + 1));
    return set.find(t[0]) != std::string_view::npos && Reference(t.substr(1), p.substr(close + 1));
  }
  const bool fits = p[0] == '?' || (p[0] == '#' && t[0] >= '0' && t[0] <= '9') || p[0] == t[0];
  return fits && Reference(t.substr(1), p.substr(1));
}

TEST(LikePattern, AgreesWithAPlainMatcherOnManyCases) {
  std::mt19937 rng(4711);
  const char* atoms[] = {"a", "b", "1", "*", "?", "#", "[ab]", "[1b]", "[]", "**"};
  const char letters[] = "ab1";
  int checked = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string pattern;
    const int atomsCount = static_cast<int>(rng() % 6);
    for (int i = 0; i < atomsCount; ++i) pattern += atoms[rng() % std::size(atoms)];
    std::string text;
    const int len = static_cast<int>(rng() % 7);
    for (int i = 0; i < len; ++i) text += letters[rng() % 3];
    ASSERT_EQ(M(text, pattern), Reference(text, pattern))
        << "'" << text << "' / '" << pattern << "'";
    ++checked;
  }
  EXPECT_EQ(checked, 4000);
}

TEST(LikePattern, EscapeAndUnescape) {
  EXPECT_EQ(EscapeWildcards("a*.txt"), "a[*].txt");
  EXPECT_EQ(EscapeWildcards("[x]?#"), "[[]x][?][#]");
  EXPECT_EQ(EscapeWildcards("Ärger"), "Ärger");
  for (const char* s : {"a*.txt", "[x]?#", "#1 ? [*]", "", "*", "[["}) {
    EXPECT_EQ(UnescapeWildcards(EscapeWildcards(s)), s) << s;
    // The escaped text matches only itself.
    EXPECT_TRUE(M(s, EscapeWildcards(s))) << s;
  }
  EXPECT_EQ(UnescapeWildcards("[a]"), "[a]");
  EXPECT_EQ(UnescapeWildcards("x[*"), "x[*");
  EXPECT_EQ(UnescapeWildcards("[*][#]end"), "*#end");
  EXPECT_EQ(UnescapeWildcards("ab"), "ab");
}

}  // namespace
}  // namespace kelvor
