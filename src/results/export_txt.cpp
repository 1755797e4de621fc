// SaveTXT: a report to read. A header (the result, the file choice, the
// date), unless SaveOnlyFiles the list of group and file columns, then each
// group's line "[caption]<tab>[value]..." and below it each file as
// "<tab>[x]<tab>name<tab>[value]...". UTF-16LE behind the byte-order mark,
// lines ended by CR LF. A control character in a name shows as its picture
// (a line feed as U+240A), so that every row stays one line.

#include "data/output_file.h"
#include "frame/formats.h"
#include "frame/texts.h"
#include "results/export_writers.h"

namespace kelvor::export_detail {

namespace {

class TxtWriter final : public ExportWriter {
 public:
  explicit TxtWriter(const WriterSetup& w) : w_(w) {}

  bool Begin() override {
    const TextCatalog& t = w_.ctx.texts;
    line_.assign("\xFF\xFE", 2);
    std::string title = t.Get(txt::T3965);
    if (!w_.o.savedName.empty()) title += " '" + w_.o.savedName + "'";
    if (!Line(title)) return false;
    const TextDef& choice = w_.o.fileChoice == kExportMarked     ? txt::T9631
                            : w_.o.fileChoice == kExportUnmarked ? txt::T9632
                                                                 : txt::T9630;
    if (!Line(t.Get(txt::T5254, {t.Get(choice)}))) return false;
    const double now = w_.o.now != 0 ? w_.o.now : DateNow();
    if (!Line(t.Get(txt::T5255, {FormatDate(now, w_.m.Options().DateFormat)}))) return false;
    const std::string rule(80, '-');
    if (!Line(rule)) return false;
    if (!w_.o.saveOnlyFiles) {
      if (!Line(t.Get(txt::T5256))) return false;
      for (const ResultColumn* c : w_.plan.groupColumns)
        if (!Line(c->heading)) return false;
      if (!Line(t.Get(txt::T5257)) || !Line(t.Get(txt::T4122))) return false;
      for (const ResultColumn* c : w_.plan.fileColumns)
        if (!Line(c->heading)) return false;
      if (!Line(rule)) return false;
    }
    return true;
  }

  bool Group(int, RowRef group) override {
    if (w_.o.saveOnlyFiles) return true;
    bool first = true;
    for (const ResultColumn* c : w_.plan.groupColumns) {
      GroupValue(w_.m, group, *c, &v_);
      if (!first) Tab();
      first = false;
      Bracketed(v_.text);
    }
    return EndLine();
  }

  bool File(int, RowRef, RowRef file) override {
    Tab();
    AppendUtf16(w_.m.IsMarked(file) ? "[x]" : "[ ]", line_);
    Tab();
    AppendUtf16(w_.m.FileName(file), line_, Utf16Mode::OneLine);
    for (const ResultColumn* c : w_.plan.fileColumns) {
      FileValue(w_.m, file, *c, &v_);
      Tab();
      Bracketed(v_.text);
    }
    return EndLine();
  }

  bool Finish() override { return true; }
  std::string Error() const override { return error_; }

 private:
  void Tab() { AppendUtf16("\t", line_); }
  void Bracketed(std::string_view s) {
    AppendUtf16("[", line_);
    AppendUtf16(s, line_, Utf16Mode::OneLine);
    AppendUtf16("]", line_);
  }
  bool Line(std::string_view s) {
    AppendUtf16(s, line_, Utf16Mode::OneLine);
    return EndLine();
  }
  bool EndLine() {
    AppendUtf16("\r\n", line_);
    const bool ok = w_.out.Write(line_, &error_);
    line_.clear();
    return ok;
  }

  WriterSetup w_;
  std::string line_;
  OutValue v_;
  std::string error_;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeTxtWriter(const WriterSetup& w) {
  return std::make_unique<TxtWriter>(w);
}

}  // namespace kelvor::export_detail
