// Single system calls with the test faults in front.

#include "data/fs_calls.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "data/file_system.h"
#include "frame/error_text.h"

namespace kelvor::fs {

std::string Bracketed(std::string_view text) {
  std::string s;
  s.reserve(text.size() + 2);
  s.push_back('(');
  s.append(text);
  s.push_back(')');
  return s;
}

std::string Bracketed(int err) {
  return Bracketed(ErrorText(err));
}

namespace {
inline int Result(int rc) {
  return rc == 0 ? 0 : errno;
}
}  // namespace

int Stat(const std::string& path, struct stat* st, bool follow) {
  if (const int f = InjectedFault(FsCall::Stat, path)) return f;
  return Result(follow ? ::stat(path.c_str(), st) : ::lstat(path.c_str(), st));
}

int Rename(const std::string& from, const std::string& to) {
  if (const int f = InjectedFault(FsCall::Rename, to)) return f;
  return Result(::rename(from.c_str(), to.c_str()));
}

int RenameNoReplace(const std::string& from, const std::string& to) {
  if (const int f = InjectedFault(FsCall::Rename, to)) return f;
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  const int err = errno;
  if (err != EINVAL && err != ENOSYS) return err;
  // A file system without RENAME_NOREPLACE: a second name, then the first
  // goes. link refuses an existing name, so nothing is replaced. (Folders
  // and file systems without hard links end here with the error.)
  if (::link(from.c_str(), to.c_str()) != 0) return err;
  if (::unlink(from.c_str()) != 0) {
    const int e = errno;
    ::unlink(to.c_str());
    return e;
  }
  return 0;
}

int Link(const std::string& existing, const std::string& newName) {
  if (const int f = InjectedFault(FsCall::Link, newName)) return f;
  return Result(::link(existing.c_str(), newName.c_str()));
}

int Symlink(const std::string& target, const std::string& linkPath) {
  if (const int f = InjectedFault(FsCall::Symlink, linkPath)) return f;
  return Result(::symlink(target.c_str(), linkPath.c_str()));
}

int Unlink(const std::string& path) {
  if (const int f = InjectedFault(FsCall::DeleteFile, path)) return f;
  return Result(::unlink(path.c_str()));
}

int MakeFolder(const std::string& path, mode_t mode) {
  if (const int f = InjectedFault(FsCall::CreateFolder, path)) return f;
  return Result(::mkdir(path.c_str(), mode));
}

int RemoveFolder(const std::string& path) {
  if (const int f = InjectedFault(FsCall::RemoveFolder, path)) return f;
  return Result(::rmdir(path.c_str()));
}

int CreateExclusive(const std::string& path, mode_t mode, int* fd) {
  *fd = -1;
  if (const int f = InjectedFault(FsCall::CreateFile, path)) return f;
  const int r =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, mode);
  if (r < 0) return errno;
  *fd = r;
  return 0;
}

int OpenForReading(const std::string& path, bool follow, int* fd, struct stat* st) {
  *fd = -1;
  if (const int f = InjectedFault(FsCall::OpenFile, path)) return f;
  const int r = ::open(path.c_str(),
                       O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (follow ? 0 : O_NOFOLLOW));
  if (r < 0) return errno;
  int err = 0;
  if (::fstat(r, st) != 0) {
    err = errno;
  } else if (!S_ISREG(st->st_mode)) {
    err = S_ISDIR(st->st_mode) ? EISDIR : EINVAL;
  }
  if (err) {
    ::close(r);
    return err;
  }
  ::fcntl(r, F_SETFL, 0);
  *fd = r;
  return 0;
}

int WriteAll(int fd, const void* buf, std::size_t n, const std::string& path) {
  if (const int f = InjectedFault(FsCall::WriteFile, path)) return f;
  const auto* p = static_cast<const char*>(buf);
  while (n > 0) {
    const ssize_t w = ::write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    p += w;
    n -= static_cast<std::size_t>(w);
  }
  return 0;
}

int Sync(int fd, const std::string& path) {
  if (const int f = InjectedFault(FsCall::SyncFile, path)) return f;
  return Result(::fsync(fd));
}

int SetTimes(int fd, const struct stat& st, const std::string& path) {
  if (const int f = InjectedFault(FsCall::SetTimes, path)) return f;
  const struct timespec times[2] = {st.st_atim, st.st_mtim};
  return Result(::futimens(fd, times));
}

int SetTimesAt(const std::string& path, const struct stat& st) {
  if (const int f = InjectedFault(FsCall::SetTimes, path)) return f;
  const struct timespec times[2] = {st.st_atim, st.st_mtim};
  return Result(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW));
}

std::string FolderOf(std::string_view path) {
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string TemporaryNameIn(const std::string& folder, std::string_view tag) {
  unsigned char bytes[8] = {};
  if (::getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bytes)) {
    // No entropy yet (early boot): the process and a clock make it unique
    // enough; O_EXCL and the no-replace renames catch the rest.
    struct timespec ts {};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    const unsigned long long v = (static_cast<unsigned long long>(ts.tv_nsec) << 20) ^
                                 static_cast<unsigned long long>(::getpid());
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(v >> (8 * i));
  }
  static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuv";
  std::string name = folder;
  if (name.empty() || name.back() != '/') name.push_back('/');
  name.append(".~kelvor-");
  name.append(tag);
  name.push_back('-');
  for (unsigned char b : bytes) {
    name.push_back(kDigits[b & 31]);
    name.push_back(kDigits[(b >> 5) & 7]);
  }
  return name;
}

int CopyData(int in, int out, const std::string& target) {
  // copy_file_range first: in-kernel, and on file systems that can, shared
  // or server-side. Some kernels and file systems refuse it (EXDEV across
  // file systems before 5.3, EINVAL, EOPNOTSUPP, ENOSYS); the copy then goes
  // on with read and write from where it stands.
  bool useRange = true;
  for (;;) {
    if (const int f = InjectedFault(FsCall::WriteFile, target)) return f;
    if (useRange) {
      const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
      if (n > 0) continue;
      if (n == 0) break;
      if (errno == EINTR) continue;
      if (errno == EXDEV || errno == EINVAL || errno == EOPNOTSUPP || errno == ENOSYS ||
          errno == EBADF || errno == EPERM) {
        useRange = false;
        continue;
      }
      return errno;
    }
    std::vector<char> buf(1 << 20);
    for (;;) {
      const ssize_t r = ::read(in, buf.data(), buf.size());
      if (r < 0) {
        if (errno == EINTR) continue;
        return errno;
      }
      if (r == 0) return 0;
      if (const int e = WriteAll(out, buf.data(), static_cast<std::size_t>(r), target)) return e;
    }
  }
  return 0;
}

}  // namespace kelvor::fs
