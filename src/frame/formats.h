#pragma once
// Dates, numbers and sizes in the program's own forms.
//
// Dates are days since 30 December 1899 as a double, local time, the time of
// day as the fraction. Masks use the program's letters: dd MM yyyy hh nn ss
// (nn = minutes), also d M yy h n s and AM/PM; mm and m are months too.

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace kelvor {

inline constexpr double kProgressInterval = 0.000011574;   // one second in days
inline constexpr double kProgressInterval2 = 0.000017361;  // one and a half seconds

// Local time <-> day-fraction date.
double DateFromTimespec(std::int64_t seconds, std::int64_t nanoseconds = 0);
double DateNow();
// Seconds since the epoch for a day-fraction date (local time).
std::int64_t UnixFromDate(double date);

// Formats a date with a mask such as "dd/MM/yyyy hh:nn:ss".
std::string FormatDate(double date, std::string_view mask);
// Parses a text written with FormatDate(mask) back; false if it is not a date.
bool ParseDate(std::string_view text, std::string_view mask, double* date);

// "###,###,##0": groups thousands with ".", as the German default does.
std::string FormatNumber(long long n);
// Elapsed time "hh:nn:ss" up to 32767 seconds, above that "h:nn:ss" with
// the hours in full (runs of many hours too).
std::string FormatElapsed(long long seconds);

}  // namespace kelvor
