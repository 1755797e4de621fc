// The table of the result window's commands, from id to operation.

#include "results/commands.h"

#include "frame/texts.h"
#include "results/removal.h"
#include "results/selection.h"
#include "results/undo.h"

namespace kelvor {

namespace {

using K = CommandKind;
using Env = CommandEnv;

CommandOutcome UndoLatest(Env& env, int) {
  if (!env.undo || !env.undo->UNDO(env.run, env.progress))
    return CommandOutcome{CommandResult::Cancelled, {}};
  return {};
}

CommandOutcome SetSelectionMode(Env& env, int id) {
  env.view.SelectionMode = id - 81;
  return {};
}

// The folder commands: 900, 1000, 1100 ask for the folder first; 1700, 1800,
// 306 start from the focused file's folder. In each triple: mark the files
// of the folder, mark those of the folder and below, unmark those of the
// folder and below.
CommandOutcome FolderRule(Env& env, int id) {
  const bool ask = id == 900 || id == 1000 || id == 1100;
  const bool mark = !(id == 1100 || id == 306);
  const bool recursive = !(id == 900 || id == 1700);
  return ask ? Select_DupInSameFolderByPathSelection(env, mark, recursive, id)
             : Select_DupInSameFolderByPath(env, mark, recursive, id);
}

const ResultCommand kCommands[] = {
    {11, K::Selection, [](Env& e, int id) { return Select_EveryDup(e, true, id); }},
    {205, K::Selection, [](Env& e, int id) { return Select_EveryDup(e, true, id); }},
    {12, K::Selection, [](Env& e, int id) { return Select_EveryDup(e, false, id); }},
    {206, K::Selection, [](Env& e, int id) { return Select_EveryDup(e, false, id); }},
    {26, K::Selection, [](Env& e, int id) { return Select_Invert_Selection(e, id); }},
    {210, K::Selection, [](Env& e, int id) { return Select_Invert_Selection(e, id); }},
    {32, K::Selection, [](Env& e, int id) { return Select_OnlyTheFirst(e, id); }},
    {218, K::Selection, [](Env& e, int id) { return Select_OnlyTheFirst(e, id); }},
    {33, K::Selection, [](Env& e, int id) { return Select_OnlyTheLast(e, id); }},
    {219, K::Selection, [](Env& e, int id) { return Select_OnlyTheLast(e, id); }},
    {13, K::Selection, [](Env& e, int id) { return Select_AllButNotTheFirst(e, id); }},
    {203, K::Selection, [](Env& e, int id) { return Select_AllButNotTheFirst(e, id); }},
    {14, K::Selection, [](Env& e, int id) { return Select_AllButNotTheLast(e, id); }},
    {204, K::Selection, [](Env& e, int id) { return Select_AllButNotTheLast(e, id); }},
    {27, K::Selection, [](Env& e, int) { return Select_AllButNotTheNewestOldest(e, true, true); }},
    {41, K::Selection, [](Env& e, int) { return Select_AllButNotTheNewestOldest(e, true, false); }},
    {42, K::Selection, [](Env& e, int) { return Select_AllButNotTheNewestOldest(e, false, true); }},
    {43, K::Selection,
     [](Env& e, int) { return Select_AllButNotTheNewestOldest(e, false, false); }},
    {225, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheShortestLongestFileName(e, true, id); }},
    {226, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheShortestLongestFileName(e, false, id); }},
    {227, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheShortestLongestFilePath(e, true, id); }},
    {228, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheShortestLongestFilePath(e, false, id); }},
    {53, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheSmallestBiggest(e, true, id); }},
    {221, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheSmallestBiggest(e, true, id); }},
    {54, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheSmallestBiggest(e, false, id); }},
    {222, K::Selection,
     [](Env& e, int id) { return Select_AllButNotTheSmallestBiggest(e, false, id); }},
    {238, K::Selection, [](Env& e, int id) { return Select_AllButNotTheMostMP(e, id); }},
    {236, K::Selection, [](Env& e, int id) { return Select_MatchHigherLower(e, true, id); }},
    {237, K::Selection, [](Env& e, int id) { return Select_MatchHigherLower(e, false, id); }},
    {244, K::Selection, [](Env& e, int) { return Select_DupBySize(e, 0); }},
    {245, K::Selection, [](Env& e, int) { return Select_DupBySize(e, 1); }},
    {246, K::Selection, [](Env& e, int) { return Select_DupBySize(e, 2); }},
    {229, K::Selection, [](Env& e, int id) { return Select_DupByName(e, true, id); }},
    {231, K::Selection, [](Env& e, int id) { return Select_DupByName(e, false, id); }},
    {234, K::Selection, [](Env& e, int id) { return Select_DupByPath(e, true, id); }},
    {235, K::Selection, [](Env& e, int id) { return Select_DupByPath(e, false, id); }},
    {900, K::Selection, FolderRule},
    {1000, K::Selection, FolderRule},
    {1100, K::Selection, FolderRule},
    {1700, K::Selection, FolderRule},
    {1800, K::Selection, FolderRule},
    {306, K::Selection, FolderRule},
    {700, K::Selection,
     [](Env& e, int id) { return Select_DupFromFilesOfThisFolder(e, true, id); }},
    {800, K::Selection,
     [](Env& e, int id) { return Select_DupFromFilesOfThisFolder(e, false, id); }},
    {321, K::Selection, [](Env& e, int) { return Select_MarkedFiles(e, true); }},
    {324, K::Selection, [](Env& e, int) { return Select_MarkedFiles(e, false); }},
    {302, K::Selection, [](Env& e, int) { return File_SelectAllOtherFilesFromThisFolder(e); }},
    {81, K::SelectionMode, SetSelectionMode},
    {82, K::SelectionMode, SetSelectionMode},
    {83, K::SelectionMode, SetSelectionMode},
    {84, K::SelectionMode, SetSelectionMode},
    {85, K::SelectionMode, SetSelectionMode},
    {86, K::SelectionMode, SetSelectionMode},
    {87, K::SelectionMode, SetSelectionMode},
    {88, K::SelectionMode, SetSelectionMode},
    {220, K::Removal, [](Env& e, int) { return Report_RemoveSelectedFiles(e); }},
    {328, K::Removal, [](Env& e, int) { return RemoveMarkedFile(e); }},
    {320, K::Removal, [](Env& e, int) { return RemoveMarkedFiles(e); }},
    {216, K::Removal, [](Env& e, int) { return RemoveGroup_Selected(e); }},
    {8, K::Removal, [](Env& e, int) { return RemoveGroup_WithXfiles(e); }},
    {215, K::Removal, [](Env& e, int) { return RemoveGroup_WithXfiles(e); }},
    {233, K::Removal, [](Env& e, int) { return RemoveGroup_WithAllFilesSelected(e); }},
    {224, K::Removal, [](Env& e, int) { return RemoveGroup_IfHardlinkOnly(e); }},
    {414, K::Removal, [](Env& e, int) { return RemoveGroup_ContainOnlyHardlinkWithSameID(e); }},
    {232, K::Removal, [](Env& e, int) { return RemoveGroup_DupsNotExistAtAllSourcefolders(e); }},
    {217, K::Removal, [](Env& e, int) { return File_CheckExistAndRemove(e); }},
    {600, K::Removal, [](Env& e, int) { return File_RemoveFromSameFolder(e, false); }},
    {1500, K::Removal, [](Env& e, int) { return File_RemoveFromSameFolder(e, true); }},
    {kCommandUndo, K::Undo, UndoLatest},
};

// A drop-down entry of the undo command: takes back the steps down to its own.
const ResultCommand kUndoEntry{
    kUndoDropDownBase, K::Undo, [](Env& env, int id) {
      if (!env.undo || !env.undo->UndoTo(id - kUndoDropDownBase, env.run, env.progress))
        return CommandOutcome{CommandResult::Cancelled, {}};
      return CommandOutcome{};
    }};

}  // namespace

const ResultCommand* FindResultCommand(int id) {
  for (const ResultCommand& c : kCommands) {
    if (c.id == id) return &c;
  }
  if (id >= kUndoDropDownBase && id < kUndoDropDownBase + 1000000) return &kUndoEntry;
  return nullptr;
}

std::vector<int> ResultCommandIds() {
  std::vector<int> ids;
  for (const ResultCommand& c : kCommands) ids.push_back(c.id);
  return ids;
}

CommandOutcome RunResultCommand(CommandEnv& env, int id) {
  const ResultCommand* c = FindResultCommand(id);
  if (!c) {
    std::string message = env.model.Texts().Get(txt::T9624, {std::to_string(id)});
    env.prompt.Message(message, MessageIcon::Critical);
    return CommandOutcome{CommandResult::Unknown, std::move(message)};
  }
  return c->run(env, id);
}

}  // namespace kelvor
