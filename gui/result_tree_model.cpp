#include "gui/result_tree_model.h"

#include <QFont>
#include <QString>

#include "frame/formats.h"

namespace kelvor::gui {

namespace {

QString Q(std::string_view s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

// A handle in the 64 bits of an internal id: group slot + 1 above, file
// slot + 1 below; the root is 0.
quintptr Pack(RowRef r) {
  return (static_cast<quintptr>(static_cast<std::uint32_t>(r.group + 1)) << 32) |
         static_cast<std::uint32_t>(r.file + 1);
}
RowRef Unpack(quintptr id) {
  return RowRef{static_cast<std::int32_t>(id >> 32) - 1,
                static_cast<std::int32_t>(id & 0xffffffffu) - 1};
}
static_assert(sizeof(quintptr) >= 8, "row handles need a 64-bit internal id");

constexpr std::int32_t kBlack = 0;

}  // namespace

const std::array<ColumnSpec, 17>& ColumnSpecs() {
  using M = ColumnMask;
  static const std::array<ColumnSpec, 17> specs{{
      {1, CellKey::kCount, txt::T3833, nullptr, true, 0, M::None, false},
      {2, CellKey::path, txt::T4005, "ColumnFilePath", true, 66, M::None, false},
      {3, CellKey::pathA, txt::T4018, "ColumnZipPath", true, 67, M::None, false},
      {4, CellKey::anz, txt::T3834, nullptr, true, 0, M::Number, true},
      {5, CellKey::size, txt::T3835, "ColumnSize", true, 68, M::Number, true},
      {6, CellKey::date, txt::T3836, "ColumnDateM", false, 62, M::None, true},
      {7, CellKey::dateE, txt::T3837, "ColumnDateC", false, 63, M::None, true},
      {8, CellKey::owner, txt::T3884, "ColumnOwner", false, 65, M::None, false},
      {9, CellKey::attr2, txt::T3838, "ColumnAttr", false, 64, M::None, false},
      {10, CellKey::hardlinks, txt::T4070, "ColumnHardlinks", false, 69, M::NumDash, true},
      {11, CellKey::similar, txt::T5055, "ColumnSimilar", false, 10, M::Percent, true},
      {12, CellKey::picW, txt::T5264, "ColumnPicWidth", false, 17, M::Number, true},
      {13, CellKey::picH, txt::T5265, "ColumnPicHeight", false, 19, M::Number, true},
      {14, CellKey::hardlinkID, txt::T5454, "ColumnHardlinkID", false, 413, M::None, false},
      {15, CellKey::AudioDuration, txt::T5467, "ColumnAudioDuration", false, 415, M::None, true},
      {16, CellKey::AudioBitrate, txt::T9639, "ColumnAudioBitRate", false, 416, M::Number, true},
      {17, CellKey::AudioSamplingrate, txt::T5469, "ColumnAudioSamplingRate", false, 417, M::Number,
       true},
  }};
  return specs;
}

const ColumnSpec* ColumnById(int id) {
  if (id < 1 || id > 17) return nullptr;
  return &ColumnSpecs()[static_cast<std::size_t>(id - 1)];
}

int ColumnIdOfCommand(int command) {
  if (command == 0) return 0;
  for (const ColumnSpec& c : ColumnSpecs())
    if (c.command == command) return c.id;
  return 0;
}

ResultTreeModel::ResultTreeModel(const TextCatalog& texts, QObject* parent)
    : QAbstractItemModel(parent), texts_(texts) {
  SetHeadings(0);
}

void ResultTreeModel::SetResult(ResultModel* model) {
  beginResetModel();
  model_ = model;
  if (model_ != nullptr) model_->Compact();
  endResetModel();
}

void ResultTreeModel::Reset() {
  beginResetModel();
  if (model_ != nullptr) model_->Compact();
  endResetModel();
}

RowRef ResultTreeModel::RowOf(const QModelIndex& index) const {
  if (!index.isValid()) return RowRef{-1, -2};
  return Unpack(index.internalId());
}

QModelIndex ResultTreeModel::IndexOf(RowRef r, int column) const {
  if (model_ == nullptr || !model_->IsValid(r)) return {};
  if (r.IsRoot()) return createIndex(0, column, Pack(r));
  // A compacted model: a group's slot is its row below the root, a file's
  // slot its row below the group.
  return createIndex(r.IsGroup() ? r.group : r.file, column, Pack(r));
}

void ResultTreeModel::SetHeadings(int groupBy) {
  groupBy_ = groupBy;
  const std::int32_t format = model_ != nullptr ? model_->GetSizeFormat() : kSizeBytes;
  QString shared;
  switch (groupBy) {
    case 0:
      shared = Q(texts_.Get(txt::T3825));
      break;
    case 1:
      shared = Q(texts_.Get(txt::T3826));
      break;
    case 2:
      shared = Q(texts_.Get(txt::T3827));
      break;
    case 3:
      shared = Q(texts_.Get(txt::T3828));
      break;
    case 4:
      shared = Q(texts_.Get(txt::T3829));
      break;
    case 5:
      shared = Q(texts_.Get(txt::T3830));
      break;
    case 6:
      shared = Q(texts_.Get(txt::T3831));
      break;
    case 7:
      shared = Q(texts_.Get(txt::T4070));
      break;
    case 8:
      shared = Q(texts_.Get(txt::T5054));
      break;
    case 9:
      shared = Q(texts_.Get(txt::T9637));
      break;
    default:
      shared = QStringLiteral("???");
      break;
  }
  headings_[0] = QString();
  for (const ColumnSpec& c : ColumnSpecs())
    headings_[static_cast<std::size_t>(c.id)] = Q(texts_.Get(c.heading));
  headings_[1] = Q(texts_.Get(txt::T3833, {shared.toStdString()}));
  if (format != kSizeBytes && format != kSizeEmpty) {
    const std::string unit = SizeFormatUnit(format, texts_);
    headings_[5] = Q(texts_.Get(txt::T9750, {unit}));
    if (groupBy == 3) headings_[1] = Q(texts_.Get(txt::T9751, {unit}));
  }
  emit headerDataChanged(Qt::Horizontal, 0, kColumnCount - 1);
}

void ResultTreeModel::ToggleCheck(const QModelIndex& at) {
  if (model_ == nullptr) return;
  const RowRef r = RowOf(at);
  const std::int32_t level = model_->Level(r);
  if (level != kLevelGroup && level != kLevelFile) return;
  model_->Report_ChangeCheckboxStatus(r);
  model_->ShowDupCount();
  const RowRef group = level == kLevelGroup ? r : model_->Parent(r);
  const QModelIndex g = IndexOf(group);
  emit dataChanged(g, IndexOf(group, kColumnCount - 1));
  const int files = model_->ChildCount(group);
  if (files > 0) emit dataChanged(index(0, 0, g), index(files - 1, kColumnCount - 1, g));
  // The root's counters.
  emit dataChanged(createIndex(0, 0, quintptr{0}), createIndex(0, kColumnCount - 1, quintptr{0}));
  emit marksChanged();
}

void ResultTreeModel::MarksChangedOutside() {
  if (model_ == nullptr) return;
  model_->ShowDupCount();
  // Check states and colours of any row may have changed: a reset would
  // lose the expansion, a layout change keeps it and repaints.
  emit layoutAboutToBeChanged();
  emit layoutChanged();
  emit marksChanged();
}

void ResultTreeModel::ChangeSizeFormat(int format) {
  if (model_ == nullptr) return;
  model_->Report_ChangeFileSize(format);
  model_->ShowDupCount();
  SetHeadings(groupBy_);
  emit layoutAboutToBeChanged();
  emit layoutChanged();
  emit marksChanged();
}

QString ResultTreeModel::CellText(RowRef r, int columnId) const {
  const ColumnSpec* c = ColumnById(columnId);
  if (model_ == nullptr || c == nullptr || !model_->IsValid(r)) return {};
  if (columnId == 1) return Q(model_->Caption(r));
  if (columnId == 5) return Q(model_->SizeColumnText(r));
  if (!model_->HasCell(r, c->key)) return {};
  const CellValue v = model_->Cell(r, c->key);
  switch (c->mask) {
    case ColumnMask::None:
      return Q(CellAsText(v));
    case ColumnMask::Number: {
      const std::int64_t n = CellAsInt(v);
      return n > 0 ? Q(FormatNumber(n)) : QString();
    }
    case ColumnMask::NumDash: {
      const std::int64_t n = CellAsInt(v);
      if (n == 0) return QStringLiteral("-");
      return n > 0 ? Q(FormatNumber(n)) : QString();
    }
    case ColumnMask::Percent: {
      const double d = CellAsDouble(v);
      return d > 0 ? QString::number(static_cast<long long>(d + 0.5)) + QLatin1Char('%')
                   : QString();
    }
  }
  return {};
}

QModelIndex ResultTreeModel::index(int row, int column, const QModelIndex& parent) const {
  if (model_ == nullptr || row < 0 || column < 0 || column >= kColumnCount) return {};
  if (!parent.isValid()) {
    if (row != 0 || model_->RowCount() == 0) return {};
    return createIndex(0, column, quintptr{0});
  }
  const RowRef p = RowOf(parent);
  if (row >= model_->ChildCount(p)) return {};
  if (p.IsRoot()) return createIndex(row, column, Pack(RowRef{row, -1}));
  if (p.IsGroup()) return createIndex(row, column, Pack(RowRef{p.group, row}));
  return {};
}

QModelIndex ResultTreeModel::parent(const QModelIndex& child) const {
  if (!child.isValid()) return {};
  const RowRef r = RowOf(child);
  if (r.IsRoot()) return {};
  if (r.IsGroup()) return createIndex(0, 0, quintptr{0});
  return createIndex(r.group, 0, Pack(RowRef{r.group, -1}));
}

int ResultTreeModel::rowCount(const QModelIndex& parent) const {
  if (model_ == nullptr) return 0;
  if (!parent.isValid()) return model_->RowCount() > 0 ? 1 : 0;
  if (parent.column() != 0) return 0;
  return model_->ChildCount(RowOf(parent));
}

int ResultTreeModel::columnCount(const QModelIndex&) const {
  return kColumnCount;
}

bool ResultTreeModel::hasChildren(const QModelIndex& parent) const {
  if (model_ == nullptr) return false;
  if (!parent.isValid()) return model_->RowCount() > 0;
  if (parent.column() != 0) return false;
  const RowRef r = RowOf(parent);
  return !r.IsFile() && model_->ChildCount(r) > 0;
}

QVariant ResultTreeModel::data(const QModelIndex& index, int role) const {
  if (model_ == nullptr || !index.isValid()) return {};
  const RowRef r = RowOf(index);
  const int column = index.column();
  switch (role) {
    case Qt::DisplayRole:
      return column == 0 ? QVariant() : QVariant(CellText(r, column));
    case Qt::CheckStateRole: {
      if (column != 0 || r.IsRoot()) return {};
      switch (model_->GetCheckState(r)) {
        case kCheckMarked:
          return Qt::Checked;
        case kCheckPartly:
          return Qt::PartiallyChecked;
        default:
          return Qt::Unchecked;
      }
    }
    case Qt::TextAlignmentRole: {
      const ColumnSpec* c = ColumnById(column);
      if (c != nullptr && c->rightAligned)
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
      return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
    }
    case Qt::BackgroundRole: {
      // White is "no colour of its own": the theme's base shows, so that a
      // dark desktop theme stays readable.
      const std::int32_t c = model_->BackColor(r);
      if (c == kColorWhite && !r.IsGroup()) return {};
      return ColorFromSetting(c);
    }
    case Qt::ForegroundRole: {
      const std::int32_t c = model_->TextColor(r);
      if (r.IsGroup()) return ColorFromSetting(c);
      // A file row in black and on the theme's base follows the theme.
      if (c == kBlack && model_->BackColor(r) == kColorWhite) return {};
      return ColorFromSetting(c);
    }
    case Qt::FontRole: {
      if (!r.IsRoot()) return {};
      QFont f;
      f.setBold(true);
      return f;
    }
    case Qt::ToolTipRole: {
      if (column == 0) return {};
      QString tip =
          r.IsFile() && column <= 2 ? Q(model_->File_GetPathFromNode(r)) : CellText(r, column);
      if (tip.isEmpty()) return {};
      // The tip stands between two non-breaking spaces, so that its text
      // does not touch the frame.
      const QChar nbsp(0xA0);
      if (!tip.startsWith(nbsp)) tip = nbsp + tip + nbsp;
      return tip;
    }
    default:
      return {};
  }
}

bool ResultTreeModel::setData(const QModelIndex& index, const QVariant&, int role) {
  if (role != Qt::CheckStateRole || model_ == nullptr || !index.isValid() || index.column() != 0)
    return false;
  // Whatever state the view proposes, the model decides: a click on a
  // group in state 0 or 2 marks all of it, in state 1 unmarks it.
  ToggleCheck(index);
  return true;
}

Qt::ItemFlags ResultTreeModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) return Qt::NoItemFlags;
  Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
  if (index.column() == 0 && !RowOf(index).IsRoot()) f |= Qt::ItemIsUserCheckable;
  if (!hasChildren(index)) f |= Qt::ItemNeverHasChildren;
  return f;
}

QVariant ResultTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || section < 0 || section >= kColumnCount) return {};
  if (role == Qt::DisplayRole) return headings_[static_cast<std::size_t>(section)];
  if (role == Qt::TextAlignmentRole) {
    const ColumnSpec* c = ColumnById(section);
    if (c != nullptr && c->rightAligned)
      return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
  }
  return {};
}

}  // namespace kelvor::gui
