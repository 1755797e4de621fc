#include "compare/exif.h"

#include <fmt/format.h>

#include <cerrno>
#include <limits>
#include <vector>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/texts.h"

namespace kelvor {
namespace {

constexpr std::int64_t kInt32Max = std::numeric_limits<std::int32_t>::max();

std::string Label(const char* proc, int n) {
  return fmt::format("{}:{}", proc, n);
}

bool Fail(const std::string& path, const std::string& err, const std::string& label,
          const TextCatalog& texts, std::string* message) {
  if (message) *message = texts.Get(txt::T3748, {path, err, label});
  return false;
}

bool IsSkippedSegment(unsigned char m) {
  return (m >= 0xE0 && m <= 0xEF) || m == 0xC0 || m == 0xC2 || m == 0xC4 || m == 0xDB ||
         m == 0xDD || m == 0xFE;
}

// Search_GetExifDatablockSize_AddSize: steps over the rest of one marker
// segment whose 4 header bytes (FF, marker, length high, length low) were
// just read.
bool AddSize(std::int64_t& position, std::int64_t fileSize, const unsigned char* b,
             const std::string& path, const TextCatalog& texts, std::string* message) {
  std::int64_t rest = b[2] * 256LL + b[3] - 2;
  // A length below 2 cannot even hold itself: as broken as one that runs
  // past the end.
  if (rest < 0 || position + rest > fileSize) {
    if (message) {
      *message =
          texts.Get(txt::T5468, {fmt::format("{:02X}", b[0]), fmt::format("{:02X}", b[1]),
                                 fmt::format("{:02X}", b[2]), fmt::format("{:02X}", b[3]),
                                 std::to_string(fileSize), std::to_string(position + rest), path});
    }
    return false;
  }
  position += rest;
  return true;
}

std::uint32_t Le32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
unsigned Le16(const unsigned char* p) {
  return p[0] | p[1] << 8;
}

}  // namespace

bool Search_GetExifDatablockSize(const std::string& path, std::int32_t& cutFromStart,
                                 std::int32_t& cutFromEnd, const TextCatalog& texts,
                                 std::string* message, const ExpectedFile* expected) {
  static constexpr const char* kProc = "Search_GetExifDatablockSize";
  ReadFile file;
  std::string err;
  if (!file.Open(path, false, &err, expected))
    return Fail(path, err, Label(kProc, 1), texts, message);
  const std::int64_t size = file.Size(&err);
  if (size < 0) return Fail(path, err, Label(kProc, 1), texts, message);

  unsigned char b[4];
  std::int64_t got = file.ReadAt(b, 2, 0, &err);
  if (got < 0) return Fail(path, err, Label(kProc, 2), texts, message);
  if (got < 2 || b[0] != 0xFF || b[1] != 0xD8) return false;

  std::int64_t position = 2;
  for (;;) {
    got = file.ReadAt(b, 4, position, &err);
    if (got < 0) return Fail(path, err, Label(kProc, 3), texts, message);
    if (got < 4) return false;  // the file ends in front of the scan
    position += 4;
    if (b[0] != 0xFF) return false;
    if (b[1] == 0xDA) break;
    if (!IsSkippedSegment(b[1])) return false;
    if (!AddSize(position, size, b, path, texts, message)) return false;
  }

  // Start of scan reached: look for the last end-of-image marker in the tail.
  std::int64_t tail = kExifEoiSearchBytes;
  if (position + tail > size) tail = size - position;
  std::vector<unsigned char> buf(static_cast<std::size_t>(tail > 0 ? tail : 0));
  if (tail > 0) {
    got = file.ReadAt(buf.data(), buf.size(), size - tail, &err);
    if (got < 0) return Fail(path, err, Label(kProc, 5), texts, message);
    if (got < tail) return Fail(path, ErrorText(EIO), Label(kProc, 5), texts, message);
  }
  for (std::int64_t i = tail - 2; i >= 0; --i) {
    if (buf[i] == 0xFF && buf[i + 1] == 0xD9) {
      std::int64_t start = position - 4;
      std::int64_t end = tail - (i + 2);
      if (start > kInt32Max || end > kInt32Max) return false;
      cutFromStart = static_cast<std::int32_t>(start);
      cutFromEnd = static_cast<std::int32_t>(end);
      return true;
    }
  }
  if (message) *message = texts.Get(txt::T5483, {std::to_string(tail), path});
  return false;
}

bool Search_GetExifDatablockSize_CR2(const std::string& path, std::int32_t& cutFromStart,
                                     std::int32_t& cutFromEnd, const TextCatalog& texts,
                                     std::string* message, const ExpectedFile* expected) {
  static constexpr const char* kProc = "Search_GetExifDatablockSize_CR2";
  ReadFile file;
  std::string err;
  if (!file.Open(path, false, &err, expected))
    return Fail(path, err, Label(kProc, 1), texts, message);
  const std::int64_t size = file.Size(&err);
  if (size < 0) return Fail(path, err, Label(kProc, 1), texts, message);

  unsigned char h[48];
  std::int64_t got = file.ReadAt(h, 16, 0, &err);
  if (got < 0) return Fail(path, err, Label(kProc, 2), texts, message);
  if (got < 16) return false;
  bool order = (h[0] == 'I' && h[1] == 'I') || (h[0] == 'M' && h[1] == 'M');
  if (!order || h[2] != '*' || h[8] != 'C' || h[9] != 'R') return false;

  // The raw image's directory; its offset is read little-endian whatever the
  // byte order mark says.
  const std::int64_t ifd = Le32(h + 12);
  got = file.ReadAt(h, 48, ifd, &err);
  if (got < 0) return Fail(path, err, Label(kProc, 4), texts, message);
  if (got < 48) return false;
  if (Le16(h + 2) != 0x0103 || Le16(h + 14) != 0x0111 || Le16(h + 26) != 0x0117) return false;

  const std::int64_t offset = Le32(h + 22);
  const std::int64_t count = Le32(h + 34);
  unsigned char m[2];
  got = file.ReadAt(m, 2, offset, &err);
  if (got < 0) return Fail(path, err, Label(kProc, 6), texts, message);
  if (got < 2 || m[0] != 0xFF || m[1] != 0xD8) return false;
  std::int64_t endAt = offset + count - 2;
  if (endAt < offset) return false;  // a strip too short for its own markers
  got = file.ReadAt(m, 2, endAt, &err);
  if (got < 0) return Fail(path, err, Label(kProc, 8), texts, message);
  if (got < 2 || m[0] != 0xFF || m[1] != 0xD9) return false;

  std::int64_t end = size - count - offset;
  if (end < 0 || offset > kInt32Max || end > kInt32Max) return false;
  cutFromStart = static_cast<std::int32_t>(offset);
  cutFromEnd = static_cast<std::int32_t>(end);
  return true;
}

}  // namespace kelvor
