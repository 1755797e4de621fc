// OutputFile: write under a temporary name, then rename into place.

#include "data/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "data/file_system.h"
#include "frame/error_text.h"

namespace kelvor {

namespace {

// Blocks of this size go to the kernel; small enough to stay in the cache,
// large enough that a million lines cost a few hundred system calls.
constexpr std::size_t kBlock = 1 << 20;
// Write-back is started after this many bytes.
constexpr std::size_t kWriteBack = 8 << 20;

std::atomic<unsigned> gTempCounter{0};

bool WriteAll(int fd, const char* p, std::size_t n, int* err) {
  while (n > 0) {
    const ssize_t w = ::write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      *err = errno;
      return false;
    }
    p += w;
    n -= static_cast<std::size_t>(w);
  }
  return true;
}

}  // namespace

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
  std::string folder = xGetPath(target_);
  if (folder.empty()) folder = ".";
  if (folder.back() != '/') folder += '/';
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = folder + ".kelvor-" + std::to_string(::getpid()) + "-" +
                       std::to_string(gTempCounter.fetch_add(1)) + ".part";
    // 0666 less the umask: the finished file gets the permissions any new
    // file of the user gets.
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) {
      // A file that is replaced keeps its permissions.
      if (replaces) ::fchmod(fd, st.st_mode & 07777);
      fd_ = fd;
      temp_ = std::move(name);
      buffer_.reserve(kBlock);
      written_ = 0;
      handedOver_ = 0;
      synced_ = 0;
      return true;
    }
    if (errno != EEXIST) {
      if (error) *error = ErrorText(errno);
      return false;
    }
  }
  if (error) *error = ErrorText(EEXIST);
  return false;
}

bool OutputFile::WriteOut(std::string_view bytes, std::string* error) {
  int err = 0;
  if (const int fault = InjectedFault(FsCall::WriteFile, target_)) {
    err = fault;
  } else if (fd_ < 0) {
    err = EBADF;
  } else if (WriteAll(fd_, bytes.data(), bytes.size(), &err)) {
    // Start the write-back of what is written so far, without waiting for
    // it: the disk works while the caller makes the next blocks, and the
    // fsync of Commit has only the tail left to wait for.
    handedOver_ += bytes.size();
    if (handedOver_ - synced_ >= kWriteBack) {
      ::sync_file_range(fd_, static_cast<off_t>(synced_), static_cast<off_t>(handedOver_ - synced_),
                        SYNC_FILE_RANGE_WRITE);
      synced_ = handedOver_;
    }
  }
  if (err != 0) {
    if (error) *error = ErrorText(err);
    return false;
  }
  return true;
}

bool OutputFile::Flush(std::string* error) {
  if (buffer_.empty()) return true;
  const bool ok = WriteOut(buffer_, error);
  buffer_.clear();
  return ok;
}

bool OutputFile::Write(std::string_view bytes, std::string* error) {
  if (temp_.empty()) {
    if (error) *error = ErrorText(EBADF);
    return false;
  }
  // A large block goes to the kernel as it is, without a copy.
  const bool direct = bytes.size() >= kBlock / 2;
  if ((direct || buffer_.size() + bytes.size() > kBlock) && !Flush(error)) return false;
  written_ += bytes.size();
  if (direct) return WriteOut(bytes, error);
  buffer_.append(bytes);
  return true;
}

void OutputFile::ReleaseDescriptor() {
  buffer_.clear();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool OutputFile::Commit(std::string* error) {
  if (temp_.empty()) {
    if (error) *error = ErrorText(EBADF);
    return false;
  }
  bool ok = Flush(error);
  int err = 0;
  if (ok) {
    if (fd_ < 0) {
      // Written by name: open it again to make its blocks durable.
      fd_ = ::open(temp_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
      if (fd_ < 0) err = errno;
    }
    if (err == 0 && ::fsync(fd_) != 0) err = errno;
  }
  if (fd_ >= 0) {
    if (::close(fd_) != 0 && ok && err == 0) err = errno;
    fd_ = -1;
  }
  if (ok && err == 0) {
    // The target may have become a folder or a FIFO while we wrote.
    struct stat st {};
    if (::lstat(target_.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode))
      err = S_ISDIR(st.st_mode) ? EISDIR : EEXIST;
    else if (const int fault = InjectedFault(FsCall::Rename, target_))
      err = fault;
    else if (::rename(temp_.c_str(), target_.c_str()) != 0)
      err = errno;
  }
  if (!ok || err != 0) {
    if (err != 0 && error) *error = ErrorText(err);
    Abandon();
    return false;
  }
  temp_.clear();
  // Make the rename itself durable.
  std::string folder = xGetPath(target_);
  if (folder.empty()) folder = ".";
  const int dfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
  return true;
}

void OutputFile::Abandon() {
  buffer_.clear();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  if (!temp_.empty()) ::unlink(temp_.c_str());
  temp_.clear();
}

}  // namespace kelvor
