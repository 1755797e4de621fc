#pragma once
// Row storage of the result model: the root, group and file rows with their
// fields, the interned folder texts, and the map between row indices and
// storage slots. Internal to results/; callers use ResultModel.
//
// Groups live in one vector of slots, each with its own vector of file rows;
// a removed row leaves a dead slot behind. Two levels of Fenwick trees (over
// the groups' row counts, and inside a group with holes over its live files)
// map a row index to its slot and back in O(log n), so a bulk removal walking
// from the last row to the first costs O(n log n) in all, and adding a file
// to any group during a search is an append. Compact() drops the dead slots.
//
// A file row is the hot structure (up to millions of them): fixed fields
// inline, folder and other repeated texts as ids into the string pool, and
// the cells most rows never have in a side record allocated on first write.

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "results/fenwick.h"
#include "results/result_model.h"

namespace kelvor::result_detail {

// Cells under keys the model does not know, kept per row in the order set.
using Overflow = std::vector<std::pair<std::string, CellValue>>;
CellValue* FindOverflow(Overflow* o, std::string_view key);
const CellValue* FindOverflow(const Overflow* o, std::string_view key);
void PutOverflow(Overflow& o, std::string_view key, const CellValue& v);

// The bit of a cell key in a row's `present` mask.
inline std::uint64_t CellBit(CellKey k) {
  return std::uint64_t{1} << static_cast<unsigned>(k);
}
static_assert(kCellKeyCount <= 64,
              "the present mask holds one bit per cell key: widen FileRow/GroupRow::present");

// Interned texts: equal texts share one id; id 0 is "".
class StringPool {
 public:
  std::uint32_t Intern(std::string_view s);
  std::string_view Get(std::uint32_t id) const {
    return id < pool_.size() ? std::string_view(pool_[id]) : std::string_view();
  }
  std::size_t Size() const { return pool_.size(); }

 private:
  std::deque<std::string> pool_{std::string()};
  std::unordered_map<std::string_view, std::uint32_t> index_{{std::string_view(), 0}};
};

// The cells most file rows never have, kept apart so that a plain row stays
// small.
struct FileDetails {
  std::uint32_t owner = 0;
  std::uint32_t thumb = 0;
  std::int32_t audioDur = 0, picW = 0, picH = 0;
  double audioBitrate = 0, audioSamplingrate = 0;
  Overflow extra;
};

struct GroupDetails {
  std::string dateG;
  std::string attr2;
  Overflow extra;
};

// M() gives the side record for writing (made on first use), C() for reading
// (a shared empty one when the row has none).
struct FileRow {
  std::string name;  // dupname, also the caption
  std::uint32_t folder = 0;
  std::uint32_t folderA = 0;
  std::uint32_t tmp = 0;
  std::uint32_t hardlinkID = 0;
  std::int64_t size = 0;
  double dateVal = 0, dateEval = 0;
  std::uint64_t present = 0;  // CellBit of every cell the row holds
  // A whole percentage (0 to 100): a float holds it exactly, and keeps the
  // row within its size beside the 64-bit mask.
  float similar = 0;
  std::int32_t qnr = 0, attr = 0, hardlinks = 0;
  std::int32_t back = kColorWhite, text = 0;
  std::uint8_t archiv = 0, getFileInfo = 0;
  std::int8_t check = 0;
  bool isRef = false;
  bool alive = true;
  std::unique_ptr<FileDetails> more;

  FileDetails& M() {
    if (!more) more = std::make_unique<FileDetails>();
    return *more;
  }
  const FileDetails& C() const;
};

// Up to millions of file rows: do not let a new cell grow every row (rare
// cells go to FileDetails). 120 bytes on 64-bit with libstdc++.
static_assert(sizeof(void*) != 8 || sizeof(FileRow) <= 120, "FileRow grew");

struct GroupRow {
  std::string title;  // dupname
  std::vector<FileRow> files;
  Fenwick fen;  // live flags of the files; empty while the group has no holes
  std::int32_t live = 0;
  std::int64_t size = 0, sizeG = 0;
  std::int32_t anz = 0, sel = 0;
  double dateVal = 0, dateEval = 0;
  std::int32_t back = kColorWhite, text = 0;
  std::uint64_t present = 0;
  std::int8_t check = 0;
  bool expanded = false;
  bool alive = true;
  std::unique_ptr<GroupDetails> more;

  GroupDetails& M() {
    if (!more) more = std::make_unique<GroupDetails>();
    return *more;
  }
  const GroupDetails& C() const;
};

// The root row ("Suchergebnis"): its cells are anz, size and desc.
struct RootRow {
  bool exists = false;
  bool expanded = true;
  std::string caption;
  std::string desc;  // the search description
  std::int64_t anz = 0, size = 0;
  Overflow extra;
};

class RowStore {
 public:
  RootRow root;
  StringPool pool;

  // Group slots, dead ones included (check GroupRow::alive).
  std::size_t SlotCount() const { return groups_.size(); }
  GroupRow& Slot(std::size_t i) { return groups_[i]; }
  const GroupRow& Slot(std::size_t i) const { return groups_[i]; }
  int LiveGroups() const { return liveGroups_; }

  // The live group of a slot, or of a row's slot; null when dead or unknown.
  const GroupRow* Group(RowRef r) const;
  GroupRow* Group(RowRef r) {
    return const_cast<GroupRow*>(static_cast<const RowStore*>(this)->Group(r));
  }
  // The live file row of `r`; null when dead, unknown or not a file.
  const FileRow* File(RowRef r) const;
  FileRow* File(RowRef r) {
    return const_cast<FileRow*>(static_cast<const RowStore*>(this)->File(r));
  }

  // Rows below the root: live groups and their live files.
  int RowsBelowRoot() const { return static_cast<int>(rows_.Total()); }
  // The row at display index `index` >= 1 (0 is the root); {-1,-2} beyond.
  RowRef ByIndex(int index) const;
  // The display index of a live group or file row.
  int IndexOf(RowRef r) const;
  // The n-th live group, and the n-th live file of a group (n in range).
  RowRef NthGroup(int n) const;
  RowRef NthFile(RowRef group, int n) const;

  // A new group slot at the end; returns its number.
  int AddGroup();
  // A new file row at the end of a live group.
  RowRef AddFile(int group);
  // Counts `n` file rows that were put into the group's slot directly (a
  // loaded branch).
  void AddFileRows(int group, std::int64_t n) { rows_.Add(static_cast<std::size_t>(group), n); }
  // Room for `n` group slots.
  void ReserveGroups(std::size_t n) {
    groups_.reserve(n);
    rows_.Reserve(n);
    alive_.Reserve(n);
  }
  // Marks a file row or a whole group dead, in O(log n).
  void RemoveFile(RowRef file);
  void RemoveGroup(int group);
  // Drops the dead slots (invalidates handles and group numbers).
  void Compact();
  // Groups by title ascending (or by sizeG, descending, when `groupsBySize`),
  // files by name ascending, both without regard to case; compacts.
  void Sort(bool groupsBySize);

 private:
  int LiveFilePos(const GroupRow& g, int file) const;
  int FileSlotAt(const GroupRow& g, int pos) const;

  std::vector<GroupRow> groups_;
  Fenwick rows_;   // per group slot: 1 + live files, 0 when removed
  Fenwick alive_;  // per group slot: 1 live, 0 removed
  int liveGroups_ = 0;
};

}  // namespace kelvor::result_detail
