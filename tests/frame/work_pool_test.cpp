// The worker pool and the table of results made ahead on it.

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "frame/run_state.h"
#include "frame/work_pool.h"

namespace kelvor {
namespace {

// A gate that holds jobs until it is opened.
class Gate {
 public:
  void Open() {
    std::lock_guard<std::mutex> lock(m_);
    open_ = true;
    cv_.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(m_);
    cv_.wait(lock, [&] { return open_; });
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool open_ = false;
};

// Blocks every worker of `pool` behind `gate`; returns when all are held.
void HoldWorkers(WorkPool& pool, Gate& gate) {
  std::atomic<unsigned> held{0};
  for (unsigned i = 0; i < pool.Threads(); ++i)
    ASSERT_TRUE(pool.Submit([&](unsigned) {
      ++held;
      gate.Wait();
    }));
  while (held.load() < pool.Threads()) std::this_thread::yield();
}

TEST(WorkPool, SizedToTheMachineOrAsToldAndRunsEveryJobOnItsWorkers) {
  EXPECT_GE(WorkPool::ThreadsFor(0), 1u);
  EXPECT_EQ(WorkPool::ThreadsFor(0), std::max(1u, std::thread::hardware_concurrency()));
  EXPECT_EQ(WorkPool::ThreadsFor(3), 3u);

  std::mutex m;
  std::set<unsigned> workers;
  std::atomic<int> ran{0};
  {
    WorkPool pool(3);
    EXPECT_EQ(pool.Threads(), 3u);
    std::promise<void> last;
    for (int i = 0; i < 200; ++i) {
      ASSERT_TRUE(pool.Submit([&, i](unsigned w) {
        {
          std::lock_guard<std::mutex> lock(m);
          workers.insert(w);
        }
        if (++ran == 200) last.set_value();
        (void)i;
      }));
    }
    last.get_future().wait();
  }
  EXPECT_EQ(ran.load(), 200);
  for (unsigned w : workers) EXPECT_LT(w, 3u);
}

TEST(WorkPool, QueueIsBoundedAndClosingDropsJobsNotStarted) {
  std::atomic<int> ran{0};
  Gate gate;
  std::thread opener;
  {
    WorkPool pool(1, {}, 4);
    HoldWorkers(pool, gate);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(pool.Submit([&](unsigned) { ++ran; }));
    EXPECT_FALSE(pool.Submit([&](unsigned) { ++ran; })) << "a fifth waiting job is refused";
    // Closing while the worker is held: the destructor must not run the four
    // queued jobs, and must join once the running one ends.
    opener = std::thread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      gate.Open();
    });
  }
  opener.join();
  EXPECT_EQ(ran.load(), 0);
}

TEST(WorkPool, StopRefusesNewJobsAndSkipsQueuedOnes) {
  RunState run;
  std::atomic<int> ran{0};
  Gate gate;
  WorkPool pool(1, [&] { return run.StopRequested(); });
  HoldWorkers(pool, gate);
  EXPECT_TRUE(pool.Submit([&](unsigned) { ++ran; }));
  run.RequestStop(kStopUser);
  EXPECT_FALSE(pool.Submit([&](unsigned) { ++ran; }));
  gate.Open();
  // The queued job is dropped unrun.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(ran.load(), 0);
}

using Table = AheadTable<std::string, int, std::string>;

// Computes "<key>*<request>" and records on which thread each key was made.
struct Recorder {
  std::mutex m;
  std::map<std::string, int> times;       // computations per key
  std::map<std::string, int> lastWorker;  // Table::kCaller or a worker index
  Table::Compute Fn() {
    return [this](const std::string& key, const int& request,
                  int worker) -> std::optional<std::string> {
      std::lock_guard<std::mutex> lock(m);
      ++times[key];
      lastWorker[key] = worker;
      return key + "*" + std::to_string(request);
    };
  }
};

TEST(AheadTable, EveryKeyGetsTheResultItsOwnComputationGivesAndIsMadeOnce) {
  Recorder rec;
  WorkPool pool(4);
  Table table(pool, rec.Fn(), 10000, 10000);
  for (int i = 0; i < 300; ++i) EXPECT_TRUE(table.Ahead("k" + std::to_string(i), i));
  EXPECT_FALSE(table.Ahead("k7", 7)) << "a key asked ahead twice is made once";
  // Asked in the loop's order, whatever order the workers finished in.
  for (int i = 0; i < 300; ++i) {
    auto r = table.Get("k" + std::to_string(i), i);
    ASSERT_TRUE(r);
    EXPECT_EQ(*r, "k" + std::to_string(i) + "*" + std::to_string(i));
  }
  // A key never asked ahead is made on the caller's thread.
  EXPECT_EQ(*table.Get("other", 1), "other*1");
  EXPECT_EQ(rec.lastWorker["other"], Table::kCaller);
  for (auto& [key, n] : rec.times) EXPECT_EQ(n, 1) << key;
  EXPECT_EQ(table.Size(), 0u) << "results taken leave the table";
}

TEST(AheadTable, KeysNotStartedAreTakenBackAndOtherRequestsMadeAgain) {
  Recorder rec;
  Gate gate;
  WorkPool pool(1);
  Table table(pool, rec.Fn());
  HoldWorkers(pool, gate);
  ASSERT_TRUE(table.Ahead("a", 1));
  ASSERT_TRUE(table.Ahead("b", 2));
  // "a" has not started: the caller makes it now instead of waiting.
  EXPECT_EQ(*table.Get("a", 1), "a*1");
  EXPECT_EQ(rec.lastWorker["a"], Table::kCaller);
  gate.Open();
  // "b" was made ahead for request 2; asked with request 3 it is made again.
  while (!table.Peek("b", 2, [](const std::string&) {})) std::this_thread::yield();
  std::string peeked;
  EXPECT_TRUE(table.Peek("b", 2, [&](const std::string& r) { peeked = r; }));
  EXPECT_EQ(peeked, "b*2");
  EXPECT_FALSE(table.Peek("b", 3, [](const std::string&) {}));
  EXPECT_EQ(rec.lastWorker["b"], 0);
  EXPECT_EQ(*table.Get("b", 3), "b*3");
  EXPECT_EQ(rec.lastWorker["b"], Table::kCaller);
  EXPECT_EQ(rec.times["a"], 1);
  EXPECT_EQ(rec.times["b"], 2);
}

TEST(AheadTable, WaitingAndUnclaimedResultsAreBounded) {
  Recorder rec;
  Gate gate;
  WorkPool pool(1);
  Table table(pool, rec.Fn(), 3, 2);
  HoldWorkers(pool, gate);
  EXPECT_TRUE(table.Ahead("a", 0));
  EXPECT_TRUE(table.Ahead("b", 0));
  EXPECT_TRUE(table.Ahead("c", 0));
  EXPECT_FALSE(table.Ahead("d", 0)) << "only three keys may wait";
  gate.Open();
  while (true) {
    std::lock_guard<std::mutex> lock(rec.m);
    if (rec.times.size() == 3) break;
  }
  // Made newest first (c, b, a); two results are kept, the oldest is dropped.
  while (table.Size() != 2) std::this_thread::yield();
  EXPECT_TRUE(table.Peek("a", 0, [](const std::string&) {}));
  EXPECT_TRUE(table.Peek("b", 0, [](const std::string&) {}));
  EXPECT_FALSE(table.Peek("c", 0, [](const std::string&) {}));
}

TEST(AheadTable, AStopEndsTheWaitForAJobThatDoesNotEnd) {
  RunState run;
  Gate gate;
  std::atomic<bool> started{false};
  WorkPool pool(1, [&] { return run.StopRequested(); });
  auto table = std::make_unique<Table>(
      pool, [&](const std::string& key, const int&, int worker) -> std::optional<std::string> {
        if (worker == Table::kCaller) {
          if (run.StopRequested()) return std::nullopt;
          return key;
        }
        started = true;
        gate.Wait();  // a read that hangs until the test lets it go
        return std::nullopt;
      });
  ASSERT_TRUE(table->Ahead("slow", 0));
  while (!started) std::this_thread::yield();
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    run.RequestStop(kStopUser);
  });
  EXPECT_FALSE(table->Get("slow", 0)) << "the stop ends the wait with no result";
  stopper.join();
  // Destroying the table waits for the running job, which the gate ends.
  std::thread opener([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    gate.Open();
  });
  table.reset();
  opener.join();
}

TEST(AheadTable, AStoppedResultMadeAheadIsNotHandedOut) {
  WorkPool pool(1);
  std::atomic<int> workerCalls{0};
  Table table(pool,
              [&](const std::string& key, const int&, int worker) -> std::optional<std::string> {
                if (worker != Table::kCaller) {
                  ++workerCalls;
                  return std::nullopt;  // as a worker that saw a stop of its own
                }
                return key + "!";
              });
  ASSERT_TRUE(table.Ahead("x", 0));
  while (workerCalls.load() == 0) std::this_thread::yield();
  EXPECT_EQ(*table.Get("x", 0), "x!");
}

// A key a worker finished can be asked again from inside the computation of
// another (as the checksum read-ahead does when a second file shows the
// prefix of a first): the worker makes it again, and the loop gets the new
// result. A key still running is made again when it ends.
TEST(AheadTable, RedoneKeysAreMadeAgainOnTheWorkerAndHandOutTheNewResult) {
  WorkPool pool(1);
  std::mutex m;
  std::map<std::string, int> times;
  std::map<std::string, int> lastWorker;
  Gate slowGate;
  std::atomic<bool> slowStarted{false};
  Table* tablePtr = nullptr;
  Table table(pool,
              [&](const std::string& key, const int&, int worker) -> std::optional<std::string> {
                int n;
                {
                  std::lock_guard<std::mutex> lock(m);
                  n = ++times[key];
                  lastWorker[key] = worker;
                }
                if (key == "second") {
                  EXPECT_TRUE(tablePtr->Redo("first"));
                }
                if (key == "slow" && n == 1) {
                  slowStarted = true;
                  slowGate.Wait();
                }
                return key + "#" + std::to_string(n);
              });
  tablePtr = &table;
  EXPECT_FALSE(table.Redo("never asked"));

  ASSERT_TRUE(table.Ahead("first", 0));
  while (!table.Peek("first", 0, [](const std::string&) {})) std::this_thread::yield();
  ASSERT_TRUE(table.Ahead("second", 0));
  EXPECT_EQ(*table.Get("second", 0), "second#1");
  // The worker that made "second" made "first" again before it left.
  while (!table.Peek("first", 0, [](const std::string&) {})) std::this_thread::yield();
  EXPECT_EQ(*table.Get("first", 0), "first#2");
  EXPECT_EQ(lastWorker["first"], 0) << "made again on the worker, not by the loop";
  EXPECT_FALSE(table.Redo("first")) << "a result taken is gone from the table";

  ASSERT_TRUE(table.Ahead("slow", 0));
  while (!slowStarted) std::this_thread::yield();
  EXPECT_TRUE(table.Redo("slow"));
  slowGate.Open();
  EXPECT_EQ(*table.Get("slow", 0), "slow#2") << "the result of the run before the redo is not used";
  EXPECT_EQ(lastWorker["slow"], 0);
  EXPECT_EQ(table.Size(), 0u);
}

}  // namespace
}  // namespace kelvor
