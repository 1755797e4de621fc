#pragma once
// File identity and hard links. The identity of a file is the triple volume
// serial number (st_dev), file index high and low (the upper and lower 32
// bits of st_ino); NumberOfLinks is st_nlink. A file with one link gets the
// identity 0, 0, 0, so that only files with further links carry one.
//
// FileIdentity is the one place where a stat result becomes an identity:
// the walk's statx, the open of a file for reading (is it still the file the
// walk saw?) and the hard-link fields of a record all go through it.

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "data/file_record.h"

namespace kelvor {

class TextCatalog;

// Device and inode of a file, and its number of links.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t links = 1;
  // The same file: device and inode (the link count may change).
  bool SameFile(const FileIdentity& o) const { return device == o.device && inode == o.inode; }
};

FileIdentity IdentityOf(const struct stat& st);
// From a statx that asked for at least STATX_INO and STATX_NLINK.
FileIdentity IdentityOf(const struct statx& sx);

// Reads the identity of the file at path (symbolic links followed) into the
// four identity fields of rec. On failure the fields are left as they were,
// *errorText (may be null) gets "xGetHardlinkCount2\GetFileInformationByHandle: "
// and text 2746 with the path and the system's message, and the answer is
// false. `texts` translates text 2746 (null: the German default).
bool xGetHardlinkCount2(std::string_view path, FileRecord& rec, std::string* errorText,
                        const TextCatalog* texts = nullptr);

// The same from an identity the caller already has (the folder walk has one
// for every entry).
void SetHardlinkIdentity(const FileIdentity& id, FileRecord& rec);
inline void SetHardlinkIdentity(const struct stat& st, FileRecord& rec) {
  SetHardlinkIdentity(IdentityOf(st), rec);
}

// The four values with their own keys: decimal joined with "|", the formatted
// form in upper-case hexadecimal.
class cHardlinkID {
 public:
  cHardlinkID() = default;
  explicit cHardlinkID(const FileRecord& r)
      : VolumeSerialNumber_(r.VolumeSerialNumber),
        FileIndexHigh_(r.FileIndexHigh),
        FileIndexLow_(r.FileIndexLow),
        NumberOfLinks_(r.NumberOfLinks) {}

  std::int32_t VolumeSerialNumber() const { return VolumeSerialNumber_; }
  void SetVolumeSerialNumber(std::int32_t v) { VolumeSerialNumber_ = v; }
  std::int32_t FileIndexHigh() const { return FileIndexHigh_; }
  void SetFileIndexHigh(std::int32_t v) { FileIndexHigh_ = v; }
  std::int32_t FileIndexLow() const { return FileIndexLow_; }
  void SetFileIndexLow(std::int32_t v) { FileIndexLow_ = v; }
  std::int32_t NumberOfLinks() const { return NumberOfLinks_; }
  void SetNumberOfLinks(std::int32_t v) { NumberOfLinks_ = v; }

  std::string GetHardlinkIDkey(bool withoutVolume) const;
  std::string GetHardlinkIDkeyFormatted(bool withoutVolume) const;

 private:
  std::int32_t VolumeSerialNumber_ = 0;
  std::int32_t FileIndexHigh_ = 0;
  std::int32_t FileIndexLow_ = 0;
  std::int32_t NumberOfLinks_ = 0;
};

}  // namespace kelvor
