// The general log and the run's log: UTF-16LE files, one open-append-close per
// line.

#include "frame/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

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

bool WriteAll(int fd, std::string_view bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// Opens for appending, creating the file; a new (empty) file gets its
// byte-order mark first.
int OpenForAppend(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size == 0 && !WriteAll(fd, "\xFF\xFE")) {
    ::close(fd);
    return -1;
  }
  return fd;
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
  const bool ok = WriteAll(fd, Utf8ToUtf16le(line));
  return ::close(fd) == 0 && ok;
}

bool CreateEmptyFileWithUnicodeHeader(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return errno == EEXIST;
  const bool ok = WriteAll(fd, "\xFF\xFE");
  return ::close(fd) == 0 && ok;
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

bool Logger::SaveTmpLog(std::string* error) {
  auto fail = [&](const std::string& what) {
    if (error) *error = what;
    return false;
  };
  std::error_code ec;
  if (!std::filesystem::exists(runLog_, ec)) {
    CreateEmptyFileWithUnicodeHeader(runLog_);
    return true;
  }
  std::string bytes, why;
  if (!ReadWholeFile(runLog_, &bytes, &why)) {
    return fail(GermanTexts().Get(txt::T2746, {runLog_.string(), why}));
  }
  std::string_view body = bytes;
  if (body.size() >= 2 && body.substr(0, 2) == "\xFF\xFE") body.remove_prefix(2);
  if (!body.empty()) {
    const int fd = OpenForAppend(generalLog_);
    if (fd < 0)
      return fail(GermanTexts().Get(txt::T2746, {generalLog_.string(), ErrnoText(errno)}));
    const bool ok = WriteAll(fd, body);
    const int err = errno;
    ::close(fd);
    if (!ok) return fail(GermanTexts().Get(txt::T9002, {generalLog_.string(), ErrnoText(err)}));
  }
  // The run's log becomes lastsearch.txt.
  std::filesystem::rename(runLog_, lastSearchLog_, ec);
  if (ec) {
    std::error_code ec2;
    std::filesystem::copy_file(runLog_, lastSearchLog_,
                               std::filesystem::copy_options::overwrite_existing, ec2);
    if (ec2) return fail(GermanTexts().Get(txt::T9001, {lastSearchLog_.string(), ec2.message()}));
    std::filesystem::remove(runLog_, ec2);
  }
  CreateEmptyFileWithUnicodeHeader(runLog_);
  return true;
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
    if (error) *error = texts.Get(txt::T9001, {tmp.string(), ErrnoText(errno)});
    return false;
  }
  const bool ok = WriteAll(fd, Utf16leWithBom(kept)) && ::fsync(fd) == 0;
  const int err = errno;
  ::close(fd);
  if (!ok) {
    ::unlink(tmp.c_str());
    if (error) *error = texts.Get(txt::T9002, {tmp.string(), ErrnoText(err)});
    return false;
  }
  std::filesystem::rename(tmp, file, ec);
  if (ec) {
    std::filesystem::remove(tmp, ec);
    if (error) *error = texts.Get(txt::T9002, {file.string(), ec.message()});
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
