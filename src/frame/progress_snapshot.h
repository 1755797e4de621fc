#pragma once
// A progress sink that the worker writes and the interface polls. The worker
// thread calls SetLabel, ProgressBar and LogPanel as a search runs; the
// interface thread calls Poll about once a second and gets a consistent copy
// of every label, the bar and the log lines that arrived since its last poll.

#include <array>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "frame/sinks.h"

namespace kelvor {

class ProgressSnapshot final : public ProgressSink {
 public:
  struct View {
    std::array<std::string, kLabelCount> labels;
    int percent = -1;                   // -1 until the bar was first set
    std::vector<std::string> newLines;  // log panel lines since the last poll
    std::uint64_t version = 0;          // grows with every change
    const std::string& Get(Label l) const { return labels[static_cast<std::size_t>(l)]; }
  };

  // Lines kept between two polls; older ones are dropped (and counted) so
  // that a log that floods while nobody polls cannot take the memory.
  explicit ProgressSnapshot(std::size_t maxPendingLines = 10000)
      : maxPendingLines_(maxPendingLines) {}

  void SetLabel(Label label, std::string_view text) override;
  void ProgressBar(int percent) override;
  void LogPanel(std::string_view line) override;

  // Interface thread: the state now, and the log lines since the last Poll.
  View Poll();
  // Log panel lines dropped because nobody polled in time.
  std::uint64_t DroppedLines() const;

 private:
  mutable std::mutex mutex_;
  View state_;  // newLines stays empty here; pending_ holds them
  std::deque<std::string> pending_;
  std::size_t maxPendingLines_;
  std::uint64_t dropped_ = 0;
};

}  // namespace kelvor
