// SaveCSV: one header line, then one line per file row; every value in
// double quotes (a quote inside doubled), values joined by the delimiter,
// lines ended by CR LF, all in UTF-16LE behind the byte-order mark.

#include "data/output_file.h"
#include "frame/texts.h"
#include "results/export_writers.h"

namespace kelvor::export_detail {

namespace {

class CsvWriter final : public ExportWriter {
 public:
  explicit CsvWriter(const WriterSetup& w) : w_(w) {
    AppendUtf16(w.o.delimiter, delim_);
    AppendUtf16("\r\n", eol_);
    AppendUtf16("\"", quote_);
    line_.reserve(4096);
  }

  bool Begin() override {
    line_.assign("\xFF\xFE", 2);
    bool first = true;
    for (const std::string& h : w_.plan.header) Value(h, &first);
    return EndLine();
  }

  bool Group(int, RowRef group) override {
    if (w_.plan.groupColumns.empty()) return true;
    // The group's values are the same on each of its lines: made once.
    groupPart_.clear();
    for (const ResultColumn* c : w_.plan.groupColumns) {
      GroupValue(w_.m, group, *c, &v_);
      groupPart_ += delim_;
      Quoted(v_.text, groupPart_);
    }
    return true;
  }

  bool File(int groupNr, RowRef, RowRef file) override {
    bool first = true;
    Value(std::to_string(groupNr), &first);
    Value(w_.m.IsMarked(file) ? "1" : "0", &first);
    Value(w_.m.FileName(file), &first);
    for (const ResultColumn* c : w_.plan.fileColumns) {
      FileValue(w_.m, file, *c, &v_);
      Value(v_.text, &first);
    }
    line_ += groupPart_;
    return EndLine();
  }

  bool Finish() override { return true; }
  std::string Error() const override { return error_; }

 private:
  void Quoted(std::string_view s, std::string& out) {
    out += quote_;
    AppendUtf16(s, out, Utf16Mode::CsvQuoted);
    out += quote_;
  }
  void Value(std::string_view s, bool* first) {
    if (!*first) line_ += delim_;
    *first = false;
    Quoted(s, line_);
  }
  bool EndLine() {
    line_ += eol_;
    const bool ok = w_.out.Write(line_, &error_);
    line_.clear();
    return ok;
  }

  WriterSetup w_;
  std::string delim_, eol_, quote_;
  std::string line_, groupPart_;
  OutValue v_;
  std::string error_;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeCsvWriter(const WriterSetup& w) {
  return std::make_unique<CsvWriter>(w);
}

}  // namespace kelvor::export_detail
