// z_Filesystem on POSIX: existence, names, attributes, sizes, deletion.

#include "data/file_system.h"

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

namespace kelvor {

namespace {

std::string SystemText(int err) {
  return std::error_code(err, std::generic_category()).message();
}

// "(text)", built by appending (concatenating temporaries here trips a false
// -Wrestrict of g++ 12).
std::string Bracketed(const std::string& text) {
  std::string s;
  s.reserve(text.size() + 2);
  s.push_back('(');
  s.append(text);
  s.push_back(')');
  return s;
}

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

int xOpenFileForReading(std::string_view path, const ExpectedFile* expected, std::string* errorText,
                        struct stat* stOut) {
  auto fail = [&](std::string why) {
    if (errorText) *errorText = std::move(why);
    return -1;
  };
  if (path.empty()) return fail(SystemText(ENOENT));
  const int fd =
      OpenPath(std::string(path), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return fail(SystemText(errno));
  struct stat st {};
  std::string why;
  if (::fstat(fd, &st) != 0) {
    why = SystemText(errno);
  } else if (!S_ISREG(st.st_mode)) {
    why = S_ISDIR(st.st_mode) ? SystemText(EISDIR) : "not a regular file";
  } else if (expected && (expected->device != 0 || expected->inode != 0) &&
             (static_cast<std::uint64_t>(st.st_dev) != expected->device ||
              static_cast<std::uint64_t>(st.st_ino) != expected->inode)) {
    why = "replaced by another file after the folder was read";
  } else if (expected && expected->size >= 0 &&
             static_cast<std::int64_t>(st.st_size) != expected->size) {
    why = "size changed after the folder was read: " + std::to_string(st.st_size) +
          " bytes instead of " + std::to_string(expected->size);
  } else {
    // Reads of a regular file never wait for a writer; the flag only had to
    // keep the open itself from waiting.
    const int fl = ::fcntl(fd, F_GETFL);
    if (fl != -1) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
    if (stOut) *stOut = st;
    return fd;
  }
  ::close(fd);
  return fail(std::move(why));
}

bool xExistFile_W(std::string_view path) {
  struct stat st {};
  if (path.empty() || ::stat(std::string(path).c_str(), &st) != 0) return false;
  return !S_ISDIR(st.st_mode);
}

bool xExistFolder_W(std::string_view path) {
  struct stat st {};
  if (path.empty() || ::stat(std::string(path).c_str(), &st) != 0) return false;
  return S_ISDIR(st.st_mode);
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
  int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0 && errorText) *errorText = Bracketed(SystemText(errno));
  return fd;
}

bool xDeleteFile_W(std::string_view path, std::string* errorText) {
  const std::string p(path);
  if (::unlink(p.c_str()) == 0) return true;
  int err = errno;
  std::string text;
  if (err == EACCES || err == EPERM) {
    // The second try, with the owner's write permission given back.
    struct stat st {};
    if (::lstat(p.c_str(), &st) != 0 || ::chmod(p.c_str(), st.st_mode | S_IWUSR) != 0) {
      text = " SetFA: ";
      text += Bracketed(SystemText(errno));
    }
    if (::unlink(p.c_str()) == 0) return true;
    err = errno;
  }
  if (errorText) *errorText = Bracketed(SystemText(err)) + text;
  return false;
}

bool xCreatePath_W(std::string_view path, std::string* errorText) {
  std::error_code ec;
  const std::filesystem::path p{std::string(path)};
  std::filesystem::create_directories(p, ec);
  if (ec) {
    if (errorText) *errorText = Bracketed(ec.message());
    return false;
  }
  if (!std::filesystem::is_directory(p, ec)) {
    if (errorText) *errorText = Bracketed(SystemText(ENOTDIR));
    return false;
  }
  return true;
}

bool xDeleteFolderR_W(std::string_view path, std::string* errorText) {
  std::error_code ec;
  std::filesystem::remove_all(std::filesystem::path{std::string(path)}, ec);
  if (ec) {
    if (errorText) *errorText = Bracketed(ec.message());
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
