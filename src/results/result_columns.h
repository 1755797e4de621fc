#pragma once
// The columns of the result grid: the fixed table of the 17 data columns (id,
// cell key, heading, visibility key and default, toggle command, display
// mask, alignment), the positions the user gave them, and which of them a
// result shows. Readers of the grid that are no window (the export) take the
// same columns in the same order as the window shows them.
//
// Column 0 is the tree column and carries no data. Ids 1 to 17 are fixed and
// equal the default positions; the user may reorder them, and the position of
// every id is kept in "1FolderColumnIndex".."17FolderColumnIndex" of section
// "Optionen".

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "frame/texts.h"
#include "results/result_model.h"

namespace kelvor {

class SettingsStore;

enum ColumnId : int {
  kColGroup = 1,  // the row caption ("Gruppe - %1")
  kColPath,
  kColPathA,
  kColAnz,
  kColSize,
  kColDate,
  kColDateE,
  kColOwner,
  kColAttr,
  kColHardlinks,
  kColSimilar,
  kColPicW,
  kColPicH,
  kColHardlinkID,
  kColAudioDuration,
  kColAudioBitRate,
  kColAudioSamplingRate,
};
inline constexpr int kColumnCount = 17;

// How a numeric column shows its value.
enum class ColumnMask : std::uint8_t {
  None,           // the cell's text as it stands
  Count,          // "*###,###,##0*;;;": thousands grouped; zero and negatives empty
  CountZeroDash,  // "*###,###,##0*;;-;": the same, a zero shows "-"
  Percent,        // "*##0*%;;;": a whole percentage; zero and negatives empty
};

struct ColumnDef {
  int id;
  std::string_view key;            // cell key ("" for the caption column)
  TextDef heading;                 // the column's heading
  std::string_view visibilityKey;  // section "Optionen"; "" = always shown
  bool defaultVisible;
  int command;  // id of the toggle command; 0 = none
  ColumnMask mask;
  bool rightAligned;
};

// The table row of a column id (1..17); id 1 for any other value.
const ColumnDef& DescribeColumn(int id);

// Position of every column id (index 1..17; index 0 unused).
using ColumnPositions = std::array<int, kColumnCount + 1>;
// Every id at its default position (id = position).
ColumnPositions DefaultColumnPositions();
// Init_List_Folders_Load_Column_Positions: the defaults, then the positions
// of "1FolderColumnIndex".."17FolderColumnIndex". A missing (-1) or 0 value
// ends the reading and gives the defaults for all: a partial set is never
// used. So is a set that is no arrangement of 1..17.
ColumnPositions LoadColumnPositions(const SettingsStore& s);

// What a result says about its columns beyond the options of the model.
struct ColumnContext {
  bool searchedArchives = false;  // the search looked inside archives
  bool similarity = false;        // a name similarity below 100 %, similar pictures or music
};
// Read from the rows of a result, for a caller without the search's options
// (a loaded result, the terminal): archive members present, match
// percentages present.
ColumnContext ColumnContextOfResult(const ResultModel& m);

// One column as a result shows it.
struct ResultColumn {
  int id = 0;
  int position = 0;
  CellKey key = CellKey::kCount;  // kCount for the caption column
  std::string heading;
  ColumnMask mask = ColumnMask::None;
  bool visible = false;
};

// The 17 columns in position order with their headings and visibility: the
// visibility setting (section "Optionen"), then the columns the result's
// criteria hide (pathA without archives, date and dateE when the groups share
// that date and no date precision option is set, attr2 when the groups share
// the attributes, similar without a similarity search). The caption column's
// heading is "Gruppe - %1" with the group criterion.
std::vector<ResultColumn> MakeResultColumns(const SettingsStore& s, const ResultOptions& o,
                                            const ColumnContext& ctx, const TextCatalog& texts);
// The same with the default positions and visibility, without settings.
std::vector<ResultColumn> MakeResultColumns(const ResultOptions& o, const ColumnContext& ctx,
                                            const TextCatalog& texts);

// The name of a group criterion (GroupBy) for "Gruppe - %1"; "???" for an
// unknown one.
std::string GroupByName(std::int32_t groupBy, const TextCatalog& texts);

}  // namespace kelvor
