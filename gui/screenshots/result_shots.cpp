#include "gui/screenshots/result_shots.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QTemporaryDir>
#include <QThread>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "gui/actions.h"
#include "gui/result_tree_model.h"
#include "gui/search_window.h"
#include "results/result_model.h"
#include "search/session.h"

namespace kelvor::gui {

namespace {

namespace fs = std::filesystem;

class YesPrompt final : public Prompt {
 public:
  void Message(std::string_view, MessageIcon) override {}
  bool AskYesNo(std::string_view) override { return true; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
};

// Runs the event loop until `done` or `ms` have passed.
bool WaitFor(const std::function<bool()>& done, int ms) {
  QElapsedTimer t;
  t.start();
  while (!done()) {
    if (t.elapsed() > ms) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    QThread::msleep(10);
  }
  return true;
}

void Settle(int ms) {
  WaitFor([] { return false; }, ms);
}

std::unique_ptr<SearchSession> NewSession(const fs::path& data, std::vector<std::string> items) {
  SessionOptions o;
  o.executable = fs::read_symlink("/proc/self/exe");
  o.dataDir = data;
  o.items = std::move(items);
  o.env = Environment::FromProcess();
  o.takeInstanceLock = false;
  o.noChecksumCache = true;
  auto s = std::make_unique<SearchSession>(std::move(o), nullptr);
  if (s->Prepare().verdict != SessionVerdict::Ready) return nullptr;
  return s;
}

// A tree big enough that a content search is still at work when the picture
// is taken: folders of photos, music and documents, many of them copies.
void MakeBusyTree(const fs::path& root, int perFolder) {
  const char* kinds[] = {"photos", "music", "documents", "backup/photos", "backup/music"};
  const char* exts[] = {".jpg", ".mp3", ".odt", ".jpg", ".mp3"};
  for (int k = 0; k < 5; ++k) {
    for (int folder = 0; folder < 20; ++folder) {
      const fs::path dir = root / kinds[k] / ("2024-" + std::to_string(folder + 1));
      fs::create_directories(dir);
      for (int i = 0; i < perFolder; ++i) {
        std::ofstream f(dir / ("file_" + std::to_string(i) + exts[k]), std::ios::binary);
        f << "content " << (i * 7 + folder) % 900
          << std::string(static_cast<std::size_t>(i % 50) * 400, 'x');
      }
    }
  }
}

bool Save(const QPixmap& p, const QString& file, QStringList& written, QString* error) {
  if (p.isNull() || !p.save(file, "PNG")) {
    if (error != nullptr) *error += QStringLiteral("could not write %1\n").arg(file);
    return false;
  }
  written << file;
  return true;
}

}  // namespace

QStringList TakeResultShots(const QString& dir, const QString& sampleTree, QString* error) {
  QStringList written;
  QDir().mkpath(dir);
  QTemporaryDir tmp;
  if (!tmp.isValid()) {
    if (error != nullptr) *error = QStringLiteral("no temporary folder");
    return written;
  }
  const fs::path base = tmp.path().toStdString();
  YesPrompt prompt;

  // 1. A search standing in its pause, in the middle of its compare pass.
  // The pause comes with the pass's first refresh of the counters, once a
  // second: a machine that compares the tree faster than that gets a
  // bigger tree.
  bool held = false;
  for (int attempt = 0; attempt < 4 && !held; ++attempt) {
    const fs::path busy = base / ("pictures-and-music-" + std::to_string(attempt));
    MakeBusyTree(busy, 150 << attempt);
    auto session = NewSession(base / "data1", {"-s3", busy.string()});
    if (!session) break;
    SearchWindow w;
    w.SetPrompt(&prompt);
    w.resize(1100, 720);
    w.show();
    w.PauseInStep(QStringLiteral("Vergleiche Dateien"));
    w.StartSearch(std::move(session));
    auto* pause = w.findChild<QPushButton*>(QStringLiteral("cmdStop_1"));
    WaitFor([&] { return !w.IsRunning() || pause->text() != QStringLiteral("Anhalten"); }, 120000);
    held = w.IsRunning();
    if (held) {
      Settle(1200);  // one more refresh of the panel
      Save(w.grab(), dir + QStringLiteral("/results-running.png"), written, error);
      w.CancelSearch();
      WaitFor([&] { return !w.IsRunning(); }, 120000);
    }
    w.SetResultSaved(true);
    std::error_code ec;
    fs::remove_all(busy, ec);
  }
  if (!held && error != nullptr) *error += QStringLiteral("no search could be held in its pause\n");

  // 2. The result of the sample tree with marks, and 3. its column menu.
  {
    auto session = NewSession(base / "data2", {"-s3", sampleTree.toStdString()});
    if (!session) {
      if (error != nullptr) *error += QStringLiteral("the sample search was refused\n");
      return written;
    }
    SearchWindow w;
    w.SetPrompt(&prompt);
    w.resize(1100, 560);
    w.show();
    w.StartSearch(std::move(session));
    WaitFor([&] { return !w.IsRunning(); }, 120000);
    if (w.Result() == nullptr) return written;
    w.Actions()->Action(-3)->trigger();  // all groups open
    w.Actions()->Action(62)->trigger();  // the change date
    ResultTreeModel* m = w.TreeModel();
    const QModelIndex root = m->index(0, 0);
    // Mark the second file of each group with the space bar, and the whole
    // of the last group by its box.
    const int groups = m->rowCount(root);
    for (int g = 0; g < groups; ++g) {
      const QModelIndex group = m->index(g, 0, root);
      if (m->rowCount(group) > 1) {
        w.Tree()->setCurrentIndex(m->index(1, 0, group));
        w.Report_SelectDeselectFile();
      }
    }
    if (groups > 0) m->ToggleCheck(m->index(groups - 1, 0, root));
    w.Tree()->setCurrentIndex(m->index(0, 0, m->index(0, 0, root)));
    for (int id = 1; id <= 17; ++id)
      if (w.IsColumnShown(id)) w.Tree()->resizeColumnToContents(id);
    Settle(300);
    Save(w.grab(), dir + QStringLiteral("/results-marks.png"), written, error);

    // The column menu, opened from the header; a pop-up is a window of its
    // own, so it is painted onto the picture where it stands.
    auto* columns = w.findChild<QMenu*>(QStringLiteral("mnuColumns"));
    if (columns != nullptr) {
      QHeaderView* h = w.Tree()->header();
      const QPoint at = h->mapToGlobal(QPoint(h->sectionViewportPosition(2) + 40, h->height() / 2));
      columns->popup(at);
      Settle(300);
      QPixmap shot = w.grab();
      QPainter p(&shot);
      p.drawPixmap(w.mapFromGlobal(columns->mapToGlobal(QPoint(0, 0))), columns->grab());
      p.end();
      columns->hide();
      Save(shot, dir + QStringLiteral("/results-column-menu.png"), written, error);
    }
    w.SetResultSaved(true);
  }
  return written;
}

}  // namespace kelvor::gui
