#pragma once
// The headless front end: `kelvor --headless ITEMS...` runs a search without
// a window, writes the same logs, and prints the result.

#include <iosfwd>
#include <string>
#include <vector>

namespace kelvor {

class ResultModel;
struct SearchStatistics;

// Exit codes.
inline constexpr int kExitDone = 0;
inline constexpr int kExitRejected = 1;
inline constexpr int kExitStopped = 3;

// Runs the front end on argv[1..]; `argv0` finds the program's folder.
int RunHeadless(const char* argv0, const std::vector<std::string>& args, std::ostream& out,
                std::ostream& err);

// The result as groups of full paths: the group's title line, one path a
// line, a blank line between groups.
void PrintGroups(const ResultModel& result, std::ostream& out);
// The result as one JSON document with the run's statistics.
void PrintJson(const ResultModel& result, const SearchStatistics& stats, double elapsedSeconds,
               std::ostream& out);

std::string HelpText();

}  // namespace kelvor
