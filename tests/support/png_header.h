#pragma once
// A PNG file that lies about its size: a header claiming `w` x `h` RGB
// pixels and almost no data, for the decoders' size caps.

#include <cstdint>
#include <string>

namespace kelvor::test {

inline std::string PngHeaderOnly(std::uint32_t w, std::uint32_t h) {
  auto crc32 = [](const std::string& s) {
    std::uint32_t c = 0xFFFFFFFFu;
    for (unsigned char ch : s) {
      c ^= ch;
      for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
    }
    return c ^ 0xFFFFFFFFu;
  };
  auto be32 = [](std::uint32_t v) {
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>((v >> (24 - 8 * i)) & 0xFF);
    return s;
  };
  std::string ihdr = "IHDR" + be32(w) + be32(h) + std::string("\x08\x02\x00\x00\x00", 5);
  std::string png = "\x89PNG\r\n\x1a\n";
  png += be32(13) + ihdr + be32(crc32(ihdr));
  // One data chunk: a zlib stream of a single stored zero byte.
  std::string idat = "IDAT" + std::string("\x78\x01\x01\x01\x00\xfe\xff\x00\x00\x01\x00\x01", 12);
  png += be32(12) + idat + be32(crc32(idat));
  png += be32(0) + std::string("IEND") + be32(crc32("IEND"));
  return png;
}

}  // namespace kelvor::test
