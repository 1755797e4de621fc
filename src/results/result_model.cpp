// The result model: rows, cells, counters and marks. See result_model.h for
// the storage scheme.

#include "results/result_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <numeric>
#include <unordered_map>

#include "frame/formats.h"
#include "frame/run_state.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

// Fenwick tree over non-negative weights: prefix sums, search by prefix and
// appends in O(log n).
class Fenwick {
 public:
  void Clear() { t_.clear(); }
  std::size_t Size() const { return t_.size(); }
  bool Empty() const { return t_.empty(); }
  std::int64_t Weight(std::size_t i) const { return Prefix(i + 1) - Prefix(i); }

  void Build(std::vector<std::int64_t> w) {
    t_ = std::move(w);
    const std::size_t n = t_.size();
    for (std::size_t i = 1; i <= n; ++i) {
      const std::size_t j = i + (i & (~i + 1));
      if (j <= n) t_[j - 1] += t_[i - 1];
    }
  }

  void Append(std::int64_t v) {
    const std::size_t m = t_.size() + 1;  // 1-based position of the new entry
    const std::size_t low = m & (~m + 1);
    t_.push_back(v + Prefix(m - 1) - Prefix(m - low));
  }

  // Cutting the tail keeps the tree valid: an entry only covers positions at
  // or before its own.
  void PopBack() { t_.pop_back(); }

  void Add(std::size_t i, std::int64_t d) {
    for (std::size_t j = i + 1; j <= t_.size(); j += j & (~j + 1)) t_[j - 1] += d;
  }

  // Sum of the weights of positions [0, n).
  std::int64_t Prefix(std::size_t n) const {
    std::int64_t s = 0;
    for (std::size_t j = n; j > 0; j -= j & (~j + 1)) s += t_[j - 1];
    return s;
  }

  // The position p whose range holds k (Prefix(p) <= k < Prefix(p + 1)), and
  // Prefix(p) in *before. Size() when k is beyond the total.
  std::size_t Find(std::int64_t k, std::int64_t* before) const {
    std::size_t pos = 0;
    std::int64_t acc = 0;
    std::size_t step = 1;
    while (step * 2 <= t_.size()) step *= 2;
    for (; step > 0; step /= 2) {
      const std::size_t next = pos + step;
      if (next <= t_.size() && acc + t_[next - 1] <= k) {
        pos = next;
        acc += t_[next - 1];
      }
    }
    if (before) *before = acc;
    return pos;
  }

 private:
  std::vector<std::int64_t> t_;
};

using Overflow = std::vector<std::pair<std::string, CellValue>>;

inline std::uint32_t Bit(CellKey k) {
  return 1u << static_cast<unsigned>(k);
}

CellValue* FindOverflow(Overflow* o, std::string_view key) {
  if (!o) return nullptr;
  for (auto& [k, v] : *o) {
    if (k == key) return &v;
  }
  return nullptr;
}

const CellValue* FindOverflow(const Overflow* o, std::string_view key) {
  return FindOverflow(const_cast<Overflow*>(o), key);
}

void PutOverflow(Overflow& o, std::string_view key, const CellValue& v) {
  if (CellValue* old = FindOverflow(&o, key)) {
    *old = v;
  } else {
    o.emplace_back(std::string(key), v);
  }
}

std::string DefaultHardlinkId(const FileRecord& r) {
  const std::int64_t vol = std::llabs(static_cast<long long>(r.VolumeSerialNumber));
  return fmt::format("{:X}-{:X}-{:X}", vol, static_cast<std::uint32_t>(r.FileIndexHigh),
                     static_cast<std::uint32_t>(r.FileIndexLow));
}

// Joins a source folder and a folder below it ("" or "/sub/dir").
std::string JoinFolder(std::string_view source, std::string_view rel) {
  std::string out(source);
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  if (!rel.empty()) {
    if (!out.empty() && out.back() == '/' && rel.front() == '/') rel.remove_prefix(1);
    if (!out.empty() && out.back() != '/' && rel.front() != '/') out += '/';
    out += rel;
  }
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// Name, and "." + Extension when there is one.
std::string NameWithExtension(const FileRecord& r) {
  return r.Extension.empty() ? r.Name : r.Name + "." + r.Extension;
}

std::string DurationText(std::int32_t seconds) {
  if (seconds < 0) seconds = 0;
  return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
}

}  // namespace

std::string FormatAttributeLetters(std::int32_t attributes) {
  std::string s;
  if (attributes & kAttrReadOnly) s += 'R';
  if (attributes & kAttrHidden) s += 'H';
  if (attributes & 4) s += 'S';
  if (attributes & kAttrDirectory) s += 'D';
  if (attributes & 32) s += 'A';
  if (attributes & kAttrReparsePoint) s += 'L';
  return s;
}

namespace {

// The cells most rows never have, kept apart so that a plain row stays small.
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

const FileDetails kNoFileDetails{};
const GroupDetails kNoGroupDetails{};

}  // namespace

struct ResultModel::FileRow {
  std::string name;  // dupname, also the caption
  std::uint32_t folder = 0;
  std::uint32_t folderA = 0;
  std::uint32_t tmp = 0;
  std::uint32_t hardlinkID = 0;
  std::int64_t size = 0;
  double dateVal = 0, dateEval = 0;
  double similar = 0;
  std::int32_t qnr = 0, attr = 0, hardlinks = 0;
  std::int32_t back = kColorWhite, text = 0;
  std::uint32_t present = 0;
  std::uint8_t archiv = 0, getFileInfo = 0;
  std::int8_t check = 0;
  bool isRef = false;
  bool alive = true;
  std::unique_ptr<FileDetails> more;
  FileDetails& M() {
    if (!more) more = std::make_unique<FileDetails>();
    return *more;
  }
  const FileDetails& C() const { return more ? *more : kNoFileDetails; }
};

struct ResultModel::GroupRow {
  std::string title;  // dupname
  std::vector<FileRow> files;
  Fenwick fen;  // live flags of the files; empty while the group has no holes
  std::int32_t live = 0;
  std::int64_t size = 0, sizeG = 0;
  std::int32_t anz = 0, sel = 0;
  double dateVal = 0, dateEval = 0;
  std::int32_t back = kColorWhite, text = 0;
  std::uint32_t present = 0;
  std::int8_t check = 0;
  bool expanded = false;
  bool alive = true;
  std::unique_ptr<GroupDetails> more;
  GroupDetails& M() {
    if (!more) more = std::make_unique<GroupDetails>();
    return *more;
  }
  const GroupDetails& C() const { return more ? *more : kNoGroupDetails; }
};

struct ResultModel::Impl {
  std::vector<GroupRow> groups;
  Fenwick rows;                                 // per group slot: 1 + live files, 0 when removed
  Fenwick alive;                                // per group slot: 1 live, 0 removed
  std::deque<std::string> pool{std::string()};  // id 0 is ""
  std::unordered_map<std::string_view, std::uint32_t> poolIndex{{std::string_view(), 0}};
  Overflow rootExtra;
  std::int64_t rootAnz = 0, rootSize = 0;
};

// ---------------------------------------------------------------------------

ResultModel::ResultModel(const TextCatalog* texts)
    : texts_(texts), impl_(std::make_unique<Impl>()) {
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
  impl_ = std::make_unique<Impl>();
  hasRoot_ = false;
  rootCaption_.clear();
  desc_.clear();
  liveGroups_ = 0;
  groupsCreated_ = 0;
  dupCount_ = dupCountSelected_ = 0;
  filesizeAll_ = filesizeSelected_ = 0;
  sourceDupCount_.assign(opt_.SourceFolders.size(), 0);
  sourceDupSize_.assign(opt_.SourceFolders.size(), 0);
}

void ResultModel::Report_Create_Root_Node(std::string_view caption) {
  Clear();
  hasRoot_ = true;
  rootExpanded_ = true;
  rootCaption_ = caption.empty() ? Texts().Get(txt::T3965) : std::string(caption);
}

std::uint32_t ResultModel::Intern(std::string_view s) {
  auto it = impl_->poolIndex.find(s);
  if (it != impl_->poolIndex.end()) return it->second;
  const auto id = static_cast<std::uint32_t>(impl_->pool.size());
  impl_->pool.emplace_back(s);
  impl_->poolIndex.emplace(impl_->pool.back(), id);
  return id;
}

std::string_view ResultModel::Pooled(std::uint32_t id) const {
  return id < impl_->pool.size() ? std::string_view(impl_->pool[id]) : std::string_view();
}

// ----- row access -----------------------------------------------------------

ResultModel::GroupRow* ResultModel::G(RowRef r) {
  return const_cast<GroupRow*>(static_cast<const ResultModel*>(this)->G(r));
}

const ResultModel::GroupRow* ResultModel::G(RowRef r) const {
  if (r.group < 0 || static_cast<std::size_t>(r.group) >= impl_->groups.size()) return nullptr;
  const GroupRow& g = impl_->groups[static_cast<std::size_t>(r.group)];
  return g.alive ? &g : nullptr;
}

ResultModel::FileRow* ResultModel::F(RowRef r) {
  return const_cast<FileRow*>(static_cast<const ResultModel*>(this)->F(r));
}

const ResultModel::FileRow* ResultModel::F(RowRef r) const {
  const GroupRow* g = G(r);
  if (!g || r.file < 0 || static_cast<std::size_t>(r.file) >= g->files.size()) return nullptr;
  const FileRow& f = g->files[static_cast<std::size_t>(r.file)];
  return f.alive ? &f : nullptr;
}

bool ResultModel::IsValid(RowRef r) const {
  if (r.IsRoot()) return hasRoot_ && r.file < 0;
  return r.file < 0 ? G(r) != nullptr : F(r) != nullptr;
}

bool ResultModel::IsGroupNumberValid(int groupNumber) const {
  return G(RowRef{groupNumber, -1}) != nullptr;
}

int ResultModel::LiveFilePos(const GroupRow& g, int file) const {
  if (g.fen.Empty()) return file;
  return static_cast<int>(g.fen.Prefix(static_cast<std::size_t>(file)));
}

int ResultModel::FileSlotAt(const GroupRow& g, int pos) const {
  if (g.fen.Empty()) return pos;
  return static_cast<int>(g.fen.Find(pos, nullptr));
}

void ResultModel::BumpGroupWeight(int group, int delta) {
  impl_->rows.Add(static_cast<std::size_t>(group), delta);
}

void ResultModel::KillFileSlot(GroupRow& g, int file) {
  auto slot = static_cast<std::size_t>(file);
  g.files[slot] = FileRow{};
  g.files[slot].alive = false;
  --g.live;
  if (slot + 1 == g.files.size()) {
    // Removing at the tail needs no hole: drop it and any dead slots before.
    while (!g.files.empty() && !g.files.back().alive) {
      g.files.pop_back();
      if (!g.fen.Empty()) g.fen.PopBack();
    }
  } else if (g.fen.Empty()) {
    std::vector<std::int64_t> flags(g.files.size());
    for (std::size_t i = 0; i < flags.size(); ++i) flags[i] = g.files[i].alive ? 1 : 0;
    g.fen.Build(std::move(flags));
  } else {
    g.fen.Add(slot, -1);
  }
  if (!g.fen.Empty() && static_cast<std::size_t>(g.live) == g.files.size()) g.fen.Clear();
}

int ResultModel::RowCount() const {
  if (!hasRoot_) return 0;
  return 1 + static_cast<int>(impl_->rows.Prefix(impl_->rows.Size()));
}

RowRef ResultModel::RowByIndex(int index) const {
  if (!hasRoot_ || index < 0) return RowRef{-1, -2};
  if (index == 0) return RowRef{};
  std::int64_t before = 0;
  const std::size_t g = impl_->rows.Find(index - 1, &before);
  if (g >= impl_->groups.size()) return RowRef{-1, -2};
  const int offset = static_cast<int>(index - 1 - before);
  if (offset == 0) return RowRef{static_cast<std::int32_t>(g), -1};
  const GroupRow& gr = impl_->groups[g];
  return RowRef{static_cast<std::int32_t>(g), FileSlotAt(gr, offset - 1)};
}

int ResultModel::IndexOf(RowRef r) const {
  if (!IsValid(r)) return -1;
  if (r.IsRoot()) return 0;
  const int groupIndex =
      1 + static_cast<int>(impl_->rows.Prefix(static_cast<std::size_t>(r.group)));
  if (r.file < 0) return groupIndex;
  return groupIndex + 1 + LiveFilePos(*G(r), r.file);
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
  if (r.IsRoot()) return liveGroups_;
  if (r.file >= 0) return 0;
  return G(r)->live;
}

RowRef ResultModel::Child(RowRef r, int n) const {
  if (!IsValid(r) || n < 0 || n >= ChildCount(r)) return RowRef{-1, -2};
  if (r.IsRoot()) {
    const std::size_t g = impl_->alive.Find(n, nullptr);
    return RowRef{static_cast<std::int32_t>(g), -1};
  }
  return RowRef{r.group, FileSlotAt(*G(r), n)};
}

std::string ResultModel::Caption(RowRef r) const {
  if (!IsValid(r)) return {};
  if (r.IsRoot()) return rootCaption_;
  if (r.file < 0) {
    const GroupRow* g = G(r);
    if (opt_.GroupTitleMode == 3 && sizeFormat_ != kSizeBytes &&
        (g->present & Bit(CellKey::sizeG))) {
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
  if (r.IsRoot()) return hasRoot_ && rootExpanded_;
  if (r.file < 0) {
    if (const GroupRow* g = G(r)) return g->expanded;
  }
  return false;
}

void ResultModel::SetExpanded(RowRef r, bool on) {
  if (r.IsRoot()) {
    rootExpanded_ = on;
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
  for (std::size_t i = 0; i < impl_->groups.size(); ++i) {
    if (!impl_->groups[i].alive) continue;
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
  switch (opt_.GroupTitleMode) {
    case 0:
      if (!first.NameKey.empty()) return first.NameKey;
      return "." + first.Extension;
    case 1: {
      std::string name(ctx.NameAfterIgnore.empty() ? std::string_view(first.Name)
                                                   : ctx.NameAfterIgnore);
      const int n = opt_.FileNameChars;
      if ((opt_.FileNameMethod == 1 || opt_.FileNameMethod == 2) && n > 0) {
        std::u32string cps = ToCodePoints(name);
        if (cps.size() > static_cast<std::size_t>(n)) {
          cps = opt_.FileNameMethod == 1 ? cps.substr(0, static_cast<std::size_t>(n))
                                         : cps.substr(cps.size() - static_cast<std::size_t>(n));
          name = FromCodePoints(cps);
        }
      }
      if (!first.Extension.empty()) name += "." + first.Extension;
      return name;
    }
    case 2:
      if (first.Extension.empty()) return "[Ohne Dateiendung]";
      return UpperCase(first.Extension);
    case 3:
      return std::to_string(first.SIZE);
    case 4:
      return FormatDate(GroupDateValue(first.DateLastModified, opt_), GroupDateMask(opt_));
    case 5:
      return FormatDate(GroupDateValue(first.DateCreated, opt_), GroupDateMask(opt_));
    case 6: {
      std::string a = FormatAttributeLetters(first.Attributes);
      return a.empty() ? std::string("[Keine Attribute]") : a;
    }
    case 7: {
      std::string id =
          ctx.HardlinkId.empty() ? DefaultHardlinkId(first) : std::string(ctx.HardlinkId);
      return fmt::format("{} ({})", id, first.NumberOfLinks);
    }
    case 8:
    case 9: {
      const int q = first.SourceNr;
      std::string_view src =
          q >= 1 && static_cast<std::size_t>(q) <= opt_.SourceFolders.size()
              ? std::string_view(opt_.SourceFolders[static_cast<std::size_t>(q - 1)])
              : std::string_view();
      std::string folder = JoinFolder(src, first.Path);
      if (folder.empty() || folder.back() != '/') folder += '/';
      return folder + NameWithExtension(first);
    }
    default:
      return first.NameKey;
  }
}

int ResultModel::AddGroupRow(std::string_view title, std::int64_t size) {
  if (!hasRoot_) Report_Create_Root_Node();
  const auto number = static_cast<int>(impl_->groups.size());
  GroupRow& g = impl_->groups.emplace_back();
  g.title = std::string(title);
  g.size = size;
  g.back = opt_.Colors.GroupBackColor;
  g.text = opt_.Colors.GroupTextColor;
  g.present = Bit(CellKey::dupname) | Bit(CellKey::size) | Bit(CellKey::anz) | Bit(CellKey::Sel);
  impl_->rows.Append(1);
  impl_->alive.Append(1);
  ++liveGroups_;
  ++groupsCreated_;
  return number;
}

int ResultModel::Search_AddNewGroup(const FileRecord& first, const GroupContext& ctx) {
  const int number = AddGroupRow(GroupTitle(first, ctx), 0);
  GroupRow& g = impl_->groups[static_cast<std::size_t>(number)];
  if (opt_.GroupTitleMode == 4 || opt_.GroupTitleMode == 5) {
    g.M().dateG = g.title;
    g.present |= Bit(CellKey::dateG);
  }
  if (opt_.GroupSize) {
    g.sizeG = first.SIZE;
    g.present |= Bit(CellKey::sizeG);
  }
  if (opt_.GroupDateA) {
    g.dateVal = GroupDateValue(first.DateLastModified, opt_);
    g.present |= Bit(CellKey::dateVal) | Bit(CellKey::date);
  }
  if (opt_.GroupDateB) {
    g.dateEval = GroupDateValue(first.DateCreated, opt_);
    g.present |= Bit(CellKey::dateEval) | Bit(CellKey::dateE);
  }
  if (opt_.GroupAttributes) {
    g.M().attr2 = FormatAttributeLetters(first.Attributes);
    g.present |= Bit(CellKey::attr2);
  }
  return number;
}

RowRef ResultModel::AddFileRowRaw(int groupNumber, std::string_view dupname,
                                  std::string_view folder, std::int64_t size, std::int32_t qnr) {
  GroupRow* g = G(RowRef{groupNumber, -1});
  if (!g) return RowRef{-1, -2};
  g->size += size;
  g->anz += 1;
  FileRow& f = g->files.emplace_back();
  f.name = std::string(dupname);
  f.folder = Intern(folder);
  f.size = size;
  f.qnr = qnr;
  f.present = Bit(CellKey::dupname) | Bit(CellKey::path) | Bit(CellKey::size) | Bit(CellKey::qnr);
  ++g->live;
  if (!g->fen.Empty()) g->fen.Append(1);
  BumpGroupWeight(groupNumber, 1);
  ++dupCount_;
  filesizeAll_ += size;
  return RowRef{groupNumber, static_cast<std::int32_t>(g->files.size() - 1)};
}

RowRef ResultModel::AddFileRow(int groupNumber, const FileRecord& r, const FileRowExtras& x) {
  const int q = r.SourceNr;
  const bool knownSource = q >= 1 && static_cast<std::size_t>(q) <= opt_.SourceFolders.size();
  std::string_view src = knownSource
                             ? std::string_view(opt_.SourceFolders[static_cast<std::size_t>(q - 1)])
                             : std::string_view();
  const RowRef row =
      AddFileRowRaw(groupNumber, NameWithExtension(r), JoinFolder(src, r.Path), r.SIZE, q);
  FileRow* f = F(row);
  if (!f) return row;
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
  f->present |= Bit(CellKey::dateVal) | Bit(CellKey::date) | Bit(CellKey::dateEval) |
                Bit(CellKey::dateE) | Bit(CellKey::attr) | Bit(CellKey::attr2);
  if (r.ArchiveType > 0) {
    f->archiv = r.ArchiveType;
    f->folderA = Intern(r.PathInsideZip);
    f->present |= Bit(CellKey::archiv) | Bit(CellKey::pathA);
    f->text = opt_.Colors.ArchiveFileTextColor;
  }
  if (!x.TmpPath.empty()) {
    f->tmp = Intern(x.TmpPath);
    f->present |= Bit(CellKey::tmppath);
  }
  if (x.HasOwner) {
    f->M().owner = Intern(x.Owner);
    f->present |= Bit(CellKey::owner);
  }
  if (x.HasAudio) {
    f->M().audioDur = x.AudioDurationVal;
    f->M().audioBitrate = x.AudioBitrate;
    f->M().audioSamplingrate = x.AudioSamplingrate;
    f->present |= Bit(CellKey::AudioDurationVal) | Bit(CellKey::AudioDuration) |
                  Bit(CellKey::AudioBitrate) | Bit(CellKey::AudioSamplingrate);
  }
  if (x.HasPicSize) {
    f->M().picW = x.PicW;
    f->M().picH = x.PicH;
    f->present |= Bit(CellKey::picW) | Bit(CellKey::picH);
  }
  bool haveLinks = false;
  if (x.HasHardlinks) {
    f->hardlinks = x.Hardlinks > 1 ? x.Hardlinks : 0;
    f->hardlinkID =
        Intern(x.Hardlinks > 1 ? std::string_view(x.HardlinkID) : std::string_view("-"));
    haveLinks = true;
  } else if (opt_.CriterionHardlink) {
    f->hardlinks = r.NumberOfLinks > 1 ? r.NumberOfLinks : 0;
    f->hardlinkID = Intern(r.NumberOfLinks > 1 ? DefaultHardlinkId(r) : std::string("-"));
    haveLinks = true;
  }
  if (haveLinks) {
    f->present |= Bit(CellKey::hardlinks) | Bit(CellKey::hardlinkID);
    if (f->hardlinks > 1) f->text = opt_.Colors.HardlinkTextColor;
  }
  if (r.PercentMatch > 0) {
    f->similar = r.PercentMatch;
    f->present |= Bit(CellKey::similar);
  }
  if (r.IsReferenceFile) {
    f->isRef = true;
    f->present |= Bit(CellKey::IsRefFile);
    f->text = opt_.Colors.ReferenceFileTextColor;
  }
  if (x.GetFileInfo != 0) {
    f->getFileInfo = x.GetFileInfo;
    f->present |= Bit(CellKey::GetFileInfo);
  }
  return row;
}

int ResultModel::BeginFilesWithoutDupsGroup() {
  Report_Create_Root_Node();
  opt_.GroupSize = opt_.GroupDateA = opt_.GroupDateB = opt_.GroupAttributes = false;
  return AddGroupRow("Dateien ohne Duplikate", 0);
}

void ResultModel::FinishFilesWithoutDupsGroup(int groupNumber) {
  if (GroupRow* g = G(RowRef{groupNumber, -1})) g->anz = dupCount_;
}

// ----- cells -------------------------------------------------------------------

bool ResultModel::HasCell(RowRef r, CellKey k) const {
  if (!IsValid(r)) return false;
  if (r.IsRoot())
    return k == CellKey::anz || k == CellKey::size || (k == CellKey::desc && !desc_.empty());
  if (r.file < 0) return (G(r)->present & Bit(k)) != 0;
  return (F(r)->present & Bit(k)) != 0;
}

CellValue ResultModel::Cell(RowRef r, CellKey k) const {
  if (!HasCell(r, k)) return {};
  auto i64 = [](auto v) { return CellValue(static_cast<std::int64_t>(v)); };
  if (r.IsRoot()) {
    switch (k) {
      case CellKey::anz:
        return i64(impl_->rootAnz);
      case CellKey::size:
        return i64(impl_->rootSize);
      case CellKey::desc:
        return desc_;
      default:
        return {};
    }
  }
  if (r.file < 0) {
    const GroupRow& g = *G(r);
    switch (k) {
      case CellKey::anz:
        return i64(g.anz);
      case CellKey::size:
        return i64(g.size);
      case CellKey::sizeG:
        return i64(g.sizeG);
      case CellKey::dupname:
        return g.title;
      case CellKey::dateG:
        return g.C().dateG;
      case CellKey::dateVal:
        return g.dateVal;
      case CellKey::dateEval:
        return g.dateEval;
      case CellKey::date:
        return FormatDate(g.dateVal, GroupDateMask(opt_));
      case CellKey::dateE:
        return FormatDate(g.dateEval, GroupDateMask(opt_));
      case CellKey::attr2:
        return g.C().attr2;
      case CellKey::Sel:
        return i64(g.sel);
      default:
        return {};
    }
  }
  const FileRow& f = *F(r);
  switch (k) {
    case CellKey::archiv:
      return i64(f.archiv);
    case CellKey::tmppath:
      return std::string(Pooled(f.tmp));
    case CellKey::dupname:
      return f.name;
    case CellKey::qnr:
      return i64(f.qnr);
    case CellKey::path:
      return std::string(Pooled(f.folder));
    case CellKey::pathA:
      return std::string(Pooled(f.folderA));
    case CellKey::size:
      return i64(f.size);
    case CellKey::dateVal:
      return f.dateVal;
    case CellKey::dateEval:
      return f.dateEval;
    case CellKey::date:
      return FormatDate(f.dateVal, opt_.DateFormat);
    case CellKey::dateE:
      return FormatDate(f.dateEval, opt_.DateFormat);
    case CellKey::attr:
      return i64(f.attr);
    case CellKey::attr2:
      return FormatAttributeLetters(f.attr);
    case CellKey::owner:
      return std::string(Pooled(f.C().owner));
    case CellKey::AudioDurationVal:
      return i64(f.C().audioDur);
    case CellKey::AudioDuration:
      return DurationText(f.C().audioDur);
    case CellKey::AudioBitrate:
      return f.C().audioBitrate;
    case CellKey::AudioSamplingrate:
      return f.C().audioSamplingrate;
    case CellKey::picW:
      return i64(f.C().picW);
    case CellKey::picH:
      return i64(f.C().picH);
    case CellKey::hardlinks:
      return i64(f.hardlinks);
    case CellKey::hardlinkID:
      return std::string(Pooled(f.hardlinkID));
    case CellKey::similar:
      return f.similar;
    case CellKey::IsRefFile:
      return i64(f.isRef ? 1 : 0);
    case CellKey::thumbnailpath:
      return std::string(Pooled(f.C().thumb));
    case CellKey::GetFileInfo:
      return i64(f.getFileInfo);
    default:
      return {};
  }
}

CellValue ResultModel::Cell(RowRef r, std::string_view key) const {
  CellKey k;
  if (CellKeyFromName(key, &k)) {
    CellValue v = Cell(r, k);
    if (!std::holds_alternative<std::monostate>(v)) return v;
  }
  if (!IsValid(r)) return {};
  const Overflow* o = r.IsRoot()   ? &impl_->rootExtra
                      : r.file < 0 ? &G(r)->C().extra
                                   : &F(r)->C().extra;
  if (const CellValue* v = FindOverflow(o, key)) return *v;
  return {};
}

void ResultModel::SetCell(RowRef r, CellKey k, const CellValue& v) {
  if (!IsValid(r)) return;
  auto i32 = [&v] { return static_cast<std::int32_t>(CellAsInt(v)); };
  if (r.IsRoot()) {
    switch (k) {
      case CellKey::anz:
        impl_->rootAnz = CellAsInt(v);
        break;
      case CellKey::size:
        impl_->rootSize = CellAsInt(v);
        break;
      case CellKey::desc:
        desc_ = CellAsText(v);
        break;
      default:
        SetCell(r, CellKeyName(k), v);
        break;
    }
    return;
  }
  if (r.file < 0) {
    GroupRow& g = *G(r);
    switch (k) {
      case CellKey::anz:
        g.anz = i32();
        break;
      case CellKey::size:
        g.size = CellAsInt(v);
        break;
      case CellKey::sizeG:
        g.sizeG = CellAsInt(v);
        break;
      case CellKey::dupname:
        g.title = CellAsText(v);
        break;
      case CellKey::dateG:
        g.M().dateG = CellAsText(v);
        break;
      case CellKey::dateVal:
        g.dateVal = CellAsDouble(v);
        break;
      case CellKey::dateEval:
        g.dateEval = CellAsDouble(v);
        break;
      case CellKey::date:
      case CellKey::dateE:
        break;  // made from dateVal / dateEval
      case CellKey::attr2:
        g.M().attr2 = CellAsText(v);
        break;
      case CellKey::Sel:
        g.sel = i32();
        break;
      default: {
        // Not a group cell: keep it as an invisible field under its key.
        PutOverflow(g.M().extra, CellKeyName(k), v);
        return;
      }
    }
    g.present |= Bit(k);
    return;
  }
  FileRow& f = *F(r);
  switch (k) {
    case CellKey::archiv:
      f.archiv = static_cast<std::uint8_t>(std::clamp<std::int64_t>(CellAsInt(v), 0, 255));
      break;
    case CellKey::tmppath:
      f.tmp = Intern(CellAsText(v));
      break;
    case CellKey::dupname:
      f.name = CellAsText(v);
      break;
    case CellKey::qnr:
      f.qnr = i32();
      break;
    case CellKey::path:
      f.folder = Intern(CellAsText(v));
      break;
    case CellKey::pathA:
      f.folderA = Intern(CellAsText(v));
      break;
    case CellKey::size:
      f.size = CellAsInt(v);
      break;
    case CellKey::dateVal:
      f.dateVal = CellAsDouble(v);
      break;
    case CellKey::dateEval:
      f.dateEval = CellAsDouble(v);
      break;
    case CellKey::date:
    case CellKey::dateE:
    case CellKey::attr2:
    case CellKey::AudioDuration:
      break;  // made from their numeric twins
    case CellKey::attr:
      f.attr = i32();
      break;
    case CellKey::owner:
      f.M().owner = Intern(CellAsText(v));
      break;
    case CellKey::AudioDurationVal:
      f.M().audioDur = i32();
      break;
    case CellKey::AudioBitrate:
      f.M().audioBitrate = CellAsDouble(v);
      break;
    case CellKey::AudioSamplingrate:
      f.M().audioSamplingrate = CellAsDouble(v);
      break;
    case CellKey::picW:
      f.M().picW = i32();
      break;
    case CellKey::picH:
      f.M().picH = i32();
      break;
    case CellKey::hardlinks:
      f.hardlinks = i32();
      break;
    case CellKey::hardlinkID:
      f.hardlinkID = Intern(CellAsText(v));
      break;
    case CellKey::similar:
      f.similar = CellAsDouble(v);
      break;
    case CellKey::IsRefFile:
      f.isRef = CellAsInt(v) != 0;
      break;
    case CellKey::thumbnailpath:
      f.M().thumb = Intern(CellAsText(v));
      break;
    case CellKey::GetFileInfo:
      f.getFileInfo = static_cast<std::uint8_t>(CellAsInt(v) & 0xFF);
      break;
    default: {
      PutOverflow(f.M().extra, CellKeyName(k), v);
      return;
    }
  }
  f.present |= Bit(k);
}

void ResultModel::SetCell(RowRef r, std::string_view key, const CellValue& v) {
  if (!IsValid(r)) return;
  CellKey k;
  if (CellKeyFromName(key, &k)) {
    const bool isRoot = r.IsRoot();
    const bool rootKey = k == CellKey::anz || k == CellKey::size || k == CellKey::desc;
    if (!isRoot || rootKey) {
      SetCell(r, k, v);
      return;
    }
  }
  Overflow& o = r.IsRoot() ? impl_->rootExtra : r.file < 0 ? G(r)->M().extra : F(r)->M().extra;
  PutOverflow(o, key, v);
}

void ResultModel::RemoveCell(RowRef r, CellKey k) {
  if (r.IsRoot()) {
    if (k == CellKey::desc) desc_.clear();
    return;
  }
  if (r.file < 0) {
    if (GroupRow* g = G(r)) g->present &= ~Bit(k);
  } else if (FileRow* f = F(r)) {
    f->present &= ~Bit(k);
  }
}

std::vector<std::pair<std::string, CellValue>> ResultModel::Cells(RowRef r) const {
  std::vector<std::pair<std::string, CellValue>> out;
  if (!IsValid(r)) return out;
  for (int i = 0; i < kCellKeyCount; ++i) {
    const auto k = static_cast<CellKey>(i);
    if (HasCell(r, k)) out.emplace_back(std::string(CellKeyName(k)), Cell(r, k));
  }
  const Overflow* o = r.IsRoot()   ? &impl_->rootExtra
                      : r.file < 0 ? &G(r)->C().extra
                                   : &F(r)->C().extra;
  out.insert(out.end(), o->begin(), o->end());
  return out;
}

std::string_view ResultModel::FileName(RowRef file) const {
  const FileRow* f = F(file);
  return f ? std::string_view(f->name) : std::string_view();
}

std::string_view ResultModel::FileFolder(RowRef file) const {
  const FileRow* f = F(file);
  return f ? Pooled(f->folder) : std::string_view();
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

std::string ResultModel::File_GetPathFromNode(RowRef file) const {
  const FileRow* f = F(file);
  if (!f) return {};
  std::string p(Pooled(f->folder));
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
    if (g->present & Bit(CellKey::sizeG)) return g->sizeG;
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
    impl_->rootAnz = dupCount_;
    impl_->rootSize = filesizeAll_;
  }
  d.Groups = liveGroups_;
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
  KillFileSlot(*g, file.file);
  BumpGroupWeight(file.group, -1);
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
  const auto slot = static_cast<std::size_t>(group.group);
  impl_->rows.Add(slot, -impl_->rows.Weight(slot));
  impl_->alive.Add(slot, -1);
  impl_->groups[slot] = GroupRow{};
  impl_->groups[slot].alive = false;
  --liveGroups_;
}

void ResultModel::Compact() {
  std::vector<GroupRow> kept;
  kept.reserve(static_cast<std::size_t>(liveGroups_));
  for (GroupRow& g : impl_->groups) {
    if (!g.alive) continue;
    if (!g.fen.Empty()) {
      std::erase_if(g.files, [](const FileRow& f) { return !f.alive; });
      g.fen.Clear();
    }
    kept.push_back(std::move(g));
  }
  impl_->groups = std::move(kept);
  std::vector<std::int64_t> rows(impl_->groups.size()), alive(impl_->groups.size(), 1);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = 1 + impl_->groups[i].live;
  impl_->rows.Build(std::move(rows));
  impl_->alive.Build(std::move(alive));
}

int ResultModel::RemoveGroup_DupsNotExistAtAllSourcefolders(const RunState* run) {
  const std::size_t sources = opt_.SourceFolders.size();
  std::vector<std::int32_t> seen(sources, 0);
  int removed = 0;
  for (std::size_t i = 0; i < impl_->groups.size(); ++i) {
    if (run && run->StopRequested()) break;
    const GroupRow& g = impl_->groups[i];
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

namespace {

struct SortKey {
  std::string folded;
  std::string_view raw;
  std::int64_t number = 0;
  std::size_t slot = 0;
};

bool TextLess(const SortKey& a, const SortKey& b) {
  if (a.folded != b.folded) return a.folded < b.folded;
  return a.raw < b.raw;
}

}  // namespace

void ResultModel::SortRows() {
  Compact();
  auto& groups = impl_->groups;
  const bool bySize = opt_.GroupTitleMode == 3;
  std::vector<SortKey> keys(groups.size());
  for (std::size_t i = 0; i < groups.size(); ++i) {
    GroupRow& g = groups[i];
    keys[i].slot = i;
    keys[i].raw = g.title;
    if (bySize) {
      keys[i].number = (g.present & Bit(CellKey::sizeG)) ? g.sizeG : std::atoll(g.title.c_str());
    } else {
      keys[i].folded = LowerCase(g.title);
    }
    // Files of the group by caption.
    std::vector<SortKey> fk(g.files.size());
    for (std::size_t j = 0; j < g.files.size(); ++j) {
      fk[j].slot = j;
      fk[j].raw = g.files[j].name;
      fk[j].folded = LowerCase(g.files[j].name);
    }
    std::stable_sort(fk.begin(), fk.end(), TextLess);
    std::vector<FileRow> files;
    files.reserve(g.files.size());
    for (const SortKey& k : fk) files.push_back(std::move(g.files[k.slot]));
    g.files = std::move(files);
  }
  if (bySize) {
    std::stable_sort(keys.begin(), keys.end(),
                     [](const SortKey& a, const SortKey& b) { return a.number > b.number; });
  } else {
    std::stable_sort(keys.begin(), keys.end(), TextLess);
  }
  std::vector<GroupRow> sorted;
  sorted.reserve(groups.size());
  for (const SortKey& k : keys) sorted.push_back(std::move(groups[k.slot]));
  groups = std::move(sorted);
  Compact();
}

void ResultModel::Group_ExpandAll(bool expand) {
  for (GroupRow& g : impl_->groups) g.expanded = expand;
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

void ResultModel::SetDescription(std::string d) {
  desc_ = std::move(d);
}

}  // namespace kelvor
