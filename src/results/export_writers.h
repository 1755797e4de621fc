#pragma once
// What the three export writers share: the plan of columns, the values of
// cells as they go out, the UTF-16 encoding, and the writer interface that
// SAVE's walk feeds. Internal to results/.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "results/export.h"

namespace kelvor {
class OutputFile;
}

namespace kelvor::export_detail {

// The columns of one export.
struct ExportPlan {
  // The file columns: visible, with a heading, in position order, without
  // the caption column ("Datei" stands for it) and "Duplikate" (no file row
  // holds it).
  std::vector<const ResultColumn*> fileColumns;
  // Unless SaveOnlyFiles: the caption column, then the visible columns that
  // group rows hold (Duplikate, size, the dates, attributes).
  std::vector<const ResultColumn*> groupColumns;
  // The header of CSV and XLSX: "Gruppen-Nr.", "Selektiert", "Datei", the
  // file columns, the group columns with " - Gruppe".
  std::vector<std::string> header;
};

ExportPlan MakePlan(const std::vector<ResultColumn>& columns, const ExportOptions& o,
                    const TextCatalog& texts);

// A value as it goes out: the text the grid shows, and for numeric cells the
// number (a number cell in XLSX).
struct OutValue {
  bool isNumber = false;
  double number = 0;
  std::string text;
};

// The value of column `c` of a file row, and of a group row.
void FileValue(const ResultModel& m, RowRef file, const ResultColumn& c, OutValue* v);
void GroupValue(const ResultModel& m, RowRef group, const ResultColumn& c, OutValue* v);

// How UTF-8 text becomes UTF-16LE.
enum class Utf16Mode {
  Plain,      // as it is
  CsvQuoted,  // a double quote doubled (the caller writes the outer quotes)
  OneLine,    // control characters as their visible pictures (U+2400 + c)
};
// Bytes of UTF-16LE one byte of UTF-8 may need at most (a double quote,
// doubled).
inline constexpr std::size_t kUtf16Room = 4;
// Room the encoder may write into behind the end (it stores 16 units at a
// time).
inline constexpr std::size_t kUtf16Slack = 32;
// Writes the UTF-16LE form of `s` at `p`, which has room for kUtf16Room *
// s.size() + kUtf16Slack bytes; returns the end. Bytes that are no UTF-8
// become U+FFFD.
char* EncodeUtf16(std::string_view s, char* p, Utf16Mode mode);
// The same appended to `out`.
void AppendUtf16(std::string_view s, std::string& out, Utf16Mode mode = Utf16Mode::Plain);
// UTF-8 text a spreadsheet cell can hold: bytes that are no UTF-8 become
// U+FFFD, control characters other than tab and line feed their pictures,
// cut to the cell's 32,767 characters.
std::string SheetText(std::string_view s);

// A writer: told about every group that has a file to write and about every
// file row to write, in display order. False from any call ends the export
// with `Error()`.
class ExportWriter {
 public:
  virtual ~ExportWriter() = default;
  virtual bool Begin() = 0;
  virtual bool Group(int groupNr, RowRef group) = 0;
  virtual bool File(int groupNr, RowRef group, RowRef file) = 0;
  // Everything written; the temporary file is complete.
  virtual bool Finish() = 0;
  virtual std::string Error() const = 0;
  // XLSX: sheets used.
  virtual int Sheets() const { return 1; }
};

struct WriterSetup {
  const ResultModel& m;
  const ExportPlan& plan;
  const ExportOptions& o;
  const ExportContext& ctx;
  OutputFile& out;
};

std::unique_ptr<ExportWriter> MakeTxtWriter(const WriterSetup& w);
std::unique_ptr<ExportWriter> MakeCsvWriter(const WriterSetup& w);
std::unique_ptr<ExportWriter> MakeXlsxWriter(const WriterSetup& w);

}  // namespace kelvor::export_detail
