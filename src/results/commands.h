#pragma once
// The commands of the result window by their ids: selection rules, the
// selection mode, removals and undo. Both front ends run a command by its id
// through RunResultCommand, so a menu entry, a tool-bar button and
// `kelvor --headless --select ID` reach the same code.

#include <vector>

#include "results/view_state.h"

namespace kelvor {

enum class CommandKind {
  Selection,      // marks files by a rule
  SelectionMode,  // 81..88: which groups the rules change
  Removal,        // takes rows out of the result
  Undo,           // 239, and 6000 + n for the drop-down entries
};

struct ResultCommand {
  int id;
  CommandKind kind;
  CommandOutcome (*run)(CommandEnv& env, int id);
};

// The command of an id (6000 + n for any n >= 0 is the undo drop-down);
// null for an id the result window does not know.
const ResultCommand* FindResultCommand(int id);
// Every id of the table, in table order (without the drop-down ids).
std::vector<int> ResultCommandIds();

// Runs the command `id`. An unknown id gives CommandResult::Unknown with the
// message "Unbekannte Befehlsnummer: <id>" (shown through env.prompt too).
CommandOutcome RunResultCommand(CommandEnv& env, int id);

}  // namespace kelvor
