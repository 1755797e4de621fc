#pragma once
// Helpers the selection and removal commands share: the captions of
// commands, sets of row indices, folder keys and the pacing of their walks.
// Internal to results/.

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "results/view_state.h"

namespace kelvor::result_detail {

// Long walks over the result refresh their progress at most this often.
inline constexpr std::chrono::milliseconds kWalkRefresh{1500};

// A set of ints (row indices, group numbers) for lookups during one walk.
class IntSet {
 public:
  IntSet() = default;
  explicit IntSet(std::vector<int> v) : v_(std::move(v)) {
    std::sort(v_.begin(), v_.end());
    v_.erase(std::unique(v_.begin(), v_.end()), v_.end());
  }
  bool Has(int x) const { return std::binary_search(v_.begin(), v_.end(), x); }
  bool Empty() const { return v_.empty(); }
  const std::vector<int>& Values() const { return v_; }

 private:
  std::vector<int> v_;
};

// The caption of a command as the view has it, else "Befehl <id>".
std::string CommandCaption(const CommandEnv& env, int commandId);

// The sink to show progress on (a silent one when the env has none).
ProgressSink& SinkOf(const CommandEnv& env);

// A folder as the folder rules compare it: lower case, one trailing "/".
std::string FolderKey(std::string_view folder);

// The focused row when it is a file row, else the first highlighted file row
// (in the order the view lists them); an invalid RowRef when there is none.
RowRef FocusedOrFirstHighlightedFile(const CommandEnv& env);

// Clears a stop that ended a walk, so that the next command runs.
inline void ClearStop(RunState& run) {
  if (run.StopRequested()) run.SearchState.store(kRunning, std::memory_order_relaxed);
}

// Reads a whole number (blanks around it allowed); false when the text is
// no number.
bool ParseWholeNumber(std::string_view text, long long* value);

}  // namespace kelvor::result_detail
