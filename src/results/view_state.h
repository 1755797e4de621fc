#pragma once
// What a result window tells the commands that work on the result: which rows
// are highlighted and focused, which groups the grid's row filter hides, the
// selection mode, the texts typed last into the selection prompts, and the
// captions of the commands. A plain record: the window fills it before a
// command, the headless front end and the tests fill it by hand.
//
// Row indices are those of ResultModel (display order, root 0). A removal
// shifts indices: the removal commands clear the highlight and the focus and
// carry the hidden groups over to their new indices.
//
// CommandEnv is everything a command runs with: the model, the undo history,
// the view, the prompt, the run state (pause, stop) and the progress sink.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "results/result_model.h"

namespace kelvor {

class UndoHistory;

// SelectionMode: which groups a group rule changes (settings key
// "SelectionMode" of section "Optionen", set by commands 81 to 88).
enum SelectionModeValue : std::int32_t {
  kSelectAllGroups = 0,
  kSelectExpanded = 1,
  kSelectCollapsed = 2,
  kSelectUnmarkedGroups = 3,  // check state 0
  kSelectMarkedGroups = 4,    // check state 1
  kSelectPartlyGroups = 5,    // check state 2
  kSelectHighlighted = 6,
  kSelectNotHighlighted = 7,
};

struct ViewState {
  int focusedRow = -1;               // FocusedRow, -1 when none
  std::vector<int> highlightedRows;  // the highlighted rows, any order
  std::vector<int> hiddenGroups;     // group rows the row filter hides
  std::int32_t SelectionMode = kSelectAllGroups;

  // The texts typed last, offered as the defaults of the next prompt.
  std::string lastSizeText;
  std::string lastNamePattern;
  std::string lastPathPattern;

  // The caption of a command id as the menus show it; empty (or no function)
  // gives "Befehl <id>".
  std::function<std::string(int commandId)> caption;

  bool IsHighlighted(int row) const {
    return std::find(highlightedRows.begin(), highlightedRows.end(), row) != highlightedRows.end();
  }
};

// Reading the width and height of a picture for a row whose dimensions were
// not read during the search (the front end passes the media reader of
// compare/). False when the file cannot be read.
using PictureSizeReader = std::function<bool(const std::string& path, int* width, int* height)>;

struct CommandEnv {
  ResultModel& model;
  UndoHistory* undo;  // null: no history is kept
  ViewState& view;
  Prompt& prompt;
  RunState& run;
  ProgressSink* progress = nullptr;   // null shows nothing
  PictureSizeReader readPictureSize;  // empty: unread dimensions count as 0
};

// How a command ended. Cancelled: a prompt was cancelled or left empty, or
// there was nothing to work on; nothing changed. Refused: the reply could
// not be used; `message` says why (it was also shown through the prompt).
enum class CommandResult { Done, Cancelled, Refused, Unknown };
struct CommandOutcome {
  CommandResult result = CommandResult::Done;
  std::string message;
};

}  // namespace kelvor
