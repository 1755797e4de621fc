#pragma once
// Reading archives through libarchive: the members of an archive listed from
// their headers without extracting anything, and the bytes of one member
// streamed to a caller. Every type libarchive knows is read the same way; a
// "gz" file is one compressed stream whose single member is named after the
// file. The first volume of a split set ("x.7z.001") is read together with
// the volumes beside it.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvor {

// A member as its header describes it.
struct ArchiveMember {
  std::string path;  // inner path, folders joined by "/", no leading "/" or "./"
  std::int64_t size = 0;
  double dateChanged = 0;  // day-fraction dates, local time
  double dateCreated = 0;  // the change date when the archive keeps no other
  std::int32_t attributes = 0;
  bool isFolder = false;
  bool encrypted = false;  // the member's data cannot be read without a password
  // The header states no size and the data ran on past the cap of
  // ListArchive (a stream that unpacks to far more than it looks, a bomb):
  // `size` is what was read before giving up.
  bool sizeOverCap = false;
};

enum class ArchiveStatus {
  Ok,
  Stopped,       // the caller ended the walk
  Unreadable,    // libarchive knows no format for the file (or it holds nothing)
  OpenFailed,    // the file could not be opened at all
  ReadFailed,    // a damaged archive: a header or the data could not be read
  Encrypted,     // the archive's headers are encrypted
  MemberMissing  // ReadMember: no member with that path
};

struct ArchiveOutcome {
  ArchiveStatus status = ArchiveStatus::Ok;
  std::string error;         // libarchive's own text for the failures
  std::int64_t members = 0;  // headers read (folders too)
};

// Lists the members of `archivePath` (type: the archive list's type, 1..16).
// `visit` gets each member in archive order; false from it stops the walk.
// A member whose header states no size is measured by reading its data, up
// to `unstatedCap` bytes.
constexpr std::int64_t kUnstatedSizeCap = 8LL << 30;
ArchiveOutcome ListArchive(const std::string& archivePath, int listType,
                           const std::function<bool(const ArchiveMember&)>& visit,
                           std::int64_t unstatedCap = kUnstatedSizeCap);

// Streams the data of the first member whose inner path is `innerPath` to
// `sink` in blocks, never more than `limit` bytes (the member's stated size:
// data beyond it is a failure, not written). `sink` returns false to stop
// (a stop, or a write that failed: the status is then Stopped).
ArchiveOutcome ReadMember(const std::string& archivePath, int listType, std::string_view innerPath,
                          std::int64_t limit,
                          const std::function<bool(const char*, std::size_t)>& sink);

// A reader that stays open on one archive and only moves forward: members
// asked for in archive order (as the scan lists them) are read in one pass
// through the archive instead of one pass each. A member behind the reader's
// position, or in another archive, opens the archive again.
class ArchiveCursor {
 public:
  ArchiveCursor();
  ~ArchiveCursor();
  ArchiveCursor(const ArchiveCursor&) = delete;
  ArchiveCursor& operator=(const ArchiveCursor&) = delete;

  // As ReadMember.
  ArchiveOutcome Read(const std::string& archivePath, int listType, std::string_view innerPath,
                      std::int64_t limit,
                      const std::function<bool(const char*, std::size_t)>& sink);
  void Close();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kelvor
