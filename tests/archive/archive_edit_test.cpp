// Deleting members of archives with 7-Zip: zip and 7z change, other types
// and archives in parts are left, failures carry 7-Zip's exit code.

#include "archive/archive_edit.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "frame/child_process.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

std::optional<fs::path> SevenZip() {
  for (const char* name : {"/usr/bin/7z", "/usr/bin/7zz"}) {
    if (fs::exists(name)) return fs::path(name);
  }
  return std::nullopt;
}

std::string Listing(const fs::path& tool, const fs::path& archive) {
  return RunChildProcess({tool.string(), "l", "-slt", archive.string()}).output;
}

TEST(ArchiveEdit, OnlyTheNamedMemberLeavesAZipOrA7z) {
  const auto tool = SevenZip();
  if (!tool) GTEST_SKIP() << "7-Zip is not installed";
  for (const char* ext : {"zip", "7z"}) {
    SCOPED_TRACE(ext);
    test::TempDir t;
    t.Write("in/keep.txt", "keep");
    t.Write("in/sub/-odd*name.txt", "odd");
    t.Write("in/sub/other.txt", "other");
    const fs::path archive = t / (std::string("a.") + ext);
    ChildProcessOptions o;
    ASSERT_EQ(
        RunChildProcess({"/bin/sh", "-c", "cd \"$1\" && \"$0\" a -y \"$2\" keep.txt sub >/dev/null",
                         tool->string(), (t / "in").string(), archive.string()})
            .exitCode,
        0);
    const ArchiveMemberDeletion d =
        DeleteArchiveMember(*tool, archive.string(), "sub/-odd*name.txt", false);
    EXPECT_EQ(d.outcome, ArchiveMemberDeletion::Outcome::Deleted) << d.errorText;
    EXPECT_EQ(d.typeWord, std::string(ext) == "zip" ? "ZIP" : "7z");
    const std::string list = Listing(*tool, archive);
    EXPECT_EQ(list.find("-odd*name.txt"), std::string::npos);
    EXPECT_NE(list.find("other.txt"), std::string::npos);
    EXPECT_NE(list.find("keep.txt"), std::string::npos);
  }
}

TEST(ArchiveEdit, OtherTypesAreLeftAndFailuresSayTheCode) {
  EXPECT_EQ(ArchiveDeletionSupport("/x/a.rar").outcome,
            ArchiveMemberDeletion::Outcome::NotSupported);
  EXPECT_EQ(ArchiveDeletionSupport("/x/a.rar").typeWord, "RAR");
  EXPECT_EQ(ArchiveDeletionSupport("/x/a.zip.001").typeWord, "zip.001");
  EXPECT_EQ(ArchiveDeletionSupport("/x/a.7z.001").typeWord, "7z.001");
  EXPECT_EQ(ArchiveDeletionSupport("/x/a.tar").typeWord, "TAR");
  const auto tool = SevenZip();
  if (!tool) GTEST_SKIP() << "7-Zip is not installed";
  test::TempDir t;
  const fs::path broken = t.Write("broken.zip", "this is no zip");
  const ArchiveMemberDeletion d = DeleteArchiveMember(*tool, broken.string(), "a.txt", false);
  EXPECT_EQ(d.outcome, ArchiveMemberDeletion::Outcome::Failed);
  EXPECT_EQ(d.errorText, "2 - Fatal error");
  EXPECT_EQ(test::ReadBytes(broken), "this is no zip");
  // A dry run runs nothing.
  EXPECT_EQ(DeleteArchiveMember(*tool, broken.string(), "a.txt", true).outcome,
            ArchiveMemberDeletion::Outcome::Deleted);
}

}  // namespace
}  // namespace kelvor
