// The undo history of the marks and the removals from the result: steps,
// titles and the undo command's state; what each removal takes out, the
// counters it leaves, and that it ends the history.

#include <gtest/gtest.h>

#include "command_fixture.h"
#include "results/removal.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::CommandTest;
using test::TestFile;

class UndoTest : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    view_.caption = [](int id) {
      if (id == 13) return std::string("Alle außer der ersten");
      if (id == 208) return std::string("Alle außer der neuesten");
      return std::string();
    };
  }
};

TEST_F(UndoTest, TwoRulesThenTwoUndosGiveTheStartBackAndDisableTheCommand) {
  AddGroup({{"a", 10, 45000.0}, {"b", 20, 45001.0}, {"c", 30, 45002.0}});
  AddGroup({{"d", 10, 45003.0}, {"e", 20, 45000.0}});
  Click(4);  // c by hand
  const std::string start = Marks();
  EXPECT_FALSE(undo_.CommandState().enabled);

  Run(13);
  EXPECT_EQ(Marks(), "|.xx|.x");
  const UndoCommandState& s = undo_.CommandState();
  EXPECT_TRUE(s.enabled);
  EXPECT_EQ(s.toolTip, "Rückgängig:\nAlle außer der ersten");
  EXPECT_TRUE(s.dropDown.empty()) << "the first step has no drop-down entry";

  Run(27);  // keep the newest
  EXPECT_EQ(Marks(), "|xx.|.x");
  EXPECT_EQ(undo_.UndoCount(), 2);
  EXPECT_EQ(undo_.UndoIndex(), 1);
  EXPECT_EQ(s.toolTip, "Rückgängig:\nAlle außer der neuesten\n(Änderungsdatum)");
  ASSERT_EQ(s.dropDown.size(), 1u);
  EXPECT_EQ(s.dropDown[0].id, 6001);
  EXPECT_EQ(s.dropDown[0].text, "2. Alle außer der neuesten (Änderungsdatum)");
  // Only the rows that really changed are kept: a, c (and not b, e).
  EXPECT_EQ(undo_.Rows(1), (std::vector<std::int32_t>{2, 4}));

  EXPECT_EQ(Run(kCommandUndo).result, CommandResult::Done);
  EXPECT_EQ(Marks(), "|.xx|.x");
  EXPECT_TRUE(s.enabled);
  EXPECT_EQ(s.toolTip, "Rückgängig:\nAlle außer der ersten");
  EXPECT_TRUE(s.dropDown.empty());
  ExpectCountersTrue();

  Run(kCommandUndo);
  EXPECT_EQ(Marks(), start);
  EXPECT_EQ(model_.GetCheckState(Row(1)), kCheckPartly);
  EXPECT_FALSE(s.enabled);
  EXPECT_TRUE(s.toolTip.empty());
  EXPECT_EQ(undo_.UndoIndex(), -1);
  ExpectCountersTrue();
  EXPECT_EQ(Run(kCommandUndo).result, CommandResult::Cancelled);
}

TEST_F(UndoTest, ACommandThatChangesNothingAddsNoStep) {
  AddGroups(2, 2);
  Run(12);  // nothing is marked: nothing to unmark
  EXPECT_EQ(undo_.UndoCount(), 0);
  EXPECT_FALSE(undo_.CommandState().enabled);
  Run(13);
  Run(13);  // the same rule again changes nothing
  EXPECT_EQ(undo_.UndoCount(), 1);
  EXPECT_TRUE(undo_.CommandState().dropDown.empty());
}

TEST_F(UndoTest, TheDropDownTakesBackDownToItsStep) {
  AddGroups(1, 3);
  Run(13);
  Run(32);
  Run(33);
  ASSERT_EQ(undo_.CommandState().dropDown.size(), 2u);
  EXPECT_EQ(Run(6001).result, CommandResult::Done);  // steps 3 and 2
  EXPECT_EQ(Marks(), "|.xx");
  EXPECT_EQ(undo_.UndoCount(), 1);
  EXPECT_EQ(Run(6005).result, CommandResult::Cancelled);
}

TEST_F(UndoTest, UndoAfterARemovalIsImpossible) {
  AddGroups(2, 2);
  Run(13);
  ASSERT_TRUE(undo_.CommandState().enabled);
  Run(220);  // remove the marked files
  EXPECT_FALSE(undo_.CommandState().enabled);
  EXPECT_EQ(undo_.UndoCount(), 0);
  EXPECT_EQ(Run(kCommandUndo).result, CommandResult::Cancelled);
  EXPECT_EQ(Marks(), "|.|.");
}

// Raises the stop at the first refresh of a walk.
struct StopAtFirstRefresh : ProgressSink {
  RunState* run = nullptr;
  void ProgressBar(int) override { run->RequestStop(kStopUser); }
};

TEST_F(UndoTest, AStoppedUndoKeepsTheRestOfItsStep) {
  AddGroups(2, 3);
  Run(13);
  const std::string marked = Marks();
  StopAtFirstRefresh stopper;
  stopper.run = &run_;
  EXPECT_TRUE(undo_.UNDO(run_, &stopper));
  EXPECT_FALSE(run_.StopRequested());
  EXPECT_EQ(Marks(), marked) << "stopped before the first row";
  EXPECT_EQ(undo_.UndoCount(), 1);
  EXPECT_EQ(undo_.Rows(0).size(), 4u);
  EXPECT_TRUE(undo_.CommandState().enabled);
  Run(kCommandUndo);
  EXPECT_EQ(Marks(), "|...|...");
  ExpectCountersTrue();
}

using RemovalTest = CommandTest;

TEST_F(RemovalTest, RemovingTheMarkedFileOfAGroupOfTwoLeavesAGroupOfOne) {
  AddGroup({{"a", 100}, {"b", 200}});
  AddGroup({{"c", 300}, {"d", 400}});
  Click(3);
  EXPECT_EQ(Run(220).result, CommandResult::Done);
  EXPECT_EQ(Marks(), "|.|..");
  EXPECT_EQ(model_.GroupCount(), 2);
  EXPECT_EQ(model_.GetCheckState(Row(1)), kCheckNone);
  EXPECT_EQ(CellAsInt(model_.Cell(Row(1), CellKey::anz)), 1);
  EXPECT_EQ(model_.DupCount(), 3);
  EXPECT_EQ(model_.FilesizeAll(), 800);
  EXPECT_EQ(model_.DupCountSelected(), 0);
  EXPECT_EQ(CellAsInt(model_.Cell(Row(0), CellKey::anz)), 3) << "the root shows the count";
  ExpectCountersTrue();
}

TEST_F(RemovalTest, RemovingAllFilesOfAGroupRemovesTheGroup) {
  AddGroup({{"a", 100}, {"b", 200}});
  AddGroup({{"c", 300}, {"d", 400}});
  Click(2);
  Click(3);
  Run(220);
  EXPECT_EQ(model_.GroupCount(), 1);
  EXPECT_EQ(Marks(), "|..");
  EXPECT_EQ(model_.FileName(Row(2)), "c");
  EXPECT_EQ(model_.FilesizeSelected(), 0);
  ExpectCountersTrue();
}

TEST_F(RemovalTest, HiddenGroupsKeepTheirRowsAndStayHidden) {
  AddGroups(3, 2);
  Run(11);
  view_.hiddenGroups = {4};  // the second group
  view_.highlightedRows = {2};
  Run(220);
  EXPECT_EQ(Marks(), "|xx");
  EXPECT_EQ(view_.hiddenGroups, (std::vector<int>{1}));
  EXPECT_TRUE(view_.highlightedRows.empty());
  ExpectCountersTrue();
}

TEST_F(RemovalTest, HighlightedAndFocusedRows) {
  AddGroups(3, 3);  // groups at 1, 5, 9
  view_.highlightedRows = {3, 4, 6};
  Run(320);
  EXPECT_EQ(Marks(), "|.|..|...");
  view_.focusedRow = 4;  // the first file of the second group
  Run(328);
  EXPECT_EQ(Marks(), "|.|.|...");
  view_.highlightedRows = {1, 5};  // the first and third group
  Run(216);
  EXPECT_EQ(Marks(), "|.");
  EXPECT_EQ(model_.DupCount(), 1);
  ExpectCountersTrue();
}

TEST_F(RemovalTest, GroupsByTheirFileCountAndByTheirMarks) {
  AddGroups(1, 1);
  AddGroups(1, 2);
  AddGroups(1, 3);
  prompt_.inputs = {"2"};
  Run(215);
  EXPECT_EQ(Marks(), "|.|...");
  EXPECT_EQ(prompt_.defaults.back(), "1");
  prompt_.inputs = {"zwei"};
  EXPECT_EQ(Run(8).result, CommandResult::Refused);
  Run(11);
  Click(2);  // the group of one is no longer wholly marked
  Run(233);
  EXPECT_EQ(Marks(), "|.");
  ExpectCountersTrue();
}

TEST_F(RemovalTest, HardLinkGroups) {
  const auto link = [&](int row, const char* id) {
    model_.SetCell(Row(row), CellKey::hardlinkID, std::string(id));
  };
  AddGroups(3, 2);  // 1: (2,3) 4: (5,6) 7: (8,9)
  link(2, "0001-AA");
  link(3, "0001-AA");  // one family
  link(5, "0001-AA");
  link(6, "0002-BB");  // linked, but to different files
  link(8, "0001-AA");
  link(9, "-");  // one file without links
  Run(414);
  EXPECT_EQ(model_.GroupCount(), 2);
  Run(224);
  EXPECT_EQ(model_.GroupCount(), 1);
  EXPECT_EQ(model_.FileName(Row(2)), "a0");
  EXPECT_EQ(CellAsText(model_.Cell(Row(3), CellKey::hardlinkID)), "-");
}

TEST_F(RemovalTest, GroupsNotInEverySourceFolder) {
  AddGroup({{"a", 1, 0, "/data/src1"}, {"b", 1, 0, "/data/src2"}});
  AddGroup({{"c", 1, 0, "/data/src1"}, {"d", 1, 0, "/data/src1"}});
  AddGroup({{"e", 1, 0, "/data/src1"}, {"f", 1, 0, "/data/src1"}});
  Click(8);
  Click(9);  // wholly marked: takes no part
  Run(232);
  EXPECT_EQ(Marks(), "|..|xx");
}

TEST_F(RemovalTest, FilesInAFolder) {
  AddGroup({{"a", 1, 0, "/data/src1/Old"},
            {"b", 1, 0, "/data/src1/old/sub"},
            {"c", 1, 0, "/data/src1"}});
  prompt_.inputs = {"/data/src1/old"};
  Run(600);
  EXPECT_EQ(Marks(), "|..");
  prompt_.inputs = {"/data/src1/OLD/"};
  Run(1500);
  EXPECT_EQ(Marks(), "|.");
  EXPECT_EQ(model_.FileName(Row(2)), "c");
}

TEST_F(RemovalTest, AFileGoneFromDiskLeavesAGroupOfOne) {
  test::TempDir tmp;
  const auto dir = tmp.Mkdir("files");
  tmp.Write("files/a.txt", "same");
  tmp.Write("files/b.txt", "same");
  tmp.Write("files/c.txt", "other");
  tmp.Write("files/d.txt", "other");
  AddGroup({{"a.txt", 4, 0, dir.string()}, {"b.txt", 4, 0, dir.string()}});
  AddGroup({{"c.txt", 5, 0, dir.string()}, {"d.txt", 5, 0, dir.string()}});
  Click(2);
  std::filesystem::remove(dir / "a.txt");
  EXPECT_EQ(Run(217).result, CommandResult::Done);
  EXPECT_EQ(Marks(), "|.|..");
  EXPECT_EQ(model_.FileName(Row(2)), "b.txt");
  EXPECT_EQ(model_.DupCountSelected(), 0);
  EXPECT_TRUE(std::filesystem::exists(dir / "b.txt"));
  ExpectCountersTrue();
  EXPECT_EQ(Run(217).result, CommandResult::Cancelled) << "nothing more is gone";
}

TEST_F(RemovalTest, AVanishedArchiveTakesItsMembersAndOnlyTheirOwnExtracts) {
  test::TempDir tmp;
  const std::string archive = (tmp.path() / "gone.zip").string();
  const auto extract = tmp.Write("KVtemp/run-1-1/7_member.txt", "x");
  const auto userFile = tmp.Write("docs/member.txt", "keep me");
  AddGroup({{"member.txt", 1, 0, archive}, {"member.txt", 1, 0, archive}});
  model_.SetCell(Row(2), CellKey::archiv, std::int64_t{1});
  model_.SetCell(Row(2), CellKey::tmppath, extract.string());
  model_.SetCell(Row(3), CellKey::archiv, std::int64_t{1});
  // A saved result could name any file here: it is not an extract.
  model_.SetCell(Row(3), CellKey::tmppath, userFile.string());
  Run(217);
  EXPECT_EQ(model_.GroupCount(), 0);
  EXPECT_FALSE(std::filesystem::exists(extract));
  EXPECT_TRUE(std::filesystem::exists(userFile));
}

TEST_F(RemovalTest, AStopEndsTheWalkWithTheCountersTrue) {
  AddGroups(50, 2);
  Run(11);
  run_.RequestStop(kStopUser);
  Run(220);
  EXPECT_FALSE(run_.StopRequested());
  ExpectCountersTrue();
  Run(220);
  EXPECT_EQ(model_.GroupCount(), 0);
  EXPECT_EQ(model_.DupCount(), 0);
  EXPECT_EQ(model_.FilesizeAll(), 0);
}

TEST_F(RemovalTest, ALargeWalkRemovesEveryOtherFile) {
  // 20,000 groups of 5: a removal that went by the slow road would still
  // give this answer, but the index must stay right after each removal.
  AddGroups(20000, 5);
  for (int i = 1; i < model_.RowCount(); ++i) {
    const RowRef r = Row(i);
    if (r.IsFile() && i % 2 == 0) model_.File_Select(r, true);
  }
  for (int i = 1; i < model_.RowCount(); ++i) {
    if (Row(i).IsGroup()) model_.Report_Set_Group_Checkbox_Image(Row(i));
  }
  const int before = model_.DupCount();
  const int marked = model_.DupCountSelected();
  Run(220);
  EXPECT_EQ(model_.DupCount(), before - marked);
  EXPECT_EQ(model_.RowCount(), 1 + 20000 + before - marked);
  ExpectCountersTrue();
}

TEST(ResultCommands, AnUnknownIdIsAnErrorWithAMessage) {
  ResultModel m;
  m.Report_Create_Root_Node();
  ViewState v;
  test::ScriptPrompt p;
  RunState run;
  CommandEnv env{m, nullptr, v, p, run, nullptr, {}};
  const CommandOutcome o = RunResultCommand(env, 4711);
  EXPECT_EQ(o.result, CommandResult::Unknown);
  EXPECT_EQ(o.message, "Unbekannte Befehlsnummer: 4711");
  EXPECT_EQ(p.messages.size(), 1u);
  EXPECT_EQ(FindResultCommand(4711), nullptr);
  for (int id : {11, 27, 238, 246, 1100, 81, 88, 220, 217, 1500, 239, 6003})
    EXPECT_NE(FindResultCommand(id), nullptr) << id;
  // Without a history undo does nothing.
  EXPECT_EQ(RunResultCommand(env, 239).result, CommandResult::Cancelled);
}

}  // namespace
}  // namespace kelvor
