// File identity of real files and hard links made with link(2).

#include "data/file_identity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/temp_tree.h"

namespace kelvor {
namespace {

TEST(FileIdentity, HardLinksShareOneIdentityAndASingleLinkHasNone) {
  test::TempDir dir;
  const auto a = dir.Write("a.txt", "same file");
  const auto b = dir / "b.txt";
  ASSERT_EQ(::link(a.c_str(), b.c_str()), 0);
  const auto single = dir.Write("single.txt", "alone");

  FileRecord ra, rb, rs;
  std::string err;
  ASSERT_TRUE(xGetHardlinkCount2(a.string(), ra, &err));
  ASSERT_TRUE(xGetHardlinkCount2(b.string(), rb, &err));
  EXPECT_EQ(ra.NumberOfLinks, 2);
  EXPECT_EQ(rb.NumberOfLinks, 2);
  EXPECT_EQ(ra.VolumeSerialNumber, rb.VolumeSerialNumber);
  EXPECT_EQ(ra.FileIndexHigh, rb.FileIndexHigh);
  EXPECT_EQ(ra.FileIndexLow, rb.FileIndexLow);
  EXPECT_EQ(GetHardlinkIDkey(ra, false), GetHardlinkIDkey(rb, false));

  struct stat st {};
  ASSERT_EQ(::stat(a.c_str(), &st), 0);
  EXPECT_EQ(static_cast<std::uint32_t>(ra.FileIndexLow),
            static_cast<std::uint32_t>(st.st_ino & 0xFFFFFFFFu));
  EXPECT_EQ(static_cast<std::uint32_t>(ra.FileIndexHigh),
            static_cast<std::uint32_t>(static_cast<std::uint64_t>(st.st_ino) >> 32));

  rs.VolumeSerialNumber = 9;  // overwritten
  ASSERT_TRUE(xGetHardlinkCount2(single.string(), rs, &err));
  EXPECT_EQ(rs.NumberOfLinks, 1);
  EXPECT_EQ(rs.VolumeSerialNumber, 0);
  EXPECT_EQ(rs.FileIndexHigh, 0);
  EXPECT_EQ(rs.FileIndexLow, 0);

  // Removing one link brings the other back to a single link.
  ASSERT_EQ(::unlink(b.c_str()), 0);
  ASSERT_TRUE(xGetHardlinkCount2(a.string(), ra, &err));
  EXPECT_EQ(ra.NumberOfLinks, 1);
  EXPECT_EQ(ra.FileIndexLow, 0);

  // The walk's own stat result gives the same.
  FileRecord fromStat;
  ASSERT_EQ(::stat(single.c_str(), &st), 0);
  SetHardlinkIdentity(st, fromStat);
  EXPECT_EQ(fromStat.NumberOfLinks, 1);
}

// The walk's statx and a later stat of the same file give one identity, and
// the hard-link fields made from either are the ones a path read gives.
TEST(FileIdentity, StatAndStatxAgreeForLinksOfOneFile) {
  test::TempDir dir;
  const auto a = dir.Write("a", "x");
  const auto b = dir / "b";
  ASSERT_EQ(::link(a.c_str(), b.c_str()), 0);
  struct stat st {};
  ASSERT_EQ(::stat(a.c_str(), &st), 0);
  struct statx sx {};
  ASSERT_EQ(::statx(AT_FDCWD, b.c_str(), 0, STATX_INO | STATX_NLINK, &sx), 0);
  const FileIdentity fromStat = IdentityOf(st), fromStatx = IdentityOf(sx);
  EXPECT_TRUE(fromStat.SameFile(fromStatx));
  EXPECT_EQ(fromStatx.links, 2u);
  FileRecord walked, read;
  SetHardlinkIdentity(fromStatx, walked);
  std::string err;
  ASSERT_TRUE(xGetHardlinkCount2(a.string(), read, &err)) << err;
  EXPECT_EQ(cHardlinkID(walked).GetHardlinkIDkey(false), cHardlinkID(read).GetHardlinkIDkey(false));
  EXPECT_EQ(walked.NumberOfLinks, 2);
  const auto c = dir.Write("c", "x");
  ASSERT_EQ(::stat(c.c_str(), &st), 0);
  EXPECT_FALSE(IdentityOf(st).SameFile(fromStatx));
}

TEST(FileIdentity, AMissingFileGivesTheErrorTextAndKeepsTheRecord) {
  test::TempDir dir;
  const std::string missing = (dir / "gone\xff.bin").string();
  FileRecord r;
  r.NumberOfLinks = 3;
  std::string err;
  EXPECT_FALSE(xGetHardlinkCount2(missing, r, &err));
  EXPECT_EQ(r.NumberOfLinks, 3);
  EXPECT_EQ(err, "xGetHardlinkCount2\\GetFileInformationByHandle: Die Datei '" + missing +
                     "' konnte nicht geöffnet werden. (No such file or directory)");
  EXPECT_FALSE(xGetHardlinkCount2(missing, r, nullptr));
}

TEST(FileIdentity, HardlinkIdKeys) {
  cHardlinkID id;
  id.SetVolumeSerialNumber(-1);
  id.SetFileIndexHigh(0);
  id.SetFileIndexLow(255);
  id.SetNumberOfLinks(2);
  EXPECT_EQ(id.GetHardlinkIDkey(false), "-1|0|255");
  EXPECT_EQ(id.GetHardlinkIDkey(true), "0|255");
  EXPECT_EQ(id.GetHardlinkIDkeyFormatted(false), "FFFFFFFF|0|FF");
  EXPECT_EQ(id.GetHardlinkIDkeyFormatted(true), "0|FF");
  FileRecord r;
  r.VolumeSerialNumber = -1;
  r.FileIndexLow = 255;
  EXPECT_EQ(cHardlinkID(r).GetHardlinkIDkey(false), "-1|0|255");
  EXPECT_EQ(GetHardlinkIDkey(r, false), "1-0-255");
  EXPECT_EQ(GetHardlinkIDkeyFormatted(r, true), "0-FF");
}

}  // namespace
}  // namespace kelvor
