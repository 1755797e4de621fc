// Saving and loading a large result (not run by the tests; see
// bench/results_bench.sh).
//
//   kelvor_results_bench search DATA NAME ITEMS...
//       runs the search of ITEMS (Kelvor's command-line items) with DATA as
//       the data folder, then saves the result as NAME; prints the memory
//       right after the search, the save time and the sizes
//   kelvor_results_bench load DATA NAME
//       loads NAME; prints the load time and the memory afterwards
//   kelvor_results_bench save DATA NAME NEWNAME
//       loads NAME, then saves it as NEWNAME; prints the save time
//
// Every figure is one line "key value". Memory: the resident set and the
// heap bytes in use (mallinfo2), read from the process itself.

#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "search/session.h"

namespace {

using namespace kelvor;
using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

void Memory(const std::string& what) {
  long pages = 0, resident = 0;
  std::ifstream statm("/proc/self/statm");
  statm >> pages >> resident;
  const double rssMb =
      static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1048576.0;
  const struct mallinfo2 mi = ::mallinfo2();
  // The peak so far (VmHWM), in kB.
  long peakKb = 0;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmHWM:", 0) == 0) peakKb = std::stol(line.substr(6));
  std::printf("%s_rss_mb %.1f\n%s_heap_mb %.2f\n%s_peak_mb %.1f\n", what.c_str(), rssMb,
              what.c_str(), static_cast<double>(mi.uordblks + mi.hblkhd) / 1048576.0, what.c_str(),
              static_cast<double>(peakKb) / 1024.0);
}

// The size a CSV export of the result would have: UTF-16 with byte-order
// mark, every value quoted, columns group, folder, name, size, change date.
long long CsvEstimate(const ResultModel& m) {
  long long chars = 0;
  m.ForEachGroup([&](RowRef g) {
    const std::size_t title = m.Caption(g).size();
    m.ForEachFile(g, [&](RowRef f) {
      chars += static_cast<long long>(title + m.FileFolder(f).size() + m.FileName(f).size() +
                                      std::to_string(m.FileSize(f)).size() + 19);
      chars += 5 * 2 + 4 + 2;  // quotes, delimiters, line end
      return true;
    });
    return true;
  });
  return 2 + 2 * chars;
}

class Quiet final : public Prompt {
 public:
  void Message(std::string_view text, MessageIcon) override { std::cerr << text << '\n'; }
  bool AskYesNo(std::string_view) override { return true; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
};

SessionOptions Options(const char* argv0, const std::string& data, std::vector<std::string> items) {
  SessionOptions so;
  so.executable = ExecutablePath(argv0);
  so.dataDir = data;
  so.items = std::move(items);
  so.env = Environment::FromProcess();
  so.takeInstanceLock = false;
  return so;
}

int Load(SearchSession& session, const std::string& name) {
  NullProgressSink progress;
  Quiet prompt;
  RunState run;
  const auto start = Clock::now();
  const std::string error = session.LoadResult(name, progress, prompt, run);
  const double s = Seconds(start);
  if (!error.empty()) {
    std::cerr << error << '\n';
    return 1;
  }
  std::printf("load_s %.3f\nrows %d\n", s, session.Result().DupCount());
  Memory("after_load");
  return 0;
}

int Save(SearchSession& session, const std::string& name) {
  NullProgressSink progress;
  Quiet prompt;
  RunState run;
  const auto start = Clock::now();
  const SaveOutcome out = session.SaveResult(name, false, false, progress, prompt, run);
  const double s = Seconds(start);
  if (out.verdict != SaveVerdict::Saved) {
    std::cerr << "not saved: " << out.message << '\n';
    return 1;
  }
  const auto file = session.Paths().dataSubFolder / (name + ".ksr4a");
  std::printf("save_s %.3f\nksr4a_bytes %lld\ncsv_estimate_bytes %lld\n", s,
              static_cast<long long>(std::filesystem::file_size(file)),
              CsvEstimate(session.Result()));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: kelvor_results_bench search DATA NAME ITEMS... | load DATA NAME | save "
                 "DATA NAME NEWNAME\n";
    return 2;
  }
  const std::string mode = argv[1], data = argv[2], name = argv[3];
  Quiet prompt;
  if (mode == "search") {
    SearchSession session(Options(argv[0], data, std::vector<std::string>(argv + 4, argv + argc)),
                          &prompt);
    if (session.Prepare().verdict != SessionVerdict::Ready) return 1;
    NullProgressSink progress;
    RunState run;
    const auto start = Clock::now();
    session.Run(progress, prompt, run);
    std::printf("search_s %.3f\nrows %d\n", Seconds(start), session.Result().DupCount());
    ::malloc_trim(0);
    Memory("after_search");
    return Save(session, name);
  }
  SearchSession session(Options(argv[0], data, {}), &prompt);
  if (mode == "load") return Load(session, name);
  if (mode == "save" && argc >= 5) {
    if (Load(session, name) != 0) return 1;
    return Save(session, argv[4]);
  }
  return 2;
}
