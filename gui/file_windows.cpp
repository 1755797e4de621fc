#include "gui/file_windows.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

#include "frame/texts.h"
#include "gui/actions.h"
#include "gui/file_manager_window.h"
#include "gui/qt_prompt.h"
#include "gui/save_window.h"
#include "gui/search_window.h"
#include "results/result_model.h"
#include "search/session.h"

namespace kelvor::gui {

FileManagerWindow* FileManager_Show(SearchWindow& results, Prompt* prompt,
                                    std::function<void()> undoReset) {
  const ResultModel* result = results.Result();
  if (result == nullptr || results.Session() == nullptr || results.IsRunning()) return nullptr;
  if (result->RowCount() < 2 || result->DupCountSelected() == 0) {
    const std::string text = results.Session()->Texts().Get(txt::T9655);
    if (prompt != nullptr) {
      prompt->Message(text, MessageIcon::Exclamation);
    } else {
      QtPrompt boxes(&results);
      boxes.Message(text, MessageIcon::Exclamation);
    }
    return nullptr;
  }
  auto* w = new FileManagerWindow(results);
  w->setAttribute(Qt::WA_DeleteOnClose);
  w->SetPrompt(prompt);
  w->SetUndoReset(std::move(undoReset));
  w->show();
  return w;
}

SaveWindow* ShowSaveWindow(SearchWindow& results, Prompt* prompt) {
  if (results.Result() == nullptr || results.Session() == nullptr || results.IsRunning())
    return nullptr;
  auto* w = new SaveWindow(results);
  w->setAttribute(Qt::WA_DeleteOnClose);
  w->SetPrompt(prompt);
  w->show();
  return w;
}

void InstallFileWindows(SearchWindow& results, std::function<void()> undoReset) {
  SearchWindow* w = &results;
  auto fileManager = [w, undoReset](int) { FileManager_Show(*w, nullptr, undoReset); };
  results.SetCommandHandler(kCommandFileManager, fileManager);
  results.SetCommandHandler(kCommandFileManagerContext, fileManager);
  auto exportList = [w](int) { ShowSaveWindow(*w); };
  results.SetCommandHandler(kCommandExport, exportList);

  // Where the window's command table has no entry for them yet, the two
  // windows get one in the first menu, before its last entry (closing).
  CommandActions* actions = results.Actions();
  const QList<QAction*> menus = results.menuBar()->actions();
  if (actions == nullptr || menus.isEmpty() || menus.first()->menu() == nullptr ||
      results.Session() == nullptr)
    return;
  QMenu* file = menus.first()->menu();
  QAction* before = file->actions().isEmpty() ? nullptr : file->actions().last();
  const TextCatalog& texts = results.Session()->Texts();
  auto add = [&](int id, TextDef caption, const char* icon, std::function<void(int)> run) {
    if (actions->Action(id) != nullptr) return;
    auto* a = new QAction(QIcon::fromTheme(QString::fromLatin1(icon)),
                          QString::fromStdString(texts.Get(caption)) + QStringLiteral("..."), file);
    a->setObjectName(QStringLiteral("cmd%1").arg(id));
    QObject::connect(a, &QAction::triggered, file, [run, id] { run(id); });
    file->insertAction(before, a);
  };
  add(kCommandFileManager, txt::T9830, "system-file-manager", fileManager);
  add(kCommandExport, txt::T9842, "document-export", exportList);
  file->insertSeparator(before);
}

}  // namespace kelvor::gui
