#include "compare/audio_tags.h"

#include <cerrno>
#include <cstring>
#include <limits>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/texts.h"

namespace kelvor {
namespace {

// Reads n bytes at `offset` for a probe. A negative offset is a failed
// positioning (seekLabel); a failed read gets readLabel. Returns the bytes
// read (short at the end of the file) or -1 with *message set to text 3748.
class Prober {
 public:
  Prober(const std::string& path, const TextCatalog& texts, std::string* message,
         const ExpectedFile* expected)
      : path_(path), texts_(texts), message_(message), expected_(expected) {}

  bool Open(const char* label) {
    std::string err;
    if (!file_.Open(path_, false, &err, expected_)) return Fail(err, label);
    return true;
  }
  std::int64_t Size(const char* label) {
    std::string err;
    std::int64_t s = file_.Size(&err);
    if (s < 0) Fail(err, label);
    return s;
  }
  std::int64_t Read(void* buf, std::size_t n, std::int64_t offset, const char* seekLabel,
                    const char* readLabel) {
    if (offset < 0) {
      Fail(ErrorText(EINVAL), seekLabel);
      return -1;
    }
    std::string err;
    std::int64_t got = file_.ReadAt(buf, n, offset, &err);
    if (got < 0) Fail(err, readLabel);
    return got;
  }
  bool Fail(const std::string& err, const char* label) {
    if (message_) *message_ = texts_.Get(txt::T3748, {path_, err, label});
    return false;
  }
  void Message(const TextDef& t) {
    if (message_) *message_ = texts_.Get(t, {path_});
  }

 private:
  const std::string& path_;
  const TextCatalog& texts_;
  std::string* message_;
  const ExpectedFile* expected_;
  ReadFile file_;
};

bool StartsWith(const unsigned char* p, const char* s) {
  return std::memcmp(p, s, std::strlen(s)) == 0;
}

}  // namespace

bool Search_CheckForMP3IDTag(std::int32_t& cutFromStart, std::int32_t& cutFromEnd,
                             const std::string& path, const TextCatalog& texts,
                             std::string* message, const ExpectedFile* expected) {
  Prober f(path, texts, message, expected);
  if (!f.Open("Pos:8")) return false;
  const std::int64_t size = f.Size("Pos:8");
  if (size < 0) return false;

  // Everything is summed in 64 bits and checked against the file before it
  // goes into the 32-bit cuts, so corrupt lengths cannot overflow them.
  std::int64_t cutEnd = cutFromEnd;
  unsigned char buf[32];

  // ID3v1: "TAG" 128 and 256 bytes before the end, both looked at.
  bool id3v1 = false;
  const char* seekLabels[2] = {"Pos:3", "Pos:15"};
  for (int pass = 0; pass < 2; ++pass) {
    std::int64_t got = f.Read(buf, 3, size - 128 * (pass + 1), seekLabels[pass], "Pos:4");
    if (got < 0) {
      cutFromEnd = static_cast<std::int32_t>(cutEnd);
      return false;
    }
    if (got == 3 && StartsWith(buf, "TAG")) {
      cutEnd += 128;
      id3v1 = true;
    }
  }
  cutFromEnd = static_cast<std::int32_t>(cutEnd);
  const std::int64_t v1 = id3v1 ? 128 : 0;

  // Which of APE and Lyrics3 lies directly in front of the ID3v1 tag.
  std::int64_t got = f.Read(buf, 32, size - 32 - v1, "Pos:12", "Pos:13");
  if (got < 0) return false;
  bool apeFirst = got == 32 && StartsWith(buf, "APETAGEX");

  std::int64_t apeLen = 0, lyricsLen = 0;
  for (int pass = 0; pass < 2; ++pass) {
    bool ape = (pass == 0) == apeFirst;
    if (ape) {
      got = f.Read(buf, 32, size - 32 - v1 - (lyricsLen > 0 ? lyricsLen : 0), "Pos:10", "Pos:11");
      if (got < 0) return false;
      if (got == 32 && StartsWith(buf, "APETAGEX")) {
        std::uint32_t v =
            static_cast<std::uint32_t>(buf[12]) | static_cast<std::uint32_t>(buf[13]) << 8 |
            static_cast<std::uint32_t>(buf[14]) << 16 | static_cast<std::uint32_t>(buf[15]) << 24;
        // A tag that claims more than the file holds is as corrupt as one
        // above the 31-bit limit.
        if (v >= 2147483647u || cutEnd + v + 32 > size) {
          f.Message(txt::T5482);
          return false;
        }
        apeLen = static_cast<std::int64_t>(v) + 32;
        cutEnd += apeLen;
        cutFromEnd = static_cast<std::int32_t>(cutEnd);
      }
    } else {
      got = f.Read(buf, 15, size - 15 - v1 - (apeLen > 0 ? apeLen : 0), "Pos:8", "Pos:9");
      if (got < 0) return false;
      if (got == 15 && std::memcmp(buf + 6, "LYRICS200", 9) == 0) {
        bool numeric = true;
        std::int64_t n = 0;
        for (int i = 0; i < 6; ++i) {
          if (buf[i] < '0' || buf[i] > '9') {
            numeric = false;
            break;
          }
          n = n * 10 + (buf[i] - '0');
        }
        if (numeric) {
          if (cutEnd + n + 15 > size) {
            // The tag would begin in front of the file: the same failure as
            // positioning there.
            return f.Fail(ErrorText(EINVAL), "Pos:9");
          }
          lyricsLen = n + 15;
          cutEnd += lyricsLen;
          cutFromEnd = static_cast<std::int32_t>(cutEnd);
        }
      }
    }
  }

  // ID3v2 at the start, and a second one stacked behind the first.
  std::int64_t cutStart = 0;
  cutFromStart = 0;
  const char* v2SeekLabels[2] = {"Pos:5", "Pos:14"};
  for (int pass = 0; pass < 2; ++pass) {
    got = f.Read(buf, 10, cutStart, v2SeekLabels[pass], "Pos:6");
    if (got < 0) return false;
    if (got < 10) continue;
    if (!StartsWith(buf, "ID3") || buf[3] >= 255 || buf[4] >= 255 || buf[6] >= 128 ||
        buf[7] >= 128 || buf[8] >= 128 || buf[9] >= 128)
      continue;
    std::int64_t len = 10 + buf[9] + buf[8] * 128LL + buf[7] * 16384LL + buf[6] * 2097152LL;
    if (cutStart + len + cutEnd > size) {
      // A header that claims more than the file holds: measured lengths
      // must leave a compare size of 0 or more.
      return f.Fail(ErrorText(EINVAL), "Pos:6");
    }
    cutStart += len;
    cutFromStart = static_cast<std::int32_t>(cutStart);
  }
  return true;
}

bool Search_CheckForFlacTag(std::int32_t& metadataLength, std::int64_t fileSize,
                            const std::string& path, const TextCatalog& texts, std::string* message,
                            const ExpectedFile* expected) {
  metadataLength = 0;
  if (fileSize < 8) return false;
  Prober f(path, texts, message, expected);
  if (!f.Open("FlacPos:0")) return false;

  unsigned char buf[4];
  std::int64_t got = f.Read(buf, 4, 0, "FlacPos:1", "FlacPos:1");
  if (got < 0) return false;
  if (got < 4) return f.Fail(ErrorText(EIO), "FlacPos:1");
  if (!StartsWith(buf, "fLaC")) return true;

  got = f.Read(buf, 4, 4, "FlacPos:2", "FlacPos:2");
  if (got < 0) return false;
  if (got < 4) return f.Fail(ErrorText(EIO), "FlacPos:2");
  // The first block must be a STREAMINFO block that is not the last one.
  if (buf[0] != 0) {
    f.Message(txt::T5083);
    return false;
  }
  auto blockLength = [&] { return buf[1] * 65536LL + buf[2] * 256LL + buf[3]; };
  std::int64_t pos = 8 + blockLength();
  if (pos > fileSize) return true;

  const char* seekLabel = "FlacPos:3";
  for (;;) {
    std::int64_t at = pos;
    pos += 4;
    if (pos > fileSize) return true;
    got = f.Read(buf, 4, at, seekLabel, "FlacPos:4");
    seekLabel = "FlacPos:4";
    if (got < 0) return false;
    if (got < 4) return f.Fail(ErrorText(EIO), "FlacPos:4");
    pos += blockLength();
    if (buf[0] & 0x80) {
      // The length stops one byte short of the first audio frame. A last
      // block that runs past the file measures nothing.
      if (pos > fileSize || pos - 1 > std::numeric_limits<std::int32_t>::max()) return true;
      metadataLength = static_cast<std::int32_t>(pos - 1);
      return true;
    }
  }
}

}  // namespace kelvor
