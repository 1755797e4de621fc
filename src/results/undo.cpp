// The undo history of the marks: steps of row indices, the state of the undo
// command, and taking a step back.

#include "results/undo.h"

#include <chrono>

#include "frame/texts.h"

namespace kelvor {

namespace {

constexpr std::chrono::milliseconds kWalkRefresh{1500};

std::string OneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

}  // namespace

UndoHistory::UndoHistory(const TextCatalog* texts) : texts_(texts) {
  if (!texts_) ownTexts_ = std::make_unique<TextCatalog>();
}

UndoHistory::~UndoHistory() {
  Detach();
}

const TextCatalog& UndoHistory::Texts() const {
  return texts_ ? *texts_ : *ownTexts_;
}

void UndoHistory::Attach(ResultModel& model) {
  Detach();
  model_ = &model;
  model.SetMarkObserver(this);
  UNDO_reset();
}

void UndoHistory::Detach() {
  if (model_) model_->SetMarkObserver(nullptr);
  model_ = nullptr;
}

void UndoHistory::UNDO_record_Init(std::string title) {
  steps_.push_back(Step{std::move(title), {}});
  seen_.clear();
  recording_ = true;
}

void UndoHistory::RowMarkChanged(int rowIndex, bool) {
  if (!recording_ || steps_.empty() || rowIndex < 0) return;
  // The key of a row is its index: a row changed twice in a step is kept
  // once and taken back by one flip.
  const auto word = static_cast<std::size_t>(rowIndex) / 64;
  const std::uint64_t bit = std::uint64_t{1} << (static_cast<unsigned>(rowIndex) % 64);
  if (word >= seen_.size()) seen_.resize(word + 1 + word / 2, 0);
  if (seen_[word] & bit) return;
  seen_[word] |= bit;
  steps_.back().rows.push_back(rowIndex);
}

void UndoHistory::ShowLatest() {
  if (steps_.empty()) {
    state_.enabled = false;
    state_.toolTip.clear();
    return;
  }
  state_.enabled = true;
  state_.toolTip = Texts().Get(txt::T9619) + "\n" + steps_.back().title;
}

void UndoHistory::UNDO_record_end() {
  recording_ = false;
  seen_.clear();
  seen_.shrink_to_fit();
  if (steps_.empty()) return;
  if (steps_.back().rows.empty()) {
    // A step that changed nothing is never offered.
    steps_.pop_back();
    ShowLatest();
    return;
  }
  steps_.back().rows.shrink_to_fit();
  ShowLatest();
  const int index = UndoIndex();
  if (index > 0) {
    state_.dropDown.push_back(
        UndoCommandState::Entry{kUndoDropDownBase + index,
                                std::to_string(index + 1) + ". " + OneLine(steps_.back().title)});
  }
}

bool UndoHistory::UNDO(RunState& run, ProgressSink* progress) {
  if (!model_ || steps_.empty() || steps_.back().rows.empty()) return false;
  recording_ = false;
  Step& step = steps_.back();
  NullProgressSink none;
  ProgressSink& sink = progress ? *progress : none;
  sink.SetLabel(Label::StatusBar, Texts().Get(txt::T9618, {step.title}));

  ResultModel& m = *model_;
  LongOperation pace(run, kWalkRefresh);
  const std::size_t total = step.rows.size();
  std::size_t done = 0;
  RowRef lastGroup{-1, -2};
  const auto refresh = [&] {
    sink.ProgressBar(static_cast<int>(total ? done * 100 / total : 100));
  };
  for (const std::int32_t index : step.rows) {
    if (!pace.Step(refresh)) break;
    ++done;
    const RowRef row = m.RowByIndex(index);
    if (m.Level(row) != kLevelFile) continue;
    const RowRef group = m.Parent(row);
    if (!(group == lastGroup)) {
      if (lastGroup.group >= 0) m.Report_Set_Group_Checkbox_Image(lastGroup);
      lastGroup = group;
    }
    m.File_Select(row, !m.IsMarked(row));
  }
  if (lastGroup.group >= 0) m.Report_Set_Group_Checkbox_Image(lastGroup);
  if (done < total) {
    // Stopped: the rows not flipped yet stay the step, still undoable.
    run.SearchState.store(kRunning, std::memory_order_relaxed);
    step.rows.erase(step.rows.begin(), step.rows.begin() + static_cast<std::ptrdiff_t>(done));
    m.ShowDupCount();
    sink.SetLabel(Label::StatusBar, {});
    return true;
  }

  const int index = UndoIndex();
  std::erase_if(state_.dropDown, [&](const UndoCommandState::Entry& e) {
    return e.id == kUndoDropDownBase + index;
  });
  steps_.pop_back();
  if (steps_.empty()) {
    UNDO_reset();
  } else {
    ShowLatest();
  }
  m.ShowDupCount();
  sink.SetLabel(Label::StatusBar, {});
  return true;
}

bool UndoHistory::UndoTo(int index, RunState& run, ProgressSink* progress) {
  if (index < 0 || index > UndoIndex()) return false;
  bool any = false;
  while (UndoIndex() >= index) {
    const int before = UndoCount();
    if (!UNDO(run, progress)) break;
    any = true;
    if (UndoCount() == before) break;  // stopped half way
  }
  return any;
}

void UndoHistory::UNDO_reset() {
  steps_.clear();
  steps_.shrink_to_fit();
  recording_ = false;
  seen_.clear();
  state_ = UndoCommandState{};
}

}  // namespace kelvor
