#pragma once
// The cell table: one description per CellKey, saying what the cell is
// called, what kind of value it holds, and how each level of row (root,
// group, file) reads and writes it. ResultModel::Cell, SetCell, HasCell and
// Cells go through this table only; adding a cell is one row in
// result_cells.cpp (plus its key in CellKey and, when stored, its field in
// result_rows.h). Internal to results/.

#include <string_view>

#include "results/result_model.h"
#include "results/result_rows.h"

namespace kelvor::result_detail {

// The kind of value a cell reads as.
enum class CellType : std::uint8_t {
  Int,     // std::int64_t
  Double,  // double
  Text,    // std::string
  Flag,    // std::int64_t, 0 or 1
};

// What a reader needs besides the row: the interned texts and the options
// (date format, the group date rules).
struct CellReadEnv {
  const StringPool& pool;
  const ResultOptions& opt;
};

// How one level of row holds a cell. No reader: the level has no such cell
// (a value set under its key is kept in the row's overflow list). A reader
// without a writer: the cell is made when read from the cell `from` (the
// formatted twins such as "date"); setting it only marks it present.
template <class Row>
struct CellAccess {
  CellValue (*get)(const Row&, const CellReadEnv&) = nullptr;
  void (*set)(Row&, const CellValue&, StringPool&) = nullptr;
  CellKey from = CellKey::kCount;

  constexpr bool Holds() const { return get != nullptr; }
  constexpr bool Derived() const { return get != nullptr && set == nullptr; }
};

struct CellDescription {
  CellKey key;
  std::string_view name;  // the key text, as saved and as in column keys
  CellType type;
  CellAccess<RootRow> root;
  CellAccess<GroupRow> group;
  CellAccess<FileRow> file;
};

// The description of `k`; for kCount (or any value outside the keys) one
// that no level holds.
const CellDescription& DescribeCell(CellKey k);

}  // namespace kelvor::result_detail
