// CStringCollection: keys, positions, growth, removal, errors.

#include "data/string_collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "frame/unicode.h"

namespace kelvor {
namespace {

std::string fmt_key(int i) {
  return "key" + std::string(i < 10 ? "0" : "") + std::to_string(i);
}

std::vector<std::string> KeysByPosition(const CStringCollection& c) {
  std::vector<std::string> out;
  for (std::int32_t i = 1; i <= c.Count(); ++i) out.push_back(c.Key(i));
  return out;
}

// Checks the red-black rules and returns the black height (-1 on a breach).
int BlackHeight(CStringCollection& c, std::int32_t n, std::int32_t parent) {
  if (n == 0) return 1;
  if (c.P(n) != parent) return -1;
  if (c.Red(n) && (c.Red(c.L(n)) || c.Red(c.R(n)))) return -1;
  const int l = BlackHeight(c, c.L(n), n);
  const int r = BlackHeight(c, c.R(n), n);
  if (l < 0 || r < 0 || l != r) return -1;
  return l + (c.Red(n) ? 0 : 1);
}

TEST(StringCollection, KeysThatDifferInCaseAreOneKeyAndTheFirstFormStays) {
  CStringCollection c;
  EXPECT_EQ(c.Add("first", "Readme", 7), 1);
  std::int32_t foundTag = 0, foundNode = 0;
  EXPECT_EQ(c.Add("second", "README", 9, {}, &foundTag, &foundNode), 0);
  EXPECT_EQ(foundTag, 7);
  EXPECT_EQ(foundNode, 1);
  EXPECT_EQ(c.Count(), 1);
  EXPECT_EQ(c.Key(1), "Readme");
  EXPECT_EQ(c.Item("rEaDmE"), "first");
  // Non-ASCII letters fold too.
  EXPECT_NE(c.Add("x", "Ärger"), 0);
  EXPECT_EQ(c.Add("y", "äRGER"), 0);

  CStringCollection::AddOptions raise;
  raise.RaiseDuplicate = true;
  try {
    c.Add("third", "README", 0, raise);
    FAIL() << "no error";
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.number, 8);
    EXPECT_EQ(e.source, "CStringCollection.Add");
    EXPECT_EQ(e.description, "Duplicate KeyA: README");
  }

  CStringCollection binary;
  binary.SetCompareMode(0);
  EXPECT_NE(binary.Add("a", "Key"), 0);
  EXPECT_NE(binary.Add("b", "KEY"), 0);
  EXPECT_EQ(binary.ExistKey("key"), 0);
  try {
    binary.Add("c", "KEY", 0, raise);
    FAIL() << "no error";
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.description, "Duplicate KeyB: KEY");
  }
}

TEST(StringCollection, TheHundredAndFirstAddGrowsTheArraysByOneAndAHalf) {
  CStringCollection c;
  for (int i = 1; i <= 100; ++i) c.Add("item" + std::to_string(i), "k" + std::to_string(i), i);
  EXPECT_EQ(c.NodesUpperBound(), 100);
  EXPECT_EQ(c.PositionIndexUpperBound(), 101);
  EXPECT_EQ(c.Add("item101", "k101", 101), 101);
  EXPECT_EQ(c.NodesUpperBound(), 150);
  EXPECT_EQ(c.PositionIndexUpperBound(), 152);
  EXPECT_EQ(c.Count(), 101);
  EXPECT_EQ(c.Key(101), "k101");
  for (int i = 1; i <= 101; ++i) {
    ASSERT_EQ(c.Item("k" + std::to_string(i)), "item" + std::to_string(i));
    ASSERT_EQ(c.Tag(i), i);  // by position
  }
  // The next step is 150 * 1.5 = 225.
  for (int i = 102; i <= 151; ++i) c.Add("", "k" + std::to_string(i));
  EXPECT_EQ(c.NodesUpperBound(), 225);
  EXPECT_EQ(RoundHalfEven(2.5), 2);
  EXPECT_EQ(RoundHalfEven(3.5), 4);
  EXPECT_EQ(RoundHalfEven(227.5), 228);
}

TEST(StringCollection, AnEmptyKeyCutsTheOldTreeOff) {
  CStringCollection c;
  c.Add("1", "alpha");
  c.Add("2", "beta");
  c.Add("3", "gamma");
  EXPECT_EQ(c.Add("4", ""), 4);
  EXPECT_EQ(c.Count(), 4);
  EXPECT_EQ(c.ExistKey("alpha"), 0);
  EXPECT_EQ(c.ExistKey("beta"), 0);
  EXPECT_EQ(c.Key(1), "alpha");
  EXPECT_EQ(c.Item(2), "2");  // still reachable by position
  EXPECT_EQ(c.Root(), 4);
  // A later add of an old key is no duplicate any more.
  EXPECT_NE(c.Add("5", "alpha"), 0);
}

TEST(StringCollection, PositionsFromBeforeAfterAndSorted) {
  CStringCollection c;
  c.Add("A", "a");
  c.Add("C", "c");
  CStringCollection::AddOptions before;
  before.Before = KeyArg("c");
  c.Add("B", "b", 0, before);
  CStringCollection::AddOptions after;
  after.After = KeyArg(3);  // a position
  c.Add("D", "d", 0, after);
  EXPECT_EQ(KeysByPosition(c), (std::vector<std::string>{"a", "b", "c", "d"}));

  // An unknown Before: no entry, but Count stays raised (a hole at the end).
  CStringCollection::AddOptions unknown;
  unknown.Before = KeyArg("zzz");
  EXPECT_EQ(c.Add("E", "e", 0, unknown), 0);
  EXPECT_EQ(c.Count(), 5);
  EXPECT_EQ(c.NodeAtPosition(5), 0);
  unknown.RaiseDuplicate = true;
  try {
    c.Add("F", "f", 0, unknown);
    FAIL() << "no error";
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.number, 2);
    EXPECT_EQ(e.description, "Key not found before: zzz");
  }

  // Sorted: a new item goes behind the run of equal items.
  CStringCollection s;
  CStringCollection::AddOptions sorted;
  sorted.Sorted = true;
  sorted.SortCompareMode = 1;
  const std::vector<std::pair<std::string, int>> adds = {
      {"pear", 1}, {"apple", 2}, {"Pear", 3}, {"zucchini", 4}, {"PEAR", 5}, {"banana", 6}};
  int n = 0;
  for (const auto& [item, tag] : adds) s.Add(item, "key" + std::to_string(n++), tag, sorted);
  std::vector<int> tags;
  for (std::int32_t i = 1; i <= s.Count(); ++i) tags.push_back(s.Tag(i));
  EXPECT_EQ(tags, (std::vector<int>{2, 6, 1, 3, 5, 4}));
}

TEST(StringCollection, RemoveWithTwoChildrenKeepsOrderAndShiftsPositions) {
  CStringCollection c;
  std::vector<std::string> keys;
  for (int i = 0; i < 20; ++i) {
    keys.push_back(fmt_key(i));
    c.Add("v" + std::to_string(i), keys.back(), i);
  }
  // The root of a tree of 20 has two children.
  const std::int32_t root = c.Root();
  ASSERT_NE(c.L(root), 0);
  ASSERT_NE(c.R(root), 0);
  const std::string removedKey = c.Key(root);  // positions = nodes so far
  EXPECT_EQ(c.Remove(0, root), root);
  keys.erase(keys.begin() + (root - 1));
  EXPECT_EQ(KeysByPosition(c), keys);
  EXPECT_EQ(c.ExistKey(removedKey), 0);
  for (const auto& k : keys) EXPECT_NE(c.ExistKey(k), 0) << k;
  EXPECT_GT(BlackHeight(c, c.Root(), 0), 0);
  // Items and tags moved with their keys.
  for (std::int32_t i = 1; i <= c.Count(); ++i) {
    EXPECT_EQ(c.Item(c.Key(i)), "v" + std::to_string(c.Tag(i)));
  }

  // An index above Count but inside the capacity reads a 0: nothing happens.
  EXPECT_EQ(c.Remove(0, 50), 0);
  EXPECT_EQ(c.Count(), 19);
  EXPECT_THROW(c.Remove(0, 5000), CollectionError);

  // The freed node is the next one handed out.
  CStringCollection d;
  for (int i = 0; i < 5; ++i) d.Add("", fmt_key(i));
  EXPECT_EQ(d.Remove(fmt_key(4)), 5);  // a leaf: its own node is freed
  EXPECT_EQ(d.Add("", "new"), 5);
  // Node 2 is the root with two children: its successor's node 3 is freed,
  // and the key of node 3 now lives in node 2.
  ASSERT_EQ(d.Root(), 2);
  EXPECT_EQ(d.Remove(fmt_key(1)), 2);
  EXPECT_EQ(d.ExistKey(fmt_key(2)), 2);
  EXPECT_EQ(d.Add("", "newer"), 3);
  EXPECT_EQ(KeysByPosition(d),
            (std::vector<std::string>{fmt_key(0), fmt_key(2), fmt_key(3), "new", "newer"}));
}

TEST(StringCollection, MissingKeysAndErrors) {
  CStringCollection c;
  EXPECT_EQ(c.Tag("none"), -1);
  EXPECT_EQ(c.Item("none"), "");
  EXPECT_EQ(c.ExistKey("none"), 0);
  c.Add("five", "5", 55);
  // A digit key is found as text, a number is a position.
  EXPECT_EQ(c.Item("5"), "five");
  EXPECT_EQ(c.Item(1), "five");
  EXPECT_EQ(c.Item(5), "");
  c.SetTag("none", 3);  // does nothing
  try {
    c.SetItem("none", "x");
    FAIL();
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.number, 2);
    EXPECT_EQ(e.source, "Let Item");
    EXPECT_EQ(e.description, "Key: none");
  }
  EXPECT_THROW(c.ChangeValues("none", "x", 1), CollectionError);
  c.ChangeValues("5", "FIVE", 56);
  EXPECT_EQ(c.Item("5"), "FIVE");
  EXPECT_EQ(c.Tag("5"), 56);

  c.SetRaiseError(true);
  EXPECT_EQ(c.Tag("none", true), -1);
  try {
    c.SetTag("none", 4);
    FAIL();
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.source, "Let Tag");
    EXPECT_EQ(e.description, "Key: none NewTag: 4");
  }
  try {
    c.Item("none");
    FAIL();
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.source, "Get Item");
  }
  try {
    c.Key(2);
    FAIL();
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(e.source, "Get Key");
    EXPECT_EQ(e.description, "Index: 2");
  }
  try {
    c.Key(0);  // passes the range test, fails at the array bound
    FAIL();
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.number, 9);
  }
  c.Add("six", "6");
  try {
    c.SetKey(1, "6");
    FAIL();
  } catch (const CollectionError& e) {
    EXPECT_EQ(e.number, 8);
    EXPECT_EQ(e.description, "Index: 1 NewKey: 6");
  }
  c.SetKey(1, "seven");  // unknown new key: nothing changes
  EXPECT_EQ(c.Key(1), "5");

  EXPECT_EQ(c.Clear(), 0);
  EXPECT_EQ(c.Count(), 0);
  EXPECT_FALSE(c.Initialised());
  EXPECT_EQ(c.Add("again", "5"), 1);
}

TEST(StringCollection, RandomAddsAndRemovesAgreeWithStdMap) {
  std::mt19937 rng(12345);
  CStringCollection c;
  std::map<std::string, int> model;  // folded key -> tag
  std::vector<std::string> order;    // folded keys in position order
  auto makeKey = [&]() {
    std::string k;
    const int len = 1 + static_cast<int>(rng() % 4);
    for (int i = 0; i < len; ++i) k.push_back("abcABCxyZ"[rng() % 9]);
    return k;
  };
  for (int step = 0; step < 6000; ++step) {
    const std::string key = makeKey();
    const std::string folded = LowerCase(key);
    if (rng() % 3 != 0) {
      const int tag = step;
      const std::int32_t node = c.Add("i", key, tag);
      if (model.count(folded)) {
        ASSERT_EQ(node, 0);
      } else {
        ASSERT_NE(node, 0);
        model[folded] = tag;
        order.push_back(folded);
      }
    } else {
      const std::int32_t pos = c.Remove(key);
      auto it = std::find(order.begin(), order.end(), folded);
      if (it == order.end()) {
        ASSERT_EQ(pos, 0);
      } else {
        ASSERT_EQ(pos, it - order.begin() + 1);
        order.erase(it);
        model.erase(folded);
      }
    }
    if (step % 200 == 0) {
      ASSERT_GT(BlackHeight(c, c.Root(), 0), 0) << "step " << step;
    }
  }
  ASSERT_EQ(c.Count(), static_cast<std::int32_t>(order.size()));
  for (std::int32_t i = 1; i <= c.Count(); ++i) {
    ASSERT_EQ(LowerCase(c.Key(i)), order[i - 1]);
    ASSERT_EQ(c.Tag(i), model[order[i - 1]]);
  }
  for (const auto& [k, tag] : model) ASSERT_EQ(c.Tag(k), tag);
}

}  // namespace
}  // namespace kelvor
