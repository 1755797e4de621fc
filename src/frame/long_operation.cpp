#include "frame/long_operation.h"

#include <thread>

namespace kelvor {

LongOperation::LongOperation(RunState& run, std::chrono::milliseconds interval, Clock clock)
    : run_(run), interval_(interval), clock_(std::move(clock)) {
  if (!clock_) clock_ = [] { return std::chrono::steady_clock::now(); };
}

bool LongOperation::WaitWhilePaused() {
  if (run_.SearchState.load(std::memory_order_relaxed) != kPaused) return !Stopped();
  if (pauseHook_) pauseHook_(true);
  while (run_.SearchState.load(std::memory_order_relaxed) == kPaused)
    std::this_thread::sleep_for(pausePoll_);
  if (pauseHook_) pauseHook_(false);
  // Time spent paused does not count as time without a refresh.
  forced_ = true;
  return !Stopped();
}

bool LongOperation::Step() {
  return WaitWhilePaused();
}

bool LongOperation::Step(const std::function<void()>& refresh) {
  if (!WaitWhilePaused()) return false;
  const auto now = clock_();
  if (forced_ || now - lastRefresh_ >= interval_) {
    forced_ = false;
    lastRefresh_ = now;
    if (refresh) refresh();
  }
  return !Stopped();
}

}  // namespace kelvor
