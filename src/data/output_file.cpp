// OutputFile: write under a temporary name, then rename into place.

#include "data/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "data/fs_calls.h"
#include "frame/error_text.h"

namespace kelvor {

OutputFile::~OutputFile() {
  Abandon();
}

bool OutputFile::Create(std::string_view target, std::string* error) {
  Abandon();
  target_ = std::string(target);
  struct stat st {};
  const bool replaces = ::stat(target_.c_str(), &st) == 0;
  if (replaces && !S_ISREG(st.st_mode)) {
    if (error) *error = ErrorText(S_ISDIR(st.st_mode) ? EISDIR : EEXIST);
    return false;
  }
  const std::string folder = fs::FolderOf(target_);
  int err = EEXIST;
  for (int attempt = 0; attempt < 100 && err == EEXIST; ++attempt) {
    std::string name = fs::TemporaryNameIn(folder, "out");
    int fd = -1;
    // 0666 less the umask: the finished file gets the permissions any new
    // file of the user gets.
    err = fs::CreateExclusive(name, 0666, &fd);
    if (err == 0) {
      // A file that is replaced keeps its permissions.
      if (replaces) ::fchmod(fd, st.st_mode & 07777);
      // The faults of the writes are the target's.
      out_.Adopt(fd, name, target_);
      temp_ = std::move(name);
      released_ = false;
      return true;
    }
  }
  if (error) *error = ErrorText(err);
  return false;
}

bool OutputFile::Write(std::string_view bytes, std::string* error) {
  if (temp_.empty() || released_) {
    if (error) *error = ErrorText(EBADF);
    return false;
  }
  if (out_.Write(bytes)) return true;
  if (error) *error = ErrorText(out_.ErrorCode() != 0 ? out_.ErrorCode() : EIO);
  return false;
}

void OutputFile::ReleaseDescriptor() {
  out_.Release();
  released_ = true;
}

bool OutputFile::Commit(std::string* error) {
  if (temp_.empty()) {
    if (error) *error = ErrorText(EBADF);
    return false;
  }
  int err = 0;
  if (released_) {
    // Written by name: open it again to make its blocks durable.
    const int fd = ::open(temp_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
      err = errno;
    } else {
      err = fs::Sync(fd, target_);
      ::close(fd);
    }
  } else if (!out_.Close(true)) {
    err = out_.ErrorCode() != 0 ? out_.ErrorCode() : EIO;
  }
  if (err == 0) {
    // The target may have become a folder or a FIFO while we wrote.
    struct stat st {};
    if (::lstat(target_.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode))
      err = S_ISDIR(st.st_mode) ? EISDIR : EEXIST;
    else
      err = fs::Rename(temp_, target_);
  }
  if (err != 0) {
    if (error) *error = ErrorText(err);
    Abandon();
    return false;
  }
  temp_.clear();
  // Make the rename itself durable.
  const int dfd = ::open(fs::FolderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
  return true;
}

void OutputFile::Abandon() {
  if (!temp_.empty()) out_.Discard();
  temp_.clear();
}

}  // namespace kelvor
