// Size formats, cell keys and cell conversions of the result model.

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

constexpr std::string_view kKeyNames[kCellKeyCount] = {
    "anz",
    "size",
    "desc",
    "sizeG",
    "dupname",
    "dateG",
    "dateVal",
    "dateEval",
    "date",
    "dateE",
    "attr2",
    "Sel",
    "archiv",
    "tmppath",
    "qnr",
    "path",
    "pathA",
    "attr",
    "owner",
    "AudioDurationVal",
    "AudioDuration",
    "AudioBitrate",
    "AudioSamplingrate",
    "picW",
    "picH",
    "hardlinks",
    "hardlinkID",
    "similar",
    "IsRefFile",
    "thumbnailpath",
    "GetFileInfo",
};

}  // namespace

std::string_view CellKeyName(CellKey k) {
  const int i = static_cast<int>(k);
  return i >= 0 && i < kCellKeyCount ? kKeyNames[i] : std::string_view{};
}

bool CellKeyFromName(std::string_view name, CellKey* k) {
  for (int i = 0; i < kCellKeyCount; ++i) {
    if (kKeyNames[i] == name) {
      *k = static_cast<CellKey>(i);
      return true;
    }
  }
  // The column keys spell these two with a capital R.
  if (name == "AudioBitRate") {
    *k = CellKey::AudioBitrate;
    return true;
  }
  if (name == "AudioSamplingRate") {
    *k = CellKey::AudioSamplingrate;
    return true;
  }
  return false;
}

double CellAsDouble(const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) return static_cast<double>(*i);
  if (const auto* d = std::get_if<double>(&v)) return *d;
  if (const auto* s = std::get_if<std::string>(&v)) {
    if (s->empty()) return 0;
    char* end = nullptr;
    const double d = std::strtod(s->c_str(), &end);
    return end == s->c_str() ? 0 : d;
  }
  return 0;
}

std::int64_t CellAsInt(const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) return *i;
  if (const auto* d = std::get_if<double>(&v)) {
    if (!std::isfinite(*d)) return 0;
    return static_cast<std::int64_t>(std::llround(*d));
  }
  if (const auto* s = std::get_if<std::string>(&v)) {
    if (s->empty()) return 0;
    char* end = nullptr;
    const long long n = std::strtoll(s->c_str(), &end, 10);
    if (end != s->c_str() && *end != '.' && *end != 'e' && *end != 'E') return n;
    const double d = CellAsDouble(v);
    return std::isfinite(d) ? static_cast<std::int64_t>(std::llround(d)) : 0;
  }
  return 0;
}

std::string CellAsText(const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) return std::to_string(*i);
  if (const auto* d = std::get_if<double>(&v)) {
    if (*d == std::floor(*d) && std::fabs(*d) < 1e15) {
      return std::to_string(static_cast<long long>(*d));
    }
    std::string s = std::to_string(*d);
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
  }
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  return {};
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
