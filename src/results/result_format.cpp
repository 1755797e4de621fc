// Size, date and attribute forms of the result model.

#include <cmath>
#include <cstdlib>
#include <string>

#include "frame/formats.h"
#include "frame/texts.h"
#include "results/result_model.h"

namespace kelvor {

namespace {

constexpr std::int64_t kKB = 1024;
constexpr std::int64_t kMB = 1048576;
constexpr std::int64_t kGB = 1073741824;
constexpr std::int64_t kTB = 1099511627776LL;
// Sizes above 999 MiB already show in gigabytes.
constexpr std::int64_t kGBThreshold = 1047527424;

}  // namespace

std::string FormatAttributeLetters(std::int32_t attributes) {
  std::string s;
  if (attributes & kAttrReadOnly) s += 'R';
  if (attributes & kAttrHidden) s += 'H';
  if (attributes & 4) s += 'S';
  if (attributes & kAttrDirectory) s += 'D';
  if (attributes & 32) s += 'A';
  if (attributes & kAttrReparsePoint) s += 'L';
  return s;
}

std::string FormatDecimal2(double v) {
  if (!std::isfinite(v)) return "0,00";
  const long long cents = std::llround(v * 100.0);
  const bool negative = cents < 0;
  const unsigned long long mag = negative ? 0ULL - static_cast<unsigned long long>(cents)
                                          : static_cast<unsigned long long>(cents);
  std::string out = negative ? "-" : "";
  out += FormatNumber(static_cast<long long>(mag / 100));
  out += ',';
  const unsigned frac = static_cast<unsigned>(mag % 100);
  out += static_cast<char>('0' + frac / 10);
  out += static_cast<char>('0' + frac % 10);
  return out;
}

std::string SizeFormatUnit(std::int32_t sizeFormat, const TextCatalog& texts) {
  switch (sizeFormat) {
    case kSizeBytes:
      return texts.Get(txt::T3887);
    case kSizeKB:
      return texts.Get(txt::T3888);
    case kSizeMB:
      return texts.Get(txt::T3889);
    case kSizeGB:
      return texts.Get(txt::T3890);
    case kSizeTB:
      return texts.Get(txt::T4168);
    default:
      return {};
  }
}

std::string FormatFileSize(std::int64_t bytes, bool withUnit, const TextCatalog& texts) {
  std::int64_t divisor = 1;
  std::int32_t unit = kSizeBytes;
  if (bytes > kTB) {
    divisor = kTB;
    unit = kSizeTB;
  } else if (bytes > kGBThreshold) {
    divisor = kGB;
    unit = kSizeGB;
  } else if (bytes > kMB) {
    divisor = kMB;
    unit = kSizeMB;
  } else if (bytes > kKB) {
    divisor = kKB;
    unit = kSizeKB;
  }
  std::string s = divisor == 1
                      ? FormatNumber(bytes)
                      : FormatDecimal2(static_cast<double>(bytes) / static_cast<double>(divisor));
  if (withUnit) {
    s += ' ';
    s += SizeFormatUnit(unit, texts);
  }
  return s;
}

std::string FormatFileSizeAs(std::int64_t bytes, std::int32_t sizeFormat, bool withUnit,
                             const TextCatalog& texts) {
  std::int64_t divisor = 0;
  switch (sizeFormat) {
    case kSizeBytes:
      return FormatNumber(bytes);
    case kSizeKB:
      divisor = kKB;
      break;
    case kSizeMB:
      divisor = kMB;
      break;
    case kSizeGB:
      divisor = kGB;
      break;
    case kSizeTB:
      divisor = kTB;
      break;
    default:
      return {};
  }
  std::string s = FormatDecimal2(static_cast<double>(bytes) / static_cast<double>(divisor));
  if (withUnit) {
    s += ' ';
    s += SizeFormatUnit(sizeFormat, texts);
  }
  return s;
}

namespace {

void EraseAll(std::string& s, std::string_view what) {
  for (std::size_t at = s.find(what); at != std::string::npos; at = s.find(what, at)) {
    s.erase(at, what.size());
  }
}

std::string Trim(std::string s) {
  const auto first = s.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  const auto last = s.find_last_not_of(' ');
  return s.substr(first, last - first + 1);
}

}  // namespace

std::string GroupDateMask(const ResultOptions& o) {
  std::string mask = o.DateFormat;
  if (o.IgnoreTime) {
    EraseAll(mask, "AM/PM");
    EraseAll(mask, "hh:nn:ss");
    EraseAll(mask, "h:n:s");
    return Trim(std::move(mask));
  }
  if (o.IgnoreSeconds) {
    EraseAll(mask, ":ss");
    EraseAll(mask, ":s");
  }
  return mask;
}

double GroupDateValue(double date, const ResultOptions& o) {
  if (!std::isfinite(date)) return 0;
  if (o.IgnoreTime) return std::floor(date);
  if (o.IgnoreSeconds) {
    const double seconds = std::round(date * 86400.0);
    return std::floor(seconds / 60.0) * 60.0 / 86400.0;
  }
  return date;
}

}  // namespace kelvor
