// The cell table and the cell access of ResultModel. Every cell key is
// described once, in kCells below: its key text, its kind, and how the root,
// group and file rows read and write it.

#include "results/result_cells.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <type_traits>

#include "frame/formats.h"

namespace kelvor {

namespace result_detail {
namespace {

// ----- fields and conversions ------------------------------------------------------

template <class C, class T>
C OwnerOf(T C::*);

// The field `Mp` of a row: in the row itself, or in its side record of rare
// cells (read without making one, written after making it).
template <auto Mp, class Row>
const auto& ReadField(const Row& r) {
  if constexpr (std::is_same_v<decltype(OwnerOf(Mp)), Row>) {
    return r.*Mp;
  } else {
    return r.C().*Mp;
  }
}

template <auto Mp, class Row>
auto& WriteField(Row& r) {
  if constexpr (std::is_same_v<decltype(OwnerOf(Mp)), Row>) {
    return r.*Mp;
  } else {
    return r.M().*Mp;
  }
}

template <class T>
CellValue ToCell(const T& v) {
  if constexpr (std::is_same_v<T, std::string>) {
    return v;
  } else if constexpr (std::is_same_v<T, bool>) {
    return CellValue(std::int64_t{v ? 1 : 0});
  } else if constexpr (std::is_floating_point_v<T>) {
    return CellValue(static_cast<double>(v));
  } else {
    return CellValue(static_cast<std::int64_t>(v));
  }
}

// A value of the wrong kind is converted.
template <class T>
T FromCell(const CellValue& v) {
  if constexpr (std::is_same_v<T, std::string>) {
    return CellAsText(v);
  } else if constexpr (std::is_same_v<T, bool>) {
    return CellAsInt(v) != 0;
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(CellAsDouble(v));
  } else {
    static_assert(sizeof(T) >= 4, "narrow fields convert in a writer of their own");
    return static_cast<T>(CellAsInt(v));
  }
}

// ----- the ways a level holds a cell -------------------------------------------------

template <class Row>
struct On {
  using Access = CellAccess<Row>;

  // A typed field of the row (or of its side record).
  template <auto Mp>
  static constexpr Access Stored() {
    return {[](const Row& r, const CellReadEnv&) { return ToCell(ReadField<Mp>(r)); },
            [](Row& r, const CellValue& v, StringPool&) {
              auto& field = WriteField<Mp>(r);
              field = FromCell<std::remove_cvref_t<decltype(field)>>(v);
            }};
  }

  // A text kept as an id into the string pool.
  template <auto Mp>
  static constexpr Access Pooled() {
    return {[](const Row& r, const CellReadEnv& e) {
              return CellValue(std::string(e.pool.Get(ReadField<Mp>(r))));
            },
            [](Row& r, const CellValue& v, StringPool& pool) {
              WriteField<Mp>(r) = pool.Intern(CellAsText(v));
            }};
  }

  // Made from the cell `from` when read; nothing to write.
  static constexpr Access Made(CellValue (*get)(const Row&, const CellReadEnv&), CellKey from) {
    return {get, nullptr, from};
  }

  static constexpr Access Custom(CellValue (*get)(const Row&, const CellReadEnv&),
                                 void (*set)(Row&, const CellValue&, StringPool&)) {
    return {get, set};
  }
};

using R = On<RootRow>;
using G = On<GroupRow>;
using F = On<FileRow>;

std::string DurationText(std::int32_t seconds) {
  if (seconds < 0) seconds = 0;
  return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
}

// Group dates show with the group date mask (IgnoreTime, IgnoreSeconds), file
// dates with the result's date format.
CellValue GroupDate(const GroupRow& g, const CellReadEnv& e) {
  return FormatDate(g.dateVal, GroupDateMask(e.opt));
}
CellValue GroupDateE(const GroupRow& g, const CellReadEnv& e) {
  return FormatDate(g.dateEval, GroupDateMask(e.opt));
}
CellValue FileDate(const FileRow& f, const CellReadEnv& e) {
  return FormatDate(f.dateVal, e.opt.DateFormat);
}
CellValue FileDateE(const FileRow& f, const CellReadEnv& e) {
  return FormatDate(f.dateEval, e.opt.DateFormat);
}
CellValue FileAttr2(const FileRow& f, const CellReadEnv&) {
  return FormatAttributeLetters(f.attr);
}
CellValue FileDuration(const FileRow& f, const CellReadEnv&) {
  return DurationText(f.C().audioDur);
}

CellValue GetArchiv(const FileRow& f, const CellReadEnv&) {
  return ToCell(f.archiv);
}
void SetArchiv(FileRow& f, const CellValue& v, StringPool&) {
  f.archiv = static_cast<std::uint8_t>(std::clamp<std::int64_t>(CellAsInt(v), 0, 255));
}
CellValue GetFileInfo(const FileRow& f, const CellReadEnv&) {
  return ToCell(f.getFileInfo);
}
void SetFileInfo(FileRow& f, const CellValue& v, StringPool&) {
  f.getFileInfo = static_cast<std::uint8_t>(CellAsInt(v) & 0xFF);
}

using K = CellKey;
using T = CellType;

// The key and its key text, which is the key's own name.
#define KEY(k) CellKey::k, #k

// One row per cell key, in the order of CellKey:
//   key and key text, kind, root, group, file ({} = the level has no such cell).
// clang-format off
constexpr CellDescription kCells[] = {
    {KEY(anz), T::Int, R::Stored<&RootRow::anz>(), G::Stored<&GroupRow::anz>(), {}},
    {KEY(size), T::Int, R::Stored<&RootRow::size>(), G::Stored<&GroupRow::size>(),
                        F::Stored<&FileRow::size>()},
    {KEY(desc), T::Text, R::Stored<&RootRow::desc>(), {}, {}},
    {KEY(sizeG), T::Int, {}, G::Stored<&GroupRow::sizeG>(), {}},
    {KEY(dupname), T::Text, {}, G::Stored<&GroupRow::title>(), F::Stored<&FileRow::name>()},
    {KEY(dateG), T::Text, {}, G::Stored<&GroupDetails::dateG>(), {}},
    {KEY(dateVal), T::Double, {}, G::Stored<&GroupRow::dateVal>(), F::Stored<&FileRow::dateVal>()},
    {KEY(dateEval), T::Double, {}, G::Stored<&GroupRow::dateEval>(),
                                   F::Stored<&FileRow::dateEval>()},
    {KEY(date), T::Text, {}, G::Made(GroupDate, K::dateVal), F::Made(FileDate, K::dateVal)},
    {KEY(dateE), T::Text, {}, G::Made(GroupDateE, K::dateEval), F::Made(FileDateE, K::dateEval)},
    {KEY(attr2), T::Text, {}, G::Stored<&GroupDetails::attr2>(), F::Made(FileAttr2, K::attr)},
    {KEY(Sel), T::Int, {}, G::Stored<&GroupRow::sel>(), {}},
    {KEY(archiv), T::Int, {}, {}, F::Custom(GetArchiv, SetArchiv)},
    {KEY(tmppath), T::Text, {}, {}, F::Pooled<&FileRow::tmp>()},
    {KEY(qnr), T::Int, {}, {}, F::Stored<&FileRow::qnr>()},
    {KEY(path), T::Text, {}, {}, F::Pooled<&FileRow::folder>()},
    {KEY(pathA), T::Text, {}, {}, F::Pooled<&FileRow::folderA>()},
    {KEY(attr), T::Int, {}, {}, F::Stored<&FileRow::attr>()},
    {KEY(owner), T::Text, {}, {}, F::Pooled<&FileDetails::owner>()},
    {KEY(AudioDurationVal), T::Int, {}, {}, F::Stored<&FileDetails::audioDur>()},
    {KEY(AudioDuration), T::Text, {}, {}, F::Made(FileDuration, K::AudioDurationVal)},
    {KEY(AudioBitrate), T::Double, {}, {}, F::Stored<&FileDetails::audioBitrate>()},
    {KEY(AudioSamplingrate), T::Double, {}, {}, F::Stored<&FileDetails::audioSamplingrate>()},
    {KEY(picW), T::Int, {}, {}, F::Stored<&FileDetails::picW>()},
    {KEY(picH), T::Int, {}, {}, F::Stored<&FileDetails::picH>()},
    {KEY(hardlinks), T::Int, {}, {}, F::Stored<&FileRow::hardlinks>()},
    {KEY(hardlinkID), T::Text, {}, {}, F::Pooled<&FileRow::hardlinkID>()},
    {KEY(similar), T::Double, {}, {}, F::Stored<&FileRow::similar>()},
    {KEY(IsRefFile), T::Flag, {}, {}, F::Stored<&FileRow::isRef>()},
    {KEY(thumbnailpath), T::Text, {}, {}, F::Pooled<&FileDetails::thumb>()},
    {KEY(GetFileInfo), T::Int, {}, {}, F::Custom(GetFileInfo, SetFileInfo)},
};
// clang-format on

#undef KEY

// Every key has its row, in key order, and a made cell names a cell of its
// level that is stored.
constexpr bool TableIsComplete() {
  if (std::size(kCells) != static_cast<std::size_t>(kCellKeyCount)) return false;
  for (int i = 0; i < kCellKeyCount; ++i) {
    const CellDescription& d = kCells[i];
    if (d.key != static_cast<CellKey>(i) || d.name.empty()) return false;
    if (d.root.Derived()) return false;  // the root has no made cells
    if (d.group.Derived()) {
      const auto& src = kCells[static_cast<int>(d.group.from)].group;
      if (!src.Holds() || src.Derived()) return false;
    }
    if (d.file.Derived()) {
      const auto& src = kCells[static_cast<int>(d.file.from)].file;
      if (!src.Holds() || src.Derived()) return false;
    }
  }
  return true;
}
static_assert(TableIsComplete(), "kCells needs one row per CellKey, in key order");

}  // namespace

const CellDescription& DescribeCell(CellKey k) {
  // No level holds a key outside the table: its values go to the overflow
  // list under an empty key text.
  static constexpr CellDescription kNone{CellKey::kCount, {}, CellType::Text, {}, {}, {}};
  const int i = static_cast<int>(k);
  return i >= 0 && i < kCellKeyCount ? kCells[i] : kNone;
}

}  // namespace result_detail

using result_detail::CellBit;
using result_detail::CellReadEnv;
using result_detail::DescribeCell;
using result_detail::FileRow;
using result_detail::GroupRow;
using result_detail::Overflow;

// ----- keys and conversions ----------------------------------------------------------

std::string_view CellKeyName(CellKey k) {
  return DescribeCell(k).name;
}

bool CellKeyFromName(std::string_view name, CellKey* k) {
  for (const auto& d : result_detail::kCells) {
    if (d.name == name) {
      *k = d.key;
      return true;
    }
  }
  // The column keys spell these two with a capital R.
  if (name == "AudioBitRate") {
    *k = CellKey::AudioBitrate;
    return true;
  }
  if (name == "AudioSamplingRate") {
    *k = CellKey::AudioSamplingrate;
    return true;
  }
  return false;
}

double CellAsDouble(const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) return static_cast<double>(*i);
  if (const auto* d = std::get_if<double>(&v)) return *d;
  if (const auto* s = std::get_if<std::string>(&v)) {
    if (s->empty()) return 0;
    char* end = nullptr;
    const double d = std::strtod(s->c_str(), &end);
    return end == s->c_str() ? 0 : d;
  }
  return 0;
}

std::int64_t CellAsInt(const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) return *i;
  if (const auto* d = std::get_if<double>(&v)) {
    if (!std::isfinite(*d)) return 0;
    return static_cast<std::int64_t>(std::llround(*d));
  }
  if (const auto* s = std::get_if<std::string>(&v)) {
    if (s->empty()) return 0;
    char* end = nullptr;
    const long long n = std::strtoll(s->c_str(), &end, 10);
    if (end != s->c_str() && *end != '.' && *end != 'e' && *end != 'E') return n;
    const double d = CellAsDouble(v);
    return std::isfinite(d) ? static_cast<std::int64_t>(std::llround(d)) : 0;
  }
  return 0;
}

std::string CellAsText(const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) return std::to_string(*i);
  if (const auto* d = std::get_if<double>(&v)) {
    if (*d == std::floor(*d) && std::fabs(*d) < 1e15) {
      return std::to_string(static_cast<long long>(*d));
    }
    std::string s = std::to_string(*d);
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
  }
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  return {};
}

// ----- cells of the rows ---------------------------------------------------------------

bool ResultModel::HasCell(RowRef r, CellKey k) const {
  if (!IsValid(r)) return false;
  if (r.IsRoot()) {
    // The description shows only when there is one.
    return DescribeCell(k).root.Holds() && (k != CellKey::desc || !rows_->root.desc.empty());
  }
  if (r.file < 0) return (G(r)->present & CellBit(k)) != 0;
  return (F(r)->present & CellBit(k)) != 0;
}

CellValue ResultModel::Cell(RowRef r, CellKey k) const {
  if (!HasCell(r, k)) return {};
  const auto& d = DescribeCell(k);
  const CellReadEnv env{rows_->pool, opt_};
  if (r.IsRoot()) return d.root.get(rows_->root, env);
  if (r.file < 0) return d.group.Holds() ? d.group.get(*G(r), env) : CellValue{};
  return d.file.Holds() ? d.file.get(*F(r), env) : CellValue{};
}

const Overflow& ResultModel::OverflowOf(RowRef r) const {
  return r.IsRoot() ? rows_->root.extra : r.file < 0 ? G(r)->C().extra : F(r)->C().extra;
}

CellValue ResultModel::Cell(RowRef r, std::string_view key) const {
  CellKey k;
  if (CellKeyFromName(key, &k)) {
    CellValue v = Cell(r, k);
    if (!std::holds_alternative<std::monostate>(v)) return v;
  }
  if (!IsValid(r)) return {};
  if (const CellValue* v = result_detail::FindOverflow(&OverflowOf(r), key)) return *v;
  return {};
}

void ResultModel::SetCell(RowRef r, CellKey k, const CellValue& v) {
  if (!IsValid(r)) return;
  const auto& d = DescribeCell(k);
  // A key the level does not hold is kept as an invisible field under its
  // key text.
  if (r.IsRoot()) {
    if (d.root.Holds()) {
      d.root.set(rows_->root, v, rows_->pool);
    } else {
      result_detail::PutOverflow(rows_->root.extra, d.name, v);
    }
    return;
  }
  if (r.file < 0) {
    GroupRow& g = *G(r);
    if (!d.group.Holds()) {
      result_detail::PutOverflow(g.M().extra, d.name, v);
      return;
    }
    if (d.group.set) d.group.set(g, v, rows_->pool);
    g.present |= CellBit(k);
    return;
  }
  FileRow& f = *F(r);
  if (!d.file.Holds()) {
    result_detail::PutOverflow(f.M().extra, d.name, v);
    return;
  }
  if (d.file.set) d.file.set(f, v, rows_->pool);
  f.present |= CellBit(k);
}

void ResultModel::SetCell(RowRef r, std::string_view key, const CellValue& v) {
  if (!IsValid(r)) return;
  // The root keeps keys it does not hold under the spelling given.
  CellKey k;
  if (CellKeyFromName(key, &k) && (!r.IsRoot() || DescribeCell(k).root.Holds())) {
    SetCell(r, k, v);
    return;
  }
  Overflow& o = r.IsRoot() ? rows_->root.extra : r.file < 0 ? G(r)->M().extra : F(r)->M().extra;
  result_detail::PutOverflow(o, key, v);
}

void ResultModel::RemoveCell(RowRef r, CellKey k) {
  if (r.IsRoot()) {
    if (k == CellKey::desc) rows_->root.desc.clear();
    return;
  }
  if (r.file < 0) {
    if (GroupRow* g = G(r)) g->present &= ~CellBit(k);
  } else if (FileRow* f = F(r)) {
    f->present &= ~CellBit(k);
  }
}

std::vector<std::pair<std::string, CellValue>> ResultModel::Cells(RowRef r) const {
  std::vector<std::pair<std::string, CellValue>> out;
  if (!IsValid(r)) return out;
  for (int i = 0; i < kCellKeyCount; ++i) {
    const auto k = static_cast<CellKey>(i);
    if (HasCell(r, k)) out.emplace_back(std::string(CellKeyName(k)), Cell(r, k));
  }
  const Overflow& o = OverflowOf(r);
  out.insert(out.end(), o.begin(), o.end());
  return out;
}

// ----- typed reads of the common fields --------------------------------------------------

std::string_view ResultModel::FileName(RowRef file) const {
  const FileRow* f = F(file);
  return f ? std::string_view(f->name) : std::string_view();
}

std::string_view ResultModel::FileFolder(RowRef file) const {
  const FileRow* f = F(file);
  return f ? rows_->pool.Get(f->folder) : std::string_view();
}

std::int32_t ResultModel::FileSourceNr(RowRef file) const {
  const FileRow* f = F(file);
  return f ? f->qnr : 0;
}

std::int64_t ResultModel::FileSize(RowRef file) const {
  const FileRow* f = F(file);
  return f ? f->size : 0;
}

double ResultModel::FileDate(RowRef file) const {
  const FileRow* f = F(file);
  return f ? f->dateVal : 0;
}

std::int32_t ResultModel::GroupSel(RowRef group) const {
  const GroupRow* g = group.file < 0 ? G(group) : nullptr;
  return g ? g->sel : 0;
}

}  // namespace kelvor
