// Outside programs run as child processes: what they print on both streams,
// their exit codes, and how a time limit and a stop end them.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "frame/child_process.h"
#include "frame/run_state.h"

namespace kelvor {
namespace {

using namespace std::chrono_literals;

TEST(ChildProcess, BothStreamsArriveMixedWithTheExitCode) {
  const ChildProcessResult r =
      RunChildProcess({"/bin/sh", "-c", "echo out; echo err >&2; echo out2; exit 3"});
  ASSERT_TRUE(r.started) << r.error;
  EXPECT_EQ(r.output, "out\nerr\nout2\n");
  EXPECT_EQ(r.exitCode, 3);
  EXPECT_FALSE(r.timedOut);
  EXPECT_FALSE(r.stopped);
}

TEST(ChildProcess, ArgumentsReachTheProgramAsTheyAreWithoutAShell) {
  // Blanks, quotes and shell characters stay inside their argument.
  const ChildProcessResult r =
      RunChildProcess({"printf", "[%s]\\n", "two words", "\"quoted\"", "$HOME;rm -rf x", "-raw"});
  ASSERT_TRUE(r.started) << r.error;
  EXPECT_EQ(r.output, "[two words]\n[\"quoted\"]\n[$HOME;rm -rf x]\n[-raw]\n");
  EXPECT_EQ(r.exitCode, 0);
}

TEST(ChildProcess, AMissingProgramSaysWhy) {
  const ChildProcessResult r = RunChildProcess({"/nonexistent/fpcalc", "-raw"});
  EXPECT_FALSE(r.started);
  EXPECT_NE(r.error.find("No such file or directory"), std::string::npos) << r.error;
  EXPECT_NE(r.error.find("posix_spawn"), std::string::npos) << r.error;
}

TEST(ChildProcess, TheTimeLimitEndsAHangingChild) {
  ChildProcessOptions o;
  o.timeLimit = 200ms;
  const ChildProcessResult r = RunChildProcess({"/bin/sh", "-c", "echo begun; exec sleep 30"}, o);
  ASSERT_TRUE(r.started);
  EXPECT_TRUE(r.timedOut);
  EXPECT_EQ(r.signal, SIGKILL);
  EXPECT_EQ(r.exitCode, -1);
  EXPECT_EQ(r.output, "begun\n");
}

TEST(ChildProcess, AStopOfTheRunEndsTheChild) {
  RunState run;
  ChildProcessOptions o;
  o.run = &run;
  std::thread stopper([&] {
    std::this_thread::sleep_for(100ms);
    run.RequestStop(kStopUser);
  });
  const ChildProcessResult r = RunChildProcess({"sleep", "30"}, o);
  stopper.join();
  ASSERT_TRUE(r.started);
  EXPECT_TRUE(r.stopped);
  EXPECT_FALSE(r.timedOut);
}

TEST(ChildProcess, OutputBeyondTheCapIsDropped) {
  ChildProcessOptions o;
  o.maxOutput = 1000;
  const ChildProcessResult r =
      RunChildProcess({"/bin/sh", "-c", "head -c 100000 /dev/zero; echo; exit 0"}, o);
  ASSERT_TRUE(r.started);
  EXPECT_EQ(r.output.size(), 1000u);
  EXPECT_EQ(r.exitCode, 0);
}

}  // namespace
}  // namespace kelvor
