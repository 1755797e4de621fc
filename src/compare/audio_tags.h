#pragma once
// Measuring the tag regions of MP3 files and the metadata of FLAC files, so
// that two copies of a piece of music that differ only in their tags compare
// equal. Only a few bytes at the file's ends are read; no tag is parsed.
//
// Files are opened through xOpenFileForReading: a FIFO in a file's place is
// refused at once, and with `expected` so is a file that is no longer the one
// the walk saw (a failure with text 3748).
//
// Failures return false. Where a message is due, *message receives the whole
// translated line (text 3748 with the position label, 5482, 5083); the caller
// logs it as an error. A false result means the cuts are not to be used.

#include <cstdint>
#include <string>

#include "data/file_system.h"

namespace kelvor {

class TextCatalog;

// Search_CheckForMP3IDTag: bytes to cut from the start (ID3v2, up to two
// stacked tags) and from the end (ID3v1, APE, Lyrics3 v2). The caller passes
// both cuts as 0. A file without tags gives true with both 0.
bool Search_CheckForMP3IDTag(std::int32_t& cutFromStart, std::int32_t& cutFromEnd,
                             const std::string& path, const TextCatalog& texts,
                             std::string* message, const ExpectedFile* expected = nullptr);

// Search_CheckForFlacTag: the metadata length to take off the compare size of
// a FLAC file of `fileSize` bytes (0 when the file is no FLAC stream or the
// last metadata block is never found).
bool Search_CheckForFlacTag(std::int32_t& metadataLength, std::int64_t fileSize,
                            const std::string& path, const TextCatalog& texts, std::string* message,
                            const ExpectedFile* expected = nullptr);

}  // namespace kelvor
