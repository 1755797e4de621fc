// The results window with a big result: a search run by the window on its
// worker, the result taken over and shown, and what the tree's adapter and
// view cost per row. Not run by the tests; see bench/README.md.
//
//   kelvor_gui_result_bench TREE [CRITERIA]      (CRITERIA default -s2)
//
// Prints the whole time from the session's start to the first painted
// result, the search's own time, and the memory per row of the adapter alone
// and of a view with every group open.

#include <malloc.h>
#include <unistd.h>

#include <QApplication>
#include <QEventLoop>
#include <QHeaderView>
#include <QTimer>
#include <QTreeView>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "gui/result_tree_model.h"
#include "gui/search_window.h"
#include "results/result_model.h"
#include "search/session.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class QuietPrompt final : public kelvor::Prompt {
 public:
  void Message(std::string_view, kelvor::MessageIcon) override {}
  bool AskYesNo(std::string_view) override { return true; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
};

double Since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

std::size_t HeapInUse() {
  // Small blocks from the heap and big ones mapped of their own.
  const struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s TREE [CRITERIA]\n", argv[0]);
    return 1;
  }
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  const Clock::time_point start = Clock::now();
  QApplication app(argc, argv);
  char tmpl[] = "/tmp/kelvor-gui-bench-XXXXXX";
  if (::mkdtemp(tmpl) == nullptr) return 1;
  const fs::path data = tmpl;

  kelvor::SessionOptions o;
  o.executable = fs::read_symlink("/proc/self/exe");
  o.dataDir = data;
  o.items = {argc > 2 ? argv[2] : "-s2", argv[1]};
  o.env = kelvor::Environment::FromProcess();
  o.takeInstanceLock = false;
  o.noChecksumCache = true;
  auto session = std::make_unique<kelvor::SearchSession>(std::move(o), nullptr);
  if (session->Prepare().verdict != kelvor::SessionVerdict::Ready) {
    std::fprintf(stderr, "the search was refused\n");
    return 1;
  }
  kelvor::SearchSession* s = session.get();
  QuietPrompt prompt;
  kelvor::gui::SearchWindow w;
  w.SetPrompt(&prompt);
  w.resize(1200, 800);
  w.show();
  // The interface thread's longest stall: a timer that should tick every
  // 10 ms notes the longest gap between two ticks, during the run and at
  // the hand-over of the result.
  double longestGap = 0;
  Clock::time_point lastTick = Clock::now();
  QTimer ticker;
  ticker.setInterval(10);
  QObject::connect(&ticker, &QTimer::timeout, [&] {
    longestGap = std::max(longestGap, Since(lastTick));
    lastTick = Clock::now();
  });
  ticker.start();
  // The event loop sleeps until the window says the result stands.
  QEventLoop loop;
  QObject::connect(&w, &kelvor::gui::SearchWindow::searchFinished, &loop, &QEventLoop::quit);
  w.StartSearch(std::move(session));
  if (w.IsRunning()) loop.exec();
  w.Tree()->viewport()->repaint();
  QCoreApplication::processEvents();
  const double shown = Since(start);
  ticker.stop();
  const kelvor::ResultModel* result = w.Result();
  const int rows = result != nullptr ? result->RowCount() : 0;
  std::printf(
      "rows %d groups %d search %.3f s shown %.3f s; longest stall of the interface thread "
      "(the hand-over of the result included) %.3f s\n",
      rows, result != nullptr ? result->GroupCount() : 0, s->ElapsedSeconds(), shown, longestGap);

  if (getenv("KELVOR_BENCH_MEMORY") != nullptr && result != nullptr) {
    // A second adapter and view over the same result, every group open.
    const std::size_t m0 = HeapInUse();
    auto* adapter = new kelvor::gui::ResultTreeModel(s->Texts());
    adapter->SetResult(w.Result());
    const std::size_t m1 = HeapInUse();
    QTreeView view;
    view.setUniformRowHeights(true);
    view.setModel(adapter);
    view.resize(1200, 800);
    view.show();
    const Clock::time_point t = Clock::now();
    view.expandAll();
    view.viewport()->repaint();
    QCoreApplication::processEvents();
    const double expand = Since(t);
    const std::size_t m2 = HeapInUse();
    std::printf(
        "adapter %.1f bytes/row; view with all groups open %.1f bytes/row; expand all %.3f s\n",
        static_cast<double>(m1 - m0) / rows, static_cast<double>(m2 - m1) / rows, expand);
    const Clock::time_point s2 = Clock::now();
    view.scrollToBottom();
    view.viewport()->repaint();
    std::printf("scroll to the end %.3f s\n", Since(s2));
    view.setModel(nullptr);
    delete adapter;
  }
  w.SetResultSaved(true);
  w.close();
  std::error_code ec;
  fs::remove_all(data, ec);
  return 0;
}
