#include "gui/file_windows.h"

#include "frame/texts.h"
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
  results.SetCommandHandler(kCommandExport, [w](int) { ShowSaveWindow(*w); });
}

}  // namespace kelvor::gui
