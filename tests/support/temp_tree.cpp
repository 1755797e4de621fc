#include "support/temp_tree.h"

#include <sys/stat.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace kelvor::test {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/kelvor-test-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  path_ = buf.data();
}

TempDir::~TempDir() {
  std::error_code ec;
  // Give back write permission that a test may have taken away.
  for (auto it = std::filesystem::recursive_directory_iterator(
           path_, std::filesystem::directory_options::skip_permission_denied, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec) && !it->is_symlink(ec)) ::chmod(it->path().c_str(), 0755);
  }
  ::chmod(path_.c_str(), 0755);
  std::filesystem::remove_all(path_, ec);
}

std::filesystem::path TempDir::Write(std::string_view rel, std::string_view content) const {
  auto p = path_ / rel;
  std::filesystem::create_directories(p.parent_path());
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  f.write(content.data(), static_cast<std::streamsize>(content.size()));
  return p;
}

std::filesystem::path TempDir::Mkdir(std::string_view rel) const {
  auto p = path_ / rel;
  std::filesystem::create_directories(p);
  return p;
}

std::string ReadBytes(const std::filesystem::path& file) {
  std::ifstream f(file, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

std::string ReadUtf16File(const std::filesystem::path& file) {
  std::string b = ReadBytes(file);
  std::size_t i = 0;
  if (b.size() >= 2 && static_cast<unsigned char>(b[0]) == 0xFF &&
      static_cast<unsigned char>(b[1]) == 0xFE)
    i = 2;
  std::string out;
  for (; i + 1 < b.size(); i += 2) {
    char32_t c = static_cast<unsigned char>(b[i]) | (static_cast<unsigned char>(b[i + 1]) << 8);
    if (c >= 0xD800 && c < 0xDC00 && i + 3 < b.size()) {
      char32_t lo = static_cast<unsigned char>(b[i + 2]) | (static_cast<unsigned char>(b[i + 3]) << 8);
      c = 0x10000 + ((c - 0xD800) << 10) + (lo - 0xDC00);
      i += 2;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

void SetMtime(const std::filesystem::path& file, std::int64_t unixSeconds) {
  struct timespec ts[2];
  ts[0].tv_sec = unixSeconds;
  ts[0].tv_nsec = 0;
  ts[1] = ts[0];
  ::utimensat(AT_FDCWD, file.c_str(), ts, AT_SYMLINK_NOFOLLOW);
}

}  // namespace kelvor::test
