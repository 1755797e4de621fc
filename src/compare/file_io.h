#pragma once
// Small read-only file handle used by the comparators: one open per file and
// comparison, positioned reads, the system's error text for messages.

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "data/file_system.h"

namespace kelvor::compare_io {

// The system's text for an errno value.
std::string ErrorText(int err);

class ReadFile {
 public:
  ReadFile() = default;
  ~ReadFile();
  ReadFile(const ReadFile&) = delete;
  ReadFile& operator=(const ReadFile&) = delete;

  // Opens for reading through xOpenFileForReading: never waits (a FIFO in
  // the file's place is refused), reaches paths of any length, and where
  // `expected` is given insists on the file the walk saw, at its size.
  // `sequential` hints the kernel to read ahead (files longer than its own
  // read-ahead only). On failure returns false and *err holds the system's
  // text or the reason.
  bool Open(const std::string& path, bool sequential, std::string* err,
            const ExpectedFile* expected = nullptr);
  // Size of the file when it was opened (taken by the open's own status
  // call; reads find out when it shrank since). `err` is kept for callers
  // that still expect a failure; there is none after a successful open.
  std::int64_t Size(std::string* err) const;
  // The status of the open file as the open took it.
  const struct stat& Stat() const { return st_; }
  // Reads up to `n` bytes at `offset`, repeating short reads until the end
  // of the file. Returns the bytes read (less than n only at the end), or -1
  // with *err set. A negative offset fails with EINVAL.
  std::int64_t ReadAt(void* buf, std::size_t n, std::int64_t offset, std::string* err) const;
  // Hints the kernel that [offset, offset+len) will be read in order. Does
  // nothing for ranges its default read-ahead covers anyway, or when the
  // open gave the hint already (it applies to the whole file).
  void Sequential(std::int64_t offset, std::int64_t len);
  bool IsOpen() const { return fd_ >= 0; }
  int Fd() const { return fd_; }

 private:
  int fd_ = -1;
  bool advised_ = false;
  struct stat st_ {};
};

}  // namespace kelvor::compare_io
