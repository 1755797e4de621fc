#pragma once
// FileRecord: one scanned file or archive member, as the search sees it.
// A record is a value: copying it copies its strings and arrays. The file
// record collection stores records compactly; this is the form the engine and
// the comparators work with.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kelvor {

// Windows attribute bit numbers, kept so that keys, filters and saved results
// keep their form.
enum FileAttribute : std::int32_t {
  kAttrReadOnly = 1,
  kAttrHidden = 2,
  kAttrDirectory = 16,
  kAttrNormal = 128,
  kAttrReparsePoint = 1024,
};

struct FileRecord {
  std::int32_t RecordNumber = 0;  // node number, written by Add
  std::int32_t SourceNr = 0;      // 1-based source folder number
  std::int32_t GroupID = -1;      // -1: in no group yet
  bool HaveErrorMessage = false;  // an error about this file was logged once

  std::string NameKey;       // the name as the comparison sees it
  std::int64_t SizeKey = 0;  // compare size: SIZE less ignored tag blocks
  std::string Path;          // folder relative to the source folder ("" or "/sub/dir")
  std::string Name;          // file name without extension
  std::string Extension;     // without the dot, "" if none
  std::int64_t SIZE = 0;     // bytes
  std::int32_t Attributes = 0;
  double DateLastModified = 0;
  double DateCreated = 0;

  std::int32_t PicWidth = -1;
  std::int32_t PicHeight = 0;
  std::int32_t PicFormat = 0;
  double PicRatio = 0;

  std::uint8_t ArchiveType = 0;   // 0 plain file
  std::string PathInsideZip;      // folder of a member inside its archive
  std::string ArchiveTempFileNr;  // extracted temp file name, "" until extracted

  std::int32_t MP3CutFromStart = 0;
  std::int32_t MP3CutFromEnd = 0;
  std::int32_t ExifCutFromStart = 0;
  std::int32_t ExifCutFromEnd = 0;

  std::vector<std::uint64_t> HashAudioArray;
  std::string Hash;  // content checksum (raw digest bytes); "" = not made
  std::array<std::vector<std::uint8_t>, 8> HashArray;
  std::array<bool, 8> HashCreated{};  // kind 0 also answers for Hash

  std::uint8_t PercentMatch = 0;
  bool IsReferenceFile = false;
  bool IsMP3 = false, IsFLAC = false, IsJPG = false;  // never set in stored records

  std::int32_t VolumeSerialNumber = 0;
  std::int32_t FileIndexHigh = 0;
  std::int32_t FileIndexLow = 0;
  std::int32_t NumberOfLinks = 0;

  // The file as the walk's stat saw it, whatever its link count (the four
  // fields above stay 0 for a file with one link): device and inode. Both 0
  // when unknown. A file opened for reading later must still be this one.
  std::uint64_t WalkDevice = 0;
  std::uint64_t WalkInode = 0;
  // The walk's modification and status-change times in nanoseconds (0:
  // unknown). Only the record of a file being placed has them; the
  // collection does not keep them.
  std::int64_t WalkMtimeNs = 0;
  std::int64_t WalkCtimeNs = 0;

  std::int32_t ExtensionLength() const { return static_cast<std::int32_t>(Extension.size()); }
  void SetHash(std::string h) {
    Hash = std::move(h);
    HashCreated[0] = !Hash.empty();
  }
};

// Name with extension: Name, and "." + Extension when there is one.
std::string GetFileNameWithExtension(const FileRecord& r);
// Path below the source folder: Path + "/" + name with extension. The full
// path of a plain file is the source folder + this.
std::string GetPathWithFileName(const FileRecord& r);
// Identity key of a record: decimal, joined with "-", the volume as its
// absolute value; with `withoutVolume` only the two file index halves. The
// formatted form writes the same fields in upper-case hexadecimal.
std::string GetHardlinkIDkey(const FileRecord& r, bool withoutVolume);
std::string GetHardlinkIDkeyFormatted(const FileRecord& r, bool withoutVolume);

}  // namespace kelvor
