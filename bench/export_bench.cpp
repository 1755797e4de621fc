// Speed of the export on a large result (not run by the tests).
//
//   kelvor_export_bench TREE WORK [PAIRS] [csv|xlsx]
//
// Searches TREE by size (-s2) once, then times, pair by pair, a CSV export of
// the whole result against `find TREE` (standard output to /dev/null), and
// the same for an XLSX export (at most three pairs). Before each export the
// last one is deleted and the disks synced, outside the time. Prints each time, the median of each
// and the median of the ratios export/find. The exports stay in WORK (export.csv, export.xlsx) for
// bench/export.sh to read back.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/startup.h"
#include "results/export.h"
#include "results/result_columns.h"
#include "search/session.h"

extern char** environ;

namespace {

using namespace kelvor;
using Clock = std::chrono::steady_clock;

class QuietPrompt final : public Prompt {
 public:
  void Message(std::string_view text, MessageIcon) override {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  }
  bool AskYesNo(std::string_view) override { return false; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
};

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// User and system seconds of this process so far; system seconds in *sys.
double CpuSeconds(double* sys) {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  *sys = ru.ru_stime.tv_sec + ru.ru_stime.tv_usec / 1e6;
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec +
         (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

// Wall seconds of `find TREE`; its user and system seconds in *cpu.
double TimeFind(const std::string& tree, double* cpu) {
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv = {const_cast<char*>("find"), const_cast<char*>(tree.c_str()), nullptr};
  const auto t0 = Clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, "find", &fa, nullptr, argv.data(), environ) != 0) return -1;
  int st = 0;
  rusage ru{};
  wait4(pid, &st, 0, &ru);
  *cpu =
      ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
  const auto t1 = Clock::now();
  posix_spawn_file_actions_destroy(&fa);
  return Seconds(t0, t1);
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  if (v.empty()) return 0;
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s TREE WORK [PAIRS] [csv|xlsx]\n", argv[0]);
    return 2;
  }
  const std::string tree = argv[1];
  const std::filesystem::path work = argv[2];
  const int pairs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 5;
  const std::string only = argc > 4 ? argv[4] : "";
  std::filesystem::create_directories(work);

  QuietPrompt prompt;
  SessionOptions so;
  so.executable = ExecutablePath(argv[0]);
  so.dataDir = work / "kdata";
  so.items = {"-s2", tree};
  so.env = Environment::FromProcess();
  SearchSession session(std::move(so), &prompt);
  if (session.Prepare().verdict != SessionVerdict::Ready) return 1;
  NullProgressSink progress;
  RunState run;
  const auto s0 = Clock::now();
  session.Run(progress, prompt, run);
  const auto s1 = Clock::now();
  const ResultModel& m = session.Result();
  std::printf("search -s2: %.2f s, %d groups, %d file rows\n", Seconds(s0, s1), m.GroupCount(),
              m.DupCount());

  const std::vector<ResultColumn> columns =
      MakeResultColumns(session.Settings(), m.Options(), ColumnContextOfResult(m), session.Texts());
  for (ExportFormat format : {ExportFormat::Csv, ExportFormat::Xlsx}) {
    const bool csv = format == ExportFormat::Csv;
    if ((only == "csv" && !csv) || (only == "xlsx" && csv)) continue;
    const std::filesystem::path target = work / (csv ? "export.csv" : "export.xlsx");
    ExportOptions o;
    o.format = format;
    std::vector<double> exp, fnd, ratio, cpuRatio;
    // The sheet takes many times as long: three pairs say enough.
    const int n = csv ? pairs : std::min(pairs, 3);
    for (int i = 0; i < n; ++i) {
      RunState r;
      ExportContext ctx{session.Texts(), r, nullptr, {}};
      // A new file each time: dropping the last one's pages is not the
      // export's work.
      std::filesystem::remove(target);
      ::sync();
      double sys0 = 0, sys1 = 0;
      const double c0 = CpuSeconds(&sys0);
      const auto t0 = Clock::now();
      const ExportOutcome out = SAVE(m, columns, target, o, ctx);
      const auto t1 = Clock::now();
      const double cpu = CpuSeconds(&sys1) - c0;
      if (out.status != ExportStatus::Done) {
        std::fprintf(stderr, "%s\n", out.message.c_str());
        return 1;
      }
      const double e = Seconds(t0, t1);
      double findCpu = 0;
      const double f = TimeFind(tree, &findCpu);
      exp.push_back(e);
      fnd.push_back(f);
      ratio.push_back(e / f);
      cpuRatio.push_back(cpu / findCpu);
      std::printf(
          "%s pair %d: export %.2f s (cpu %.2f s, system %.2f s; %lld rows, %lld bytes), find "
          "%.2f s (cpu %.2f s), ratio %.2f (cpu %.2f)\n",
          csv ? "CSV" : "XLSX", i + 1, e, cpu, sys1 - sys0, static_cast<long long>(out.fileRows),
          static_cast<long long>(std::filesystem::file_size(target)), f, findCpu, e / f,
          cpu / findCpu);
      std::fflush(stdout);
    }
    std::printf(
        "%s: median export %.2f s, median find %.2f s, median ratio %.2f (cpu ratio %.2f)\n",
        csv ? "CSV" : "XLSX", Median(exp), Median(fnd), Median(ratio), Median(cpuRatio));
  }
  return 0;
}
