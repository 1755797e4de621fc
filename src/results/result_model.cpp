// The result model: set-up, filling, the tree by index, counters, marks and
// removals. Rows are stored by result_rows.*, cells described by
// result_cells.*, group titles made by group_titles.*.

#include "results/result_model.h"

#include <algorithm>

#include "frame/formats.h"
#include "frame/run_state.h"
#include "frame/texts.h"
#include "results/group_titles.h"
#include "results/result_rows.h"

namespace kelvor {

using result_detail::CellBit;
using result_detail::FileRow;
using result_detail::GroupRow;
using result_detail::RowStore;

ResultModel::ResultModel(const TextCatalog* texts)
    : texts_(texts), rows_(std::make_unique<RowStore>()) {
  if (!texts_) ownTexts_ = std::make_unique<TextCatalog>();
}

ResultModel::~ResultModel() = default;

const TextCatalog& ResultModel::Texts() const {
  return texts_ ? *texts_ : *ownTexts_;
}

void ResultModel::SetOptions(ResultOptions o) {
  opt_ = std::move(o);
  const std::size_t n = opt_.SourceFolders.size();
  if (sourceDupCount_.size() < n) {
    sourceDupCount_.resize(n, 0);
    sourceDupSize_.resize(n, 0);
  }
}

void ResultModel::Clear() {
  rows_ = std::make_unique<RowStore>();
  groupsCreated_ = 0;
  dupCount_ = dupCountSelected_ = 0;
  filesizeAll_ = filesizeSelected_ = 0;
  sourceDupCount_.assign(opt_.SourceFolders.size(), 0);
  sourceDupSize_.assign(opt_.SourceFolders.size(), 0);
}

void ResultModel::Report_Create_Root_Node(std::string_view caption) {
  Clear();
  rows_->root.exists = true;
  rows_->root.expanded = true;
  rows_->root.caption = caption.empty() ? Texts().Get(txt::T3965) : std::string(caption);
}

void ResultModel::SetDescription(std::string d) {
  rows_->root.desc = std::move(d);
}

const std::string& ResultModel::Description() const {
  return rows_->root.desc;
}

// ----- row access -----------------------------------------------------------

GroupRow* ResultModel::G(RowRef r) {
  return rows_->Group(r);
}

const GroupRow* ResultModel::G(RowRef r) const {
  return rows_->Group(r);
}

FileRow* ResultModel::F(RowRef r) {
  return rows_->File(r);
}

const FileRow* ResultModel::F(RowRef r) const {
  return rows_->File(r);
}

bool ResultModel::IsValid(RowRef r) const {
  if (r.IsRoot()) return rows_->root.exists && r.file < 0;
  return r.file < 0 ? G(r) != nullptr : F(r) != nullptr;
}

bool ResultModel::IsGroupNumberValid(int groupNumber) const {
  return G(RowRef{groupNumber, -1}) != nullptr;
}

int ResultModel::GroupCount() const {
  return rows_->LiveGroups();
}

int ResultModel::RowCount() const {
  if (!rows_->root.exists) return 0;
  return 1 + rows_->RowsBelowRoot();
}

RowRef ResultModel::RowByIndex(int index) const {
  if (!rows_->root.exists || index < 0) return RowRef{-1, -2};
  if (index == 0) return RowRef{};
  return rows_->ByIndex(index);
}

int ResultModel::IndexOf(RowRef r) const {
  if (!IsValid(r)) return -1;
  if (r.IsRoot()) return 0;
  return rows_->IndexOf(r);
}

std::int32_t ResultModel::Level(RowRef r) const {
  if (!IsValid(r)) return -1;
  if (r.IsRoot()) return kLevelRoot;
  return r.file < 0 ? kLevelGroup : kLevelFile;
}

RowRef ResultModel::Parent(RowRef r) const {
  if (!IsValid(r) || r.IsRoot()) return RowRef{-1, -2};
  if (r.file < 0) return RowRef{};
  return RowRef{r.group, -1};
}

int ResultModel::ChildCount(RowRef r) const {
  if (!IsValid(r)) return 0;
  if (r.IsRoot()) return rows_->LiveGroups();
  if (r.file >= 0) return 0;
  return G(r)->live;
}

RowRef ResultModel::Child(RowRef r, int n) const {
  if (!IsValid(r) || n < 0 || n >= ChildCount(r)) return RowRef{-1, -2};
  if (r.IsRoot()) return rows_->NthGroup(n);
  return rows_->NthFile(r, n);
}

std::string ResultModel::Caption(RowRef r) const {
  if (!IsValid(r)) return {};
  if (r.IsRoot()) return rows_->root.caption;
  if (r.file < 0) {
    const GroupRow* g = G(r);
    if (opt_.GroupTitleMode == 3 && sizeFormat_ != kSizeBytes &&
        (g->present & CellBit(CellKey::sizeG))) {
      return FormatFileSizeAs(g->sizeG, sizeFormat_, true, Texts());
    }
    return g->title;
  }
  return F(r)->name;
}

std::int32_t ResultModel::GetCheckState(RowRef r) const {
  if (const FileRow* f = F(r)) return f->check;
  if (r.file < 0) {
    if (const GroupRow* g = G(r)) return g->check;
  }
  return kCheckNone;
}

bool ResultModel::Expanded(RowRef r) const {
  if (r.IsRoot()) return rows_->root.exists && rows_->root.expanded;
  if (r.file < 0) {
    if (const GroupRow* g = G(r)) return g->expanded;
  }
  return false;
}

void ResultModel::SetExpanded(RowRef r, bool on) {
  if (r.IsRoot()) {
    rows_->root.expanded = on;
  } else if (r.file < 0) {
    if (GroupRow* g = G(r)) g->expanded = on;
  }
}

std::int32_t ResultModel::BackColor(RowRef r) const {
  if (const FileRow* f = F(r)) return f->back;
  if (r.file < 0) {
    if (const GroupRow* g = G(r)) return g->back;
  }
  return kColorWhite;
}

std::int32_t ResultModel::TextColor(RowRef r) const {
  if (const FileRow* f = F(r)) return f->text;
  if (r.file < 0) {
    if (const GroupRow* g = G(r)) return g->text;
  }
  return 0;
}

void ResultModel::SetBackColor(RowRef r, std::int32_t c) {
  if (FileRow* f = F(r)) {
    f->back = c;
  } else if (r.file < 0) {
    if (GroupRow* g = G(r)) g->back = c;
  }
}

void ResultModel::SetTextColor(RowRef r, std::int32_t c) {
  if (FileRow* f = F(r)) {
    f->text = c;
  } else if (r.file < 0) {
    if (GroupRow* g = G(r)) g->text = c;
  }
}

void ResultModel::ForEachGroup(const std::function<bool(RowRef)>& f) const {
  for (std::size_t i = 0; i < rows_->SlotCount(); ++i) {
    if (!rows_->Slot(i).alive) continue;
    if (!f(RowRef{static_cast<std::int32_t>(i), -1})) return;
  }
}

void ResultModel::ForEachFile(RowRef group, const std::function<bool(RowRef)>& f) const {
  const GroupRow* g = group.file < 0 ? G(group) : nullptr;
  if (!g) return;
  for (std::size_t i = 0; i < g->files.size(); ++i) {
    if (!g->files[i].alive) continue;
    if (!f(RowRef{group.group, static_cast<std::int32_t>(i)})) return;
  }
}

// ----- filling ----------------------------------------------------------------

std::string ResultModel::GroupTitle(const FileRecord& first, const GroupContext& ctx) const {
  return result_detail::MakeGroupTitle(opt_, first, ctx);
}

int ResultModel::AddGroupRow(std::string_view title, std::int64_t size) {
  if (!rows_->root.exists) Report_Create_Root_Node();
  const int number = rows_->AddGroup();
  GroupRow& g = rows_->Slot(static_cast<std::size_t>(number));
  g.title = std::string(title);
  g.size = size;
  g.back = opt_.Colors.GroupBackColor;
  g.text = opt_.Colors.GroupTextColor;
  g.present = CellBit(CellKey::dupname) | CellBit(CellKey::size) | CellBit(CellKey::anz) |
              CellBit(CellKey::Sel);
  ++groupsCreated_;
  return number;
}

int ResultModel::Search_AddNewGroup(const FileRecord& first, const GroupContext& ctx) {
  const int number = AddGroupRow(GroupTitle(first, ctx), 0);
  GroupRow& g = rows_->Slot(static_cast<std::size_t>(number));
  if (opt_.GroupTitleMode == 4 || opt_.GroupTitleMode == 5) {
    g.M().dateG = g.title;
    g.present |= CellBit(CellKey::dateG);
  }
  if (opt_.GroupSize) {
    g.sizeG = first.SIZE;
    g.present |= CellBit(CellKey::sizeG);
  }
  if (opt_.GroupDateA) {
    g.dateVal = GroupDateValue(first.DateLastModified, opt_);
    g.present |= CellBit(CellKey::dateVal) | CellBit(CellKey::date);
  }
  if (opt_.GroupDateB) {
    g.dateEval = GroupDateValue(first.DateCreated, opt_);
    g.present |= CellBit(CellKey::dateEval) | CellBit(CellKey::dateE);
  }
  if (opt_.GroupAttributes) {
    g.M().attr2 = FormatAttributeLetters(first.Attributes);
    g.present |= CellBit(CellKey::attr2);
  }
  return number;
}

RowRef ResultModel::AddFileRowRaw(int groupNumber, std::string_view dupname,
                                  std::string_view folder, std::int64_t size, std::int32_t qnr) {
  GroupRow* g = G(RowRef{groupNumber, -1});
  if (!g) return RowRef{-1, -2};
  g->size += size;
  g->anz += 1;
  const RowRef row = rows_->AddFile(groupNumber);
  FileRow& f = *F(row);
  f.name = std::string(dupname);
  f.folder = rows_->pool.Intern(folder);
  f.size = size;
  f.qnr = qnr;
  f.present = CellBit(CellKey::dupname) | CellBit(CellKey::path) | CellBit(CellKey::size) |
              CellBit(CellKey::qnr);
  ++dupCount_;
  filesizeAll_ += size;
  return row;
}

RowRef ResultModel::AddFileRow(int groupNumber, const FileRecord& r, const FileRowExtras& x) {
  using result_detail::DefaultHardlinkId;
  const int q = r.SourceNr;
  const RowRef row = AddFileRowRaw(
      groupNumber, result_detail::NameWithExtension(r),
      result_detail::JoinFolder(result_detail::SourceFolder(opt_, q), r.Path), r.SIZE, q);
  FileRow* f = F(row);
  if (!f) return row;
  auto& pool = rows_->pool;
  if (q >= 1) {
    if (static_cast<std::size_t>(q) > sourceDupCount_.size()) {
      sourceDupCount_.resize(static_cast<std::size_t>(q), 0);
      sourceDupSize_.resize(static_cast<std::size_t>(q), 0);
    }
    sourceDupCount_[static_cast<std::size_t>(q - 1)] += 1;
    sourceDupSize_[static_cast<std::size_t>(q - 1)] += r.SIZE;
  }
  f->dateVal = r.DateLastModified;
  f->dateEval = r.DateCreated;
  f->attr = r.Attributes;
  f->present |= CellBit(CellKey::dateVal) | CellBit(CellKey::date) | CellBit(CellKey::dateEval) |
                CellBit(CellKey::dateE) | CellBit(CellKey::attr) | CellBit(CellKey::attr2);
  if (r.ArchiveType > 0) {
    f->archiv = r.ArchiveType;
    f->folderA = pool.Intern(r.PathInsideZip);
    f->present |= CellBit(CellKey::archiv) | CellBit(CellKey::pathA);
    f->text = opt_.Colors.ArchiveFileTextColor;
  }
  if (!x.TmpPath.empty()) {
    f->tmp = pool.Intern(x.TmpPath);
    f->present |= CellBit(CellKey::tmppath);
  }
  if (x.HasOwner) {
    f->M().owner = pool.Intern(x.Owner);
    f->present |= CellBit(CellKey::owner);
  }
  if (x.HasAudio) {
    f->M().audioDur = x.AudioDurationVal;
    f->M().audioBitrate = x.AudioBitrate;
    f->M().audioSamplingrate = x.AudioSamplingrate;
    f->present |= CellBit(CellKey::AudioDurationVal) | CellBit(CellKey::AudioDuration) |
                  CellBit(CellKey::AudioBitrate) | CellBit(CellKey::AudioSamplingrate);
  }
  if (x.HasPicSize) {
    f->M().picW = x.PicW;
    f->M().picH = x.PicH;
    f->present |= CellBit(CellKey::picW) | CellBit(CellKey::picH);
  }
  bool haveLinks = false;
  if (x.HasHardlinks) {
    f->hardlinks = x.Hardlinks > 1 ? x.Hardlinks : 0;
    f->hardlinkID =
        pool.Intern(x.Hardlinks > 1 ? std::string_view(x.HardlinkID) : std::string_view("-"));
    haveLinks = true;
  } else if (opt_.CriterionHardlink) {
    f->hardlinks = r.NumberOfLinks > 1 ? r.NumberOfLinks : 0;
    f->hardlinkID = pool.Intern(r.NumberOfLinks > 1 ? DefaultHardlinkId(r) : std::string("-"));
    haveLinks = true;
  }
  if (haveLinks) {
    f->present |= CellBit(CellKey::hardlinks) | CellBit(CellKey::hardlinkID);
    if (f->hardlinks > 1) f->text = opt_.Colors.HardlinkTextColor;
  }
  if (r.PercentMatch > 0) {
    f->similar = r.PercentMatch;
    f->present |= CellBit(CellKey::similar);
  }
  if (r.IsReferenceFile) {
    f->isRef = true;
    f->present |= CellBit(CellKey::IsRefFile);
    f->text = opt_.Colors.ReferenceFileTextColor;
  }
  if (x.GetFileInfo != 0) {
    f->getFileInfo = x.GetFileInfo;
    f->present |= CellBit(CellKey::GetFileInfo);
  }
  return row;
}

int ResultModel::BeginFilesWithoutDupsGroup() {
  Report_Create_Root_Node();
  opt_.GroupSize = opt_.GroupDateA = opt_.GroupDateB = opt_.GroupAttributes = false;
  return AddGroupRow(Texts().Get(txt::T9229), 0);
}

void ResultModel::FinishFilesWithoutDupsGroup(int groupNumber) {
  if (GroupRow* g = G(RowRef{groupNumber, -1})) g->anz = dupCount_;
}

// ----- paths and sizes of file rows ---------------------------------------------

std::string ResultModel::File_GetPathFromNode(RowRef file) const {
  const FileRow* f = F(file);
  if (!f) return {};
  std::string p(rows_->pool.Get(f->folder));
  if (p.empty() || p.back() != '/') p += '/';
  p += f->name;
  return p;
}

std::string ResultModel::File_GetPathOnlyFromNode(RowRef file) const {
  return std::string(FileFolder(file));
}

std::int64_t ResultModel::File_GetSize(RowRef file) const {
  const FileRow* f = F(file);
  if (!f) return 0;
  if (!SizePerFile()) {
    const GroupRow* g = G(file);
    if (g->present & CellBit(CellKey::sizeG)) return g->sizeG;
  }
  return f->size;
}

// ----- counters and marks ---------------------------------------------------------

std::int32_t ResultModel::SourceDupCount(int sourceNr) const {
  if (sourceNr < 1 || static_cast<std::size_t>(sourceNr) > sourceDupCount_.size()) return 0;
  return sourceDupCount_[static_cast<std::size_t>(sourceNr - 1)];
}

std::int64_t ResultModel::SourceDupSize(int sourceNr) const {
  if (sourceNr < 1 || static_cast<std::size_t>(sourceNr) > sourceDupSize_.size()) return 0;
  return sourceDupSize_[static_cast<std::size_t>(sourceNr - 1)];
}

void ResultModel::SetCounters(std::int32_t dupCount, std::int32_t dupCountSelected,
                              std::int64_t filesizeAll, std::int64_t filesizeSelected) {
  dupCount_ = dupCount;
  dupCountSelected_ = dupCountSelected;
  filesizeAll_ = filesizeAll;
  filesizeSelected_ = filesizeSelected;
}

void ResultModel::File_Select(RowRef file, bool mark, bool removedFromResult) {
  FileRow* f = F(file);
  if (!f) return;
  GroupRow* g = G(file);
  const std::int64_t size = File_GetSize(file);
  const bool wasMarked = f->check == kCheckMarked;
  if (mark) {
    ++dupCountSelected_;
    ++g->sel;
    filesizeSelected_ += size;
    f->check = kCheckMarked;
    f->back = opt_.Colors.SelectedFilesBackgroundColor;
  } else {
    --dupCountSelected_;
    --g->sel;
    filesizeSelected_ -= size;
    f->back = kColorWhite;
    f->check = kCheckNone;
    if (removedFromResult) filesizeAll_ -= size;
  }
  if (observer_ && wasMarked != mark) observer_->RowMarkChanged(IndexOf(file), mark);
}

void ResultModel::Report_Set_Group_Checkbox_Image(RowRef group) {
  GroupRow* g = group.file < 0 ? G(group) : nullptr;
  if (!g) return;
  if (g->sel <= 0) {
    g->check = kCheckNone;
  } else if (g->sel == g->live) {
    g->check = kCheckMarked;
  } else {
    g->check = kCheckPartly;
  }
}

void ResultModel::Report_ChangeCheckboxStatus(RowRef r) {
  if (!IsValid(r) || r.IsRoot()) return;
  if (r.file < 0) {
    const bool mark = G(r)->check != kCheckMarked;
    ForEachFile(r, [&](RowRef child) {
      if (IsMarked(child) != mark) {
        File_Select(child, mark);
        if (mark) SetBackColor(child, opt_.Colors.UserSelectedFilesBackgroundColor);
      }
      return true;
    });
    Report_Set_Group_Checkbox_Image(r);
    return;
  }
  if (IsMarked(r)) {
    File_Select(r, false);
  } else {
    File_Select(r, true);
    SetBackColor(r, opt_.Colors.UserSelectedFilesBackgroundColor);
  }
  Report_Set_Group_Checkbox_Image(Parent(r));
}

DupCountFigures ResultModel::ShowDupCount() {
  DupCountFigures d;
  if (RowCount() > 0) {
    rows_->root.anz = dupCount_;
    rows_->root.size = filesizeAll_;
  }
  d.Groups = rows_->LiveGroups();
  d.DupCount = dupCount_;
  d.DupCountSelected = dupCountSelected_;
  d.FilesizeAll = filesizeAll_;
  d.FilesizeSelected = filesizeSelected_;
  const TextCatalog& t = Texts();
  const std::string groups = FormatNumber(d.Groups);
  const std::string all = FormatNumber(d.DupCount);
  const std::string sel = FormatNumber(d.DupCountSelected);
  const std::string sizeAll = FormatFileSize(d.FilesizeAll, true, t);
  const std::string sizeSel = FormatFileSize(d.FilesizeSelected, true, t);
  // Padded with one blank on each side, as the status panes show them.
  auto pad = [](std::string text) {
    text.insert(text.begin(), ' ');
    text.push_back(' ');
    return text;
  };
  d.Pane3 = pad(t.Get(txt::T3689, {groups}));
  d.Pane4 = pad(t.Get(txt::T3690, {all, sel}));
  d.Pane5 = pad(t.Get(txt::T3691, {sizeAll, sizeSel}));
  return d;
}

// ----- removal ----------------------------------------------------------------------

void ResultModel::File_RemoveFromReport(RowRef file) {
  FileRow* f = F(file);
  if (!f) return;
  GroupRow* g = G(file);
  const std::int64_t size = File_GetSize(file);
  --dupCount_;
  filesizeAll_ -= size;
  if (f->check == kCheckMarked) {
    --dupCountSelected_;
    --g->sel;
    filesizeSelected_ -= size;
  }
  g->size -= size;
  g->anz -= 1;
  rows_->RemoveFile(file);
}

void ResultModel::Report_RemoveGroup(RowRef group) {
  GroupRow* g = group.file < 0 ? G(group) : nullptr;
  if (!g) return;
  if (g->live > 0) {
    dupCount_ -= g->live;
    filesizeAll_ -= g->size;
    ForEachFile(group, [&](RowRef child) {
      if (F(child)->check == kCheckMarked) {
        --dupCountSelected_;
        filesizeSelected_ -= File_GetSize(child);
      }
      return true;
    });
  }
  rows_->RemoveGroup(group.group);
}

void ResultModel::Compact() {
  rows_->Compact();
}

int ResultModel::RemoveGroup_DupsNotExistAtAllSourcefolders(const RunState* run) {
  const std::size_t sources = opt_.SourceFolders.size();
  std::vector<std::int32_t> seen(sources, 0);
  int removed = 0;
  for (std::size_t i = 0; i < rows_->SlotCount(); ++i) {
    if (run && run->StopRequested()) break;
    const GroupRow& g = rows_->Slot(i);
    if (!g.alive || g.files.empty()) continue;
    // A group whose files are all marked takes no part in the check.
    if (g.check == kCheckMarked) continue;
    std::fill(seen.begin(), seen.end(), 0);
    bool stays = false;
    for (const FileRow& f : g.files) {
      if (!f.alive) continue;
      if (f.qnr >= 1 && static_cast<std::size_t>(f.qnr) <= sources) {
        seen[static_cast<std::size_t>(f.qnr - 1)] = 1;
      }
      if (std::all_of(seen.begin(), seen.end(), [](std::int32_t c) { return c == 1; })) {
        stays = true;
        break;
      }
    }
    if (!stays) {
      Report_RemoveGroup(RowRef{static_cast<std::int32_t>(i), -1});
      ++removed;
    }
  }
  if (removed > 0) Compact();
  ShowDupCount();
  return removed;
}

// ----- sorting and view ---------------------------------------------------------------

void ResultModel::SortRows() {
  rows_->Sort(opt_.GroupTitleMode == 3);
}

void ResultModel::Group_ExpandAll(bool expand) {
  for (std::size_t i = 0; i < rows_->SlotCount(); ++i) rows_->Slot(i).expanded = expand;
}

bool ResultModel::Report_ChangeFileSize(std::int32_t format, bool force) {
  if (format == sizeFormat_ && !force) return false;
  sizeFormat_ = format;
  return true;
}

std::string ResultModel::SizeColumnText(RowRef r) const {
  if (!IsValid(r)) return {};
  std::int64_t v = 0;
  if (r.IsRoot()) {
    v = filesizeAll_;
  } else if (r.file < 0) {
    v = G(r)->size;
  } else {
    if (!HasCell(r, CellKey::size)) return {};
    v = F(r)->size;
  }
  if (v <= 0) return {};
  return FormatFileSizeAs(v, sizeFormat_, false, Texts());
}

}  // namespace kelvor
