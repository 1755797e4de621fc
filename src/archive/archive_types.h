#pragma once
// Which files the walk hands to the archive scan.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

class TextCatalog;

// The archive type (1..16, the order of the archive list) of a file name, or
// 0 when it is not an archive whose type is switched on in `enabled`.
// Multi-volume rar sets count by their first part only, ".tar.gz" is not a
// "gz" archive, and "x.7z.001", "x.zip.001", "x.tar.001" are archives.
int ArchiveTypeOf(std::string_view fileName, const std::array<bool, 17>& enabled);

// The name of a type of the archive list ("zip", "rar", "7z", ...).
std::string_view ArchiveTypeName(int listType);

// The run log's header lines of an archive search: the types searched and,
// when on, the archive size filter with its limit ("20 MB", "512 KB").
std::vector<std::string> ArchiveLogHeaderLines(const std::array<bool, 17>& types, bool sizeFilter,
                                               std::int64_t sizeLimit, const TextCatalog& texts);

// The archive type a member's record carries (FileRecord::ArchiveType) for a
// type of the archive list: zip 1, rar 2, then 7z 4 up to cbt 17 (the value 3
// is not used). 0 for anything else.
std::uint8_t RecordArchiveType(int listType);
// The archive list's type of a record's archive type (the inverse).
int ListTypeOfRecord(std::uint8_t archiveType);

// Whether libarchive is asked to read the type as a single compressed
// stream (a "gz" file holds one member, named after the file without ".gz").
inline bool IsSingleStreamType(int listType) {
  return listType == 7;
}

}  // namespace kelvor
