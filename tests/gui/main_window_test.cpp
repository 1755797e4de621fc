// The setup window driven as a user would: keys and clicks on the real
// window over a real data folder, the settings file read back.

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>
#include <atomic>
#include <functional>
#include <thread>

#include "frame/settings_store.h"
#include "frame/texts.h"
#include "gui/main_window.h"
#include "gui/qt_prompt.h"
#include "gui/search_window.h"
#include "support/temp_tree.h"

namespace kelvor::gui {
namespace {

SessionOptions Options(const test::TempDir& data, std::vector<std::string> items = {}) {
  SessionOptions so;
  so.executable = ExecutablePath("kelvor");
  so.dataDir = data.path() / "data";
  so.env = Environment::FromProcess();
  so.items = std::move(items);
  return so;
}

template <class W = QWidget>
W* Find(QWidget& window, const char* name) {
  W* w = window.findChild<W*>(QString::fromUtf8(name));
  EXPECT_NE(w, nullptr) << name;
  return w;
}

// Space on a check box or on a checkable group's title, as from the keyboard.
void Toggle(QWidget& window, const char* name) {
  QTest::keyClick(Find(window, name), Qt::Key_Space);
}

bool IsOn(QWidget& window, const char* name) {
  QWidget* w = Find(window, name);
  if (auto* g = qobject_cast<QGroupBox*>(w)) return g->isChecked();
  return qobject_cast<QAbstractButton*>(w)->isChecked();
}

// Types `text` into a field and leaves it with Return.
void Type(QWidget& window, const char* name, const QString& text) {
  auto* e = Find<QLineEdit>(window, name);
  e->selectAll();
  QTest::keyClick(e, Qt::Key_Backspace);
  QTest::keyClicks(e, text);
  QTest::keyClick(e, Qt::Key_Return);
}

QString Text(QWidget& window, const char* name) {
  return Find<QLineEdit>(window, name)->text();
}

// Chooses entry `index` of a combo box with the arrow keys.
void Choose(QWidget& window, const char* name, int index) {
  auto* c = Find<QComboBox>(window, name);
  QTest::keyClick(c, Qt::Key_Home);
  for (int i = 0; i < index; ++i) QTest::keyClick(c, Qt::Key_Down);
  ASSERT_EQ(c->currentIndex(), index) << name;
}

// Runs `act`, which opens a modal message box, and returns the box's text;
// the box is closed with its default button (Yes for a question).
QString ModalText(const std::function<void()>& act) {
  QString seen;
  QTimer poll;
  QObject::connect(&poll, &QTimer::timeout, [&] {
    if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
      seen = box->text();
      if (QPushButton* button = box->defaultButton())
        button->click();
      else
        box->accept();
    }
  });
  poll.start(20);
  act();
  return seen;
}

std::string Stored(const test::TempDir& data, const char* section, const char* key) {
  return ProfileGetItemWide(section, key, "<absent>", data.path() / "data" / "config4.ini");
}

TEST(SetupWindow, ItsStateIsTheSettingsFileReadAgainOnTheNextStart) {
  test::TempDir data;
  const std::filesystem::path folder = data.Mkdir("photos");
  {
    MainWindow w(Options(data));
    EXPECT_EQ(SettingsBinder(&w, {}).MissingControls(), 0);
    w.AddSourceFolder(QString::fromStdString(folder.string()));
    auto* rows = Find<QTreeWidget>(w, "lvwSource");
    ASSERT_EQ(rows->topLevelItemCount(), 1);
    rows->topLevelItem(0)->setCheckState(2, Qt::Checked);  // protected
    Toggle(w, "chkSuchKriterien(3)");
    Toggle(w, "chkSuchKriterien(2)");
    Choose(w, "cboContentCompare", 3);
    Toggle(w, "chkSuchKriterien(0)");
    Toggle(w, "chkIgnoreChars");
    Type(w, "txtIgnoreChars", QStringLiteral(" _"));
    QTest::mouseClick(Find(w, "optSourceFolderCompareMethod(1)"), Qt::LeftButton);
    Toggle(w, "chkDateifilterVerwenden");
    Toggle(w, "chkOptFilterPlatzhalterVerwenden(0)");  // wildcards off
    w.findChild<QTabWidget*>(QStringLiteral("tabMain"))->setCurrentIndex(2);
    w.resize(900, 640);
    w.close();
  }
  // What the window showed is what the file holds.
  EXPECT_EQ(Stored(data, "DupVerz", "Suchkriterien3"), "1");
  EXPECT_EQ(Stored(data, "DupVerz", "Suchkriterien2"), "1");
  EXPECT_EQ(Stored(data, "DupVerz", "Suchkriterien0"), "1");
  EXPECT_EQ(Stored(data, "DupVerz", "Suchkriterien8"), "0");
  EXPECT_EQ(Stored(data, "DupVerz", "ContentCompare"), "3");
  EXPECT_EQ(Stored(data, "DupVerz", "IgnoreCharsText"), ": _:");
  EXPECT_EQ(Stored(data, "DupVerz", "SourceFolderCompareMode"), "1");
  EXPECT_EQ(Stored(data, "Dateifilter", "Verwenden"), "1");
  EXPECT_EQ(Stored(data, "DateiFilterPlatzhalter", "Aktiv"), "1");
  EXPECT_EQ(Stored(data, "Ordnerlist", "V1"), folder.string());
  EXPECT_EQ(Stored(data, "Ordnerlist", "A1"), "1");
  EXPECT_EQ(Stored(data, "Ordnerlist", "P1"), "1");
  EXPECT_EQ(Stored(data, "Ordnerlist", "V2"), "<absent>");
  // The trash folders stand in the folder filter of a fresh setup.
  EXPECT_EQ(Stored(data, "DupFilterOrdner", "F1"), std::string(kTrashFolderFilter));

  MainWindow again(Options(data));
  EXPECT_EQ(again.size(), QSize(900, 640));
  EXPECT_EQ(again.findChild<QTabWidget*>(QStringLiteral("tabMain"))->currentIndex(), 2);
  EXPECT_TRUE(IsOn(again, "chkSuchKriterien(3)"));
  EXPECT_TRUE(IsOn(again, "chkSuchKriterien(2)"));
  EXPECT_FALSE(IsOn(again, "chkSuchKriterien(1)"));
  EXPECT_EQ(Find<QComboBox>(again, "cboContentCompare")->currentIndex(), 3);
  EXPECT_EQ(Text(again, "txtIgnoreChars"), QStringLiteral(" _"));
  EXPECT_TRUE(IsOn(again, "optSourceFolderCompareMethod(1)"));
  EXPECT_FALSE(IsOn(again, "chkOptFilterPlatzhalterVerwenden(0)"));
  const std::vector<SourceFolderRow> rows = again.SourceRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].path, folder.string());
  EXPECT_TRUE(rows[0].checked);
  EXPECT_TRUE(rows[0].protect);
  EXPECT_EQ(Find<QListWidget>(again, "lvwFoF")->count(), 1);
}

TEST(SetupWindow, CriteriaFollowTheRulesOfTheSearch) {
  test::TempDir data;
  MainWindow w(Options(data));
  Toggle(w, "chkSuchKriterien(0)");
  Toggle(w, "chkSuchKriterien(2)");
  ASSERT_TRUE(IsOn(w, "chkSuchKriterien(0)"));
  // Similar pictures stand alone: the others go off and wait.
  Toggle(w, "chkSuchKriterien(8)");
  EXPECT_TRUE(IsOn(w, "chkSuchKriterien(8)"));
  EXPECT_FALSE(IsOn(w, "chkSuchKriterien(0)"));
  EXPECT_FALSE(IsOn(w, "chkSuchKriterien(2)"));
  EXPECT_FALSE(Find(w, "chkSuchKriterien(2)")->isEnabled());
  EXPECT_TRUE(Find(w, "chkDontCompareHardlinks")->isEnabled());
  Toggle(w, "chkSuchKriterien(8)");
  EXPECT_TRUE(Find(w, "chkSuchKriterien(2)")->isEnabled());
  EXPECT_FALSE(Find(w, "chkDontCompareHardlinks")->isEnabled());
  // Hard links: the archive page is off, and the archive switch with it.
  Toggle(w, "chkSuchKriterien(7)");
  EXPECT_FALSE(Find(w, "chkScanArchives")->isEnabled());
  Toggle(w, "chkSuchKriterien(7)");
  Toggle(w, "chkScanArchives");
  EXPECT_TRUE(IsOn(w, "chkScanArchives"));
  // With no type chosen before, every type is offered checked.
  auto* types = Find<QListWidget>(w, "lbArchive");
  ASSERT_EQ(types->count(), 16);
  EXPECT_EQ(types->item(15)->checkState(), Qt::Checked);
  Toggle(w, "chkSuchKriterien(7)");
  EXPECT_FALSE(IsOn(w, "chkScanArchives"));
  // Similar names follow the name and give way to the content.
  Toggle(w, "chkSuchKriterien(7)");
  Toggle(w, "chkSuchKriterien(0)");
  Toggle(w, "chkPartialFilenameCompare");
  EXPECT_TRUE(Find(w, "txtPartialFilenameCompare")->isEnabled());
  Toggle(w, "chkSuchKriterien(3)");
  EXPECT_FALSE(IsOn(w, "chkPartialFilenameCompare"));
  EXPECT_FALSE(Find(w, "chkPartialFilenameCompare")->isEnabled());
}

TEST(SetupWindow, FieldsAreMendedWhenLeft) {
  test::TempDir data;
  MainWindow w(Options(data));
  Toggle(w, "chkSuchKriterien(8)");
  Type(w, "txtSimilarPicsMatchPercent", QStringLiteral("abc"));
  EXPECT_EQ(Text(w, "txtSimilarPicsMatchPercent"), QStringLiteral("95"));
  Type(w, "txtSimilarPicsMatchPercent", QStringLiteral("150"));
  EXPECT_EQ(Text(w, "txtSimilarPicsMatchPercent"), QStringLiteral("100"));
  Type(w, "txtSimilarPicsMatchPercent", QStringLiteral("88"));
  EXPECT_EQ(Text(w, "txtSimilarPicsMatchPercent"), QStringLiteral("88"));

  // "24x24" only with pHash; leaving pHash falls back to "16x16".
  auto* size = Find<QComboBox>(w, "cboSimilarImagesCompareSize");
  auto* sizes = qobject_cast<QStandardItemModel*>(size->model());
  EXPECT_FALSE(sizes->item(2)->isEnabled());
  Choose(w, "cboSimiliarImagesAlgo", 2);
  EXPECT_TRUE(sizes->item(2)->isEnabled());
  Choose(w, "cboSimilarImagesCompareSize", 2);
  Choose(w, "cboSimiliarImagesAlgo", 0);
  EXPECT_EQ(size->currentIndex(), 1);
  Toggle(w, "chkSuchKriterien(8)");

  Toggle(w, "chkSuchKriterien(9)");
  Type(w, "txtSimilarAudioMatch", QStringLiteral("x"));
  EXPECT_EQ(Text(w, "txtSimilarAudioMatch"), QStringLiteral("90"));
  Type(w, "txtSimilarAudioMatch", QStringLiteral("0"));
  EXPECT_EQ(Text(w, "txtSimilarAudioMatch"), QStringLiteral("100"));
  Toggle(w, "chkSuchKriterien(9)");

  // Content, byte for byte: the percentage and the buffers.
  Toggle(w, "chkSuchKriterien(3)");
  Choose(w, "cboContentCompare", 0);
  EXPECT_TRUE(Find(w, "txtContentComparePercent")->isEnabled());
  Type(w, "txtContentComparePercent", QStringLiteral("0"));
  EXPECT_EQ(Text(w, "txtContentComparePercent"), QStringLiteral("100"));
  Type(w, "txtContentComparePercent", QStringLiteral("75"));
  EXPECT_EQ(Text(w, "txtContentComparePercent"), QStringLiteral("75"));
  Type(w, "txtCompareBuffer(1)", QStringLiteral("nix"));
  EXPECT_EQ(Text(w, "txtCompareBuffer(1)"), QStringLiteral("500000"));
  Type(w, "txtCompareBuffer(0)", QStringLiteral("900000"));
  EXPECT_EQ(Text(w, "txtCompareBuffer(0)"), QStringLiteral("500000"));
  // A checksum: no end block, no percentage.
  ASSERT_TRUE(IsOn(w, "chkCompareFileEndFirst"));
  Choose(w, "cboContentCompare", 1);
  EXPECT_FALSE(IsOn(w, "chkCompareFileEndFirst"));
  EXPECT_EQ(Text(w, "txtContentComparePercent"), QStringLiteral("100"));
  EXPECT_FALSE(Find(w, "txtContentComparePercent")->isEnabled());

  // The mended values are what the file gets.
  w.close();
  EXPECT_EQ(Stored(data, "DupVerz", "SimilarPicsMatchPercent"), "88");
  EXPECT_EQ(Stored(data, "DupVerz", "SimilarAudioMatchPercent"), "100");
  EXPECT_EQ(Stored(data, "DupVerz", "CompareBuffer1"), "500000");
  EXPECT_EQ(Stored(data, "DupVerz", "CompareFileEndFirst"), "0");
}

TEST(SetupWindow, StartShowsTheStartCheckAsAMessage) {
  test::TempDir data;
  MainWindow w(Options(data));
  w.show();
  w.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&w));
  QSignalSpy started(&w, &MainWindow::searchStarted);
  auto* start = Find<QPushButton>(w, "cmdSuchen");
  const TextCatalog german;
  EXPECT_EQ(ModalText([&] { QTest::mouseClick(start, Qt::LeftButton); }).toStdString(),
            german.Get(txt::T3626));
  EXPECT_EQ(w.findChild<QTabWidget*>(QStringLiteral("tabMain"))->currentIndex(), 1);

  Toggle(w, "chkSuchKriterien(2)");
  EXPECT_EQ(ModalText([&] { QTest::mouseClick(start, Qt::LeftButton); }).toStdString(),
            german.Get(txt::T3627));
  EXPECT_EQ(w.findChild<QTabWidget*>(QStringLiteral("tabMain"))->currentIndex(), 0);

  const std::string gone = (data.path() / "gone").string();
  w.AddSourceFolder(QString::fromStdString(gone));
  w.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&w));
  EXPECT_EQ(ModalText([&] { QTest::keyClick(&w, Qt::Key_F5); }).toStdString(),
            german.Get(txt::T3681, {gone}));
  EXPECT_EQ(started.count(), 0);
  EXPECT_TRUE(w.isVisible());
}

TEST(SetupWindow, StartWithAFolderHandsTheRowsToTheResultsWindow) {
  test::TempDir data;
  data.Write("tree/a.txt", "same");
  data.Write("tree/sub/b.txt", "same");
  const std::string tree = (data.path() / "tree").string();
  MainWindow w(Options(data));
  w.show();
  // A folder dropped from a file manager.
  QMimeData mime;
  mime.setUrls({QUrl::fromLocalFile(QString::fromStdString(tree))});
  auto* list = Find<QTreeWidget>(w, "lvwSource");
  QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(list->viewport(), &enter);
  EXPECT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(list->viewport(), &drop);
  ASSERT_EQ(list->topLevelItemCount(), 1);

  Toggle(w, "chkSuchKriterien(3)");
  QSignalSpy started(&w, &MainWindow::searchStarted);
  QTest::mouseClick(Find<QPushButton>(w, "cmdSuchen"), Qt::LeftButton);
  ASSERT_EQ(started.count(), 1);
  auto* results = started.at(0).at(0).value<SearchWindow*>();
  ASSERT_NE(results, nullptr);
  EXPECT_EQ(results->objectName(), "frmDupSearch");
  EXPECT_TRUE(results->isVisible());
  EXPECT_FALSE(w.isVisible());
  ASSERT_EQ(w.StartedRows().size(), 1u);
  EXPECT_EQ(w.StartedRows()[0].path, tree);
  EXPECT_TRUE(w.StartedRows()[0].checked);
  // The search reads what the window showed.
  EXPECT_EQ(Stored(data, "DupVerz", "Suchkriterien3"), "1");

  // Closing the results brings the setup back; a result not saved is
  // asked about first.
  ASSERT_TRUE(QTest::qWaitFor([&] { return !results->IsRunning(); }, 30000));
  EXPECT_EQ(ModalText([&] { results->close(); }).toStdString(), TextCatalog().Get(txt::T9772));
  QPointer<SearchWindow> closed(results);
  EXPECT_TRUE(QTest::qWaitFor([&] { return closed.isNull(); }, 2000));
  EXPECT_TRUE(QTest::qWaitFor([&] { return w.isVisible(); }, 2000));
}

TEST(SetupWindow, CommandLineShapesTheWindowAndStarts) {
  test::TempDir data;
  data.Write("tree/a.txt", "x");
  const std::string tree = (data.path() / "tree").string();
  {
    MainWindow w(Options(data, {"-s2", tree}));
    QSignalSpy started(&w, &MainWindow::searchStarted);
    std::vector<std::string> unknown;
    ASSERT_TRUE(w.OpenWithCommandLine(&unknown));
    EXPECT_EQ(started.count(), 1);
    EXPECT_TRUE(IsOn(w, "chkSuchKriterien(2)"));
    ASSERT_EQ(w.SourceRows().size(), 1u);
    EXPECT_EQ(w.SourceRows()[0].path, tree);
  }
  {
    // A folder that does not exist is left out; the start check says so.
    MainWindow w(Options(data, {"-s3", (data.path() / "gone").string()}));
    QSignalSpy started(&w, &MainWindow::searchStarted);
    std::vector<std::string> unknown;
    const QString message = ModalText([&] {
      ASSERT_TRUE(w.OpenWithCommandLine(&unknown));
      QTest::qWait(100);
    });
    EXPECT_EQ(started.count(), 0);
    EXPECT_TRUE(w.isVisible());
    EXPECT_TRUE(IsOn(w, "chkSuchKriterien(3)"));
    // The folder of the last start stays, without its mark.
    ASSERT_EQ(w.SourceRows().size(), 1u);
    EXPECT_FALSE(w.SourceRows()[0].checked);
    EXPECT_EQ(message.toStdString(), TextCatalog().Get(txt::T3627));
  }
  {
    MainWindow w(Options(data, {"-zz"}));
    std::vector<std::string> unknown;
    EXPECT_FALSE(w.OpenWithCommandLine(&unknown));
    EXPECT_EQ(unknown, std::vector<std::string>{"-zz"});
    EXPECT_FALSE(w.isVisible());
  }
}

TEST(QtPrompt, AsksFromTheWorkerThroughTheInterfaceThread) {
  QWidget parent;
  QtPrompt prompt(&parent);
  bool answer = false;
  std::optional<std::string> typed;
  QString asked, shownDefault;
  std::atomic<bool> done{false};
  // The interface thread answers the two dialogs as they come.
  QTimer answering;
  QObject::connect(&answering, &QTimer::timeout, [&] {
    QWidget* modal = QApplication::activeModalWidget();
    if (auto* box = qobject_cast<QMessageBox*>(modal)) {
      asked = box->text();
      box->button(QMessageBox::Yes)->click();
    } else if (modal != nullptr) {
      if (auto* input = modal->findChild<QLineEdit*>()) {
        shownDefault = input->text();
        input->setText(QStringLiteral("neu"));
        QTest::keyClick(input, Qt::Key_Return);
      }
    }
  });
  answering.start(20);
  std::thread worker([&] {
    answer = prompt.AskYesNo("Weiter?");
    typed = prompt.Input("Name:", "alt");
    done = true;
  });
  EXPECT_TRUE(QTest::qWaitFor([&] { return done.load(); }, 5000));
  worker.join();
  EXPECT_TRUE(answer);
  EXPECT_EQ(asked, QStringLiteral("Weiter?"));
  EXPECT_EQ(shownDefault, QStringLiteral("alt"));
  EXPECT_EQ(typed, std::optional<std::string>("neu"));
}

}  // namespace
}  // namespace kelvor::gui
