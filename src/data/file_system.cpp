// z_Filesystem on POSIX: existence, names, attributes, sizes, deletion.

#include "data/file_system.h"

#include "data/fs_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "frame/error_text.h"

namespace kelvor {

namespace {

thread_local const FileSystemFaults* tCurrentFaults = nullptr;

using fs::Bracketed;

std::string_view Trim(std::string_view s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

std::string_view FileNamePart(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// openat that gives an interrupted call a few more tries but never loops
// on it: the caller's stop must not wait behind a stream of signals.
int OpenAtOnce(int dirFd, const char* name, int flags) {
  int fd = -1;
  for (int attempt = 0; attempt < 3; ++attempt) {
    fd = ::openat(dirFd, name, flags);
    if (fd >= 0 || errno != EINTR) break;
  }
  return fd;
}

// Opens `path` with `flags` for its last component. A path that the system
// would refuse as too long is resolved in pieces shorter than PATH_MAX, each
// relative to the folder descriptor of the piece before; the folders are
// opened with O_PATH, which needs no read permission and opens nothing that
// could block.
int OpenPath(const std::string& path, int flags) {
  if (path.size() < PATH_MAX) return OpenAtOnce(AT_FDCWD, path.c_str(), flags);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    errno = ENAMETOOLONG;
    return -1;
  }
  const std::string_view folder = std::string_view(path).substr(0, slash + 1);
  int dirFd = AT_FDCWD;
  std::size_t start = 0;
  while (start < folder.size()) {
    // A piece after the first never begins with "/", which would make it
    // absolute ("a//b" has an empty component).
    while (start > 0 && start < folder.size() && folder[start] == '/') ++start;
    if (start >= folder.size()) break;
    // The longest piece up to a "/" that the system takes as one path.
    std::size_t end = folder.size();
    if (end - start >= PATH_MAX) {
      end = folder.rfind('/', start + PATH_MAX - 2);
      if (end == std::string_view::npos || end < start) {
        if (dirFd != AT_FDCWD) ::close(dirFd);
        errno = ENAMETOOLONG;
        return -1;
      }
      ++end;  // the piece keeps its "/"
    }
    const std::string piece(folder.substr(start, end - start));
    const int next = OpenAtOnce(dirFd, piece.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int saved = errno;
    if (dirFd != AT_FDCWD) ::close(dirFd);
    if (next < 0) {
      errno = saved;
      return -1;
    }
    dirFd = next;
    start = end;
  }
  const int fd = OpenAtOnce(dirFd, path.c_str() + slash + 1, flags);
  const int saved = errno;
  if (dirFd != AT_FDCWD) ::close(dirFd);
  errno = saved;
  return fd;
}

}  // namespace

namespace {

// The checks of an open for reading on the descriptor just opened: a
// regular file, the one expected, back in blocking mode.
int CheckOpened(int fd, const ExpectedFile* expected, std::string* errorText, struct stat* stOut,
                bool keepNonBlocking = false) {
  struct stat st {};
  std::string why;
  if (::fstat(fd, &st) != 0) {
    why = ErrorText(errno);
  } else if (!S_ISREG(st.st_mode)) {
    why = S_ISDIR(st.st_mode) ? ErrorText(EISDIR) : "not a regular file";
  } else if (expected && (expected->device != 0 || expected->inode != 0) &&
             !IdentityOf(st).SameFile(FileIdentity{expected->device, expected->inode})) {
    why = "replaced by another file after the folder was read";
  } else if (expected && expected->size >= 0 &&
             static_cast<std::int64_t>(st.st_size) != expected->size) {
    why = "size changed after the folder was read: " + std::to_string(st.st_size) +
          " bytes instead of " + std::to_string(expected->size);
  } else {
    // Reads of a regular file never wait for a writer; the flag only had to
    // keep the open itself from waiting. Of the flags F_SETFL can change only
    // O_NONBLOCK was given, so setting none clears it in one call.
    if (!keepNonBlocking) ::fcntl(fd, F_SETFL, 0);
    if (stOut) *stOut = st;
    return fd;
  }
  ::close(fd);
  if (errorText) *errorText = std::move(why);
  return -1;
}

constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;

}  // namespace

int xOpenFileForReading(std::string_view path, const ExpectedFile* expected, std::string* errorText,
                        struct stat* stOut, bool keepNonBlocking) {
  int err = path.empty() ? ENOENT : InjectedFault(FsCall::OpenFile, path);
  const int fd = err ? -1 : OpenPath(std::string(path), kReadFlags);
  if (fd < 0) {
    if (!err) err = errno;
    if (errorText) *errorText = ErrorText(err);
    return -1;
  }
  return CheckOpened(fd, expected, errorText, stOut, keepNonBlocking);
}

int xOpenFileForReadingAt(int dirFd, const char* name, std::string_view path,
                          const ExpectedFile* expected, std::string* errorText,
                          struct stat* stOut) {
  int err = InjectedFault(FsCall::OpenFile, path);
  const int fd = err ? -1 : OpenAtOnce(dirFd, name, kReadFlags);
  if (fd < 0) {
    if (!err) err = errno;
    if (errorText) *errorText = ErrorText(err);
    return -1;
  }
  return CheckOpened(fd, expected, errorText, stOut);
}

// ---------------------------------------------------------------------------
// ReadFile

namespace {
// What the kernel reads ahead of a file without being told (128 KiB on
// common setups): a hint for a range no longer than this changes nothing
// but costs a call per file.
constexpr std::int64_t kKernelReadAhead = 128 * 1024;
}  // namespace

ReadFile::~ReadFile() {
  Close();
}

void ReadFile::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool ReadFile::Open(const std::string& path, bool sequential, std::string* err,
                    const ExpectedFile* expected) {
  Close();
  advised_ = false;
  blocking_ = false;
  std::string why;
  // O_NONBLOCK stays: reads of a regular file do not heed it, and where a
  // file system would, ReadAt clears it on the first EAGAIN.
  fd_ = xOpenFileForReading(path, expected, &why, &st_, true);
  if (fd_ < 0) {
    if (err) *err = why;
    return false;
  }
  readFault_ = InjectedFault(FsCall::ReadFile, path);
  if (sequential && st_.st_size > kKernelReadAhead) {
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    advised_ = true;
  }
  return true;
}

bool ReadFile::Stat(struct stat* st, std::string* err) const {
  if (fd_ < 0) {
    if (err) *err = ErrorText(EBADF);
    return false;
  }
  *st = st_;
  return true;
}

std::int64_t ReadFile::Size(std::string* err) const {
  struct stat st;
  if (!Stat(&st, err)) return -1;
  return static_cast<std::int64_t>(st.st_size);
}

std::int64_t ReadFile::ReadAt(void* buf, std::size_t n, std::int64_t offset,
                              std::string* err) const {
  if (offset < 0 || readFault_ != 0) {
    if (err) *err = ErrorText(offset < 0 ? EINVAL : readFault_);
    return -1;
  }
  auto* p = static_cast<unsigned char*>(buf);
  std::size_t done = 0;
  while (done < n) {
    ssize_t got = ::pread(fd_, p + done, n - done, static_cast<off_t>(offset + done));
    if (got < 0) {
      if (errno == EINTR) continue;
      if ((errno == EAGAIN || errno == EWOULDBLOCK) && !blocking_) {
        blocking_ = true;
        if (::fcntl(fd_, F_SETFL, 0) == 0) continue;
      }
      if (err) *err = ErrorText(errno);
      return -1;
    }
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<std::int64_t>(done);
}

void ReadFile::Sequential(std::int64_t offset, std::int64_t len) {
  if (fd_ < 0 || advised_ || len <= kKernelReadAhead) return;
  ::posix_fadvise(fd_, offset, len, POSIX_FADV_SEQUENTIAL);
  advised_ = true;
}

// ---------------------------------------------------------------------------
// Folders

int xOpenFolder(std::string_view path) {
  const std::string p = path.empty() ? std::string("/") : std::string(path);
  if (const int err = InjectedFault(FsCall::OpenFolder, p)) {
    errno = err;
    return -1;
  }
  return ::open(p.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

int xOpenFolderAt(int dirFd, const char* name, bool followLink) {
  if (const int err = InjectedFault(FsCall::OpenFolder, name)) {
    errno = err;
    return -1;
  }
  return ::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW));
}

int xReadFolder(int fd, FileIdentity* id, FolderEntryFn each, void* context) {
  if (id) {
    struct stat st;
    if (::fstat(fd, &st) != 0) return errno;
    *id = IdentityOf(st);
  }
  // readdir takes the descriptor over: it reads a duplicate, so that the
  // folder stays open for the statx and openat of its entries.
  const int dupfd = ::dup(fd);
  if (dupfd < 0) return errno;
  DIR* d = ::fdopendir(dupfd);
  if (!d) {
    const int err = errno;
    ::close(dupfd);
    return err;
  }
  errno = 0;
  while (const dirent* e = ::readdir(d)) {
    const char* n = e->d_name;
    if (!(n[0] == '.' && (n[1] == 0 || (n[1] == '.' && n[2] == 0))))
      each(context, n, std::strlen(n), e->d_type);
    errno = 0;
  }
  const int err = errno;
  ::closedir(d);
  return err;
}

int xStatAt(int dirFd, const char* name, bool followLink, unsigned mask, struct statx* out) {
  if (const int err = InjectedFault(FsCall::StatEntry, name)) {
    errno = err;
    return -1;
  }
  return ::statx(dirFd, name, AT_NO_AUTOMOUNT | (followLink ? 0 : AT_SYMLINK_NOFOLLOW), mask, out);
}

void xCloseFd(int fd) {
  if (fd >= 0) ::close(fd);
}

// ---------------------------------------------------------------------------
// Faults

void FileSystemFaults::Fail(FsCall call, std::string pathEnd, int err) {
  Rule& r = rules_.emplace_back();
  r.call = call;
  r.pathEnd = std::move(pathEnd);
  r.err = err;
  r.nth = 0;
  r.onward = false;
}

void FileSystemFaults::FailNth(FsCall call, int n, int err, std::string pathEnd) {
  Fail(call, std::move(pathEnd), err);
  rules_.back().nth = n < 1 ? 1 : n;
}

void FileSystemFaults::FailFromNth(FsCall call, int n, int err, std::string pathEnd) {
  FailNth(call, n, err, std::move(pathEnd));
  rules_.back().onward = true;
}

int FileSystemFaults::ErrorFor(FsCall call, std::string_view path) const {
  for (const Rule& r : rules_) {
    if ((r.call != call && r.call != FsCall::Any) || path.size() < r.pathEnd.size() ||
        path.substr(path.size() - r.pathEnd.size()) != r.pathEnd)
      continue;
    if (r.nth > 0) {
      const int count = r.seen.fetch_add(1) + 1;
      if (count < r.nth || (count > r.nth && !r.onward)) continue;
    }
    fired_.fetch_add(1);
    return r.err;
  }
  return 0;
}

int FileSystemFaults::Fired() const {
  return fired_.load();
}

const FileSystemFaults* FileSystemFaults::Current() {
  return tCurrentFaults;
}

FileSystemFaults::Scope::Scope(const FileSystemFaults* faults) : previous_(tCurrentFaults) {
  tCurrentFaults = faults;
}

FileSystemFaults::Scope::~Scope() {
  tCurrentFaults = previous_;
}

bool xExistFile_W(std::string_view path) {
  struct stat st {};
  if (path.empty() || ::stat(std::string(path).c_str(), &st) != 0) return false;
  return !S_ISDIR(st.st_mode);
}

bool xExistFolder_W(std::string_view path) {
  FileIdentity id;
  return xFolderIdentity(path, &id);
}

bool xFolderIdentity(std::string_view path, FileIdentity* id) {
  struct stat st {};
  if (path.empty() || ::stat(std::string(path).c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    return false;
  *id = IdentityOf(st);
  return true;
}

bool xDirEmpty_W(std::string_view path) {
  DIR* d = ::opendir(std::string(path).c_str());
  if (!d) return false;
  bool empty = true;
  while (const dirent* e = ::readdir(d)) {
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) {
      empty = false;
      break;
    }
  }
  ::closedir(d);
  return empty;
}

std::string xGetExtension(std::string_view path) {
  const std::string_view name = FileNamePart(path);
  const auto dot = name.rfind('.');
  return dot == std::string_view::npos ? std::string() : std::string(name.substr(dot + 1));
}

std::string xGetFileName(std::string_view path) {
  return std::string(FileNamePart(path));
}

std::string xGetFileNameWithoutExtension(std::string_view path) {
  const std::string_view name = FileNamePart(path);
  const auto dot = name.rfind('.');
  return std::string(dot == std::string_view::npos ? name : name.substr(0, dot));
}

std::string xGetPath(std::string_view path) {
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string xGetParentFolder(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (path == "/") return {};
  return xGetPath(path);
}

std::string xAddBackslash(std::string_view path) {
  const std::string_view t = Trim(path);
  if (t.empty()) return {};
  std::string s(t);
  if (s.back() != '/') s.push_back('/');
  return s;
}

std::string NormalizePath(std::string_view path) {
  const std::string_view t = Trim(path);
  std::string s;
  s.reserve(t.size());
  for (char c : t) {
    if (c == '/' && !s.empty() && s.back() == '/') continue;
    s.push_back(c);
  }
  if (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

std::int32_t FileAttributesFromStat(const struct stat& st, std::string_view name) {
  std::int32_t a = 0;
  if ((st.st_mode & S_IWUSR) == 0) a |= 1;
  const std::string_view base = FileNamePart(name);
  if (!base.empty() && base.front() == '.' && base != "." && base != "..") a |= 2;
  if (S_ISDIR(st.st_mode)) a |= 16;
  if (S_ISLNK(st.st_mode)) a |= 1024;
  if (a == 0) a = 128;
  return a;
}

std::int32_t xGetFileAttributesWide(std::string_view path) {
  struct stat st {};
  if (::lstat(std::string(path).c_str(), &st) != 0) return -1;
  return FileAttributesFromStat(st, path);
}

std::string xFormatFileAttribute(std::int32_t attributes) {
  static constexpr struct {
    std::int32_t bit;
    char letter;
  } kLetters[] = {{1, 'R'},    {2, 'H'},    {4, 'S'},    {16, 'D'},   {32, 'A'},
                  {128, 'N'},  {256, 'T'},  {512, 'P'},  {1024, 'L'}, {2048, 'C'},
                  {4096, 'O'}, {8192, 'I'}, {16384, 'E'}};
  std::string s;
  if (attributes < 0) return s;
  for (const auto& l : kLetters) {
    if (attributes & l.bit) s.push_back(l.letter);
  }
  return s;
}

std::int64_t xGetFileSizeByPath_W(std::string_view path) {
  struct stat st {};
  if (::stat(std::string(path).c_str(), &st) != 0) return -1;
  return static_cast<std::int64_t>(st.st_size);
}

int xCreateNewFile_W(std::string_view path, std::string* errorText) {
  const std::string p(path);
  int fd = -1;
  const int err = fs::CreateExclusive(p, 0600, &fd);
  if (err != 0 && errorText) *errorText = Bracketed(ErrorText(err));
  return fd;
}

int xWriteAll(int fd, const void* data, std::size_t n, std::string_view path) {
  return fs::WriteAll(fd, data, n, std::string(path));
}

bool xDeleteFile_W(std::string_view path, std::string* errorText) {
  const std::string p(path);
  if (const int fault = InjectedFault(FsCall::DeleteFile, p)) {
    if (errorText) *errorText = Bracketed(ErrorText(fault));
    return false;
  }
  if (::unlink(p.c_str()) == 0) return true;
  int err = errno;
  std::string text;
  if (err == EACCES || err == EPERM) {
    // The second try, with the owner's write permission given back.
    struct stat st {};
    if (::lstat(p.c_str(), &st) != 0 || ::chmod(p.c_str(), st.st_mode | S_IWUSR) != 0) {
      text = " SetFA: ";
      text += Bracketed(ErrorText(errno));
    }
    if (::unlink(p.c_str()) == 0) return true;
    err = errno;
  }
  if (errorText) *errorText = Bracketed(ErrorText(err)) + text;
  return false;
}

bool xCreatePath_W(std::string_view path, std::string* errorText) {
  if (const int fault = InjectedFault(FsCall::CreateFolder, path)) {
    if (errorText) *errorText = Bracketed(ErrorText(fault));
    return false;
  }
  std::error_code ec;
  const std::filesystem::path p{std::string(path)};
  std::filesystem::create_directories(p, ec);
  if (ec) {
    if (errorText) *errorText = Bracketed(ErrorText(ec));
    return false;
  }
  if (!std::filesystem::is_directory(p, ec)) {
    if (errorText) *errorText = Bracketed(ErrorText(ENOTDIR));
    return false;
  }
  return true;
}

bool xDeleteFolderR_W(std::string_view path, std::string* errorText) {
  std::error_code ec;
  std::filesystem::remove_all(std::filesystem::path{std::string(path)}, ec);
  if (ec) {
    if (errorText) *errorText = Bracketed(ErrorText(ec));
    return false;
  }
  return true;
}

std::string GetFileOwner(uid_t uid) {
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  if (size <= 0) size = 16384;
  std::vector<char> buf(static_cast<std::size_t>(size));
  for (int attempt = 0; attempt < 6; ++attempt) {
    struct passwd pw {};
    struct passwd* result = nullptr;
    const int rc = ::getpwuid_r(uid, &pw, buf.data(), buf.size(), &result);
    if (rc == ERANGE) {
      buf.resize(buf.size() * 2);
      continue;
    }
    if (rc != 0 || result == nullptr || result->pw_name == nullptr) return {};
    return result->pw_name;
  }
  return {};
}

std::string GetFileOwner(std::string_view path) {
  struct stat st {};
  if (::stat(std::string(path).c_str(), &st) != 0) return {};
  return GetFileOwner(st.st_uid);
}

}  // namespace kelvor
