// Branch records of saved results: ResultModel::SaveBranch and LoadBranch,
// and the record header with its checks. The layout is told in
// result_branch.h.

#include "results/result_branch.h"

#include <zlib.h>

#include <array>
#include <bit>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "frame/texts.h"
#include "results/result_model.h"
#include "results/result_rows.h"

namespace kelvor {

static_assert(std::endian::native == std::endian::little,
              "the record layout is little-endian; a big-endian build must swap");

using result_detail::CellBit;
using result_detail::FileRow;
using result_detail::GroupRow;
using result_detail::Overflow;

namespace {

// The cells in the bit order of layout 1. Never reorder: append.
constexpr std::string_view kBranchCellNames[] = {
    "anz",
    "size",
    "desc",
    "sizeG",
    "dupname",
    "dateG",
    "dateVal",
    "dateEval",
    "date",
    "dateE",
    "attr2",
    "Sel",
    "archiv",
    "tmppath",
    "qnr",
    "path",
    "pathA",
    "attr",
    "owner",
    "AudioDurationVal",
    "AudioDuration",
    "AudioBitrate",
    "AudioSamplingrate",
    "picW",
    "picH",
    "hardlinks",
    "hardlinkID",
    "similar",
    "IsRefFile",
    "thumbnailpath",
    "GetFileInfo",
};
constexpr int kBranchCells = static_cast<int>(std::size(kBranchCellNames));

// The model's keys and the record's bits, both ways.
struct BitMap {
  std::array<int, kCellKeyCount> bitOfKey{};
  std::array<int, kBranchCells> keyOfBit{};
  bool identity = true;
  BitMap() {
    bitOfKey.fill(-1);
    keyOfBit.fill(-1);
    for (int b = 0; b < kBranchCells; ++b) {
      CellKey k;
      if (!CellKeyFromName(kBranchCellNames[b], &k)) continue;
      keyOfBit[static_cast<std::size_t>(b)] = static_cast<int>(k);
      bitOfKey[static_cast<std::size_t>(k)] = b;
      if (static_cast<int>(k) != b) identity = false;
    }
    for (int k = 0; k < kCellKeyCount; ++k)
      if (bitOfKey[static_cast<std::size_t>(k)] < 0) identity = false;
  }
};

const BitMap& Bits() {
  static const BitMap m;
  return m;
}

std::uint64_t ToRecordMask(std::uint64_t present) {
  const BitMap& m = Bits();
  if (m.identity) return present;
  std::uint64_t out = 0;
  for (std::uint64_t p = present; p; p &= p - 1) {
    const int k = std::countr_zero(p);
    const int b = m.bitOfKey[static_cast<std::size_t>(k)];
    if (b >= 0) out |= std::uint64_t{1} << b;
  }
  return out;
}

// False for a bit that names no cell of this version.
bool FromRecordMask(std::uint64_t mask, std::uint64_t* present) {
  const BitMap& m = Bits();
  if (mask >> kBranchCells) return false;
  if (m.identity) {
    *present = mask;
    return true;
  }
  std::uint64_t out = 0;
  for (std::uint64_t p = mask; p; p &= p - 1) {
    const int k = m.keyOfBit[static_cast<std::size_t>(std::countr_zero(p))];
    if (k < 0) return false;
    out |= std::uint64_t{1} << k;
  }
  *present = out;
  return true;
}

// ----- writing ---------------------------------------------------------------------

void PutVar(std::string& o, std::uint64_t v) {
  char b[10];
  int n = 0;
  while (v >= 0x80) {
    b[n++] = static_cast<char>(v | 0x80);
    v >>= 7;
  }
  b[n++] = static_cast<char>(v);
  o.append(b, static_cast<std::size_t>(n));
}
void PutZz(std::string& o, std::int64_t v) {
  PutVar(o, (static_cast<std::uint64_t>(v) << 1) ^ static_cast<std::uint64_t>(v >> 63));
}
void PutF64(std::string& o, double d) {
  char b[8];
  std::memcpy(b, &d, 8);
  o.append(b, 8);
}
void PutF32(std::string& o, float f) {
  char b[4];
  std::memcpy(b, &f, 4);
  o.append(b, 4);
}
void PutStr(std::string& o, std::string_view s) {
  PutVar(o, s.size());
  o.append(s);
}
void PutU32(std::string& o, std::size_t at, std::uint32_t v) {
  std::memcpy(o.data() + at, &v, 4);
}

enum ValueType : std::uint8_t { kVEmpty = 0, kVInt = 1, kVDouble = 2, kVText = 3 };

void PutValue(std::string& o, const CellValue& v) {
  if (const auto* i = std::get_if<std::int64_t>(&v)) {
    o.push_back(static_cast<char>(kVInt));
    PutZz(o, *i);
  } else if (const auto* d = std::get_if<double>(&v)) {
    o.push_back(static_cast<char>(kVDouble));
    PutF64(o, *d);
  } else if (const auto* s = std::get_if<std::string>(&v)) {
    o.push_back(static_cast<char>(kVText));
    PutStr(o, *s);
  } else {
    o.push_back(static_cast<char>(kVEmpty));
  }
}

void PutOverflow(std::string& o, const Overflow& extra) {
  PutVar(o, extra.size());
  for (const auto& [k, v] : extra) {
    PutStr(o, k);
    PutValue(o, v);
  }
}

const std::uint64_t kFileTextCells = CellBit(CellKey::tmppath) | CellBit(CellKey::path) |
                                     CellBit(CellKey::pathA) | CellBit(CellKey::owner) |
                                     CellBit(CellKey::hardlinkID) | CellBit(CellKey::thumbnailpath);

// File row flags.
constexpr std::uint8_t kFMarked = 1, kFBack = 2, kFText = 4, kFExtra = 8, kFRef = 16,
                       kFSameDates = 32;  // dateEval equals dateVal and is not written
// Group row flags: bits 0-1 the check state.
constexpr std::uint8_t kGExpanded = 4, kGExtra = 8;

// ----- reading ---------------------------------------------------------------------

class Reader {
 public:
  explicit Reader(std::string_view s) : p_(s.data()), end_(s.data() + s.size()) {}
  bool Bad() const { return bad_; }
  bool AtEnd() const { return p_ == end_; }
  std::size_t Left() const { return static_cast<std::size_t>(end_ - p_); }

  std::uint64_t Var() {
    std::uint64_t v = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      if (p_ == end_) return Fail();
      const auto b = static_cast<std::uint8_t>(*p_++);
      v |= static_cast<std::uint64_t>(b & 0x7F) << shift;
      if (!(b & 0x80)) return v;
    }
    return Fail();
  }
  std::int64_t Zz() {
    const std::uint64_t u = Var();
    return static_cast<std::int64_t>((u >> 1) ^ (~(u & 1) + 1));
  }
  // A zig-zag value that must fit 32 bits.
  std::int32_t I32() {
    const std::int64_t v = Zz();
    if (v < INT32_MIN || v > INT32_MAX) return static_cast<std::int32_t>(Fail());
    return static_cast<std::int32_t>(v);
  }
  std::uint8_t U8() {
    if (p_ == end_) return static_cast<std::uint8_t>(Fail());
    return static_cast<std::uint8_t>(*p_++);
  }
  double F64() {
    double d = 0;
    if (Left() < 8) return static_cast<double>(Fail());
    std::memcpy(&d, p_, 8);
    p_ += 8;
    return d;
  }
  float F32() {
    float f = 0;
    if (Left() < 4) return static_cast<float>(Fail());
    std::memcpy(&f, p_, 4);
    p_ += 4;
    return f;
  }
  std::string_view Str() {
    const std::uint64_t n = Var();
    if (bad_ || n > Left()) {
      Fail();
      return {};
    }
    std::string_view s(p_, static_cast<std::size_t>(n));
    p_ += n;
    return s;
  }
  CellValue Value() {
    switch (U8()) {
      case kVEmpty:
        return {};
      case kVInt:
        return Zz();
      case kVDouble:
        return F64();
      case kVText:
        return std::string(Str());
      default:
        Fail();
        return {};
    }
  }
  bool ReadOverflow(Overflow& extra) {
    const std::uint64_t n = Var();
    if (bad_ || n > Left()) return !Fail();
    extra.reserve(static_cast<std::size_t>(n));
    for (std::uint64_t i = 0; i < n && !bad_; ++i) {
      std::string key(Str());
      CellValue v = Value();
      extra.emplace_back(std::move(key), std::move(v));
    }
    return !bad_;
  }
  std::uint64_t Fail() {
    bad_ = true;
    p_ = end_;
    return 0;
  }

 private:
  const char* p_;
  const char* end_;
  bool bad_ = false;
};

}  // namespace

// ----- header ------------------------------------------------------------------------

std::uint32_t BranchCrc(std::string_view bytes) {
  uLong crc = ::crc32(0L, Z_NULL, 0);
  const auto* p = reinterpret_cast<const Bytef*>(bytes.data());
  std::size_t left = bytes.size();
  while (left > 0) {
    const auto n = static_cast<uInt>(std::min<std::size_t>(left, 1u << 30));
    crc = ::crc32(crc, p, n);
    p += n;
    left -= n;
  }
  return static_cast<std::uint32_t>(crc);
}

std::uint32_t ResultStamp(std::int32_t dupCount, std::int32_t dupCountSelected,
                          std::int64_t filesizeAll, std::int64_t filesizeSelected,
                          std::int64_t listCount, std::int32_t groupId) {
  std::string s;
  PutZz(s, dupCount);
  PutZz(s, dupCountSelected);
  PutZz(s, filesizeAll);
  PutZz(s, filesizeSelected);
  PutZz(s, listCount);
  PutZz(s, groupId);
  return BranchCrc(s);
}

bool ReadBranchHeader(std::string_view header, std::uint32_t stamp, std::int64_t n,
                      const BranchFiles& files, const TextCatalog& texts, BranchHeader* h,
                      std::string* why) {
  const std::string nr = std::to_string(n);
  if (header.size() < kBranchHeaderSize || header[0] != 'K' || header[1] != 'B' || header[3] != 0) {
    *why = texts.Get(txt::T9605, {files.rows, nr});
    return false;
  }
  h->layout = static_cast<std::uint8_t>(header[2]);
  std::memcpy(&h->stamp, header.data() + 4, 4);
  std::memcpy(&h->length, header.data() + 8, 4);
  std::memcpy(&h->crc, header.data() + 12, 4);
  if (h->layout != kBranchLayout) {
    *why = texts.Get(txt::T9604, {files.rows, nr, std::to_string(h->layout)});
    return false;
  }
  if (h->stamp != stamp) {
    *why = texts.Get(txt::T9606, {files.rows, files.ini});
    return false;
  }
  if (h->length > kMaxBranchPayload) {
    *why = texts.Get(txt::T9610, {files.rows, nr});
    return false;
  }
  return true;
}

bool CheckBranchPayload(const BranchHeader& h, std::string_view payload, std::int64_t n,
                        const BranchFiles& files, const TextCatalog& texts, std::string* why) {
  if (payload.size() != h.length) {
    *why = texts.Get(txt::T9602, {files.rows, std::to_string(n)});
    return false;
  }
  if (BranchCrc(payload) != h.crc) {
    *why = texts.Get(txt::T9603, {files.rows, std::to_string(n)});
    return false;
  }
  return true;
}

// ----- SaveBranch ----------------------------------------------------------------------

void ResultModel::SaveBranch(std::string& out, RowRef group, std::uint32_t stamp,
                             BranchTexts& texts) const {
  const GroupRow* g = group.file < 0 ? G(group) : nullptr;
  if (!g) return;
  const auto& pool = rows_->pool;

  // Texts no record before brought go first, then the rows that name them.
  if (texts.numberOf.size() < pool.Size()) texts.numberOf.resize(pool.Size(), 0);
  std::vector<std::uint32_t> fresh;
  auto number = [&](std::uint32_t id) -> std::uint32_t {
    if (id == 0) return 0;
    std::uint32_t& n = texts.numberOf[id];
    if (n == 0) {
      n = ++texts.written;
      fresh.push_back(id);
    }
    return n;
  };
  std::string rows;
  rows.reserve(64 + static_cast<std::size_t>(g->live) * 48);

  std::uint8_t gflags = static_cast<std::uint8_t>(g->check & 3);
  if (g->expanded) gflags |= kGExpanded;
  const Overflow& gextra = g->C().extra;
  if (!gextra.empty()) gflags |= kGExtra;
  PutVar(rows, ToRecordMask(g->present));
  rows.push_back(static_cast<char>(gflags));
  PutZz(rows, g->back);
  PutZz(rows, g->text);
  PutStr(rows, g->title);
  if (g->present & CellBit(CellKey::anz)) PutZz(rows, g->anz);
  if (g->present & CellBit(CellKey::size)) PutZz(rows, g->size);
  if (g->present & CellBit(CellKey::sizeG)) PutZz(rows, g->sizeG);
  if (g->present & CellBit(CellKey::dateG)) PutStr(rows, g->C().dateG);
  if (g->present & CellBit(CellKey::dateVal)) PutF64(rows, g->dateVal);
  if (g->present & CellBit(CellKey::dateEval)) PutF64(rows, g->dateEval);
  if (g->present & CellBit(CellKey::attr2)) PutStr(rows, g->C().attr2);
  if (g->present & CellBit(CellKey::Sel)) PutZz(rows, g->sel);
  if (gflags & kGExtra) PutOverflow(rows, gextra);

  PutVar(rows, static_cast<std::uint64_t>(g->live));
  for (const FileRow& f : g->files) {
    if (!f.alive) continue;
    std::uint8_t flags = f.check == kCheckMarked ? kFMarked : 0;
    if (f.back != kColorWhite) flags |= kFBack;
    if (f.text != 0) flags |= kFText;
    const Overflow* extra = f.more && !f.more->extra.empty() ? &f.more->extra : nullptr;
    if (extra) flags |= kFExtra;
    if (f.isRef) flags |= kFRef;
    const std::uint64_t p = f.present;
    const std::uint64_t bothDates = CellBit(CellKey::dateVal) | CellBit(CellKey::dateEval);
    if ((p & bothDates) == bothDates && std::memcmp(&f.dateVal, &f.dateEval, sizeof(double)) == 0)
      flags |= kFSameDates;
    PutVar(rows, ToRecordMask(p));
    rows.push_back(static_cast<char>(flags));
    if (flags & kFBack) PutZz(rows, f.back);
    if (flags & kFText) PutZz(rows, f.text);
    PutStr(rows, f.name);
    if (p & kFileTextCells) {
      if (p & CellBit(CellKey::path)) PutVar(rows, number(f.folder));
      if (p & CellBit(CellKey::pathA)) PutVar(rows, number(f.folderA));
      if (p & CellBit(CellKey::tmppath)) PutVar(rows, number(f.tmp));
      if (p & CellBit(CellKey::hardlinkID)) PutVar(rows, number(f.hardlinkID));
      if (p & CellBit(CellKey::owner)) PutVar(rows, number(f.C().owner));
      if (p & CellBit(CellKey::thumbnailpath)) PutVar(rows, number(f.C().thumb));
    }
    if (p & CellBit(CellKey::size)) PutZz(rows, f.size);
    if (p & CellBit(CellKey::dateVal)) PutF64(rows, f.dateVal);
    if ((p & CellBit(CellKey::dateEval)) && !(flags & kFSameDates)) PutF64(rows, f.dateEval);
    if (p & CellBit(CellKey::qnr)) PutZz(rows, f.qnr);
    if (p & CellBit(CellKey::attr)) PutZz(rows, f.attr);
    if (p & CellBit(CellKey::archiv)) rows.push_back(static_cast<char>(f.archiv));
    if (p & CellBit(CellKey::hardlinks)) PutZz(rows, f.hardlinks);
    if (p & CellBit(CellKey::similar)) PutF32(rows, f.similar);
    if (p & CellBit(CellKey::GetFileInfo)) rows.push_back(static_cast<char>(f.getFileInfo));
    if (p & CellBit(CellKey::AudioDurationVal)) PutZz(rows, f.C().audioDur);
    if (p & CellBit(CellKey::AudioBitrate)) PutF64(rows, f.C().audioBitrate);
    if (p & CellBit(CellKey::AudioSamplingrate)) PutF64(rows, f.C().audioSamplingrate);
    if (p & CellBit(CellKey::picW)) PutZz(rows, f.C().picW);
    if (p & CellBit(CellKey::picH)) PutZz(rows, f.C().picH);
    if (extra) PutOverflow(rows, *extra);
  }

  const std::size_t start = out.size();
  out.append(kBranchHeaderSize, '\0');
  out[start] = 'K';
  out[start + 1] = 'B';
  out[start + 2] = static_cast<char>(kBranchLayout);
  PutVar(out, fresh.size());
  for (std::uint32_t id : fresh) PutStr(out, pool.Get(id));
  out.append(rows);
  const std::string_view payload(out.data() + start + kBranchHeaderSize,
                                 out.size() - start - kBranchHeaderSize);
  PutU32(out, start + 4, stamp);
  PutU32(out, start + 8, static_cast<std::uint32_t>(payload.size()));
  PutU32(out, start + 12, BranchCrc(payload));
}

// ----- LoadBranch ----------------------------------------------------------------------

void ResultModel::ReserveGroups(int n) {
  if (n > 0) rows_->ReserveGroups(static_cast<std::size_t>(n));
}

bool ResultModel::LoadBranch(std::string_view payload, BranchTexts& texts) {
  if (!rows_->root.exists) Report_Create_Root_Node();
  Reader in(payload);
  auto& pool = rows_->pool;

  // The texts this record brings; a failed record's texts do no harm, as a
  // file loads whole or not at all.
  const std::uint64_t nTexts = in.Var();
  if (in.Bad() || nTexts > in.Left()) return false;
  texts.idOf.reserve(texts.idOf.size() + static_cast<std::size_t>(nTexts));
  for (std::uint64_t i = 0; i < nTexts && !in.Bad(); ++i)
    texts.idOf.push_back(pool.Intern(in.Str()));
  if (in.Bad()) return false;
  const std::vector<std::uint32_t>& ids = texts.idOf;
  auto text = [&](std::uint32_t* field) {
    const std::uint64_t i = in.Var();
    if (i >= ids.size()) {
      in.Fail();
      return;
    }
    *field = ids[static_cast<std::size_t>(i)];
  };

  GroupRow g;
  std::uint64_t mask = in.Var();
  if (!FromRecordMask(mask, &g.present)) return false;
  const std::uint8_t gflags = in.U8();
  g.check = static_cast<std::int8_t>(gflags & 3);
  g.expanded = (gflags & kGExpanded) != 0;
  g.back = in.I32();
  g.text = in.I32();
  g.title = std::string(in.Str());
  const std::uint64_t gp = g.present;
  if (gp & CellBit(CellKey::anz)) g.anz = in.I32();
  if (gp & CellBit(CellKey::size)) g.size = in.Zz();
  if (gp & CellBit(CellKey::sizeG)) g.sizeG = in.Zz();
  if (gp & CellBit(CellKey::dateG)) g.M().dateG = std::string(in.Str());
  if (gp & CellBit(CellKey::dateVal)) g.dateVal = in.F64();
  if (gp & CellBit(CellKey::dateEval)) g.dateEval = in.F64();
  if (gp & CellBit(CellKey::attr2)) g.M().attr2 = std::string(in.Str());
  if (gp & CellBit(CellKey::Sel)) g.sel = in.I32();
  if (gflags & kGExtra) in.ReadOverflow(g.M().extra);
  // A group holds no cell of the root or of files.
  const std::uint64_t kGroupCells =
      CellBit(CellKey::anz) | CellBit(CellKey::size) | CellBit(CellKey::sizeG) |
      CellBit(CellKey::dupname) | CellBit(CellKey::dateG) | CellBit(CellKey::dateVal) |
      CellBit(CellKey::dateEval) | CellBit(CellKey::date) | CellBit(CellKey::dateE) |
      CellBit(CellKey::attr2) | CellBit(CellKey::Sel);
  if (in.Bad() || (gp & ~kGroupCells) || (gflags & ~(3 | kGExpanded | kGExtra)) || g.check > 2)
    return false;

  const std::uint64_t nFiles = in.Var();
  // Every file takes at least three bytes: no count beyond that is believed.
  if (in.Bad() || nFiles > in.Left() / 3) return false;
  g.files.resize(static_cast<std::size_t>(nFiles));
  std::int32_t marked = 0;
  const std::uint64_t kRootOrGroupOnly = CellBit(CellKey::anz) | CellBit(CellKey::desc) |
                                         CellBit(CellKey::sizeG) | CellBit(CellKey::dateG) |
                                         CellBit(CellKey::Sel);
  for (FileRow& f : g.files) {
    mask = in.Var();
    if (!FromRecordMask(mask, &f.present) || (f.present & kRootOrGroupOnly)) return false;
    const std::uint8_t flags = in.U8();
    if (flags & ~(kFMarked | kFBack | kFText | kFExtra | kFRef | kFSameDates)) return false;
    f.check = (flags & kFMarked) ? kCheckMarked : kCheckNone;
    marked += f.check;
    f.isRef = (flags & kFRef) != 0;
    if (flags & kFBack) f.back = in.I32();
    if (flags & kFText) f.text = in.I32();
    f.name = std::string(in.Str());
    const std::uint64_t p = f.present;
    if (p & kFileTextCells) {
      if (p & CellBit(CellKey::path)) text(&f.folder);
      if (p & CellBit(CellKey::pathA)) text(&f.folderA);
      if (p & CellBit(CellKey::tmppath)) text(&f.tmp);
      if (p & CellBit(CellKey::hardlinkID)) text(&f.hardlinkID);
      if (p & CellBit(CellKey::owner)) text(&f.M().owner);
      if (p & CellBit(CellKey::thumbnailpath)) text(&f.M().thumb);
    }
    if (p & CellBit(CellKey::size)) f.size = in.Zz();
    if (p & CellBit(CellKey::dateVal)) f.dateVal = in.F64();
    if (p & CellBit(CellKey::dateEval)) f.dateEval = (flags & kFSameDates) ? f.dateVal : in.F64();
    if (p & CellBit(CellKey::qnr)) f.qnr = in.I32();
    if (p & CellBit(CellKey::attr)) f.attr = in.I32();
    if (p & CellBit(CellKey::archiv)) f.archiv = in.U8();
    if (p & CellBit(CellKey::hardlinks)) f.hardlinks = in.I32();
    if (p & CellBit(CellKey::similar)) f.similar = in.F32();
    if (p & CellBit(CellKey::GetFileInfo)) f.getFileInfo = in.U8();
    if (p & CellBit(CellKey::AudioDurationVal)) f.M().audioDur = in.I32();
    if (p & CellBit(CellKey::AudioBitrate)) f.M().audioBitrate = in.F64();
    if (p & CellBit(CellKey::AudioSamplingrate)) f.M().audioSamplingrate = in.F64();
    if (p & CellBit(CellKey::picW)) f.M().picW = in.I32();
    if (p & CellBit(CellKey::picH)) f.M().picH = in.I32();
    if (flags & kFExtra) in.ReadOverflow(f.M().extra);
    if (in.Bad()) return false;
  }
  // Everything read, nothing left over, and the group's count of marked
  // files agrees with its rows.
  if (in.Bad() || !in.AtEnd()) return false;
  if ((gp & CellBit(CellKey::Sel)) && g.sel != marked) return false;

  const int number = rows_->AddGroup();
  GroupRow& slot = rows_->Slot(static_cast<std::size_t>(number));
  const auto files = static_cast<std::int64_t>(g.files.size());
  g.live = static_cast<std::int32_t>(files);
  slot = std::move(g);
  // The row count of the slot: the group and its files.
  rows_->AddFileRows(number, files);
  ++groupsCreated_;
  for (const FileRow& f : slot.files) {
    if (f.qnr >= 1 && static_cast<std::size_t>(f.qnr) <= sourceDupCount_.size()) {
      sourceDupCount_[static_cast<std::size_t>(f.qnr - 1)] += 1;
      sourceDupSize_[static_cast<std::size_t>(f.qnr - 1)] += f.size;
    }
  }
  return true;
}

}  // namespace kelvor
