// The export of the terminal front end.

#include "headless/export_cli.h"

#include <ostream>

#include "frame/log.h"
#include "frame/texts.h"
#include "headless/headless.h"
#include "results/export.h"
#include "results/result_columns.h"
#include "search/session.h"

namespace kelvor {

bool ParseExportOption(const std::vector<std::string>& args, std::size_t* i, ExportRequest* req,
                       std::string* error) {
  const std::string& a = args[*i];
  auto value = [&](const char* what) -> const std::string* {
    if (*i + 1 >= args.size()) {
      *error = "kelvor: " + a + " needs " + what;
      return nullptr;
    }
    return &args[++*i];
  };
  if (a == "--export") {
    if (const std::string* v = value("a file name")) req->file = *v;
    return true;
  }
  if (a == "--export-marked" || a == "--export-unmarked") {
    const std::int32_t c = a == "--export-marked" ? kExportMarked : kExportUnmarked;
    if (req->choice >= 0 && req->choice != c)
      *error = "kelvor: --export-marked and --export-unmarked exclude each other";
    req->choice = c;
    return true;
  }
  if (a == "--delimiter") {
    const std::string* v = value("a character or text");
    if (!v) return true;
    std::string d = *v;
    if (d == "tab" || d == "\\t") d = "\t";
    if (d == "space") d = " ";
    if (d.empty() || d.find_first_of("\"\r\n") != std::string::npos) {
      *error = "kelvor: --delimiter needs a text without double quotes and line breaks";
      return true;
    }
    req->hasDelimiter = true;
    req->delimiter = d;
    return true;
  }
  return false;
}

std::string CheckExportRequest(const ExportRequest& req, const SearchSession& session) {
  if (req.file.empty()) {
    if (req.choice >= 0 || req.hasDelimiter)
      return "kelvor: --export-marked, --export-unmarked and --delimiter need --export FILE";
    return {};
  }
  ExportFormat format;
  if (!ExportFormatFromPath(req.file, &format)) return session.Texts().Get(txt::T9638, {req.file});
  return {};
}

int RunExport(const ExportRequest& req, SearchSession& session, const ResultModel& result,
              RunState& run, std::ostream& err) {
  const SettingsStore& settings = session.Settings();
  const TextCatalog& texts = session.Texts();
  ExportOptions o = LoadExportOptions(settings);
  ExportFormatFromPath(req.file, &o.format);
  o.fileChoice = req.choice >= 0 ? req.choice : kExportAll;
  if (req.hasDelimiter) o.delimiter = req.delimiter;

  const AppPaths& p = session.Paths();
  Logger logger(p.generalLog, p.runLog, p.lastSearchLog);
  auto say = [&](std::string_view line) {
    err << line << '\n';
    logger.LogProtokollMain(line);
  };
  const ResultModel& m = result;
  const std::vector<ResultColumn> columns =
      MakeResultColumns(settings, m.Options(), ColumnContextOfResult(m), texts);
  ExportContext ctx{texts, run, nullptr, say};
  const ExportOutcome r = SAVE(m, columns, req.file, o, ctx);
  say(r.message);
  switch (r.status) {
    case ExportStatus::Done:
      return kExitDone;
    case ExportStatus::Stopped:
      return kExitStopped;
    default:
      return kExitRejected;
  }
}

}  // namespace kelvor
