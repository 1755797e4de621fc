// The results window driven as a user drives it: a real search of a
// temporary tree on the window's worker, then the tree, the counters in the
// status bar, marks by the space bar and by the check boxes, columns shown,
// hidden and moved, and a search stopped while it runs.

#include "gui/search_window.h"

#include <QAction>
#include <QHeaderView>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QTest>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/settings_store.h"
#include "gui/actions.h"
#include "gui/result_tree_model.h"
#include "results/result_model.h"
#include "support/temp_tree.h"

// Readable QStrings in failure messages.
inline void PrintTo(const QString& s, std::ostream* os) {
  *os << '"' << s.toStdString() << '"';
}

namespace kelvor::gui {
namespace {

namespace fs = std::filesystem;

// The user's answers to the window's questions.
class ScriptedPrompt final : public Prompt {
 public:
  void Message(std::string_view text, MessageIcon) override { messages.emplace_back(text); }
  bool AskYesNo(std::string_view text) override {
    questions.emplace_back(text);
    return yes;
  }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
  bool yes = true;
  std::vector<std::string> messages, questions;
};

class SearchWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    data_ = tmp_.path() / "kdata";
    tree_ = tmp_.Mkdir("tree");
    tmp_.Write("tree/a/one.txt", "three times the same");
    tmp_.Write("tree/b/two.txt", "three times the same");
    tmp_.Write("tree/c/three.txt", "three times the same");
    tmp_.Write("tree/a/pair1.bin", "a pair of files");
    tmp_.Write("tree/b/pair2.bin", "a pair of files");
    tmp_.Write("tree/c/alone.txt", "nothing like it");
  }

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

  // Starts a content search of the tree and waits for its end.
  void SearchTree(SearchWindow& w) {
    w.SetPrompt(&prompt_);
    w.StartSearch(Session({"-s3", tree_.string()}));
    w.show();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !w.IsRunning(); }, 120000));
    ASSERT_NE(w.Result(), nullptr);
  }

  static QModelIndex Group(SearchWindow& w, int n) {
    ResultTreeModel* m = w.TreeModel();
    return m->index(n, 0, m->index(0, 0));
  }

  // Clicks the check box of a row as the mouse would.
  static void ClickCheckBox(SearchWindow& w, const QModelIndex& index) {
    QTreeView* t = w.Tree();
    t->scrollTo(index);
    QStyleOptionViewItem opt;
    opt.initFrom(t);
    opt.rect = t->visualRect(index);
    opt.features |= QStyleOptionViewItem::HasCheckIndicator;
    const QRect box = t->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &opt, t);
    QTest::mouseClick(t->viewport(), Qt::LeftButton, {}, box.center());
  }

  test::TempDir tmp_;
  fs::path data_, tree_;
  ScriptedPrompt prompt_;
};

TEST_F(SearchWindowTest, ShowsTheGroupsWithTheirColumnsAndCounters) {
  SearchWindow w;
  SearchTree(w);
  ResultTreeModel* m = w.TreeModel();
  const QModelIndex root = m->index(0, 0);
  ASSERT_EQ(m->rowCount(root), 2);
  EXPECT_EQ(m->data(root.siblingAtColumn(1), Qt::DisplayRole).toString(), "Suchergebnis");
  int files = 0;
  QStringList names;
  for (int g = 0; g < 2; ++g) {
    const QModelIndex group = Group(w, g);
    for (int f = 0; f < m->rowCount(group); ++f) {
      names << m->data(m->index(f, 1, group), Qt::DisplayRole).toString();
      ++files;
    }
  }
  EXPECT_EQ(files, 5);
  names.sort();
  EXPECT_EQ(names, (QStringList{"one.txt", "pair1.bin", "pair2.bin", "three.txt", "two.txt"}));

  // Headings, the folder of a file, a count on the right.
  EXPECT_EQ(m->headerData(1, Qt::Horizontal, Qt::DisplayRole).toString().left(8), "Gruppe -");
  EXPECT_EQ(m->headerData(2, Qt::Horizontal, Qt::DisplayRole).toString(), "Dateipfad");
  EXPECT_EQ(m->headerData(4, Qt::Horizontal, Qt::DisplayRole).toString(), "Duplikate");
  EXPECT_EQ(m->headerData(5, Qt::Horizontal, Qt::DisplayRole).toString(), "Größe (Bytes)");
  const QModelIndex firstFile = m->index(0, 2, Group(w, 0));
  EXPECT_TRUE(m->data(firstFile, Qt::DisplayRole)
                  .toString()
                  .startsWith(QString::fromStdString(tree_.string())));
  EXPECT_EQ(
      m->data(Group(w, 0).siblingAtColumn(4), Qt::TextAlignmentRole).value<int>() & Qt::AlignRight,
      Qt::AlignRight);
  // The tip of a file names its whole path, set off from the frame.
  const QString tip = m->data(m->index(0, 1, Group(w, 0)), Qt::ToolTipRole).toString();
  EXPECT_TRUE(tip.startsWith(QChar(0xA0)) && tip.endsWith(QChar(0xA0))) << tip.toStdString();
  EXPECT_TRUE(tip.contains(QString::fromStdString(tree_.string()) + "/")) << tip.toStdString();
  const QString groupCount = m->data(Group(w, 0).siblingAtColumn(4), Qt::DisplayRole).toString();
  EXPECT_TRUE(groupCount == "3" || groupCount == "2") << groupCount.toStdString();

  // Columns the settings leave off and columns the search cannot fill.
  EXPECT_TRUE(w.IsColumnShown(2));
  EXPECT_TRUE(w.IsColumnShown(5));
  EXPECT_FALSE(w.IsColumnShown(3));   // no archives searched
  EXPECT_FALSE(w.IsColumnShown(6));   // change date off by default
  EXPECT_FALSE(w.IsColumnShown(11));  // no similarity search

  EXPECT_EQ(w.PaneText(3), " Gruppen: 2 ");
  EXPECT_EQ(w.PaneText(4), " Dateien: 5 \\ 0 ");
  EXPECT_TRUE(w.PaneText(5).startsWith(" Größe: ")) << w.PaneText(5).toStdString();
  EXPECT_FALSE(w.PaneText(1).isEmpty());  // the closing message

  // The steps the run went through, and the window's title back at rest.
  auto* steps = w.findChild<QListWidget*>("lstSteps");
  ASSERT_NE(steps, nullptr);
  EXPECT_GE(steps->count(), 3);
  EXPECT_TRUE(steps->item(0)->text().contains("Dateianzahl von allen Quellordnern"));
  EXPECT_EQ(w.windowTitle(), "Kelvor");

  // The view's commands: all groups open and close.
  w.Actions()->Action(-3)->trigger();
  EXPECT_TRUE(w.Tree()->isExpanded(Group(w, 0)));
  EXPECT_TRUE(w.Tree()->isExpanded(Group(w, 1)));
  EXPECT_TRUE(w.Result()->Expanded(w.Result()->Child(RowRef{}, 1)));
  w.Actions()->Action(-4)->trigger();
  EXPECT_FALSE(w.Tree()->isExpanded(Group(w, 0)));
  EXPECT_FALSE(w.Result()->Expanded(w.Result()->Child(RowRef{}, 0)));
  // The result's commands are enabled now; those without an operation not.
  EXPECT_TRUE(w.Actions()->Action(36)->isEnabled());
  EXPECT_FALSE(w.Actions()->Action(11)->isEnabled());
}

TEST_F(SearchWindowTest, TheSpaceBarAndTheCheckBoxesMarkFiles) {
  SearchWindow w;
  SearchTree(w);
  ResultTreeModel* m = w.TreeModel();
  const QModelIndex group = Group(w, 0);
  const int inGroup = m->rowCount(group);
  ASSERT_GE(inGroup, 2);

  // The space bar on a file row marks it; the group is partly marked.
  w.Tree()->setCurrentIndex(m->index(0, 0, group));
  QTest::keyClick(w.Tree(), Qt::Key_Space);
  EXPECT_EQ(m->data(m->index(0, 0, group), Qt::CheckStateRole).value<int>(), Qt::Checked);
  EXPECT_EQ(m->data(group, Qt::CheckStateRole).value<int>(), Qt::PartiallyChecked);
  EXPECT_EQ(w.PaneText(4), " Dateien: 5 \\ 1 ");
  EXPECT_EQ(w.Result()->DupCountSelected(), 1);

  // A click on the partly marked group's box marks all of its files.
  ClickCheckBox(w, group);
  EXPECT_EQ(m->data(group, Qt::CheckStateRole).value<int>(), Qt::Checked);
  EXPECT_EQ(w.PaneText(4), QString(" Dateien: 5 \\ %1 ").arg(inGroup));
  for (int f = 0; f < inGroup; ++f)
    EXPECT_EQ(m->data(m->index(f, 0, group), Qt::CheckStateRole).value<int>(), Qt::Checked);

  // A click on one file's box takes that mark back.
  ClickCheckBox(w, m->index(1, 0, group));
  EXPECT_EQ(m->data(group, Qt::CheckStateRole).value<int>(), Qt::PartiallyChecked);
  EXPECT_EQ(w.PaneText(4), QString(" Dateien: 5 \\ %1 ").arg(inGroup - 1));

  // The space bar on the group: all of it unmarked after a full mark.
  w.Tree()->setCurrentIndex(group);
  QTest::keyClick(w.Tree(), Qt::Key_Space);  // partly -> all
  QTest::keyClick(w.Tree(), Qt::Key_Space);  // all -> none
  EXPECT_EQ(m->data(group, Qt::CheckStateRole).value<int>(), Qt::Unchecked);
  EXPECT_EQ(w.PaneText(4), " Dateien: 5 \\ 0 ");
}

TEST_F(SearchWindowTest, ColumnsShownAndMovedSurviveANewWindow) {
  {
    SearchWindow w;
    SearchTree(w);
    EXPECT_FALSE(w.IsColumnShown(6));
    QAction* dates = w.Actions()->Action(62);
    ASSERT_TRUE(dates->isEnabled());
    dates->trigger();  // show the change date
    EXPECT_TRUE(w.IsColumnShown(6));
    EXPECT_TRUE(dates->isChecked());
    EXPECT_FALSE(w.TreeModel()
                     ->data(w.TreeModel()->index(0, 6, Group(w, 0)), Qt::DisplayRole)
                     .toString()
                     .isEmpty());
    w.Actions()->Action(66)->trigger();  // hide the file path
    EXPECT_FALSE(w.IsColumnShown(2));

    // Drag the size column to the second place.
    QHeaderView* h = w.Tree()->header();
    h->moveSection(h->visualIndex(5), 2);
    EXPECT_EQ(w.List_Folder_GetColIndexByID(5), 2);
    EXPECT_EQ(w.List_Folder_GetColIndexByID(2), 3);
    prompt_.yes = true;  // leave without saving
    EXPECT_TRUE(w.close());
    ASSERT_EQ(prompt_.questions.size(), 1u);
    EXPECT_NE(prompt_.questions[0].find("noch nicht gespeichert"), std::string::npos);
  }
  SettingsStore saved;
  std::string error;
  ASSERT_TRUE(EinstellungenLaden(saved, data_ / "config4.ini", &error)) << error;
  EXPECT_EQ(saved.Get("Optionen", "5FolderColumnIndex"), "2");
  EXPECT_EQ(saved.Get("Optionen", "ColumnDateM"), "1");

  SearchWindow again;
  SearchTree(again);
  EXPECT_EQ(again.List_Folder_GetColIndexByID(5), 2);
  EXPECT_EQ(again.Tree()->header()->visualIndex(5), 2);
  EXPECT_EQ(again.Tree()->header()->visualIndex(1), 1);
  EXPECT_TRUE(again.IsColumnShown(6));
  EXPECT_FALSE(again.IsColumnShown(2));
  EXPECT_FALSE(again.Actions()->Action(66)->isChecked());
}

TEST_F(SearchWindowTest, APartialSetOfColumnPositionsGivesTheDefaultOrder) {
  fs::create_directories(data_);
  // A font size out of range is brought into 8 to 16 points.
  ASSERT_TRUE(ProfileWriteItemWide("Optionen", "Fontsize", "20", data_ / "config4.ini"));
  for (int id = 1; id <= 5; ++id)
    ASSERT_TRUE(ProfileWriteItemWide("Optionen", std::to_string(id) + "FolderColumnIndex",
                                     std::to_string(6 - id), data_ / "config4.ini"));
  SearchWindow w;
  SearchTree(w);
  for (int id = 1; id <= 17; ++id) {
    EXPECT_EQ(w.List_Folder_GetColIndexByID(id), id);
    EXPECT_EQ(w.Tree()->header()->visualIndex(id), id);
  }
  EXPECT_EQ(w.List_Folder_GetColIndexByID(0), 0);
  EXPECT_EQ(w.List_Folder_GetColIndexByID(18), 0);
  EXPECT_EQ(w.Tree()->font().pointSize(), 16);
}

TEST_F(SearchWindowTest, ClosingDuringARunAsksAndStopsFirst) {
  for (int i = 0; i < 2000; ++i)
    tmp_.Write("tree/many/f" + std::to_string(i), "same " + std::to_string(i % 5));
  SearchWindow w;
  w.SetPrompt(&prompt_);
  w.StartSearch(Session({"-s3", tree_.string()}));
  w.show();
  w.TogglePause();
  auto* pause = w.findChild<QPushButton*>("cmdStop_1");
  ASSERT_TRUE(
      QTest::qWaitFor([&] { return !w.IsRunning() || pause->text() == "Fortsetzen"; }, 120000));
  ASSERT_TRUE(w.IsRunning());
  prompt_.yes = false;
  EXPECT_FALSE(w.close());  // the user stays
  EXPECT_TRUE(w.IsRunning());
  prompt_.yes = true;
  EXPECT_FALSE(w.close());  // the run stops first, then the window goes
  ASSERT_TRUE(QTest::qWaitFor([&] { return !w.isVisible(); }, 120000));
  EXPECT_FALSE(w.IsRunning());
  EXPECT_EQ(w.StopReason(), kStopUser);
  EXPECT_EQ(prompt_.questions.size(), 2u);
}

// The seam for the core's commands: an operation given by id enables its
// action, and the undo command shows the state the undo history gives it.
TEST_F(SearchWindowTest, CommandsOfTheCoreRunByTheirIds) {
  SearchWindow w;
  SearchTree(w);
  std::vector<int> ran;
  QAction* all = w.Actions()->Action(11);
  EXPECT_EQ(all->objectName(), "cmd11");
  EXPECT_EQ(all->data().toInt(), 11);
  EXPECT_FALSE(all->isEnabled());
  w.SetCommandHandler(11, [&](int id) { ran.push_back(id); });
  EXPECT_TRUE(all->isEnabled());
  all->trigger();

  QAction* undo = w.Actions()->Action(239);
  w.SetCommandHandler(239, [&](int id) { ran.push_back(id); });
  EXPECT_FALSE(undo->isEnabled());  // no step yet
  w.ShowUndoState(true, "Rückgängig:\nAlle Duplikate auswählen",
                  {{6000, "1. Alle Duplikate auswählen"}, {6001, "2. Auswahl umkehren"}});
  EXPECT_TRUE(undo->isEnabled());
  EXPECT_EQ(undo->toolTip(), "Rückgängig:\nAlle Duplikate auswählen");
  ASSERT_EQ(w.UndoMenu()->actions().size(), 2);
  EXPECT_EQ(w.UndoMenu()->actions()[1]->text(), "2. Auswahl umkehren");
  undo->trigger();
  w.UndoMenu()->actions()[0]->trigger();
  EXPECT_EQ(ran, (std::vector<int>{11, 239, 6000}));
  w.ShowUndoState(false, {}, {});
  EXPECT_FALSE(undo->isEnabled());
  EXPECT_TRUE(w.UndoMenu()->actions().isEmpty());
}

TEST_F(SearchWindowTest, SizeFormatsChangeTheHeadingAndTheCells) {
  for (int i = 0; i < 3; ++i)
    tmp_.Write("tree/big/b" + std::to_string(i), std::string(3 * 1024 * 1024, 'x'));
  SearchWindow w;
  SearchTree(w);
  ResultTreeModel* m = w.TreeModel();
  QModelIndex big;
  for (int g = 0; g < m->rowCount(m->index(0, 0)); ++g)
    if (m->data(Group(w, g).siblingAtColumn(5), Qt::DisplayRole).toString() == "9.437.184")
      big = Group(w, g);
  ASSERT_TRUE(big.isValid());
  w.Actions()->Action(36)->trigger();  // MB
  EXPECT_TRUE(w.Actions()->Action(36)->isChecked());
  EXPECT_FALSE(w.Actions()->Action(34)->isChecked());
  EXPECT_EQ(m->headerData(5, Qt::Horizontal, Qt::DisplayRole).toString(), "Größe (MB)");
  EXPECT_EQ(m->data(big.siblingAtColumn(5), Qt::DisplayRole).toString(), "9,00");
  w.Actions()->Action(34)->trigger();  // back to bytes
  EXPECT_EQ(m->headerData(5, Qt::Horizontal, Qt::DisplayRole).toString(), "Größe (Bytes)");
  EXPECT_EQ(m->data(big.siblingAtColumn(5), Qt::DisplayRole).toString(), "9.437.184");
}

TEST_F(SearchWindowTest, AStopEndsARunningSearchAndShowsWhatWasFound) {
  for (int i = 0; i < 3000; ++i)
    tmp_.Write("tree/many/f" + std::to_string(i), "same " + std::to_string(i % 7));
  SearchWindow w;
  w.SetPrompt(&prompt_);
  w.StartSearch(Session({"-s3", tree_.string()}));
  w.show();
  auto* pause = w.findChild<QPushButton*>("cmdStop_1");
  ASSERT_NE(pause, nullptr);
  // Pressed at once: the run takes the pause at its first step, and the
  // button shows the run's caption once the worker stands still.
  w.TogglePause();
  EXPECT_TRUE(pause->isChecked());
  ASSERT_TRUE(
      QTest::qWaitFor([&] { return !w.IsRunning() || pause->text() == "Fortsetzen"; }, 120000));
  ASSERT_TRUE(w.IsRunning()) << "the search ended before it could be paused";
  EXPECT_TRUE(w.Actions()->Action(36)->isEnabled() == false);
  prompt_.yes = false;  // the user thinks again
  w.CancelSearch();
  EXPECT_TRUE(w.IsRunning());
  prompt_.yes = true;
  w.CancelSearch();
  ASSERT_EQ(prompt_.questions.size(), 2u);
  EXPECT_EQ(prompt_.questions[1], "Möchten Sie die Suche wirklich abbrechen?");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !w.IsRunning(); }, 120000));
  EXPECT_TRUE(w.Outcome().stoppedByUser);
  EXPECT_EQ(w.StopReason(), kStopUser);
  EXPECT_TRUE(w.PaneText(1).contains("von dem Anwender abgebrochen"))
      << w.PaneText(1).toStdString();
  ASSERT_NE(w.Result(), nullptr);
  EXPECT_LT(w.Result()->DupCount(), 3005);
}

}  // namespace
}  // namespace kelvor::gui
