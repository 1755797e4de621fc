#pragma once
// CStringCollection2: the files of one search run, one FileRecord per
// comparison key. It is the keyed collection (red-black tree in flat arrays,
// position index, CNode free list, growth by 1.5) with a record beside each
// node, built to hold millions of files:
//
//  - keys are folded to lower case once, on Add, and stored folded; lookups
//    compare the folded search key with the stored folded keys, so keys that
//    differ only in case meet. The key as given is kept only where it differs.
//  - a lookup makes no heap allocation (a reused buffer folds the search key).
//  - texts live in an append-only arena with 32-bit references; folders and
//    extensions are stored once and shared by number.
//  - the rarely used fields (archive member data, checksum, picture and audio
//    hashes, picture dimensions, Exif cut sizes) sit in a side table that a
//    record gets only when one of them is set.
//
// Positions and node numbers are the same value until the first Remove,
// because Add only appends; the engine relies on this and passes a record's
// RecordNumber where a position is asked for. Properties by position go
// through the position index without testing against Count: a position
// within the capacity but behind Count reads the empty slot 0; a position
// outside 1..capacity+1 is an array fault (CollectionError 9).

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/chunked_array.h"
#include "data/file_record.h"
#include "data/string_arena.h"
#include "data/string_collection.h"

namespace kelvor {

// The fields of a new record as the scan has them, without owning strings.
struct FileRecordView {
  std::int32_t SourceNr = 0;
  std::int32_t GroupID = -1;
  bool HaveErrorMessage = false;
  std::string_view NameKey;
  std::int64_t SizeKey = 0;
  std::string_view Path;
  std::string_view Name;
  std::string_view Extension;
  std::int64_t SIZE = 0;
  std::int32_t Attributes = 0;
  double DateLastModified = 0;
  double DateCreated = 0;
  std::uint8_t ArchiveType = 0;
  std::string_view PathInsideZip;
  std::int32_t MP3CutFromStart = 0;
  std::int32_t MP3CutFromEnd = 0;
  std::int32_t ExifCutFromStart = 0;
  std::int32_t ExifCutFromEnd = 0;
  std::int32_t VolumeSerialNumber = 0;
  std::int32_t FileIndexHigh = 0;
  std::int32_t FileIndexLow = 0;
  std::int32_t NumberOfLinks = 0;
  std::uint64_t WalkDevice = 0;
  std::uint64_t WalkInode = 0;
};

class CStringCollection2 {
 public:
  double Growth = 1.5;
  std::int32_t InitialSize = 100;

  CStringCollection2();
  ~CStringCollection2();
  CStringCollection2(const CStringCollection2&) = delete;
  CStringCollection2& operator=(const CStringCollection2&) = delete;

  void Init(std::int32_t size, double growth);
  // Drops everything; the next Add initialises again. Returns 0.
  std::int32_t Clear();
  std::int32_t Count() const { return Count_; }
  bool Initialised() const { return Initialised_; }

  // Adds the record under `key` unless the key (compared without case) is
  // there already. Returns the new node number, whose record carries it as
  // RecordNumber; or 0, and then *found (when given) is a copy of the record
  // that holds the key and *foundNode its node number. A found record is a
  // copy: changes reach the collection only through SetRecord.
  std::int32_t Add(std::string_view key, const FileRecord& rec, FileRecord* found = nullptr,
                   std::int32_t* foundNode = nullptr);
  std::int32_t Add(std::string_view key, const FileRecordView& rec, FileRecord* found = nullptr,
                   std::int32_t* foundNode = nullptr);

  // Node number of a key (without case), 0 when missing (ExistKey).
  std::int32_t Find(std::string_view key) const;
  std::int32_t ExistKey(std::string_view key) const { return Find(key); }

  // Removes the entry at a position; returns that position, 0 when the
  // position holds no entry. With two children the successor's key and whole
  // record (RecordNumber included) move into the removed entry's node.
  std::int32_t Remove(std::int32_t index);
  // Overwrites the key of the node slot below `slot` with "1" and resets that
  // slot's record.
  void RemoveBeforeClear(std::int32_t slot);

  // The key at a position as it was given (error 1 "Get Key" when the index
  // is below 0 or above Count).
  std::string Key(std::int32_t index) const;
  // The folded key at a position.
  std::string_view FoldedKey(std::int32_t index) const;

  // Whole-record copy out of and into the slot of a position.
  FileRecord Record(std::int32_t index) const;
  // The same copy into a record kept by the caller, whose strings keep their
  // buffers: no allocation per call once they are large enough.
  void ReadRecord(std::int32_t index, FileRecord& into) const;
  void SetRecord(std::int32_t index, const FileRecord& rec);

  // --- properties by position ---
  std::int32_t RecordNumber(std::int32_t index) const { return Slot(index).RecordNumber; }
  std::int32_t SourceNr(std::int32_t index) const { return Slot(index).SourceNr; }
  void SetSourceNr(std::int32_t index, std::int32_t v) { Slot(index).SourceNr = v; }
  std::int32_t GroupID(std::int32_t index) const { return Slot(index).GroupID; }
  void SetGroupID(std::int32_t index, std::int32_t v) { Slot(index).GroupID = v; }
  bool HaveErrorMessage(std::int32_t index) const { return Slot(index).Flags & kFlagError; }
  void SetHaveErrorMessage(std::int32_t index, bool v) { SetFlag(index, kFlagError, v); }
  std::string_view NameKey(std::int32_t index) const;
  void SetNameKey(std::int32_t index, std::string_view v);
  std::int64_t SizeKey(std::int32_t index) const { return Slot(index).SizeKey; }
  void SetSizeKey(std::int32_t index, std::int64_t v) { Slot(index).SizeKey = v; }
  std::string_view Path(std::int32_t index) const { return Paths_.Get(Slot(index).PathId); }
  void SetPath(std::int32_t index, std::string_view v);
  std::string_view Name(std::int32_t index) const;
  void SetName(std::int32_t index, std::string_view v);
  std::string_view Extension(std::int32_t index) const { return Exts_.Get(Slot(index).ExtId); }
  void SetExtension(std::int32_t index, std::string_view v);
  std::int32_t ExtensionLength(std::int32_t index) const {
    return static_cast<std::int32_t>(Extension(index).size());
  }
  std::int64_t SIZE(std::int32_t index) const { return Slot(index).SIZE; }
  void SetSIZE(std::int32_t index, std::int64_t v) { Slot(index).SIZE = v; }
  std::int32_t Attributes(std::int32_t index) const { return Slot(index).Attributes; }
  void SetAttributes(std::int32_t index, std::int32_t v) { Slot(index).Attributes = v; }
  double DateLastModified(std::int32_t index) const { return Slot(index).DateLastModified; }
  void SetDateLastModified(std::int32_t index, double v) { Slot(index).DateLastModified = v; }
  double DateCreated(std::int32_t index) const { return Slot(index).DateCreated; }
  void SetDateCreated(std::int32_t index, double v) { Slot(index).DateCreated = v; }
  std::int32_t PicWidth(std::int32_t index) const;
  void SetPicWidth(std::int32_t index, std::int32_t v);
  std::int32_t PicHeight(std::int32_t index) const;
  void SetPicHeight(std::int32_t index, std::int32_t v);
  std::int32_t PicFormat(std::int32_t index) const;
  void SetPicFormat(std::int32_t index, std::int32_t v);
  double PicRatio(std::int32_t index) const;
  void SetPicRatio(std::int32_t index, double v);
  std::uint8_t ArchiveType(std::int32_t index) const { return Slot(index).ArchiveType; }
  void SetArchiveType(std::int32_t index, std::uint8_t v) { Slot(index).ArchiveType = v; }
  std::string_view PathInsideZip(std::int32_t index) const;
  void SetPathInsideZip(std::int32_t index, std::string_view v);
  std::string_view ArchiveTempFileNr(std::int32_t index) const;
  void SetArchiveTempFileNr(std::int32_t index, std::string_view v);
  std::int32_t MP3CutFromStart(std::int32_t index) const;
  void SetMP3CutFromStart(std::int32_t index, std::int32_t v);
  std::int32_t MP3CutFromEnd(std::int32_t index) const;
  void SetMP3CutFromEnd(std::int32_t index, std::int32_t v);
  // Content checksum; setting it sets HashCreated(kind 0) to !empty.
  std::string_view Hash(std::int32_t index) const;
  void SetHash(std::int32_t index, std::string_view v);
  // Kind 0..7; a kind outside is an array fault.
  bool HashCreated(std::int32_t index, std::int32_t kind) const;
  void SetHashCreated(std::int32_t index, std::int32_t kind, bool v);
  std::uint8_t PercentMatch(std::int32_t index) const { return Slot(index).PercentMatch; }
  void SetPercentMatch(std::int32_t index, std::uint8_t v) { Slot(index).PercentMatch = v; }
  bool IsReferenceFile(std::int32_t index) const { return Slot(index).Flags & kFlagReference; }
  void SetIsReferenceFile(std::int32_t index, bool v) { SetFlag(index, kFlagReference, v); }
  bool IsMP3(std::int32_t index) const { return Slot(index).Flags & kFlagMP3; }
  void SetIsMP3(std::int32_t index, bool v) { SetFlag(index, kFlagMP3, v); }
  bool IsFLAC(std::int32_t index) const { return Slot(index).Flags & kFlagFLAC; }
  void SetIsFLAC(std::int32_t index, bool v) { SetFlag(index, kFlagFLAC, v); }
  bool IsJPG(std::int32_t index) const { return Slot(index).Flags & kFlagJPG; }
  void SetIsJPG(std::int32_t index, bool v) { SetFlag(index, kFlagJPG, v); }
  std::int32_t VolumeSerialNumber(std::int32_t index) const {
    return Slot(index).VolumeSerialNumber;
  }
  void SetVolumeSerialNumber(std::int32_t index, std::int32_t v) {
    Slot(index).VolumeSerialNumber = v;
  }
  std::int32_t FileIndexHigh(std::int32_t index) const { return Slot(index).FileIndexHigh; }
  void SetFileIndexHigh(std::int32_t index, std::int32_t v) { Slot(index).FileIndexHigh = v; }
  std::int32_t FileIndexLow(std::int32_t index) const { return Slot(index).FileIndexLow; }
  void SetFileIndexLow(std::int32_t index, std::int32_t v) { Slot(index).FileIndexLow = v; }
  std::int32_t NumberOfLinks(std::int32_t index) const { return Slot(index).NumberOfLinks; }
  void SetNumberOfLinks(std::int32_t index, std::int32_t v) { Slot(index).NumberOfLinks = v; }

  // --- name builders ---
  // Name, and "." + Extension when there is one.
  std::string GetFileNameWithExtension(std::int32_t index) const;
  // Path + "/" + name with extension: the path below the source folder.
  std::string GetPathWithFileName(std::int32_t index) const;
  // Appends GetPathWithFileName to out (no allocation when out has room).
  void AppendPathWithFileName(std::int32_t index, std::string& out) const;

  // --- hash arrays ---
  // Gives HashArray of `kind` the bounds 0..size (size + 1 bytes, zero);
  // a kind outside 0..7 does nothing.
  void SetHashArraySize(std::int32_t index, std::int32_t kind, std::int32_t size);
  std::vector<std::uint8_t> HashArray(std::int32_t index, std::int32_t kind) const;
  // The array in place, for comparing without a copy; valid until the
  // record's hash arrays change.
  std::span<const std::uint8_t> HashArrayView(std::int32_t index, std::int32_t kind) const;
  void SetHashArray(std::int32_t index, std::int32_t kind, std::vector<std::uint8_t> v);
  std::uint8_t HashArrayItem(std::int32_t index, std::int32_t kind, std::int32_t pos) const;
  void SetHashArrayItem(std::int32_t index, std::int32_t kind, std::int32_t pos, std::uint8_t v);
  void SetHashAudioArraySize(std::int32_t index, std::int32_t size);
  std::vector<std::uint64_t> HashAudioArray(std::int32_t index) const;
  void SetHashAudioArray(std::int32_t index, std::vector<std::uint64_t> v);
  std::uint64_t HashAudioArrayItem(std::int32_t index, std::int32_t pos) const;
  void SetHashAudioArrayItem(std::int32_t index, std::int32_t pos, std::uint64_t v);

  // --- identity keys ("|" joined; volume, high, low or high, low) ---
  std::string GetHardlinkIDkey(std::int32_t index, bool withoutVolume) const;
  std::string GetHardlinkIDkeyFormatted(std::int32_t index, bool withoutVolume) const;

  // --- capacity, for tests and memory reports ---
  std::int32_t NodesUpperBound() const { return static_cast<std::int32_t>(Nodes_.size()) - 1; }
  std::int32_t RecordsUpperBound() const { return static_cast<std::int32_t>(Records_.size()) - 1; }
  std::int32_t PositionIndexUpperBound() const {
    return PositionIndex_.empty() ? 0 : static_cast<std::int32_t>(PositionIndex_.size()) - 1;
  }
  std::int32_t NodeAtPosition(std::int32_t position) const;
  // Bytes held by the arrays, the text arena and the side tables.
  std::size_t MemoryBytes() const;

  // Tree access for the repair steps.
  std::int32_t& L(std::int32_t n) { return Nodes_[n].Left; }
  std::int32_t& R(std::int32_t n) { return Nodes_[n].Right; }
  std::int32_t& P(std::int32_t n) { return Nodes_[n].Parent; }
  bool Red(std::int32_t n) const { return Nodes_[n].Color != 0; }
  void SetRed(std::int32_t n, bool red) { Nodes_[n].Color = (red && n != 0) ? 1 : 0; }
  std::int32_t& RootRef() { return Root_; }

 private:
  enum : std::uint8_t {
    kFlagError = 1,
    kFlagReference = 2,
    kFlagMP3 = 4,
    kFlagFLAC = 8,
    kFlagJPG = 16,
  };

  struct TreeNode {
    // The first 8 bytes of the folded key, big-endian and zero-padded: most
    // comparisons of a tree walk end here without touching the arena.
    std::uint64_t Prefix = 0;
    std::int32_t Left = 0;
    std::int32_t Right = 0;
    std::int32_t Parent = 0;
    std::uint32_t KeyRef = 0;      // folded key in the arena
    std::uint32_t OrigKeyRef = 0;  // key as given, 0 when equal to the folded one
    std::int32_t Color = 0;        // 1 red, 0 black
  };

  // The fixed fields of one record.
  struct Packed {
    std::int64_t SizeKey = 0;
    std::int64_t SIZE = 0;
    double DateLastModified = 0;
    double DateCreated = 0;
    std::uint64_t WalkDevice = 0;
    std::uint64_t WalkInode = 0;
    std::uint32_t PathId = 0;  // interned folder
    std::uint32_t NameRef = 0;
    std::uint32_t ExtId = 0;  // interned extension
    std::uint32_t NameKeyRef = 0;
    std::int32_t RecordNumber = 0;
    std::int32_t SourceNr = 0;
    std::int32_t GroupID = -1;
    std::int32_t Attributes = 0;
    std::int32_t VolumeSerialNumber = 0;
    std::int32_t FileIndexHigh = 0;
    std::int32_t FileIndexLow = 0;
    std::int32_t NumberOfLinks = 0;
    std::uint32_t ExtraId = 0;  // 0: no side record
    std::uint32_t HashRef = 0;  // content checksum in the arena
    std::uint8_t ArchiveType = 0;
    std::uint8_t PercentMatch = 0;
    std::uint8_t HashCreated = 0;  // bit per kind
    std::uint8_t Flags = 0;
  };

  // The rare fields, made when one of them is set.
  struct Extra {
    std::uint32_t PathInsideZipRef = 0;
    std::uint32_t ArchiveTempFileNrRef = 0;
    std::int32_t MP3CutFromStart = 0;
    std::int32_t MP3CutFromEnd = 0;
    std::int32_t PicWidth = -1;
    std::int32_t PicHeight = 0;
    std::int32_t PicFormat = 0;
    double PicRatio = 0;
    std::int32_t ExifCutFromStart = 0;
    std::int32_t ExifCutFromEnd = 0;
    // Picture and audio hashes, made only for the records that get one: a
    // record that only has a checksum keeps its side record small.
    struct Arrays {
      std::array<std::vector<std::uint8_t>, 8> HashArray;
      std::vector<std::uint64_t> HashAudioArray;
    };
    std::unique_ptr<Arrays> Arr;
    const std::vector<std::uint8_t>& HashArray(std::int32_t kind) const;
    const std::vector<std::uint64_t>& HashAudioArray() const;
    Arrays& MutArrays() {
      if (!Arr) Arr = std::make_unique<Arrays>();
      return *Arr;
    }
    bool IsEmpty() const;
  };

  std::int32_t PositionIndexAt(std::int32_t position) const;
  Packed& Slot(std::int32_t index) { return Records_[PositionIndexAt(index)]; }
  const Packed& Slot(std::int32_t index) const { return Records_[PositionIndexAt(index)]; }
  void SetFlag(std::int32_t index, std::uint8_t flag, bool v);
  const Extra* ExtraOf(const Packed& p) const {
    return p.ExtraId == 0 ? nullptr : Extras_[p.ExtraId - 1].get();
  }
  Extra& EnsureExtra(Packed& p);
  void ReleaseExtra(Packed& p);
  // Stores a text, reusing `old` when the text is the same.
  std::uint32_t PutText(std::uint32_t old, std::string_view s);
  // Stores the rare fields of a full record (or drops them when all default).
  void StoreExtra(Packed& p, const FileRecord& rec);
  void FillPacked(Packed& p, const FileRecordView& v);
  void ReadInto(const Packed& p, FileRecord& out) const;
  std::string_view Fold(std::string_view key) const;
  // Order of a folded search key (with its prefix) against a node's key.
  int CompareKey(std::string_view search, std::uint64_t prefix, std::int32_t node) const {
    const TreeNode& n = Nodes_[node];
    if (prefix != n.Prefix) return prefix < n.Prefix ? -1 : 1;
    return search.compare(Texts_.Get(n.KeyRef));
  }
  std::int32_t AddImpl(std::string_view key, const FileRecordView& v, const FileRecord* full,
                       FileRecord* found, std::int32_t* foundNode);
  std::int32_t GetIndex(std::int32_t node) const;

  ChunkedArray<TreeNode> Nodes_;
  ChunkedArray<Packed> Records_;
  std::int32_t Root_ = 0;
  CNode Allocator_;
  bool Initialised_ = false;
  std::int32_t Count_ = 0;
  std::vector<std::int32_t> PositionIndex_;

  StringArena Texts_;
  StringInterner Paths_{&Texts_};
  StringInterner Exts_{&Texts_};
  std::vector<std::unique_ptr<Extra>> Extras_;
  std::vector<std::uint32_t> FreeExtras_;
  mutable std::string FoldBuffer_;  // reused for every lookup
};

}  // namespace kelvor
