#pragma once
// The result model: the tree of duplicates a search leaves behind.
//
//   row 0            root ("Suchergebnis"), level 0
//   group rows       level 1, one per set of duplicates
//   file rows        level 2, the files of a group
//
// Row indices run from 0 in display order over all rows, expanded or not,
// exactly as the grid shows them. They are the public address of a row (the
// undo history keeps them), and they shift only when rows are removed or the
// tree is sorted.
//
// Storage (result_rows.*). Groups live in one vector of slots, each with its
// own vector of file rows; a removed row leaves a dead slot behind. Two levels
// of Fenwick trees (fenwick.h) map a row index to its slot and back in
// O(log n), so a bulk removal walking from the last row to the first costs
// O(n log n) in all, and adding a file to any group during a search is an
// append. Compact() drops the dead slots; it runs after bulk walks, before
// sorting and on demand.
//
// RowRef is the cheap handle of a row (group slot, file slot). Handles and
// group numbers stay valid across removals and are invalidated by Compact(),
// SortRows() and Clear(). Code that holds rows across those uses indices.
//
// Cells (result_cells.*). Every cell of the tables of the result model is a
// typed field of the row, reached by its CellKey (or by its key text through
// CellKeyFromName); one table describes each key once, with how the root,
// group and file rows read and write it. Keys the model does not know (rare:
// saved results from other versions) land in a small per-row overflow list
// that is only allocated when used. The formatted twins ("date", "dateE",
// "attr2", "AudioDuration") are made from their numeric fields when read,
// with the model's date format.
//
// Group titles for every GroupTitleMode are in group_titles.*; counters,
// marks and removals in result_model.cpp; size and date forms in
// result_format.cpp; colours in result_colors.cpp.
//
// Paths. A file row's "path" holds the FULL folder of the file: the source
// folder joined with FileRecord::Path, so for an archive member the full path
// of the archive. File_GetPathFromNode gives path + "/" + dupname. Folder
// texts are interned: files of one folder share one string.
//
// Sizes are bytes in 64-bit integers. (Saved results keep the counters in
// fixed point with four decimals; the saver scales by 10,000.)
//
// The model is plain C++ and single-threaded: the search worker fills it and
// hands it over at the end of the run.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "data/file_record.h"

namespace kelvor {

class TextCatalog;
class SettingsStore;
struct RunState;
struct BranchTexts;

namespace result_detail {
class RowStore;
struct GroupRow;
struct FileRow;
}  // namespace result_detail

// ---------------------------------------------------------------------------
// Constants

enum RowLevel : std::int32_t { kLevelRoot = 0, kLevelGroup = 1, kLevelFile = 2 };

enum CheckState : std::int32_t { kCheckNone = 0, kCheckMarked = 1, kCheckPartly = 2 };

inline constexpr std::int32_t kColorWhite = 16777215;  // back colour of an unmarked row

// SizeFormat values (commands 34..37, settings key "FormatSize").
enum SizeFormat : std::int32_t {
  kSizeBytes = 0,
  kSizeKB = 1,
  kSizeMB = 2,
  kSizeGB = 3,
  kSizeEmpty = 4,  // the value is left empty
  kSizeTB = 5,
};

// Bits of the "GetFileInfo" cell: which lazily read details are present.
enum GetFileInfoBits : std::uint8_t {
  kInfoOwner = 1,
  kInfoAudio = 2,
  kInfoPicture = 4,
  kInfoHardlink = 8,
};

// Every cell key the model knows. Group and file rows share keys of the same
// name ("size", "dupname", ...), with the meaning of their level.
enum class CellKey : std::uint8_t {
  anz,
  size,
  desc,
  sizeG,
  dupname,
  dateG,
  dateVal,
  dateEval,
  date,
  dateE,
  attr2,
  Sel,
  archiv,
  tmppath,
  qnr,
  path,
  pathA,
  attr,
  owner,
  AudioDurationVal,
  AudioDuration,
  AudioBitrate,
  AudioSamplingrate,
  picW,
  picH,
  hardlinks,
  hardlinkID,
  similar,
  IsRefFile,
  thumbnailpath,
  GetFileInfo,
  kCount
};
inline constexpr int kCellKeyCount = static_cast<int>(CellKey::kCount);

// The key text of a cell ("dupname"), and back; false for an unknown text.
std::string_view CellKeyName(CellKey k);
bool CellKeyFromName(std::string_view name, CellKey* k);

// A cell's value: empty when the row does not hold the cell.
using CellValue = std::variant<std::monostate, std::int64_t, double, std::string>;
// Numbers from cells: an empty cell reads as 0, text is converted.
double CellAsDouble(const CellValue& v);
std::int64_t CellAsInt(const CellValue& v);
std::string CellAsText(const CellValue& v);

// ---------------------------------------------------------------------------
// Options of one result, set at the start of a search (from the engine's
// options record) or by loading a saved result.

struct ResultColors {
  std::int32_t SelectedFilesBackgroundColor = 16777215;
  std::int32_t UserSelectedFilesBackgroundColor = 16777215;
  std::int32_t ArchiveFileTextColor = 13579779;
  std::int32_t ReferenceFileTextColor = 4297405;
  std::int32_t HardlinkTextColor = 10053222;
  std::int32_t GroupBackColor = 16382443;
  std::int32_t GroupTextColor = 0;
};
// Reads the colour keys of section "Optionen" (defaults for absent keys).
// Defined in result_colors.cpp.
ResultColors LoadResultColors(const SettingsStore& s);

struct ResultOptions {
  // GroupTitleMode of the search; also the grid's GroupBy (3 = size groups
  // sort by sizeG, descending).
  std::int32_t GroupTitleMode = 0;
  std::string DateFormat = "dd/MM/yyyy hh:nn:ss";  // the result's date format
  bool IgnoreTime = false;
  bool IgnoreSeconds = false;
  std::int32_t FileNameMethod = 0;  // 0 all, 1 first n, 2 last n, 3 without the last n
  std::int32_t FileNameChars = 5;   // n
  bool CriterionHardlink = false;
  // What the criteria make equal for a whole group (end of Init_Variablen).
  bool GroupSize = false, GroupDateA = false, GroupDateB = false, GroupAttributes = false;
  // Source folders by source number (index 0 = source 1), as the user gave
  // them; a file row's full folder is SourceFolders[qnr-1] + FileRecord::Path.
  std::vector<std::string> SourceFolders;
  ResultColors Colors;
};

// What the engine knows about the first file of a new group beyond its record.
struct GroupContext {
  // Name after ignored characters and ignored text, before the file name
  // method (title mode 1). Empty: record.Name is used.
  std::string_view NameAfterIgnore;
  // Display form of the hard link identity (title mode 7). Empty: the model
  // builds the hexadecimal volume-high-low form from the record.
  std::string_view HardlinkId;
};

// Details of a file row that the engine reads outside the record. Fields
// are stored only when their Has... flag is set.
struct FileRowExtras {
  std::string TmpPath;  // extracted temporary copy of an archive member
  bool HasOwner = false;
  std::string Owner;
  bool HasAudio = false;
  std::int32_t AudioDurationVal = 0;  // seconds
  double AudioBitrate = 0;
  double AudioSamplingrate = 0;
  bool HasPicSize = false;
  std::int32_t PicW = 0, PicH = 0;
  // Hard links: with CriterionHardlink the record's NumberOfLinks and
  // identity are used when this is not set.
  bool HasHardlinks = false;
  std::int32_t Hardlinks = 0;    // number of links; 1 is stored as 0 ("-")
  std::string HardlinkID;        // identity text, "-" for a single link
  std::uint8_t GetFileInfo = 0;  // bits of details still to be read later
};

// Handle of a row. group = -1: root. file = -1: the group row itself.
struct RowRef {
  std::int32_t group = -1;
  std::int32_t file = -1;
  bool IsRoot() const { return group < 0 && file == -1; }
  bool IsGroup() const { return group >= 0 && file < 0; }
  bool IsFile() const { return group >= 0 && file >= 0; }
  friend bool operator==(const RowRef&, const RowRef&) = default;
};

// The figures of ShowDupCount and the texts of status panes 3 to 5.
struct DupCountFigures {
  std::int32_t Groups = 0;  // child count of the root
  std::int32_t DupCount = 0;
  std::int32_t DupCountSelected = 0;
  std::int64_t FilesizeAll = 0;
  std::int64_t FilesizeSelected = 0;
  std::string Pane3;  // " Gruppen: 12 "
  std::string Pane4;  // " Dateien: 30 \ 4 "
  std::string Pane5;  // " Größe: 1,20 MB \ 100,00 KB "
};

// Told about every real change of a file row's mark (File_Select), so that
// the undo history can record the row under its index.
class MarkObserver {
 public:
  virtual ~MarkObserver() = default;
  virtual void RowMarkChanged(int rowIndex, bool nowMarked) = 0;
};

// ---------------------------------------------------------------------------
// Size formats

// FormatFileSize: chooses the unit by itself (TB above 1099511627776, GB above
// 1047527424, MB above 1048576, KB above 1024, else Bytes); "###,##0.00", or
// "###,###,##0" for bytes; with `withUnit` one blank and the unit word follow.
std::string FormatFileSize(std::int64_t bytes, bool withUnit, const TextCatalog& texts);
// The value in a fixed SizeFormat: bytes "###,###,##0", others "###,##0.00"
// of bytes / divisor, with " " + unit word when `withUnit` (the text form of
// group rows and messages) and alone otherwise (the cell form). Format 4
// gives "".
std::string FormatFileSizeAs(std::int64_t bytes, std::int32_t sizeFormat, bool withUnit,
                             const TextCatalog& texts);
// Unit word of a SizeFormat ("Bytes", "KB", "MB", "GB", "TB"), "" for 4.
std::string SizeFormatUnit(std::int32_t sizeFormat, const TextCatalog& texts);
// A double with two decimals and thousands grouping in the program's number
// form ("1.234,50").
std::string FormatDecimal2(double v);

// Attribute letters of the attribute bits (R read-only, H hidden, S system,
// D directory, A archive, L symbolic link); "" for a plain file (128 alone).
// The "attr2" cells and the attribute group titles use it.
std::string FormatAttributeLetters(std::int32_t attributes);

// The date mask of group titles and group date cells: with IgnoreTime the
// time parts and AM/PM go and the mask is trimmed; with IgnoreSeconds ":ss"
// and ":s" go.
std::string GroupDateMask(const ResultOptions& o);
// A group's date value: the day only with IgnoreTime, without seconds with
// IgnoreSeconds.
double GroupDateValue(double date, const ResultOptions& o);

// ---------------------------------------------------------------------------

class ResultModel {
 public:
  // `texts` must outlive the model; null uses the German defaults.
  explicit ResultModel(const TextCatalog* texts = nullptr);
  ~ResultModel();
  ResultModel(const ResultModel&) = delete;
  ResultModel& operator=(const ResultModel&) = delete;

  // ----- options and set-up
  void SetOptions(ResultOptions o);
  const ResultOptions& Options() const { return opt_; }
  void SetMarkObserver(MarkObserver* obs) { observer_ = obs; }
  const TextCatalog& Texts() const;

  // Clear: no rows at all; counters 0.
  void Clear();
  // Report_Create_Root_Node: clears and adds the root with `caption` (empty:
  // text 3965 "Suchergebnis"), anz and size 0. Counters and the per-source
  // totals go to 0; SourceDupCount/SourceDupSize are sized by SourceFolders.
  void Report_Create_Root_Node(std::string_view caption = {});

  // ----- filling (search)

  // Search_AddNewGroup: a group row below the root, titled from `first` by
  // GroupTitleMode, with group colours and the group-level cells the options
  // ask for. GroupCount grows by 1. Returns the group number, which
  // GroupRowByNumber turns back into the row (until Compact/Sort).
  int Search_AddNewGroup(const FileRecord& first, const GroupContext& ctx = {});
  // A group row with a given title and no group-level cells (the hand-made
  // group "Dateien ohne Duplikate", loaded results).
  int AddGroupRow(std::string_view title, std::int64_t size = 0);
  // Search_AddNodeFromCollection: group size += SIZE, anz += 1, per-source
  // totals, the file row, DupCount += 1, FilesizeAll += SIZE. Returns the row.
  RowRef AddFileRow(int groupNumber, const FileRecord& r, const FileRowExtras& x = {});
  // A bare file row (loaded results): caption/dupname, full folder, size;
  // counters as above; other cells set afterwards with SetCell.
  RowRef AddFileRowRaw(int groupNumber, std::string_view dupname, std::string_view folder,
                       std::int64_t size, std::int32_t qnr);
  RowRef GroupRowByNumber(int groupNumber) const { return RowRef{groupNumber, -1}; }
  bool IsGroupNumberValid(int groupNumber) const;

  // The group title of `first` for the current options (what
  // Search_AddNewGroup writes).
  std::string GroupTitle(const FileRecord& first, const GroupContext& ctx = {}) const;

  // Search_ShowOnlyFilesWithoutDups, model side: clears DupCount/size,
  // creates the root and the one group "Dateien ohne Duplikate" with the
  // group-level value columns off. Returns its group number; add the files
  // with AddFileRow, then call FinishFilesWithoutDupsGroup (anz = DupCount).
  int BeginFilesWithoutDupsGroup();
  void FinishFilesWithoutDupsGroup(int groupNumber);

  // ----- rows by index
  int RowCount() const;                // root included; 0 when empty
  RowRef RowByIndex(int index) const;  // root for 0; {-1,-1} when out of range
  int IndexOf(RowRef r) const;         // -1 for a dead or unknown row
  bool IsValid(RowRef r) const;
  std::int32_t Level(RowRef r) const;
  std::int32_t Level(int index) const { return Level(RowByIndex(index)); }
  RowRef Parent(RowRef r) const;
  int ChildCount(RowRef r) const;  // live children
  // The n-th live child (0-based) of the root or of a group.
  RowRef Child(RowRef r, int n) const;
  std::string Caption(RowRef r) const;  // as shown in the tree column
  std::int32_t GetCheckState(RowRef r) const;
  bool IsMarked(RowRef r) const { return GetCheckState(r) == kCheckMarked; }
  bool Expanded(RowRef r) const;
  void SetExpanded(RowRef r, bool on);
  std::int32_t BackColor(RowRef r) const;
  std::int32_t TextColor(RowRef r) const;
  void SetBackColor(RowRef r, std::int32_t c);
  void SetTextColor(RowRef r, std::int32_t c);

  // ----- iteration in display order (live rows only)
  int GroupCount() const;  // child count of the root
  // Calls f(groupRow) for each group; f returns false to stop.
  void ForEachGroup(const std::function<bool(RowRef)>& f) const;
  // Calls f(fileRow) for each file of a group.
  void ForEachFile(RowRef group, const std::function<bool(RowRef)>& f) const;

  // ----- cells
  CellValue Cell(RowRef r, CellKey k) const;
  CellValue Cell(RowRef r, std::string_view key) const;  // unknown keys: overflow
  bool HasCell(RowRef r, CellKey k) const;
  // Sets a cell; a value of the wrong kind is converted. Setting "Sel" or the
  // counters' cells does not touch the counters.
  void SetCell(RowRef r, CellKey k, const CellValue& v);
  void SetCell(RowRef r, std::string_view key, const CellValue& v);
  void RemoveCell(RowRef r, CellKey k);
  // All cells a row holds, as (key text, value), for saving.
  std::vector<std::pair<std::string, CellValue>> Cells(RowRef r) const;

  // Fast typed reads for the common fields.
  std::string_view FileName(RowRef file) const;    // dupname
  std::string_view FileFolder(RowRef file) const;  // path
  std::int32_t FileSourceNr(RowRef file) const;    // qnr
  std::int64_t FileSize(RowRef file) const;        // the row's own size
  double FileDate(RowRef file) const;              // dateVal
  std::int32_t GroupSel(RowRef group) const;       // Sel

  // File_GetPathFromNode: path + "/" + dupname. File_GetPathOnlyFromNode: path.
  std::string File_GetPathFromNode(RowRef file) const;
  std::string File_GetPathOnlyFromNode(RowRef file) const;
  // File_GetSize: the file row's size when the search stores sizes per file,
  // else the group's sizeG.
  std::int64_t File_GetSize(RowRef file) const;

  // ----- counters
  std::int32_t DupCount() const { return dupCount_; }
  std::int32_t DupCountSelected() const { return dupCountSelected_; }
  std::int64_t FilesizeAll() const { return filesizeAll_; }
  std::int64_t FilesizeSelected() const { return filesizeSelected_; }
  // Groups made since Report_Create_Root_Node (lblGruppen); removals do not
  // lower it. GroupCount() is the live number.
  std::int32_t GroupsCreated() const { return groupsCreated_; }
  // Per source number (1-based); 0 outside the range.
  std::int32_t SourceDupCount(int sourceNr) const;
  std::int64_t SourceDupSize(int sourceNr) const;
  int SourceCount() const { return static_cast<int>(sourceDupCount_.size()); }
  // For loading saved results: counters as stored.
  void SetCounters(std::int32_t dupCount, std::int32_t dupCountSelected, std::int64_t filesizeAll,
                   std::int64_t filesizeSelected);

  // ----- marks
  // File_Select: the one way a mark changes. Does not test the previous
  // state (callers do). Keeps DupCountSelected, the group's Sel and
  // FilesizeSelected; with removedFromResult also FilesizeAll. Tells the
  // MarkObserver when the row really changes.
  void File_Select(RowRef file, bool mark, bool removedFromResult = false);
  void File_Select(int rowIndex, bool mark, bool removedFromResult = false) {
    File_Select(RowByIndex(rowIndex), mark, removedFromResult);
  }
  // Report_Set_Group_Checkbox_Image: Sel 0 -> 0, Sel = child count -> 1,
  // else 2.
  void Report_Set_Group_Checkbox_Image(RowRef group);
  // Report_ChangeCheckboxStatus: a click on a check box (group or file).
  void Report_ChangeCheckboxStatus(RowRef r);

  // ShowDupCount: writes DupCount/FilesizeAll into the root's anz/size and
  // returns the figures with the texts of panes 3 to 5.
  DupCountFigures ShowDupCount();

  // ----- removal (never touches a file on disk)
  // File_RemoveFromReport: counters, the group's size and anz, the row goes.
  // The group stays even without children.
  void File_RemoveFromReport(RowRef file);
  // Report_RemoveGroup: the group with its children, counters kept true.
  void Report_RemoveGroup(RowRef group);
  // Drops dead slots (invalidates RowRefs and group numbers; indices stay).
  void Compact();

  // RemoveGroup_DupsNotExistAtAllSourcefolders: removes every group that has
  // no file in one of the source folders (Options().SourceFolders). Groups
  // whose check state is 1 (all files marked by the user) take no part and
  // stay. A stop request of `run` ends the walk. Compacts when a group went,
  // and updates the root cells (ShowDupCount). Returns the groups removed.
  int RemoveGroup_DupsNotExistAtAllSourcefolders(const RunState* run = nullptr);

  // ----- sorting and view state
  // The grid's sort: groups by caption ascending (or by sizeG numerically,
  // descending, for GroupTitleMode 3), files by caption ascending. Compacts.
  void SortRows();
  // Group_ExpandAll: expands (or collapses) every group.
  void Group_ExpandAll(bool expand = true);

  // ----- size format
  std::int32_t GetSizeFormat() const { return sizeFormat_; }
  // Report_ChangeFileSize: stores the format; group captions of size groups
  // and size cells show the text form from then on. Returns false when the
  // format was already set and `force` is false.
  bool Report_ChangeFileSize(std::int32_t format, bool force = false);
  // The text of the size column of a row in the current format: numeric
  // "###,###,##0" for bytes, else the cell form of the unit; "" for 0.
  std::string SizeColumnText(RowRef r) const;
  // Whether file rows keep their own size (sizes may differ in a group).
  bool SizePerFile() const { return !opt_.GroupSize; }

  // Root row text cell "desc" (the search description).
  void SetDescription(std::string d);
  const std::string& Description() const;

  // ----- saved results (result_branch.cpp)
  // SaveBranch: appends the record of a group row and all its file rows to
  // `out`: caption, expanded flag, check states, colours and every cell. The
  // record carries `stamp` (see result_branch.h), which ties it to its .ini4a.
  // `texts` carries the texts written by the records before (a folder is
  // written once per file, not once per group).
  void SaveBranch(std::string& out, RowRef group, std::uint32_t stamp, BranchTexts& texts) const;
  // LoadBranch: the group of one record's payload (checked by
  // CheckBranchPayload of result_branch.h), appended under the root; the
  // records before it were loaded with the same `texts`. Counters are not
  // touched (a saved result brings its own). False, and nothing added, for a
  // payload whose content does not hold together.
  bool LoadBranch(std::string_view payload, BranchTexts& texts);
  // Room for `n` groups, so that loading a result of known size grows no
  // array twice.
  void ReserveGroups(int n);

 private:
  result_detail::GroupRow* G(RowRef r);
  const result_detail::GroupRow* G(RowRef r) const;
  result_detail::FileRow* F(RowRef r);
  const result_detail::FileRow* F(RowRef r) const;
  // The list of cells under unknown keys of a valid row.
  const std::vector<std::pair<std::string, CellValue>>& OverflowOf(RowRef r) const;

  const TextCatalog* texts_ = nullptr;
  std::unique_ptr<TextCatalog> ownTexts_;
  ResultOptions opt_;
  MarkObserver* observer_ = nullptr;
  std::unique_ptr<result_detail::RowStore> rows_;  // root, groups, files

  std::int32_t groupsCreated_ = 0;
  std::int32_t dupCount_ = 0;
  std::int32_t dupCountSelected_ = 0;
  std::int64_t filesizeAll_ = 0;
  std::int64_t filesizeSelected_ = 0;
  std::vector<std::int32_t> sourceDupCount_;
  std::vector<std::int64_t> sourceDupSize_;
  std::int32_t sizeFormat_ = kSizeBytes;
};

}  // namespace kelvor
