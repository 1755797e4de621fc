#include "compare/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kelvor::compare_io {

namespace {
// What the kernel reads ahead of a file without being told (128 KiB on
// common setups): a hint for a range no longer than this changes nothing
// but costs a call per file.
constexpr std::int64_t kKernelReadAhead = 128 * 1024;
}  // namespace

std::string ErrorText(int err) {
  char buf[256];
  // GNU strerror_r returns the text (which may not be buf).
  const char* s = strerror_r(err, buf, sizeof buf);
  return s ? std::string(s) : std::string("error ") + std::to_string(err);
}

ReadFile::~ReadFile() {
  if (fd_ >= 0) ::close(fd_);
}

bool ReadFile::Open(const std::string& path, bool sequential, std::string* err,
                    const ExpectedFile* expected) {
  if (fd_ >= 0) ::close(fd_);
  advised_ = false;
  std::string why;
  fd_ = xOpenFileForReading(path, expected, &why, &st_);
  if (fd_ < 0) {
    if (err) *err = why;
    return false;
  }
  if (sequential && st_.st_size > kKernelReadAhead) {
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    advised_ = true;
  }
  return true;
}

std::int64_t ReadFile::Size(std::string* err) const {
  if (fd_ < 0) {
    if (err) *err = ErrorText(EBADF);
    return -1;
  }
  return static_cast<std::int64_t>(st_.st_size);
}

std::int64_t ReadFile::ReadAt(void* buf, std::size_t n, std::int64_t offset,
                              std::string* err) const {
  if (offset < 0) {
    if (err) *err = ErrorText(EINVAL);
    return -1;
  }
  auto* p = static_cast<unsigned char*>(buf);
  std::size_t done = 0;
  while (done < n) {
    ssize_t got = ::pread(fd_, p + done, n - done, static_cast<off_t>(offset + done));
    if (got < 0) {
      if (errno == EINTR) continue;
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

}  // namespace kelvor::compare_io
