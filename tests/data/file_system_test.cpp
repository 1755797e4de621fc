// File-system layer on real files: names, attributes, deletion, folders.

#include "data/file_system.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/temp_tree.h"

namespace kelvor {
namespace {

TEST(FileSystem, NameHelpers) {
  EXPECT_EQ(xGetExtension("/a.b/file.tar.GZ"), "GZ");
  EXPECT_EQ(xGetExtension("/a.b/Makefile"), "");
  EXPECT_EQ(xGetExtension(".bashrc"), "bashrc");
  EXPECT_EQ(xGetExtension("name."), "");
  EXPECT_EQ(xGetFileName("/x/y/z.txt"), "z.txt");
  EXPECT_EQ(xGetFileName("z.txt"), "z.txt");
  EXPECT_EQ(xGetFileNameWithoutExtension("/x.d/archive.tar.gz"), "archive.tar");
  EXPECT_EQ(xGetFileNameWithoutExtension("/x.d/README"), "README");
  EXPECT_EQ(xGetPath("/a/b/c.txt"), "/a/b");
  EXPECT_EQ(xGetPath("/c.txt"), "/");
  EXPECT_EQ(xGetPath("c.txt"), "");
  EXPECT_EQ(xGetParentFolder("/a/b/"), "/a");
  EXPECT_EQ(xGetParentFolder("/a"), "/");
  EXPECT_EQ(xGetParentFolder("/"), "");
  EXPECT_EQ(xAddBackslash(""), "");
  EXPECT_EQ(xAddBackslash("  /home/u "), "/home/u/");
  EXPECT_EQ(xAddBackslash("/"), "/");
  EXPECT_EQ(NormalizePath(" /home//u///docs/ "), "/home/u/docs");
  EXPECT_EQ(NormalizePath("/"), "/");
  EXPECT_EQ(NormalizePath("//"), "/");
  EXPECT_EQ(NormalizePath("rel/dir/"), "rel/dir");
  EXPECT_EQ(xLongPath("/x"), "/x");
}

TEST(FileSystem, AttributesOfRealFiles) {
  test::TempDir dir;
  const auto plain = dir.Write("plain.txt", "x");
  const auto hidden = dir.Write(".hidden", "x");
  const auto ro = dir.Write("ro.txt", "x");
  ASSERT_EQ(::chmod(ro.c_str(), 0444), 0);
  const auto sub = dir.Mkdir("sub");
  const auto link = dir / "link";
  std::filesystem::create_symlink(plain, link);

  EXPECT_EQ(xGetFileAttributesWide(plain.string()), 128);
  EXPECT_EQ(xGetFileAttributesWide(hidden.string()), 2);
  EXPECT_EQ(xGetFileAttributesWide(ro.string()), 1);
  EXPECT_EQ(xGetFileAttributesWide(sub.string()), 16);
  EXPECT_EQ(xGetFileAttributesWide(link.string()), 1024);
  EXPECT_EQ(xGetFileAttributesWide((dir / "missing").string()), -1);

  struct stat st {};
  ASSERT_EQ(::lstat(hidden.c_str(), &st), 0);
  EXPECT_EQ(FileAttributesFromStat(st, ".hidden"), 2);
  ::chmod(hidden.c_str(), 0400);
  ASSERT_EQ(::lstat(hidden.c_str(), &st), 0);
  EXPECT_EQ(FileAttributesFromStat(st, hidden.string()), 3);

  EXPECT_EQ(xFormatFileAttribute(128), "N");
  EXPECT_EQ(xFormatFileAttribute(3), "RH");
  EXPECT_EQ(xFormatFileAttribute(16 | 1024 | 2), "HDL");
  EXPECT_EQ(xFormatFileAttribute(1 | 2 | 4 | 32), "RHSA");
  EXPECT_EQ(xFormatFileAttribute(0), "");
}

TEST(FileSystem, ExistenceSizeAndOddNames) {
  test::TempDir dir;
  const std::string odd = "caf\xe9-\xff.dat";  // Latin-1 bytes, no UTF-8
  const auto f = dir.Write(odd, "12345");
  EXPECT_TRUE(xExistFile_W(f.string()));
  EXPECT_FALSE(xExistFolder_W(f.string()));
  EXPECT_TRUE(xExistFolder_W(dir.path().string()));
  EXPECT_FALSE(xExistFile_W(dir.path().string()));
  EXPECT_FALSE(xExistFile_W(""));
  EXPECT_EQ(xGetFileSizeByPath_W(f.string()), 5);
  EXPECT_EQ(xGetFileSizeByPath_W((dir / "none").string()), -1);
  EXPECT_EQ(xGetFileName(f.string()), odd);
  EXPECT_EQ(xGetExtension(f.string()), "dat");
  EXPECT_EQ(xGetFileNameWithoutExtension(f.string()), "caf\xe9-\xff");
  EXPECT_FALSE(xDirEmpty_W(dir.path().string()));
  EXPECT_TRUE(xDirEmpty_W(dir.Mkdir("empty").string()));
}

TEST(FileSystem, DeleteCreateAndRemoveTrees) {
  test::TempDir dir;
  const auto ro = dir.Write("ro.txt", "x");
  ::chmod(ro.c_str(), 0444);
  std::string err;
  EXPECT_TRUE(xDeleteFile_W(ro.string(), &err));
  EXPECT_FALSE(std::filesystem::exists(ro));
  EXPECT_FALSE(xDeleteFile_W(ro.string(), &err));
  EXPECT_EQ(err, "(No such file or directory)");

  const auto deep = dir / "a/b/c";
  EXPECT_TRUE(xCreatePath_W(deep.string(), &err));
  EXPECT_TRUE(xExistFolder_W(deep.string()));
  EXPECT_TRUE(xCreatePath_W(deep.string(), &err));  // already there
  const auto file = dir.Write("a/b/file", "x");
  EXPECT_FALSE(xCreatePath_W((file / "under").string(), &err));
  EXPECT_FALSE(err.empty());

  // A link inside the tree is removed, its target outside is not touched.
  const auto outside = dir.Write("outside.txt", "keep");
  std::filesystem::create_symlink(outside, dir / "a/b/link");
  EXPECT_TRUE(xDeleteFolderR_W((dir / "a").string(), &err));
  EXPECT_FALSE(std::filesystem::exists(dir / "a"));
  EXPECT_TRUE(std::filesystem::exists(outside));
}

TEST(FileSystem, OwnerIsTheUserName) {
  test::TempDir dir;
  const auto f = dir.Write("mine.txt", "x");
  const passwd* pw = ::getpwuid(::getuid());
  ASSERT_NE(pw, nullptr);
  EXPECT_EQ(GetFileOwner(f.string()), pw->pw_name);
  EXPECT_EQ(GetFileOwner((dir / "missing").string()), "");
}

}  // namespace
}  // namespace kelvor
