// The wildcard matcher. A pattern is compiled once into tokens; matching walks
// the text and the tokens side by side and remembers only the last "*", which
// is enough for a language whose other tokens each take exactly one character.
// The common filter shapes ("*.tmp", "~$*", "*cache*") skip the walk and
// compare bytes, which gives the same answer because both sides are decoded
// the same way (see NextCodePoint).

#include "frame/pattern.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include "frame/unicode.h"

namespace kelvor {
namespace {

// Invalid bytes become U+DC80..U+DCFF, code points that valid UTF-8 never
// yields, so that a name with stray bytes still has distinct characters.
constexpr char32_t kEscapeBase = 0xDC00;

inline bool IsEscape(char32_t c) {
  return c >= 0xDC80 && c <= 0xDCFF;
}

// Decodes the code point at s[i]; returns the number of bytes it takes.
inline std::size_t NextCodePoint(std::string_view s, std::size_t i, char32_t* cp) {
  const auto b = static_cast<unsigned char>(s[i]);
  if (b < 0x80) {
    *cp = b;
    return 1;
  }
  utf8proc_int32_t c = 0;
  const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                                  static_cast<utf8proc_ssize_t>(s.size() - i), &c);
  if (n <= 0 || c < 0) {
    *cp = kEscapeBase + b;
    return 1;
  }
  *cp = static_cast<char32_t>(c);
  return static_cast<std::size_t>(n);
}

std::u32string Decode(std::string_view s) {
  std::u32string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    char32_t c;
    i += NextCodePoint(s, i, &c);
    out.push_back(c);
  }
  return out;
}

void Encode(char32_t c, std::string& out) {
  utf8proc_uint8_t buf[4];
  const auto n = utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), buf);
  out.append(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
}

}  // namespace

bool LikePattern::Compile(std::string_view pattern, bool ignoreCase, std::string* error) {
  tokens_.clear();
  ranges_.clear();
  literal_.clear();
  shape_ = Shape::General;
  valid_ = false;

  std::string lowered;
  if (ignoreCase) {
    lowered = LowerCase(pattern);
    pattern = lowered;
  }
  const std::u32string cps = Decode(pattern);
  const std::size_t n = cps.size();
  for (std::size_t i = 0; i < n; ++i) {
    const char32_t c = cps[i];
    switch (c) {
      case U'*':
        if (tokens_.empty() || tokens_.back().op != Op::Star) {
          tokens_.push_back({Op::Star, false, 0, 0});
        }
        break;
      case U'?':
        tokens_.push_back({Op::Any, false, 0, 0});
        break;
      case U'#':
        tokens_.push_back({Op::Digit, false, 0, 0});
        break;
      case U'[': {
        std::size_t j = i + 1;
        bool negate = false;
        // "[!]" has nothing to negate: it is the set of the one character "!".
        if (j + 1 < n && cps[j] == U'!' && cps[j + 1] != U']') {
          negate = true;
          ++j;
        }
        std::size_t k = j;
        while (k < n && cps[k] != U']') ++k;
        if (k == n) {
          if (error) {
            *error =
                fmt::format("Invalid pattern string: '[' at position {} has no closing ']'", i + 1);
          }
          tokens_.clear();
          ranges_.clear();
          return false;
        }
        if (k == j) {  // "[]" stands for nothing
          i = k;
          break;
        }
        const auto first = static_cast<char32_t>(ranges_.size());
        for (std::size_t m = j; m < k;) {
          if (m + 2 < k && cps[m + 1] == U'-') {
            if (cps[m] > cps[m + 2]) {
              if (error) {
                std::string r;
                Encode(cps[m], r);
                r.push_back('-');
                Encode(cps[m + 2], r);
                *error = fmt::format("Invalid pattern string: the range '{}' runs backwards", r);
              }
              tokens_.clear();
              ranges_.clear();
              return false;
            }
            ranges_.push_back({cps[m], cps[m + 2]});
            m += 3;
          } else {
            ranges_.push_back({cps[m], cps[m]});
            ++m;
          }
        }
        tokens_.push_back({Op::Set, negate, first, static_cast<uint32_t>(ranges_.size() - first)});
        i = k;
        break;
      }
      default:
        tokens_.push_back({Op::Literal, false, c, 0});
        break;
    }
  }
  valid_ = true;

  // A pattern that is plain text with at most a "*" at either end is matched
  // by byte comparison. A one-character set in brackets counts as plain text.
  std::size_t begin = 0, end = tokens_.size();
  const bool leadingStar = end > 0 && tokens_.front().op == Op::Star;
  if (leadingStar) ++begin;
  const bool trailingStar = end > begin && tokens_.back().op == Op::Star;
  if (trailingStar) --end;
  for (std::size_t t = begin; t < end; ++t) {
    const Token& tok = tokens_[t];
    char32_t c;
    if (tok.op == Op::Literal) {
      c = tok.value;
    } else if (tok.op == Op::Set && !tok.negate && tok.count == 1 &&
               ranges_[tok.value].lo == ranges_[tok.value].hi) {
      c = ranges_[tok.value].lo;
    } else {
      literal_.clear();
      return true;
    }
    if (IsEscape(c)) {
      literal_.clear();
      return true;
    }
    Encode(c, literal_);
  }
  if (leadingStar && trailingStar) {
    shape_ = Shape::Contains;
  } else if (leadingStar) {
    shape_ = Shape::Suffix;
  } else if (trailingStar) {
    shape_ = Shape::Prefix;
  } else {
    shape_ = Shape::Exact;
  }
  return true;
}

bool LikePattern::TokenFits(const Token& t, char32_t c) const {
  switch (t.op) {
    case Op::Literal:
      return c == t.value;
    case Op::Any:
      return true;
    case Op::Digit:
      return c >= U'0' && c <= U'9';
    case Op::Set: {
      bool in = false;
      for (uint32_t r = 0; r < t.count; ++r) {
        const Range& range = ranges_[t.value + r];
        if (c >= range.lo && c <= range.hi) {
          in = true;
          break;
        }
      }
      return in != t.negate;
    }
    case Op::Star:
      break;
  }
  return false;
}

bool LikePattern::Match(std::string_view text) const {
  if (!valid_) return false;
  switch (shape_) {
    case Shape::Exact:
      return text == literal_;
    case Shape::Suffix:
      return text.ends_with(literal_);
    case Shape::Prefix:
      return text.starts_with(literal_);
    case Shape::Contains:
      return text.find(literal_) != std::string_view::npos;
    case Shape::General:
      break;
  }
  return MatchGeneral(text);
}

bool LikePattern::MatchGeneral(std::string_view text) const {
  constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  const std::size_t count = tokens_.size();
  std::size_t ti = 0, pi = 0;
  std::size_t starPi = kNone, starTi = 0;
  while (ti < text.size()) {
    if (pi < count) {
      const Token& t = tokens_[pi];
      if (t.op == Op::Star) {
        starPi = pi++;
        starTi = ti;
        continue;
      }
      char32_t c;
      const std::size_t len = NextCodePoint(text, ti, &c);
      if (TokenFits(t, c)) {
        ++pi;
        ti += len;
        continue;
      }
    }
    if (starPi == kNone) return false;
    // Let the last "*" take one more character and try again behind it.
    char32_t skipped;
    starTi += NextCodePoint(text, starTi, &skipped);
    ti = starTi;
    pi = starPi + 1;
  }
  while (pi < count && tokens_[pi].op == Op::Star) ++pi;
  return pi == count;
}

bool LikeMatch(std::string_view text, std::string_view pattern, bool ignoreCase,
               std::string* error) {
  LikePattern p;
  if (!p.Compile(pattern, ignoreCase, error)) return false;
  return ignoreCase ? p.Match(LowerCase(text)) : p.Match(text);
}

std::string EscapeWildcards(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  for (const char c : text) {
    if (c == '[' || c == '*' || c == '?' || c == '#') {
      out.push_back('[');
      out.push_back(c);
      out.push_back(']');
    } else {
      out.push_back(c);
    }
  }
  return out;
}

std::string UnescapeWildcards(std::string_view text) {
  // The characters looked for are ASCII and never part of a multi-byte
  // sequence, so a walk over bytes equals a walk over characters.
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i + 2 < text.size()) {
    const char m = text[i + 1];
    if (text[i] == '[' && text[i + 2] == ']' && (m == '[' || m == '*' || m == '?' || m == '#')) {
      out.push_back(m);
      i += 3;
    } else {
      out.push_back(text[i]);
      ++i;
    }
  }
  out.append(text.substr(i));
  return out;
}

}  // namespace kelvor
