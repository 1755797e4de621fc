// Speed of the result commands on a large result: a keep-one selection rule
// (all but the newest), its undo, and a bulk removal of the marked files,
// each against the `find` walk of the same tree, taken in turn (find, rule,
// undo, find, rule, undo, ...) so that a change of the machine's load hits
// both sides alike.
//
//   kelvor_result_commands_bench TREE [ROUNDS]
//
// TREE is searched by size (-s2) once, in a scratch data folder; the result
// stays in memory for all rounds. The removal runs once, at the end, since
// it takes the rows away. Prints each time, the medians and the ratios to
// the median find.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "results/commands.h"
#include "results/undo.h"
#include "search/session.h"

namespace {

using namespace kelvor;
using Clock = std::chrono::steady_clock;

struct SilentPrompt final : Prompt {
  void Message(std::string_view, MessageIcon) override {}
  bool AskYesNo(std::string_view) override { return false; }
  std::optional<std::string> Input(std::string_view, std::string_view d) override {
    return std::string(d);
  }
};

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

double TimeFind(const std::string& tree) {
  const std::string cmd = "find " + Quote(tree) + " -printf '%s %p\\n' >/dev/null";
  const auto a = Clock::now();
  if (std::system(cmd.c_str()) != 0) std::cerr << "find failed\n";
  return Seconds(a, Clock::now());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: " << argv[0] << " TREE [ROUNDS]\n";
    return 2;
  }
  const std::string tree = argv[1];
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  char scratch[] = "/tmp/kelvor-cmd-bench-XXXXXX";
  if (!::mkdtemp(scratch)) return 2;

  SilentPrompt prompt;
  SessionOptions so;
  so.executable = ExecutablePath(argv[0]);
  so.dataDir = std::filesystem::path(scratch);
  so.items = {"-s2", tree};
  so.env = Environment::FromProcess();
  so.noChecksumCache = true;
  SearchSession session(std::move(so), &prompt);
  if (session.Prepare().verdict != SessionVerdict::Ready) {
    std::cerr << "the search was refused\n";
    return 1;
  }
  NullProgressSink progress;
  RunState run;
  const auto s0 = Clock::now();
  session.Run(progress, prompt, run);
  const double search = Seconds(s0, Clock::now());
  std::unique_ptr<ResultModel> result = session.TakeResult();
  if (!result) return 1;
  std::cout << "result: " << result->RowCount() << " rows, " << result->DupCount() << " files, "
            << result->GroupCount() << " groups (search " << search << " s)\n";

  UndoHistory undo;
  undo.Attach(*result);
  ViewState view;
  CommandEnv env{*result, &undo, view, prompt, run, nullptr, {}};
  std::vector<double> finds, rules, undos;
  for (int i = 0; i < rounds; ++i) {
    finds.push_back(TimeFind(tree));
    auto a = Clock::now();
    RunResultCommand(env, 27);  // all but the newest
    rules.push_back(Seconds(a, Clock::now()));
    a = Clock::now();
    RunResultCommand(env, kCommandUndo);
    undos.push_back(Seconds(a, Clock::now()));
    std::cout << "round " << i + 1 << ": find " << finds.back() << " s, rule " << rules.back()
              << " s, undo " << undos.back() << " s\n";
  }
  RunResultCommand(env, 27);
  const int marked = result->DupCountSelected();
  finds.push_back(TimeFind(tree));
  const auto a = Clock::now();
  RunResultCommand(env, 220);  // remove the marked files
  const double removal = Seconds(a, Clock::now());
  std::cout << "removal of " << marked << " marked files: " << removal << " s ("
            << result->DupCount() << " files left)\n";

  const double find = Median(finds);
  std::cout << "median find " << find << " s\n"
            << "rule    " << Median(rules) << " s  (" << Median(rules) / find << "x find)\n"
            << "undo    " << Median(undos) << " s  (" << Median(undos) / find << "x find)\n"
            << "removal " << removal << " s  (" << removal / find << "x find)\n";
  std::filesystem::remove_all(scratch);
  return 0;
}
