#pragma once
// Export of a result to a file other tools read: a readable text report
// (TXT), delimited values (CSV) or a spreadsheet (XLSX). The export reads the
// result and changes nothing in it.
//
//   SAVE      the checks (text 5292), the temporary file, the writer, the
//             rename into place, the outcome
//   SaveTXT   export_txt.cpp     UTF-16LE with byte-order mark, "\r\n"
//   SaveCSV   export_csv.cpp     UTF-16LE with byte-order mark, every value
//             in double quotes, values joined by the delimiter
//   SaveXLS   export_xlsx.cpp    libxlsxwriter, sheet "Kelvor", header row,
//             first row frozen, rows streamed (constant memory); past the
//             sheet's row limit the rows go on in "Kelvor (2)", ...
//
// Rows: one line per file row that the file choice lets through (all, marked
// only, unmarked only); the group columns follow the file columns unless
// SaveOnlyFiles. Columns: the result's visible columns with a heading in
// position order (result_columns.h), the caption column standing for the
// file's name ("Datei"). The size column gives the size in bytes, whatever
// the size format of the grid. In CSV and XLSX every number (sizes, counts,
// percentages) goes out as a plain number (digits without grouping; a number
// cell), so that a spreadsheet reads it as that number; the TXT report and
// all other columns give the text the grid shows. Names that are no valid UTF-8
// show U+FFFD for the bytes that are none.
//
// Every write goes to a temporary file beside the target, renamed over it at
// the end (data/output_file.h): a stop or a failure leaves the chosen name as
// it was. The walk goes through LongOperation (pause, stop, progress at most
// once a second).

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "results/result_columns.h"
#include "results/result_model.h"

namespace kelvor {

class ProgressSink;
class SettingsStore;
class TextCatalog;
struct RunState;

enum class ExportFormat { Txt, Csv, Xlsx };

// SaveFileType: which file rows go out.
enum ExportFileChoice : std::int32_t {
  kExportAll = 0,
  kExportMarked = 1,
  kExportUnmarked = 2,
};

// The rows of one spreadsheet sheet (header included) in the format's own
// limit.
inline constexpr std::int64_t kXlsxMaxRows = 1048576;

struct ExportOptions {
  ExportFormat format = ExportFormat::Csv;
  std::int32_t fileChoice = kExportAll;
  std::string delimiter = ",";
  bool saveOnlyFiles = false;
  // The saved result's name, shown in the TXT header as " '...'"; "" for a
  // result that was not loaded.
  std::string savedName;
  // Rows a sheet takes, header included (kXlsxMaxRows); smaller for tests.
  std::int64_t sheetRowLimit = kXlsxMaxRows;
  // When the TXT header's date is taken (a day-fraction date; 0 = now).
  double now = 0;
};

// The delimiter of a `Delimiter` index: "," ";" tab " " or, for 4, `chars`.
std::string DelimiterOfIndex(std::int32_t index, std::string_view chars);
// The options of section "ExportList": SaveFileType, FileFormat, Delimiter
// with DelimiterChars, SaveOnlyFiles.
ExportOptions LoadExportOptions(const SettingsStore& s);
// The format of a file name by its extension (without regard to case);
// false for another extension.
bool ExportFormatFromPath(const std::filesystem::path& file, ExportFormat* format);

struct ExportContext {
  const TextCatalog& texts;
  RunState& run;
  ProgressSink* progress = nullptr;  // ProgressBar with the percent
  // Lines for the log (the continuation in a further sheet); may be empty.
  std::function<void(std::string_view)> log;
};

enum class ExportStatus {
  Done,
  Refused,  // text 5292: nothing to export for the choice
  Stopped,  // the user stopped; nothing was written under the name
  Failed,   // a write failed; nothing was written under the name
};

struct ExportOutcome {
  ExportStatus status = ExportStatus::Failed;
  std::int64_t fileRows = 0;  // file rows written
  int sheets = 0;             // XLSX: sheets used
  std::string message;        // the outcome as the user reads it
};

// SAVE: checks the result against the choice (fewer than 3 rows, choice 1
// without a marked file or 2 with every file marked: text 5292), then writes
// `target` in the options' format through a temporary file.
ExportOutcome SAVE(const ResultModel& m, const std::vector<ResultColumn>& columns,
                   const std::filesystem::path& target, const ExportOptions& o,
                   const ExportContext& ctx);

}  // namespace kelvor
