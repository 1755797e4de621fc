// Temporary files written in full and then moved into place.

#include "data/file_write.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "data/fs_calls.h"

namespace kelvor {

namespace {

// Blocks of this size go to the kernel; small enough to stay in the cache,
// large enough that a million lines cost a few hundred system calls.
constexpr std::size_t kBlock = 1 << 20;
// Write-back is started after this many bytes.
constexpr std::int64_t kWriteBack = 8 << 20;

void SetError(std::string* out, int err) {
  if (out) *out = fs::Bracketed(err);
}

// Copies the regular file `from` into the open `out` (named `to`).
int CopyInto(const std::string& from, int out, const std::string& to, bool sync) {
  int in = -1;
  struct stat st {};
  if (const int err = fs::OpenForReading(from, true, &in, &st)) return err;
  int err = fs::CopyData(in, out, to);
  ::close(in);
  if (err == 0 && sync) err = fs::Sync(out, to);
  return err;
}

}  // namespace

std::string xGetTempFileNameWIDE(std::string_view folder, std::string_view prefix,
                                 std::string* errorText) {
  std::string templ(folder);
  if (templ.empty() || templ.back() != '/') templ += '/';
  templ += prefix;
  templ += "XXXXXX.tmp";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  const int fd = ::mkostemps(buf.data(), 4, O_CLOEXEC);
  if (fd < 0) {
    SetError(errorText, errno);
    return {};
  }
  ::close(fd);
  return std::string(buf.data());
}

OutFile::~OutFile() {
  if (fd_ >= 0) Discard();
}

bool OutFile::Open(const std::string& path, std::string* errorText) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
  Adopt(fd, path);
  if (fd < 0) {
    Fail(errno);
    if (errorText) *errorText = error_;
    return false;
  }
  return true;
}

void OutFile::Adopt(int fd, std::string path, std::string faultName) {
  fd_ = fd;
  path_ = std::move(path);
  faultName_ = faultName.empty() ? path_ : std::move(faultName);
  error_.clear();
  errorCode_ = 0;
  written_ = 0;
  synced_ = 0;
  buffer_.clear();
  buffer_.reserve(kBlock);
}

bool OutFile::Fail(int err) {
  errorCode_ = err;
  SetError(&error_, err);
  return false;
}

bool OutFile::WriteOut(std::string_view bytes) {
  if (fd_ < 0) return Fail(EBADF);
  if (const int err = fs::WriteAll(fd_, bytes.data(), bytes.size(), faultName_)) return Fail(err);
  // Start the write-back of what is written so far, without waiting for it:
  // the disk works while the caller makes the next blocks.
  // Every byte handed to Write is in the kernel now.
  if (written_ - synced_ >= kWriteBack) {
    ::sync_file_range(fd_, synced_, written_ - synced_, SYNC_FILE_RANGE_WRITE);
    synced_ = written_;
  }
  return true;
}

bool OutFile::Flush() {
  if (errorCode_ != 0) return false;
  if (buffer_.empty()) return true;
  const bool ok = WriteOut(buffer_);
  buffer_.clear();
  return ok;
}

bool OutFile::Write(std::string_view bytes) {
  if (fd_ < 0 || errorCode_ != 0) return false;
  // A large block goes to the kernel as it is, after what the buffer holds.
  const bool direct = bytes.size() >= kBlock / 2;
  if ((direct || buffer_.size() + bytes.size() > kBlock) && !Flush()) return false;
  written_ += static_cast<std::int64_t>(bytes.size());
  if (direct) return WriteOut(bytes);
  buffer_.append(bytes);
  return true;
}

bool OutFile::Close(bool sync) {
  if (fd_ < 0) return errorCode_ == 0;
  bool ok = Flush();
  if (ok && sync) {
    if (const int err = fs::Sync(fd_, faultName_)) ok = Fail(err);
  }
  if (::close(fd_) != 0 && ok) ok = Fail(errno);
  fd_ = -1;
  buffer_.clear();
  buffer_.shrink_to_fit();
  return ok;
}

void OutFile::Release() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  buffer_.clear();
  buffer_.shrink_to_fit();
}

void OutFile::Discard() {
  Release();
  if (!path_.empty()) ::unlink(path_.c_str());
}

bool xCopyFileInto(const std::string& from, const std::string& to, std::string* errorText,
                   bool sync) {
  const int out = ::open(to.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
  if (out < 0) {
    SetError(errorText, errno);
    return false;
  }
  int err = CopyInto(from, out, to, sync);
  if (::close(out) != 0 && err == 0) err = errno;
  if (err != 0) {
    SetError(errorText, err);
    ::unlink(to.c_str());
    return false;
  }
  return true;
}

bool xMoveFileReplace(const std::string& from, const std::string& to, std::string* errorText) {
  int err = fs::Rename(from, to);
  if (err == 0) return true;
  if (err != EXDEV) {
    SetError(errorText, err);
    return false;
  }
  // Another file system: a full copy beside the target first, then one
  // rename over it.
  const std::string part = fs::TemporaryNameIn(fs::FolderOf(to), "move");
  int out = -1;
  err = fs::CreateExclusive(part, 0666, &out);
  if (err == 0) {
    err = CopyInto(from, out, part, true);
    if (::close(out) != 0 && err == 0) err = errno;
    if (err == 0) err = fs::Rename(part, to);
    if (err != 0) ::unlink(part.c_str());
  }
  if (err != 0) {
    SetError(errorText, err);
    return false;
  }
  ::unlink(from.c_str());
  return true;
}

bool xMoveFileNoReplace(const std::string& from, const std::string& to, std::string* errorText) {
  const int err = fs::RenameNoReplace(from, to);
  if (err != 0) SetError(errorText, err);
  return err == 0;
}

}  // namespace kelvor
