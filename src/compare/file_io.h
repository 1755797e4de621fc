#pragma once
// Small read-only file handle used by the comparators: one open per file and
// comparison, positioned reads, the system's error text for messages.

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
  // `sequential` hints the kernel to read ahead. On failure returns false and
  // *err holds the system's text or the reason.
  bool Open(const std::string& path, bool sequential, std::string* err,
            const ExpectedFile* expected = nullptr);
  // Current size of the open file; -1 with *err on failure.
  std::int64_t Size(std::string* err) const;
  // Reads up to `n` bytes at `offset`, repeating short reads until the end
  // of the file. Returns the bytes read (less than n only at the end), or -1
  // with *err set. A negative offset fails with EINVAL.
  std::int64_t ReadAt(void* buf, std::size_t n, std::int64_t offset, std::string* err) const;
  // Hints the kernel that [offset, offset+len) will be read in order.
  void Sequential(std::int64_t offset, std::int64_t len) const;
  bool IsOpen() const { return fd_ >= 0; }
  int Fd() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace kelvor::compare_io
