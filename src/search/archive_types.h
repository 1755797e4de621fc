#pragma once
// Which files the walk hands to the archive scan.

#include <array>
#include <string_view>

namespace kelvor {

// The archive type (1..16, the order of the archive list) of a file name, or
// 0 when it is not an archive whose type is switched on in `enabled`.
// Multi-volume rar sets count by their first part only, ".tar.gz" is not a
// "gz" archive, and "x.7z.001", "x.zip.001", "x.tar.001" are archives.
int ArchiveTypeOf(std::string_view fileName, const std::array<bool, 17>& enabled);

}  // namespace kelvor
