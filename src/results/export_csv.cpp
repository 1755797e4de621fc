// SaveCSV: one header line, then one line per file row; every value in
// double quotes (a quote inside doubled), values joined by the delimiter,
// lines ended by CR LF, all in UTF-16LE behind the byte-order mark.

#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

#include "data/output_file.h"
#include "frame/texts.h"
#include "results/export_writers.h"

namespace kelvor::export_detail {

namespace {

class CsvWriter final : public ExportWriter {
 public:
  explicit CsvWriter(const WriterSetup& w) : w_(w) {
    AppendUtf16(w.o.delimiter, delim_);
    buf_.resize(kFlushAt + (64 << 10));
  }

  bool Begin() override {
    Raw("\xFF\xFE");
    bool first = true;
    for (const std::string& h : w_.plan.header) Value(h, &first);
    return EndLine();
  }

  bool Group(int groupNr, RowRef group) override {
    groupNr_ = std::to_string(groupNr);
    // The group's values are the same on each of its lines: made once.
    groupPart_.clear();
    for (const ResultColumn* c : w_.plan.groupColumns) {
      GroupValue(w_.m, group, *c, &v_);
      groupPart_ += delim_;
      groupPart_.append("\"\0", 2);
      char num[24];
      AppendUtf16(Plain(v_, num), groupPart_, Utf16Mode::CsvQuoted);
      groupPart_.append("\"\0", 2);
    }
    return true;
  }

  bool File(int, RowRef, RowRef file) override {
    bool first = true;
    Value(groupNr_, &first);
    Value(w_.m.IsMarked(file) ? "1" : "0", &first);
    Value(w_.m.FileName(file), &first);
    for (const ResultColumn* c : w_.plan.fileColumns) {
      // The two columns nearly every export has, read without a copy.
      if (c->id == kColPath) {
        Value(w_.m.FileFolder(file), &first);
      } else if (c->id == kColSize) {
        char num[24];
        const auto r = std::to_chars(num, num + sizeof num, w_.m.File_GetSize(file));
        Value(std::string_view(num, static_cast<std::size_t>(r.ptr - num)), &first);
      } else {
        FileValue(w_.m, file, *c, &v_);
        char num[24];
        Value(Plain(v_, num), &first);
      }
    }
    Raw(groupPart_);
    return EndLine();
  }

  bool Finish() override {
    return pos_ == 0 || w_.out.Write(std::string_view(buf_.data(), pos_), &error_);
  }
  std::string Error() const override { return error_; }

 private:
  // A number as plain digits, which every program reads back the same
  // (the grid's grouping "1.742" would read as a fraction in many); other
  // values as the grid shows them.
  static std::string_view Plain(const OutValue& v, char (&num)[24]) {
    if (!v.isNumber) return v.text;
    const auto r = std::to_chars(num, num + sizeof num, std::llround(v.number));
    return std::string_view(num, static_cast<std::size_t>(r.ptr - num));
  }

  // Room for `n` more bytes at the end of the buffer.
  char* Room(std::size_t n) {
    if (pos_ + n > buf_.size()) buf_.resize(pos_ + n + (64 << 10));
    return buf_.data() + pos_;
  }
  void Raw(std::string_view bytes) {
    std::memcpy(Room(bytes.size()), bytes.data(), bytes.size());
    pos_ += bytes.size();
  }
  void Value(std::string_view s, bool* first) {
    char* p = Room(kUtf16Room * s.size() + kUtf16Slack + delim_.size() + 4);
    if (!*first) {
      std::memcpy(p, delim_.data(), delim_.size());
      p += delim_.size();
    }
    *first = false;
    *p++ = '"';
    *p++ = 0;
    p = EncodeUtf16(s, p, Utf16Mode::CsvQuoted);
    *p++ = '"';
    *p++ = 0;
    pos_ = static_cast<std::size_t>(p - buf_.data());
  }
  bool EndLine() {
    Raw(std::string_view("\r\0\n\0", 4));
    if (pos_ < kFlushAt) return true;
    const bool ok = w_.out.Write(std::string_view(buf_.data(), pos_), &error_);
    pos_ = 0;
    return ok;
  }

  // Lines gather in the buffer and go out in blocks of about this size.
  static constexpr std::size_t kFlushAt = 1 << 20;

  WriterSetup w_;
  std::string delim_;
  std::vector<char> buf_;
  std::size_t pos_ = 0;
  std::string groupNr_, groupPart_;
  OutValue v_;
  std::string error_;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeCsvWriter(const WriterSetup& w) {
  return std::make_unique<CsvWriter>(w);
}

}  // namespace kelvor::export_detail
