// Pacing of long loops and the progress a window polls while a worker runs.

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "frame/long_operation.h"
#include "frame/progress_snapshot.h"

namespace kelvor {
namespace {

using namespace std::chrono_literals;
using TimePoint = std::chrono::steady_clock::time_point;

TEST(LongOperation, RefreshesAtMostOncePerIntervalAndWhenForced) {
  RunState run;
  TimePoint now{};
  LongOperation op(run, 1000ms, [&] { return now; });
  int refreshes = 0;
  auto refresh = [&] { ++refreshes; };
  // The first step shows the state at once; steps inside the interval do not.
  EXPECT_TRUE(op.Step(refresh));
  for (int i = 0; i < 100; ++i) {
    now += 5ms;
    EXPECT_TRUE(op.Step(refresh));
  }
  EXPECT_EQ(refreshes, 1);
  now += 500ms;
  EXPECT_TRUE(op.Step(refresh));
  EXPECT_EQ(refreshes, 2);
  op.ForceRefresh();
  EXPECT_TRUE(op.Step(refresh));
  EXPECT_EQ(refreshes, 3);
  // A step without a refresh leaves the clock of refreshes alone.
  now += 2s;
  EXPECT_TRUE(op.Step());
  EXPECT_TRUE(op.Step(refresh));
  EXPECT_EQ(refreshes, 4);
}

TEST(LongOperation, StopEndsTheLoopAlsoFromAPause) {
  RunState run;
  LongOperation op(run);
  op.SetPausePoll(1ms);
  std::vector<bool> pauses;
  op.SetPauseHook([&](bool paused) { pauses.push_back(paused); });
  EXPECT_TRUE(op.Step());

  run.SearchState = kPaused;
  auto steps = std::async(std::launch::async, [&] {
    int done = 0;
    while (op.Step([] {})) ++done;
    return done;
  });
  // The worker stays in its pause until the interface resumes or stops it.
  EXPECT_EQ(steps.wait_for(50ms), std::future_status::timeout);
  run.RequestStop(kStopUser);
  ASSERT_EQ(steps.wait_for(5s), std::future_status::ready);
  EXPECT_EQ(steps.get(), 0);
  EXPECT_EQ(pauses, (std::vector<bool>{true, false}));
  EXPECT_FALSE(op.Step());
  EXPECT_TRUE(op.Stopped());
}

TEST(LongOperation, ResumeGoesOnWithARefresh) {
  RunState run;
  TimePoint now{};
  LongOperation op(run, 1000ms, [&] { return now; });
  op.SetPausePoll(1ms);
  int refreshes = 0;
  EXPECT_TRUE(op.Step([&] { ++refreshes; }));
  run.SearchState = kPaused;
  std::thread resume([&] {
    std::this_thread::sleep_for(20ms);
    run.SearchState = kRunning;
  });
  EXPECT_TRUE(op.Step([&] { ++refreshes; }));
  resume.join();
  EXPECT_EQ(refreshes, 2);
}

TEST(ProgressSnapshot, PollGivesTheLatestLabelsAndEachLogLineOnce) {
  ProgressSnapshot snap(3);
  snap.SetLabel(Label::Gesamt, "1 / 10");
  snap.SetLabel(Label::Gesamt, "2 / 10");
  snap.ProgressBar(20);
  snap.LogPanel("one");
  snap.LogPanel("two");
  ProgressSnapshot::View v = snap.Poll();
  EXPECT_EQ(v.Get(Label::Gesamt), "2 / 10");
  EXPECT_EQ(v.Get(Label::Dups), "");
  EXPECT_EQ(v.percent, 20);
  EXPECT_EQ(v.newLines, (std::vector<std::string>{"one", "two"}));

  // Unchanged state keeps its version; lines are handed out once.
  const auto version = v.version;
  snap.SetLabel(Label::Gesamt, "2 / 10");
  v = snap.Poll();
  EXPECT_EQ(v.version, version);
  EXPECT_TRUE(v.newLines.empty());
  EXPECT_EQ(v.Get(Label::Gesamt), "2 / 10");

  // Nobody polled: the oldest lines give way, and that is counted.
  for (const char* l : {"a", "b", "c", "d", "e"}) snap.LogPanel(l);
  v = snap.Poll();
  EXPECT_EQ(v.newLines, (std::vector<std::string>{"c", "d", "e"}));
  EXPECT_EQ(snap.DroppedLines(), 2u);
}

TEST(ProgressSnapshot, WorkerAndPollerAtOnce) {
  ProgressSnapshot snap;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    for (int i = 0; i < 20000; ++i) {
      snap.SetLabel(Label::Gesamt, std::to_string(i));
      if (i % 10 == 0) snap.LogPanel("line " + std::to_string(i));
    }
    done = true;
  });
  std::size_t lines = 0;
  long last = -1;
  while (!done) {
    ProgressSnapshot::View v = snap.Poll();
    lines += v.newLines.size();
    if (!v.Get(Label::Gesamt).empty()) {
      long now = std::stol(v.Get(Label::Gesamt));
      EXPECT_GE(now, last);  // the count never runs backwards
      last = now;
    }
  }
  worker.join();
  lines += snap.Poll().newLines.size();
  EXPECT_EQ(lines, 2000u);
  EXPECT_EQ(snap.Poll().Get(Label::Gesamt), "19999");
}

}  // namespace
}  // namespace kelvor
