// Row storage of the result model: slots, the index map and compaction.

#include "results/result_rows.h"

#include <algorithm>
#include <cstdlib>

#include "frame/unicode.h"

namespace kelvor::result_detail {

namespace {

const FileDetails kNoFileDetails{};
const GroupDetails kNoGroupDetails{};

}  // namespace

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

std::uint32_t StringPool::Intern(std::string_view s) {
  auto it = index_.find(s);
  if (it != index_.end()) return it->second;
  const auto id = static_cast<std::uint32_t>(pool_.size());
  pool_.emplace_back(s);
  index_.emplace(pool_.back(), id);
  return id;
}

const FileDetails& FileRow::C() const {
  return more ? *more : kNoFileDetails;
}

const GroupDetails& GroupRow::C() const {
  return more ? *more : kNoGroupDetails;
}

// ----- slots and indices -------------------------------------------------------

const GroupRow* RowStore::Group(RowRef r) const {
  if (r.group < 0 || static_cast<std::size_t>(r.group) >= groups_.size()) return nullptr;
  const GroupRow& g = groups_[static_cast<std::size_t>(r.group)];
  return g.alive ? &g : nullptr;
}

const FileRow* RowStore::File(RowRef r) const {
  const GroupRow* g = Group(r);
  if (!g || r.file < 0 || static_cast<std::size_t>(r.file) >= g->files.size()) return nullptr;
  const FileRow& f = g->files[static_cast<std::size_t>(r.file)];
  return f.alive ? &f : nullptr;
}

int RowStore::LiveFilePos(const GroupRow& g, int file) const {
  if (g.fen.Empty()) return file;
  return static_cast<int>(g.fen.Prefix(static_cast<std::size_t>(file)));
}

int RowStore::FileSlotAt(const GroupRow& g, int pos) const {
  if (g.fen.Empty()) return pos;
  return static_cast<int>(g.fen.Find(pos, nullptr));
}

RowRef RowStore::ByIndex(int index) const {
  std::int64_t before = 0;
  const std::size_t g = rows_.Find(index - 1, &before);
  if (g >= groups_.size()) return RowRef{-1, -2};
  const int offset = static_cast<int>(index - 1 - before);
  if (offset == 0) return RowRef{static_cast<std::int32_t>(g), -1};
  return RowRef{static_cast<std::int32_t>(g), FileSlotAt(groups_[g], offset - 1)};
}

int RowStore::IndexOf(RowRef r) const {
  const int groupIndex = 1 + static_cast<int>(rows_.Prefix(static_cast<std::size_t>(r.group)));
  if (r.file < 0) return groupIndex;
  return groupIndex + 1 + LiveFilePos(*Group(r), r.file);
}

RowRef RowStore::NthGroup(int n) const {
  return RowRef{static_cast<std::int32_t>(alive_.Find(n, nullptr)), -1};
}

RowRef RowStore::NthFile(RowRef group, int n) const {
  return RowRef{group.group, FileSlotAt(*Group(group), n)};
}

// ----- adding and removing -------------------------------------------------------

int RowStore::AddGroup() {
  const auto number = static_cast<int>(groups_.size());
  groups_.emplace_back();
  rows_.Append(1);
  alive_.Append(1);
  ++liveGroups_;
  return number;
}

RowRef RowStore::AddFile(int group) {
  GroupRow* g = Group(RowRef{group, -1});
  if (!g) return RowRef{-1, -2};
  g->files.emplace_back();
  ++g->live;
  if (!g->fen.Empty()) g->fen.Append(1);
  rows_.Add(static_cast<std::size_t>(group), 1);
  return RowRef{group, static_cast<std::int32_t>(g->files.size() - 1)};
}

void RowStore::RemoveFile(RowRef file) {
  GroupRow& g = groups_[static_cast<std::size_t>(file.group)];
  const auto slot = static_cast<std::size_t>(file.file);
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
  rows_.Add(static_cast<std::size_t>(file.group), -1);
}

void RowStore::RemoveGroup(int group) {
  const auto slot = static_cast<std::size_t>(group);
  rows_.Add(slot, -rows_.Weight(slot));
  alive_.Add(slot, -1);
  groups_[slot] = GroupRow{};
  groups_[slot].alive = false;
  --liveGroups_;
}

void RowStore::Compact() {
  std::vector<GroupRow> kept;
  kept.reserve(static_cast<std::size_t>(liveGroups_));
  for (GroupRow& g : groups_) {
    if (!g.alive) continue;
    if (!g.fen.Empty()) {
      std::erase_if(g.files, [](const FileRow& f) { return !f.alive; });
      g.fen.Clear();
    }
    kept.push_back(std::move(g));
  }
  groups_ = std::move(kept);
  std::vector<std::int64_t> rows(groups_.size()), alive(groups_.size(), 1);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = 1 + groups_[i].live;
  rows_.Build(std::move(rows));
  alive_.Build(std::move(alive));
}

// ----- sorting --------------------------------------------------------------------

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

void RowStore::Sort(bool groupsBySize) {
  Compact();
  std::vector<SortKey> keys(groups_.size());
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    GroupRow& g = groups_[i];
    keys[i].slot = i;
    keys[i].raw = g.title;
    if (groupsBySize) {
      keys[i].number =
          (g.present & CellBit(CellKey::sizeG)) ? g.sizeG : std::atoll(g.title.c_str());
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
  if (groupsBySize) {
    std::stable_sort(keys.begin(), keys.end(),
                     [](const SortKey& a, const SortKey& b) { return a.number > b.number; });
  } else {
    std::stable_sort(keys.begin(), keys.end(), TextLess);
  }
  std::vector<GroupRow> sorted;
  sorted.reserve(groups_.size());
  for (const SortKey& k : keys) sorted.push_back(std::move(groups_[k.slot]));
  groups_ = std::move(sorted);
  Compact();
}

}  // namespace kelvor::result_detail
