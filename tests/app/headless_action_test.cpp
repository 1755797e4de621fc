// --action, --dry-run and --set of the headless front end: the words it
// takes, the exit codes a script sees, the action log it names.

#include "headless/action.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "frame/formats.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "headless/headless.h"
#include "results/result_model.h"
#include "search/source_folders.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

TEST(HeadlessAction, ActionWordsSetTheKeysOfSectionAktionen) {
  ActionRequest r;
  std::string e;
  ASSERT_TRUE(ParseActionRequest("move:/backup/dups", &r, &e));
  SettingsStore s;
  for (const auto& [k, v] : r.settings) s.Set("Aktionen", k, v);
  EXPECT_EQ(s.Get("Aktionen", "Aktion"), "2");
  EXPECT_EQ(s.Get("Aktionen", "Ordner"), "/backup/dups");
  ASSERT_TRUE(ParseActionRequest("hardlink", &r, &e));
  for (const auto& [k, v] : r.settings) s.Set("Aktionen", k, v);
  EXPECT_EQ(s.Get("Aktionen", "Aktion"), "0");
  EXPECT_EQ(s.Get("Aktionen", "OptionHardlink"), "1");
  ASSERT_TRUE(ParseActionRequest("rename:OLD %1%2", &r, &e));
  for (const auto& [k, v] : r.settings) s.Set("Aktionen", k, v);
  EXPECT_EQ(s.Get("Aktionen", "Rename"), "OLD %1%2");
  for (const char* bad : {"", "remove", "move", "copy:", "delete:x"}) {
    EXPECT_FALSE(ParseActionRequest(bad, &r, &e)) << bad;
    EXPECT_NE(e.find("--action takes"), std::string::npos);
  }
  std::pair<std::string, std::string> kv;
  EXPECT_TRUE(ParseSetting("Aktionen.ordnerstruktur=0", &kv, &e));
  EXPECT_EQ(kv.second, "0");
  EXPECT_FALSE(ParseSetting("Aktionen.NoSuchKey=1", &kv, &e));
  EXPECT_FALSE(ParseSetting("Optionen.Ordner=1", &kv, &e));
  EXPECT_FALSE(ParseSetting("Aktionen.Ordner", &kv, &e));
}

// A result over a real tree: `groups` groups of two equal files, the second
// of each marked.
struct ActionRun {
  TempDir dir;
  ResultModel model;
  SettingsStore settings;
  AppPaths paths;
  TextCatalog texts;
  NullProgressSink progress;
  RunState run;
  std::ostringstream out, err;
  std::vector<SourceFolderRow> sources;
  std::vector<fs::path> marked, kept;

  explicit ActionRun(int groups) {
    ResultOptions ro;
    ro.SourceFolders = {(dir / "src").string()};
    model.SetOptions(ro);
    model.Report_Create_Root_Node();
    for (int g = 0; g < groups; ++g) {
      const int gn = model.AddGroupRow("g" + std::to_string(g), 4);
      for (int i = 0; i < 2; ++i) {
        const fs::path p =
            dir.Write("src/" + std::to_string(i) + "/f" + std::to_string(g) + ".txt", "same");
        struct stat st {};
        ::stat(p.c_str(), &st);
        const RowRef r =
            model.AddFileRowRaw(gn, p.filename().string(), p.parent_path().string(), 4, 1);
        model.SetCell(r, CellKey::dateVal, DateFromTimespec(st.st_mtim.tv_sec, st.st_mtim.tv_nsec));
        if (i == 1) {
          model.File_Select(r, true);
          marked.push_back(p);
        } else {
          kept.push_back(p);
        }
      }
      model.Report_Set_Group_Checkbox_Image(model.GroupRowByNumber(gn));
    }
    paths.logFolder = dir / "log";
    SourceFolderRow row;
    row.path = (dir / "src").string();
    sources.push_back(row);
  }
  int Action(const std::string& what, bool dryRun = false,
             std::vector<std::pair<std::string, std::string>> extra = {}) {
    ActionRequest req;
    std::string e;
    EXPECT_TRUE(ParseActionRequest(what, &req, &e)) << e;
    req.dryRun = dryRun;
    req.extra = std::move(extra);
    return RunHeadlessAction(req, model, settings, sources, paths, std::nullopt, texts, progress,
                             run, out, err);
  }
};

TEST(HeadlessAction, ExitCodesTellWhetherEveryMarkedFileWasTreated) {
  {
    ActionRun r(3);
    EXPECT_EQ(r.Action("delete"), kActionDone);
    for (const auto& p : r.marked) EXPECT_FALSE(fs::exists(p));
    for (const auto& p : r.kept) EXPECT_TRUE(fs::exists(p));
    EXPECT_NE(
        r.err.str().find("kelvor: action log " + (r.paths.logFolder / "actions.txt").string()),
        std::string::npos);
    EXPECT_NE(
        test::ReadUtf16File(r.paths.logFolder / "actions.txt").find("Dateien gelöscht: 3 von 3"),
        std::string::npos);
  }
  {
    ActionRun r(3);
    r.dir.Write(fs::relative(r.marked[1], r.dir.path()).string(), "changed");
    EXPECT_EQ(r.Action("trash", false, {{"CheckUnchanged", "1"}}), kActionIncomplete);
    EXPECT_TRUE(fs::exists(r.marked[1]));
  }
  {
    ActionRun r(2);
    r.run.RequestStop(kStopUser);
    EXPECT_EQ(r.Action("delete"), kActionStopped);
    for (const auto& p : r.marked) EXPECT_TRUE(fs::exists(p));
  }
  {
    ActionRun r(2);
    r.sources[0].protect = true;
    EXPECT_EQ(r.Action("delete"), kActionIncomplete);
    for (const auto& p : r.marked) EXPECT_TRUE(fs::exists(p));
  }
  {
    ActionRun r(2);
    EXPECT_EQ(r.Action("move:" + (r.dir / "missing").string()), kActionRefused);
  }
}

TEST(HeadlessAction, DryRunAndSettingsFromTheCommandLine) {
  ActionRun r(2);
  EXPECT_EQ(r.Action("hardlink", true), kActionDone);
  for (const auto& p : r.marked) {
    struct stat st {};
    ASSERT_EQ(::stat(p.c_str(), &st), 0);
    EXPECT_EQ(st.st_nlink, 1u);
  }
  const std::string log = test::ReadUtf16File(r.paths.logFolder / "actions.txt");
  EXPECT_NE(log.find("TESTLAUF, es wird nichts verändert: HARDLINK: "), std::string::npos);
  // --set comes after the action's own keys: the copy keeps no structure.
  const fs::path target = r.dir.Mkdir("target");
  EXPECT_EQ(r.Action("copy:" + target.string(), false,
                     {{"Ordnerstruktur", "0"}, {"CreateSubfolder", "0"}}),
            kActionDone);
  EXPECT_TRUE(fs::exists(target / "f0.txt"));
  EXPECT_TRUE(fs::exists(target / "f1.txt"));
}

TEST(HeadlessAction, MembersOfAZipAreDeletedWith7Zip) {
  const auto tool = FindSevenZip(AppPaths{});
  if (!tool) GTEST_SKIP() << "7-Zip is not installed";
  ActionRun r(1);
  r.dir.Write("in/sub/m.txt", "same");
  const fs::path zip = r.dir / "src" / "a.zip";
  ASSERT_EQ(std::system(("cd '" + (r.dir / "in").string() + "' && '" + tool->string() + "' a -y '" +
                         zip.string() + "' sub >/dev/null")
                            .c_str()),
            0);
  const RowRef m = r.model.AddFileRowRaw(0, "m.txt", zip.string(), 4, 1);
  r.model.SetCell(m, CellKey::archiv, std::int64_t{1});  // zip
  r.model.SetCell(m, CellKey::pathA, std::string("sub"));
  r.model.File_Select(m, true);
  ActionRequest req;
  std::string e;
  ASSERT_TRUE(ParseActionRequest("delete", &req, &e));
  req.extra = {{"LogNoActions", "0"}};
  EXPECT_EQ(RunHeadlessAction(req, r.model, r.settings, r.sources, r.paths, tool, r.texts,
                              r.progress, r.run, r.out, r.err),
            kActionDone);
  const std::string log = test::ReadUtf16File(r.paths.logFolder / "actions.txt");
  EXPECT_NE(log.find("GELÖSCHT: " + zip.string() + "/sub/m.txt"), std::string::npos) << log;
  EXPECT_EQ(
      std::system(("'" + tool->string() + "' l '" + zip.string() + "' | grep -q m.txt").c_str()),
      256);
  EXPECT_TRUE(fs::exists(zip));
}

// The real binary: without marks nothing is done, and bad words are refused.
TEST(HeadlessAction, TheBinaryRefusesWithoutMarksAndTellsItsExitCodes) {
  const char* bin = std::getenv("KELVOR_BIN");
  if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
  TempDir t;
  const fs::path a = t.Write("tree/a/x.txt", "dup"), b = t.Write("tree/b/x.txt", "dup");
  auto run = [&](const std::string& args) {
    const std::string cmd = "timeout -k 5 60 '" + std::string(bin) + "' --data-dir '" +
                            (t / "kdata").string() + "' --headless " + args + " '" +
                            (t / "tree").string() + "' >/dev/null 2>'" + (t / "err.txt").string() +
                            "' </dev/null";
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  EXPECT_EQ(run("-s3 --action delete"), 1);
  EXPECT_NE(test::ReadBytes(t / "err.txt").find("Es sind keine Dateien ausgewählt!"),
            std::string::npos);
  EXPECT_TRUE(fs::exists(a));
  EXPECT_TRUE(fs::exists(b));
  EXPECT_EQ(run("-s3 --action shred"), 1);
  EXPECT_NE(test::ReadBytes(t / "err.txt").find("--action takes"), std::string::npos);
  EXPECT_EQ(run("-s3 --action delete --set Aktionen.Nope=1"), 1);
  EXPECT_NE(HelpText().find("2 with --action"), std::string::npos);
}

}  // namespace
}  // namespace kelvor
