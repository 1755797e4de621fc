#pragma once
// `--export FILE`, `--export-marked`, `--export-unmarked`, `--delimiter X`:
// the export of the terminal front end, in place of printing the groups.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace kelvor {

class SearchSession;
class ResultModel;
struct RunState;

struct ExportRequest {
  std::string file;           // --export; "" = no export
  std::int32_t choice = -1;   // --export-marked 1, --export-unmarked 2; -1 = setting
  bool hasDelimiter = false;  // --delimiter given
  std::string delimiter;
};

// Reads one export option at args[*i] (moving *i past its value). Returns
// true when args[*i] was one; `*error` is set for a bad use (a missing or
// unusable value, marked and unmarked together).
bool ParseExportOption(const std::vector<std::string>& args, std::size_t* i, ExportRequest* req,
                       std::string* error);
// Before the search: the file's extension names a format. "" or the message.
std::string CheckExportRequest(const ExportRequest& req, const SearchSession& session);
// After the search and the result commands: the export of `result` with the
// options of section "ExportList" and the request's choices. Messages go to `err` and
// the general log. Returns the exit code (0 done, 1 refused or failed, 3
// stopped).
int RunExport(const ExportRequest& req, SearchSession& session, const ResultModel& result,
              RunState& run, std::ostream& err);

}  // namespace kelvor
