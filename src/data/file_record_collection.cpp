// CStringCollection2: file records under a folded search key.

#include "data/file_record_collection.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "data/rb_tree.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

[[noreturn]] void ArrayFault() {
  throw CollectionError(9, "CStringCollection2", "Subscript out of range");
}

void CheckKind(std::int32_t kind) {
  if (kind < 0 || kind > 7) ArrayFault();
}

std::string Hex32(std::int64_t v) {
  return fmt::format("{:X}", static_cast<std::uint32_t>(static_cast<std::uint64_t>(v)));
}

std::string HexAbs(std::int32_t v) {
  const std::int64_t a = v < 0 ? -static_cast<std::int64_t>(v) : v;
  return fmt::format("{:X}", a);
}

std::int64_t Abs64(std::int32_t v) {
  return v < 0 ? -static_cast<std::int64_t>(v) : v;
}

// First 8 bytes of a key as a big-endian number, zero-padded: comparing two
// such numbers orders like comparing the bytes, and equal numbers leave the
// decision to the full texts.
std::uint64_t KeyPrefix(std::string_view k) {
  std::uint64_t v = 0;
  const std::size_t n = k.size() < 8 ? k.size() : 8;
  for (std::size_t i = 0; i < 8; ++i) {
    v <<= 8;
    if (i < n) v |= static_cast<unsigned char>(k[i]);
  }
  return v;
}

}  // namespace

bool CStringCollection2::Extra::IsEmpty() const {
  if (PathInsideZipRef || ArchiveTempFileNrRef) return false;
  if (MP3CutFromStart != 0 || MP3CutFromEnd != 0) return false;
  if (PicWidth != -1 || PicHeight != 0 || PicFormat != 0 || PicRatio != 0) return false;
  if (ExifCutFromStart != 0 || ExifCutFromEnd != 0) return false;
  if (!Arr) return true;
  for (const auto& a : Arr->HashArray) {
    if (!a.empty()) return false;
  }
  return Arr->HashAudioArray.empty();
}

const std::vector<std::uint8_t>& CStringCollection2::Extra::HashArray(std::int32_t kind) const {
  static const std::vector<std::uint8_t> kNone;
  return Arr ? Arr->HashArray[static_cast<std::size_t>(kind)] : kNone;
}

const std::vector<std::uint64_t>& CStringCollection2::Extra::HashAudioArray() const {
  static const std::vector<std::uint64_t> kNone;
  return Arr ? Arr->HashAudioArray : kNone;
}

CStringCollection2::CStringCollection2() = default;
CStringCollection2::~CStringCollection2() = default;

void CStringCollection2::Init(std::int32_t size, double growth) {
  if (size < 1) size = 1;
  Clear();
  Growth = growth;
  const auto n = static_cast<std::size_t>(size) + 1;
  Nodes_.resize(n);
  Records_.resize(n);
  PositionIndex_.reserve(n + 1);
  PositionIndex_.resize(n + 1, 0);
  Root_ = 0;
  Count_ = 0;
  Allocator_ = CNode{};
  Allocator_.Init(size, static_cast<float>(growth));
  Initialised_ = true;
}

std::int32_t CStringCollection2::Clear() {
  Allocator_ = CNode{};
  Nodes_.clear();
  Records_.clear();
  std::vector<std::int32_t>().swap(PositionIndex_);
  Paths_.Clear();
  Exts_.Clear();
  Texts_.Clear();
  std::vector<std::unique_ptr<Extra>>().swap(Extras_);
  std::vector<std::uint32_t>().swap(FreeExtras_);
  Count_ = 0;
  Root_ = 0;
  Initialised_ = false;
  return 0;
}

std::int32_t CStringCollection2::PositionIndexAt(std::int32_t position) const {
  if (position < 1 || static_cast<std::size_t>(position) >= PositionIndex_.size()) ArrayFault();
  return PositionIndex_[position];
}

std::int32_t CStringCollection2::NodeAtPosition(std::int32_t position) const {
  return PositionIndexAt(position);
}

std::int32_t CStringCollection2::GetIndex(std::int32_t node) const {
  for (std::int32_t i = 1; i <= Count_; ++i) {
    if (PositionIndex_[i] == node) return i;
  }
  return 0;
}

std::string_view CStringCollection2::Fold(std::string_view key) const {
  FoldBuffer_.clear();
  AppendLowerCase(key, FoldBuffer_);
  return FoldBuffer_;
}

std::int32_t CStringCollection2::Find(std::string_view key) const {
  if (Count_ == 0 || !Initialised_) return 0;
  const std::string_view search = Fold(key);
  const std::uint64_t prefix = KeyPrefix(search);
  std::int32_t n = Root_;
  while (n != 0) {
    const int c = CompareKey(search, prefix, n);
    if (c == 0) return n;
    n = c < 0 ? Nodes_[n].Left : Nodes_[n].Right;
  }
  return 0;
}

std::uint32_t CStringCollection2::PutText(std::uint32_t old, std::string_view s) {
  if (old != 0 && Texts_.Get(old) == s) return old;
  return Texts_.Put(s);
}

void CStringCollection2::FillPacked(Packed& p, const FileRecordView& v) {
  p.SizeKey = v.SizeKey;
  p.SIZE = v.SIZE;
  p.DateLastModified = v.DateLastModified;
  p.DateCreated = v.DateCreated;
  p.PathId = Paths_.Intern(v.Path);
  p.NameRef = PutText(p.NameRef, v.Name);
  p.ExtId = Exts_.Intern(v.Extension);
  // The name key is often the name itself: share the text then.
  p.NameKeyRef = v.NameKey == v.Name ? p.NameRef : PutText(p.NameKeyRef, v.NameKey);
  p.SourceNr = v.SourceNr;
  p.GroupID = v.GroupID;
  p.Attributes = v.Attributes;
  p.VolumeSerialNumber = v.VolumeSerialNumber;
  p.FileIndexHigh = v.FileIndexHigh;
  p.FileIndexLow = v.FileIndexLow;
  p.NumberOfLinks = v.NumberOfLinks;
  p.WalkDevice = v.WalkDevice;
  p.WalkInode = v.WalkInode;
  p.ArchiveType = v.ArchiveType;
  p.Flags = v.HaveErrorMessage ? kFlagError : 0;
}

CStringCollection2::Extra& CStringCollection2::EnsureExtra(Packed& p) {
  if (p.ExtraId != 0) return *Extras_[p.ExtraId - 1];
  if (!FreeExtras_.empty()) {
    p.ExtraId = FreeExtras_.back();
    FreeExtras_.pop_back();
    Extras_[p.ExtraId - 1] = std::make_unique<Extra>();
  } else {
    Extras_.push_back(std::make_unique<Extra>());
    p.ExtraId = static_cast<std::uint32_t>(Extras_.size());
  }
  return *Extras_[p.ExtraId - 1];
}

void CStringCollection2::ReleaseExtra(Packed& p) {
  if (p.ExtraId == 0) return;
  Extras_[p.ExtraId - 1].reset();
  FreeExtras_.push_back(p.ExtraId);
  p.ExtraId = 0;
}

void CStringCollection2::StoreExtra(Packed& p, const FileRecord& rec) {
  Extra e;
  const Extra* old = ExtraOf(p);
  e.PathInsideZipRef = PutText(old ? old->PathInsideZipRef : 0, rec.PathInsideZip);
  e.ArchiveTempFileNrRef = PutText(old ? old->ArchiveTempFileNrRef : 0, rec.ArchiveTempFileNr);
  p.HashRef = PutText(p.HashRef, rec.Hash);
  e.MP3CutFromStart = rec.MP3CutFromStart;
  e.MP3CutFromEnd = rec.MP3CutFromEnd;
  e.PicWidth = rec.PicWidth;
  e.PicHeight = rec.PicHeight;
  e.PicFormat = rec.PicFormat;
  e.PicRatio = rec.PicRatio;
  e.ExifCutFromStart = rec.ExifCutFromStart;
  e.ExifCutFromEnd = rec.ExifCutFromEnd;
  const bool arrays = !rec.HashAudioArray.empty() ||
                      std::any_of(rec.HashArray.begin(), rec.HashArray.end(),
                                  [](const std::vector<std::uint8_t>& a) { return !a.empty(); });
  if (arrays) {
    e.MutArrays().HashArray = rec.HashArray;
    e.Arr->HashAudioArray = rec.HashAudioArray;
  }
  if (e.IsEmpty()) {
    ReleaseExtra(p);
  } else {
    EnsureExtra(p) = std::move(e);
  }
}

void CStringCollection2::ReadInto(const Packed& p, FileRecord& r) const {
  r.RecordNumber = p.RecordNumber;
  r.SourceNr = p.SourceNr;
  r.GroupID = p.GroupID;
  r.HaveErrorMessage = p.Flags & kFlagError;
  r.NameKey.assign(Texts_.Get(p.NameKeyRef));
  r.SizeKey = p.SizeKey;
  r.Path.assign(Paths_.Get(p.PathId));
  r.Name.assign(Texts_.Get(p.NameRef));
  r.Extension.assign(Exts_.Get(p.ExtId));
  r.SIZE = p.SIZE;
  r.Attributes = p.Attributes;
  r.DateLastModified = p.DateLastModified;
  r.DateCreated = p.DateCreated;
  r.ArchiveType = p.ArchiveType;
  r.Hash.assign(Texts_.Get(p.HashRef));
  for (int k = 0; k < 8; ++k) r.HashCreated[k] = (p.HashCreated >> k) & 1;
  r.PercentMatch = p.PercentMatch;
  r.IsReferenceFile = p.Flags & kFlagReference;
  r.IsMP3 = p.Flags & kFlagMP3;
  r.IsFLAC = p.Flags & kFlagFLAC;
  r.IsJPG = p.Flags & kFlagJPG;
  r.VolumeSerialNumber = p.VolumeSerialNumber;
  r.FileIndexHigh = p.FileIndexHigh;
  r.FileIndexLow = p.FileIndexLow;
  r.NumberOfLinks = p.NumberOfLinks;
  r.WalkDevice = p.WalkDevice;
  r.WalkInode = p.WalkInode;
  // The walk's times are not kept: a record read back has none.
  r.WalkMtimeNs = 0;
  r.WalkCtimeNs = 0;
  if (const Extra* e = ExtraOf(p)) {
    r.PathInsideZip.assign(Texts_.Get(e->PathInsideZipRef));
    r.ArchiveTempFileNr.assign(Texts_.Get(e->ArchiveTempFileNrRef));
    r.MP3CutFromStart = e->MP3CutFromStart;
    r.MP3CutFromEnd = e->MP3CutFromEnd;
    r.PicWidth = e->PicWidth;
    r.PicHeight = e->PicHeight;
    r.PicFormat = e->PicFormat;
    r.PicRatio = e->PicRatio;
    r.ExifCutFromStart = e->ExifCutFromStart;
    r.ExifCutFromEnd = e->ExifCutFromEnd;
    if (e->Arr) {
      r.HashArray = e->Arr->HashArray;
      r.HashAudioArray = e->Arr->HashAudioArray;
    } else {
      for (auto& a : r.HashArray) a.clear();
      r.HashAudioArray.clear();
    }
  } else {
    r.PathInsideZip.clear();
    r.ArchiveTempFileNr.clear();
    r.MP3CutFromStart = 0;
    r.MP3CutFromEnd = 0;
    r.PicWidth = -1;
    r.PicHeight = 0;
    r.PicFormat = 0;
    r.PicRatio = 0;
    r.ExifCutFromStart = 0;
    r.ExifCutFromEnd = 0;
    for (auto& a : r.HashArray) a.clear();
    r.HashAudioArray.clear();
  }
}

namespace {

FileRecordView ViewOf(const FileRecord& r) {
  FileRecordView v;
  v.SourceNr = r.SourceNr;
  v.GroupID = r.GroupID;
  v.HaveErrorMessage = r.HaveErrorMessage;
  v.NameKey = r.NameKey;
  v.SizeKey = r.SizeKey;
  v.Path = r.Path;
  v.Name = r.Name;
  v.Extension = r.Extension;
  v.SIZE = r.SIZE;
  v.Attributes = r.Attributes;
  v.DateLastModified = r.DateLastModified;
  v.DateCreated = r.DateCreated;
  v.ArchiveType = r.ArchiveType;
  v.PathInsideZip = r.PathInsideZip;
  v.MP3CutFromStart = r.MP3CutFromStart;
  v.MP3CutFromEnd = r.MP3CutFromEnd;
  v.ExifCutFromStart = r.ExifCutFromStart;
  v.ExifCutFromEnd = r.ExifCutFromEnd;
  v.VolumeSerialNumber = r.VolumeSerialNumber;
  v.FileIndexHigh = r.FileIndexHigh;
  v.FileIndexLow = r.FileIndexLow;
  v.NumberOfLinks = r.NumberOfLinks;
  v.WalkDevice = r.WalkDevice;
  v.WalkInode = r.WalkInode;
  return v;
}

std::uint8_t CreatedBits(const FileRecord& r) {
  std::uint8_t bits = 0;
  for (int k = 0; k < 8; ++k) {
    if (r.HashCreated[k]) bits |= static_cast<std::uint8_t>(1u << k);
  }
  return bits;
}

}  // namespace

std::int32_t CStringCollection2::Add(std::string_view key, const FileRecord& rec, FileRecord* found,
                                     std::int32_t* foundNode) {
  return AddImpl(key, ViewOf(rec), &rec, found, foundNode);
}

std::int32_t CStringCollection2::Add(std::string_view key, const FileRecordView& rec,
                                     FileRecord* found, std::int32_t* foundNode) {
  return AddImpl(key, rec, nullptr, found, foundNode);
}

std::int32_t CStringCollection2::AddImpl(std::string_view key, const FileRecordView& v,
                                         const FileRecord* full, FileRecord* found,
                                         std::int32_t* foundNode) {
  if (!Initialised_) Init(InitialSize, Growth);

  const std::string_view search = Fold(key);
  const std::uint64_t prefix = KeyPrefix(search);
  std::int32_t parent = 0;
  int side = 0;
  for (std::int32_t n = Root_; n != 0;) {
    parent = n;
    side = CompareKey(search, prefix, n);
    if (side == 0) {
      if (found) ReadInto(Records_[n], *found);
      if (foundNode) *foundNode = n;
      return 0;
    }
    n = side < 0 ? Nodes_[n].Left : Nodes_[n].Right;
  }

  const std::int32_t node = Allocator_.Alloc();
  const std::int32_t b = NodesUpperBound();
  if (node > b) {
    const std::int64_t nb = std::max<std::int64_t>(RoundHalfEven(b * Growth), node);
    const std::int64_t npi = std::max<std::int64_t>(RoundHalfEven(b * Growth + 2), nb + 1);
    const auto nn = static_cast<std::size_t>(nb) + 1;
    Nodes_.resize(nn);
    Records_.resize(nn);
    PositionIndex_.reserve(static_cast<std::size_t>(npi) + 1);
    PositionIndex_.resize(static_cast<std::size_t>(npi) + 1, 0);
  }

  TreeNode& t = Nodes_[node];
  t.Parent = parent;
  t.Left = 0;
  t.Right = 0;
  t.Color = 1;
  ++Count_;
  PositionIndex_[Count_] = node;

  // Store the texts; `search` points into FoldBuffer_, which Put leaves alone.
  t.KeyRef = Texts_.Put(search);
  t.Prefix = prefix;
  t.OrigKeyRef = key == search ? 0 : Texts_.Put(key);

  Packed& p = Records_[node];
  p = Packed{};
  FillPacked(p, v);
  p.RecordNumber = node;
  if (full) {
    p.HashCreated = CreatedBits(*full);
    p.PercentMatch = full->PercentMatch;
    if (full->IsReferenceFile) p.Flags |= kFlagReference;
    if (full->IsMP3) p.Flags |= kFlagMP3;
    if (full->IsFLAC) p.Flags |= kFlagFLAC;
    if (full->IsJPG) p.Flags |= kFlagJPG;
    StoreExtra(p, *full);
  } else if (!v.PathInsideZip.empty() || v.ExifCutFromStart != 0 || v.ExifCutFromEnd != 0 ||
             v.MP3CutFromStart != 0 || v.MP3CutFromEnd != 0) {
    Extra& e = EnsureExtra(p);
    e.PathInsideZipRef = Texts_.Put(v.PathInsideZip);
    e.MP3CutFromStart = v.MP3CutFromStart;
    e.MP3CutFromEnd = v.MP3CutFromEnd;
    e.ExifCutFromStart = v.ExifCutFromStart;
    e.ExifCutFromEnd = v.ExifCutFromEnd;
  }

  if (parent == 0) {
    Root_ = node;
  } else if (side < 0) {
    Nodes_[parent].Left = node;
  } else {
    Nodes_[parent].Right = node;
  }
  rb::InsertFixup(*this, node);
  return node;
}

std::int32_t CStringCollection2::Remove(std::int32_t index) {
  const std::int32_t z = PositionIndexAt(index);
  if (z == 0) return 0;

  const auto [y, x] = rb::Unlink(*this, z);

  if (y != z) {
    // The successor's key and whole record move into z's node.
    Nodes_[z].KeyRef = Nodes_[y].KeyRef;
    Nodes_[z].Prefix = Nodes_[y].Prefix;
    Nodes_[z].OrigKeyRef = Nodes_[y].OrigKeyRef;
    ReleaseExtra(Records_[z]);
    Records_[z] = Records_[y];
    Records_[y].ExtraId = 0;  // now owned by z
    const std::int32_t pz = GetIndex(z);
    const std::int32_t pyPos = GetIndex(y);
    if (pz != 0) PositionIndex_[pz] = y;
    if (pyPos != 0) PositionIndex_[pyPos] = z;
  }
  if (!Red(y)) rb::DeleteFixup(*this, x);

  Nodes_[y].KeyRef = 0;
  Nodes_[y].OrigKeyRef = 0;
  Nodes_[y].Prefix = 0;
  ReleaseExtra(Records_[y]);
  Records_[y] = Packed{};

  const std::int32_t p = GetIndex(y);
  if (p != 0) {
    std::memmove(&PositionIndex_[p], &PositionIndex_[p + 1],
                 static_cast<std::size_t>(Count_ - p) * sizeof(std::int32_t));
    PositionIndex_[Count_] = 0;
    --Count_;
  }
  Allocator_.Free(y);
  Nodes_[0].Parent = 0;
  Nodes_[0].Color = 0;
  return p;
}

void CStringCollection2::RemoveBeforeClear(std::int32_t slot) {
  const std::int32_t n = slot - 1;
  if (n < 0 || n > NodesUpperBound()) ArrayFault();
  Nodes_[n].KeyRef = Texts_.Put("1");
  Nodes_[n].Prefix = KeyPrefix("1");
  Nodes_[n].OrigKeyRef = 0;
  ReleaseExtra(Records_[n]);
  Records_[n] = Packed{};
}

std::string CStringCollection2::Key(std::int32_t index) const {
  if (index < 0 || index > Count_) {
    throw CollectionError(1, "Get Key", "Index: " + std::to_string(index));
  }
  const TreeNode& n = Nodes_[PositionIndexAt(index)];
  return std::string(Texts_.Get(n.OrigKeyRef != 0 ? n.OrigKeyRef : n.KeyRef));
}

std::string_view CStringCollection2::FoldedKey(std::int32_t index) const {
  return Texts_.Get(Nodes_[PositionIndexAt(index)].KeyRef);
}

FileRecord CStringCollection2::Record(std::int32_t index) const {
  FileRecord r;
  ReadInto(Slot(index), r);
  return r;
}

void CStringCollection2::ReadRecord(std::int32_t index, FileRecord& into) const {
  ReadInto(Slot(index), into);
}

void CStringCollection2::SetRecord(std::int32_t index, const FileRecord& rec) {
  Packed& p = Slot(index);
  FillPacked(p, ViewOf(rec));
  p.RecordNumber = rec.RecordNumber;
  p.HashCreated = CreatedBits(rec);
  p.PercentMatch = rec.PercentMatch;
  if (rec.IsReferenceFile) p.Flags |= kFlagReference;
  if (rec.IsMP3) p.Flags |= kFlagMP3;
  if (rec.IsFLAC) p.Flags |= kFlagFLAC;
  if (rec.IsJPG) p.Flags |= kFlagJPG;
  StoreExtra(p, rec);
}

void CStringCollection2::SetFlag(std::int32_t index, std::uint8_t flag, bool v) {
  Packed& p = Slot(index);
  p.Flags = static_cast<std::uint8_t>(v ? (p.Flags | flag) : (p.Flags & ~flag));
}

std::string_view CStringCollection2::NameKey(std::int32_t index) const {
  return Texts_.Get(Slot(index).NameKeyRef);
}
void CStringCollection2::SetNameKey(std::int32_t index, std::string_view v) {
  Packed& p = Slot(index);
  p.NameKeyRef = PutText(p.NameKeyRef, v);
}
void CStringCollection2::SetPath(std::int32_t index, std::string_view v) {
  Slot(index).PathId = Paths_.Intern(v);
}
std::string_view CStringCollection2::Name(std::int32_t index) const {
  return Texts_.Get(Slot(index).NameRef);
}
void CStringCollection2::SetName(std::int32_t index, std::string_view v) {
  // A name key that shares the name's text keeps the old text.
  Packed& p = Slot(index);
  p.NameRef = PutText(p.NameRef, v);
}
void CStringCollection2::SetExtension(std::int32_t index, std::string_view v) {
  Slot(index).ExtId = Exts_.Intern(v);
}

#define KELVOR_EXTRA_SCALAR(Type, Field, Default)                   \
  Type CStringCollection2::Field(std::int32_t index) const {        \
    const Extra* e = ExtraOf(Slot(index));                          \
    return e ? e->Field : Default;                                  \
  }                                                                 \
  void CStringCollection2::Set##Field(std::int32_t index, Type v) { \
    Packed& p = Slot(index);                                        \
    if (p.ExtraId == 0 && v == Default) return;                     \
    EnsureExtra(p).Field = v;                                       \
  }

KELVOR_EXTRA_SCALAR(std::int32_t, PicWidth, -1)
KELVOR_EXTRA_SCALAR(std::int32_t, PicHeight, 0)
KELVOR_EXTRA_SCALAR(std::int32_t, PicFormat, 0)
KELVOR_EXTRA_SCALAR(double, PicRatio, 0.0)
KELVOR_EXTRA_SCALAR(std::int32_t, MP3CutFromStart, 0)
KELVOR_EXTRA_SCALAR(std::int32_t, MP3CutFromEnd, 0)
#undef KELVOR_EXTRA_SCALAR

std::string_view CStringCollection2::PathInsideZip(std::int32_t index) const {
  const Extra* e = ExtraOf(Slot(index));
  return e ? Texts_.Get(e->PathInsideZipRef) : std::string_view{};
}
void CStringCollection2::SetPathInsideZip(std::int32_t index, std::string_view v) {
  Packed& p = Slot(index);
  if (p.ExtraId == 0 && v.empty()) return;
  Extra& e = EnsureExtra(p);
  e.PathInsideZipRef = PutText(e.PathInsideZipRef, v);
}
std::string_view CStringCollection2::ArchiveTempFileNr(std::int32_t index) const {
  const Extra* e = ExtraOf(Slot(index));
  return e ? Texts_.Get(e->ArchiveTempFileNrRef) : std::string_view{};
}
void CStringCollection2::SetArchiveTempFileNr(std::int32_t index, std::string_view v) {
  Packed& p = Slot(index);
  if (p.ExtraId == 0 && v.empty()) return;
  Extra& e = EnsureExtra(p);
  e.ArchiveTempFileNrRef = PutText(e.ArchiveTempFileNrRef, v);
}
std::string_view CStringCollection2::Hash(std::int32_t index) const {
  return Texts_.Get(Slot(index).HashRef);
}
void CStringCollection2::SetHash(std::int32_t index, std::string_view v) {
  Packed& p = Slot(index);
  p.HashCreated =
      static_cast<std::uint8_t>(v.empty() ? (p.HashCreated & ~1u) : (p.HashCreated | 1u));
  p.HashRef = PutText(p.HashRef, v);
}

bool CStringCollection2::HashCreated(std::int32_t index, std::int32_t kind) const {
  CheckKind(kind);
  return (Slot(index).HashCreated >> kind) & 1;
}
void CStringCollection2::SetHashCreated(std::int32_t index, std::int32_t kind, bool v) {
  CheckKind(kind);
  Packed& p = Slot(index);
  const auto bit = static_cast<std::uint8_t>(1u << kind);
  p.HashCreated = static_cast<std::uint8_t>(v ? (p.HashCreated | bit) : (p.HashCreated & ~bit));
}

std::string CStringCollection2::GetFileNameWithExtension(std::int32_t index) const {
  std::string s(Name(index));
  const std::string_view ext = Extension(index);
  if (!ext.empty()) {
    s.push_back('.');
    s.append(ext);
  }
  return s;
}

void CStringCollection2::AppendPathWithFileName(std::int32_t index, std::string& out) const {
  const Packed& p = Slot(index);
  out.append(Paths_.Get(p.PathId));
  out.push_back('/');
  out.append(Texts_.Get(p.NameRef));
  const std::string_view ext = Exts_.Get(p.ExtId);
  if (!ext.empty()) {
    out.push_back('.');
    out.append(ext);
  }
}

std::string CStringCollection2::GetPathWithFileName(std::int32_t index) const {
  std::string s;
  AppendPathWithFileName(index, s);
  return s;
}

void CStringCollection2::SetHashArraySize(std::int32_t index, std::int32_t kind,
                                          std::int32_t size) {
  if (kind < 0 || kind > 7) return;
  Packed& p = Slot(index);
  if (size < 0) {
    Extra* e = p.ExtraId ? Extras_[p.ExtraId - 1].get() : nullptr;
    if (e && e->Arr) e->Arr->HashArray[kind].clear();
    return;
  }
  EnsureExtra(p).MutArrays().HashArray[kind].assign(static_cast<std::size_t>(size) + 1, 0);
}

std::vector<std::uint8_t> CStringCollection2::HashArray(std::int32_t index,
                                                        std::int32_t kind) const {
  CheckKind(kind);
  const Extra* e = ExtraOf(Slot(index));
  return e ? e->HashArray(kind) : std::vector<std::uint8_t>{};
}

std::span<const std::uint8_t> CStringCollection2::HashArrayView(std::int32_t index,
                                                                std::int32_t kind) const {
  CheckKind(kind);
  const Extra* e = ExtraOf(Slot(index));
  if (!e) return {};
  const std::vector<std::uint8_t>& a = e->HashArray(kind);
  return {a.data(), a.size()};
}

void CStringCollection2::SetHashArray(std::int32_t index, std::int32_t kind,
                                      std::vector<std::uint8_t> v) {
  CheckKind(kind);
  Packed& p = Slot(index);
  if (p.ExtraId == 0 && v.empty()) return;
  EnsureExtra(p).MutArrays().HashArray[kind] = std::move(v);
}

std::uint8_t CStringCollection2::HashArrayItem(std::int32_t index, std::int32_t kind,
                                               std::int32_t pos) const {
  CheckKind(kind);
  const Extra* e = ExtraOf(Slot(index));
  if (!e || pos < 0 || static_cast<std::size_t>(pos) >= e->HashArray(kind).size()) ArrayFault();
  return e->HashArray(kind)[pos];
}

void CStringCollection2::SetHashArrayItem(std::int32_t index, std::int32_t kind, std::int32_t pos,
                                          std::uint8_t v) {
  CheckKind(kind);
  Packed& p = Slot(index);
  Extra* e = p.ExtraId ? Extras_[p.ExtraId - 1].get() : nullptr;
  if (!e || pos < 0 || static_cast<std::size_t>(pos) >= e->HashArray(kind).size()) ArrayFault();
  e->Arr->HashArray[kind][pos] = v;
}

void CStringCollection2::SetHashAudioArraySize(std::int32_t index, std::int32_t size) {
  Packed& p = Slot(index);
  if (size < 0) {
    Extra* e = p.ExtraId ? Extras_[p.ExtraId - 1].get() : nullptr;
    if (e && e->Arr) e->Arr->HashAudioArray.clear();
    return;
  }
  EnsureExtra(p).MutArrays().HashAudioArray.assign(static_cast<std::size_t>(size) + 1, 0);
}

std::vector<std::uint64_t> CStringCollection2::HashAudioArray(std::int32_t index) const {
  const Extra* e = ExtraOf(Slot(index));
  return e ? e->HashAudioArray() : std::vector<std::uint64_t>{};
}

void CStringCollection2::SetHashAudioArray(std::int32_t index, std::vector<std::uint64_t> v) {
  Packed& p = Slot(index);
  if (p.ExtraId == 0 && v.empty()) return;
  EnsureExtra(p).MutArrays().HashAudioArray = std::move(v);
}

std::uint64_t CStringCollection2::HashAudioArrayItem(std::int32_t index, std::int32_t pos) const {
  const Extra* e = ExtraOf(Slot(index));
  if (!e || pos < 0 || static_cast<std::size_t>(pos) >= e->HashAudioArray().size()) ArrayFault();
  return e->HashAudioArray()[pos];
}

void CStringCollection2::SetHashAudioArrayItem(std::int32_t index, std::int32_t pos,
                                               std::uint64_t v) {
  Packed& p = Slot(index);
  Extra* e = p.ExtraId ? Extras_[p.ExtraId - 1].get() : nullptr;
  if (!e || pos < 0 || static_cast<std::size_t>(pos) >= e->HashAudioArray().size()) ArrayFault();
  e->Arr->HashAudioArray[pos] = v;
}

std::string CStringCollection2::GetHardlinkIDkey(std::int32_t index, bool withoutVolume) const {
  const Packed& p = Slot(index);
  if (withoutVolume) return fmt::format("{}|{}", p.FileIndexHigh, p.FileIndexLow);
  return fmt::format("{}|{}|{}", p.VolumeSerialNumber, p.FileIndexHigh, p.FileIndexLow);
}

std::string CStringCollection2::GetHardlinkIDkeyFormatted(std::int32_t index,
                                                          bool withoutVolume) const {
  const Packed& p = Slot(index);
  if (withoutVolume) return Hex32(p.FileIndexHigh) + "|" + Hex32(p.FileIndexLow);
  return Hex32(p.VolumeSerialNumber) + "|" + Hex32(p.FileIndexHigh) + "|" + Hex32(p.FileIndexLow);
}

std::size_t CStringCollection2::MemoryBytes() const {
  std::size_t bytes = Nodes_.BytesHeld() + Records_.BytesHeld() +
                      PositionIndex_.capacity() * sizeof(std::int32_t) +
                      static_cast<std::size_t>(Allocator_.UpperBound() + 1) * sizeof(std::int32_t) +
                      Texts_.BytesReserved();
  bytes += Extras_.capacity() * sizeof(void*) + FreeExtras_.capacity() * sizeof(std::uint32_t);
  for (const auto& e : Extras_) {
    if (!e) continue;
    bytes += sizeof(Extra);
    if (!e->Arr) continue;
    bytes += sizeof(Extra::Arrays) + e->Arr->HashAudioArray.capacity() * sizeof(std::uint64_t);
    for (const auto& a : e->Arr->HashArray) bytes += a.capacity();
  }
  // Interner maps: a node and a bucket per distinct text, roughly.
  bytes += (Paths_.Size() + Exts_.Size()) * (sizeof(std::string_view) * 2 + 32);
  return bytes;
}

// ---------------------------------------------------------------------------
// Record-by-value forms

std::string GetHardlinkIDkey(const FileRecord& r, bool withoutVolume) {
  if (withoutVolume) return fmt::format("{}-{}", r.FileIndexHigh, r.FileIndexLow);
  return fmt::format("{}-{}-{}", Abs64(r.VolumeSerialNumber), r.FileIndexHigh, r.FileIndexLow);
}

std::string GetHardlinkIDkeyFormatted(const FileRecord& r, bool withoutVolume) {
  if (withoutVolume) return Hex32(r.FileIndexHigh) + "-" + Hex32(r.FileIndexLow);
  return HexAbs(r.VolumeSerialNumber) + "-" + Hex32(r.FileIndexHigh) + "-" + Hex32(r.FileIndexLow);
}

std::string GetFileNameWithExtension(const FileRecord& r) {
  std::string s = r.Name;
  if (r.ExtensionLength() > 0) {
    s.push_back('.');
    s.append(r.Extension);
  }
  return s;
}

std::string GetPathWithFileName(const FileRecord& r) {
  std::string s;
  s.reserve(r.Path.size() + r.Name.size() + r.Extension.size() + 2);
  s.append(r.Path);
  s.push_back('/');
  s.append(GetFileNameWithExtension(r));
  return s;
}

}  // namespace kelvor
