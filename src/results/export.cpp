// SAVE: the checks, the walk over the rows and the temporary file of an
// export; the values and the UTF-16 encoding the writers share.

#include "results/export.h"

#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "data/output_file.h"
#include "frame/formats.h"
#include "frame/long_operation.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "results/export_writers.h"

namespace kelvor {

using export_detail::ExportPlan;
using export_detail::OutValue;

std::string DelimiterOfIndex(std::int32_t index, std::string_view chars) {
  switch (index) {
    case 1:
      return ";";
    case 2:
      return "\t";
    case 3:
      return " ";
    case 4:
      return std::string(chars);
    default:
      return ",";
  }
}

ExportOptions LoadExportOptions(const SettingsStore& s) {
  ExportOptions o;
  const long long choice = s.GetInt("ExportList", "SaveFileType");
  o.fileChoice = choice >= kExportAll && choice <= kExportUnmarked
                     ? static_cast<std::int32_t>(choice)
                     : kExportAll;
  const std::string f = s.Get("ExportList", "FileFormat");
  o.format = f == "XLSX" ? ExportFormat::Xlsx : f == "CSV" ? ExportFormat::Csv : ExportFormat::Txt;
  o.delimiter = DelimiterOfIndex(static_cast<std::int32_t>(s.GetInt("ExportList", "Delimiter")),
                                 s.Get("ExportList", "DelimiterChars"));
  o.saveOnlyFiles = s.GetBool("ExportList", "SaveOnlyFiles");
  return o;
}

bool ExportFormatFromPath(const std::filesystem::path& file, ExportFormat* format) {
  const std::string ext = LowerCase(file.extension().string());
  if (ext == ".txt") {
    *format = ExportFormat::Txt;
  } else if (ext == ".csv") {
    *format = ExportFormat::Csv;
  } else if (ext == ".xlsx") {
    *format = ExportFormat::Xlsx;
  } else {
    return false;
  }
  return true;
}

namespace export_detail {

namespace {

bool GroupHolds(int id) {
  return id == kColGroup || id == kColAnz || id == kColSize || id == kColDate || id == kColDateE ||
         id == kColAttr;
}

void Masked(const CellValue& cell, ColumnMask mask, OutValue* v) {
  if (std::holds_alternative<std::monostate>(cell)) return;  // not known: empty
  const double d = CellAsDouble(cell);
  const long long n = std::isfinite(d) ? std::llround(d) : 0;
  switch (mask) {
    case ColumnMask::Count:
      if (n > 0) {
        v->isNumber = true;
        v->number = static_cast<double>(n);
        v->text = FormatNumber(n);
      }
      break;
    case ColumnMask::CountZeroDash:
      if (n > 0) {
        v->isNumber = true;
        v->number = static_cast<double>(n);
        v->text = FormatNumber(n);
      } else if (n == 0) {
        v->text = "-";
      }
      break;
    case ColumnMask::Percent:
      if (n > 0) {
        v->isNumber = true;
        v->number = static_cast<double>(n);
        v->text = std::to_string(n) + "%";
      }
      break;
    case ColumnMask::None:
      v->text = CellAsText(cell);
      break;
  }
}

void SizeValue(std::int64_t bytes, OutValue* v) {
  v->isNumber = true;
  v->number = static_cast<double>(bytes);
  v->text = std::to_string(bytes);
}

}  // namespace

ExportPlan MakePlan(const std::vector<ResultColumn>& columns, const ExportOptions& o,
                    const TextCatalog& texts) {
  ExportPlan p;
  for (const ResultColumn& c : columns) {
    if (!c.visible || c.heading.empty()) continue;
    // The caption is the file's name ("Datei"); "Duplikate" is a count of
    // group rows only, empty on every file.
    if (c.id != kColGroup && c.id != kColAnz) p.fileColumns.push_back(&c);
    if (!o.saveOnlyFiles && GroupHolds(c.id)) p.groupColumns.push_back(&c);
  }
  p.header.push_back(texts.Get(txt::T4123));
  p.header.push_back(texts.Get(txt::T5260));
  p.header.push_back(texts.Get(txt::T4122));
  for (const ResultColumn* c : p.fileColumns) p.header.push_back(c->heading);
  const std::string suffix = " - " + texts.Get(txt::T5016);
  for (const ResultColumn* c : p.groupColumns)
    p.header.push_back(c->id == kColGroup ? c->heading : c->heading + suffix);
  return p;
}

void FileValue(const ResultModel& m, RowRef file, const ResultColumn& c, OutValue* v) {
  v->isNumber = false;
  v->number = 0;
  v->text.clear();
  switch (c.id) {
    case kColGroup:
      v->text = m.FileName(file);
      return;
    case kColPath:
      v->text = m.FileFolder(file);
      return;
    case kColSize:
      // The file's size also where the search keeps one size per group.
      SizeValue(m.File_GetSize(file), v);
      return;
    default:
      Masked(m.Cell(file, c.key), c.mask, v);
      return;
  }
}

void GroupValue(const ResultModel& m, RowRef group, const ResultColumn& c, OutValue* v) {
  v->isNumber = false;
  v->number = 0;
  v->text.clear();
  switch (c.id) {
    case kColGroup:
      v->text = m.Caption(group);
      return;
    case kColSize:
      SizeValue(CellAsInt(m.Cell(group, CellKey::size)), v);
      return;
    case kColDate:
    case kColDateE: {
      // A group date of its own (dateG) stands in the date column.
      const CellValue g = m.Cell(group, CellKey::dateG);
      if (c.id == kColDate && !CellAsText(g).empty()) {
        v->text = CellAsText(g);
        return;
      }
      Masked(m.Cell(group, c.key), c.mask, v);
      return;
    }
    default:
      Masked(m.Cell(group, c.key), c.mask, v);
      return;
  }
}

char* EncodeUtf16(std::string_view s, char* p, Utf16Mode mode) {
  auto unit = [&p](char32_t u) {
    *p++ = static_cast<char>(u & 0xFF);
    *p++ = static_cast<char>((u >> 8) & 0xFF);
  };
  std::size_t i = 0;
  const std::size_t n = s.size();
  while (i < n) {
#if defined(__SSE2__)
    // Runs of plain printable ASCII (all of most paths), 16 bytes at a time:
    // each byte becomes the byte and a zero.
    const __m128i space = _mm_set1_epi8(0x20), quote = _mm_set1_epi8('"'),
                  del = _mm_set1_epi8(0x7F), zero = _mm_setzero_si128();
    while (i + 16 <= n) {
      const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.data() + i));
      // Signed: bytes of 0x80 and above compare below the blank as well.
      const __m128i odd = _mm_or_si128(
          _mm_cmplt_epi8(x, space), _mm_or_si128(_mm_cmpeq_epi8(x, quote), _mm_cmpeq_epi8(x, del)));
      const int mask = _mm_movemask_epi8(odd);
      if (mask != 0) {
        const int plain = __builtin_ctz(static_cast<unsigned>(mask));
        for (int j = 0; j < plain; ++j) {
          *p++ = s[i + j];
          *p++ = 0;
        }
        i += static_cast<std::size_t>(plain);
        break;
      }
      _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_unpacklo_epi8(x, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 16), _mm_unpackhi_epi8(x, zero));
      p += 32;
      i += 16;
    }
    if (i + 16 > n && i < n) {
      // The last bytes, through a copy: the same test on what is left.
      alignas(16) char tail[16] = {};
      const std::size_t rest = n - i;
      std::memcpy(tail, s.data() + i, rest);
      const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(tail));
      const __m128i odd = _mm_or_si128(
          _mm_cmplt_epi8(x, space), _mm_or_si128(_mm_cmpeq_epi8(x, quote), _mm_cmpeq_epi8(x, del)));
      const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(odd)) & ((1u << rest) - 1u);
      if (mask == 0) {
        // The room behind the output (kUtf16Slack) takes the full 32 bytes.
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_unpacklo_epi8(x, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 16), _mm_unpackhi_epi8(x, zero));
        p += 2 * rest;
        break;
      }
      const int plain = __builtin_ctz(mask);
      for (int j = 0; j < plain; ++j) {
        *p++ = tail[j];
        *p++ = 0;
      }
      i += static_cast<std::size_t>(plain);
    }
    if (i >= n) break;
#endif
    const unsigned char b = static_cast<unsigned char>(s[i]);
    if (b >= 0x20 && b < 0x7F && b != '"') {  // the common case
      *p++ = static_cast<char>(b);
      *p++ = 0;
      ++i;
      continue;
    }
    char32_t cp;
    if (b < 0x80) {
      cp = b;
      ++i;
    } else {
      const std::size_t k = DecodeUtf8(s, i, &cp);
      if (k == 0) {
        cp = 0xFFFD;
        i += 1;
      } else {
        i += k;
      }
    }
    if (cp < 0x80) {
      if (mode == Utf16Mode::CsvQuoted && cp == '"') unit(u'"');
      if (mode == Utf16Mode::OneLine && (cp < 0x20 || cp == 0x7F))
        cp = cp == 0x7F ? 0x2421 : 0x2400 + cp;
      unit(cp);
    } else if (cp >= 0x10000) {
      const char32_t x = cp - 0x10000;
      unit(0xD800 + (x >> 10));
      unit(0xDC00 + (x & 0x3FF));
    } else {
      unit(cp);
    }
  }
  return p;
}

void AppendUtf16(std::string_view s, std::string& out, Utf16Mode mode) {
  const std::size_t old = out.size();
  out.resize(old + kUtf16Room * s.size() + kUtf16Slack);
  char* end = EncodeUtf16(s, out.data() + old, mode);
  out.resize(static_cast<std::size_t>(end - out.data()));
}

std::string SheetText(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0, chars = 0;
  constexpr std::size_t kMaxChars = 32767;
  while (i < s.size() && chars < kMaxChars) {
    char32_t cp;
    const std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0) {
      cp = 0xFFFD;
      i += 1;
    } else {
      i += n;
    }
    if ((cp < 0x20 && cp != '\t' && cp != '\n') || cp == 0x7F)
      cp = cp == 0x7F ? 0x2421 : 0x2400 + cp;
    // Characters beyond the basic plane count twice in the sheet's limit.
    chars += cp >= 0x10000 ? 2 : 1;
    if (chars > kMaxChars) break;
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else {
      out += FromCodePoints(std::u32string_view(&cp, 1));
    }
  }
  return out;
}

}  // namespace export_detail

namespace {

bool Passes(const ResultModel& m, RowRef file, std::int32_t choice) {
  if (choice == kExportMarked) return m.IsMarked(file);
  if (choice == kExportUnmarked) return !m.IsMarked(file);
  return true;
}

bool GroupHasRows(const ResultModel& m, RowRef group, std::int32_t choice) {
  const int children = m.ChildCount(group);
  if (children == 0) return false;
  if (choice == kExportMarked) return m.GroupSel(group) > 0;
  if (choice == kExportUnmarked) return m.GroupSel(group) < children;
  return true;
}

}  // namespace

ExportOutcome SAVE(const ResultModel& m, const std::vector<ResultColumn>& columns,
                   const std::filesystem::path& target, const ExportOptions& o,
                   const ExportContext& ctx) {
  ExportOutcome r;
  const std::string name = target.string();
  // Nothing to export for the choice.
  if (m.RowCount() < 3 || (o.fileChoice == kExportMarked && m.DupCountSelected() == 0) ||
      (o.fileChoice == kExportUnmarked && m.DupCountSelected() >= m.DupCount())) {
    r.status = ExportStatus::Refused;
    r.message = ctx.texts.Get(txt::T5292);
    return r;
  }

  const ExportPlan plan = export_detail::MakePlan(columns, o, ctx.texts);
  OutputFile out;
  std::string error;
  if (!out.Create(name, &error)) {
    r.status = ExportStatus::Failed;
    r.message = ctx.texts.Get(txt::T9635, {name, error});
    return r;
  }
  const export_detail::WriterSetup setup{m, plan, o, ctx, out};
  std::unique_ptr<export_detail::ExportWriter> w;
  switch (o.format) {
    case ExportFormat::Txt:
      w = export_detail::MakeTxtWriter(setup);
      break;
    case ExportFormat::Csv:
      w = export_detail::MakeCsvWriter(setup);
      break;
    case ExportFormat::Xlsx:
      w = export_detail::MakeXlsxWriter(setup);
      break;
  }

  auto fail = [&](std::string why) {
    out.Abandon();
    r.status = ExportStatus::Failed;
    r.message = ctx.texts.Get(txt::T9635, {name, why});
    return r;
  };
  if (!w->Begin()) return fail(w->Error());

  LongOperation pace(ctx.run);
  const std::int64_t total = std::max<std::int64_t>(1, m.DupCount());
  std::int64_t seen = 0;
  bool ok = true, stopped = false;
  int groupNr = 0;
  auto refresh = [&] {
    if (ctx.progress) ctx.progress->ProgressBar(static_cast<int>(seen * 100 / total));
  };
  m.ForEachGroup([&](RowRef g) {
    ++groupNr;
    if (!GroupHasRows(m, g, o.fileChoice)) {
      seen += m.ChildCount(g);
      return true;
    }
    if (!w->Group(groupNr, g)) {
      ok = false;
      return false;
    }
    m.ForEachFile(g, [&](RowRef f) {
      // Pause, stop and the progress once in 256 rows: a row costs far less
      // than a look at the clock.
      if ((seen & 255) == 0 && !pace.Step(refresh)) {
        stopped = true;
        return false;
      }
      ++seen;
      if (!Passes(m, f, o.fileChoice)) return true;
      if (!w->File(groupNr, g, f)) {
        ok = false;
        return false;
      }
      ++r.fileRows;
      return true;
    });
    return ok && !stopped;
  });
  if (!stopped && ok && pace.Stopped()) stopped = true;
  if (stopped) {
    w.reset();
    out.Abandon();
    r.status = ExportStatus::Stopped;
    r.message = ctx.texts.Get(txt::T9636, {name});
    return r;
  }
  if (!ok || !w->Finish()) return fail(w->Error());
  r.sheets = w->Sheets();
  w.reset();
  if (!out.Commit(&error)) return fail(error);
  if (ctx.progress) ctx.progress->ProgressBar(100);
  r.status = ExportStatus::Done;
  r.message = ctx.texts.Get(txt::T9633, {FormatNumber(r.fileRows), name});
  return r;
}

}  // namespace kelvor
