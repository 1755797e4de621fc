#pragma once
// A file that is written in full under a name of its own and only then put in
// the place of the file the user chose. A failure or a stop on the way never
// leaves a half-written file under the chosen name, and a file that stood
// there before stays as it was until the new one is complete.
//
//   OutputFile out;
//   if (!out.Create("/home/u/list.csv", &err)) ...
//   out.Write(bytes, &err) ...          // buffered, any number of calls
//   out.Commit(&err)                    // flush, fsync, rename over the target
//   (destructor without Commit: the temporary file is deleted)
//
// The temporary file stands in the target's folder (so the rename stays on
// one file system) under a short hidden name ".~kelvor-out-<random>", which
// leaves room for a target name of any allowed length.
//
// Faults for tests (data/file_system.h): FsCall::WriteFile fails a write,
// FsCall::Rename the final rename; both match the target's path.

#include <cstddef>
#include <string>
#include <string_view>

#include "data/file_write.h"

namespace kelvor {

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Makes the temporary file beside `target`. Something other than a
  // regular file at `target` (a folder, a FIFO, a device) is refused: it
  // would never be replaced. False with *error (the system's text).
  bool Create(std::string_view target, std::string* error);

  // Appends bytes; they are kept in a buffer and written in large blocks.
  // False with *error after a failed write (the file is then useless; the
  // caller abandons it).
  bool Write(std::string_view bytes, std::string* error);

  // Writes what is buffered, syncs, closes and renames the temporary file to
  // the target, replacing a regular file there. False with *error; the
  // temporary file is deleted then and the target left as it was.
  bool Commit(std::string* error);

  // Closes and deletes the temporary file (also done by the destructor when
  // Commit did not succeed).
  void Abandon();

  // Closes the descriptor but keeps the temporary file, for a writer that
  // writes the file by its name itself (the spreadsheet writer). Commit
  // then only syncs and renames it.
  void ReleaseDescriptor();

  const std::string& Target() const { return target_; }
  const std::string& TempPath() const { return temp_; }
  bool IsOpen() const { return !temp_.empty(); }
  // Bytes handed to Write so far.
  std::size_t BytesWritten() const { return static_cast<std::size_t>(out_.BytesWritten()); }

 private:
  std::string target_;
  std::string temp_;
  OutFile out_;
  bool released_ = false;
};

}  // namespace kelvor
