// The operations that change files. Each builds on the single calls of
// fs_calls (which the test faults reach) and keeps one rule: what the user
// had stays until what takes its place is complete.

#include "data/file_ops.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "data/file_system.h"
#include "data/fs_calls.h"
#include "frame/error_text.h"
#include "frame/formats.h"

namespace kelvor {

namespace {

using fs::Bracketed;

void SetText(std::string* out, std::string text) {
  if (out) *out = std::move(text);
}

// Closes a descriptor at the end of a scope.
struct Fd {
  int fd = -1;
  Fd() = default;
  explicit Fd(int f) : fd(f) {}
  ~Fd() { Close(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int Close() {
    int err = 0;
    if (fd >= 0 && ::close(fd) != 0) err = errno;
    fd = -1;
    return err;
  }
};

// Creates a temporary file in `folder`; a name taken by another program
// (EEXIST) gets a fresh one.
int CreateTemporary(const std::string& folder, std::string_view tag, mode_t mode, std::string* name,
                    int* fd) {
  int err = EEXIST;
  for (int attempt = 0; attempt < 8 && err == EEXIST; ++attempt) {
    *name = fs::TemporaryNameIn(folder, tag);
    err = fs::CreateExclusive(*name, mode, fd);
  }
  return err;
}

// Puts a finished temporary file in place.
int Install(const std::string& temporary, const std::string& target, Overwrite overwrite) {
  return overwrite == Overwrite::Yes ? fs::Rename(temporary, target)
                                     : fs::RenameNoReplace(temporary, target);
}

struct CopyPlan {
  bool keepDates = false;
  bool keepOwner = false;  // where the system allows (a move keeps it)
  bool sync = false;       // flushed before it is put in place
};

// Copies the open regular file `in` (status `st`) to `target` under a
// temporary name beside it; on success the temporary name is in *temporary,
// complete and closed, not yet in place.
int CopyToTemporary(int in, const struct stat& st, const std::string& target, const CopyPlan& plan,
                    std::string* temporary) {
  Fd out;
  int err = CreateTemporary(fs::FolderOf(target), "copy", 0600, temporary, &out.fd);
  if (err) {
    temporary->clear();
    return err;
  }
  err = fs::CopyData(in, out.fd, target);
  if (!err && plan.keepOwner && ::geteuid() == 0) {
    // Only root can give a file away; for anyone else the copy is theirs.
    if (const int f = InjectedFault(FsCall::SetMode, *temporary)) {
      err = f;
    } else if (::fchown(out.fd, st.st_uid, st.st_gid) != 0) {
      err = errno;
    }
  }
  if (!err) {
    // Permission bits without set-user and set-group (a copy does not hand
    // out its owner's rights); after the owner, which would clear them.
    if (const int f = InjectedFault(FsCall::SetMode, *temporary)) {
      err = f;
    } else if (::fchmod(out.fd, st.st_mode & 01777) != 0) {
      err = errno;
    }
  }
  if (!err && plan.keepDates) err = fs::SetTimes(out.fd, st, *temporary);
  if (!err && plan.sync) err = fs::Sync(out.fd, *temporary);
  if (const int closeErr = out.Close(); !err) err = closeErr;
  if (err) {
    ::unlink(temporary->c_str());
    temporary->clear();
  }
  return err;
}

int CopyFileImpl(const std::string& source, const std::string& target, Overwrite overwrite,
                 const CopyPlan& plan) {
  Fd in;
  struct stat st {};
  if (const int err = fs::OpenForReading(source, true, &in.fd, &st)) return err;
  std::string temporary;
  if (const int err = CopyToTemporary(in.fd, st, target, plan, &temporary)) return err;
  if (const int err = Install(temporary, target, overwrite)) {
    ::unlink(temporary.c_str());
    return err;
  }
  return 0;
}

void SyncFolder(const std::string& folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

// A move across file systems: a complete, flushed copy in place first, the
// source deleted last; a source that cannot be deleted takes the copy back.
int MoveAcrossFileSystems(const std::string& source, const std::string& target,
                          Overwrite overwrite) {
  Fd in;
  struct stat st {};
  if (const int err = fs::OpenForReading(source, false, &in.fd, &st)) return err;
  std::string temporary;
  const CopyPlan plan{.keepDates = true, .keepOwner = true, .sync = true};
  if (const int err = CopyToTemporary(in.fd, st, target, plan, &temporary)) return err;
  in.Close();

  // A file the move replaces is kept under a second name until the source
  // is gone, so that a failed delete can put it back.
  std::string keptTarget;
  struct stat old {};
  if (overwrite == Overwrite::Yes && fs::Stat(target, &old) == 0 && !S_ISDIR(old.st_mode)) {
    keptTarget = fs::TemporaryNameIn(fs::FolderOf(target), "old");
    if (const int err = fs::Link(target, keptTarget)) {
      ::unlink(temporary.c_str());
      return err;
    }
  }
  if (const int err = Install(temporary, target, overwrite)) {
    ::unlink(temporary.c_str());
    if (!keptTarget.empty()) ::unlink(keptTarget.c_str());
    return err;
  }
  SyncFolder(fs::FolderOf(target));
  if (const int err = fs::Unlink(source)) {
    if (!keptTarget.empty()) {
      ::rename(keptTarget.c_str(), target.c_str());
    } else {
      ::unlink(target.c_str());
    }
    return err;
  }
  if (!keptTarget.empty()) ::unlink(keptTarget.c_str());
  return 0;
}

int MoveImpl(const std::string& source, const std::string& target, Overwrite overwrite) {
  struct stat st {};
  if (const int err = fs::Stat(source, &st)) return err;
  if (overwrite == Overwrite::Yes) {
    // rename(2) between two names of one file succeeds and does nothing;
    // the move then is the removal of the source's name.
    struct stat t {};
    if (fs::Stat(target, &t) == 0 && t.st_dev == st.st_dev && t.st_ino == st.st_ino) {
      if (source == target) return 0;
      return fs::Unlink(source);
    }
  }
  const int err = Install(source, target, overwrite);
  if (err != EXDEV) return err;
  return MoveAcrossFileSystems(source, target, overwrite);
}

std::string FormatSeconds(double date) {
  return FormatDate(date, "dd.MM.yyyy hh:nn:ss");
}

}  // namespace

// ---------------------------------------------------------------------------
// moving and copying

bool xMoveFile_W(std::string_view source, std::string_view target, std::string* errorText,
                 Overwrite overwrite) {
  if (const int err = MoveImpl(std::string(source), std::string(target), overwrite)) {
    SetText(errorText, Bracketed(err));
    return false;
  }
  return true;
}

bool xMoveFileWithDate_W(std::string_view source, std::string_view target, std::string* errorText,
                         Overwrite overwrite) {
  // A rename keeps the dates with the inode; the move across file systems
  // sets them on the copy before it is put in place. Setting them after the
  // move could only fail after the file had moved.
  return xMoveFile_W(source, target, errorText, overwrite);
}

bool xCopyFile_W(std::string_view source, std::string_view target, std::string* errorText,
                 Overwrite overwrite) {
  if (const int err =
          CopyFileImpl(std::string(source), std::string(target), overwrite, CopyPlan{})) {
    SetText(errorText, Bracketed(err));
    return false;
  }
  return true;
}

bool xCopyFileDate_W(std::string_view source, std::string_view target, std::string* errorText) {
  struct stat st {};
  int err = fs::Stat(std::string(source), &st, true);
  if (!err) err = fs::SetTimesAt(std::string(target), st);
  if (err) {
    SetText(errorText, Bracketed(err));
    return false;
  }
  return true;
}

bool RemoveDirectoryForce_W(std::string_view path, std::string* errorText) {
  const std::string p(path);
  int err = fs::RemoveFolder(p);
  if (err == EACCES || err == EPERM) {
    // The second try with the owner's rights on the folder given back (a
    // folder without them cannot be read or cleared by its own owner).
    struct stat st {};
    if (::lstat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode) &&
        ::chmod(p.c_str(), st.st_mode | S_IRWXU) == 0) {
      err = fs::RemoveFolder(p);
    }
  }
  if (err) {
    SetText(errorText, Bracketed(err));
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// the state the search saw

UnchangedCheck CheckFileUnchanged(std::string_view path, const RecordedFileState& recorded,
                                  const TextCatalog& texts) {
  UnchangedCheck c;
  struct stat st {};
  if (const int err = fs::Stat(std::string(path), &st)) {
    c.exists = err != ENOENT && err != ENOTDIR;
    c.why = ErrorText(err);
    return c;
  }
  c.exists = true;
  if (!S_ISREG(st.st_mode)) {
    c.why = texts.Get(txt::T9644);
  } else if ((recorded.device != 0 || recorded.inode != 0) &&
             (st.st_dev != recorded.device || st.st_ino != recorded.inode)) {
    c.why = texts.Get(txt::T9643);
  } else if (recorded.size >= 0 && static_cast<std::int64_t>(st.st_size) != recorded.size) {
    c.why = texts.Get(txt::T9641, {std::to_string(st.st_size), std::to_string(recorded.size)});
  } else if (recorded.modified != 0) {
    const double now = DateFromTimespec(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
    if (std::fabs(now - recorded.modified) * 86400.0 > recorded.toleranceSeconds) {
      c.why = texts.Get(txt::T9642, {FormatSeconds(now), FormatSeconds(recorded.modified)});
    } else {
      c.unchanged = true;
    }
  } else {
    c.unchanged = true;
  }
  return c;
}

// ---------------------------------------------------------------------------
// links in a file's place

namespace {

ReplaceResult Failure(ReplaceOutcome outcome, int err, std::string text) {
  ReplaceResult r;
  r.outcome = outcome;
  r.error = err;
  r.errorText = std::move(text);
  return r;
}

ReplaceResult SystemFailure(int err) {
  return Failure(ReplaceOutcome::Failed, err, Bracketed(err));
}

// Makes the link under a temporary name beside `path` and renames it over
// the file, which is still the one `expected` describes just before.
ReplaceResult LinkOver(const ReplaceRequest& req, const struct stat& expected) {
  const std::string folder = fs::FolderOf(req.path);
  std::string temporary;
  int err = EEXIST;
  for (int attempt = 0; attempt < 8 && err == EEXIST; ++attempt) {
    temporary = fs::TemporaryNameIn(folder, "link");
    err = req.kind == LinkKind::HardLink ? fs::Link(req.source, temporary)
                                         : fs::Symlink(req.source, temporary);
  }
  if (err) return SystemFailure(err);
  // The file is looked at once more right before it is replaced: one taken
  // away or put in its place since the check is not replaced.
  struct stat now {};
  err = fs::Stat(req.path, &now);
  if (!err && (now.st_dev != expected.st_dev || now.st_ino != expected.st_ino ||
               now.st_size != expected.st_size || !S_ISREG(now.st_mode))) {
    ::unlink(temporary.c_str());
    return Failure(ReplaceOutcome::PathChanged, 0, "");
  }
  if (!err) err = fs::Rename(temporary, req.path);
  if (err) {
    ::unlink(temporary.c_str());
    return SystemFailure(err);
  }
  return Failure(ReplaceOutcome::Replaced, 0, "");
}

bool ShareUnsupported(int err) {
  return err == EOPNOTSUPP || err == ENOTTY || err == EINVAL || err == ENOSYS || err == EXDEV ||
         err == EPERM || err == EBADF;
}

// Compares the bytes of two open files from their start.
int SameBytes(int a, int b, std::int64_t size, bool* same) {
  std::vector<char> x(1 << 20), y(1 << 20);
  std::int64_t offset = 0;
  *same = true;
  while (offset < size) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::int64_t>(size - offset, 1 << 20));
    for (auto [fd, buf] : {std::pair{a, x.data()}, std::pair{b, y.data()}}) {
      std::size_t got = 0;
      while (got < n) {
        const ssize_t r = ::pread(fd, buf + got, n - got, offset + static_cast<off_t>(got));
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return errno;
        if (r == 0) {
          *same = false;
          return 0;
        }
        got += static_cast<std::size_t>(r);
      }
    }
    if (std::memcmp(x.data(), y.data(), n) != 0) {
      *same = false;
      return 0;
    }
    offset += static_cast<std::int64_t>(n);
  }
  return 0;
}

// Where the file system has no deduplication but can clone: a clone of the
// source beside the file, checked byte for byte against the file, given the
// file's owner, mode and dates, renamed over it.
ReplaceResult CloneOver(const ReplaceRequest& req, int src, int dst, const struct stat& st,
                        const TextCatalog& texts) {
  std::string temporary;
  Fd clone;
  if (const int err = CreateTemporary(fs::FolderOf(req.path), "clone", 0600, &temporary, &clone.fd))
    return SystemFailure(err);
  int err = InjectedFault(FsCall::ShareBlocks, req.path);
  if (!err && ::ioctl(clone.fd, FICLONE, src) != 0) err = errno;
  if (err) {
    ::unlink(temporary.c_str());
    return Failure(ShareUnsupported(err) ? ReplaceOutcome::NotSupported : ReplaceOutcome::Failed,
                   err, texts.Get(txt::T9645, {Bracketed(err)}));
  }
  bool same = false;
  {
    // The clone as the disk has it, read back through its own descriptor
    // (the one it was made with is for writing only).
    Fd back(::open(temporary.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    err = back.fd < 0 ? errno : SameBytes(back.fd, dst, st.st_size, &same);
  }
  if (!err && !same) {
    ::unlink(temporary.c_str());
    return Failure(ReplaceOutcome::ContentDiffers, 0, texts.Get(txt::T9646));
  }
  if (!err) {
    if (const int f = InjectedFault(FsCall::SetMode, temporary)) {
      err = f;
    } else if (::fchown(clone.fd, st.st_uid, st.st_gid) != 0 && ::geteuid() == 0) {
      err = errno;
    } else if (::fchmod(clone.fd, st.st_mode & 07777) != 0) {
      err = errno;
    }
  }
  if (!err) err = fs::SetTimes(clone.fd, st, temporary);
  if (const int closeErr = clone.Close(); !err) err = closeErr;
  if (!err) err = fs::Rename(temporary, req.path);
  if (err) {
    ::unlink(temporary.c_str());
    return SystemFailure(err);
  }
  return Failure(ReplaceOutcome::Replaced, 0, "");
}

// The blocks of the file shared with the source's, in place: the kernel
// compares each range and shares it only when equal, so the file's bytes
// never change; its inode, name, owner and mode stay, and the dates are set
// back to what they were.
ReplaceResult ShareBlocks(const ReplaceRequest& req, const struct stat& pathSt,
                          const TextCatalog& texts) {
  Fd src;
  struct stat srcSt {};
  if (const int err = fs::OpenForReading(req.source, false, &src.fd, &srcSt))
    return SystemFailure(err);
  Fd dst;
  if (const int f = InjectedFault(FsCall::OpenFile, req.path)) return SystemFailure(f);
  dst.fd = ::open(req.path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (dst.fd < 0)
    dst.fd = ::open(req.path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (dst.fd < 0) return SystemFailure(errno);
  struct stat st {};
  if (::fstat(dst.fd, &st) != 0) return SystemFailure(errno);
  if (st.st_dev != pathSt.st_dev || st.st_ino != pathSt.st_ino || !S_ISREG(st.st_mode))
    return Failure(ReplaceOutcome::PathChanged, 0, "");
  if (st.st_size != srcSt.st_size)
    return Failure(ReplaceOutcome::ContentDiffers, 0, texts.Get(txt::T9646));

  const std::int64_t size = st.st_size;
  std::int64_t offset = 0;
  constexpr std::int64_t kRange = 16 << 20;  // btrfs takes at most 16 MiB a call
  while (offset < size) {
    // The request with its one destination behind it (a flexible array).
    alignas(file_dedupe_range) unsigned char
        buf[sizeof(file_dedupe_range) + sizeof(file_dedupe_range_info)] = {};
    auto* range = reinterpret_cast<file_dedupe_range*>(buf);
    auto* info = reinterpret_cast<file_dedupe_range_info*>(buf + sizeof(file_dedupe_range));
    range->src_offset = static_cast<__u64>(offset);
    range->src_length = static_cast<__u64>(std::min(kRange, size - offset));
    range->dest_count = 1;
    info->dest_fd = dst.fd;
    info->dest_offset = static_cast<__u64>(offset);
    int err = InjectedFault(FsCall::ShareBlocks, req.path);
    if (!err && ::ioctl(src.fd, FIDEDUPERANGE, buf) != 0) err = errno;
    if (!err && info->status < 0) err = -info->status;
    if (err) {
      // Nothing shared yet and the file system cannot deduplicate: it may
      // still clone.
      if (offset == 0 && ShareUnsupported(err)) {
        ReplaceResult r = CloneOver(req, src.fd, dst.fd, st, texts);
        if (r.outcome != ReplaceOutcome::NotSupported) return r;
        return Failure(ReplaceOutcome::NotSupported, err, texts.Get(txt::T9645, {Bracketed(err)}));
      }
      return SystemFailure(err);
    }
    if (info->status == FILE_DEDUPE_RANGE_DIFFERS)
      return Failure(ReplaceOutcome::ContentDiffers, 0, texts.Get(txt::T9646));
    if (info->bytes_deduped == 0) return SystemFailure(EIO);
    offset += static_cast<std::int64_t>(info->bytes_deduped);
  }
  // The dates as they were (a file system may count the sharing as a write).
  fs::SetTimes(dst.fd, st, req.path);
  return Failure(ReplaceOutcome::Replaced, 0, "");
}

}  // namespace

ReplaceResult ReplaceWithLink(const ReplaceRequest& req, const TextCatalog& texts) {
  if (req.sourceState) {
    UnchangedCheck c = CheckFileUnchanged(req.source, *req.sourceState, texts);
    if (!c.unchanged)
      return Failure(ReplaceOutcome::SourceChanged, 0, texts.Get(txt::T9649, {req.source, c.why}));
  }
  if (req.pathState) {
    UnchangedCheck c = CheckFileUnchanged(req.path, *req.pathState, texts);
    if (!c.unchanged)
      return Failure(ReplaceOutcome::PathChanged, 0, texts.Get(txt::T9640, {req.path, c.why}));
  }
  struct stat src {
  }, path{};
  if (const int err = fs::Stat(req.source, &src)) return SystemFailure(err);
  if (!S_ISREG(src.st_mode))
    return Failure(ReplaceOutcome::Failed, 0, texts.Get(txt::T9644) + ": " + req.source);
  if (const int err = fs::Stat(req.path, &path)) return SystemFailure(err);
  if (!S_ISREG(path.st_mode))
    return Failure(ReplaceOutcome::Failed, 0, texts.Get(txt::T9644) + ": " + req.path);
  if (src.st_dev == path.st_dev && src.st_ino == path.st_ino)
    return Failure(ReplaceOutcome::AlreadyLinked, 0, texts.Get(txt::T9647));
  if (req.kind != LinkKind::Symlink && src.st_dev != path.st_dev)
    return Failure(ReplaceOutcome::OtherDevice, EXDEV, texts.Get(txt::T9648));

  ReplaceResult r =
      req.kind == LinkKind::Reflink ? ShareBlocks(req, path, texts) : LinkOver(req, path);
  if (r.outcome == ReplaceOutcome::PathChanged && r.errorText.empty())
    r.errorText = texts.Get(txt::T9640, {req.path, texts.Get(txt::T9643)});
  return r;
}

std::int64_t xGetLinkCount(std::string_view path, std::string* errorText) {
  struct stat st {};
  if (const int err = fs::Stat(std::string(path), &st)) {
    SetText(errorText, Bracketed(err));
    return -1;
  }
  return static_cast<std::int64_t>(st.st_nlink);
}

// ---------------------------------------------------------------------------
// emptying, backup

bool SetFileToZeroLength(std::string_view path, std::string* errorText) {
  const std::string p(path);
  int err = InjectedFault(FsCall::CreateFile, p);
  Fd fd;
  if (!err) {
    // No O_TRUNC in the open: what was opened is looked at first, and only
    // a regular file is emptied (a FIFO or device in its place is not
    // waited for or touched).
    fd.fd = ::open(p.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd.fd < 0) err = errno;
  }
  struct stat st {};
  if (!err && ::fstat(fd.fd, &st) != 0) err = errno;
  if (!err && !S_ISREG(st.st_mode)) err = EINVAL;
  if (!err) err = InjectedFault(FsCall::WriteFile, p);
  if (!err && ::ftruncate(fd.fd, 0) != 0) err = errno;
  if (const int closeErr = fd.Close(); !err) err = closeErr;
  if (err) {
    SetText(errorText, Bracketed(err));
    return false;
  }
  return true;
}

std::string FirstFreeNumberedName(std::string_view path) {
  const std::string folder = fs::FolderOf(path);
  const std::string name = xGetFileName(path);
  // A name whose only dot leads it (".profile") has no extension here.
  const auto dot = name.rfind('.');
  const bool hasExt = dot != std::string::npos && dot > 0;
  const std::string base = hasExt ? name.substr(0, dot) : name;
  const std::string ext = hasExt ? name.substr(dot) : std::string();
  for (unsigned n = 1;; ++n) {
    char num[16];
    std::snprintf(num, sizeof num, "-%03u", n);
    std::string candidate = (folder == "/" ? std::string("/") : folder + "/") + base + num + ext;
    struct stat st {};
    if (::lstat(candidate.c_str(), &st) != 0 && errno == ENOENT) return candidate;
  }
}

BackupResult BackupDaten(std::string_view source, std::string_view targetFolder, bool move,
                         bool keepStructure, const TextCatalog& texts) {
  BackupResult r;
  const std::string src(source);
  std::string folder = NormalizePath(targetFolder);
  if (keepStructure) {
    // The source's folder below the target: "/a/b" -> "<target>/a/b".
    const std::string parent = fs::FolderOf(src);
    if (parent.size() > 1) {
      if (folder != "/") folder.push_back('/');
      folder.append(parent, 1, std::string::npos);
    }
  }
  if (!xCreatePath_W(folder, &r.errorText)) return r;
  r.target = (folder == "/" ? std::string() : folder) + "/" + xGetFileName(src);

  struct stat s {
  }, t{};
  if (const int err = fs::Stat(src, &s, !move)) {
    r.errorText = Bracketed(err);
    return r;
  }
  const int targetErr = fs::Stat(r.target, &t);
  if (targetErr != 0 && targetErr != ENOENT) {
    r.errorText = Bracketed(targetErr);
    return r;
  }
  const bool targetExists = targetErr == 0;
  if (targetExists && t.st_dev == s.st_dev && t.st_ino == s.st_ino) {
    r.errorText = texts.Get(txt::T9647);
    return r;
  }
  if (targetExists && !keepStructure) {
    r.renamedTo = FirstFreeNumberedName(r.target);
    if (const int err = fs::RenameNoReplace(r.target, r.renamedTo)) {
      r.errorText = Bracketed(err);
      r.renamedTo.clear();
      return r;
    }
  }
  const Overwrite overwrite = keepStructure ? Overwrite::Yes : Overwrite::No;
  int err = 0;
  if (move) {
    err = MoveImpl(src, r.target, overwrite);
  } else {
    err = CopyFileImpl(src, r.target, overwrite, CopyPlan{.keepDates = true});
  }
  if (err) {
    r.errorText = Bracketed(err);
    // The file moved aside goes back to its name.
    if (!r.renamedTo.empty() && fs::RenameNoReplace(r.renamedTo, r.target) == 0)
      r.renamedTo.clear();
    return r;
  }
  r.ok = true;
  return r;
}

// ---------------------------------------------------------------------------
// variables

VariableLookup EnvironmentVariables() {
  return [](std::string_view name) -> std::optional<std::string> {
    const std::string n(name);
    if (const char* v = std::getenv(n.c_str())) return std::string(v);
    if (n == "USERNAME") {
      if (const char* v = std::getenv("USER"); v && *v) return std::string(v);
      std::string user = GetFileOwner(::getuid());
      if (!user.empty()) return user;
    }
    return std::nullopt;
  };
}

std::string ReplaceSystemvariablen(std::string_view text, const VariableLookup& lookup) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t open = text.find('%', i);
    const std::size_t close =
        open == std::string_view::npos ? std::string_view::npos : text.find('%', open + 1);
    if (close == std::string_view::npos) break;
    out.append(text.substr(i, open - i));
    const std::string_view name = text.substr(open + 1, close - open - 1);
    std::optional<std::string> value;
    if (!name.empty() && lookup) value = lookup(name);
    if (value) {
      out += *value;
      i = close + 1;
    } else {
      // Unknown: the first "%" stays as text and the second may open the
      // next name ("100% %HOME%").
      out.append(text.substr(open, close - open));
      i = close;
    }
  }
  out.append(text.substr(std::min(i, text.size())));
  return out;
}

}  // namespace kelvor
