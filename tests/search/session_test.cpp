// The search session driven as a window drives it: start-up into a temporary
// data folder, Prepare on the test's thread, Run on the same thread or on a
// worker while the test polls a ProgressSnapshot and requests the stop.

#include "search/session.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "frame/progress_snapshot.h"
#include "results/result_model.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::ReadUtf16File;
using test::TempDir;

// Answers every question with no and keeps the messages.
class ScriptedPrompt final : public Prompt {
 public:
  void Message(std::string_view text, MessageIcon) override { messages.emplace_back(text); }
  bool AskYesNo(std::string_view) override { return false; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
  std::vector<std::string> messages;
};

// Hands everything on to a snapshot, and holds the worker at the first step
// label that holds `holdAt` until the test opens the gate, so that the test
// thread acts while the search stands at a known point.
class GatedSink final : public ProgressSink {
 public:
  GatedSink(ProgressSnapshot& snapshot, std::string holdAt)
      : snapshot_(snapshot), holdAt_(std::move(holdAt)) {}
  void SetLabel(Label l, std::string_view text) override {
    snapshot_.SetLabel(l, text);
    if (l != Label::Step || held_ || text.find(holdAt_) == std::string_view::npos) return;
    held_ = true;
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [&] { return open_; });
  }
  void ProgressBar(int percent) override { snapshot_.ProgressBar(percent); }
  void LogPanel(std::string_view line) override { snapshot_.LogPanel(line); }
  void Open() {
    {
      std::lock_guard lock(mutex_);
      open_ = true;
    }
    opened_.notify_all();
  }

 private:
  ProgressSnapshot& snapshot_;
  std::string holdAt_;
  bool held_ = false;  // worker only
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

class SearchSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    data_ = tmp_.path() / "kdata";
    tree_ = tmp_.Mkdir("tree");
    tmp_.Write("tree/a/x.txt", "same content");
    tmp_.Write("tree/b/y.txt", "same content");
    tmp_.Write("tree/c/z.txt", "other content");
  }

  SessionOptions Options(std::vector<std::string> items) const {
    SessionOptions o;
    o.executable = fs::read_symlink("/proc/self/exe");
    o.dataDir = data_;
    o.items = std::move(items);
    o.env.vars["HOME"] = (tmp_.path() / "home").string();
    return o;
  }

  std::string LastSearchLog() const { return ReadUtf16File(data_ / "log/lastsearch.txt"); }

  TempDir tmp_;
  fs::path data_, tree_;
};

TEST_F(SearchSessionTest, RunsTheWholeSearchOnTheCallersThread) {
  ScriptedPrompt prompt;
  SearchSession session(Options({"-s3", tree_.string()}), &prompt);
  EXPECT_TRUE(fs::is_directory(data_ / "log"));
  EXPECT_TRUE(fs::exists(data_ / "config4.ini"));

  const Preparation& p = session.Prepare();
  ASSERT_EQ(p.verdict, SessionVerdict::Ready);
  EXPECT_TRUE(p.messages.empty());
  ASSERT_EQ(session.Rows().size(), 1u);
  EXPECT_FALSE(session.HasResult());
  EXPECT_EQ(session.Result().GroupCount(), 0);

  NullProgressSink progress;
  RunState run;
  const RunOutcome outcome = session.Run(progress, prompt, run);
  EXPECT_TRUE(outcome.ran);
  EXPECT_FALSE(outcome.stoppedByUser);
  EXPECT_EQ(outcome.logError, "");

  ASSERT_TRUE(session.HasResult());
  const ResultModel& result = session.Result();
  EXPECT_EQ(result.GroupCount(), 1);
  std::vector<std::string> paths;
  result.ForEachGroup([&](RowRef g) {
    result.ForEachFile(g, [&](RowRef f) {
      paths.push_back(result.File_GetPathFromNode(f));
      return true;
    });
    return true;
  });
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths,
            (std::vector<std::string>{(tree_ / "a/x.txt").string(), (tree_ / "b/y.txt").string()}));
  EXPECT_EQ(session.Stats().FilesTotal, 3);
  EXPECT_EQ(session.Stats().FilesChecked, 3);
  EXPECT_EQ(session.ClosingMessage().rfind("Duplikate: 2", 0), 0u) << session.ClosingMessage();

  // The run's log was closed: lastsearch.txt holds it, the general log too.
  const std::string log = LastSearchLog();
  EXPECT_NE(log.find("Überprüfte Dateien: 3"), std::string::npos) << log;
  EXPECT_NE(ReadUtf16File(data_ / "log/Kelvor4.txt").find("Überprüfte Dateien: 3"),
            std::string::npos);

  // A second Run without a new preparation does nothing; the result stays.
  const RunOutcome again = session.Run(progress, prompt, run);
  EXPECT_FALSE(again.ran);
  EXPECT_EQ(session.Result().GroupCount(), 1);

  // The result can be taken over; the session then shows an empty one.
  std::unique_ptr<ResultModel> taken = session.TakeResult();
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(taken->GroupCount(), 1);
  EXPECT_FALSE(session.HasResult());
  EXPECT_EQ(session.Result().GroupCount(), 0);
  EXPECT_EQ(session.TakeResult(), nullptr);
}

TEST_F(SearchSessionTest, ALaterSearchTakesTheRowsOfTheWindow) {
  SearchSession session(Options({"-s3", tree_.string()}), nullptr);
  ASSERT_EQ(session.Prepare().verdict, SessionVerdict::Ready);
  NullProgressSink progress;
  ScriptedPrompt prompt;
  RunState run;
  ASSERT_TRUE(session.Run(progress, prompt, run).ran);
  EXPECT_EQ(session.Result().GroupCount(), 1);

  // Rows that overlap are refused; nothing runs and the last result stays.
  const std::vector<SourceFolderRow> listed = session.Rows();
  std::vector<SourceFolderRow> rows = listed;
  SourceFolderRow inner;
  inner.path = (tree_ / "a").string();
  rows.push_back(inner);
  const Preparation& refused = session.Prepare(rows);
  EXPECT_EQ(refused.verdict, SessionVerdict::Rejected);
  ASSERT_EQ(refused.messages.size(), 1u);
  EXPECT_NE(refused.messages[0].find("überschneiden sich"), std::string::npos);
  EXPECT_FALSE(session.Run(progress, prompt, run).ran);
  EXPECT_EQ(session.Result().GroupCount(), 1);

  // The window's list as it stands now: a new search over the changed tree.
  tmp_.Write("tree/d/w.txt", "other content");
  ASSERT_EQ(session.Prepare(listed).verdict, SessionVerdict::Ready);
  const RunOutcome second = session.Run(progress, prompt, run);
  EXPECT_TRUE(second.ran);
  EXPECT_EQ(session.Result().GroupCount(), 2);
  EXPECT_EQ(session.Stats().FilesTotal, 4);
  EXPECT_NE(LastSearchLog().find("Überprüfte Dateien: 4"), std::string::npos);
}

TEST_F(SearchSessionTest, BadItemsAndRejectedSetupsNeverRun) {
  const std::string tree = tree_.string(), sub = (tree_ / "a").string();
  struct Case {
    std::vector<std::string> items;
    SessionVerdict verdict;
    std::string message;  // the last message, or the first unknown item
  };
  for (const Case& c : std::vector<Case>{
           {{"-s3", "-zz", tree, "-qq"}, SessionVerdict::BadCommandLine, "-zz"},
           {{tree}, SessionVerdict::Rejected, "Es ist kein Suchkriterium ausgewählt."},
           {{"-s3"}, SessionVerdict::Rejected, "Es ist kein Quellordner ausgewählt!"},
           {{"-s2", tree, sub},
            SessionVerdict::Rejected,
            "Der Suchvorgang kann nicht durchgeführt werden:\r\n\r\n'" + tree + "' und '" + sub +
                "' überschneiden sich."},
       }) {
    fs::remove_all(data_);
    SearchSession session(Options(c.items), nullptr);
    const Preparation& p = session.Prepare();
    EXPECT_EQ(p.verdict, c.verdict) << c.message;
    if (c.verdict == SessionVerdict::BadCommandLine) {
      EXPECT_EQ(p.unknownItems, (std::vector<std::string>{"-zz", "-qq"}));
    } else {
      ASSERT_FALSE(p.messages.empty());
      EXPECT_EQ(p.messages.back(), c.message);
    }
    EXPECT_EQ(&session.Prepare(), &p);  // prepared once

    NullProgressSink progress;
    ScriptedPrompt prompt;
    RunState run;
    const RunOutcome outcome = session.Run(progress, prompt, run);
    EXPECT_FALSE(outcome.ran) << c.message;
    EXPECT_FALSE(session.HasResult());
    EXPECT_FALSE(fs::exists(data_ / "log/lastsearch.txt")) << c.message;
  }
}

TEST_F(SearchSessionTest, RunsOnAWorkerThatTheCallerPollsAndLetsRunToTheEnd) {
  test::HangGuard guard(120s, "search session on a worker");
  SearchSession session(Options({"-s3", tree_.string()}), nullptr);
  ASSERT_EQ(session.Prepare().verdict, SessionVerdict::Ready);

  ProgressSnapshot snapshot;
  ScriptedPrompt prompt;
  RunState run;
  RunOutcome outcome;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    outcome = session.Run(snapshot, prompt, run);
    done = true;
  });
  // The test thread reads only the snapshot while the worker runs.
  std::vector<std::string> lines;
  ProgressSnapshot::View view;
  while (!done) {
    view = snapshot.Poll();
    lines.insert(lines.end(), view.newLines.begin(), view.newLines.end());
    std::this_thread::sleep_for(5ms);
  }
  worker.join();
  view = snapshot.Poll();
  lines.insert(lines.end(), view.newLines.begin(), view.newLines.end());

  EXPECT_TRUE(outcome.ran);
  EXPECT_FALSE(outcome.stoppedByUser);
  EXPECT_EQ(view.Get(Label::Gruppen), "1");
  EXPECT_NE(view.Get(Label::Suchmethode).find("Inhalt"), std::string::npos)
      << view.Get(Label::Suchmethode);
  std::unique_ptr<ResultModel> result = session.TakeResult();
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->GroupCount(), 1);
  EXPECT_EQ(result->DupCount(), 2);
}

TEST_F(SearchSessionTest, AStopFromTheCallersThreadEndsTheRunOnTheWorker) {
  test::HangGuard guard(120s, "stopped search session on a worker");
  for (int i = 0; i < 50; ++i) tmp_.Write("tree/d/f" + std::to_string(i), "same content");
  SearchSession session(Options({"-s3", tree_.string()}), nullptr);
  ASSERT_EQ(session.Prepare().verdict, SessionVerdict::Ready);

  ProgressSnapshot snapshot;
  // The compare pass's step: the files are counted, none compared yet.
  GatedSink sink(snapshot, "Vergleiche Dateien und erstelle Suchergebnis");
  ScriptedPrompt prompt;
  RunState run;
  RunOutcome outcome;
  std::thread worker([&] { outcome = session.Run(sink, prompt, run); });

  bool seen = false;
  for (auto end = std::chrono::steady_clock::now() + 60s;
       !seen && std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(5ms))
    seen = snapshot.Poll().Get(Label::Step).find("Vergleiche Dateien") != std::string::npos;
  EXPECT_TRUE(seen);
  run.RequestStop(kStopUser);
  sink.Open();
  worker.join();

  EXPECT_TRUE(outcome.ran);
  EXPECT_TRUE(outcome.stoppedByUser);
  EXPECT_EQ(session.Stats().FilesTotal, 53);
  EXPECT_LT(session.Stats().FilesChecked, 53);
  ASSERT_TRUE(session.HasResult());
  EXPECT_EQ(session.Result().GroupCount(), 0);
  const std::string log = LastSearchLog();
  EXPECT_NE(log.find("Die Suche wurde von dem Anwender abgebrochen."), std::string::npos) << log;
}

// The two switches of the checksum cache act on one run and leave the
// setting alone.
TEST_F(SearchSessionTest, ChecksumCacheSwitchesOfOneRun) {
  const std::string bytes(100000, 'k');
  tmp_.Write("cached/p/a.bin", bytes);
  tmp_.Write("cached/q/b.bin", bytes);
  // Checksums of files changed within the last two seconds are not kept.
  std::this_thread::sleep_for(std::chrono::milliseconds(2300));
  auto search = [&](bool noCache, bool clearCache) {
    SessionOptions o = Options({"-s3", (tmp_.path() / "cached").string()});
    o.noChecksumCache = noCache;
    o.clearChecksumCache = clearCache;
    ScriptedPrompt prompt;
    SearchSession session(std::move(o), &prompt);
    EXPECT_EQ(session.Prepare().verdict, SessionVerdict::Ready);
    NullProgressSink progress;
    RunState run;
    EXPECT_TRUE(session.Run(progress, prompt, run).ran);
    EXPECT_EQ(session.Result().GroupCount(), 1);
    return LastSearchLog();
  };
  const std::string fromCache = "Prüfsummen aus dem Prüfsummen-Cache übernommen: ";
  const std::string made = "Prüfsummen erstellt: 2";
  std::string log = search(false, false);
  EXPECT_NE(log.find(made), std::string::npos) << log;
  log = search(false, false);
  EXPECT_NE(log.find(fromCache), std::string::npos) << log;
  log = search(true, false);
  EXPECT_EQ(log.find(fromCache), std::string::npos) << log;
  EXPECT_NE(log.find(made), std::string::npos) << log;
  log = search(false, true);
  EXPECT_NE(log.find("wurde gelöscht"), std::string::npos) << log;
  EXPECT_NE(log.find(made), std::string::npos) << log;
  // The switch did not turn the cache off for good.
  log = search(false, false);
  EXPECT_NE(log.find(fromCache), std::string::npos) << log;
}

}  // namespace
}  // namespace kelvor
