#pragma once
// The headless front end: `kelvor --headless ITEMS...` runs a search without
// a window, writes the same logs, and prints the result.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

class ResultModel;
class TextCatalog;
class UndoHistory;
struct SearchStatistics;

// Exit codes.
inline constexpr int kExitDone = 0;
inline constexpr int kExitRejected = 1;
inline constexpr int kExitStopped = 3;

// Runs the front end on argv[1..]; `argv0` finds the program's folder.
int RunHeadless(const char* argv0, const std::vector<std::string>& args, std::ostream& out,
                std::ostream& err);

// The result as groups of full paths: the group's title line, one path a
// line, a blank line between groups. A line that could not be read back as it
// stands (see QuoteForLine) is printed quoted.
void PrintGroups(const ResultModel& result, std::ostream& out);
// The result for programs (--null): every path with its raw bytes and a NUL
// behind it, as `find -print0` gives them; one more NUL between two groups.
void PrintNullSeparated(const ResultModel& result, std::ostream& out);
// The result as one JSON document with the run's statistics. "path" is the
// name as UTF-8 text; where the name's bytes are no valid UTF-8, "path" shows
// U+FFFD in their place and "path_b64" holds the exact bytes in base64.
// Each file has "marked", each group its "check" state, the statistics the
// counters of the marks; with `undo` the state of the undo command too.
void PrintJson(const ResultModel& result, const SearchStatistics& stats, double elapsedSeconds,
               std::ostream& out, const UndoHistory* undo = nullptr);

// A name as one line of the plain output. Names that hold control characters
// (a line break, ...), bytes that are no UTF-8, or that begin with "$'" are
// written in the shell's $'...' form with escapes (\n, \t, \r, \\, \', \xHH),
// which bash, zsh and ksh read back to the exact bytes; all others stay as
// they are.
std::string QuoteForLine(std::string_view name);

// The terminal's progress line (text 9420): elapsed time, files, duplicates
// and groups as the progress labels show them.
std::string ProgressLine(const TextCatalog& texts, std::string_view elapsed, std::string_view files,
                         std::string_view dups, std::string_view groups);

std::string HelpText();

}  // namespace kelvor
