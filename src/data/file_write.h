#pragma once
// Writing files of Kelvor's own (saved results and their companions): a new
// temporary file is written in full, flushed to disk, and only then moved to
// its final name, so that a failure at any point (a full disk, a stop) leaves
// the file of that name as it was.
//
// Every call here goes through the system calls of fs_calls.h, which ask the
// faults of file_system.h first, so that tests can make a disk run full.

#include <cstdint>
#include <string>
#include <string_view>

namespace kelvor {

// xGetTempFileNameWIDE: a new, empty file "<folder>/<prefix>XXXXXX.tmp" that
// did not exist before. Returns its path, or "" with *errorText set.
std::string xGetTempFileNameWIDE(std::string_view folder, std::string_view prefix,
                                 std::string* errorText = nullptr);

// A file opened for writing, buffered; Close flushes, syncs and closes. A
// file that is destroyed without a successful Close is deleted again. Large
// writes go to the kernel without a copy, and the write-back of what is
// written is started as the file grows, so that the final sync has only the
// tail left to wait for.
class OutFile {
 public:
  OutFile() = default;
  ~OutFile();
  OutFile(const OutFile&) = delete;
  OutFile& operator=(const OutFile&) = delete;

  // Opens `path`, which must exist and is emptied (a file from
  // xGetTempFileNameWIDE). False with *errorText.
  bool Open(const std::string& path, std::string* errorText);
  // Takes over `fd`, open for writing on the new file `path`. The test
  // faults of its writes are asked under `faultName` (default: `path`).
  void Adopt(int fd, std::string path, std::string faultName = {});
  // Appends bytes; they reach the disk in blocks. False (and every later
  // call false) once a write failed.
  bool Write(std::string_view bytes);
  // Writes what is left, syncs (unless `sync` is false: a scratch copy
  // that no crash needs to find whole) and closes. False with the first
  // failure's text.
  bool Close(bool sync = true);
  // Closes without caring and deletes the file.
  void Discard();
  // Closes the descriptor without writing what is buffered and keeps the
  // file, for a writer that goes on writing it by name.
  void Release();
  // The first failure: "(text)", and its errno.
  const std::string& Error() const { return error_; }
  int ErrorCode() const { return errorCode_; }
  const std::string& Path() const { return path_; }
  // Bytes handed to Write so far.
  std::int64_t BytesWritten() const { return written_; }

 private:
  bool Flush();
  bool WriteOut(std::string_view bytes);
  bool Fail(int err);
  int fd_ = -1;
  std::string path_;
  std::string faultName_;
  std::string buffer_;
  std::string error_;
  int errorCode_ = 0;
  std::int64_t written_ = 0;
  std::int64_t synced_ = 0;  // write-back started up to here
};

// Moves `from` to `to`, replacing a file of that name in one step (rename);
// across file systems the file is copied next to `to` first and then renamed,
// so that `to` is never half written. False with *errorText; then `to` is as
// it was.
bool xMoveFileReplace(const std::string& from, const std::string& to, std::string* errorText);

// Moves `from` to `to` only when `to` does not exist (MoveFileW): never
// replaces a file. False with *errorText.
bool xMoveFileNoReplace(const std::string& from, const std::string& to, std::string* errorText);

// Copies the regular file `from` into the existing (empty) file `to`,
// through OutFile: `to` then holds all of `from`, or the call fails. A
// scratch copy (`sync` false) is not flushed to the disk.
bool xCopyFileInto(const std::string& from, const std::string& to, std::string* errorText,
                   bool sync = true);

}  // namespace kelvor
