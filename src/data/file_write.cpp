// Temporary files written in full and then moved into place.

#include "data/file_write.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "data/file_system.h"
#include "frame/error_text.h"

namespace kelvor {

namespace {

constexpr std::size_t kBlock = 1 << 20;

std::string Bracketed(const std::string& text) {
  std::string s;
  s.reserve(text.size() + 2);
  s.push_back('(');
  s.append(text);
  s.push_back(')');
  return s;
}

void SetError(std::string* out, int err) {
  if (out) *out = Bracketed(ErrorText(err));
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
  path_ = path;
  error_.clear();
  written_ = 0;
  fd_ = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
  if (fd_ < 0) {
    SetError(&error_, errno);
    if (errorText) *errorText = error_;
    return false;
  }
  buffer_.reserve(kBlock);
  return true;
}

bool OutFile::Flush() {
  if (fd_ < 0) return false;
  if (!error_.empty()) return false;
  if (const int fault = InjectedFault(FsCall::WriteFile, path_)) {
    SetError(&error_, fault);
    return false;
  }
  const char* p = buffer_.data();
  std::size_t left = buffer_.size();
  while (left > 0) {
    const ssize_t n = ::write(fd_, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      SetError(&error_, errno);
      return false;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
    written_ += n;
  }
  buffer_.clear();
  return true;
}

bool OutFile::Write(std::string_view bytes) {
  if (fd_ < 0 || !error_.empty()) return false;
  buffer_.append(bytes);
  if (buffer_.size() >= kBlock) return Flush();
  return true;
}

bool OutFile::Close(bool sync) {
  if (fd_ < 0) return error_.empty();
  bool ok = Flush();
  if (ok && sync && ::fsync(fd_) != 0) {
    SetError(&error_, errno);
    ok = false;
  }
  if (::close(fd_) != 0 && ok) {
    SetError(&error_, errno);
    ok = false;
  }
  fd_ = -1;
  buffer_.clear();
  buffer_.shrink_to_fit();
  return ok;
}

void OutFile::Discard() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  buffer_.clear();
  buffer_.shrink_to_fit();
  if (!path_.empty()) ::unlink(path_.c_str());
}

bool xCopyFileInto(const std::string& from, const std::string& to, std::string* errorText,
                   bool sync) {
  ReadFile in;
  std::string err;
  if (!in.Open(from, true, &err)) {
    if (errorText) *errorText = err;
    return false;
  }
  OutFile out;
  if (!out.Open(to, errorText)) return false;
  std::string buf(kBlock, '\0');
  std::int64_t offset = 0;
  for (;;) {
    const std::int64_t n = in.ReadAt(buf.data(), buf.size(), offset, &err);
    if (n < 0) {
      if (errorText) *errorText = err;
      out.Discard();
      return false;
    }
    if (n == 0) break;
    if (!out.Write(std::string_view(buf.data(), static_cast<std::size_t>(n)))) break;
    offset += n;
  }
  if (!out.Close(sync)) {
    if (errorText) *errorText = out.Error();
    ::unlink(to.c_str());
    return false;
  }
  return true;
}

bool xMoveFileReplace(const std::string& from, const std::string& to, std::string* errorText) {
  if (const int fault = InjectedFault(FsCall::Rename, to)) {
    SetError(errorText, fault);
    return false;
  }
  if (::rename(from.c_str(), to.c_str()) == 0) return true;
  if (errno != EXDEV) {
    SetError(errorText, errno);
    return false;
  }
  // Another file system: a full copy beside the target first.
  const std::string folder = xGetPath(to);
  const std::string part = xGetTempFileNameWIDE(folder.empty() ? "." : folder, ".KVM", errorText);
  if (part.empty()) return false;
  if (!xCopyFileInto(from, part, errorText)) return false;
  if (::rename(part.c_str(), to.c_str()) != 0) {
    SetError(errorText, errno);
    ::unlink(part.c_str());
    return false;
  }
  ::unlink(from.c_str());
  return true;
}

bool xMoveFileNoReplace(const std::string& from, const std::string& to, std::string* errorText) {
  if (const int fault = InjectedFault(FsCall::Rename, to)) {
    SetError(errorText, fault);
    return false;
  }
  // link + unlink refuses an existing target in one step (rename would
  // replace it).
  if (::link(from.c_str(), to.c_str()) == 0) {
    ::unlink(from.c_str());
    return true;
  }
  const int err = errno;
  if (err == EEXIST) {
    SetError(errorText, EEXIST);
    return false;
  }
  struct stat st {};
  if (::lstat(to.c_str(), &st) == 0) {
    SetError(errorText, EEXIST);
    return false;
  }
  if (::rename(from.c_str(), to.c_str()) == 0) return true;
  SetError(errorText, errno);
  return false;
}

}  // namespace kelvor
