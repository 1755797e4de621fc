#pragma once
// CStringCollection: the general keyed list. A string key maps to a string
// item and a 32-bit tag, and the same entries can be read by position.
//
// Three structures in one object, all in flat arrays with 32-bit numbers in
// place of pointers:
//  - a red-black tree whose nodes are array slots (slot 0 is the nil node),
//    for lookup by key;
//  - a position index, mapping position 1..Count to a node number, which
//    keeps insertion order and gives constant-time access by position;
//  - CNode, the free list of node numbers.
// The arrays grow by a factor (1.5) rounded half to even, so that 100 slots
// become 150 and the position index 152.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

// What the collections raise: a number (1 position out of range, 2 key
// missing, 8 duplicate key, 9 array bound fault), a source and a description.
class CollectionError : public std::runtime_error {
 public:
  CollectionError(int number, std::string source, std::string description);
  int number;
  std::string source;
  std::string description;
};

// Nearest integer, ties to the even neighbour (150.5 -> 150, 151.5 -> 152),
// independent of the floating-point rounding mode.
std::int64_t RoundHalfEven(double v);

// The free list of node numbers. The last freed node is the next handed out.
class CNode {
 public:
  // NextFree[1..size] chained 1 -> 2 -> ... -> size -> 0, FreeHead = 1.
  void Init(std::int32_t size, float growth);
  // Head of the list; grows the list by Growth first when it is empty.
  std::int32_t Alloc();
  // Pushes a node on the head of the list.
  void Free(std::int32_t node);
  std::int32_t UpperBound() const { return static_cast<std::int32_t>(NextFree_.size()) - 1; }
  std::int32_t FreeHead() const { return FreeHead_; }

 private:
  std::vector<std::int32_t> NextFree_;  // index 0 unused
  std::int32_t FreeHead_ = 0;
  float Growth_ = 1.5f;
};

// A key argument that may be a position (an integer) or a key text. A key
// made of digits is found only when passed as text.
struct KeyArg {
  KeyArg(std::int32_t pos) : isPosition(true), position(pos) {}  // NOLINT: implicit by design
  KeyArg(std::string_view t) : text(t) {}                        // NOLINT
  KeyArg(const char* t) : text(t) {}                             // NOLINT
  KeyArg(const std::string& t) : text(t) {}                      // NOLINT
  std::string ToText() const { return isPosition ? std::to_string(position) : std::string(text); }

  bool isPosition = false;
  std::int32_t position = 0;
  std::string_view text;
};

// The optional arguments of CStringCollection::Add.
struct CollectionAddOptions {
  std::optional<KeyArg> Before;      // insert in front of this entry
  std::optional<KeyArg> After;       // insert behind this entry
  bool RaiseDuplicate = false;       // raise errors 8 / 2 instead of returning 0
  bool Sorted = false;               // binary search on the items for the position
  std::int32_t SortCompareMode = 0;  // 0 binary, 1 text
};

class CStringCollection {
 public:
  struct TreeNode {
    std::int32_t Left = 0;
    std::int32_t Right = 0;
    std::int32_t Parent = 0;
    std::int32_t Color = 0;  // 1 red, 0 black
    std::string Key;         // as given, case kept
    std::string Item;
    std::int32_t Tag = 0;
    std::string Folded;  // lower case of Key, made once when the key is stored
  };

  using AddOptions = CollectionAddOptions;

  bool AllowDuplicateKeys = false;
  double Growth = 1.5;
  std::int32_t InitialSize = 100;

  CStringCollection() = default;

  // Sets Item and Tag of an entry; a missing key always raises error 2.
  void ChangeValues(KeyArg key, std::string_view item, std::int32_t tag);

  // Adds an entry and returns its node number, or 0 (duplicate key, unknown
  // Before/After). On a duplicate, *foundTag and *foundNode get the entry
  // that holds the key. An empty key skips the duplicate test and becomes the
  // new root, cutting the earlier tree off (its entries stay reachable by
  // position only).
  std::int32_t Add(std::string_view item, std::string_view key = {}, std::int32_t tag = 0,
                   const AddOptions& options = {}, std::int32_t* foundTag = nullptr,
                   std::int32_t* foundNode = nullptr);

  // Overwrites Item and Key of the node slot below `slot` with "1".
  void RemoveBeforeClear(std::int32_t slot);

  // Removes the entry at position `index` when index >= 1 (no test against
  // Count), else the entry of `key`. Returns the position the entry had, 0
  // when nothing was removed.
  std::int32_t Remove(KeyArg key, std::int32_t index = 0);

  void Init(std::int32_t size, double growth);
  std::int32_t Clear();

  // Node number of a key text, 0 when missing. Never raises.
  std::int32_t ExistKey(std::string_view key) const;

  std::string Item(KeyArg key) const;
  void SetItem(KeyArg key, std::string_view item);
  std::int32_t Tag(KeyArg key, bool noError = false) const;
  void SetTag(KeyArg key, std::int32_t tag, bool noError = false);
  std::string Key(std::int32_t index) const;
  void SetKey(std::int32_t index, std::string_view newKey);

  std::int32_t Count() const { return Count_; }
  std::int32_t CompareMode() const { return CompareMode_; }
  void SetCompareMode(std::int32_t mode) { CompareMode_ = mode; }
  bool RaiseError() const { return RaiseError_; }
  void SetRaiseError(bool v) { RaiseError_ = v; }

  bool Initialised() const { return Initialised_; }
  // Upper bounds of the arrays (Nodes 0..n, PositionIndex 1..n); -1 / 0
  // while not initialised.
  std::int32_t NodesUpperBound() const { return static_cast<std::int32_t>(Nodes_.size()) - 1; }
  std::int32_t PositionIndexUpperBound() const {
    return PositionIndex_.empty() ? 0 : static_cast<std::int32_t>(PositionIndex_.size()) - 1;
  }
  // Node number stored at a position (array fault outside the bounds).
  std::int32_t NodeAtPosition(std::int32_t position) const;
  std::int32_t Root() const { return Root_; }

  // Tree access for the repair steps.
  std::int32_t& L(std::int32_t n) { return Nodes_[n].Left; }
  std::int32_t& R(std::int32_t n) { return Nodes_[n].Right; }
  std::int32_t& P(std::int32_t n) { return Nodes_[n].Parent; }
  bool Red(std::int32_t n) const { return Nodes_[n].Color == 1; }
  void SetRed(std::int32_t n, bool red) { Nodes_[n].Color = (red && n != 0) ? 1 : 0; }
  std::int32_t& RootRef() { return Root_; }

 private:
  std::int32_t GetKeyIndex(const KeyArg& key) const;
  std::int32_t GetIndex(std::int32_t node) const;
  std::int32_t FindNode(std::string_view key) const;
  // Compares a search key (already folded in text mode) with a node's key.
  int CompareWithNode(std::string_view searchKey, std::int32_t node) const;
  int CompareItems(std::string_view a, std::string_view b, std::int32_t mode) const;
  std::int32_t PositionIndexAt(std::int32_t position) const;

  std::vector<TreeNode> Nodes_;
  std::int32_t Root_ = 0;
  CNode Allocator_;
  bool Initialised_ = false;
  std::int32_t Count_ = 0;
  std::vector<std::int32_t> PositionIndex_;  // index 0 unused
  std::int32_t CompareMode_ = 1;
  bool RaiseError_ = false;
};

}  // namespace kelvor
