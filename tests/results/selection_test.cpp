// The selection commands on a result: which files each rule marks, which
// groups take part, prompts and their remembered defaults, stops, and the
// counters they leave.

#include <gtest/gtest.h>

#include "command_fixture.h"
#include "results/selection.h"

namespace kelvor {
namespace {

using test::CommandTest;
using test::TestFile;

using SelectionTest = CommandTest;

TEST_F(SelectionTest, NewestAndOldestKeepTheirFileAndATieKeepsTheFirst) {
  AddGroup({{"a", 1000, 45000.0}, {"b", 1000, 45002.0}, {"c", 1000, 45001.0}});
  AddGroup({{"d", 1000, 45000.0}, {"e", 1000, 45000.0}});  // same date
  EXPECT_EQ(Run(27).result, CommandResult::Done);          // keep the newest
  EXPECT_EQ(Marks(), "|x.x|.x");
  EXPECT_EQ(Run(42).result, CommandResult::Done);  // keep the oldest
  EXPECT_EQ(Marks(), "|.xx|.x");
  ExpectCountersTrue();
}

TEST_F(SelectionTest, AKeepOneRuleOverridesHandMarks) {
  AddGroup({{"a", 1000, 45000.0}, {"b", 1000, 45002.0}});
  Click(3);  // the newest, marked by hand
  ASSERT_EQ(Marks(), "|.x");
  Run(27);
  EXPECT_EQ(Marks(), "|x.");
  EXPECT_EQ(model_.GetCheckState(Row(1)), kCheckPartly);
  ExpectCountersTrue();
}

TEST_F(SelectionTest, KeepOneBySizeNameAndPathLength) {
  AddGroup({{"long_name", 300, 0, "/d/x"}, {"nm", 100, 0, "/d/xyz/deeper"}, {"mid", 200, 0, "/d"}});
  Run(53);  // keep the smallest
  EXPECT_EQ(Marks(), "|x.x");
  Run(54);  // keep the biggest
  EXPECT_EQ(Marks(), "|.xx");
  Run(225);  // keep the shortest name
  EXPECT_EQ(Marks(), "|x.x");
  Run(228);  // keep the longest path
  EXPECT_EQ(Marks(), "|x.x");
  Run(227);  // keep the shortest path
  EXPECT_EQ(Marks(), "|xx.");
  ExpectCountersTrue();
}

TEST_F(SelectionTest, PositionRules) {
  AddGroups(2, 3);
  Run(32);
  EXPECT_EQ(Marks(), "|x..|x..");
  Run(33);
  EXPECT_EQ(Marks(), "|..x|..x");
  Run(13);
  EXPECT_EQ(Marks(), "|.xx|.xx");
  Run(14);
  EXPECT_EQ(Marks(), "|xx.|xx.");
  Run(26);  // invert
  EXPECT_EQ(Marks(), "|..x|..x");
  Run(11);
  EXPECT_EQ(Marks(), "|xxx|xxx");
  EXPECT_EQ(model_.GetCheckState(Row(1)), kCheckMarked);
  Run(12);
  EXPECT_EQ(Marks(), "|...|...");
  EXPECT_EQ(model_.GetCheckState(Row(1)), kCheckNone);
  ExpectCountersTrue();
}

TEST_F(SelectionTest, MatchHigherWithoutSimilarCellsUnmarksEverything) {
  AddGroups(1, 3);
  Click(2);
  prompt_.inputs = {"100"};
  EXPECT_EQ(Run(236).result, CommandResult::Done);
  EXPECT_EQ(Marks(), "|...");  // every cell reads 0: below 100
  EXPECT_EQ(prompt_.defaults.back(), "100");
  prompt_.inputs = {"100"};
  Run(237);  // lower or equal: all of them
  EXPECT_EQ(Marks(), "|xxx");
  ExpectCountersTrue();
}

TEST_F(SelectionTest, MatchHigherCountsBothBordersAndRefusesValuesOutside) {
  AddGroup({{"a", 1, 0, "/d", 80}, {"b", 1, 0, "/d", 90}, {"c", 1, 0, "/d", 100}});
  prompt_.inputs = {"90"};
  Run(236);
  EXPECT_EQ(Marks(), "|.xx");
  prompt_.inputs = {"0"};
  const CommandOutcome o = Run(236);
  EXPECT_EQ(o.result, CommandResult::Refused);
  EXPECT_FALSE(o.message.empty());
  prompt_.inputs = {"abc"};
  EXPECT_EQ(Run(237).result, CommandResult::Refused);
  prompt_.inputs = {""};  // an empty reply ends it quietly
  EXPECT_EQ(Run(237).result, CommandResult::Cancelled);
  EXPECT_EQ(Marks(), "|.xx");
  EXPECT_EQ(undo_.UndoCount(), 1);
}

TEST_F(SelectionTest, SelectionModeThreeChangesOnlyGroupsWithoutMarksAndWholeOnes) {
  AddGroups(3, 3);
  Click(6);  // a file of the second group
  Run(84);   // mode 3: groups without marked files
  EXPECT_EQ(view_.SelectionMode, 3);
  Run(13);  // all but the first
  // The first and third group change entirely, though they are no longer
  // unmarked once the rule has begun; the second stays as it was.
  EXPECT_EQ(Marks(), "|.xx|x..|.xx");
  ExpectCountersTrue();
}

TEST_F(SelectionTest, OtherModesPickTheirGroups) {
  const int g1 = AddGroup({{"a"}, {"b"}});
  const int g2 = AddGroup({{"c"}, {"d"}});
  model_.SetExpanded(Row(g2), true);
  view_.SelectionMode = kSelectExpanded;
  Run(11);
  EXPECT_EQ(Marks(), "|..|xx");
  view_.SelectionMode = kSelectMarkedGroups;
  Run(12);
  EXPECT_EQ(Marks(), "|..|..");
  view_.SelectionMode = kSelectHighlighted;
  view_.highlightedRows = {g1};
  Run(11);
  EXPECT_EQ(Marks(), "|xx|..");
  view_.SelectionMode = kSelectNotHighlighted;
  Run(26);
  EXPECT_EQ(Marks(), "|xx|xx");
  view_.SelectionMode = 42;  // no such mode: no group takes part
  Run(12);
  EXPECT_EQ(Marks(), "|xx|xx");
}

TEST_F(SelectionTest, AGroupTheFilterHidesNeverTakesPart) {
  AddGroups(2, 2);
  view_.hiddenGroups = {1};
  Run(11);
  EXPECT_EQ(Marks(), "|..|xx");
}

TEST_F(SelectionTest, StopMidWalkKeepsWhatWasDoneAndUndoesAsOneStep) {
  for (int g = 0; g < 4; ++g) AddGroup({{"small.png", 10}, {"big.png", 20}});
  Click(3);  // a hand mark that the rule overrides in the first group
  int reads = 0;
  reader_ = [&](const std::string&, int* w, int* h) {
    // A stop raised while the second group is weighed: that group is
    // finished, the walk ends at the next row.
    if (++reads == 3) run_.RequestStop(kStopUser);
    *w = *h = 10;
    return true;
  };
  EXPECT_EQ(Run(238).result, CommandResult::Done);
  EXPECT_EQ(Marks(), "|x.|x.|..|..");
  EXPECT_FALSE(run_.StopRequested()) << "the walk clears the stop it ended on";
  ExpectCountersTrue();
  ASSERT_EQ(undo_.UndoCount(), 1);
  Run(kCommandUndo);
  EXPECT_EQ(Marks(), "|.x|..|..|..");
  EXPECT_EQ(undo_.UndoCount(), 0);
  ExpectCountersTrue();
}

TEST_F(SelectionTest, MostPixelsReadsDimensionsOnDemandThenSizeDecides) {
  AddGroup({{"a.png", 100}, {"b.png", 300}, {"c.png", 200}});
  AddGroup({{"d.png", 100}, {"e.png", 100}});  // equal in both: the first stays
  model_.SetCell(Row(2), CellKey::picW, std::int64_t{50});
  model_.SetCell(Row(2), CellKey::picH, std::int64_t{50});
  std::vector<std::string> read;
  reader_ = [&](const std::string& path, int* w, int* h) {
    read.push_back(path);
    if (path.ends_with("b.png") || path.ends_with("c.png")) {
      *w = 40;
      *h = 40;
      return true;
    }
    return false;  // unreadable: 0 pixels
  };
  Run(238);
  // a has the most pixels; b and c tie in pixels, c is not bigger than b.
  EXPECT_EQ(Marks(), "|.xx|.x");
  EXPECT_EQ(CellAsInt(model_.Cell(Row(3), CellKey::picW)), 40);
  EXPECT_EQ(read.size(), 4u) << "a had its dimensions";
  EXPECT_EQ(read[0], "/data/src1/b.png");
}

TEST_F(SelectionTest, SizeRuleOnlyMarksAndRemembersTheText) {
  AddGroup({{"a", 100}, {"b", 200}, {"c", 300}});
  Click(4);  // c
  prompt_.inputs = {"200"};
  Run(244);  // smaller than 200
  EXPECT_EQ(Marks(), "|x.x");
  prompt_.inputs = {"200"};
  Run(246);  // greater: c is marked already and stays
  EXPECT_EQ(Marks(), "|x.x");
  prompt_.inputs = {"200"};
  Run(245);
  EXPECT_EQ(Marks(), "|xxx");
  EXPECT_EQ(prompt_.defaults.back(), "200");
  prompt_.inputs = {"zwei"};
  const CommandOutcome o = Run(245);
  EXPECT_EQ(o.result, CommandResult::Refused);
  EXPECT_NE(o.message.find("zwei"), std::string::npos);
}

TEST_F(SelectionTest, NameAndPathPatternsIgnoreCaseAndRefuseInvalidOnes) {
  AddGroup({{"Photo.JPG", 1, 0, "/data/src1/Backup"}, {"photo.png", 1, 0, "/data/src1/keep"}});
  prompt_.inputs = {"*.jpg"};
  Run(229);
  EXPECT_EQ(Marks(), "|x.");
  prompt_.inputs = {"*backup*"};
  Run(235);  // unmark by path
  EXPECT_EQ(Marks(), "|..");
  prompt_.inputs = {"*/KEEP"};
  Run(234);
  EXPECT_EQ(Marks(), "|.x");
  prompt_.inputs = {std::nullopt};  // cancelled: the last pattern was offered
  EXPECT_EQ(Run(234).result, CommandResult::Cancelled);
  EXPECT_EQ(prompt_.defaults.back(), "*/KEEP");
  EXPECT_EQ(prompt_.defaults[0], "");
  const int steps = undo_.UndoCount();
  prompt_.inputs = {"[a"};
  const CommandOutcome o = Run(229);
  EXPECT_EQ(o.result, CommandResult::Refused);
  ASSERT_EQ(prompt_.messages.size(), 1u);
  EXPECT_NE(prompt_.messages[0].find("Das Textmuster '[a' ist ungültig"), std::string::npos);
  EXPECT_EQ(undo_.UndoCount(), steps);
}

TEST_F(SelectionTest, FolderRules) {
  AddGroup({{"a", 1, 0, "/data/src1/Fotos"},
            {"b", 1, 0, "/data/src1/fotos/2020"},
            {"c", 1, 0, "/data/src2/other"}});
  // 1700: the focused file's folder, not below it (compared in lower case).
  view_.focusedRow = 2;
  Run(1700);
  EXPECT_EQ(Marks(), "|x..");
  // 1800: asks, then offers the source folder that holds it.
  prompt_.answers = {true};
  prompt_.inputs = {"/data/src1/fotos"};
  Run(1800);
  EXPECT_EQ(Marks(), "|xx.");
  EXPECT_EQ(prompt_.defaults.back(), "/data/src1");
  // 1100: asks for the folder first; unmarks below it.
  view_.focusedRow = -1;
  prompt_.answers = {true};
  prompt_.inputs = {"/data/src1/FOTOS/2020", "/data/src1/fotos/2020/"};
  Run(1100);
  EXPECT_EQ(Marks(), "|x..");
  // A "no" to the question ends it.
  prompt_.answers = {false};
  prompt_.inputs = {"/data"};
  EXPECT_EQ(Run(1000).result, CommandResult::Cancelled);
  EXPECT_EQ(Marks(), "|x..");
}

TEST_F(SelectionTest, DuplicatesOfAFolderKeepTheCopiesInIt) {
  AddGroup({{"a", 1, 0, "/keep"}, {"b", 1, 0, "/x"}, {"c", 1, 0, "/y"}});
  AddGroup({{"d", 1, 0, "/x"}, {"e", 1, 0, "/y"}});  // no copy in the folder
  AddGroup({{"f", 1, 0, "/keep"}, {"g", 1, 0, "/x"}});
  Click(9);  // f is marked already: its group is left alone
  prompt_.inputs = {"/keep"};
  Run(700);
  EXPECT_EQ(Marks(), "|.xx|..|x.");
  prompt_.inputs = {"/keep"};
  Run(800);
  EXPECT_EQ(Marks(), "|...|..|x.");
}

TEST_F(SelectionTest, HighlightCommandsAreNoUndoSteps) {
  AddGroups(1, 3);
  view_.highlightedRows = {2, 4};
  Run(321);
  EXPECT_EQ(Marks(), "|x.x");
  EXPECT_EQ(model_.GetCheckState(Row(1)), kCheckPartly);
  view_.focusedRow = 3;
  Run(302);  // flips the siblings of the focused row
  EXPECT_EQ(Marks(), "|...");
  EXPECT_EQ(undo_.UndoCount(), 0);
  ExpectCountersTrue();
}

TEST_F(SelectionTest, AnEmptyResultIsLeftAlone) {
  EXPECT_EQ(Run(27).result, CommandResult::Cancelled);
  EXPECT_EQ(Run(11).result, CommandResult::Done);
  EXPECT_EQ(undo_.UndoCount(), 0);
}

}  // namespace
}  // namespace kelvor
