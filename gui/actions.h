#pragma once
// The commands of the results window as QActions. Every action carries its
// command id as data and as object name ("cmd<id>"), so that menus, the tool
// bar and the context menu share one action per command, and a command is
// found by its id wherever it sits.
//
// An action is enabled only when something runs it (a handler is set) and
// no long operation runs; actions whose operation is not wired yet stay in
// the menus, disabled.

#include <QAction>
#include <QKeySequence>
#include <QObject>
#include <functional>
#include <map>
#include <vector>

#include "frame/texts.h"

namespace kelvor::gui {

// Where a command appears.
enum class CommandMenu { File, Select, Remove, View, Columns, SizeFormat };

struct CommandDef {
  int id;
  CommandMenu menu;
  TextDef caption;   // for column toggles and size formats the heading or unit
  const char* icon;  // freedesktop icon name, may be null
  QKeySequence::StandardKey standardKey;
  const char* shortcut;  // used when standardKey is UnknownKey; may be null
  bool checkable;
  bool toolBar;  // also on the tool bar
  bool context;  // also in the context menu of the tree
};

// Every command of the window, in menu order.
const std::vector<CommandDef>& CommandTable();

class CommandActions final : public QObject {
  Q_OBJECT

 public:
  using Handler = std::function<void(int id)>;

  CommandActions(const TextCatalog& texts, QWidget* parent);

  QAction* Action(int id) const;
  std::vector<QAction*> ActionsOf(CommandMenu menu) const;
  std::vector<QAction*> ToolBarActions() const;
  std::vector<QAction*> ContextActions() const;

  // The operation of a command; commands without one stay disabled.
  void SetHandler(int id, Handler handler);
  bool HasHandler(int id) const { return handlers_.count(id) != 0; }
  // Whether the command can run now, as its operation says (undo with no
  // step left); true unless set.
  void SetAvailable(int id, bool available);
  // Runs the operation of `id` with `argument` as the id it is given (the
  // entries of a drop-down run their command with their own id).
  void Run(int id, int argument);
  // While a long operation runs every command is disabled.
  void SetLongOperation(bool running);
  // Whether a result is shown: commands on the result need one.
  void SetHasResult(bool has);

 private:
  void Refresh();

  std::map<int, QAction*> actions_;
  std::map<int, Handler> handlers_;
  std::map<int, bool> unavailable_;
  bool running_ = false;
  bool hasResult_ = false;
};

}  // namespace kelvor::gui
