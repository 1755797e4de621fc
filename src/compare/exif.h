#pragma once
// Where the image data of a JPEG or CR2 file begins and how many bytes follow
// it, so that copies that differ only in their Exif/APP segments or trailing
// bytes compare equal.
//
// Files are opened through xOpenFileForReading: a FIFO in a file's place is
// refused at once, and with `expected` so is a file that is no longer the one
// the walk saw (a failure with text 3748).
//
// Failures return false with both cuts left as they were (the caller keeps
// them at 0 and compares the whole file). Where a message is due, *message
// receives the whole translated line (texts 3748, 5468, 5483); a file that
// simply has another structure gives false without a message.

#include <cstdint>
#include <string>

#include "data/file_system.h"

namespace kelvor {

class TextCatalog;

// End-of-image search window at the end of a JPEG file.
inline constexpr std::int64_t kExifEoiSearchBytes = 300000;

// Search_GetExifDatablockSize (JPEG): cutFromStart is the offset of the
// start-of-scan marker, cutFromEnd the number of bytes behind the last FF D9.
bool Search_GetExifDatablockSize(const std::string& path, std::int32_t& cutFromStart,
                                 std::int32_t& cutFromEnd, const TextCatalog& texts,
                                 std::string* message, const ExpectedFile* expected = nullptr);

// Search_GetExifDatablockSize_CR2: cutFromStart is the offset of the raw
// image's JPEG strip, cutFromEnd the bytes behind it.
bool Search_GetExifDatablockSize_CR2(const std::string& path, std::int32_t& cutFromStart,
                                     std::int32_t& cutFromEnd, const TextCatalog& texts,
                                     std::string* message, const ExpectedFile* expected = nullptr);

}  // namespace kelvor
