#pragma once
// The wildcard pattern language of the filters and of the text searches in the
// result: "*" any run of characters, "?" any one character, "#" one digit
// 0-9, "[...]" one character of a set with ranges ("[a-z0-9_]"), "[!...]" one
// character outside the set. A special character in brackets stands for itself
// ("[*]", "[[]", "[?]", "[#]"); "]" outside brackets is a plain character and
// "[]" stands for nothing. "-" at the start or end of a set is a plain "-".
//
// Matching works on code points of UTF-8 text; an invalid byte counts as one
// character of its own. The comparison is binary: callers that want to ignore
// case lower-case the pattern once (LikePattern::Compile with ignoreCase) and
// the text per call.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

class LikePattern {
 public:
  LikePattern() = default;

  // Compiles `pattern`. An invalid pattern ("[" without "]", a range such as
  // "[z-a]") gives false and a description in *error (may be null); the
  // object then matches nothing. With `ignoreCase` the pattern is lower-cased
  // first, so Match must be given lower-cased text.
  bool Compile(std::string_view pattern, bool ignoreCase = false, std::string* error = nullptr);

  bool Valid() const { return valid_; }

  // True when the whole of `text` fits the pattern. No allocation.
  bool Match(std::string_view text) const;

 private:
  enum class Op : uint8_t { Literal, Any, Digit, Set, Star };
  struct Token {
    Op op;
    bool negate;     // Set only
    char32_t value;  // Literal: the code point; Set: index of the first range
    uint32_t count;  // Set: number of ranges
  };
  struct Range {
    char32_t lo, hi;
  };
  // Shapes that need no general walk: a plain text, "*text", "text*", "*text*".
  enum class Shape : uint8_t { General, Exact, Suffix, Prefix, Contains };

  bool MatchGeneral(std::string_view text) const;
  bool TokenFits(const Token& t, char32_t c) const;

  std::vector<Token> tokens_;
  std::vector<Range> ranges_;
  std::string literal_;  // the fixed text of the simple shapes
  Shape shape_ = Shape::General;
  bool valid_ = false;
};

// One-shot form for commands that try a pattern the user typed: compiles and
// matches. An invalid pattern gives false and its description in *error.
bool LikeMatch(std::string_view text, std::string_view pattern, bool ignoreCase,
               std::string* error = nullptr);

// Puts each of "[", "*", "?", "#" in brackets so that it stands for itself:
// "a*.txt" -> "a[*].txt".
std::string EscapeWildcards(std::string_view text);
// The reverse: every "[x]" with x one of "[*?#" becomes x; everything else
// stays as it is.
std::string UnescapeWildcards(std::string_view text);

}  // namespace kelvor
