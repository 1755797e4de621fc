// The file manager on real trees: every action leaves exactly the unmarked
// file of each group as it was, changed files and kept copies are never
// touched, failures keep their rows marked, and a dry run changes nothing.

#include "results/file_manager.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "data/file_system.h"
#include "data/fs_tree.h"
#include "frame/error_text.h"
#include "frame/fake_prompt.h"
#include "frame/formats.h"
#include "frame/run_state.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

// Every entry below `root` with what a user would notice of it: the bytes
// and change time of a file, the target of a link, a folder as such.
std::map<std::string, std::string> TreeDigest(const fs::path& root) {
  std::map<std::string, std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    const std::string rel = fs::relative(it->path(), root).string();
    struct stat st {};
    ::lstat(it->path().c_str(), &st);
    if (S_ISLNK(st.st_mode)) {
      out[rel] = "L:" + fs::read_symlink(it->path()).string();
    } else if (S_ISDIR(st.st_mode)) {
      out[rel] = "D";
    } else {
      out[rel] = "F:" + test::ReadBytes(it->path()) + ":" + std::to_string(st.st_mtim.tv_sec) +
                 "." + std::to_string(st.st_mtim.tv_nsec) + ":" + std::to_string(st.st_ino);
    }
  }
  return out;
}

// A result of `groups` groups of `perGroup` equal files each, spread over
// folders a/, b/ and c/ of the source, as a search would have left it.
struct Fixture {
  TempDir dir;
  fs::path src;
  ResultModel model;
  std::vector<std::vector<std::string>> files;  // by group, in row order
  std::vector<std::string> lines;               // the action log as written
  FileManagerOptions o;
  FileManagerContext ctx;
  test::FakePrompt prompt;

  Fixture(int groups, int perGroup) : src(dir / "src") {
    ResultOptions ro;
    ro.SourceFolders = {src.string()};
    model.SetOptions(ro);
    model.Report_Create_Root_Node();
    for (int g = 0; g < groups; ++g) {
      const std::string content = "content of group " + std::to_string(g) + "\n";
      const int gn = model.AddGroupRow("group " + std::to_string(g),
                                       static_cast<std::int64_t>(content.size()));
      files.emplace_back();
      for (int f = 0; f < perGroup; ++f) {
        const std::string folder = std::string(1, static_cast<char>('a' + f % 3));
        const std::string name = "g" + std::to_string(g) + "_" + std::to_string(f) + ".txt";
        const fs::path p = dir.Write("src/" + folder + "/" + name, content);
        AddRow(gn, p, 1);
        files.back().push_back(p.string());
      }
    }
    o.LogNoActions = false;
    o.SecureHint = false;
    o.CreateSubfolder = false;
    ctx.prompt = &prompt;
    ctx.logLine = [this](std::string_view l, bool) { lines.emplace_back(l); };
    ctx.actionLog = dir / "log" / "actions.txt";
    ctx.sourceProtected = {false};
  }

  RowRef AddRow(int group, const fs::path& p, int qnr) {
    struct stat st {};
    ::stat(p.c_str(), &st);
    const RowRef r = model.AddFileRowRaw(group, p.filename().string(), p.parent_path().string(),
                                         st.st_size, qnr);
    model.SetCell(r, CellKey::dateVal, DateFromTimespec(st.st_mtim.tv_sec, st.st_mtim.tv_nsec));
    return r;
  }

  // Marks every file of every group but the first.
  void MarkAllButFirst() {
    model.ForEachGroup([&](RowRef g) {
      int i = 0;
      model.ForEachFile(g, [&](RowRef f) {
        if (i++ > 0) model.File_Select(f, true);
        return true;
      });
      model.Report_Set_Group_Checkbox_Image(g);
      return true;
    });
  }
  void MarkWholeGroup(int n) {
    const RowRef g = model.Child(model.RowByIndex(0), n);
    model.ForEachFile(g, [&](RowRef f) {
      if (!model.IsMarked(f)) model.File_Select(f, true);
      return true;
    });
    model.Report_Set_Group_Checkbox_Image(g);
  }

  FileManagerReport Run() { return Process_Selected_Files(model, o, ctx); }

  bool Logged(std::string_view part) const {
    for (const auto& l : lines)
      if (l.find(part) != std::string::npos) return true;
    return false;
  }
  int CountLogged(std::string_view part) const {
    int n = 0;
    for (const auto& l : lines)
      if (l.find(part) != std::string::npos) ++n;
    return n;
  }
  // The digest of the first (kept) file of each group.
  std::map<std::string, std::string> KeptDigest() const {
    std::map<std::string, std::string> d = TreeDigest(src), out;
    for (const auto& g : files) {
      const std::string rel = fs::relative(g.front(), src).string();
      out[rel] = d[rel];
    }
    return out;
  }
};

bool Exists(const std::string& p) {
  struct stat st {};
  return ::lstat(p.c_str(), &st) == 0;
}

// ----- the actions --------------------------------------------------------------------------

TEST(FileManager, DeleteLeavesExactlyTheUnmarkedFileOfEachGroup) {
  Fixture f(20, 3);
  f.MarkAllButFirst();
  const auto kept = f.KeptDigest();
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.marked, 40);
  EXPECT_EQ(rep.done, 40);
  EXPECT_TRUE(rep.AllTreated());
  for (const auto& g : f.files) {
    EXPECT_TRUE(Exists(g[0]));
    EXPECT_FALSE(Exists(g[1]));
    EXPECT_FALSE(Exists(g[2]));
  }
  EXPECT_EQ(f.KeptDigest(), kept);
  // Done rows left; the groups with one file stay (GruppenEntfernen off).
  EXPECT_EQ(f.model.DupCount(), 20);
  EXPECT_EQ(f.model.DupCountSelected(), 0);
  EXPECT_EQ(f.model.GroupCount(), 20);
  EXPECT_EQ(f.CountLogged("GELÖSCHT: "), 40);
  EXPECT_TRUE(f.Logged("Dateien gelöscht: 40 von 40"));
  EXPECT_TRUE(f.Logged("Aktion 'Dateien löschen' beendet."));
  // The action log on disk has the same lines.
  const std::string onDisk = test::ReadUtf16File(f.ctx.actionLog);
  EXPECT_NE(onDisk.find("Aktion 'Dateien löschen' gestartet."), std::string::npos);
  EXPECT_NE(onDisk.find("Dateien gelöscht: 40 von 40"), std::string::npos);
}

TEST(FileManager, GroupsWithOneFileLeaveWhenAsked) {
  Fixture f(3, 2);
  f.MarkAllButFirst();
  f.o.GruppenEntfernen = true;
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.groupsRemoved, 3);
  EXPECT_EQ(f.model.GroupCount(), 0);
  EXPECT_TRUE(f.Logged("Gruppen aus dem Suchergebnis entfernt: 3"));
}

TEST(FileManager, MoveAndCopyWithAndWithoutStructure) {
  for (const bool move : {false, true}) {
    for (const bool structure : {false, true}) {
      SCOPED_TRACE(std::string(move ? "move" : "copy") + (structure ? " with" : " without"));
      Fixture f(5, 3);
      f.MarkAllButFirst();
      const fs::path target = f.dir.Mkdir("target");
      f.o.Aktion = move ? FileAction::Move : FileAction::Copy;
      f.o.Ordner = target.string();
      f.o.Ordnerstruktur = structure;
      const auto kept = f.KeptDigest();
      const FileManagerReport rep = f.Run();
      EXPECT_EQ(rep.done, 10);
      EXPECT_EQ(f.KeptDigest(), kept);
      for (const auto& g : f.files) {
        for (std::size_t i = 1; i < g.size(); ++i) {
          EXPECT_EQ(Exists(g[i]), !move) << g[i];
          const fs::path rel =
              structure ? fs::path(g[i]).relative_path() : fs::path(g[i]).filename();
          EXPECT_TRUE(Exists((target / rel).string())) << (target / rel);
        }
      }
      EXPECT_EQ(f.CountLogged(move ? "VERSCHOBEN: " : "KOPIERT: "), 10);
    }
  }
}

TEST(FileManager, RenameWithTheDefaultMask) {
  Fixture f(4, 2);
  f.MarkAllButFirst();
  f.o.Aktion = FileAction::Rename;
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.done, 4);
  for (const auto& g : f.files) {
    EXPECT_TRUE(Exists(g[0]));
    EXPECT_FALSE(Exists(g[1]));
    const fs::path p(g[1]);
    EXPECT_TRUE(Exists((p.parent_path() / ("DUPLIKAT " + p.filename().string())).string()));
  }
  EXPECT_TRUE(f.Logged("UMBENANNT: "));
  EXPECT_EQ(RenameByMask("a.txt", "DUPLIKAT %1%2", 45000), "DUPLIKAT a.txt");
  EXPECT_EQ(RenameByMask("noext", "%1-copy%2", 45000), "noext-copy");
  EXPECT_EQ(RenameByMask("50%YY.txt", "%1_%YYYY%2", 45000), "50%YY_2023.txt");
}

TEST(FileManager, RenameNeverReplacesAFileOfTheNewName) {
  Fixture f(1, 2);
  f.MarkAllButFirst();
  f.o.Aktion = FileAction::Rename;
  const fs::path p(f.files[0][1]);
  const fs::path clash = f.dir.Write(
      fs::relative(p.parent_path() / ("DUPLIKAT " + p.filename().string()), f.dir.path()).string(),
      "someone else's file");
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.errors, 1);
  EXPECT_EQ(test::ReadBytes(clash), "someone else's file");
  EXPECT_TRUE(Exists(p.string()));
  EXPECT_EQ(f.model.DupCountSelected(), 1);
}

TEST(FileManager, HardLinksTakeThePlaceOfTheMarkedFiles) {
  Fixture f(6, 3);
  f.MarkAllButFirst();
  f.o.Link = LinkOption::Hardlink;
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.hardlinks, 12);
  EXPECT_EQ(rep.errors, 0);
  for (const auto& g : f.files) {
    struct stat s0 {
    }, s1{}, s2{};
    ASSERT_EQ(::stat(g[0].c_str(), &s0), 0);
    ASSERT_EQ(::stat(g[1].c_str(), &s1), 0);
    ASSERT_EQ(::stat(g[2].c_str(), &s2), 0);
    EXPECT_EQ(s0.st_ino, s1.st_ino);
    EXPECT_EQ(s0.st_ino, s2.st_ino);
    EXPECT_EQ(s0.st_nlink, 3u);
  }
  EXPECT_EQ(f.CountLogged("HARDLINK: "), 12);
  EXPECT_EQ(f.CountLogged("Hardlink-Quelldatei für Gruppe"), 6);
  EXPECT_TRUE(f.Logged("Hardlinks erstellt: 12"));
  // The kept rows show their new links.
  f.model.ForEachGroup([&](RowRef g) {
    const RowRef first = f.model.Child(g, 0);
    EXPECT_EQ(CellAsInt(f.model.Cell(first, CellKey::hardlinks)), 3);
    return true;
  });
}

TEST(FileManager, SymbolicLinksPointToTheKeptFile) {
  Fixture f(3, 2);
  f.MarkAllButFirst();
  f.o.Link = LinkOption::Shortcut;
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.errors, 0);
  EXPECT_EQ(rep.done, 3);
  for (const auto& g : f.files) {
    ASSERT_TRUE(fs::is_symlink(g[1]));
    EXPECT_EQ(fs::canonical(g[1]), fs::canonical(g[0]));
  }
  EXPECT_EQ(f.CountLogged("VERKNÜPFUNG: "), 3);
}

TEST(FileManager, TrashKeepsWhatTheDesktopNeedsToRestore) {
  Fixture f(3, 2);
  f.MarkAllButFirst();
  f.o.Aktion = FileAction::Trash;
  const fs::path home = f.dir / "home-data";
  f.ctx.trash = TrashOptions{home.string(), ::getuid()};
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.done, 3);
  EXPECT_EQ(f.CountLogged("PAPIERKORB: "), 3);
  for (const auto& g : f.files) {
    EXPECT_TRUE(Exists(g[0]));
    EXPECT_FALSE(Exists(g[1]));
    const std::string name = fs::path(g[1]).filename().string();
    const fs::path info = home / "Trash" / "info" / (name + ".trashinfo");
    ASSERT_TRUE(fs::exists(info)) << info;
    const std::string text = test::ReadBytes(info);
    EXPECT_EQ(text.rfind("[Trash Info]\n", 0), 0u);
    EXPECT_NE(text.find("Path=" + g[1] + "\n"), std::string::npos) << text;
    EXPECT_EQ(test::ReadBytes(home / "Trash" / "files" / name), test::ReadBytes(g[0]));
  }
}

// Builds the fixture's tree below `base` (TempDir takes its folder from
// TMPDIR).
std::unique_ptr<Fixture> FixtureIn(const fs::path& base, int groups, int perGroup) {
  const char* old = std::getenv("TMPDIR");
  const std::string keep = old ? old : "";
  ::setenv("TMPDIR", base.c_str(), 1);
  auto f = std::make_unique<Fixture>(groups, perGroup);
  if (old) {
    ::setenv("TMPDIR", keep.c_str(), 1);
  } else {
    ::unsetenv("TMPDIR");
  }
  return f;
}

TEST(FileManager, ReflinksShareBlocksWhereTheFileSystemCan) {
  {
    // Where the file system cannot share blocks every file is left as it
    // was, the reason logged, and counted as skipped.
    Fixture f(2, 2);
    f.MarkAllButFirst();
    f.o.Link = LinkOption::Reflink;
    const auto before = TreeDigest(f.src);
    const FileManagerReport rep = f.Run();
    if (!f.Logged("REFLINK: ")) {
      EXPECT_EQ(TreeDigest(f.src), before);
      EXPECT_EQ(rep.skipped, 2);
      EXPECT_EQ(f.CountLogged("konnte nicht erstellt werden!"), 2);
    }
  }
  TempDir base;
  test::LoopFileSystem xfs(base.path(), test::LoopFileSystem::Xfs);
  if (!xfs.mounted()) GTEST_SKIP() << "no XFS with reflinks can be mounted here";
  auto f = FixtureIn(xfs.path(), 3, 3);
  f->MarkAllButFirst();
  f->o.Link = LinkOption::Reflink;
  std::map<std::string, struct stat> before;
  for (const auto& g : f->files)
    for (const auto& p : g) ::stat(p.c_str(), &before[p]);
  const FileManagerReport rep = f->Run();
  EXPECT_EQ(rep.done, 6);
  EXPECT_EQ(f->CountLogged("REFLINK: "), 6);
  for (const auto& g : f->files) {
    for (std::size_t i = 1; i < g.size(); ++i) {
      struct stat st {};
      ASSERT_EQ(::stat(g[i].c_str(), &st), 0);
      // The file keeps its name, inode and dates; only its blocks are shared.
      EXPECT_EQ(st.st_ino, before[g[i]].st_ino);
      EXPECT_EQ(st.st_mtim.tv_sec, before[g[i]].st_mtim.tv_sec);
      EXPECT_EQ(test::ReadBytes(g[i]), test::ReadBytes(g[0]));
    }
  }
}

TEST(FileManager, MoveToAnotherFileSystem) {
  TempDir base;
  test::SecondFileSystem tmpfs(base / "other");
  KELVOR_NEED_SECOND_FS(tmpfs);
  Fixture f(4, 2);
  f.MarkAllButFirst();
  f.o.Aktion = FileAction::Move;
  f.o.Ordner = tmpfs.path().string();
  f.o.Ordnerstruktur = false;
  std::map<std::string, std::string> content;
  for (const auto& g : f.files) content[g[1]] = test::ReadBytes(g[1]);
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.done, 4);
  for (const auto& g : f.files) {
    EXPECT_FALSE(Exists(g[1]));
    EXPECT_EQ(test::ReadBytes(tmpfs.path() / fs::path(g[1]).filename()), content[g[1]]);
  }
}

TEST(FileManager, The1024thLinkIsTheLast) {
  Fixture f(1, 1026);
  f.MarkAllButFirst();
  f.o.Link = LinkOption::Hardlink;
  f.o.LogNoActions = true;
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.hardlinks, 1023);
  EXPECT_EQ(rep.skipped, 2);
  EXPECT_EQ(f.CountLogged("Die maximale Anzahl von 1024 Hardlinks"), 2);
  struct stat s0 {};
  ASSERT_EQ(::stat(f.files[0][0].c_str(), &s0), 0);
  EXPECT_EQ(s0.st_nlink, 1024u);
}

// ----- what is never touched ----------------------------------------------------------------

TEST(FileManager, AFileChangedAfterTheSearchIsLeftAlone) {
  for (const FileAction a : {FileAction::Delete, FileAction::Trash, FileAction::Move}) {
    SCOPED_TRACE(static_cast<int>(a));
    Fixture f(2, 2);
    f.MarkAllButFirst();
    f.o.Aktion = a;
    f.o.Ordner = f.dir.Mkdir("target").string();
    f.ctx.trash = TrashOptions{(f.dir / "home-data").string(), ::getuid()};
    f.dir.Write(fs::relative(f.files[1][1], f.dir.path()).string(), "grown since the search\n");
    const FileManagerReport rep = f.Run();
    EXPECT_EQ(rep.skipped, 1);
    EXPECT_EQ(rep.done, 1);
    EXPECT_EQ(test::ReadBytes(f.files[1][1]), "grown since the search\n");
    EXPECT_TRUE(f.Logged("wurde nach der Suche verändert"));
    EXPECT_FALSE(rep.AllTreated());
    EXPECT_EQ(f.model.DupCountSelected(), 1);
  }
}

TEST(FileManager, ALinkIsNotMadeToAKeptFileThatChanged) {
  Fixture f(2, 3);
  f.MarkAllButFirst();
  f.o.Link = LinkOption::Hardlink;
  test::SetMtime(f.files[0][0], 1000000000);
  const auto before = TreeDigest(f.src);
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.skipped, 2);
  EXPECT_EQ(rep.hardlinks, 2);  // the other group
  for (std::size_t i = 1; i < 3; ++i) {
    const std::string rel = fs::relative(f.files[0][i], f.src).string();
    EXPECT_EQ(TreeDigest(f.src)[rel], before.at(rel));
  }
}

TEST(FileManager, AGroupWithAllFilesMarkedIsLeftWhole) {
  Fixture f(3, 3);
  f.MarkAllButFirst();
  f.MarkWholeGroup(1);
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.groupsAllMarked, 1);
  EXPECT_EQ(rep.skipped, 3);
  for (const auto& p : f.files[1]) EXPECT_TRUE(Exists(p));
  EXPECT_FALSE(Exists(f.files[0][1]));
  EXPECT_TRUE(f.Logged("Gruppen mit allen Dateien ausgewählt: 1"));
  EXPECT_TRUE(f.Logged("Übersprungene Dateien: 3"));

  // Copying takes the group all the same.
  Fixture c(2, 2);
  c.MarkWholeGroup(0);
  c.o.Aktion = FileAction::Copy;
  c.o.Ordner = c.dir.Mkdir("target").string();
  c.o.Ordnerstruktur = false;
  EXPECT_EQ(c.Run().done, 2);
}

TEST(FileManager, AllMarkedIsReadFromTheMarksNotFromAStaleCheckBox) {
  Fixture f(2, 2);
  // Marks set without the group's check box being brought up to date.
  f.model.ForEachGroup([&](RowRef g) {
    f.model.ForEachFile(g, [&](RowRef r) {
      f.model.File_Select(r, true);
      return true;
    });
    return true;
  });
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.done, 0);
  EXPECT_EQ(rep.groupsAllMarked, 2);
  for (const auto& g : f.files)
    for (const auto& p : g) EXPECT_TRUE(Exists(p));
}

TEST(FileManager, AFolderGivenTwiceNeverLosesItsOnlyCopy) {
  // The same files found through two source folders: /src and a link to it.
  Fixture f(0, 0);
  const fs::path a = f.dir.Write("src/a/one.txt", "only copy\n");
  fs::create_directory_symlink(f.dir / "src", f.dir / "again");
  ResultOptions ro;
  ro.SourceFolders = {f.src.string(), (f.dir / "again").string()};
  f.model.SetOptions(ro);
  f.model.Report_Create_Root_Node();
  const int g = f.model.AddGroupRow("one.txt", 10);
  f.AddRow(g, a, 1);
  const RowRef second = f.AddRow(g, f.dir / "again" / "a" / "one.txt", 2);
  f.model.File_Select(second, true);
  f.model.Report_Set_Group_Checkbox_Image(f.model.GroupRowByNumber(g));
  f.ctx.sourceProtected = {false, false};
  for (const FileAction act : {FileAction::Delete, FileAction::Trash, FileAction::Move}) {
    f.o.Aktion = act;
    f.o.Ordner = f.dir.Mkdir("target").string();
    const FileManagerReport rep = f.Run();
    EXPECT_EQ(rep.done, 0);
    EXPECT_EQ(rep.skipped, 1);
    EXPECT_EQ(test::ReadBytes(a), "only copy\n");
  }
  f.o.Aktion = FileAction::Delete;
  f.o.Link = LinkOption::Hardlink;
  EXPECT_EQ(f.Run().done, 0);
  EXPECT_EQ(test::ReadBytes(a), "only copy\n");
}

TEST(FileManager, ProtectedSourceFoldersAreCopiedButNotDeleted) {
  Fixture f(2, 2);
  f.MarkAllButFirst();
  f.ctx.sourceProtected = {true};
  FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.protectedFiles, 2);
  EXPECT_EQ(rep.done, 0);
  for (const auto& g : f.files) EXPECT_TRUE(Exists(g[1]));
  EXPECT_TRUE(f.Logged("Dateien geschützt: 2"));
  f.o.Aktion = FileAction::Copy;
  f.o.Ordner = f.dir.Mkdir("target").string();
  rep = f.Run();
  EXPECT_EQ(rep.done, 2);
}

TEST(FileManager, FoldersLeftEmptyGoButNotTheirParents) {
  Fixture f(0, 0);
  f.model.Report_Create_Root_Node();
  const int g = f.model.AddGroupRow("x", 4);
  f.AddRow(g, f.dir.Write("src/keep/x.txt", "same"), 1);
  const RowRef a = f.AddRow(g, f.dir.Write("src/deep/empty/x.txt", "same"), 1);
  const RowRef b = f.AddRow(g, f.dir.Write("src/full/x.txt", "same"), 1);
  f.dir.Write("src/full/other.txt", "stays");
  f.model.File_Select(a, true);
  f.model.File_Select(b, true);
  f.o.DelEmptyFolders = true;
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.done, 2);
  EXPECT_EQ(rep.emptyFoldersRemoved, 1);
  EXPECT_FALSE(fs::exists(f.dir / "src/deep/empty"));
  EXPECT_TRUE(fs::exists(f.dir / "src/deep"));
  EXPECT_TRUE(fs::exists(f.dir / "src/full/other.txt"));
  EXPECT_TRUE(f.Logged("Leere Ordner gelöscht: 1"));
}

TEST(FileManager, AFileGoneSinceTheSearchJustLeavesTheResult) {
  Fixture f(1, 3);
  f.MarkAllButFirst();
  fs::remove(f.files[0][2]);
  const FileManagerReport rep = f.Run();
  EXPECT_EQ(rep.errors, 0);
  EXPECT_EQ(rep.done, 1);
  EXPECT_EQ(rep.treated, 1);
  EXPECT_EQ(f.model.DupCount(), 1);
}

TEST(FileManager, DryRunTouchesNothingAndSaysWhatWouldHappen) {
  for (const LinkOption link : {LinkOption::None, LinkOption::Hardlink}) {
    Fixture f(4, 3);
    f.MarkAllButFirst();
    f.o.DryRun = true;
    f.o.Link = link;
    f.o.LogNoActions = true;  // the lines of a dry run are written all the same
    const auto before = TreeDigest(f.dir.path());
    const FileManagerReport rep = f.Run();
    EXPECT_EQ(rep.done, 8);
    EXPECT_EQ(f.model.DupCount(), 12);
    EXPECT_EQ(f.model.DupCountSelected(), 8);
    auto after = TreeDigest(f.dir.path());
    after.erase("log");
    after.erase("log/actions.txt");
    EXPECT_EQ(after, before);
    EXPECT_EQ(f.CountLogged("TESTLAUF, es wird nichts verändert: GELÖSCHT: "), 8);
    if (link == LinkOption::Hardlink) {
      EXPECT_EQ(f.CountLogged("HARDLINK: "), 8);
    }
  }
}

// ----- failures at every step -------------------------------------------------------------

struct ActionCase {
  const char* name;
  FileAction action;
  LinkOption link;
};

void PrintTo(const ActionCase& c, std::ostream* os) {
  *os << c.name;
}

class FileManagerFaults : public ::testing::TestWithParam<ActionCase> {};

// The n-th call of the file-system layer fails, for every n the action
// reaches: the kept files never change, a row that stays marked still has
// its file as it was, and every failure is in the log with the system's text.
TEST_P(FileManagerFaults, AFailedStepLosesNothing) {
  const ActionCase c = GetParam();
  static constexpr int kErrors[] = {EACCES, EPERM, ENOSPC, EXDEV, EROFS, ENOENT, EEXIST, EIO};
  for (int n = 1; n <= 60; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    Fixture f(3, 3);
    f.MarkAllButFirst();
    f.o.Aktion = c.action;
    f.o.Link = c.link;
    f.o.Ordner = f.dir.Mkdir("target").string();
    f.o.IfErrorDontAskToAbort = true;
    f.ctx.trash = TrashOptions{(f.dir / "home-data").string(), ::getuid()};
    const int err = kErrors[n % 8];
    const auto kept = f.KeptDigest();
    const auto before = TreeDigest(f.src);
    FileSystemFaults faults;
    faults.FailNth(FsCall::Any, n, err);
    FileManagerReport rep;
    {
      FileSystemFaults::Scope scope(&faults);
      rep = f.Run();
    }
    EXPECT_EQ(f.KeptDigest(), kept);
    // Rows still marked: their files are there, as they were.
    int stillMarked = 0;
    f.model.ForEachGroup([&](RowRef g) {
      f.model.ForEachFile(g, [&](RowRef r) {
        if (!f.model.IsMarked(r)) return true;
        ++stillMarked;
        const std::string p = f.model.File_GetPathFromNode(r);
        const std::string rel = fs::relative(p, f.src).string();
        EXPECT_EQ(TreeDigest(f.src)[rel], before.at(rel)) << p;
        return true;
      });
      return true;
    });
    // Done rows leave the result; so does a row whose file the injected
    // ENOENT showed as gone. Every other row stays, marked.
    EXPECT_EQ(stillMarked, rep.marked - rep.filesRemoved);
    if (err != ENOENT) {
      EXPECT_EQ(rep.filesRemoved, rep.done) << "errors " << rep.errors << " err " << err;
    }
    if (rep.errors > 0) {
      EXPECT_TRUE(f.Logged(ErrorText(err))) << ErrorText(err);
      EXPECT_TRUE(f.Logged("Fehleranzahl: "));
    }
    if (faults.Fired() == 0) break;  // the action no longer reaches the n-th call
  }
}

INSTANTIATE_TEST_SUITE_P(
    EveryAction, FileManagerFaults,
    ::testing::Values(ActionCase{"delete", FileAction::Delete, LinkOption::None},
                      ActionCase{"trash", FileAction::Trash, LinkOption::None},
                      ActionCase{"move", FileAction::Move, LinkOption::None},
                      ActionCase{"copy", FileAction::Copy, LinkOption::None},
                      ActionCase{"rename", FileAction::Rename, LinkOption::None},
                      ActionCase{"hardlink", FileAction::Delete, LinkOption::Hardlink},
                      ActionCase{"symlink", FileAction::Delete, LinkOption::Shortcut},
                      ActionCase{"move_hardlink", FileAction::Move, LinkOption::Hardlink}),
    [](const ::testing::TestParamInfo<ActionCase>& i) { return std::string(i.param.name); });

// Killed at any moment of a hard-link replacement, the tree has lost
// nothing: every path holds its old file or a link to its group's kept file.
TEST(FileManager, KilledDuringHardLinkReplacementLosesNoFile) {
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE(round);
    Fixture f(250, 5);
    f.MarkAllButFirst();
    f.o.Link = LinkOption::Hardlink;
    f.o.LogNoActions = true;
    f.ctx.logLine = {};
    f.ctx.actionLog.clear();
    std::map<std::string, std::string> content;
    for (const auto& g : f.files)
      for (const auto& p : g) content[p] = test::ReadBytes(p);
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      Process_Selected_Files(f.model, f.o, f.ctx);
      ::_exit(0);
    }
    // A different moment each round, from the start to well into the walk.
    ::usleep(static_cast<useconds_t>(round * 10000));
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    for (const auto& g : f.files) {
      struct stat kept {};
      ASSERT_EQ(::lstat(g[0].c_str(), &kept), 0) << g[0];
      for (const auto& p : g) {
        struct stat st {};
        ASSERT_EQ(::lstat(p.c_str(), &st), 0) << p << " is lost";
        ASSERT_TRUE(S_ISREG(st.st_mode)) << p;
        if (st.st_ino != kept.st_ino) {
          EXPECT_EQ(test::ReadBytes(p), content[p]) << p;
        }
      }
    }
  }
}

TEST(FileManager, AFailureIsAskedAboutAndYesStops) {
  Fixture f(4, 2);
  f.MarkAllButFirst();
  FileSystemFaults faults;
  faults.Fail(FsCall::DeleteFile, "", EACCES);
  f.prompt.answers = {false, true};
  FileManagerReport rep;
  {
    FileSystemFaults::Scope scope(&faults);
    rep = f.Run();
  }
  EXPECT_TRUE(rep.stopped);
  EXPECT_EQ(rep.errors, 2);
  ASSERT_EQ(f.prompt.questions.size(), 2u);
  EXPECT_NE(f.prompt.questions[0].find("Soll der Vorgang abgebrochen werden?"), std::string::npos);
  EXPECT_NE(f.prompt.questions[0].find("konnte nicht gelöscht werden"), std::string::npos);
  EXPECT_EQ(f.model.DupCountSelected(), 4);
  for (const auto& g : f.files) EXPECT_TRUE(Exists(g[1]));
}

// ----- questions, stops and the log -----------------------------------------------------

TEST(FileManager, NothingMarkedOrNoTargetFolderIsRefused) {
  Fixture f(2, 2);
  EXPECT_TRUE(f.Run().refused);
  ASSERT_EQ(f.prompt.messages.size(), 1u);
  EXPECT_EQ(f.prompt.messages[0], "Es sind keine Dateien ausgewählt!");
  f.MarkAllButFirst();
  f.o.Aktion = FileAction::Move;
  f.o.Ordner = (f.dir / "missing").string();
  EXPECT_TRUE(f.Run().refused);
  EXPECT_NE(f.prompt.messages.back().find("konnte nicht gefunden werden"), std::string::npos);
  for (const auto& g : f.files) EXPECT_TRUE(Exists(g[1]));
}

TEST(FileManager, TheSafetyQuestionAnsweredNoEndsAll) {
  Fixture f(2, 2);
  f.MarkAllButFirst();
  f.o.SecureHint = true;
  f.prompt.answers = {false};
  EXPECT_TRUE(f.Run().refused);
  ASSERT_EQ(f.prompt.questions.size(), 1u);
  EXPECT_NE(f.prompt.questions[0].find("Soll die Aktion 'Dateien löschen' durchgeführt werden?"),
            std::string::npos);
  for (const auto& g : f.files) EXPECT_TRUE(Exists(g[1]));
}

TEST(FileManager, LinksInAGroupWithAllFilesMarkedAskOnce) {
  Fixture f(3, 2);
  f.MarkAllButFirst();
  f.MarkWholeGroup(2);
  f.o.Link = LinkOption::Hardlink;
  f.o.IgnoreGroupsAllFilesSelected = false;
  f.prompt.answers = {true};  // stop
  const FileManagerReport rep = f.Run();
  EXPECT_TRUE(rep.stopped);
  EXPECT_EQ(f.prompt.questions.size(), 1u);
  EXPECT_EQ(rep.done, 0);  // the last group comes first; the run ended there
  for (const auto& g : f.files)
    for (const auto& p : g) EXPECT_TRUE(Exists(p));
  EXPECT_TRUE(f.Logged("wurde abgebrochen"));
}

TEST(FileManager, AStopBetweenFilesLeavesTheRestAlone) {
  Fixture f(5, 2);
  f.MarkAllButFirst();
  RunState run;
  f.ctx.run = &run;
  int seen = 0;
  f.ctx.logLine = [&](std::string_view l, bool) {
    f.lines.emplace_back(l);
    if (l.find("GELÖSCHT: ") != std::string_view::npos && ++seen == 2) run.RequestStop(kStopUser);
  };
  const FileManagerReport rep = f.Run();
  EXPECT_TRUE(rep.stopped);
  EXPECT_EQ(rep.done, 2);
  EXPECT_EQ(f.model.DupCountSelected(), 3);
}

TEST(FileManager, UndoIsResetOnlyAfterAFileWasDone) {
  int resets = 0;
  {
    Fixture f(2, 2);
    f.MarkAllButFirst();
    f.ctx.undoReset = [&] { ++resets; };
    f.o.DryRun = true;
    f.Run();
    EXPECT_EQ(resets, 0);
    f.o.DryRun = false;
    f.Run();
    EXPECT_EQ(resets, 1);
  }
}

TEST(FileManager, SubfolderMaskKeepsQuotedTextFromTheDateFormat) {
  const double d = 45123.5 + 1.0 / 24 / 60 * 7;  // 2023-07-16 12:07:00
  EXPECT_EQ(FormatSubfolderMask("\"kept/\"YYYY-MM-DD HH-NN-SS", d), "kept/2023-07-16 12-07-00");
  EXPECT_EQ(FormatSubfolderMask("\"YYYY\"yy", d), "YYYY23");
  FileManagerOptions o;
  o.Ordner = "/t";
  o.CreateSubfolderText = "\"sub\"YYYY";
  EXPECT_EQ(FileManagerTargetPath(o, d), "/t/sub2023");
  o.CreateSubfolder = false;
  EXPECT_EQ(FileManagerTargetPath(o, d), "/t");
}

}  // namespace
}  // namespace kelvor
