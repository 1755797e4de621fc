// Dates, numbers and elapsed times in the program's own forms.

#include "frame/formats.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <iterator>

namespace kelvor {
namespace {

// Days from 1970-01-01 for a proleptic Gregorian civil date (H. Hinnant's
// algorithm), and back.
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

void CivilFromDays(long long z, long long* y, unsigned* m, unsigned* d) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const long long yy = static_cast<long long>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = yy + (*m <= 2);
}

// 30 December 1899 counted from 1 January 1970.
const long long kEpochOffsetDays = DaysFromCivil(1899, 12, 30);

struct Parts {
  long long year = 1899;
  unsigned month = 12, day = 30;
  int hour = 0, minute = 0, second = 0;
};

Parts SplitDate(double date) {
  // Round to the nearest second first, so 23:59:59.7 does not print as :59
  // of the wrong day.
  const double totalSeconds = std::round(date * 86400.0);
  long long secs = static_cast<long long>(totalSeconds);
  long long days = secs / 86400;
  long long rest = secs % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  Parts p;
  CivilFromDays(days + kEpochOffsetDays, &p.year, &p.month, &p.day);
  p.hour = static_cast<int>(rest / 3600);
  p.minute = static_cast<int>((rest / 60) % 60);
  p.second = static_cast<int>(rest % 60);
  return p;
}

double JoinDate(const Parts& p) {
  const long long days = DaysFromCivil(p.year, p.month, p.day) - kEpochOffsetDays;
  return static_cast<double>(days) + (p.hour * 3600 + p.minute * 60 + p.second) / 86400.0;
}

bool StartsWith(std::string_view s, std::size_t at, std::string_view what) {
  return s.substr(at, what.size()) == what;
}

unsigned DaysInMonth(long long y, unsigned m) {
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (m == 2 && ((y % 4 == 0 && y % 100 != 0) || y % 400 == 0)) return 29;
  return kDays[m - 1];
}

// Mask tokens, longest first.
enum class Tok { None, Y4, Y2, M2, M1, D2, D1, H2, H1, N2, N1, S2, S1, AmPm };

Tok TokenAt(std::string_view mask, std::size_t i, std::size_t* len) {
  struct Entry {
    std::string_view text;
    Tok tok;
  };
  static const Entry kTokens[] = {
      {"yyyy", Tok::Y4}, {"AM/PM", Tok::AmPm}, {"am/pm", Tok::AmPm}, {"yy", Tok::Y2},
      {"MM", Tok::M2},   {"mm", Tok::M2},      {"dd", Tok::D2},      {"hh", Tok::H2},
      {"HH", Tok::H2},   {"nn", Tok::N2},      {"ss", Tok::S2},      {"M", Tok::M1},
      {"m", Tok::M1},    {"d", Tok::D1},       {"h", Tok::H1},       {"H", Tok::H1},
      {"n", Tok::N1},    {"s", Tok::S1},
  };
  for (const auto& e : kTokens) {
    if (StartsWith(mask, i, e.text)) {
      *len = e.text.size();
      return e.tok;
    }
  }
  *len = 1;
  return Tok::None;
}

bool MaskHasAmPm(std::string_view mask) {
  return mask.find("AM/PM") != std::string_view::npos ||
         mask.find("am/pm") != std::string_view::npos;
}

}  // namespace

double DateFromTimespec(std::int64_t seconds, std::int64_t nanoseconds) {
  const time_t t = static_cast<time_t>(seconds);
  struct tm tmv {};
  if (localtime_r(&t, &tmv) == nullptr) {
    return static_cast<double>(seconds) / 86400.0 - static_cast<double>(kEpochOffsetDays);
  }
  Parts p;
  p.year = tmv.tm_year + 1900LL;
  p.month = static_cast<unsigned>(tmv.tm_mon + 1);
  p.day = static_cast<unsigned>(tmv.tm_mday);
  p.hour = tmv.tm_hour;
  p.minute = tmv.tm_min;
  p.second = tmv.tm_sec;
  return JoinDate(p) + static_cast<double>(nanoseconds) / 1e9 / 86400.0;
}

double DateNow() {
  struct timespec ts {};
  clock_gettime(CLOCK_REALTIME, &ts);
  return DateFromTimespec(ts.tv_sec, ts.tv_nsec);
}

std::int64_t UnixFromDate(double date) {
  const Parts p = SplitDate(date);
  struct tm tmv {};
  tmv.tm_year = static_cast<int>(p.year - 1900);
  tmv.tm_mon = static_cast<int>(p.month) - 1;
  tmv.tm_mday = static_cast<int>(p.day);
  tmv.tm_hour = p.hour;
  tmv.tm_min = p.minute;
  tmv.tm_sec = p.second;
  tmv.tm_isdst = -1;
  return static_cast<std::int64_t>(mktime(&tmv));
}

std::string FormatDate(double date, std::string_view mask) {
  const Parts p = SplitDate(date);
  const bool twelve = MaskHasAmPm(mask);
  int hour = p.hour;
  if (twelve) {
    hour = p.hour % 12;
    if (hour == 0) hour = 12;
  }
  std::string out;
  out.reserve(mask.size() + 4);
  for (std::size_t i = 0; i < mask.size();) {
    std::size_t len;
    switch (TokenAt(mask, i, &len)) {
      case Tok::Y4:
        fmt::format_to(std::back_inserter(out), "{:04}", p.year);
        break;
      case Tok::Y2:
        fmt::format_to(std::back_inserter(out), "{:02}", p.year % 100);
        break;
      case Tok::M2:
        fmt::format_to(std::back_inserter(out), "{:02}", p.month);
        break;
      case Tok::M1:
        fmt::format_to(std::back_inserter(out), "{}", p.month);
        break;
      case Tok::D2:
        fmt::format_to(std::back_inserter(out), "{:02}", p.day);
        break;
      case Tok::D1:
        fmt::format_to(std::back_inserter(out), "{}", p.day);
        break;
      case Tok::H2:
        fmt::format_to(std::back_inserter(out), "{:02}", hour);
        break;
      case Tok::H1:
        fmt::format_to(std::back_inserter(out), "{}", hour);
        break;
      case Tok::N2:
        fmt::format_to(std::back_inserter(out), "{:02}", p.minute);
        break;
      case Tok::N1:
        fmt::format_to(std::back_inserter(out), "{}", p.minute);
        break;
      case Tok::S2:
        fmt::format_to(std::back_inserter(out), "{:02}", p.second);
        break;
      case Tok::S1:
        fmt::format_to(std::back_inserter(out), "{}", p.second);
        break;
      case Tok::AmPm:
        if (mask[i] == 'a') {
          out += p.hour < 12 ? "am" : "pm";
        } else {
          out += p.hour < 12 ? "AM" : "PM";
        }
        break;
      case Tok::None:
        out.push_back(mask[i]);
        break;
    }
    i += len;
  }
  return out;
}

bool ParseDate(std::string_view text, std::string_view mask, double* date) {
  Parts p;
  bool pm = false;
  bool sawAmPm = false;
  std::size_t t = 0;
  auto number = [&](std::size_t minDigits, std::size_t maxDigits, long long* v) {
    std::size_t n = 0;
    long long value = 0;
    while (n < maxDigits && t + n < text.size() && text[t + n] >= '0' && text[t + n] <= '9') {
      value = value * 10 + (text[t + n] - '0');
      ++n;
    }
    if (n < minDigits) return false;
    t += n;
    *v = value;
    return true;
  };
  for (std::size_t i = 0; i < mask.size();) {
    std::size_t len;
    const Tok tok = TokenAt(mask, i, &len);
    long long v = 0;
    bool ok = true;
    switch (tok) {
      case Tok::Y4:
        ok = number(4, 4, &v), p.year = v;
        break;
      case Tok::Y2:
        ok = number(2, 2, &v), p.year = v < 30 ? 2000 + v : 1900 + v;
        break;
      case Tok::M2:
        ok = number(2, 2, &v), p.month = static_cast<unsigned>(v);
        break;
      case Tok::M1:
        ok = number(1, 2, &v), p.month = static_cast<unsigned>(v);
        break;
      case Tok::D2:
        ok = number(2, 2, &v), p.day = static_cast<unsigned>(v);
        break;
      case Tok::D1:
        ok = number(1, 2, &v), p.day = static_cast<unsigned>(v);
        break;
      case Tok::H2:
        ok = number(2, 2, &v), p.hour = static_cast<int>(v);
        break;
      case Tok::H1:
        ok = number(1, 2, &v), p.hour = static_cast<int>(v);
        break;
      case Tok::N2:
        ok = number(2, 2, &v), p.minute = static_cast<int>(v);
        break;
      case Tok::N1:
        ok = number(1, 2, &v), p.minute = static_cast<int>(v);
        break;
      case Tok::S2:
        ok = number(2, 2, &v), p.second = static_cast<int>(v);
        break;
      case Tok::S1:
        ok = number(1, 2, &v), p.second = static_cast<int>(v);
        break;
      case Tok::AmPm: {
        const std::string_view two = text.substr(t, 2);
        if (two == "AM" || two == "am") {
          pm = false;
        } else if (two == "PM" || two == "pm") {
          pm = true;
        } else {
          return false;
        }
        sawAmPm = true;
        t += 2;
        break;
      }
      case Tok::None:
        if (t >= text.size() || text[t] != mask[i]) return false;
        ++t;
        break;
    }
    if (!ok) return false;
    i += len;
  }
  if (t != text.size()) return false;
  if (sawAmPm) {
    if (p.hour < 1 || p.hour > 12) return false;
    p.hour = p.hour % 12 + (pm ? 12 : 0);
  }
  if (p.month < 1 || p.month > 12) return false;
  if (p.day < 1 || p.day > DaysInMonth(p.year, p.month)) return false;
  if (p.hour > 23 || p.minute > 59 || p.second > 59) return false;
  *date = JoinDate(p);
  return true;
}

std::string FormatNumber(long long n) {
  // Work on the magnitude as unsigned so that the smallest value has one too.
  const bool negative = n < 0;
  unsigned long long u =
      negative ? 0ULL - static_cast<unsigned long long>(n) : static_cast<unsigned long long>(n);
  std::string digits = fmt::format("{}", u);
  std::string out;
  out.reserve(digits.size() + digits.size() / 3 + 1);
  if (negative) out.push_back('-');
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out.push_back('.');
    out.push_back(digits[i]);
  }
  return out;
}

std::string FormatElapsed(long long seconds) {
  if (seconds < 0) seconds = 0;
  // "hh:nn:ss" while the time fits the short form; longer runs spell the
  // hours out in full rather than wrap at a day.
  if (seconds <= 32767)
    return fmt::format("{:02}:{:02}:{:02}", seconds / 3600, (seconds / 60) % 60, seconds % 60);
  return fmt::format("{}:{:02}:{:02}", seconds / 3600, (seconds / 60) % 60, seconds % 60);
}

}  // namespace kelvor
