#pragma once
// The undo history of the marks. Each selection command is one step: the
// rows whose mark really changed while the step was recording, kept by row
// index and taken back by flipping each once. Steps pile up until a reset;
// there is no redo.
//
// A step holds row indices and nothing else, which keeps it small (4 bytes a
// row) but ties it to the rows as they stand: every removal of a row, the
// load of a saved result, a file action that changed the result and the
// start of a search must call UNDO_reset. Sorting the rows moves indices as
// well; the front end resets before a sort.
//
// The history is the model's MarkObserver while it is in use: ResultModel
// tells it of every real change of a mark (File_Select), and it keeps the
// row when a step is recording. The state of command 239 (enabled, tool tip,
// the drop-down of older steps) is kept as data for the window to show.

#include <cstdint>
#include <string>
#include <vector>

#include "frame/long_operation.h"
#include "frame/sinks.h"
#include "results/result_model.h"

namespace kelvor {

inline constexpr int kCommandUndo = 239;
// Drop-down entries of older steps: 6000 + the step's index.
inline constexpr int kUndoDropDownBase = 6000;

// What the undo command shows: enabled state, tool tip ("Rückgängig:", a
// line break, the latest step's title), and the drop-down entries of older
// steps in the order they were added.
struct UndoCommandState {
  struct Entry {
    int id = 0;  // 6000 + step index
    std::string text;
  };
  bool enabled = false;
  std::string toolTip;
  std::vector<Entry> dropDown;
};

class UndoHistory final : public MarkObserver {
 public:
  // `texts` must outlive the history; null uses the German defaults.
  explicit UndoHistory(const TextCatalog* texts = nullptr);
  ~UndoHistory() override;
  UndoHistory(const UndoHistory&) = delete;
  UndoHistory& operator=(const UndoHistory&) = delete;

  // Makes this history the model's observer (and forgets the steps of any
  // model it watched before). Detach() gives the model back its observer
  // slot.
  void Attach(ResultModel& model);
  void Detach();

  std::int32_t UndoCount() const { return static_cast<std::int32_t>(steps_.size()); }
  std::int32_t UndoIndex() const { return UndoCount() - 1; }
  bool UndoRecording() const { return recording_; }
  // Title and rows (in the order recorded) of step `i`.
  const std::string& Title(int i) const { return steps_[static_cast<std::size_t>(i)].title; }
  const std::vector<std::int32_t>& Rows(int i) const {
    return steps_[static_cast<std::size_t>(i)].rows;
  }

  // UNDO_record_Init: a new empty step with `title`; recording on.
  void UNDO_record_Init(std::string title);
  // UNDO_record_end: recording off. A step that changed nothing is dropped
  // and never offered.
  void UNDO_record_end();
  // UNDO: takes back the latest step by flipping each of its rows once
  // (File_Select), updates the group pictures and the counters. Paced by
  // `run` (pause, stop, refresh of `progress` every 1.5 s). A stop keeps
  // the rows not flipped yet as the latest step (undoable later) and clears
  // the stop. Returns false when there was nothing to undo.
  bool UNDO(RunState& run, ProgressSink* progress = nullptr);
  // Takes back steps, latest first, until step `index` is gone too (the
  // drop-down entry 6000 + index).
  bool UndoTo(int index, RunState& run, ProgressSink* progress = nullptr);
  // UNDO_reset: no steps, recording off, command disabled.
  void UNDO_reset();

  const UndoCommandState& CommandState() const { return state_; }

  void RowMarkChanged(int rowIndex, bool nowMarked) override;

 private:
  struct Step {
    std::string title;
    std::vector<std::int32_t> rows;  // in the order recorded, each once
  };
  void ShowLatest();
  const TextCatalog& Texts() const;

  const TextCatalog* texts_;
  std::unique_ptr<TextCatalog> ownTexts_;
  ResultModel* model_ = nullptr;
  std::vector<Step> steps_;
  bool recording_ = false;
  // While recording: one bit per row index, so a row counts once a step.
  std::vector<std::uint64_t> seen_;
  UndoCommandState state_;
};

}  // namespace kelvor
