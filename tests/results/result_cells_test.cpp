// The cell table: every cell key, on every level of row that holds it, keeps
// what is written to it, and a made cell follows the cell it is made from.
// A missing, misplaced or cross-wired row of the table fails here.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "results/result_cells.h"
#include "results/result_model.h"

namespace kelvor {
namespace {

using result_detail::CellType;
using result_detail::DescribeCell;

// A value of the cell's kind that differs from key to key.
CellValue Sample(CellKey k) {
  const int i = static_cast<int>(k);
  switch (DescribeCell(k).type) {
    case CellType::Int:
      return std::int64_t{10 + i};
    case CellType::Double:
      return 0.5 + i;
    case CellType::Text:
      return "value of " + std::string(CellKeyName(k));
    case CellType::Flag:
      return std::int64_t{1};
  }
  return {};
}

// Two values of a source cell that make different texts of the cells made
// from it (dates, attribute letters, durations).
std::pair<CellValue, CellValue> TwoSources(CellKey source) {
  if (DescribeCell(source).type == CellType::Double) return {45000.5, 45001.25};
  return {std::int64_t{1}, std::int64_t{2}};
}

struct Level {
  const char* name;
  RowRef row;
  bool (*holds)(CellKey);
  bool (*derived)(CellKey);
  CellKey (*from)(CellKey);
};

class CellTable : public ::testing::Test {
 protected:
  void SetUp() override {
    m_.Report_Create_Root_Node();
    const int g = m_.AddGroupRow("group", 0);
    group_ = m_.GroupRowByNumber(g);
    file_ = m_.AddFileRowRaw(g, "a.txt", "/data", 1, 1);
    levels_ = {
        {"root", RowRef{}, [](CellKey k) { return DescribeCell(k).root.Holds(); },
         [](CellKey k) { return DescribeCell(k).root.Derived(); },
         [](CellKey k) { return DescribeCell(k).root.from; }},
        {"group", group_, [](CellKey k) { return DescribeCell(k).group.Holds(); },
         [](CellKey k) { return DescribeCell(k).group.Derived(); },
         [](CellKey k) { return DescribeCell(k).group.from; }},
        {"file", file_, [](CellKey k) { return DescribeCell(k).file.Holds(); },
         [](CellKey k) { return DescribeCell(k).file.Derived(); },
         [](CellKey k) { return DescribeCell(k).file.from; }},
    };
  }

  static std::vector<CellKey> AllKeys() {
    std::vector<CellKey> keys;
    for (int i = 0; i < kCellKeyCount; ++i) keys.push_back(static_cast<CellKey>(i));
    return keys;
  }

  ResultModel m_;
  RowRef group_, file_;
  std::vector<Level> levels_;
};

// All stored cells of a row are written first and read afterwards, so a row
// of the table that writes another key's field shows up as a wrong value.
TEST_F(CellTable, EveryStoredCellReadsBackWhatWasWritten) {
  for (const Level& l : levels_) {
    std::vector<CellKey> stored;
    for (CellKey k : AllKeys()) {
      if (l.holds(k) && !l.derived(k)) stored.push_back(k);
    }
    ASSERT_FALSE(stored.empty()) << l.name;
    for (CellKey k : stored) m_.SetCell(l.row, k, Sample(k));
    for (CellKey k : stored) {
      EXPECT_TRUE(m_.HasCell(l.row, k)) << l.name << " " << CellKeyName(k);
      EXPECT_EQ(m_.Cell(l.row, k), Sample(k)) << l.name << " " << CellKeyName(k);
      // The key text reaches the same field.
      EXPECT_EQ(m_.Cell(l.row, CellKeyName(k)), Sample(k)) << l.name << " " << CellKeyName(k);
    }
  }
}

TEST_F(CellTable, MadeCellsFollowTheirSourceAndIgnoreWrites) {
  int made = 0;
  for (const Level& l : levels_) {
    for (CellKey k : AllKeys()) {
      if (!l.derived(k)) continue;
      ++made;
      const CellKey source = l.from(k);
      const auto [a, b] = TwoSources(source);
      m_.SetCell(l.row, source, a);
      m_.SetCell(l.row, k, CellValue{std::string("ignored")});
      EXPECT_TRUE(m_.HasCell(l.row, k)) << l.name << " " << CellKeyName(k);
      EXPECT_EQ(m_.Cell(l.row, source), a) << l.name << " " << CellKeyName(k);
      const CellValue first = m_.Cell(l.row, k);
      ASSERT_TRUE(std::holds_alternative<std::string>(first)) << l.name << " " << CellKeyName(k);
      EXPECT_NE(std::get<std::string>(first), "ignored");
      m_.SetCell(l.row, source, b);
      EXPECT_NE(m_.Cell(l.row, k), first) << l.name << " " << CellKeyName(k);
    }
  }
  // date and dateE on groups and files, attr2 and AudioDuration on files.
  EXPECT_EQ(made, 6);
}

// A key the level does not hold is kept under its key text, out of sight of
// the typed cells.
TEST_F(CellTable, KeysALevelDoesNotHoldGoToTheOverflowList) {
  for (const Level& l : levels_) {
    for (CellKey k : AllKeys()) {
      if (l.holds(k)) continue;
      m_.SetCell(l.row, k, Sample(k));
      EXPECT_FALSE(m_.HasCell(l.row, k)) << l.name << " " << CellKeyName(k);
      EXPECT_EQ(m_.Cell(l.row, k), CellValue{}) << l.name << " " << CellKeyName(k);
      EXPECT_EQ(m_.Cell(l.row, CellKeyName(k)), Sample(k)) << l.name << " " << CellKeyName(k);
    }
  }
}

// A value outside the keys reaches no field of any row.
TEST_F(CellTable, AValueOutsideTheKeysIsNoCell) {
  for (const Level& l : levels_) {
    m_.SetCell(l.row, CellKey::kCount, Sample(CellKey::anz));
    EXPECT_FALSE(m_.HasCell(l.row, CellKey::kCount)) << l.name;
    EXPECT_EQ(m_.Cell(l.row, CellKey::kCount), CellValue{}) << l.name;
  }
  EXPECT_EQ(CellKeyName(CellKey::kCount), "");
}

}  // namespace
}  // namespace kelvor
