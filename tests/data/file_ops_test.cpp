// The operations that change files, on real files: what they leave on disk
// and what they say when they cannot.

#include "data/file_ops.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/formats.h"
#include "fs_tree.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::ReadBytes;
using test::TempDir;

struct stat Lstat(const std::filesystem::path& p) {
  struct stat st {};
  EXPECT_EQ(::lstat(p.c_str(), &st), 0) << p;
  return st;
}

bool Exists(const std::filesystem::path& p) {
  struct stat st {};
  return ::lstat(p.c_str(), &st) == 0;
}

RecordedFileState Recorded(const std::filesystem::path& p) {
  const struct stat st = Lstat(p);
  RecordedFileState r;
  r.size = st.st_size;
  r.modified = DateFromTimespec(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  r.device = st.st_dev;
  r.inode = st.st_ino;
  return r;
}

const TextCatalog kGerman;

ReplaceRequest Req(const std::filesystem::path& path, const std::filesystem::path& source,
                   LinkKind kind) {
  ReplaceRequest r;
  r.path = path.string();
  r.source = source.string();
  r.kind = kind;
  return r;
}

// --- copy and move ---

TEST(CopyFile, CopiesBytesAndModeAndNeverReplacesUnasked) {
  TempDir d;
  const auto src = d.Write("src/a b.txt", std::string(300000, 'x') + "end");
  ::chmod(src.c_str(), 0640);
  d.Mkdir("dst");
  std::string err;
  ASSERT_TRUE(xCopyFile_W(src.string(), (d / "dst/a b.txt").string(), &err)) << err;
  EXPECT_EQ(ReadBytes(d / "dst/a b.txt"), ReadBytes(src));
  EXPECT_EQ(Lstat(d / "dst/a b.txt").st_mode & 07777, 0640u);
  // A second copy onto it is refused and leaves the first copy.
  d.Write("src/other", "other");
  EXPECT_FALSE(xCopyFile_W((d / "src/other").string(), (d / "dst/a b.txt").string(), &err));
  EXPECT_EQ(err, "(" + ErrorText(EEXIST) + ")");
  EXPECT_EQ(ReadBytes(d / "dst/a b.txt"), ReadBytes(src));
  // Asked to, it replaces.
  EXPECT_TRUE(
      xCopyFile_W((d / "src/other").string(), (d / "dst/a b.txt").string(), &err, Overwrite::Yes));
  EXPECT_EQ(ReadBytes(d / "dst/a b.txt"), "other");
  EXPECT_EQ(test::LeftoverTemporaries(d.path()), 0);
}

TEST(CopyFile, ADiskFullHalfwayLeavesNoFileUnderTheName) {
  TempDir d;
  const auto src = d.Write("a", std::string(3 << 20, 'q'));
  FileSystemFaults faults;
  faults.FailNth(FsCall::WriteFile, 2, ENOSPC);
  FileSystemFaults::Scope scope(&faults);
  std::string err;
  EXPECT_FALSE(xCopyFile_W(src.string(), (d / "b").string(), &err));
  EXPECT_EQ(err, "(" + ErrorText(ENOSPC) + ")");
  EXPECT_FALSE(Exists(d / "b"));
  EXPECT_EQ(test::LeftoverTemporaries(d.path()), 0);
}

TEST(CopyFileDate, TheTargetTakesTheSourcesChangeDate) {
  TempDir d;
  const auto a = d.Write("a", "1");
  const auto b = d.Write("b", "2");
  test::SetMtime(a, 1000000000);
  std::string err;
  ASSERT_TRUE(xCopyFileDate_W(a.string(), b.string(), &err)) << err;
  EXPECT_EQ(Lstat(b).st_mtim.tv_sec, 1000000000);
  EXPECT_FALSE(xCopyFileDate_W((d / "missing").string(), b.string(), &err));
  EXPECT_EQ(err, "(" + ErrorText(ENOENT) + ")");
}

TEST(MoveFile, RenamesWithinAFileSystemAndRefusesToReplace) {
  TempDir d;
  const auto a = d.Write("a", "A");
  const auto b = d.Write("b", "B");
  const ino_t inode = Lstat(a).st_ino;
  std::string err;
  EXPECT_FALSE(xMoveFile_W(a.string(), b.string(), &err));
  EXPECT_EQ(ReadBytes(a), "A");
  EXPECT_EQ(ReadBytes(b), "B");
  ASSERT_TRUE(xMoveFile_W(a.string(), (d / "c").string(), &err)) << err;
  EXPECT_FALSE(Exists(a));
  EXPECT_EQ(Lstat(d / "c").st_ino, inode);
  ASSERT_TRUE(xMoveFileWithDate_W((d / "c").string(), b.string(), &err, Overwrite::Yes));
  EXPECT_EQ(ReadBytes(b), "A");
}

TEST(MoveFile, TwoNamesOfOneFileReplacedByMoveLeaveOneName) {
  // rename(2) between two links of one file does nothing and says it did.
  TempDir d;
  const auto a = d.Write("a", "A");
  ASSERT_EQ(::link(a.c_str(), (d / "b").c_str()), 0);
  std::string err;
  ASSERT_TRUE(xMoveFile_W(a.string(), (d / "b").string(), &err, Overwrite::Yes)) << err;
  EXPECT_FALSE(Exists(a));
  EXPECT_EQ(ReadBytes(d / "b"), "A");
}

TEST(MoveFile, AcrossFileSystemsKeepsBytesDatesAndModeAndDeletesTheSource) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const auto a = d.Write("a", std::string(2 << 20, 'm'));
  ::chmod(a.c_str(), 0604);
  test::SetMtime(a, 1234567890);
  std::string err;
  const std::string target = (other.path() / "a").string();
  ASSERT_TRUE(xMoveFileWithDate_W(a.string(), target, &err)) << err;
  EXPECT_FALSE(Exists(a));
  EXPECT_EQ(ReadBytes(target), std::string(2 << 20, 'm'));
  EXPECT_EQ(Lstat(target).st_mtim.tv_sec, 1234567890);
  EXPECT_EQ(Lstat(target).st_mode & 07777, 0604u);
  EXPECT_EQ(test::LeftoverTemporaries(d.path()), 0);
}

TEST(MoveFile, AcrossFileSystemsASourceThatCannotGoTakesTheCopyBack) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const auto a = d.Write("a", "keep me");
  const auto old = other.path() / "a";
  {
    std::FILE* f = std::fopen(old.c_str(), "w");
    std::fputs("old target", f);
    std::fclose(f);
  }
  for (Overwrite ow : {Overwrite::No, Overwrite::Yes}) {
    FileSystemFaults faults;
    faults.Fail(FsCall::DeleteFile, "/a", EROFS);
    FileSystemFaults::Scope scope(&faults);
    std::string err;
    const std::string target = ow == Overwrite::Yes ? old.string() : (other.path() / "n").string();
    EXPECT_FALSE(xMoveFile_W(a.string(), target, &err, ow));
    EXPECT_EQ(err, "(" + ErrorText(EROFS) + ")");
    EXPECT_EQ(ReadBytes(a), "keep me");
    EXPECT_EQ(ReadBytes(old), "old target");
    EXPECT_FALSE(Exists(other.path() / "n"));
  }
  EXPECT_EQ(test::LeftoverTemporaries(d.path()), 0);
}

// --- the state the search saw ---

TEST(CheckFileUnchanged, NamesTheFirstDifference) {
  TempDir d;
  const auto a = d.Write("a", "12345");
  test::SetMtime(a, 1600000000);
  RecordedFileState r = Recorded(a);
  EXPECT_TRUE(CheckFileUnchanged(a.string(), r, kGerman).unchanged);

  test::SetMtime(a, 1600000100);
  UnchangedCheck c = CheckFileUnchanged(a.string(), r, kGerman);
  EXPECT_FALSE(c.unchanged);
  EXPECT_NE(c.why.find("Änderungsdatum jetzt"), std::string::npos) << c.why;
  // A saved result's rounded date is no change.
  test::SetMtime(a, 1600000000);
  r.modified += 0.4 / 86400;
  EXPECT_TRUE(CheckFileUnchanged(a.string(), r, kGerman).unchanged);

  d.Write("a", "123456");
  test::SetMtime(a, 1600000000);
  c = CheckFileUnchanged(a.string(), r, kGerman);
  EXPECT_EQ(c.why, "Größe jetzt 6 Bytes statt 5 Bytes");

  // Another file put in its place, same size and date.
  d.Write("b", "12345");
  test::SetMtime(d / "b", 1600000000);
  r = Recorded(a);
  r.size = 5;
  ASSERT_EQ(::rename((d / "b").c_str(), a.c_str()), 0);
  c = CheckFileUnchanged(a.string(), r, kGerman);
  EXPECT_EQ(c.why, "durch eine andere Datei ersetzt");

  ::unlink(a.c_str());
  c = CheckFileUnchanged(a.string(), r, kGerman);
  EXPECT_FALSE(c.unchanged);
  EXPECT_FALSE(c.exists);
}

// --- links in a file's place ---

class Replace : public ::testing::TestWithParam<LinkKind> {};

TEST_P(Replace, TheDuplicateBecomesALinkToTheKeptFile) {
  TempDir d;
  const auto keep = d.Write("keep/photo.jpg", "same bytes");
  const auto dup = d.Write("dups/-photo copy\n.jpg", "same bytes");
  ReplaceRequest req{dup.string(), keep.string(), GetParam(), Recorded(dup), Recorded(keep)};
  const ReplaceResult r = ReplaceWithLink(req, kGerman);
  if (GetParam() == LinkKind::Reflink && r.outcome == ReplaceOutcome::NotSupported) {
    // The file system cannot share blocks: the file is left as it was.
    EXPECT_NE(r.errorText.find("Reflink"), std::string::npos) << r.errorText;
    EXPECT_EQ(ReadBytes(dup), "same bytes");
    EXPECT_EQ(test::LeftoverTemporaries(d.path()), 0);
    GTEST_SKIP() << "this file system cannot share blocks: " << r.errorText;
  }
  ASSERT_TRUE(r.ok()) << r.errorText;
  EXPECT_EQ(ReadBytes(dup), "same bytes");
  const struct stat k = Lstat(keep), l = Lstat(dup);
  switch (GetParam()) {
    case LinkKind::HardLink:
      EXPECT_EQ(l.st_ino, k.st_ino);
      EXPECT_EQ(xGetLinkCount(keep.string()), 2);
      break;
    case LinkKind::Symlink:
      EXPECT_TRUE(S_ISLNK(l.st_mode));
      EXPECT_EQ(std::filesystem::read_symlink(dup), keep);
      break;
    case LinkKind::Reflink:
      EXPECT_NE(l.st_ino, k.st_ino);
      break;
  }
  EXPECT_EQ(test::LeftoverTemporaries(d.path()), 0);
  // Once more: the path is the kept file already (a hard link) or is no
  // regular file any more (a symbolic link): nothing happens.
  const ReplaceResult again = ReplaceWithLink(Req(dup, keep, GetParam()), kGerman);
  if (GetParam() != LinkKind::Reflink) {
    EXPECT_FALSE(again.ok());
  }
  EXPECT_EQ(ReadBytes(dup), "same bytes");
}

TEST_P(Replace, AFileChangedSinceTheSearchIsLeftAlone) {
  TempDir d;
  const auto keep = d.Write("keep", "same");
  const auto dup = d.Write("dup", "same");
  const RecordedFileState seen = Recorded(dup), keptSeen = Recorded(keep);
  d.Write("dup", "new work");
  ReplaceResult r =
      ReplaceWithLink({dup.string(), keep.string(), GetParam(), seen, keptSeen}, kGerman);
  EXPECT_EQ(r.outcome, ReplaceOutcome::PathChanged);
  EXPECT_NE(r.errorText.find("wurde nach der Suche verändert"), std::string::npos) << r.errorText;
  EXPECT_EQ(ReadBytes(dup), "new work");

  // The kept file changed: the link would point to something else.
  d.Write("dup", "same");
  d.Write("keep", "other");
  r = ReplaceWithLink({dup.string(), keep.string(), GetParam(), Recorded(dup), keptSeen}, kGerman);
  EXPECT_EQ(r.outcome, ReplaceOutcome::SourceChanged);
  EXPECT_NE(r.errorText.find("Die nicht ausgewählte Datei"), std::string::npos) << r.errorText;
  EXPECT_EQ(ReadBytes(dup), "same");
  EXPECT_EQ(Lstat(dup).st_nlink, 1u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Replace,
                         ::testing::Values(LinkKind::HardLink, LinkKind::Symlink,
                                           LinkKind::Reflink));

TEST(ReplaceWithLink, AHardLinkAcrossFileSystemsIsRefused) {
  TempDir d;
  test::SecondFileSystem other(d / "mnt");
  KELVOR_NEED_SECOND_FS(other);
  const auto keep = d.Write("keep", "x");
  const auto dup = other.path() / "dup";
  {
    std::FILE* f = std::fopen(dup.c_str(), "w");
    std::fputs("x", f);
    std::fclose(f);
  }
  for (LinkKind k : {LinkKind::HardLink, LinkKind::Reflink}) {
    const ReplaceResult r = ReplaceWithLink(Req(dup, keep, k), kGerman);
    EXPECT_EQ(r.outcome, ReplaceOutcome::OtherDevice);
    EXPECT_EQ(ReadBytes(dup), "x");
  }
  // A symbolic link may point anywhere.
  EXPECT_TRUE(ReplaceWithLink(Req(dup, keep, LinkKind::Symlink), kGerman).ok());
}

TEST(ReplaceWithLink, ReflinkOfDifferentBytesIsRefusedByTheSize) {
  TempDir d;
  const auto keep = d.Write("keep", "abc");
  const auto dup = d.Write("dup", "abcd");
  const ReplaceResult r = ReplaceWithLink(Req(dup, keep, LinkKind::Reflink), kGerman);
  EXPECT_EQ(r.outcome, ReplaceOutcome::ContentDiffers);
  EXPECT_EQ(ReadBytes(dup), "abcd");
}

// The first extent of the file is shared with another file (FIEMAP).
bool FirstExtentShared(const std::filesystem::path& p) {
  const int fd = ::open(p.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  alignas(fiemap) unsigned char buf[sizeof(fiemap) + sizeof(fiemap_extent)] = {};
  auto* map = reinterpret_cast<fiemap*>(buf);
  auto* extent = reinterpret_cast<fiemap_extent*>(buf + sizeof(fiemap));
  map->fm_length = ~0ULL;
  map->fm_flags = FIEMAP_FLAG_SYNC;
  map->fm_extent_count = 1;
  const bool ok = ::ioctl(fd, FS_IOC_FIEMAP, map) == 0 && map->fm_mapped_extents == 1 &&
                  (extent->fe_flags & FIEMAP_EXTENT_SHARED) != 0;
  ::close(fd);
  return ok;
}

TEST(ReplaceWithLink, AReflinkSharesTheBlocksAndTheFileKeepsItsInodeOwnerAndDates) {
  TempDir d;
  test::ReflinkFileSystem xfs(d.path());
  if (!xfs.mounted()) GTEST_SKIP() << "no XFS with reflinks here (needs xfsprogs and loop mounts)";
  const std::string bytes(1 << 20, 'r');
  const auto keep = xfs.path() / "keep";
  const auto dup = xfs.path() / "dup";
  for (const auto& p : {keep, dup}) {
    std::FILE* f = std::fopen(p.c_str(), "w");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  ::chown(dup.c_str(), 1234, 5678);
  ::chmod(dup.c_str(), 0640);
  test::SetMtime(dup, 1400000000);
  const struct stat before = Lstat(dup);
  EXPECT_FALSE(FirstExtentShared(dup));
  ReplaceRequest req = Req(dup, keep, LinkKind::Reflink);
  req.pathState = Recorded(dup);
  ReplaceResult r = ReplaceWithLink(req, kGerman);
  ASSERT_TRUE(r.ok()) << r.errorText;
  const struct stat after = Lstat(dup);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_uid, 1234u);
  EXPECT_EQ(after.st_mode & 07777, 0640u);
  EXPECT_EQ(after.st_mtim.tv_sec, 1400000000);
  EXPECT_EQ(ReadBytes(dup), bytes);
  EXPECT_TRUE(FirstExtentShared(dup));

  // Where only cloning works: a checked clone takes the file's place with
  // its owner, mode and dates.
  {
    FileSystemFaults faults;
    faults.FailNth(FsCall::ShareBlocks, 1, EOPNOTSUPP);
    FileSystemFaults::Scope scope(&faults);
    r = ReplaceWithLink(Req(dup, keep, LinkKind::Reflink), kGerman);
  }
  ASSERT_TRUE(r.ok()) << r.errorText;
  const struct stat cloned = Lstat(dup);
  EXPECT_NE(cloned.st_ino, before.st_ino);
  EXPECT_EQ(cloned.st_uid, 1234u);
  EXPECT_EQ(cloned.st_mode & 07777, 0640u);
  EXPECT_EQ(cloned.st_mtim.tv_sec, 1400000000);
  EXPECT_EQ(ReadBytes(dup), bytes);

  // Equal sizes, different bytes: the kernel refuses, the file stays.
  std::string other = bytes;
  other[700000] = 'X';
  {
    std::FILE* f = std::fopen(dup.c_str(), "w");
    std::fwrite(other.data(), 1, other.size(), f);
    std::fclose(f);
  }
  r = ReplaceWithLink(Req(dup, keep, LinkKind::Reflink), kGerman);
  EXPECT_EQ(r.outcome, ReplaceOutcome::ContentDiffers);
  EXPECT_EQ(r.errorText, "Die Inhalte der Dateien sind nicht gleich");
  EXPECT_EQ(ReadBytes(dup), other);
  {
    FileSystemFaults faults;
    faults.FailNth(FsCall::ShareBlocks, 1, EOPNOTSUPP);
    FileSystemFaults::Scope scope(&faults);
    r = ReplaceWithLink(Req(dup, keep, LinkKind::Reflink), kGerman);
  }
  EXPECT_EQ(r.outcome, ReplaceOutcome::ContentDiffers);
  EXPECT_EQ(ReadBytes(dup), other);
  EXPECT_EQ(test::LeftoverTemporaries(xfs.path()), 0);
}

// --- emptying, backup, folders ---

TEST(SetFileToZeroLength, EmptiesTheFileAndNothingElse) {
  TempDir d;
  const auto a = d.Write("a", "content");
  std::string err;
  ASSERT_TRUE(SetFileToZeroLength(a.string(), &err)) << err;
  EXPECT_EQ(ReadBytes(a), "");
  // Nothing is made where there is no file, and a link is not followed.
  EXPECT_FALSE(SetFileToZeroLength((d / "none").string(), &err));
  EXPECT_EQ(err, "(" + ErrorText(ENOENT) + ")");
  EXPECT_FALSE(Exists(d / "none"));
  const auto b = d.Write("b", "kept");
  ASSERT_EQ(::symlink(b.c_str(), (d / "l").c_str()), 0);
  EXPECT_FALSE(SetFileToZeroLength((d / "l").string(), &err));
  EXPECT_EQ(ReadBytes(b), "kept");
  // A FIFO in a file's place is neither waited for nor touched.
  ASSERT_EQ(::mkfifo((d / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(SetFileToZeroLength((d / "fifo").string(), &err));
}

TEST(BackupDaten, TheSameNameTwiceWithoutStructureMovesTheOlderCopyAside) {
  TempDir d;
  const auto one = d.Write("x/report.txt", "first");
  const auto two = d.Write("y/report.txt", "second");
  const auto noExt = d.Write("y/README", "r");
  test::SetMtime(one, 1500000000);
  const std::string target = (d / "backup").string();
  BackupResult r = BackupDaten(one.string(), target, false, false, kGerman);
  ASSERT_TRUE(r.ok) << r.errorText;
  EXPECT_EQ(r.target, target + "/report.txt");
  EXPECT_EQ(Lstat(r.target).st_mtim.tv_sec, 1500000000);  // a copy keeps the dates
  r = BackupDaten(two.string(), target, false, false, kGerman);
  ASSERT_TRUE(r.ok) << r.errorText;
  EXPECT_EQ(r.renamedTo, target + "/report-001.txt");
  EXPECT_EQ(ReadBytes(target + "/report-001.txt"), "first");
  EXPECT_EQ(ReadBytes(target + "/report.txt"), "second");
  r = BackupDaten(one.string(), target, true, false, kGerman);
  ASSERT_TRUE(r.ok) << r.errorText;
  EXPECT_EQ(r.renamedTo, target + "/report-002.txt");
  EXPECT_FALSE(Exists(one));
  EXPECT_EQ(ReadBytes(target + "/report.txt"), "first");
  BackupDaten(noExt.string(), target, false, false, kGerman);
  r = BackupDaten(noExt.string(), target, false, false, kGerman);
  EXPECT_EQ(r.renamedTo, target + "/README-001");
}

TEST(BackupDaten, WithStructureTheFoldersFollowAndAFileThereIsReplaced) {
  TempDir d;
  const auto src = d.Write("data/a/b/c.txt", "new");
  const std::string target = (d / "t").string();
  const std::string expected = target + src.parent_path().string() + "/c.txt";
  d.Write(std::filesystem::relative(expected, d.path()).string(), "old");
  const BackupResult r = BackupDaten(src.string(), target, true, true, kGerman);
  ASSERT_TRUE(r.ok) << r.errorText;
  EXPECT_EQ(r.target, expected);
  EXPECT_EQ(ReadBytes(expected), "new");
  EXPECT_TRUE(r.renamedTo.empty());
  EXPECT_FALSE(Exists(src));
}

TEST(BackupDaten, ACopyOntoItselfIsRefusedAndAFailureTakesTheMovedAsideFileBack) {
  TempDir d;
  const auto a = d.Write("f/a", "only copy");
  BackupResult r = BackupDaten(a.string(), (d / "f").string(), false, false, kGerman);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.errorText, "Quelle und Ziel sind dieselbe Datei");
  EXPECT_EQ(ReadBytes(a), "only copy");

  const auto b = d.Write("g/a", "other");
  FileSystemFaults faults;
  faults.Fail(FsCall::CreateFile, "", ENOSPC);
  FileSystemFaults::Scope scope(&faults);
  r = BackupDaten(b.string(), (d / "f").string(), false, false, kGerman);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.errorText, "(" + ErrorText(ENOSPC) + ")");
  EXPECT_EQ(ReadBytes(a), "only copy");
  EXPECT_FALSE(Exists(d / "f/a-001"));
}

TEST(RemoveDirectoryForce, RemovesAnEmptyFolderOnly) {
  TempDir d;
  d.Write("full/x", "x");
  d.Mkdir("empty");
  ::chmod((d / "empty").c_str(), 0);
  std::string err;
  EXPECT_FALSE(RemoveDirectoryForce_W((d / "full").string(), &err));
  EXPECT_EQ(err, "(" + ErrorText(ENOTEMPTY) + ")");
  EXPECT_EQ(ReadBytes(d / "full/x"), "x");
  EXPECT_TRUE(xDirEmpty_W((d / "empty").string()) || ::geteuid() != 0);
  EXPECT_TRUE(RemoveDirectoryForce_W((d / "empty").string(), &err)) << err;
  EXPECT_FALSE(Exists(d / "empty"));
}

// --- variables ---

TEST(ReplaceSystemvariablen, KnownNamesAreReplacedTheRestStays) {
  const VariableLookup lookup = [](std::string_view n) -> std::optional<std::string> {
    if (n == "USERNAME") return std::string("anna");
    if (n == "HOME") return std::string("/home/anna");
    return std::nullopt;
  };
  EXPECT_EQ(ReplaceSystemvariablen("\"%USERNAME%/\"YYYY-MM-DD", lookup), "\"anna/\"YYYY-MM-DD");
  EXPECT_EQ(ReplaceSystemvariablen("100% %HOME%/x", lookup), "100% /home/anna/x");
  EXPECT_EQ(ReplaceSystemvariablen("%NOPE%%HOME%", lookup), "%NOPE%/home/anna");
  EXPECT_EQ(ReplaceSystemvariablen("50%", lookup), "50%");
  EXPECT_EQ(ReplaceSystemvariablen("%%", lookup), "%%");
  // The environment's lookup knows the Windows name of the user.
  EXPECT_TRUE(EnvironmentVariables()("USERNAME").has_value());
}

}  // namespace
}  // namespace kelvor
