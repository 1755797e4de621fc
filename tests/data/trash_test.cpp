// The freedesktop.org trash: what the desktop's tools find there, and a file
// restored by moving it back.

#include "data/trash.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "fs_tree.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::ReadBytes;
using test::TempDir;

bool Exists(const std::string& p) {
  struct stat st {};
  return ::lstat(p.c_str(), &st) == 0;
}

TrashOptions Home(const TempDir& d) {
  TrashOptions o;
  o.dataHome = (d / "xdg").string();
  o.uid = ::getuid();
  return o;
}

// The two keys of a .trashinfo as a reader of the format takes them.
struct TrashInfo {
  std::string path;
  std::string date;
};
TrashInfo ReadInfo(const std::string& file) {
  const std::string text = ReadBytes(file);
  EXPECT_EQ(text.rfind("[Trash Info]\n", 0), 0u) << text;
  std::smatch m;
  TrashInfo info;
  static const std::regex kPath("\nPath=([^\n]*)\n");
  static const std::regex kDate("\nDeletionDate=([^\n]*)\n");
  if (std::regex_search(text, m, kPath)) info.path = m[1];
  if (std::regex_search(text, m, kDate)) info.date = m[1];
  EXPECT_TRUE(std::regex_match(info.date, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)")))
      << info.date;
  // Only letters, digits, "-_.~/" and %XX: no blank, no line break.
  EXPECT_TRUE(std::regex_match(info.path, std::regex(R"(([A-Za-z0-9\-_.~/]|%[0-9A-F]{2})*)")))
      << info.path;
  return info;
}

TEST(Trash, OddNamesGoToTheHomeTrashAndComeBackByTheirInfo) {
  TempDir d;
  const std::vector<std::string> names = {"plain.txt",       "with blanks .txt", "line\nbreak",
                                          "bad\xff\xfeutf8", "-leading-dash",    "Ümlaut%25.txt"};
  for (const std::string& name : names) {
    const std::string path = d.Write("files/" + name, "bytes of " + name).string();
    const TrashResult r = MoveToTrash(path, Home(d));
    ASSERT_TRUE(r.ok()) << r.errorText;
    EXPECT_FALSE(Exists(path));
    EXPECT_EQ(r.trashedAs, (d / "xdg/Trash/files" / name).string());
    EXPECT_EQ(r.infoFile, (d / "xdg/Trash/info" / (name + ".trashinfo")).string());
    const TrashInfo info = ReadInfo(r.infoFile);
    EXPECT_EQ(TrashPercentDecode(info.path), path);  // absolute in the home trash
    // Restoring as the desktop does: the file back to its Path, the info gone.
    ASSERT_EQ(::rename(r.trashedAs.c_str(), TrashPercentDecode(info.path).c_str()), 0);
    ::unlink(r.infoFile.c_str());
    EXPECT_EQ(ReadBytes(path), "bytes of " + name);
  }
  EXPECT_EQ(TrashPercentEncode("/a b/c\n%"), "/a%20b/c%0A%25");
}

TEST(Trash, ASecondFileOfTheSameNameGetsItsOwnName) {
  TempDir d;
  const std::string a = d.Write("x/photo.jpg", "first").string();
  const std::string b = d.Write("y/photo.jpg", "second").string();
  const std::string c = d.Write("z/.hidden", "h1").string();
  const std::string e = d.Write("w/.hidden", "h2").string();
  ASSERT_TRUE(MoveToTrash(a, Home(d)).ok());
  const TrashResult r = MoveToTrash(b, Home(d));
  ASSERT_TRUE(r.ok()) << r.errorText;
  EXPECT_EQ(r.trashedAs, (d / "xdg/Trash/files/photo.2.jpg").string());
  EXPECT_EQ(ReadBytes(r.trashedAs), "second");
  EXPECT_EQ(TrashPercentDecode(ReadInfo(r.infoFile).path), b);
  EXPECT_EQ(ReadBytes(d / "xdg/Trash/files/photo.jpg"), "first");
  ASSERT_TRUE(MoveToTrash(c, Home(d)).ok());
  EXPECT_EQ(MoveToTrash(e, Home(d)).trashedAs, (d / "xdg/Trash/files/.hidden.2").string());
  // A file in files/ without its info (left by a crash of another program)
  // is not replaced.
  const std::string f = d.Write("v/left", "new").string();
  d.Write("xdg/Trash/files/left", "orphan");
  const TrashResult o = MoveToTrash(f, Home(d));
  ASSERT_TRUE(o.ok()) << o.errorText;
  EXPECT_EQ(ReadBytes(d / "xdg/Trash/files/left"), "orphan");
  EXPECT_EQ(o.trashedAs, (d / "xdg/Trash/files/left.2").string());
  EXPECT_FALSE(Exists((d / "xdg/Trash/info/left.trashinfo").string()));
}

TEST(Trash, OnAnotherMountTheMountsOwnTrashTakesTheFile) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const std::string uid = std::to_string(::getuid());
  const std::string top = other.path().string();
  std::filesystem::create_directories(other.path() / "music/old");
  const std::string file = top + "/music/old/song 1.mp3";
  std::FILE* f = std::fopen(file.c_str(), "w");
  std::fputs("la la", f);
  std::fclose(f);

  const TrashLocation loc = FindTrashFor(file, Home(d));
  ASSERT_TRUE(loc.available) << loc.errorText;
  EXPECT_EQ(loc.drive, top);
  EXPECT_EQ(loc.trashDir, top + "/.Trash-" + uid);
  struct stat st {};
  ASSERT_EQ(::lstat(loc.trashDir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);

  const TrashResult r = MoveToTrash(file, Home(d));
  ASSERT_TRUE(r.ok()) << r.errorText;
  EXPECT_EQ(r.trashedAs, top + "/.Trash-" + uid + "/files/song 1.mp3");
  // Relative to the mount, so that it holds wherever the drive is mounted.
  EXPECT_EQ(TrashPercentDecode(ReadInfo(r.infoFile).path), "music/old/song 1.mp3");
  EXPECT_FALSE(Exists((d / "xdg/Trash").string()));  // the home trash is not touched
}

TEST(Trash, TheSharedTrashIsUsedOnlyWhenItIsAStickyFolder) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const std::string uid = std::to_string(::getuid());
  const std::string top = other.path().string();
  const std::string file = top + "/a";
  const auto make = [&] {
    std::FILE* f = std::fopen(file.c_str(), "w");
    std::fputs("a", f);
    std::fclose(f);
  };
  // A symbolic link named .Trash (a trap: it could point anywhere).
  std::filesystem::create_directories(d / "elsewhere");
  ASSERT_EQ(::symlink((d / "elsewhere").c_str(), (top + "/.Trash").c_str()), 0);
  ::chmod((d / "elsewhere").c_str(), 01777);
  make();
  EXPECT_EQ(MoveToTrash(file, Home(d)).trashedAs, top + "/.Trash-" + uid + "/files/a");
  EXPECT_TRUE(std::filesystem::is_empty(d / "elsewhere"));
  ::unlink((top + "/.Trash").c_str());

  // A real folder without the sticky bit.
  ASSERT_EQ(::mkdir((top + "/.Trash").c_str(), 0777), 0);
  ::chmod((top + "/.Trash").c_str(), 0777);
  make();
  EXPECT_EQ(MoveToTrash(file, Home(d)).trashedAs, top + "/.Trash-" + uid + "/files/a.2");
  EXPECT_FALSE(Exists(top + "/.Trash/" + uid));

  // With the sticky bit: the user's folder in it.
  ::chmod((top + "/.Trash").c_str(), 01777);
  make();
  const TrashResult r = MoveToTrash(file, Home(d));
  ASSERT_TRUE(r.ok()) << r.errorText;
  EXPECT_EQ(r.trashedAs, top + "/.Trash/" + uid + "/files/a");
}

TEST(Trash, AMountWhereNoTrashCanBeMadeHasNone) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const std::string file = (other.path() / "a").string();
  std::FILE* f = std::fopen(file.c_str(), "w");
  std::fputs("stays", f);
  std::fclose(f);
  // Read-only: the trash folder cannot be made.
  if (::mount(nullptr, other.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
    GTEST_SKIP() << "cannot remount read-only here";
  const TrashResult r = MoveToTrash(file, Home(d));
  EXPECT_EQ(r.outcome, TrashOutcome::NoTrashOnDrive);
  EXPECT_EQ(r.drive, other.path().string());
  EXPECT_EQ(r.errorText, "(" + ErrorText(EROFS) + ")");
  EXPECT_EQ(ReadBytes(file), "stays");
  EXPECT_FALSE(FindTrashFor(file, Home(d)).available);
  EXPECT_FALSE(FindTrashFor(file, Home(d), false).available);
}

TEST(Trash, AskingWhetherADriveHasATrashMakesNothing) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const TrashLocation loc = FindTrashFor(other.path().string(), Home(d), false);
  EXPECT_TRUE(loc.available) << loc.errorText;
  EXPECT_TRUE(std::filesystem::is_empty(other.path()));
  EXPECT_TRUE(FindTrashFor(d.Write("x", "x").string(), Home(d), false).available);
  EXPECT_FALSE(std::filesystem::exists(d / "xdg/Trash"));
  // A file that is gone is no question of the drive.
  EXPECT_EQ(MoveToTrash((d / "gone").string(), Home(d)).outcome, TrashOutcome::Failed);
}

TEST(Trash, AFailedMoveTakesTheInfoBack) {
  TempDir d;
  const std::string a = d.Write("a", "x").string();
  FileSystemFaults faults;
  faults.Fail(FsCall::Rename, "/files/a", EIO);
  FileSystemFaults::Scope scope(&faults);
  const TrashResult r = MoveToTrash(a, Home(d));
  EXPECT_EQ(r.outcome, TrashOutcome::Failed);
  EXPECT_EQ(r.errorText, "(" + ErrorText(EIO) + ")");
  EXPECT_EQ(ReadBytes(a), "x");
  EXPECT_TRUE(std::filesystem::is_empty(d / "xdg/Trash/info"));
}

}  // namespace
}  // namespace kelvor
