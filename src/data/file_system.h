#pragma once
// z_Filesystem: the file operations the search needs, on POSIX calls.
//
// Paths are UTF-8 (or any bytes: Linux names need not be valid UTF-8, and
// they pass through unchanged). The separator is "/". Failures are answered
// by the return value and, where an operation has one, an error text; nothing
// here throws for a file-system failure.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kelvor {

// Long paths need no prefix on Linux: the identity.
inline std::string xLongPath(std::string_view path) {
  return std::string(path);
}

// A file (anything but a folder; symbolic links followed) exists at path.
bool xExistFile_W(std::string_view path);
// A folder (symbolic links followed) exists at path.
bool xExistFolder_W(std::string_view path);
// The folder holds nothing (false when it cannot be read).
bool xDirEmpty_W(std::string_view path);

// --- string helpers, no system calls ---

// What follows the last "." of the file name (the part behind the last "/"),
// "" when the name has no ".". As on Windows, ".bashrc" has the extension
// "bashrc" and an empty base name.
std::string xGetExtension(std::string_view path);
// The part behind the last "/".
std::string xGetFileName(std::string_view path);
// The file name without "." and extension.
std::string xGetFileNameWithoutExtension(std::string_view path);
// The folder part without the trailing "/": "/a/b/c.txt" -> "/a/b",
// "/c.txt" -> "/", "c.txt" -> "".
std::string xGetPath(std::string_view path);
// The folder that holds the given file or folder (a trailing "/" is ignored):
// "/a/b/" -> "/a", "/a" -> "/", "/" -> "".
std::string xGetParentFolder(std::string_view path);
// Trims the path and appends "/" when it does not end in one; "" stays "".
std::string xAddBackslash(std::string_view path);
// Trims blanks, collapses "//" runs and removes a trailing "/" (except the
// root "/" itself).
std::string NormalizePath(std::string_view path);

// --- attributes (Windows bit numbers, so that keys and saved results keep
// their form) ---

// Attribute bits of a stat result taken with lstat/fstatat(AT_SYMLINK_NOFOLLOW):
// 1 read-only (the owner may not write), 2 hidden (the name begins with "."),
// 16 folder, 1024 reparse point (symbolic link), 128 normal when none of the
// others is set.
std::int32_t FileAttributesFromStat(const struct stat& st, std::string_view name);
// The same for a path (lstat); -1 when the path cannot be read.
std::int32_t xGetFileAttributesWide(std::string_view path);
// The letters of the usual Windows attribute display, in bit order:
// R read-only (1), H hidden (2), S system (4), D folder (16), A archive (32),
// N normal (128), T temporary (256), P sparse (512), L reparse point (1024),
// C compressed (2048), O offline (4096), I not content indexed (8192),
// E encrypted (16384).
std::string xFormatFileAttribute(std::int32_t attributes);

// --- sizes, deletion, folders ---

// Size in bytes (symbolic links followed); -1 when the file cannot be read.
std::int64_t xGetFileSizeByPath_W(std::string_view path);
// Deletes a file. When the first try fails, the owner's write permission is
// added and the delete tried again. On failure *errorText (may be null) gets
// the system's text in brackets; a failed permission step adds " SetFA:".
bool xDeleteFile_W(std::string_view path, std::string* errorText = nullptr);
// Creates a new file for writing that did not exist before (a symbolic link
// in its place is not followed), readable by the owner only. Returns the
// descriptor (close-on-exec), or -1 and *errorText gets the system's text.
int xCreateNewFile_W(std::string_view path, std::string* errorText = nullptr);
// Makes the folder and all missing parents. True when the folder exists.
bool xCreatePath_W(std::string_view path, std::string* errorText = nullptr);
// Removes a folder and everything below it (symbolic links are removed, not
// followed). True when nothing is left.
bool xDeleteFolderR_W(std::string_view path, std::string* errorText = nullptr);

// --- reading the files a walk found ---

// What the walk saw of a file: a later open for reading must find the same
// file again, or the file changed in between and is not to be read.
struct ExpectedFile {
  std::int64_t size = -1;    // bytes; -1: not checked
  std::uint64_t device = 0;  // device and inode; both 0: not checked
  std::uint64_t inode = 0;
  bool operator==(const ExpectedFile&) const = default;
};

// Opens a file for reading, in a way that can never hold the caller:
//  - O_NONBLOCK, so that a FIFO or a device put in the file's place cannot
//    block the open; a symbolic link in the last place is not followed;
//  - a path longer than PATH_MAX is opened folder by folder, each step
//    relative to the descriptor of the step before, so that trees of any
//    depth can be read;
//  - what was opened must be a regular file and, where `expected` is given,
//    the same file (device and inode) of the same size as the walk saw.
// Returns the descriptor (close-on-exec, back in blocking mode), or -1 and
// *errorText (may be null) gets the system's text or the reason why the file
// is no longer the one expected. *st (may be null) receives its fstat.
int xOpenFileForReading(std::string_view path, const ExpectedFile* expected, std::string* errorText,
                        struct stat* st = nullptr);

// --- owner ---

// User name of a user number; "" when unknown.
std::string GetFileOwner(uid_t uid);
// User name of the owner of a file (symbolic links followed); "" on failure.
std::string GetFileOwner(std::string_view path);

}  // namespace kelvor
