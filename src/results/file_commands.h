#pragma once
// Commands of the result view on one or two file rows at once: swapping the
// names of two files, comparing two files in an outside program, and the
// text search over the visible cells. They act on real files at once and
// keep no action log; a failed file operation never removes a row.

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "results/result_model.h"

namespace kelvor {

class Prompt;

// What the commands need of the window.
struct FileCommandContext {
  Prompt* prompt = nullptr;  // boxes; null: none shown
  // Let the preview go of a file before it is touched; may be empty.
  std::function<void(std::string_view path)> releasePreview;
  // SourceProtected of the source folders, by source number - 1.
  std::vector<bool> sourceProtected;
  // UNDO_reset after a file left the result; may be empty.
  std::function<void()> undoReset;
};

// What a rename or a move/copy to a folder came to. The window words the
// boxes of NameTaken, Protected and Failed (with `errorText`).
enum class FileCommandOutcome {
  Done,
  Unchanged,      // empty or equal name, or the overwrite question said No
  NotAFile,       // not a file row
  ArchiveMember,  // members of archives are not touched (no word)
  Protected,      // the file lies in a protected source folder
  NameTaken,      // rename: a file of the new name stands in the folder
  Failed,         // the move or copy failed; the row stays as it was
};
struct FileCommandResult {
  FileCommandOutcome outcome = FileCommandOutcome::NotAFile;
  std::string errorText;
  std::string target;  // the file's new path
};

// File_Rename: the row's file takes `newName` in its own folder. A name
// that another file has is refused (NameTaken: the window asks again).
FileCommandResult File_Rename(ResultModel& model, RowRef row, std::string_view newName,
                              const FileCommandContext& ctx);

// File_Copying: moves or copies the row's file into `folder`. When a file of
// its name stands there, `overwrite(name, folder)` decides (No ends the
// command). After a move the row leaves the result, the group's check box is
// set anew, a group left with fewer than two rows goes, and the undo history
// is reset. Copying has no protection test.
FileCommandResult File_Copying(
    ResultModel& model, RowRef row, std::string_view folder, bool move,
    const std::function<bool(std::string_view name, std::string_view folder)>& overwrite,
    const FileCommandContext& ctx);

enum class SwapOutcome {
  Swapped,
  NotTwoFiles,    // not exactly two file rows among those given
  SameName,       // equal names: nothing to do
  ArchiveMember,  // members of archives are not touched
  Failed,         // a move failed; the moves done were undone
};

struct SwapResult {
  SwapOutcome outcome = SwapOutcome::NotTwoFiles;
  std::string message;  // the box shown for a failure
};

// File_Swap_FileNames: the two file rows among `rows` exchange their names,
// each in its own folder, in two stages through the suffix ".temp" (first
// both to the other's name + ".temp", then each to the final name). A failed
// move undoes the moves done so far, last first, so that both files end
// under their old names, and shows the failed move and its error. On
// success both rows take their new names.
SwapResult File_Swap_FileNames(ResultModel& model, const std::vector<RowRef>& rows,
                               const FileCommandContext& ctx);

// File_Compare_Files: the command line of the outside comparison program
// (txtPrgVergleich) with %1 the first path, %2 the second, %3 and %4 their
// folders, %5 and %6 their names. The line is split into words first (blanks
// separate, double or single quotes hold a word together), then each word
// takes the values, so a path is always one argument whatever it holds.
// Empty when the line is empty.
std::vector<std::string> CompareCommandLine(std::string_view commandLine, std::string_view path1,
                                            std::string_view path2);
// Starts the program on the two file rows among `rows`, detached (it
// outlives Kelvor's command). False with *error when it cannot be started,
// or when there are not exactly two file rows or no command line.
bool File_Compare_Files(const ResultModel& model, const std::vector<RowRef>& rows,
                        std::string_view commandLine, std::string* error);

// Report_Search: the first row after `fromIndex` (wrapping at the end, the
// row itself last) whose cells under `keys` match. The key "__Tree" stands
// for the name (dupname). `matches` is the filters' matcher on one cell text.
// -1 when none matches.
int Report_Search(const ResultModel& model, int fromIndex, const std::vector<std::string>& keys,
                  const std::function<bool(std::string_view)>& matches);

}  // namespace kelvor
