#pragma once
// The single system calls the operations of file_ops and trash are built
// from, each asking the test faults first. Each answers 0 or the errno of the
// failure (never -1 with errno, so no later call can overwrite the error).
// Internal to data/.

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace kelvor::fs {

// "(text)" of an errno.
std::string Bracketed(int err);
std::string Bracketed(std::string_view text);

// lstat (follow = false) or stat.
int Stat(const std::string& path, struct stat* st, bool follow = false);
// rename(2) replacing a target; RenameNoReplace refuses an existing target
// with EEXIST (renameat2, or link + unlink where the file system lacks it).
int Rename(const std::string& from, const std::string& to);
int RenameNoReplace(const std::string& from, const std::string& to);
int Link(const std::string& existing, const std::string& newName);
int Symlink(const std::string& target, const std::string& linkPath);
int Unlink(const std::string& path);
int MakeFolder(const std::string& path, mode_t mode);
int RemoveFolder(const std::string& path);
// A new file for writing (O_EXCL, a symbolic link in its place not
// followed); *fd gets the descriptor.
int CreateExclusive(const std::string& path, mode_t mode, int* fd);
// Opens a file for reading (regular files only; `follow` decides about a
// symbolic link in the last place). *st gets its fstat.
int OpenForReading(const std::string& path, bool follow, int* fd, struct stat* st);
// Writes all of buf (the faults of WriteFile, named by `path`).
int WriteAll(int fd, const void* buf, std::size_t n, const std::string& path);
int Sync(int fd, const std::string& path);
// Access and change dates of `st` on the open file / the path (not followed).
int SetTimes(int fd, const struct stat& st, const std::string& path);
int SetTimesAt(const std::string& path, const struct stat& st);

// The folder of a path ("." for a bare name) and "<folder>/.~kelvor-<tag>-<random>".
std::string FolderOf(std::string_view path);
std::string TemporaryNameIn(const std::string& folder, std::string_view tag);

// Copies the data of `in` to `out` from the start: copy_file_range, or
// read/write where the kernel cannot. `target` names the written file for
// the faults.
int CopyData(int in, int out, const std::string& target);

}  // namespace kelvor::fs
