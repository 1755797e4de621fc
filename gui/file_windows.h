#pragma once
// Opens the file manager and the export window from a results window: the
// commands of the two windows get their operations here.

#include <functional>

namespace kelvor {
class Prompt;
}

namespace kelvor::gui {

class FileManagerWindow;
class SaveWindow;
class SearchWindow;

// The file manager's commands (menu and context menu) and the export's.
inline constexpr int kCommandFileManager = 23;
inline constexpr int kCommandFileManagerContext = 207;
inline constexpr int kCommandExport = 45;

// FileManager_Show: opens the file manager over the result of `results`, or
// refuses with a message when no file is marked. `prompt` (may be null: the
// message boxes) answers the refusal and the window's questions. Returns the
// window (deleted when closed), or null.
FileManagerWindow* FileManager_Show(SearchWindow& results, Prompt* prompt = nullptr,
                                    std::function<void()> undoReset = {});
// Opens the export window over the result of `results` (deleted when closed).
SaveWindow* ShowSaveWindow(SearchWindow& results, Prompt* prompt = nullptr);

// Gives the commands of the two windows their operations in `results`.
// `undoReset` resets the window's undo history after a file action that did
// something; empty: only the undo command is switched off.
void InstallFileWindows(SearchWindow& results, std::function<void()> undoReset = {});

}  // namespace kelvor::gui
