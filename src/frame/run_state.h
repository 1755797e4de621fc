#pragma once
// The run state of a long operation (search, archive scan, file manager).
// The worker tests SearchState at each file or block; the interface thread
// sets it from the stop bar.

#include <atomic>
#include <cstdint>

namespace kelvor {

enum SearchStateValue : int32_t {
  kRunning = 0,
  kPaused = 1,
  kStopRequested = 3,
  kStopBar2 = 4,  // set by the third stop-bar button, tested by nothing
};

enum StopReasonValue : int32_t {
  kStopNone = 0,
  kStopUser = 5,
  kStopMaxDups = 6,
  kStopMemory = 7,
};

struct RunState {
  std::atomic<int32_t> SearchState{kRunning};
  std::atomic<int32_t> StopReason{kStopNone};

  bool StopRequested() const { return SearchState.load(std::memory_order_relaxed) == kStopRequested; }
  void RequestStop(int32_t reason) {
    StopReason.store(reason, std::memory_order_relaxed);
    SearchState.store(kStopRequested, std::memory_order_relaxed);
  }
};

}  // namespace kelvor
