// Whole-file text reading with encoding detection, and atomic writing.

#include "frame/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "frame/error_text.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

bool LooksLikeBomlessUtf16le(std::string_view b) {
  if (b.size() < 4 || b.size() % 2 != 0) return false;
  // ASCII-heavy UTF-16LE: most odd bytes are zero, few even ones are.
  std::size_t oddZero = 0, evenZero = 0;
  const std::size_t pairs = b.size() / 2;
  for (std::size_t i = 0; i < pairs; ++i) {
    if (b[2 * i] == 0) ++evenZero;
    if (b[2 * i + 1] == 0) ++oddZero;
  }
  return oddZero * 10 >= pairs * 7 && evenZero * 10 < pairs;
}

std::string SwapPairs(std::string_view b) {
  std::string out(b);
  for (std::size_t i = 0; i + 1 < out.size(); i += 2) std::swap(out[i], out[i + 1]);
  return out;
}

}  // namespace

std::string DecodeText(std::string_view bytes, bool guessUtf16, TextEncoding* found) {
  auto set = [&](TextEncoding e) {
    if (found) *found = e;
  };
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    set(TextEncoding::Utf16le);
    return Utf16leToUtf8(bytes.substr(2));
  }
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFE &&
      static_cast<unsigned char>(bytes[1]) == 0xFF) {
    set(TextEncoding::Utf16be);
    return Utf16leToUtf8(SwapPairs(bytes.substr(2)));
  }
  if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
    set(TextEncoding::Utf8Bom);
    return DisplayUtf8(bytes.substr(3));
  }
  if (guessUtf16 && LooksLikeBomlessUtf16le(bytes)) {
    set(TextEncoding::Utf16leNoBom);
    return Utf16leToUtf8(bytes);
  }
  if (IsValidUtf8(bytes)) {
    set(TextEncoding::Utf8);
    return std::string(bytes);
  }
  set(TextEncoding::Latin1);
  std::u32string cps(bytes.begin(), bytes.end());
  for (auto& c : cps) c &= 0xFF;
  return FromCodePoints(cps);
}

bool ReadWholeFile(const std::filesystem::path& file, std::string* bytes, std::string* error) {
  return ReadWholeFile(file, bytes, error, TextCatalog{});
}

bool ReadWholeFile(const std::filesystem::path& file, std::string* bytes, std::string* error,
                   const TextCatalog& texts) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    if (error) *error = ErrorText(errno);
    return false;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    if (error) *error = texts.Get(txt::T9020);
    return false;
  }
  // Reads of a regular file do not care, but say what is meant.
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  bytes->clear();
  char buf[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      if (error) *error = ErrorText(err);
      return false;
    }
    bytes->append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return true;
}

bool ExistsButNotRegular(const std::filesystem::path& file) {
  struct stat st {};
  return ::stat(file.c_str(), &st) == 0 && !S_ISREG(st.st_mode);
}

bool WriteFileAtomic(const std::filesystem::path& file, std::string_view bytes,
                     std::string* error) {
  return WriteFileAtomic(file, bytes, error, TextCatalog{});
}

bool WriteFileAtomic(const std::filesystem::path& file, std::string_view bytes, std::string* error,
                     const TextCatalog& texts) {
  auto fail = [&](const char* what, int err) {
    if (error) *error = std::string(what) + ": " + ErrorText(err);
    return false;
  };
  // The rename would put a file in the place of a FIFO or device.
  if (ExistsButNotRegular(file)) {
    if (error) *error = texts.Get(txt::T9020);
    return false;
  }
  std::filesystem::path tmp = file;
  tmp += ".tmp-" + std::to_string(::getpid());
  const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return fail("create", errno);
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      ::unlink(tmp.c_str());
      return fail("write", err);
    }
    done += static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0) {
    const int err = errno;
    ::close(fd);
    ::unlink(tmp.c_str());
    return fail("fsync", err);
  }
  if (::close(fd) != 0) {
    const int err = errno;
    ::unlink(tmp.c_str());
    return fail("close", err);
  }
  if (::rename(tmp.c_str(), file.c_str()) != 0) {
    const int err = errno;
    ::unlink(tmp.c_str());
    return fail("rename", err);
  }
  // Make the rename itself durable.
  std::filesystem::path dir = file.parent_path();
  if (dir.empty()) dir = ".";
  const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
  return true;
}

std::string Utf16leWithBom(std::string_view utf8) {
  std::string out = "\xFF\xFE";
  out += Utf8ToUtf16le(utf8);
  return out;
}

}  // namespace kelvor
