// SaveXLS: the sheet a spreadsheet program opens, written by libxlsxwriter.
// Sheet "Kelvor", the header row of SaveCSV in bold, the first row frozen,
// then one row per file row; numeric cells (the group number, the mark, the
// sizes, counts and percentages) as numbers. The workbook streams its rows to
// a temporary file as they come (constant_memory), so a million rows do not
// sit in memory. A sheet holds 1,048,576 rows: past that the rows go on in a
// further sheet "Kelvor (2)", with the header again, and the log says so.

#include <xlsxwriter.h>

#include "data/file_system.h"
#include "data/output_file.h"
#include "frame/error_text.h"
#include "frame/formats.h"
#include "frame/texts.h"
#include "results/export_writers.h"

namespace kelvor::export_detail {

namespace {

constexpr const char* kSheetName = "Kelvor";

class XlsxWriter final : public ExportWriter {
 public:
  explicit XlsxWriter(const WriterSetup& w) : w_(w) {}
  ~XlsxWriter() override {
    // Not finished (a stop or a failure): drop the workbook without writing.
    if (wb_) lxw_workbook_free(wb_);
  }

  bool Begin() override {
    // The library writes the file by its name: the temporary one.
    w_.out.ReleaseDescriptor();
    tmpdir_ = xGetPath(w_.out.TempPath());
    if (tmpdir_.empty()) tmpdir_ = ".";
    lxw_workbook_options opt{};
    opt.constant_memory = LXW_TRUE;
    // Its row files go beside the target, not into /tmp, which may be memory.
    opt.tmpdir = tmpdir_.data();
    opt.use_zip64 = LXW_FALSE;
    wb_ = workbook_new_opt(w_.out.TempPath().c_str(), &opt);
    if (!wb_) return Fail(LXW_ERROR_MEMORY_MALLOC_FAILED);
    bold_ = workbook_add_format(wb_);
    format_set_bold(bold_);
    limit_ = w_.o.sheetRowLimit > 1 && w_.o.sheetRowLimit <= kXlsxMaxRows ? w_.o.sheetRowLimit
                                                                          : kXlsxMaxRows;
    return NewSheet();
  }

  bool Group(int, RowRef group) override {
    groupValues_.clear();
    for (const ResultColumn* c : w_.plan.groupColumns) {
      GroupValue(w_.m, group, *c, &v_);
      groupValues_.push_back(v_);
    }
    return true;
  }

  bool File(int groupNr, RowRef, RowRef file) override {
    if (row_ >= limit_) {
      const std::string full = SheetName(sheets_);
      if (!NewSheet()) return false;
      if (w_.ctx.log)
        w_.ctx.log(w_.ctx.texts.Get(txt::T9634, {full, FormatNumber(limit_), SheetName(sheets_)}));
    }
    lxw_col_t col = 0;
    if (!Number(col++, groupNr)) return false;
    if (!Number(col++, w_.m.IsMarked(file) ? 1 : 0)) return false;
    if (!Text(col++, w_.m.FileName(file))) return false;
    for (const ResultColumn* c : w_.plan.fileColumns) {
      FileValue(w_.m, file, *c, &v_);
      if (!Put(col++, v_)) return false;
    }
    for (const OutValue& g : groupValues_)
      if (!Put(col++, g)) return false;
    ++row_;
    return true;
  }

  bool Finish() override {
    lxw_workbook* wb = wb_;
    wb_ = nullptr;
    const lxw_error e = workbook_close(wb);  // frees the workbook
    if (e != LXW_NO_ERROR) return Fail(e);
    if (const int fault = InjectedFault(FsCall::WriteFile, w_.out.Target())) {
      error_ = ErrorText(fault);
      return false;
    }
    return true;
  }

  std::string Error() const override { return error_; }
  int Sheets() const override { return sheets_; }

 private:
  static std::string SheetName(int n) {
    return n <= 1 ? std::string(kSheetName)
                  : std::string(kSheetName) + " (" + std::to_string(n) + ")";
  }

  bool NewSheet() {
    ++sheets_;
    const std::string name = SheetName(sheets_);
    ws_ = workbook_add_worksheet(wb_, name.c_str());
    if (!ws_) return Fail(LXW_ERROR_MEMORY_MALLOC_FAILED);
    worksheet_freeze_panes(ws_, 1, 0);
    worksheet_set_column(ws_, 2, 2, 40, nullptr);  // the name
    row_ = 0;
    lxw_col_t col = 0;
    for (const std::string& h : w_.plan.header) {
      const lxw_error e = worksheet_write_string(ws_, 0, col++, SheetText(h).c_str(), bold_);
      if (e != LXW_NO_ERROR) return Fail(e);
    }
    row_ = 1;
    return true;
  }

  bool Number(lxw_col_t col, double n) {
    const lxw_error e = worksheet_write_number(ws_, static_cast<lxw_row_t>(row_), col, n, nullptr);
    return e == LXW_NO_ERROR || Fail(e);
  }
  bool Text(lxw_col_t col, std::string_view s) {
    if (s.empty()) return true;
    const lxw_error e = worksheet_write_string(ws_, static_cast<lxw_row_t>(row_), col,
                                               SheetText(s).c_str(), nullptr);
    return e == LXW_NO_ERROR || Fail(e);
  }
  bool Put(lxw_col_t col, const OutValue& v) {
    return v.isNumber ? Number(col, v.number) : Text(col, v.text);
  }
  bool Fail(lxw_error e) {
    error_ = lxw_strerror(e);
    return false;
  }

  WriterSetup w_;
  std::string tmpdir_;
  lxw_workbook* wb_ = nullptr;
  lxw_worksheet* ws_ = nullptr;
  lxw_format* bold_ = nullptr;
  std::int64_t limit_ = kXlsxMaxRows;
  std::int64_t row_ = 0;
  int sheets_ = 0;
  OutValue v_;
  std::vector<OutValue> groupValues_;
  std::string error_;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeXlsxWriter(const WriterSetup& w) {
  return std::make_unique<XlsxWriter>(w);
}

}  // namespace kelvor::export_detail
