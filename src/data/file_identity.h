#pragma once
// File identity and hard links. The identity of a file is the triple volume
// serial number (st_dev), file index high and low (the upper and lower 32
// bits of st_ino); NumberOfLinks is st_nlink. A file with one link gets the
// identity 0, 0, 0, so that only files with further links carry one.

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "data/file_record.h"

namespace kelvor {

class TextCatalog;

// Reads the identity of the file at path (symbolic links followed) into the
// four identity fields of rec. On failure the fields are left as they were,
// *errorText (may be null) gets "xGetHardlinkCount2\GetFileInformationByHandle: "
// and text 2746 with the path and the system's message, and the answer is
// false. `texts` translates text 2746 (null: the German default).
bool xGetHardlinkCount2(std::string_view path, FileRecord& rec, std::string* errorText,
                        const TextCatalog* texts = nullptr);

// The same from a stat result the caller already has (the folder walk has
// one for every entry).
void SetHardlinkIdentity(const struct stat& st, FileRecord& rec);

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
