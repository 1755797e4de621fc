// The freedesktop.org trash.

#include "data/trash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "data/file_system.h"
#include "data/fs_calls.h"
#include "frame/formats.h"

namespace kelvor {

namespace {

using fs::Bracketed;

std::string Join(const std::string& folder, std::string_view name) {
  std::string s = folder;
  if (s.empty() || s.back() != '/') s.push_back('/');
  s.append(name);
  return s;
}

// The real folder of `path` (symbolic links of the folders resolved) joined
// with the last name; "" when the folder cannot be resolved.
std::string RealPathOf(std::string_view path, int* err) {
  std::string folder = fs::FolderOf(path);
  char buf[PATH_MAX];
  if (!::realpath(folder.c_str(), buf)) {
    *err = errno;
    return {};
  }
  return Join(buf, xGetFileName(path));
}

// The mount point of the file system holding the real path `real` (device
// `dev`): the highest folder above it on the same device.
std::string MountPointOf(const std::string& real, dev_t dev) {
  std::string top = fs::FolderOf(real);
  while (top != "/") {
    const std::string parent = fs::FolderOf(top);
    struct stat st {};
    if (::stat(parent.c_str(), &st) != 0 || st.st_dev != dev) break;
    top = parent;
  }
  return top;
}

// A folder of the trash owned by us: made with mode 0700 when missing; an
// existing one must be a real folder (no symbolic link).
int EnsurePrivateFolder(const std::string& path) {
  struct stat st {};
  int err = fs::Stat(path, &st);
  if (err == ENOENT) {
    err = fs::MakeFolder(path, 0700);
    if (err == EEXIST)
      err = fs::Stat(path, &st);
    else if (err == 0)
      return 0;
    else
      return err;
  }
  if (err) return err;
  if (!S_ISDIR(st.st_mode)) return ENOTDIR;
  return 0;
}

// Could `trashDir` be made (or is it there)? Only looks: for the question
// whether a drive has a trash.
int CouldMakeTrash(const std::string& trashDir) {
  struct stat st {};
  if (fs::Stat(trashDir, &st) == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
  // The nearest folder above that exists is where the making would start.
  std::string parent = fs::FolderOf(trashDir);
  while (parent != "/" && parent != "." && ::stat(parent.c_str(), &st) != 0)
    parent = fs::FolderOf(parent);
  struct statvfs vfs {};
  if (::statvfs(parent.c_str(), &vfs) == 0 && (vfs.f_flag & ST_RDONLY)) return EROFS;
  if (::access(parent.c_str(), W_OK | X_OK) != 0) return errno;
  return 0;
}

// A trash folder ready for use: itself, info/ and files/.
int EnsureTrash(const std::string& trashDir) {
  if (const int err = EnsurePrivateFolder(trashDir)) return err;
  if (const int err = EnsurePrivateFolder(Join(trashDir, "info"))) return err;
  return EnsurePrivateFolder(Join(trashDir, "files"));
}

// Makes `path` and its missing parents (the home trash's data folder).
int EnsurePath(const std::string& path) {
  struct stat st {};
  if (fs::Stat(path, &st, true) == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
  const std::string parent = fs::FolderOf(path);
  if (parent != path && parent != "/" && parent != ".") {
    if (const int err = EnsurePath(parent)) return err;
  }
  const int err = fs::MakeFolder(path, 0700);
  return err == EEXIST ? 0 : err;
}

// The device the home trash lives on: its own, or that of the nearest
// folder above it that exists.
bool HomeTrashDevice(const std::string& trashDir, dev_t* dev) {
  std::string p = trashDir;
  for (;;) {
    struct stat st {};
    if (::stat(p.c_str(), &st) == 0) {
      *dev = st.st_dev;
      return true;
    }
    if (p == "/" || p == ".") return false;
    p = fs::FolderOf(p);
  }
}

std::string DeletionDateText(double date) {
  const std::time_t t =
      date == 0 ? std::time(nullptr) : static_cast<std::time_t>(UnixFromDate(date));
  std::tm tm{};
  ::localtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &tm);
  return buf;
}

// "name", then "name.2", "name.3", ... with the number before the
// extension ("photo.2.jpg") where the name has one.
std::string NumberedTrashName(const std::string& name, int n) {
  if (n == 1) return name;
  const auto dot = name.rfind('.');
  const std::string num = "." + std::to_string(n);
  if (dot == std::string::npos || dot == 0) return name + num;
  return name.substr(0, dot) + num + name.substr(dot);
}

}  // namespace

TrashOptions TrashOptionsFromEnvironment() {
  TrashOptions o;
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg && xdg[0] == '/') {
    o.dataHome = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    o.dataHome = Join(home, ".local/share");
  }
  o.uid = ::getuid();
  return o;
}

TrashLocation FindTrashFor(std::string_view path, const TrashOptions& options, bool make) {
  const auto ensure = [make](const std::string& dir) {
    return make ? EnsureTrash(dir) : CouldMakeTrash(dir);
  };
  TrashLocation loc;
  int err = 0;
  const std::string real = RealPathOf(path, &err);
  struct stat st {};
  if (real.empty() || (err = fs::Stat(real, &st)) != 0) {
    loc.errorText = Bracketed(err);
    return loc;
  }
  loc.drive = MountPointOf(real, st.st_dev);

  // The home trash, for files on its file system.
  if (!options.dataHome.empty()) {
    const std::string home = Join(NormalizePath(options.dataHome), "Trash");
    dev_t dev = 0;
    if (HomeTrashDevice(home, &dev) && dev == st.st_dev) {
      err = make ? EnsurePath(NormalizePath(options.dataHome)) : 0;
      if (!err) err = ensure(home);
      if (err) {
        loc.errorText = Bracketed(err);
        return loc;
      }
      loc.available = true;
      loc.trashDir = home;
      return loc;
    }
  }

  // The mount's trash: the shared ".Trash" (a real folder with the sticky
  // bit, set up by an administrator) with one folder per user, else the
  // user's own ".Trash-$uid".
  const std::string uid = std::to_string(options.uid);
  loc.topDir = loc.drive;
  const std::string shared = Join(loc.drive, ".Trash");
  struct stat sh {};
  if (fs::Stat(shared, &sh) == 0 && S_ISDIR(sh.st_mode) && (sh.st_mode & S_ISVTX)) {
    const std::string mine = Join(shared, uid);
    if (ensure(mine) == 0) {
      loc.available = true;
      loc.trashDir = mine;
      return loc;
    }
  }
  const std::string own = Join(loc.drive, ".Trash-" + uid);
  err = ensure(own);
  if (!err && make) {
    struct stat o {};
    // A ".Trash-$uid" of another user is not ours to fill.
    if (::lstat(own.c_str(), &o) == 0 && o.st_uid != options.uid) err = EPERM;
  }
  if (err) {
    loc.errorText = Bracketed(err);
    return loc;
  }
  loc.available = true;
  loc.trashDir = own;
  return loc;
}

std::string TrashPercentEncode(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size());
  for (unsigned char c : path) {
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_' || c == '.' || c == '~' || c == '/';
    if (plain) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

std::string TrashPercentDecode(std::string_view text) {
  const auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
  };
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) >= 0 && hex(text[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hex(text[i + 1]) * 16 + hex(text[i + 2])));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

TrashResult MoveToTrash(std::string_view path, const TrashOptions& options, double deletionDate) {
  TrashResult r;
  {
    // A file that is gone is a failure, not a drive without a trash.
    int err = 0;
    const std::string real = RealPathOf(path, &err);
    struct stat st {};
    if (real.empty() || (err = fs::Stat(real, &st)) != 0) {
      r.errorText = Bracketed(err);
      return r;
    }
  }
  const TrashLocation loc = FindTrashFor(path, options);
  r.drive = loc.drive;
  if (!loc.available) {
    r.outcome = TrashOutcome::NoTrashOnDrive;
    r.errorText = loc.errorText;
    return r;
  }
  int err = 0;
  const std::string real = RealPathOf(path, &err);
  if (real.empty()) {
    r.errorText = Bracketed(err);
    return r;
  }
  // A mount's trash names its files relative to the mount, so that the
  // entry stays right wherever the drive is mounted next time.
  std::string shownPath = real;
  if (!loc.topDir.empty() && loc.topDir != "/")
    shownPath = real.substr(loc.topDir.size() + 1);
  else if (!loc.topDir.empty())
    shownPath = real.substr(1);
  const std::string body = "[Trash Info]\nPath=" + TrashPercentEncode(shownPath) +
                           "\nDeletionDate=" + DeletionDateText(deletionDate) + "\n";

  const std::string name = xGetFileName(real);
  for (int n = 1; n < 10000; ++n) {
    const std::string trashName = NumberedTrashName(name, n);
    const std::string info = Join(Join(loc.trashDir, "info"), trashName + ".trashinfo");
    const std::string file = Join(Join(loc.trashDir, "files"), trashName);
    int fd = -1;
    err = fs::CreateExclusive(info, 0600, &fd);
    if (err == EEXIST) continue;
    if (err) break;
    err = fs::WriteAll(fd, body.data(), body.size(), info);
    if (!err) err = fs::Sync(fd, info);
    if (::close(fd) != 0 && !err) err = errno;
    if (!err) err = fs::RenameNoReplace(real, file);
    if (err) {
      ::unlink(info.c_str());
      if (err == EEXIST) continue;  // a file without its info: another name
      break;
    }
    r.outcome = TrashOutcome::Trashed;
    r.trashedAs = file;
    r.infoFile = info;
    return r;
  }
  r.errorText = Bracketed(err ? err : EEXIST);
  return r;
}

}  // namespace kelvor
