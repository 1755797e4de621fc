// CStringCollection: keyed list over a red-black tree in flat arrays.

#include "data/string_collection.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "data/rb_tree.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

constexpr const char* kAddSource = "CStringCollection.Add";

[[noreturn]] void ArrayFault(const char* where) {
  throw CollectionError(9, where, "Subscript out of range");
}

int Sign(int c) {
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

}  // namespace

CollectionError::CollectionError(int n, std::string src, std::string desc)
    : std::runtime_error(src + ": " + desc),
      number(n),
      source(std::move(src)),
      description(std::move(desc)) {}

std::int64_t RoundHalfEven(double v) {
  const double f = std::floor(v);
  const double d = v - f;
  auto whole = static_cast<std::int64_t>(f);
  if (d > 0.5) return whole + 1;
  if (d < 0.5) return whole;
  return (whole % 2 == 0) ? whole : whole + 1;
}

// ---------------------------------------------------------------------------
// CNode

void CNode::Init(std::int32_t size, float growth) {
  if (size < 1) size = 1;
  Growth_ = growth;
  NextFree_.assign(static_cast<std::size_t>(size) + 1, 0);
  for (std::int32_t i = 1; i < size; ++i) NextFree_[i] = i + 1;
  NextFree_[size] = 0;
  FreeHead_ = 1;
}

std::int32_t CNode::Alloc() {
  if (FreeHead_ == 0) {
    const std::int32_t b = UpperBound();
    std::int64_t nb = RoundHalfEven(static_cast<double>(Growth_) * b);
    if (nb <= b) nb = static_cast<std::int64_t>(b) + 1;  // a factor near 1 must still grow
    if (nb > INT32_MAX - 4) throw std::length_error("CNode: too many nodes");
    const auto newB = static_cast<std::int32_t>(nb);
    NextFree_.reserve(static_cast<std::size_t>(newB) + 1);
    NextFree_.resize(static_cast<std::size_t>(newB) + 1);
    for (std::int32_t i = b + 1; i < newB; ++i) NextFree_[i] = i + 1;
    NextFree_[newB] = 0;
    FreeHead_ = b + 1;
  }
  const std::int32_t n = FreeHead_;
  FreeHead_ = NextFree_[n];
  return n;
}

void CNode::Free(std::int32_t node) {
  if (node < 1 || node > UpperBound()) return;
  NextFree_[node] = FreeHead_;
  FreeHead_ = node;
}

// ---------------------------------------------------------------------------
// CStringCollection

void CStringCollection::Init(std::int32_t size, double growth) {
  if (size < 1) size = 1;
  Growth = growth;
  Nodes_.clear();
  Nodes_.shrink_to_fit();
  Nodes_.resize(static_cast<std::size_t>(size) + 1);
  PositionIndex_.assign(static_cast<std::size_t>(size) + 2, 0);
  Nodes_[0] = TreeNode{};
  Root_ = 0;
  Count_ = 0;
  Allocator_ = CNode{};
  Allocator_.Init(size, static_cast<float>(growth));
  Initialised_ = true;
}

std::int32_t CStringCollection::Clear() {
  if (Initialised_) {
    Allocator_ = CNode{};
    PositionIndex_.clear();
    PositionIndex_.shrink_to_fit();
    Nodes_.clear();
    Nodes_.shrink_to_fit();
    Count_ = 0;
    Root_ = 0;
    Initialised_ = false;
  }
  return 0;
}

std::int32_t CStringCollection::PositionIndexAt(std::int32_t position) const {
  if (position < 1 || static_cast<std::size_t>(position) >= PositionIndex_.size()) {
    ArrayFault("CStringCollection");
  }
  return PositionIndex_[position];
}

std::int32_t CStringCollection::NodeAtPosition(std::int32_t position) const {
  return PositionIndexAt(position);
}

int CStringCollection::CompareWithNode(std::string_view searchKey, std::int32_t node) const {
  const TreeNode& n = Nodes_[node];
  const std::string_view nodeKey = CompareMode_ == 0 ? n.Key : n.Folded;
  return Sign(searchKey.compare(nodeKey));
}

int CStringCollection::CompareItems(std::string_view a, std::string_view b,
                                    std::int32_t mode) const {
  if (mode == 0) return Sign(a.compare(b));
  return Sign(LowerCase(a).compare(LowerCase(b)));
}

std::int32_t CStringCollection::FindNode(std::string_view key) const {
  if (Count_ == 0 || !Initialised_) return 0;
  std::string folded;
  std::string_view search = key;
  if (CompareMode_ != 0) {
    AppendLowerCase(key, folded);
    search = folded;
  }
  std::int32_t n = Root_;
  while (n != 0) {
    const int c = CompareWithNode(search, n);
    if (c == 0) return n;
    n = c < 0 ? Nodes_[n].Left : Nodes_[n].Right;
  }
  return 0;
}

std::int32_t CStringCollection::GetKeyIndex(const KeyArg& key) const {
  if (key.isPosition) {
    if (key.position < 1 || key.position > Count_) return 0;
    return PositionIndex_[key.position];
  }
  return FindNode(key.text);
}

std::int32_t CStringCollection::GetIndex(std::int32_t node) const {
  for (std::int32_t i = 1; i <= Count_; ++i) {
    if (PositionIndex_[i] == node) return i;
  }
  return 0;
}

std::int32_t CStringCollection::ExistKey(std::string_view key) const {
  return FindNode(key);
}

std::int32_t CStringCollection::Add(std::string_view item, std::string_view key, std::int32_t tag,
                                    const AddOptions& options, std::int32_t* foundTag,
                                    std::int32_t* foundNode) {
  if (!Initialised_) Init(InitialSize, Growth);

  // Walk the tree, remembering the last node visited as the parent.
  std::string folded;
  std::string_view search = key;
  if (CompareMode_ != 0) {
    AppendLowerCase(key, folded);
    search = folded;
  }
  std::int32_t parent = 0;
  int side = 0;
  if (!key.empty()) {
    std::int32_t n = Root_;
    while (n != 0) {
      parent = n;
      side = CompareWithNode(search, n);
      if (side == 0) {
        if (!AllowDuplicateKeys) {
          if (foundTag) *foundTag = Nodes_[n].Tag;
          if (foundNode) *foundNode = n;
          if (options.RaiseDuplicate) {
            throw CollectionError(
                8, kAddSource,
                std::string(CompareMode_ != 0 ? "Duplicate KeyA: " : "Duplicate KeyB: ") +
                    std::string(key));
          }
          return 0;
        }
        side = 1;  // duplicates allowed: equal keys go to the right
      }
      n = side < 0 ? Nodes_[n].Left : Nodes_[n].Right;
    }
  }

  const std::int32_t node = Allocator_.Alloc();
  const std::int32_t b = NodesUpperBound();
  if (node > b) {
    std::int64_t nb = std::max<std::int64_t>(RoundHalfEven(b * Growth), node);
    std::int64_t npi = std::max<std::int64_t>(RoundHalfEven(b * Growth + 2), nb + 1);
    Nodes_.reserve(static_cast<std::size_t>(nb) + 1);
    Nodes_.resize(static_cast<std::size_t>(nb) + 1);
    PositionIndex_.reserve(static_cast<std::size_t>(npi) + 1);
    PositionIndex_.resize(static_cast<std::size_t>(npi) + 1, 0);
  }

  TreeNode& t = Nodes_[node];
  t.Parent = parent;
  t.Left = 0;
  t.Right = 0;
  t.Color = 1;
  ++Count_;

  std::int32_t position = Count_;
  if (options.Before || options.After) {
    const bool before = options.Before.has_value();
    const KeyArg& ref = before ? *options.Before : *options.After;
    const std::int32_t refNode = GetKeyIndex(ref);
    if (refNode == 0) {
      // The node stays allocated and Count raised, with a 0 in the index.
      if (options.RaiseDuplicate) {
        throw CollectionError(
            2, kAddSource,
            std::string(before ? "Key not found before: " : "Key not found after: ") +
                ref.ToText());
      }
      return 0;
    }
    position = GetIndex(refNode) + (before ? 0 : 1);
  } else if (options.Sorted && Count_ - 1 >= 1) {
    const std::int32_t last = Count_ - 1;
    const std::int32_t mode = options.SortCompareMode;
    auto itemAt = [&](std::int32_t pos) -> const std::string& {
      return Nodes_[PositionIndex_[pos]].Item;
    };
    if (CompareItems(item, itemAt(1), mode) < 0) {
      position = 1;
    } else if (CompareItems(item, itemAt(last), mode) > 0) {
      position = Count_;
    } else {
      std::int32_t low = 1;
      std::int32_t high = last;
      std::int32_t mid = low;
      for (;;) {
        mid = (low + high) / 2;
        if (mid == low) break;
        const int c = CompareItems(item, itemAt(mid), mode);
        if (c == 0) break;
        if (c < 0) {
          high = mid;
        } else {
          low = mid;
        }
      }
      while (mid < last && CompareItems(item, itemAt(mid + 1), mode) == 0) ++mid;
      position = mid + 1;
    }
  }
  if (position < 1) position = 1;
  if (position != Count_) {
    std::memmove(&PositionIndex_[position + 1], &PositionIndex_[position],
                 static_cast<std::size_t>(Count_ - position) * sizeof(std::int32_t));
  }
  PositionIndex_[position] = node;

  TreeNode& s = Nodes_[node];
  s.Key.assign(key);
  s.Folded.assign(CompareMode_ != 0 ? std::string_view(folded) : std::string_view(LowerCase(key)));
  s.Item.assign(item);
  s.Tag = tag;

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

void CStringCollection::RemoveBeforeClear(std::int32_t slot) {
  const std::int32_t n = slot - 1;
  if (n < 0 || n > NodesUpperBound()) ArrayFault("CStringCollection");
  Nodes_[n].Item.assign(1, '1');
  Nodes_[n].Key.assign(1, '1');
  Nodes_[n].Folded.assign(1, '1');
}

std::int32_t CStringCollection::Remove(KeyArg key, std::int32_t index) {
  std::int32_t z = 0;
  if (index >= 1) {
    z = PositionIndexAt(index);
  } else {
    z = GetKeyIndex(key);
  }
  if (z == 0) return 0;

  const auto [y, x] = rb::Unlink(*this, z);

  if (y != z) {
    Nodes_[z].Key = Nodes_[y].Key;
    Nodes_[z].Folded = Nodes_[y].Folded;
    Nodes_[z].Item = Nodes_[y].Item;
    Nodes_[z].Tag = Nodes_[y].Tag;
    const std::int32_t pz = GetIndex(z);
    const std::int32_t pyPos = GetIndex(y);
    if (pz != 0) PositionIndex_[pz] = y;
    if (pyPos != 0) PositionIndex_[pyPos] = z;
  }
  if (!Red(y)) rb::DeleteFixup(*this, x);

  Nodes_[y].Item.clear();
  Nodes_[y].Key.clear();
  Nodes_[y].Folded.clear();
  Nodes_[y].Tag = 0;

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

void CStringCollection::ChangeValues(KeyArg key, std::string_view item, std::int32_t tag) {
  const std::int32_t n = GetKeyIndex(key);
  if (n == 0) throw CollectionError(2, "ChangeValues", "Key: " + key.ToText());
  Nodes_[n].Item.assign(item);
  Nodes_[n].Tag = tag;
}

std::string CStringCollection::Item(KeyArg key) const {
  const std::int32_t n = GetKeyIndex(key);
  if (n == 0) {
    if (RaiseError_) throw CollectionError(2, "Get Item", "Key: " + key.ToText());
    return {};
  }
  return Nodes_[n].Item;
}

void CStringCollection::SetItem(KeyArg key, std::string_view item) {
  const std::int32_t n = GetKeyIndex(key);
  if (n == 0) throw CollectionError(2, "Let Item", "Key: " + key.ToText());
  Nodes_[n].Item.assign(item);
}

std::int32_t CStringCollection::Tag(KeyArg key, bool noError) const {
  const std::int32_t n = GetKeyIndex(key);
  if (n == 0) {
    if (RaiseError_ && !noError) throw CollectionError(2, "Get Tag", "Key: " + key.ToText());
    return -1;
  }
  return Nodes_[n].Tag;
}

void CStringCollection::SetTag(KeyArg key, std::int32_t tag, bool noError) {
  const std::int32_t n = GetKeyIndex(key);
  if (n == 0) {
    if (RaiseError_ && !noError) {
      throw CollectionError(2, "Let Tag",
                            "Key: " + key.ToText() + " NewTag: " + std::to_string(tag));
    }
    return;
  }
  Nodes_[n].Tag = tag;
}

std::string CStringCollection::Key(std::int32_t index) const {
  if (index < 0 || index > Count_) {
    throw CollectionError(1, "Get Key", "Index: " + std::to_string(index));
  }
  return Nodes_[PositionIndexAt(index)].Key;
}

void CStringCollection::SetKey(std::int32_t index, std::string_view newKey) {
  if (index < 0 || index > Count_) {
    throw CollectionError(1, "Let Key",
                          "Index: " + std::to_string(index) + " NewKey: " + std::string(newKey));
  }
  const std::int32_t node = PositionIndexAt(index);
  if (FindNode(newKey) == 0) return;  // an unknown new key changes nothing
  if (!AllowDuplicateKeys) {
    throw CollectionError(8, "Let Key",
                          "Index: " + std::to_string(index) + " NewKey: " + std::string(newKey));
  }
  // The key changes in place; the node is not moved in the tree.
  Nodes_[node].Key.assign(newKey);
  Nodes_[node].Folded = LowerCase(newKey);
}

}  // namespace kelvor
