// The general log and the run's log: UTF-16LE files, one open-append-close per
// line.

#include "frame/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "frame/error_text.h"
#include "frame/formats.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/text_file.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

const TextCatalog& GermanTexts() {
  static const TextCatalog german;  // immutable built-in German texts
  return german;
}

// Writes all of `bytes`; `*done` (when given) tells how many went out.
bool WriteAll(int fd, std::string_view bytes, std::size_t* done = nullptr) {
  std::size_t written = 0;
  bool ok = true;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      ok = false;
      break;
    }
    written += static_cast<std::size_t>(n);
  }
  if (done) *done = written;
  return ok;
}

// Appends `bytes` to a file opened for appending, whole or not at all: after
// a failed write (a full disk) the file is cut back to where it was, as long
// as nobody else appended meanwhile. errno tells the failure.
bool AppendWhole(int fd, std::string_view bytes) {
  struct stat before {};
  if (::fstat(fd, &before) != 0) return false;
  std::size_t done = 0;
  if (WriteAll(fd, bytes, &done)) return true;
  const int err = errno;
  struct stat after {};
  if (done > 0 && ::fstat(fd, &after) == 0 &&
      after.st_size == before.st_size + static_cast<off_t>(done)) {
    [[maybe_unused]] const int cut = ::ftruncate(fd, before.st_size);
  }
  errno = err;
  return false;
}

// Opens for appending, creating the file; a new (empty) file gets its
// byte-order mark first. Only regular files: the open does not wait for a
// FIFO's reader. A file made here that cannot take its mark is removed again,
// so that a full disk leaves no empty files behind. -1 with errno on failure.
int OpenForAppend(const std::filesystem::path& file) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK;
  bool made = true;
  int fd = ::open(file.c_str(), kFlags | O_CREAT | O_EXCL, 0644);
  if (fd < 0 && errno == EEXIST) {
    made = false;
    fd = ::open(file.c_str(), kFlags);
  }
  if (fd < 0) return -1;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    errno = EINVAL;
    return -1;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (st.st_size == 0 && !AppendWhole(fd, "\xFF\xFE")) {
    const int err = errno;
    ::close(fd);
    if (made) ::unlink(file.c_str());
    errno = err;
    return -1;
  }
  return fd;
}

bool fail(const std::string& what, std::string* error) {
  if (error) *error = what;
  return false;
}

bool StartsWithDigit(std::string_view s) {
  return !s.empty() && s[0] >= '0' && s[0] <= '9';
}

}  // namespace

std::string LogTimeStamp() {
  return FormatDate(DateNow(), kLogDateFormat);
}

bool AppendLogLine(const std::filesystem::path& file, std::string_view text, bool isError) {
  std::string line = LogTimeStamp();
  line += " - ";
  if (isError) line += "ERROR: ";
  line += text;
  line += "\r\n";
  const int fd = OpenForAppend(file);
  if (fd < 0) return false;
  const bool ok = AppendWhole(fd, Utf8ToUtf16le(line));
  return ::close(fd) == 0 && ok;
}

bool CreateEmptyFileWithUnicodeHeader(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return errno == EEXIST;
  bool ok = WriteAll(fd, "\xFF\xFE");
  int err = errno;
  if (::close(fd) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    // A full disk: no empty file is left behind.
    ::unlink(file.c_str());
    errno = err;
  }
  return ok;
}

Logger::Logger(std::filesystem::path generalLog, std::filesystem::path runLog,
               std::filesystem::path lastSearchLog)
    : generalLog_(std::move(generalLog)),
      runLog_(std::move(runLog)),
      lastSearchLog_(std::move(lastSearchLog)) {}

void Logger::LogProtokoll(std::string_view text, bool isError, bool show) {
  AppendLogLine(runLog_, text, isError);
  if (show && panel_ != nullptr) panel_->LogPanel(text);
}

void Logger::LogProtokollMain(std::string_view text) {
  AppendLogLine(generalLog_, text, false);
}

Logger::~Logger() {
  struct stat st;
  if (runLog_.empty() || ::lstat(runLog_.c_str(), &st) != 0 || !S_ISREG(st.st_mode) ||
      st.st_size != 2)
    return;
  std::string bytes, why;
  if (ReadWholeFile(runLog_, &bytes, &why) && bytes == "\xFF\xFE") ::unlink(runLog_.c_str());
}

bool Logger::SaveTmpLog(std::string* error) {
  const TextCatalog& texts = GermanTexts();
  std::string first;  // the first failure is the one reported
  auto note = [&](std::string what) {
    if (first.empty()) first = std::move(what);
  };
  std::error_code ec;
  if (!std::filesystem::exists(runLog_, ec)) {
    // The run's log could not be written (start-up said so). The previous
    // search's log must not stand as this one's.
    if (std::filesystem::exists(lastSearchLog_, ec)) {
      std::filesystem::remove(lastSearchLog_, ec);
      note(ec ? texts.Get(txt::T9023, {lastSearchLog_.string(), ErrorText(ec)})
              : texts.Get(txt::T9022, {lastSearchLog_.string()}));
    }
  } else {
    std::string bytes, why;
    if (!ReadWholeFile(runLog_, &bytes, &why)) {
      return fail(texts.Get(txt::T2746, {runLog_.string(), why}), error);
    }
    std::string_view body = bytes;
    if (body.size() >= 2 && body.substr(0, 2) == "\xFF\xFE") body.remove_prefix(2);
    if (!body.empty()) {
      const int fd = OpenForAppend(generalLog_);
      if (fd < 0) {
        note(texts.Get(txt::T2746, {generalLog_.string(), ErrorText(errno)}));
      } else {
        if (!AppendWhole(fd, body)) {
          note(texts.Get(txt::T9002, {generalLog_.string(), ErrorText(errno)}));
        }
        ::close(fd);
      }
    }
    // The run's log becomes lastsearch.txt, also when the general log could
    // not take it.
    std::filesystem::rename(runLog_, lastSearchLog_, ec);
    if (ec) {
      std::error_code ec2;
      std::filesystem::copy_file(runLog_, lastSearchLog_,
                                 std::filesystem::copy_options::overwrite_existing, ec2);
      if (ec2) {
        // No half copy stays; the message says that the file is gone.
        std::error_code ec3;
        std::filesystem::remove(lastSearchLog_, ec3);
        note(texts.Get(txt::T9001, {lastSearchLog_.string(), ErrorText(ec2)}));
      } else {
        std::filesystem::remove(runLog_, ec2);
      }
    }
  }
  CreateEmptyFileWithUnicodeHeader(runLog_);
  if (first.empty()) return true;
  return fail(first, error);
}

bool Cut_Logfile(double days, const std::filesystem::path& file, std::string* error,
                 const TextCatalog& texts, double now) {
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return true;
  std::string bytes, why;
  if (!ReadWholeFile(file, &bytes, &why)) {
    if (error) *error = texts.Get(txt::T2746, {file.string(), why});
    return false;
  }
  const std::string text = DecodeText(bytes, true);

  std::string kept;
  kept.reserve(text.size());
  bool keep = true;  // rows before the first dated one stay
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    const bool last = end == std::string::npos;
    if (last) end = text.size();
    std::string_view line = std::string_view(text).substr(pos, end - pos);
    pos = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (last && line.empty()) break;
    const auto dash = line.find(" - ");
    double date = 0;
    if (StartsWithDigit(line) && dash != std::string_view::npos &&
        ParseDate(line.substr(0, dash), kLogDateFormat, &date)) {
      keep = now - date < days;
    }
    if (keep) {
      kept.append(line);
      kept += "\r\n";
    }
  }

  std::filesystem::path tmp = file;
  tmp += ".tmp";
  const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    if (error) *error = texts.Get(txt::T9001, {tmp.string(), ErrorText(errno)});
    return false;
  }
  const bool ok = WriteAll(fd, Utf16leWithBom(kept)) && ::fsync(fd) == 0;
  const int err = errno;
  ::close(fd);
  if (!ok) {
    ::unlink(tmp.c_str());
    if (error) *error = texts.Get(txt::T9002, {tmp.string(), ErrorText(err)});
    return false;
  }
  std::filesystem::rename(tmp, file, ec);
  if (ec) {
    std::filesystem::remove(tmp, ec);
    if (error) *error = texts.Get(txt::T9002, {file.string(), ErrorText(ec)});
    return false;
  }
  return true;
}

bool Cut_Logfile(double days, const std::filesystem::path& file, std::string* error) {
  return Cut_Logfile(days, file, error, GermanTexts(), DateNow());
}

void LogfileDEL(const SettingsStore& settings, Logger& logger, const TextCatalog& texts) {
  if (!settings.GetBool("DupVerz", "LogDel")) return;
  const long long days = settings.GetInt("DupVerz", "LogDelDays");
  logger.LogProtokollMain(
      texts.Get(txt::T9004, {std::to_string(days), logger.GeneralLog().string()}));
  std::string error;
  if (!Cut_Logfile(static_cast<double>(days), logger.GeneralLog(), &error, texts, DateNow())) {
    logger.LogProtokollMain(error);
  }
}

}  // namespace kelvor
