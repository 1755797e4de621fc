// Unicode helpers on UTF-8 text. Case mapping goes through utf8proc; the UTF-8
// decoder here is strict (no overlong forms, no surrogates, nothing above
// U+10FFFF) so that Linux file names holding arbitrary bytes pass through
// unchanged instead of being "repaired".

#include "frame/unicode.h"

#include <utf8proc.h>

#include <cstdint>

namespace kelvor {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
// Invalid bytes become lone low surrogates U+DC80..U+DCFF (0xDC00 + byte), the
// usual "surrogate escape" that no valid UTF-8 text can produce.
constexpr char32_t kEscapeBase = 0xDC00;

void AppendUtf8(char32_t c, std::string& out) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

template <typename MapFn>
void MapCase(std::string_view s, std::string& out, MapFn map, bool lower) {
  out.reserve(out.size() + s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {  // ASCII fast path
      char c = static_cast<char>(b);
      if (lower && b >= 'A' && b <= 'Z') c = static_cast<char>(b + 32);
      if (!lower && b >= 'a' && b <= 'z') c = static_cast<char>(b - 32);
      out.push_back(c);
      ++i;
      continue;
    }
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) {
      out.push_back(s[i]);
      ++i;
      continue;
    }
    AppendUtf8(static_cast<char32_t>(map(static_cast<utf8proc_int32_t>(cp))), out);
    i += n;
  }
}

void AppendUtf16le(char16_t u, std::string& out) {
  out.push_back(static_cast<char>(u & 0xFF));
  out.push_back(static_cast<char>(u >> 8));
}

}  // namespace

std::size_t DecodeUtf8(std::string_view s, std::size_t i, char32_t* cp) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) {
    *cp = b0;
    return 1;
  }
  std::size_t len;
  char32_t c;
  char32_t minimum;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    len = 2;
    c = b0 & 0x1F;
    minimum = 0x80;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    len = 3;
    c = b0 & 0x0F;
    minimum = 0x800;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    len = 4;
    c = b0 & 0x07;
    minimum = 0x10000;
  } else {
    return 0;
  }
  if (i + len > s.size()) return 0;
  for (std::size_t k = 1; k < len; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 0;
    c = (c << 6) | (b & 0x3F);
  }
  if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  *cp = c;
  return len;
}

std::string LowerCase(std::string_view s) {
  std::string out;
  AppendLowerCase(s, out);
  return out;
}

void AppendLowerCase(std::string_view s, std::string& out) {
  MapCase(s, out, utf8proc_tolower, true);
}

std::string UpperCase(std::string_view s) {
  std::string out;
  MapCase(s, out, utf8proc_toupper, false);
  return out;
}

bool IsValidUtf8(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size()) {
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      ++i;
      continue;
    }
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string DisplayUtf8(std::string_view s) {
  if (IsValidUtf8(s)) return std::string(s);
  std::string out;
  out.reserve(s.size() + 8);
  std::size_t i = 0;
  while (i < s.size()) {
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) {
      AppendUtf8(kReplacement, out);
      ++i;
    } else {
      out.append(s.substr(i, n));
      i += n;
    }
  }
  return out;
}

std::u32string ToCodePoints(std::string_view s) {
  std::u32string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) {
      out.push_back(kEscapeBase + static_cast<unsigned char>(s[i]));
      ++i;
    } else {
      out.push_back(cp);
      i += n;
    }
  }
  return out;
}

std::string FromCodePoints(std::u32string_view s) {
  std::string out;
  out.reserve(s.size());
  for (char32_t c : s) {
    if (c >= kEscapeBase + 0x80 && c <= kEscapeBase + 0xFF) {
      out.push_back(static_cast<char>(c - kEscapeBase));
    } else if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
      AppendUtf8(kReplacement, out);
    } else {
      AppendUtf8(c, out);
    }
  }
  return out;
}

std::string Utf8ToUtf16le(std::string_view s) {
  std::string out;
  out.reserve(s.size() * 2);
  std::size_t i = 0;
  while (i < s.size()) {
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) {  // a byte that is no UTF-8: keep it visible as U+FFFD
      cp = kReplacement;
      i += 1;
    } else {
      i += n;
    }
    if (cp >= 0x10000) {
      const char32_t v = cp - 0x10000;
      AppendUtf16le(static_cast<char16_t>(0xD800 + (v >> 10)), out);
      AppendUtf16le(static_cast<char16_t>(0xDC00 + (v & 0x3FF)), out);
    } else {
      AppendUtf16le(static_cast<char16_t>(cp), out);
    }
  }
  return out;
}

std::string Utf16leToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  const std::size_t units = bytes.size() / 2;
  auto unit = [&](std::size_t k) -> char16_t {
    return static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * k]) |
                                 (static_cast<unsigned char>(bytes[2 * k + 1]) << 8));
  };
  for (std::size_t k = 0; k < units; ++k) {
    const char16_t u = unit(k);
    if (u >= 0xD800 && u <= 0xDBFF && k + 1 < units) {
      const char16_t lo = unit(k + 1);
      if (lo >= 0xDC00 && lo <= 0xDFFF) {
        AppendUtf8(0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (lo - 0xDC00), out);
        ++k;
        continue;
      }
    }
    if (u >= 0xD800 && u <= 0xDFFF) {
      AppendUtf8(kReplacement, out);
    } else {
      AppendUtf8(u, out);
    }
  }
  if (bytes.size() % 2 != 0) AppendUtf8(kReplacement, out);  // a dangling half unit
  return out;
}

}  // namespace kelvor
