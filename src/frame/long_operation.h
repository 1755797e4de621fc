#pragma once
// The pacing of every long loop (walk, archive scan, selection, removal, file
// manager, saving, loading, export): one call per file or block waits while
// the run is paused, tells the loop to end once a stop is requested, and runs
// the loop's refresh at most once per interval. Loops run on the worker
// thread; the interface thread only changes RunState.

#include <chrono>
#include <functional>

#include "frame/run_state.h"

namespace kelvor {

class LongOperation {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;
  // Told when a pause begins (true) and ends (false), for the caption of the
  // pause button.
  using PauseHook = std::function<void(bool paused)>;

  // One second between refreshes, the pacing unit of the interface.
  static constexpr std::chrono::milliseconds kDefaultInterval{1000};

  explicit LongOperation(RunState& run, std::chrono::milliseconds interval = kDefaultInterval,
                         Clock clock = {});

  // At each file or block. Waits while paused; false once a stop is
  // requested (also when it came during the pause). With the interval passed
  // since the last refresh, or after ForceRefresh, calls `refresh` first.
  bool Step(const std::function<void()>& refresh);
  // The same without a refresh: pause and stop only.
  bool Step();

  // The next Step refreshes whatever the time.
  void ForceRefresh() { forced_ = true; }
  bool Stopped() const { return run_.StopRequested(); }

  void SetPauseHook(PauseHook hook) { pauseHook_ = std::move(hook); }
  // How long a paused loop sleeps between looks at the run state.
  void SetPausePoll(std::chrono::milliseconds poll) { pausePoll_ = poll; }

 private:
  bool WaitWhilePaused();

  RunState& run_;
  std::chrono::milliseconds interval_;
  Clock clock_;
  std::chrono::steady_clock::time_point lastRefresh_{};
  bool forced_ = true;  // the first Step shows the state at once
  PauseHook pauseHook_;
  std::chrono::milliseconds pausePoll_{50};
};

}  // namespace kelvor
