#pragma once
// The result tree as Qt sees it: a thin adapter over ResultModel. It keeps
// no per-row data of its own; a QModelIndex carries the row's handle (group
// and file slot) in its internal id, and every answer is read from the
// result model when the view asks. Rows are addressed by slot, so the
// adapter expects a compacted model (SetResult compacts; callers that remove
// rows compact and call Reset).
//
// Columns: 0 is the tree column (branch lines and check box), 1 to 17 are
// the grid's column ids; a column id is also its logical section in the
// header. Hiding and moving columns is the view's business.

#include <QAbstractItemModel>
#include <QColor>
#include <array>
#include <cstdint>

#include "frame/texts.h"
#include "results/result_model.h"

namespace kelvor::gui {

inline constexpr int kColumnCount = 18;  // the tree column and ids 1 to 17

// How a numeric cell is shown.
enum class ColumnMask : std::uint8_t {
  None,     // the cell's text
  Number,   // "*###,###,##0*;;;": positive grouped, zero and negative empty
  NumDash,  // "*###,###,##0*;;-;": zero shows "-"
  Percent,  // "*##0*%;;;"
};

struct ColumnSpec {
  int id;                  // 1..17, equals the default position
  CellKey key;             // kCount for the caption column
  TextDef heading;         // heading text (the group column's has %1)
  const char* settingKey;  // visibility key in section "Optionen", null: always shown
  bool visibleByDefault;
  int command;  // toggle command id, 0: none
  ColumnMask mask;
  bool rightAligned;
};

// The table of the 17 data columns, index id - 1.
const std::array<ColumnSpec, 17>& ColumnSpecs();
// The spec of a column id (1..17), null outside.
const ColumnSpec* ColumnById(int id);
// The column id a toggle command shows or hides; 0 for other commands.
int ColumnIdOfCommand(int command);

class ResultTreeModel final : public QAbstractItemModel {
  Q_OBJECT

 public:
  explicit ResultTreeModel(const TextCatalog& texts, QObject* parent = nullptr);

  // Shows `model` (not owned; null shows nothing). Compacts it.
  void SetResult(ResultModel* model);
  ResultModel* Result() const { return model_; }
  // After rows were removed or sorted behind the adapter's back.
  void Reset();

  // The row of an index and back.
  RowRef RowOf(const QModelIndex& index) const;
  QModelIndex IndexOf(RowRef r, int column = 0) const;

  // Headings: the group column names what groups share (`groupBy`), the
  // size column its unit. Call after a size format change too.
  void SetHeadings(int groupBy);
  // A click on a check box or the space bar on a row: the row's mark
  // changes through the result model, and the views repaint the group and
  // its files. Emits marksChanged.
  void ToggleCheck(const QModelIndex& index);
  // Repaints everything after marks changed outside (a selection command).
  void MarksChangedOutside();

  // A size format command (34..37): the model's format, the headings and a
  // repaint of the size column.
  void ChangeSizeFormat(int format);

  // The text a cell shows (what the view paints), for tests and the tool tip.
  QString CellText(RowRef r, int columnId) const;

  // QAbstractItemModel
  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  bool hasChildren(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 signals:
  void marksChanged();

 private:
  const TextCatalog& texts_;
  ResultModel* model_ = nullptr;
  std::array<QString, kColumnCount> headings_;
  int groupBy_ = 0;
};

// A colour as the settings keep it (0x00BBGGRR) in Qt's form.
inline QColor ColorFromSetting(std::int32_t c) {
  return QColor(c & 0xff, (c >> 8) & 0xff, (c >> 16) & 0xff);
}

}  // namespace kelvor::gui
