#include "gui/actions.h"

#include <QApplication>
#include <QIcon>
#include <QStyle>
#include <QWidget>

namespace kelvor::gui {

namespace {

using K = QKeySequence;
using M = CommandMenu;

QString Q(const std::string& s) {
  return QString::fromStdString(s);
}

// A theme icon, or the style's own picture when the theme has none.
QIcon ThemeIcon(const char* name, QStyle* style) {
  static const std::map<std::string, QStyle::StandardPixmap> fallbacks{
      {"document-save", QStyle::SP_DialogSaveButton},
      {"document-save-as", QStyle::SP_DialogSaveButton},
      {"window-close", QStyle::SP_DialogCloseButton},
      {"edit-undo", QStyle::SP_ArrowBack},
      {"edit-select-all", QStyle::SP_DialogApplyButton},
      {"edit-clear", QStyle::SP_DialogResetButton},
      {"edit-delete", QStyle::SP_TrashIcon},
      {"list-remove", QStyle::SP_TrashIcon},
      {"view-refresh", QStyle::SP_BrowserReload},
      {"zoom-in", QStyle::SP_ArrowDown},
      {"zoom-out", QStyle::SP_ArrowUp},
      {"object-flip-vertical", QStyle::SP_BrowserReload},
  };
  if (name == nullptr) return {};
  const auto it = fallbacks.find(name);
  const QIcon fallback = it != fallbacks.end() ? style->standardIcon(it->second) : QIcon();
  return QIcon::fromTheme(QString::fromLatin1(name), fallback);
}

}  // namespace

const std::vector<CommandDef>& CommandTable() {
  static const std::vector<CommandDef> table{
      // Saving (the operations come with saved results).
      {28, M::File, txt::T9760, "document-save", K::Save, nullptr, false, true, false},
      {44, M::File, txt::T9761, "document-save-as", K::SaveAs, nullptr, false, false, false},
      {-1, M::File, txt::T9762, "window-close", K::Close, nullptr, false, false, false},
      // Selection rules.
      {11, M::Select, txt::T9773, "edit-select-all", K::UnknownKey, "Ctrl+A", false, true, true},
      {12, M::Select, txt::T9774, "edit-clear", K::UnknownKey, "Ctrl+Shift+A", false, true, true},
      {26, M::Select, txt::T9775, nullptr, K::UnknownKey, "Ctrl+I", false, false, true},
      {32, M::Select, txt::T9776, nullptr, K::UnknownKey, nullptr, false, false, false},
      {33, M::Select, txt::T9777, nullptr, K::UnknownKey, nullptr, false, false, false},
      {13, M::Select, txt::T9778, nullptr, K::UnknownKey, nullptr, false, false, true},
      {14, M::Select, txt::T9779, nullptr, K::UnknownKey, nullptr, false, false, true},
      {27, M::Select, txt::T9780, nullptr, K::UnknownKey, nullptr, false, false, false},
      {41, M::Select, txt::T9781, nullptr, K::UnknownKey, nullptr, false, false, false},
      {42, M::Select, txt::T9782, nullptr, K::UnknownKey, nullptr, false, false, false},
      {43, M::Select, txt::T9783, nullptr, K::UnknownKey, nullptr, false, false, false},
      {53, M::Select, txt::T9784, nullptr, K::UnknownKey, nullptr, false, false, false},
      {54, M::Select, txt::T9785, nullptr, K::UnknownKey, nullptr, false, false, false},
      {239, M::Select, txt::T9790, "edit-undo", K::Undo, nullptr, false, true, true},
      // Removal from the result (never a file on disk).
      {220, M::Remove, txt::T9786, "list-remove", K::UnknownKey, "Ctrl+Del", false, true, true},
      {233, M::Remove, txt::T9787, nullptr, K::UnknownKey, nullptr, false, false, false},
      {232, M::Remove, txt::T9788, nullptr, K::UnknownKey, nullptr, false, false, false},
      {217, M::Remove, txt::T9789, "view-refresh", K::UnknownKey, nullptr, false, false, false},
      // View: the space bar's command, expansion, size formats, columns.
      {-2, M::View, txt::T9791, nullptr, K::UnknownKey, nullptr, false, false, true},
      {-3, M::View, txt::T9763, "zoom-in", K::UnknownKey, "Ctrl++", false, true, true},
      {-4, M::View, txt::T9764, "zoom-out", K::UnknownKey, "Ctrl+-", false, true, true},
      {34, M::SizeFormat, txt::T3887, nullptr, K::UnknownKey, nullptr, true, false, false},
      {35, M::SizeFormat, txt::T3888, nullptr, K::UnknownKey, nullptr, true, false, false},
      {36, M::SizeFormat, txt::T3889, nullptr, K::UnknownKey, nullptr, true, false, false},
      {37, M::SizeFormat, txt::T3890, nullptr, K::UnknownKey, nullptr, true, false, false},
      {66, M::Columns, txt::T4005, nullptr, K::UnknownKey, nullptr, true, false, false},
      {67, M::Columns, txt::T4018, nullptr, K::UnknownKey, nullptr, true, false, false},
      {68, M::Columns, txt::T3835, nullptr, K::UnknownKey, nullptr, true, false, false},
      {62, M::Columns, txt::T3836, nullptr, K::UnknownKey, nullptr, true, false, false},
      {63, M::Columns, txt::T3837, nullptr, K::UnknownKey, nullptr, true, false, false},
      {65, M::Columns, txt::T3884, nullptr, K::UnknownKey, nullptr, true, false, false},
      {64, M::Columns, txt::T3838, nullptr, K::UnknownKey, nullptr, true, false, false},
      {69, M::Columns, txt::T4070, nullptr, K::UnknownKey, nullptr, true, false, false},
      {10, M::Columns, txt::T5055, nullptr, K::UnknownKey, nullptr, true, false, false},
      {17, M::Columns, txt::T5264, nullptr, K::UnknownKey, nullptr, true, false, false},
      {19, M::Columns, txt::T5265, nullptr, K::UnknownKey, nullptr, true, false, false},
      {413, M::Columns, txt::T5454, nullptr, K::UnknownKey, nullptr, true, false, false},
      {415, M::Columns, txt::T5467, nullptr, K::UnknownKey, nullptr, true, false, false},
      {416, M::Columns, txt::T9639, nullptr, K::UnknownKey, nullptr, true, false, false},
      {417, M::Columns, txt::T5469, nullptr, K::UnknownKey, nullptr, true, false, false},
  };
  return table;
}

CommandActions::CommandActions(const TextCatalog& texts, QWidget* parent) : QObject(parent) {
  QStyle* style = parent != nullptr ? parent->style() : QApplication::style();
  for (const CommandDef& d : CommandTable()) {
    auto* a = new QAction(ThemeIcon(d.icon, style), Q(texts.Get(d.caption)), parent);
    a->setData(d.id);
    a->setObjectName(QStringLiteral("cmd%1").arg(d.id));
    a->setCheckable(d.checkable);
    if (d.standardKey != K::UnknownKey)
      a->setShortcuts(d.standardKey);
    else if (d.shortcut != nullptr)
      a->setShortcut(QKeySequence(QString::fromLatin1(d.shortcut)));
    // Shortcuts work wherever the focus is inside the window.
    a->setShortcutContext(Qt::WindowShortcut);
    if (parent != nullptr) parent->addAction(a);
    connect(a, &QAction::triggered, this, [this, id = d.id] {
      const auto it = handlers_.find(id);
      if (it != handlers_.end() && !running_) it->second(id);
    });
    actions_[d.id] = a;
  }
  Refresh();
}

QAction* CommandActions::Action(int id) const {
  const auto it = actions_.find(id);
  return it != actions_.end() ? it->second : nullptr;
}

std::vector<QAction*> CommandActions::ActionsOf(CommandMenu menu) const {
  std::vector<QAction*> out;
  for (const CommandDef& d : CommandTable())
    if (d.menu == menu) out.push_back(Action(d.id));
  return out;
}

std::vector<QAction*> CommandActions::ToolBarActions() const {
  std::vector<QAction*> out;
  for (const CommandDef& d : CommandTable())
    if (d.toolBar) out.push_back(Action(d.id));
  return out;
}

std::vector<QAction*> CommandActions::ContextActions() const {
  std::vector<QAction*> out;
  for (const CommandDef& d : CommandTable())
    if (d.context) out.push_back(Action(d.id));
  return out;
}

void CommandActions::SetHandler(int id, Handler handler) {
  if (handler)
    handlers_[id] = std::move(handler);
  else
    handlers_.erase(id);
  Refresh();
}

void CommandActions::SetAvailable(int id, bool available) {
  if (available)
    unavailable_.erase(id);
  else
    unavailable_[id] = true;
  Refresh();
}

void CommandActions::Run(int id, int argument) {
  const auto it = handlers_.find(id);
  if (it != handlers_.end() && !running_ && hasResult_ && unavailable_.count(id) == 0)
    it->second(argument);
}

void CommandActions::SetLongOperation(bool running) {
  running_ = running;
  Refresh();
}

void CommandActions::SetHasResult(bool has) {
  hasResult_ = has;
  Refresh();
}

void CommandActions::Refresh() {
  for (auto& [id, a] : actions_) {
    const bool handled = handlers_.count(id) != 0 && unavailable_.count(id) == 0;
    // Closing the window is always possible; all else needs a result and
    // no long operation.
    a->setEnabled(handled && (id == -1 || (!running_ && hasResult_)));
  }
}

}  // namespace kelvor::gui
