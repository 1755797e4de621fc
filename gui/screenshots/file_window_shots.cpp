#include "gui/screenshots/file_window_shots.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPixmap>
#include <QTemporaryDir>
#include <QThread>
#include <filesystem>
#include <functional>
#include <memory>

#include "gui/file_manager_window.h"
#include "gui/file_windows.h"
#include "gui/result_tree_model.h"
#include "gui/save_window.h"
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

void Check(QWidget& w, const char* name, bool on) {
  if (auto* b = w.findChild<QAbstractButton*>(QString::fromLatin1(name))) b->setChecked(on);
}

bool Save(QWidget& w, const QString& file, QStringList& written, QString* error) {
  WaitFor([] { return false; }, 300);
  const QPixmap p = w.grab();
  if (p.isNull() || !p.save(file, "PNG")) {
    if (error != nullptr) *error += QStringLiteral("could not write %1\n").arg(file);
    return false;
  }
  written << file;
  return true;
}

}  // namespace

QStringList TakeFileWindowShots(const QString& dir, const QString& sampleTree, QString* error) {
  QStringList written;
  QDir().mkpath(dir);
  QTemporaryDir tmp;
  if (!tmp.isValid()) {
    if (error != nullptr) *error += QStringLiteral("no temporary folder\n");
    return written;
  }
  const fs::path base = tmp.path().toStdString();
  // The windows work on a copy: the sample tree stays as it is.
  const fs::path tree = base / "sample";
  std::error_code ec;
  fs::copy(sampleTree.toStdString(), tree, fs::copy_options::recursive, ec);
  if (ec) {
    if (error != nullptr) *error += QStringLiteral("could not copy the sample tree\n");
    return written;
  }
  SessionOptions o;
  o.executable = fs::read_symlink("/proc/self/exe");
  o.dataDir = base / "data";
  o.items = {"-s3", tree.string()};
  o.env = Environment::FromProcess();
  o.takeInstanceLock = false;
  o.noChecksumCache = true;
  auto session = std::make_unique<SearchSession>(std::move(o), nullptr);
  if (session->Prepare().verdict != SessionVerdict::Ready) {
    if (error != nullptr) *error += QStringLiteral("the sample search was refused\n");
    return written;
  }
  YesPrompt prompt;
  SearchWindow w;
  w.SetPrompt(&prompt);
  w.resize(1100, 560);
  w.show();
  w.StartSearch(std::move(session));
  WaitFor([&] { return !w.IsRunning(); }, 120000);
  if (w.Result() == nullptr) return written;
  // All files but the first of each group marked.
  ResultTreeModel* m = w.TreeModel();
  const QModelIndex root = m->index(0, 0);
  for (int g = 0; g < m->rowCount(root); ++g) {
    const QModelIndex group = m->index(g, 0, root);
    for (int f = 1; f < m->rowCount(group); ++f) m->ToggleCheck(m->index(f, 0, group));
  }

  if (FileManagerWindow* fm = FileManager_Show(w, &prompt)) {
    Check(*fm, "optAktion(3)", true);
    Check(*fm, "chkDryRun", true);
    Check(*fm, "chkLogNoActions", false);
    Check(*fm, "chkCloseFileManager", false);
    Save(*fm, dir + QStringLiteral("/file-manager.png"), written, error);
    fm->Start();
    WaitFor([&] { return fm->Finished(); }, 120000);
    Save(*fm, dir + QStringLiteral("/file-manager-dry-run.png"), written, error);
    fm->close();
  } else if (error != nullptr) {
    *error += QStringLiteral("the file manager did not open\n");
  }

  if (SaveWindow* save = ShowSaveWindow(w, &prompt)) {
    save->findChild<QComboBox*>(QStringLiteral("cboFormat"))->setCurrentIndex(1);
    save->findChild<QComboBox*>(QStringLiteral("cboDelimiter"))->setCurrentIndex(1);
    Check(*save, "optSaveFileType(1)", true);
    save->findChild<QLineEdit*>(QStringLiteral("txtFile"))
        ->setText(QString::fromStdString((base / "export" / "duplicates.csv").string()));
    Save(*save, dir + QStringLiteral("/export.png"), written, error);
    save->close();
  }
  w.SetResultSaved(true);
  return written;
}

}  // namespace kelvor::gui
