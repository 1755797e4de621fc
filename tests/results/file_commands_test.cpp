// The commands on one or two rows: swapping names in two stages with their
// roll-back, the outside comparison program, the text search.

#include "results/file_commands.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "data/file_system.h"
#include "frame/fake_prompt.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

struct TwoFiles {
  TempDir dir;
  ResultModel model;
  RowRef a, b;
  fs::path pa, pb;
  test::FakePrompt prompt;
  FileCommandContext ctx;

  TwoFiles(std::string_view nameA, std::string_view nameB) {
    pa = dir.Write("one/" + std::string(nameA), "A");
    pb = dir.Write("two/" + std::string(nameB), "B");
    ResultOptions o;
    o.SourceFolders = {dir.path().string()};
    model.SetOptions(o);
    model.Report_Create_Root_Node();
    const int g = model.AddGroupRow("g", 1);
    a = model.AddFileRowRaw(g, nameA, pa.parent_path().string(), 1, 1);
    b = model.AddFileRowRaw(g, nameB, pb.parent_path().string(), 1, 1);
    ctx.prompt = &prompt;
  }
};

TEST(FileCommands, SwapExchangesTheNamesEachInItsOwnFolder) {
  TwoFiles t("a.txt", "b.txt");
  const RowRef group = t.model.Parent(t.a);
  const SwapResult r = File_Swap_FileNames(t.model, {group, t.a, t.b}, t.ctx);
  ASSERT_EQ(r.outcome, SwapOutcome::Swapped);
  EXPECT_EQ(test::ReadBytes(t.dir / "one/b.txt"), "A");
  EXPECT_EQ(test::ReadBytes(t.dir / "two/a.txt"), "B");
  EXPECT_FALSE(fs::exists(t.pa));
  EXPECT_FALSE(fs::exists(t.pb));
  EXPECT_EQ(t.model.FileName(t.a), "b.txt");
  EXPECT_EQ(t.model.FileName(t.b), "a.txt");
  EXPECT_TRUE(t.prompt.messages.empty());
}

TEST(FileCommands, SwapOfEqualNamesOrOneRowDoesNothing) {
  TwoFiles t("same.txt", "same.txt");
  EXPECT_EQ(File_Swap_FileNames(t.model, {t.a, t.b}, t.ctx).outcome, SwapOutcome::SameName);
  EXPECT_EQ(File_Swap_FileNames(t.model, {t.a}, t.ctx).outcome, SwapOutcome::NotTwoFiles);
  EXPECT_EQ(test::ReadBytes(t.pa), "A");
  EXPECT_EQ(test::ReadBytes(t.pb), "B");
}

TEST(FileCommands, AFailedMoveRollsTheSwapBack) {
  // Each of the four moves fails once: both files end under their old names.
  for (int n = 1; n <= 4; ++n) {
    SCOPED_TRACE(n);
    TwoFiles t("a.txt", "b.txt");
    FileSystemFaults faults;
    faults.FailNth(FsCall::Rename, n, EACCES);
    SwapResult r;
    {
      FileSystemFaults::Scope scope(&faults);
      r = File_Swap_FileNames(t.model, {t.a, t.b}, t.ctx);
    }
    ASSERT_EQ(r.outcome, SwapOutcome::Failed);
    EXPECT_EQ(test::ReadBytes(t.pa), "A");
    EXPECT_EQ(test::ReadBytes(t.pb), "B");
    EXPECT_EQ(std::distance(fs::directory_iterator(t.dir / "one"), fs::directory_iterator()), 1);
    EXPECT_EQ(std::distance(fs::directory_iterator(t.dir / "two"), fs::directory_iterator()), 1);
    EXPECT_EQ(t.model.FileName(t.a), "a.txt");
    ASSERT_EQ(t.prompt.messages.size(), 1u);
    EXPECT_NE(t.prompt.messages[0].find("\r\n-->>\r\n"), std::string::npos);
    EXPECT_NE(t.prompt.messages[0].find(".temp"), std::string::npos);
  }
}

TEST(FileCommands, RenameRefusesTakenNamesAndLeavesMembersAlone) {
  TwoFiles t("a.txt", "b.txt");
  t.dir.Write("one/taken.txt", "other");
  EXPECT_EQ(File_Rename(t.model, t.a, "a.txt", t.ctx).outcome, FileCommandOutcome::Unchanged);
  EXPECT_EQ(File_Rename(t.model, t.a, "", t.ctx).outcome, FileCommandOutcome::Unchanged);
  EXPECT_EQ(File_Rename(t.model, t.a, "taken.txt", t.ctx).outcome, FileCommandOutcome::NameTaken);
  EXPECT_EQ(test::ReadBytes(t.dir / "one/taken.txt"), "other");
  const FileCommandResult r = File_Rename(t.model, t.a, "new.txt", t.ctx);
  ASSERT_EQ(r.outcome, FileCommandOutcome::Done);
  EXPECT_EQ(test::ReadBytes(t.dir / "one/new.txt"), "A");
  EXPECT_EQ(t.model.FileName(t.a), "new.txt");
  t.ctx.sourceProtected = {true};
  EXPECT_EQ(File_Rename(t.model, t.a, "x.txt", t.ctx).outcome, FileCommandOutcome::Protected);
  t.model.SetCell(t.b, CellKey::archiv, std::int64_t{1});
  EXPECT_EQ(File_Rename(t.model, t.b, "x.txt", t.ctx).outcome, FileCommandOutcome::ArchiveMember);
  EXPECT_TRUE(fs::exists(t.pb));
}

TEST(FileCommands, MoveAndCopyToAFolder) {
  TwoFiles t("a.txt", "b.txt");
  const fs::path target = t.dir.Mkdir("target");
  t.dir.Write("target/a.txt", "old");
  int asked = 0;
  auto no = [&](std::string_view, std::string_view) { return ++asked, false; };
  auto yes = [&](std::string_view, std::string_view) { return ++asked, true; };
  t.ctx.sourceProtected = {true};
  // Copying from a protected folder works, moving does not.
  EXPECT_EQ(File_Copying(t.model, t.b, target.string(), false, no, t.ctx).outcome,
            FileCommandOutcome::Done);
  EXPECT_EQ(test::ReadBytes(target / "b.txt"), "B");
  EXPECT_EQ(File_Copying(t.model, t.b, target.string(), true, yes, t.ctx).outcome,
            FileCommandOutcome::Protected);
  t.ctx.sourceProtected = {false};
  EXPECT_EQ(File_Copying(t.model, t.a, target.string(), true, no, t.ctx).outcome,
            FileCommandOutcome::Unchanged);
  EXPECT_EQ(test::ReadBytes(target / "a.txt"), "old");
  int resets = 0;
  t.ctx.undoReset = [&] { ++resets; };
  EXPECT_EQ(File_Copying(t.model, t.a, target.string(), true, yes, t.ctx).outcome,
            FileCommandOutcome::Done);
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(test::ReadBytes(target / "a.txt"), "A");
  EXPECT_FALSE(fs::exists(t.pa));
  EXPECT_EQ(resets, 1);
  // The group had two rows; with one left it goes.
  EXPECT_EQ(t.model.GroupCount(), 0);
  EXPECT_EQ(t.model.DupCount(), 0);
}

TEST(FileCommands, TheComparisonProgramGetsEachPathAsOneArgument) {
  const auto argv =
      CompareCommandLine("meld \"%1\" '%2' --label=%5|%6 %3 %4", "/a b/x'1.txt", "/c/$HOME.txt");
  const std::vector<std::string> want = {
      "meld", "/a b/x'1.txt", "/c/$HOME.txt", "--label=x'1.txt|$HOME.txt", "/a b", "/c"};
  EXPECT_EQ(argv, want);
  EXPECT_TRUE(CompareCommandLine("   ", "/a", "/b").empty());

  // A real program, started detached, writes what it got.
  TwoFiles t("x y.txt", "z.txt");
  const fs::path out = t.dir / "args.txt";
  const fs::path script = t.dir.Write("cmp.sh",
                                      "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.tmp\"\n"
                                      "mv \"$0.tmp\" '" +
                                          out.string() + "'\n");
  fs::permissions(script, fs::perms::owner_all);
  std::string err;
  ASSERT_TRUE(File_Compare_Files(t.model, {t.a, t.b}, "'" + script.string() + "' %1 %2", &err))
      << err;
  for (int i = 0; i < 200 && !fs::exists(out); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(test::ReadBytes(out), t.pa.string() + "\n" + t.pb.string() + "\n");
  EXPECT_FALSE(File_Compare_Files(t.model, {t.a, t.b}, "no-such-program-kv %1", &err));
  EXPECT_NE(err.find("no-such-program-kv"), std::string::npos);
}

TEST(FileCommands, SearchWrapsAndReadsTheVisibleCells) {
  TwoFiles t("alpha.txt", "beta.txt");
  auto contains = [](std::string what) {
    return [what](std::string_view s) { return s.find(what) != std::string_view::npos; };
  };
  const int ia = t.model.IndexOf(t.a), ib = t.model.IndexOf(t.b);
  EXPECT_EQ(Report_Search(t.model, 0, {"__Tree"}, contains("beta")), ib);
  EXPECT_EQ(Report_Search(t.model, ib, {"__Tree"}, contains("alpha")), ia);  // wraps
  EXPECT_EQ(Report_Search(t.model, 0, {"RTFpath"}, contains("/two")), ib);
  EXPECT_EQ(Report_Search(t.model, 0, {"path"}, contains("nowhere")), -1);
}

}  // namespace
}  // namespace kelvor
