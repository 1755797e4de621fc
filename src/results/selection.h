#pragma once
// The selection commands: rules that mark, in each group that takes part,
// the files that are to go. They change only the check state of file rows,
// always through ResultModel::File_Select, so the counters and the undo
// history stay true; no rule touches a file on disk.
//
// Every rule is one walk over the groups in index order (no sort, no lookup
// by key), paced by the run state (pause, stop, progress every 1.5 s). A stop
// ends the walk at the next row: what was done stays, the stop is cleared,
// and the step recorded so far is undone as one. Each command is one undo
// step titled with its caption, except Select_MarkedFiles and
// File_SelectAllOtherFilesFromThisFolder.
//
// Which groups take part: ChangeThisGroup (SelectionMode, and never a group
// the row filter hides). Prompts go through env.prompt with the texts the
// view remembers as defaults; an empty or cancelled reply ends the command
// (Cancelled), a reply that cannot be used is shown and refused (Refused).

#include "results/view_state.h"

namespace kelvor {

// ChangeThisGroup: whether the group row at `groupIndex` takes part under
// the view's SelectionMode.
bool ChangeThisGroup(const ResultModel& model, const ViewState& view, RowRef group, int groupIndex);

CommandOutcome Select_EveryDup(CommandEnv& env, bool mark, int commandId);
CommandOutcome Select_Invert_Selection(CommandEnv& env, int commandId);
CommandOutcome Select_OnlyTheFirst(CommandEnv& env, int commandId);
CommandOutcome Select_OnlyTheLast(CommandEnv& env, int commandId);
CommandOutcome Select_AllButNotTheFirst(CommandEnv& env, int commandId);
CommandOutcome Select_AllButNotTheLast(CommandEnv& env, int commandId);
// newest: keep the newest (else the oldest); changeDate: by the change date
// (else the creation date).
CommandOutcome Select_AllButNotTheNewestOldest(CommandEnv& env, bool newest, bool changeDate);
CommandOutcome Select_AllButNotTheShortestLongestFileName(CommandEnv& env, bool shortest,
                                                          int commandId);
CommandOutcome Select_AllButNotTheShortestLongestFilePath(CommandEnv& env, bool shortest,
                                                          int commandId);
CommandOutcome Select_AllButNotTheSmallestBiggest(CommandEnv& env, bool smallest, int commandId);
// Keeps the file with the most pixels (then the biggest). Rows whose
// dimensions were not read are read through env.readPictureSize.
CommandOutcome Select_AllButNotTheMostMP(CommandEnv& env, int commandId);
CommandOutcome Select_MatchHigherLower(CommandEnv& env, bool higher, int commandId);
// mode 0: smaller than the size asked for, 1 equal, 2 greater.
CommandOutcome Select_DupBySize(CommandEnv& env, int mode);
CommandOutcome Select_DupByName(CommandEnv& env, bool mark, int commandId);
CommandOutcome Select_DupByPath(CommandEnv& env, bool mark, int commandId);
// The files in `folder` (empty: the folder of the focused or first
// highlighted file row, else asked for), or with `recursive` below it.
CommandOutcome Select_DupInSameFolderByPath(CommandEnv& env, bool mark, bool recursive,
                                            int commandId, std::string folder = {});
// Asks for the folder first.
CommandOutcome Select_DupInSameFolderByPathSelection(CommandEnv& env, bool mark, bool recursive,
                                                     int commandId);
// In each group with a file in the folder: with `mark`, unless a file of the
// folder is marked already, every file outside the folder is marked (the
// copies in the folder stay); without, every file outside it is unmarked.
CommandOutcome Select_DupFromFilesOfThisFolder(CommandEnv& env, bool mark, int commandId,
                                               std::string folder = {});
// Flips every sibling of the focused (or first highlighted) file row.
CommandOutcome File_SelectAllOtherFilesFromThisFolder(CommandEnv& env);
// Marks (or unmarks) the highlighted file rows.
CommandOutcome Select_MarkedFiles(CommandEnv& env, bool mark);

}  // namespace kelvor
