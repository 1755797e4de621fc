#pragma once
// Helpers of the file-operation tests: a picture of a whole folder tree (to
// prove that a failed operation changed nothing), a second file system.

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "support/temp_tree.h"

namespace kelvor::test {

// Every entry below `root` (mount points crossed) as "F <bytes> <mode>",
// "L <target>" or "D"; files that are one file (hard links) share a number
// ("#1", "#2" in the order met), so a link made or undone shows. The
// root's own path inside a file reads "<root>".
inline std::map<std::string, std::string> TreePicture(const std::filesystem::path& root) {
  std::map<std::string, std::string> out;
  std::map<std::pair<dev_t, ino_t>, int> inodes;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(root, ec);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    const std::string rel = std::filesystem::relative(it->path(), root).string();
    struct stat st {};
    if (::lstat(it->path().c_str(), &st) != 0) continue;
    std::string v;
    if (S_ISLNK(st.st_mode)) {
      v = "L " + std::filesystem::read_symlink(it->path()).string();
    } else if (S_ISDIR(st.st_mode)) {
      v = "D";
    } else {
      auto [pos, fresh] = inodes.emplace(std::pair{st.st_dev, st.st_ino}, int(inodes.size()) + 1);
      std::string bytes = ReadBytes(it->path());
      // A file that names the tree (a .trashinfo) reads the same in any tree.
      for (auto at = bytes.find(root.string()); at != std::string::npos;
           at = bytes.find(root.string(), at))
        bytes.replace(at, root.string().size(), "<root>");
      v = "F " + bytes + " " + std::to_string(st.st_mode & 07777) + " #" +
          std::to_string(pos->second);
    }
    out[rel] = v;
  }
  return out;
}

// Names of temporary files the operations left anywhere below `root`.
inline int LeftoverTemporaries(const std::filesystem::path& root) {
  int n = 0;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(root, ec);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    if (it->path().filename().string().rfind(".~kelvor-", 0) == 0) ++n;
  }
  return n;
}

// A tmpfs mounted on a folder of a temporary tree for the length of a test:
// a second file system. Tests that need one skip when the machine does not
// let them mount (no root, no CAP_SYS_ADMIN, a restricted container).
class SecondFileSystem {
 public:
  explicit SecondFileSystem(const std::filesystem::path& at) : at_(at) {
    std::filesystem::create_directories(at_);
    mounted_ = ::mount("tmpfs", at_.c_str(), "tmpfs", 0, "size=64m,mode=0755") == 0;
  }
  ~SecondFileSystem() {
    if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
  }
  SecondFileSystem(const SecondFileSystem&) = delete;
  SecondFileSystem& operator=(const SecondFileSystem&) = delete;
  bool mounted() const { return mounted_; }
  const std::filesystem::path& path() const { return at_; }

 private:
  std::filesystem::path at_;
  bool mounted_ = false;
};

// An XFS with reflinks on a loop device, made in a file of a temporary tree:
// a file system that shares blocks. Skipped where mkfs.xfs (Debian package
// xfsprogs) or loop mounts are missing.
class ReflinkFileSystem {
 public:
  explicit ReflinkFileSystem(const std::filesystem::path& base) : at_(base / "xfs") {
    std::filesystem::create_directories(at_);
    const std::string image = (base / "xfs.img").string();
    const std::string make = "truncate -s 320M '" + image + "' && mkfs.xfs -q -m reflink=1 '" +
                             image + "' >/dev/null 2>&1 && mount -o loop '" + image + "' '" +
                             at_.string() + "' >/dev/null 2>&1";
    mounted_ = std::system(make.c_str()) == 0;
  }
  ~ReflinkFileSystem() {
    if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
  }
  ReflinkFileSystem(const ReflinkFileSystem&) = delete;
  ReflinkFileSystem& operator=(const ReflinkFileSystem&) = delete;
  bool mounted() const { return mounted_; }
  const std::filesystem::path& path() const { return at_; }

 private:
  std::filesystem::path at_;
  bool mounted_ = false;
};

#define KELVOR_NEED_SECOND_FS(fs)                                                         \
  if (!(fs).mounted())                                                                    \
  GTEST_SKIP() << "cannot mount a tmpfs here (needs root or CAP_SYS_ADMIN): the test of " \
                  "two file systems is skipped"

}  // namespace kelvor::test
