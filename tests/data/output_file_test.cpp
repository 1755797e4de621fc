// OutputFile: the bytes arrive in order under the target's name, and only
// once the file is complete.

#include "data/output_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

std::size_t Entries(const fs::path& folder) {
  std::size_t n = 0;
  for ([[maybe_unused]] const auto& e : fs::directory_iterator(folder)) ++n;
  return n;
}

TEST(OutputFile, SmallAndLargeWritesKeepTheirOrderAndAppearOnlyAtCommit) {
  test::TempDir tmp;
  const fs::path target = tmp / "out.bin";
  { std::ofstream(target) << "old"; }
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
  OutputFile out;
  std::string err;
  ASSERT_TRUE(out.Create(target.string(), &err)) << err;
  std::string want;
  // Small pieces gather in the buffer; large ones go out directly, after
  // what the buffer holds.
  for (int i = 0; i < 40; ++i) {
    const std::size_t len = i % 3 == 0 ? (700u << 10) + i : 1000u + i;
    const std::string piece(len, static_cast<char>('a' + i % 26));
    ASSERT_TRUE(out.Write(piece, &err)) << err;
    want += piece;
  }
  EXPECT_EQ(out.BytesWritten(), want.size());
  EXPECT_EQ(test::ReadBytes(target), "old");  // not yet
  EXPECT_EQ(Entries(tmp.path()), 2u);         // the target and the temporary file
  ASSERT_TRUE(out.Commit(&err)) << err;
  EXPECT_TRUE(test::ReadBytes(target) == want);
  // The file it replaced kept its permissions.
  EXPECT_EQ(fs::status(target).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Entries(tmp.path()), 1u);
}

TEST(OutputFile, AFullDiskOrAnAbandonedFileLeavesNothingBehind) {
  test::TempDir tmp;
  const fs::path target = tmp / "full.bin";
  FileSystemFaults faults;
  faults.Fail(FsCall::WriteFile, "full.bin", ENOSPC);
  {
    FileSystemFaults::Scope scope(&faults);
    OutputFile out;
    std::string err;
    ASSERT_TRUE(out.Create(target.string(), &err));
    // A large write reaches the disk at once and fails there.
    EXPECT_FALSE(out.Write(std::string(1 << 20, 'x'), &err));
    EXPECT_EQ(err, ErrorText(ENOSPC));
  }
  EXPECT_EQ(Entries(tmp.path()), 0u);
  {
    OutputFile out;
    std::string err;
    ASSERT_TRUE(out.Create(target.string(), &err));
    ASSERT_TRUE(out.Write("half", &err));
  }  // never committed
  EXPECT_EQ(Entries(tmp.path()), 0u);
}

}  // namespace
}  // namespace kelvor
