#pragma once
// Removal from the result: rows go, no file on disk is touched (except the
// extracted copy of a vanished archive member), and the counters stay true
// for every row that went. Every removal clears the undo history, since a
// step holds row indices.
//
// The bulk removals share one walk from the last row to the first, so that a
// removal never shifts a row not yet read; each row is found by index in
// O(log n), the whole walk costs O(n log n). The walk meets a group after its
// files: a group left without files goes, a group left with one stays.
// Groups the row filter hides keep their rows. A stop ends the walk; what
// went is gone, the counters are true and the stop is cleared.
//
// After a removal the view's highlight and focus are cleared and its hidden
// groups carried over to their new indices.

#include "results/view_state.h"

namespace kelvor {

// File_RemoveFromReport: one file row with the counters; the group stays,
// also without files (the caller decides). Unless `keepUndo`, the undo
// history (may be null) is reset.
void File_RemoveFromReport(ResultModel& model, UndoHistory* undo, RowRef file,
                           bool keepUndo = false);
// Report_RemoveGroup: one group with its files, counters kept true; resets
// the undo history (may be null).
void Report_RemoveGroup(ResultModel& model, UndoHistory* undo, RowRef group);

// The commands (ids in brackets).
CommandOutcome Report_RemoveSelectedFiles(CommandEnv& env);        // 220: marked files
CommandOutcome RemoveMarkedFile(CommandEnv& env);                  // 328: the focused file
CommandOutcome RemoveMarkedFiles(CommandEnv& env);                 // 320: highlighted files
CommandOutcome RemoveGroup_Selected(CommandEnv& env);              // 216: highlighted groups
CommandOutcome RemoveGroup_WithXfiles(CommandEnv& env);            // 8, 215: asks the count
CommandOutcome RemoveGroup_WithAllFilesSelected(CommandEnv& env);  // 233
CommandOutcome RemoveGroup_IfHardlinkOnly(CommandEnv& env);        // 224
CommandOutcome RemoveGroup_ContainOnlyHardlinkWithSameID(CommandEnv& env);   // 414
CommandOutcome RemoveGroup_DupsNotExistAtAllSourcefolders(CommandEnv& env);  // 232
CommandOutcome File_CheckExistAndRemove(CommandEnv& env);                    // 217
// 600, 1500: the files in a folder (asked for when `folder` is empty), with
// `recursive` also those below it.
CommandOutcome File_RemoveFromSameFolder(CommandEnv& env, bool recursive, std::string folder = {});

}  // namespace kelvor
