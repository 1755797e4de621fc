#include "frame/progress_snapshot.h"

#include <iterator>

namespace kelvor {

void ProgressSnapshot::SetLabel(Label label, std::string_view text) {
  std::lock_guard lock(mutex_);
  std::string& slot = state_.labels[static_cast<std::size_t>(label)];
  if (slot == text) return;
  slot.assign(text);
  ++state_.version;
}

void ProgressSnapshot::ProgressBar(int percent) {
  std::lock_guard lock(mutex_);
  if (state_.percent == percent) return;
  state_.percent = percent;
  ++state_.version;
}

void ProgressSnapshot::LogPanel(std::string_view line) {
  std::lock_guard lock(mutex_);
  if (pending_.size() >= maxPendingLines_) {
    pending_.pop_front();
    ++dropped_;
  }
  pending_.emplace_back(line);
  ++state_.version;
}

ProgressSnapshot::View ProgressSnapshot::Poll() {
  std::lock_guard lock(mutex_);
  View out = state_;
  out.newLines.assign(std::make_move_iterator(pending_.begin()),
                      std::make_move_iterator(pending_.end()));
  pending_.clear();
  return out;
}

std::uint64_t ProgressSnapshot::DroppedLines() const {
  std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace kelvor
