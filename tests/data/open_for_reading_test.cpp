// xOpenFileForReading: the one open of the files a search reads. It must
// never wait, reach any depth, and refuse what is no longer the file the
// walk saw.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

ExpectedFile Expect(const std::string& path) {
  struct stat st {};
  EXPECT_TRUE(test::StatAnyPath(path, &st)) << path;
  return ExpectedFile{static_cast<std::int64_t>(st.st_size), static_cast<std::uint64_t>(st.st_dev),
                      static_cast<std::uint64_t>(st.st_ino)};
}

std::string ReadAll(int fd) {
  std::string out;
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  return out;
}

TEST(OpenForReading, OpensTheFileTheWalkSawAndNothingElse) {
  test::TempDir dir;
  const std::string a = dir.Write("a", "12345").string();
  const ExpectedFile seen = Expect(a);
  std::string error;
  struct stat st {};
  int fd = xOpenFileForReading(a, &seen, &error, &st);
  ASSERT_GE(fd, 0) << error;
  EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);  // reads block as usual again
  EXPECT_EQ(ReadAll(fd), "12345");
  EXPECT_EQ(st.st_size, 5);
  ::close(fd);
  // Without an expectation any regular file will do.
  fd = xOpenFileForReading(a, nullptr, &error);
  ASSERT_GE(fd, 0);
  ::close(fd);

  // Another size.
  dir.Write("a", "123");
  EXPECT_EQ(xOpenFileForReading(a, &seen, &error), -1);
  EXPECT_EQ(error, "size changed after the folder was read: 3 bytes instead of 5");
  // Another file of the same size and content in its place.
  dir.Write("a.new", "12345");
  fs::rename(dir / "a.new", a);
  EXPECT_EQ(xOpenFileForReading(a, &seen, &error), -1);
  EXPECT_EQ(error, "replaced by another file after the folder was read");
  // Gone.
  fs::remove(a);
  EXPECT_EQ(xOpenFileForReading(a, &seen, &error), -1);
  EXPECT_EQ(error, "No such file or directory");
  // A folder and a symbolic link in the last place are no files to read.
  EXPECT_EQ(xOpenFileForReading(dir.path().string(), nullptr, &error), -1);
  EXPECT_EQ(error, "Is a directory");
  const std::string b = dir.Write("b", "x").string();
  fs::create_symlink(b, dir / "link");
  EXPECT_EQ(xOpenFileForReading((dir / "link").string(), nullptr, &error), -1);
  EXPECT_EQ(xOpenFileForReading("", nullptr, &error), -1);
}

TEST(OpenForReading, AFifoIsRefusedAtOnce) {
  test::TempDir dir;
  const std::string f = dir.Write("f", "12345").string();
  const ExpectedFile seen = Expect(f);
  test::SwapForFifo(f);
  int fd = 0;
  std::string error;
  EXPECT_TRUE(test::FinishesWithin(
      5000ms, [&] { fd = xOpenFileForReading(f, &seen, &error); },
      [&] { test::ReleaseFifoReaders({f}); }));
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(error, "not a regular file");
}

TEST(OpenForReading, PathsLongerThanPathMax) {
  test::TempDir dir;
  // Pieces of several lengths, so that the cut between two pieces falls on
  // different places of the path.
  for (const char* segment :
       {"segment_of_twenty_ch", "a_much_longer_segment_name_of_fifty_characters_xyz"}) {
    SCOPED_TRACE(segment);
    const std::string deep = test::MakeDeepFolder(
        dir.path(), segment, static_cast<int>(5000 / (std::strlen(segment) + 1)) + 1);
    ASSERT_GT(deep.size(), 5000u);
    test::WriteDeep(deep + "/file.txt", "deep content");
    const ExpectedFile seen = Expect(deep + "/file.txt");
    std::string error;
    int fd = xOpenFileForReading(deep + "/file.txt", &seen, &error);
    ASSERT_GE(fd, 0) << error;
    EXPECT_EQ(ReadAll(fd), "deep content");
    ::close(fd);
    // Doubled slashes do not make a piece absolute.
    std::string doubled = deep;
    doubled.insert(doubled.find('/', doubled.size() / 2), "/");
    doubled.insert(doubled.find('/', doubled.size() * 3 / 4), "//");
    fd = xOpenFileForReading(doubled + "//file.txt", &seen, &error);
    EXPECT_GE(fd, 0) << error;
    if (fd >= 0) ::close(fd);
    EXPECT_EQ(xOpenFileForReading(deep + "/missing.txt", nullptr, &error), -1);
    EXPECT_EQ(error, "No such file or directory");
    test::RemoveDeep(dir.path(), segment);
  }
}

}  // namespace
}  // namespace kelvor

namespace kelvor {
namespace {

// The open relative to a folder descriptor, the per-file path of a walk,
// makes the same checks as the open by path.
TEST(OpenForReading, RelativeToTheFolderChecksAsByPath) {
  test::TempDir dir;
  const std::string a = dir.Write("f/a", "abc").string();
  const ExpectedFile seen = Expect(a);
  const int folder = xOpenFolder((dir / "f").string());
  ASSERT_GE(folder, 0);
  std::string error;
  int fd = xOpenFileForReadingAt(folder, "a", a, &seen, &error);
  ASSERT_GE(fd, 0) << error;
  EXPECT_EQ(ReadAll(fd), "abc");
  ::close(fd);
  // Replaced by another file of the same size after the walk saw it.
  // (Made while the old one still exists, so it cannot get its inode.)
  fs::rename(dir.Write("f/new", "xyz"), a);
  EXPECT_LT(xOpenFileForReadingAt(folder, "a", a, &seen, &error), 0);
  EXPECT_EQ(error, "replaced by another file after the folder was read");
  EXPECT_LT(xOpenFileForReadingAt(folder, "missing", a, nullptr, &error), 0);
  EXPECT_EQ(error, ErrorText(ENOENT));
  xCloseFd(folder);
}

// Faults reach the calls they name, on the paths they name, on the thread
// that put them in place, and end with their scope.
TEST(FileSystemFaults, FailTheChosenCallOnTheChosenPathsOnly) {
  test::TempDir dir;
  const std::string a = dir.Write("a", "12345").string();
  const std::string b = dir.Write("b", "12345").string();
  FileSystemFaults faults;
  faults.Fail(FsCall::ReadFile, "/a", EIO);
  faults.Fail(FsCall::OpenFile, "/b", EACCES);
  std::string error;
  char buf[8];
  {
    FileSystemFaults::Scope scope(&faults);
    ReadFile f;
    ASSERT_TRUE(f.Open(a, false, &error)) << error;  // the open itself goes through
    EXPECT_EQ(f.ReadAt(buf, sizeof buf, 0, &error), -1);
    EXPECT_EQ(error, ErrorText(EIO));
    EXPECT_FALSE(f.Open(b, false, &error));
    EXPECT_EQ(error, ErrorText(EACCES));
    // Another thread sees none of them unless it takes them over.
    std::string otherError = "none";
    std::thread([&] {
      ReadFile g;
      if (g.Open(b, false, &otherError)) otherError = "opened";
    }).join();
    EXPECT_EQ(otherError, "opened");
    std::thread([&, captured = FileSystemFaults::Current()] {
      FileSystemFaults::Scope taken(captured);
      ReadFile g;
      if (g.Open(b, false, &otherError)) otherError = "opened";
    }).join();
    EXPECT_EQ(otherError, ErrorText(EACCES));
  }
  EXPECT_EQ(FileSystemFaults::Current(), nullptr);
  ReadFile f;
  ASSERT_TRUE(f.Open(b, false, &error)) << error;
  EXPECT_EQ(f.ReadAt(buf, 5, 0, &error), 5);
}

}  // namespace
}  // namespace kelvor
