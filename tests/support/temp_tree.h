#pragma once
// Test helpers: a temporary folder that removes itself, and small file tools.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace kelvor::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view rel) const { return path_ / rel; }

  // Writes `content` to path()/rel, making parent folders.
  std::filesystem::path Write(std::string_view rel, std::string_view content) const;
  // Makes path()/rel as a folder (with parents).
  std::filesystem::path Mkdir(std::string_view rel) const;

 private:
  std::filesystem::path path_;
};

// Whole file as bytes.
std::string ReadBytes(const std::filesystem::path& file);
// A UTF-16LE file (byte-order mark optional) as UTF-8 text.
std::string ReadUtf16File(const std::filesystem::path& file);
// Sets the change time of a file (seconds since the epoch).
void SetMtime(const std::filesystem::path& file, std::int64_t unixSeconds);

}  // namespace kelvor::test
