// The file manager and the export window driven as a user drives them: a
// real search of a temporary tree, files marked in the results window, the
// window opened by its command, its controls set and its start button
// clicked; then the files on disk, the log box, the results window's tree
// and the exported file are checked.

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "data/file_system.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "gui/actions.h"
#include "gui/file_manager_window.h"
#include "gui/file_windows.h"
#include "gui/result_tree_model.h"
#include "gui/save_window.h"
#include "gui/search_window.h"
#include "results/result_model.h"
#include "support/temp_tree.h"

namespace kelvor::gui {
namespace {

namespace fs = std::filesystem;

// The user's answers. Called from the worker while an action runs; the test
// reads what was asked only after the run.
class ScriptedPrompt final : public Prompt {
 public:
  void Message(std::string_view text, MessageIcon) override {
    std::lock_guard<std::mutex> lock(m);
    messages.emplace_back(text);
  }
  bool AskYesNo(std::string_view text) override {
    {
      std::lock_guard<std::mutex> lock(m);
      questions.emplace_back(text);
    }
    if (holdQuestions) {
      asked = true;
      while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return yes;
  }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
  std::mutex m;
  bool yes = true;
  bool holdQuestions = false;  // the question waits until `release`
  std::atomic<bool> asked{false}, release{false};
  std::vector<std::string> messages, questions;
};

class FileWindowsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    data_ = tmp_.path() / "kdata";
    tree_ = tmp_.Mkdir("tree");
    // The trash of this test is its own.
    setenv("XDG_DATA_HOME", (tmp_.path() / "share").c_str(), 1);
    tmp_.Write("tree/a/one.txt", "three times the same");
    tmp_.Write("tree/b/two.txt", "three times the same");
    tmp_.Write("tree/c/three.txt", "three times the same");
    tmp_.Write("tree/a/pair1.bin", "a pair of files");
    tmp_.Write("tree/b/pair2.bin", "a pair of files");
  }
  void TearDown() override { unsetenv("XDG_DATA_HOME"); }

  std::unique_ptr<SearchSession> Session(std::vector<std::string> items) const {
    SessionOptions o;
    o.executable = fs::read_symlink("/proc/self/exe");
    o.dataDir = data_;
    o.items = std::move(items);
    o.env.vars["HOME"] = (tmp_.path() / "home").string();
    o.takeInstanceLock = false;
    auto s = std::make_unique<SearchSession>(std::move(o), nullptr);
    EXPECT_EQ(s->Prepare().verdict, SessionVerdict::Ready);
    return s;
  }

  void SearchTree(SearchWindow& w) {
    w.SetPrompt(&prompt_);
    w.StartSearch(Session({"-s3", tree_.string()}));
    w.show();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !w.IsRunning(); }, 120000));
    ASSERT_NE(w.Result(), nullptr);
  }

  // Marks every file of every group but the first, as the space bar does;
  // returns the paths marked.
  static std::vector<fs::path> MarkAllButFirst(SearchWindow& w) {
    std::vector<fs::path> marked;
    ResultTreeModel* m = w.TreeModel();
    const QModelIndex root = m->index(0, 0);
    for (int g = 0; g < m->rowCount(root); ++g) {
      const QModelIndex group = m->index(g, 0, root);
      for (int f = 1; f < m->rowCount(group); ++f) {
        const QModelIndex file = m->index(f, 0, group);
        m->ToggleCheck(file);
        const RowRef r = m->RowOf(file);
        marked.push_back(fs::path(w.Result()->File_GetPathFromNode(r)));
      }
    }
    return marked;
  }

  static int FilesInTree(SearchWindow& w) {
    ResultTreeModel* m = w.TreeModel();
    const QModelIndex root = m->index(0, 0);
    int n = 0;
    for (int g = 0; g < m->rowCount(root); ++g) n += m->rowCount(m->index(g, 0, root));
    return n;
  }

  template <typename T>
  static T* Child(QWidget& w, const char* name) {
    T* c = w.findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(c, nullptr) << name;
    return c;
  }

  // Clicks a button on its indicator or text, where a check box or radio
  // button takes a click (not the empty right part of a wide one).
  static void Click(QWidget& w, const char* name) {
    auto* b = Child<QAbstractButton>(w, name);
    const QPoint at = qobject_cast<QPushButton*>(b) != nullptr
                          ? b->rect().center()
                          : QPoint(std::min(8, b->width() / 2), b->height() / 2);
    QTest::mouseClick(b, Qt::LeftButton, {}, at);
  }
  static void SetChecked(QWidget& w, const char* name, bool on) {
    if (Child<QAbstractButton>(w, name)->isChecked() != on) Click(w, name);
    EXPECT_EQ(Child<QAbstractButton>(w, name)->isChecked(), on) << name;
  }
  static void Type(QWidget& w, const char* name, const fs::path& text) {
    auto* e = Child<QLineEdit>(w, name);
    e->clear();
    QTest::keyClicks(e, QString::fromStdString(text.string()));
  }

  std::string Stored(const char* section, const char* key) const {
    return ProfileGetItemWide(section, key, "<absent>", data_ / "config4.ini");
  }

  test::TempDir tmp_;
  fs::path data_, tree_;
  ScriptedPrompt prompt_;
  const TextCatalog german_;
};

TEST_F(FileWindowsTest, NothingMarkedRefusesToOpenTheFileManager) {
  SearchWindow w;
  SearchTree(w);
  EXPECT_EQ(FileManager_Show(w, &prompt_), nullptr);
  ASSERT_EQ(prompt_.messages.size(), 1u);
  EXPECT_EQ(prompt_.messages[0], german_.Get(txt::T9655));
}

TEST_F(FileWindowsTest, DryRunOfTheTrashTouchesNothingAndLogsWhatWouldHappen) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  ASSERT_EQ(marked.size(), 3u);
  FileManagerWindow* fm = FileManager_Show(w, &prompt_);
  ASSERT_NE(fm, nullptr);
  EXPECT_EQ(fm->MissingControls(), 0);
  Click(*fm, "optAktion(3)");
  EXPECT_TRUE(Child<QAbstractButton>(*fm, "optAktion(3)")->isChecked());
  // What a trash cannot use is off; the target folder is for copy and move.
  EXPECT_FALSE(Child<QWidget>(*fm, "fraOrdner")->isEnabled());
  EXPECT_FALSE(Child<QWidget>(*fm, "txtRename")->isEnabled());
  EXPECT_TRUE(Child<QWidget>(*fm, "chkLinks(1)")->isEnabled());
  SetChecked(*fm, "chkDryRun", true);
  SetChecked(*fm, "chkLogNoActions", false);
  Click(*fm, "cmdOK");
  ASSERT_TRUE(QTest::qWaitFor([&] { return fm->Finished(); }, 60000));

  for (const fs::path& p : marked) EXPECT_TRUE(fs::exists(p)) << p;
  EXPECT_FALSE(fs::exists(tmp_.path() / "share" / "Trash" / "files" / marked[0].filename()));
  const std::string log = fm->LogText().toStdString();
  for (const fs::path& p : marked)
    EXPECT_NE(log.find(german_.Get(txt::T9679, {german_.Get(txt::T3707, {p.string()})})),
              std::string::npos)
        << log;
  // A dry run needs no safety question, and the result stays as it was.
  EXPECT_TRUE(prompt_.questions.empty());
  EXPECT_EQ(FilesInTree(w), 5);
  EXPECT_EQ(w.Result()->DupCountSelected(), 3);
  EXPECT_EQ(Child<QPushButton>(*fm, "cmdDeleteCancel")->text().toStdString(),
            german_.Get(txt::T9762));
  EXPECT_EQ(Stored("Aktionen", "Aktion"), "3");
  EXPECT_EQ(Stored("Aktionen", "DryRun"), "1");
  Click(*fm, "cmdDeleteCancel");
}

TEST_F(FileWindowsTest, AMoveTakesTheMarkedFilesToTheFolderAndOutOfTheResult) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  const fs::path target = tmp_.Mkdir("kept");
  int undoResets = 0;
  FileManagerWindow* fm = FileManager_Show(w, &prompt_, [&] { ++undoResets; });
  ASSERT_NE(fm, nullptr);
  Click(*fm, "optAktion(2)");
  EXPECT_TRUE(Child<QWidget>(*fm, "fraOrdner")->isEnabled());
  Type(*fm, "txtOrdner", target);
  SetChecked(*fm, "chkCreateSubfolder", false);
  SetChecked(*fm, "chkOrdnerstruktur", false);
  SetChecked(*fm, "chkDryRun", false);
  SetChecked(*fm, "chkCloseFileManager", false);
  Click(*fm, "cmdOK");
  ASSERT_TRUE(QTest::qWaitFor([&] { return fm->Finished(); }, 60000));

  EXPECT_EQ(fm->Report().done, 3);
  for (const fs::path& p : marked) {
    EXPECT_FALSE(fs::exists(p)) << p;
    EXPECT_TRUE(fs::exists(target / p.filename())) << p;
  }
  EXPECT_TRUE(fs::exists(tree_ / "a" / "one.txt"));
  EXPECT_TRUE(fs::exists(tree_ / "a" / "pair1.bin"));
  // The results window shows what is left: one file per group, none marked.
  EXPECT_EQ(FilesInTree(w), 2);
  EXPECT_EQ(w.Result()->DupCountSelected(), 0);
  EXPECT_EQ(undoResets, 1);
  EXPECT_EQ(Stored("Aktionen", "Ordner"), target.string());
  EXPECT_EQ(Stored("Aktionen", "CreateSubfolder"), "0");
  Click(*fm, "cmdDeleteCancel");
}

TEST_F(FileWindowsTest, TheTrashTakesTheMarkedFilesAndTheWindowClosesWhenAskedTo) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  QPointer<FileManagerWindow> fm = FileManager_Show(w, &prompt_);
  ASSERT_FALSE(fm.isNull());
  Click(*fm, "optAktion(3)");
  SetChecked(*fm, "chkDryRun", false);
  SetChecked(*fm, "chkCloseFileManager", true);
  Click(*fm, "cmdOK");
  ASSERT_TRUE(QTest::qWaitFor([&] { return fm.isNull(); }, 60000));

  const fs::path trash = tmp_.path() / "share" / "Trash";
  for (const fs::path& p : marked) {
    EXPECT_FALSE(fs::exists(p)) << p;
    EXPECT_TRUE(fs::exists(trash / "files" / p.filename())) << p;
    const std::string info =
        test::ReadBytes(trash / "info" / (p.filename().string() + ".trashinfo"));
    EXPECT_NE(info.find("Path=" + p.string()), std::string::npos) << info;
  }
  EXPECT_TRUE(fs::exists(tree_ / "a" / "one.txt"));
  EXPECT_EQ(FilesInTree(w), 2);
  // The safety question was asked once, before any file.
  EXPECT_EQ(prompt_.questions.size(), 1u);
}

TEST_F(FileWindowsTest, AFailedFileStaysMarkedAndTheErrorQuestionCanBeSilenced) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  // Every delete fails as on a read-only disk.
  FileSystemFaults faults;
  faults.Fail(FsCall::DeleteFile, "", EROFS);
  FileSystemFaults::Scope scope(&faults);
  // The window's own message boxes: the first error question is answered
  // "No" with "do not show this again" ticked; no second one may come.
  FileManagerWindow* fm = FileManager_Show(w, &prompt_);
  ASSERT_NE(fm, nullptr);
  fm->SetPrompt(nullptr);
  Click(*fm, "optAktion(0)");
  SetChecked(*fm, "chkDryRun", false);
  SetChecked(*fm, "chkSecureHint", false);
  SetChecked(*fm, "chkIfErrorDontAskToAbort", false);
  int boxes = 0;
  QTimer answer;
  QObject::connect(&answer, &QTimer::timeout, [&] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr) return;
    ++boxes;
    if (box->checkBox() != nullptr) box->checkBox()->setChecked(true);
    box->button(QMessageBox::No)->click();
  });
  answer.start(20);
  Click(*fm, "cmdOK");
  ASSERT_TRUE(QTest::qWaitFor([&] { return fm->Finished(); }, 60000));
  answer.stop();

  EXPECT_EQ(boxes, 1);
  EXPECT_EQ(fm->Report().errors, 3);
  EXPECT_FALSE(fm->Report().stopped);
  for (const fs::path& p : marked) EXPECT_TRUE(fs::exists(p)) << p;
  // The files stay in the result, still marked.
  EXPECT_EQ(FilesInTree(w), 5);
  EXPECT_EQ(w.Result()->DupCountSelected(), 3);
  EXPECT_NE(fm->LogText().toStdString().find(marked[0].string()), std::string::npos);
  Click(*fm, "cmdDeleteCancel");
}

TEST_F(FileWindowsTest, NoToTheSafetyQuestionTouchesNothingAndTheWindowStaysReady) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  FileManagerWindow* fm = FileManager_Show(w, &prompt_);
  ASSERT_NE(fm, nullptr);
  fm->SetPrompt(nullptr);  // the window's own message boxes
  Click(*fm, "optAktion(0)");
  SetChecked(*fm, "chkDryRun", false);
  SetChecked(*fm, "chkSecureHint", true);
  QString asked;
  QTimer answer;
  QObject::connect(&answer, &QTimer::timeout, [&] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr) return;
    asked = box->text();
    box->button(QMessageBox::No)->click();
  });
  answer.start(20);
  Click(*fm, "cmdOK");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !fm->IsRunning(); }, 60000));
  answer.stop();

  EXPECT_NE(asked.toStdString().find(
                german_.Get(txt::T3716, {FileActionCaption(FileAction::Delete, german_)})),
            std::string::npos)
      << asked.toStdString();
  EXPECT_TRUE(fm->Report().refused);
  EXPECT_FALSE(fm->Finished());
  for (const fs::path& p : marked) EXPECT_TRUE(fs::exists(p)) << p;
  EXPECT_EQ(FilesInTree(w), 5);
  // Nothing ran: the user may change the settings and start again.
  EXPECT_TRUE(Child<QWidget>(*fm, "cmdOK")->isEnabled());
  EXPECT_EQ(Child<QPushButton>(*fm, "cmdDeleteCancel")->text().toStdString(),
            german_.Get(txt::T9765));
  Click(*fm, "cmdDeleteCancel");
}

TEST_F(FileWindowsTest, AMoveToAFolderThatIsNotThereDoesNotStart) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  FileManagerWindow* fm = FileManager_Show(w, &prompt_);
  ASSERT_NE(fm, nullptr);
  Click(*fm, "optAktion(2)");
  const fs::path gone = tmp_.path() / "gone";
  Type(*fm, "txtOrdner", gone);
  Click(*fm, "cmdOK");
  EXPECT_FALSE(fm->IsRunning());
  ASSERT_EQ(prompt_.messages.size(), 1u);
  EXPECT_EQ(prompt_.messages[0], german_.Get(txt::T3862, {gone.string()}));
  for (const fs::path& p : marked) EXPECT_TRUE(fs::exists(p));
  Click(*fm, "cmdDeleteCancel");
}

TEST_F(FileWindowsTest, CancelStopsTheActionBeforeTheNextFile) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  FileManagerWindow* fm = FileManager_Show(w, &prompt_);
  ASSERT_NE(fm, nullptr);
  Click(*fm, "optAktion(0)");
  SetChecked(*fm, "chkDryRun", false);
  SetChecked(*fm, "chkSecureHint", true);
  // The safety question holds the worker while the user clicks cancel.
  prompt_.holdQuestions = true;
  Click(*fm, "cmdOK");
  ASSERT_TRUE(QTest::qWaitFor([&] { return prompt_.asked.load(); }, 60000));
  EXPECT_TRUE(fm->IsRunning());
  EXPECT_FALSE(Child<QWidget>(*fm, "cmdOK")->isEnabled());
  Click(*fm, "cmdDeleteCancel");
  prompt_.release = true;
  ASSERT_TRUE(QTest::qWaitFor([&] { return fm->Finished(); }, 60000));

  EXPECT_TRUE(fm->Report().stopped);
  EXPECT_EQ(fm->Report().done, 0);
  for (const fs::path& p : marked) EXPECT_TRUE(fs::exists(p)) << p;
  EXPECT_EQ(FilesInTree(w), 5);
  const std::string caption = FileActionCaption(FileAction::Delete, german_);
  EXPECT_NE(fm->LogText().toStdString().find(german_.Get(txt::T9657, {caption})),
            std::string::npos);
  EXPECT_EQ(Child<QPushButton>(*fm, "cmdDeleteCancel")->text().toStdString(),
            german_.Get(txt::T9762));
  Click(*fm, "cmdDeleteCancel");
}

TEST_F(FileWindowsTest, TheFileManagerCommandsOpenTheWindow) {
  SearchWindow w;
  SearchTree(w);
  InstallFileWindows(w);
  MarkAllButFirst(w);
  ASSERT_TRUE(w.Actions()->HasHandler(kCommandFileManager));
  ASSERT_TRUE(w.Actions()->HasHandler(kCommandFileManagerContext));
  ASSERT_TRUE(w.Actions()->HasHandler(kCommandExport));
  w.Actions()->Run(kCommandFileManager, kCommandFileManager);
  auto* fm = w.findChild<FileManagerWindow*>(QStringLiteral("frmFileManager"));
  ASSERT_NE(fm, nullptr);
  EXPECT_TRUE(fm->isVisible());
  fm->close();
  w.Actions()->Run(kCommandExport, kCommandExport);
  auto* save = w.findChild<SaveWindow*>(QStringLiteral("frmSave"));
  ASSERT_NE(save, nullptr);
  EXPECT_TRUE(save->isVisible());
  save->close();
}

TEST_F(FileWindowsTest, ExportToCsvWritesTheChosenRowsAndOpensTheFile) {
  SearchWindow w;
  SearchTree(w);
  const std::vector<fs::path> marked = MarkAllButFirst(w);
  SaveWindow* save = ShowSaveWindow(w, &prompt_);
  ASSERT_NE(save, nullptr);
  EXPECT_EQ(save->MissingControls(), 0);
  QString opened;
  save->SetOpener([&](const QString& f) { opened = f; });
  Child<QComboBox>(*save, "cboFormat")->setCurrentIndex(1);
  EXPECT_TRUE(Child<QWidget>(*save, "cboDelimiter")->isEnabled());
  Child<QComboBox>(*save, "cboDelimiter")->setCurrentIndex(1);
  Click(*save, "optSaveFileType(1)");
  SetChecked(*save, "chkOpenFile", true);
  const fs::path out = tmp_.Mkdir("out") / "list";
  Type(*save, "txtFile", out);
  Click(*save, "cmdSave");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !save->IsRunning(); }, 60000));

  ASSERT_EQ(save->Outcome().status, ExportStatus::Done) << save->Outcome().message;
  const fs::path file = tmp_.path() / "out" / "list.csv";
  ASSERT_TRUE(fs::exists(file));
  EXPECT_EQ(opened.toStdString(), file.string());
  const std::string text = test::ReadUtf16File(file);
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = text.find("\r\n", at);
    if (end == std::string::npos) end = text.size();
    if (end > at) lines.push_back(text.substr(at, end - at));
    at = end + 2;
  }
  // The heading and the marked files, each value quoted, joined by ";".
  ASSERT_EQ(lines.size(), 1 + marked.size()) << text;
  for (std::size_t i = 1; i < lines.size(); ++i)
    EXPECT_NE(lines[i].find("\";\"1\";\""), std::string::npos) << lines[i];
  for (const fs::path& p : marked)
    EXPECT_NE(text.find(p.filename().string()), std::string::npos) << p;
  EXPECT_EQ(text.find("one.txt"), std::string::npos);
  // The next export offers the same folder and name.
  EXPECT_EQ(Stored("ExportList", "LastSaveFileName"), "list");
  EXPECT_EQ(Stored("ExportList", "FileFormat"), "CSV");
  EXPECT_EQ(Stored("ExportList", "SaveFileType"), "1");
  save->close();
  SaveWindow* again = ShowSaveWindow(w, &prompt_);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(Child<QLineEdit>(*again, "txtFile")->text().toStdString(), file.string());
  again->close();
}

TEST_F(FileWindowsTest, ExportToXlsxWritesASpreadsheet) {
  SearchWindow w;
  SearchTree(w);
  SaveWindow* save = ShowSaveWindow(w, &prompt_);
  ASSERT_NE(save, nullptr);
  Child<QComboBox>(*save, "cboFormat")->setCurrentIndex(2);
  EXPECT_FALSE(Child<QWidget>(*save, "cboDelimiter")->isEnabled());
  Click(*save, "optSaveFileType(0)");
  Type(*save, "txtFile", tmp_.Mkdir("out") / "all.xlsx");
  Click(*save, "cmdSave");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !save->IsRunning(); }, 60000));
  ASSERT_EQ(save->Outcome().status, ExportStatus::Done) << save->Outcome().message;
  EXPECT_EQ(save->Outcome().fileRows, 5);
  // A spreadsheet is a zip container.
  EXPECT_EQ(test::ReadBytes(tmp_.path() / "out" / "all.xlsx").substr(0, 2), "PK");
  EXPECT_EQ(Child<QPushButton>(*save, "cmdCancel")->text().toStdString(), german_.Get(txt::T9762));
  save->close();
}

TEST_F(FileWindowsTest, AFailedExportLeavesTheChosenFileAsItWas) {
  SearchWindow w;
  SearchTree(w);
  const fs::path file = tmp_.Write("out/list.csv", "what was there before");
  FileSystemFaults faults;
  faults.Fail(FsCall::WriteFile, "", ENOSPC);
  FileSystemFaults::Scope scope(&faults);
  SaveWindow* save = ShowSaveWindow(w, &prompt_);
  ASSERT_NE(save, nullptr);
  Child<QComboBox>(*save, "cboFormat")->setCurrentIndex(1);
  Type(*save, "txtFile", file);
  Click(*save, "cmdSave");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !save->IsRunning(); }, 60000));
  EXPECT_EQ(save->Outcome().status, ExportStatus::Failed);
  ASSERT_EQ(prompt_.messages.size(), 1u);
  EXPECT_NE(prompt_.messages[0].find(file.string()), std::string::npos) << prompt_.messages[0];
  EXPECT_EQ(test::ReadBytes(file), "what was there before");
  int files = 0;
  for ([[maybe_unused]] const auto& e : fs::directory_iterator(file.parent_path())) ++files;
  EXPECT_EQ(files, 1);
  save->close();
}

TEST_F(FileWindowsTest, ExportOfMarkedFilesWithNoneMarkedIsRefused) {
  SearchWindow w;
  SearchTree(w);
  SaveWindow* save = ShowSaveWindow(w, &prompt_);
  ASSERT_NE(save, nullptr);
  Click(*save, "optSaveFileType(1)");
  const fs::path out = tmp_.Mkdir("out") / "list.txt";
  Type(*save, "txtFile", out);
  Child<QComboBox>(*save, "cboFormat")->setCurrentIndex(0);
  Click(*save, "cmdSave");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !save->IsRunning(); }, 60000));
  EXPECT_EQ(save->Outcome().status, ExportStatus::Refused);
  ASSERT_EQ(prompt_.messages.size(), 1u);
  EXPECT_EQ(prompt_.messages[0], german_.Get(txt::T5292));
  EXPECT_FALSE(fs::exists(out));
  save->close();
}

TEST(FileWindowsStop, AStoppedExportLeavesTheChosenFileAsItWas) {
  test::TempDir tmp;
  // Enough rows that the export is still writing when the stop comes.
  for (int i = 0; i < 400; ++i) {
    const std::string content = "pair " + std::to_string(i);
    tmp.Write("tree/a/f" + std::to_string(i) + ".txt", content);
    tmp.Write("tree/b/f" + std::to_string(i) + ".txt", content);
  }
  SessionOptions o;
  o.executable = fs::read_symlink("/proc/self/exe");
  o.dataDir = tmp.path() / "kdata";
  o.items = {"-s3", (tmp.path() / "tree").string()};
  o.env.vars["HOME"] = (tmp.path() / "home").string();
  o.takeInstanceLock = false;
  auto session = std::make_unique<SearchSession>(std::move(o), nullptr);
  ASSERT_EQ(session->Prepare().verdict, SessionVerdict::Ready);
  SearchWindow w;
  w.StartSearch(std::move(session));
  ASSERT_TRUE(QTest::qWaitFor([&] { return !w.IsRunning(); }, 120000));
  ASSERT_NE(w.Result(), nullptr);

  const fs::path file = tmp.Write("out/list.csv", "what was there before");
  ScriptedPrompt prompt;
  SaveWindow* save = ShowSaveWindow(w, &prompt);
  ASSERT_NE(save, nullptr);
  save->findChild<QComboBox*>(QStringLiteral("cboFormat"))->setCurrentIndex(1);
  save->findChild<QLineEdit*>(QStringLiteral("txtFile"))
      ->setText(QString::fromStdString(file.string()));
  ASSERT_TRUE(save->Start());
  save->CancelOrClose();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !save->IsRunning(); }, 60000));
  EXPECT_EQ(save->Outcome().status, ExportStatus::Stopped);
  EXPECT_EQ(test::ReadBytes(file), "what was there before");
  int files = 0;
  for ([[maybe_unused]] const auto& e : fs::directory_iterator(file.parent_path())) ++files;
  EXPECT_EQ(files, 1);
  EXPECT_TRUE(prompt.messages.empty());
  save->close();
}

}  // namespace
}  // namespace kelvor::gui
