#pragma once
// z_Filesystem: the file operations the search needs, on POSIX calls.
//
// Paths are UTF-8 (or any bytes: Linux names need not be valid UTF-8, and
// they pass through unchanged). The separator is "/". Failures are answered
// by the return value and, where an operation has one, an error text
// (ErrorText of frame/error_text.h); nothing here throws for a file-system
// failure.
//
// Every access of the program to the files it searches goes through here, so
// that a test can make any of these calls fail with an error of its choice
// (FileSystemFaults below).

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "data/file_identity.h"

namespace kelvor {

// --- faults for tests ---

// The calls a test can make fail.
enum class FsCall : std::uint8_t {
  OpenFolder,    // opening a folder to read its entries
  StatEntry,     // the walk's stat of a folder entry
  OpenFile,      // opening a file for reading
  ReadFile,      // reading from a file opened for reading
  CreateFolder,  // making a folder (xCreatePath_W)
  DeleteFile,    // deleting a file (xDeleteFile_W)
  // The calls of the operations that change files (data/file_ops.h,
  // data/trash.h). The path a rule sees is named with each.
  Stat,          // a status call before an operation (the path looked at)
  CreateFile,    // creating a file for writing: a copy's temporary file, a
                 // .trashinfo, the open of SetFileToZeroLength (the new path)
  WriteFile,     // writing data into a created file: each block of a copy, of
                 // an export (OutputFile: the path is the target's), of a
                 // saved result (data/file_write.h)
  SyncFile,      // flushing a written file to the disk
  SetTimes,      // setting a file's dates (the file)
  SetMode,       // setting mode or owner (the file)
  Rename,        // renaming (the new name); OutputFile::Commit putting a
                 // finished file in its place
  Link,          // making a hard link (the new name)
  Symlink,       // making a symbolic link (the new name)
  ShareBlocks,   // FIDEDUPERANGE / FICLONE (the file that takes the blocks)
  RemoveFolder,  // removing an empty folder
  Any,           // in a rule: every call above
};

// Failures a test wants to see. Production code never makes one: the calls
// above ask `FileSystemFaults::Current()`, which is null unless a test has
// put a set of faults in place for the calling thread with a Scope. A thread
// that works for another (a read-ahead helper) takes over the faults of the
// thread that starts it: `Scope scope(captured)` at its start, with the
// pointer `Current()` gave when it was made. Add rules before the Scope; from
// then on the rules are only read (their call counters are atomic), from any
// thread.
class FileSystemFaults {
 public:
  FileSystemFaults() = default;
  FileSystemFaults(const FileSystemFaults&) = delete;
  FileSystemFaults& operator=(const FileSystemFaults&) = delete;

  // From now on `call` fails with `err` on every path whose end is
  // `pathEnd` ("" = every path). The per-entry calls of the walk see the
  // entry's name, the others the path they were given.
  void Fail(FsCall call, std::string pathEnd, int err);
  // Only the n-th call (1-based) of `call` whose path ends in `pathEnd`
  // fails with `err`; the calls before and after it succeed. FsCall::Any
  // counts every call of the layer that changes files or reads them.
  void FailNth(FsCall call, int n, int err, std::string pathEnd = {});
  // The n-th such call and every one after it fail (a disk that stays full).
  void FailFromNth(FsCall call, int n, int err, std::string pathEnd = {});
  // The errno `call` on `path` fails with; 0 = none. Counts the call for
  // the rules that count.
  int ErrorFor(FsCall call, std::string_view path) const;
  // How many calls failed through these rules so far: a test that walks n
  // upwards stops when a run no longer reaches the n-th call.
  int Fired() const;

  // The faults in place for the calling thread; null in production.
  static const FileSystemFaults* Current();

  class Scope {
   public:
    explicit Scope(const FileSystemFaults* faults);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    const FileSystemFaults* previous_;
  };

 private:
  struct Rule {
    FsCall call;
    std::string pathEnd;
    int err;
    int nth;      // 0: every call
    bool onward;  // the nth call and all later ones
    mutable std::atomic<int> seen{0};
  };
  std::deque<Rule> rules_;
  mutable std::atomic<int> fired_{0};
};

// The errno a test wants `call` on `path` to fail with; 0 in production
// (one thread-local read, no system call).
inline int InjectedFault(FsCall call, std::string_view path) {
  const FileSystemFaults* f = FileSystemFaults::Current();
  return f ? f->ErrorFor(call, path) : 0;
}

// Long paths need no prefix on Linux: the identity.
inline std::string xLongPath(std::string_view path) {
  return std::string(path);
}

// A file (anything but a folder; symbolic links followed) exists at path.
bool xExistFile_W(std::string_view path);
// A folder (symbolic links followed) exists at path.
bool xExistFolder_W(std::string_view path);
// The same, with the folder's identity (device and inode) in *id.
bool xFolderIdentity(std::string_view path, FileIdentity* id);
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
// Writes all of `n` bytes to `fd`, the file at `path`. 0, or the errno of
// the failure (a full disk: ENOSPC).
int xWriteAll(int fd, const void* data, std::size_t n, std::string_view path);
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
  // The modification and status-change times in nanoseconds the walk saw (0:
  // unknown). Not checked on opening, and no part of what the file must be:
  // the checksum cache may answer by them without a stat of its own.
  std::int64_t mtimeNs = 0;
  std::int64_t ctimeNs = 0;
  bool operator==(const ExpectedFile& o) const {
    return size == o.size && device == o.device && inode == o.inode;
  }
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
// With `keepNonBlocking` the descriptor keeps O_NONBLOCK (a call spared per
// file); its reader must then meet EAGAIN itself (ReadFile does).
int xOpenFileForReading(std::string_view path, const ExpectedFile* expected, std::string* errorText,
                        struct stat* st = nullptr, bool keepNonBlocking = false);

// The same relative to an open folder: `name` is a name in the folder of
// `dirFd` (the per-file path of a walk, with no lookup of the full path).
// `path` is the full path, for the texts and the faults only.
int xOpenFileForReadingAt(int dirFd, const char* name, std::string_view path,
                          const ExpectedFile* expected, std::string* errorText,
                          struct stat* st = nullptr);

// A file opened for reading (xOpenFileForReading): positioned reads, its
// size, read-ahead hints. Closes itself.
class ReadFile {
 public:
  ReadFile() = default;
  ~ReadFile();
  ReadFile(const ReadFile&) = delete;
  ReadFile& operator=(const ReadFile&) = delete;

  // Opens through xOpenFileForReading: never waits (a FIFO in the file's
  // place is refused), reaches paths of any length, and where `expected` is
  // given insists on the file the walk saw, at its size. `sequential` hints
  // the kernel to read ahead (files longer than its own read-ahead only). On
  // failure returns false and *err holds the system's text or the reason.
  bool Open(const std::string& path, bool sequential, std::string* err,
            const ExpectedFile* expected = nullptr);
  // Size of the file when it was opened (from the open's own status call;
  // reads find out when it shrank since); -1 with *err when none is open.
  std::int64_t Size(std::string* err) const;
  // The status of the file as the open took it; false with *err when none
  // is open.
  bool Stat(struct stat* st, std::string* err) const;
  const struct stat& Stat() const { return st_; }
  // Reads up to `n` bytes at `offset`, repeating short reads until the end
  // of the file. Returns the bytes read (less than n only at the end), or -1
  // with *err set. A negative offset fails with EINVAL.
  std::int64_t ReadAt(void* buf, std::size_t n, std::int64_t offset, std::string* err) const;
  // Hints the kernel that [offset, offset+len) will be read in order. Does
  // nothing for ranges its default read-ahead covers anyway, or when the
  // open gave the hint already (it applies to the whole file).
  void Sequential(std::int64_t offset, std::int64_t len);
  void Close();
  bool IsOpen() const { return fd_ >= 0; }
  int Fd() const { return fd_; }

 private:
  int fd_ = -1;
  int readFault_ = 0;  // a test's error for every read; 0 in production
  bool advised_ = false;
  mutable bool blocking_ = false;  // O_NONBLOCK cleared after an EAGAIN
  struct stat st_ {};
};

// --- folders, for the walk: each call one system call on a descriptor ---

// Opens a folder to read its entries (close-on-exec). `path` "" is "/".
// -1 with errno on failure.
int xOpenFolder(std::string_view path);
// Opens the folder `name` of the open folder `dirFd`; a symbolic link in
// its place is followed only with `followLink`. -1 with errno on failure.
int xOpenFolderAt(int dirFd, const char* name, bool followLink);
// Reads the entries of the open folder `fd` (without "." and "..") and
// gives each to `each(name, length, d_type)`; *id (may be null) gets the
// folder's identity. The descriptor stays open and keeps its position.
// 0, or the errno of the failure.
using FolderEntryFn = void (*)(void* context, const char* name, std::size_t length,
                               unsigned char type);
int xReadFolder(int fd, FileIdentity* id, FolderEntryFn each, void* context);
template <class F>
int xReadFolder(int fd, FileIdentity* id, F&& each) {
  return xReadFolder(
      fd, id,
      [](void* c, const char* name, std::size_t length, unsigned char type) {
        (*static_cast<std::remove_reference_t<F>*>(c))(name, length, type);
      },
      &each);
}
// statx of the entry `name` of the open folder `dirFd` (automounts are not
// triggered; a symbolic link is followed only with `followLink`). With
// AT_FDCWD `name` may be a whole path. 0, or -1 with errno.
int xStatAt(int dirFd, const char* name, bool followLink, unsigned mask, struct statx* out);
// Closes a descriptor these functions gave.
void xCloseFd(int fd);

// --- owner ---

// User name of a user number; "" when unknown.
std::string GetFileOwner(uid_t uid);
// User name of the owner of a file (symbolic links followed); "" on failure.
std::string GetFileOwner(std::string_view path);

}  // namespace kelvor
