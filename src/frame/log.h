#pragma once
// The two text logs: the general log Kelvor4.txt for the application's whole
// life, and the run's log (a tick-count name in the temp folder) that searches
// and the file manager write to. Every line is its own open-append-close in
// UTF-16LE, so that a crash loses nothing.

#include <filesystem>
#include <string>
#include <string_view>

namespace kelvor {

class ProgressSink;
class SettingsStore;
class TextCatalog;

// The log date format: the program's mask letters (nn = minutes). Cut_Logfile
// reads the stamps back with the same mask.
inline constexpr char kLogDateFormat[] = "dd.MM.yyyy hh:nn:ss";

// Appends one line "<stamp> - [ERROR: ]text\r\n" to a UTF-16LE file, creating
// it with its byte-order mark when missing. A file that cannot be opened drops
// the line silently (returns false).
bool AppendLogLine(const std::filesystem::path& file, std::string_view text, bool isError = false);

// Creates an empty file holding only the UTF-16LE byte-order mark, unless it
// exists (CreateEmptyFileWithUnicodeHeader).
bool CreateEmptyFileWithUnicodeHeader(const std::filesystem::path& file);

// Time stamp of now in the log date format.
std::string LogTimeStamp();

class Logger {
 public:
  Logger(std::filesystem::path generalLog, std::filesystem::path runLog,
         std::filesystem::path lastSearchLog);
  // A run log that never got a line (the fresh one SaveTmpLog leaves for a
  // next search that did not come) goes with the logger, so that leaving
  // the program leaves no empty files in the temporary folder.
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // LogProtokoll: a line in the run's log; with `show` also on the panel.
  void LogProtokoll(std::string_view text, bool isError = false, bool show = true);
  // LogProtokollMain: a line in the general log.
  void LogProtokollMain(std::string_view text);

  // SaveTmpLog: appends the run's log to the general log, replaces
  // lastsearch.txt by it and starts a fresh run log.
  bool SaveTmpLog(std::string* error = nullptr);

  void SetPanel(ProgressSink* panel) { panel_ = panel; }
  const std::filesystem::path& RunLog() const { return runLog_; }
  const std::filesystem::path& GeneralLog() const { return generalLog_; }
  const std::filesystem::path& LastSearchLog() const { return lastSearchLog_; }

 private:
  std::filesystem::path generalLog_, runLog_, lastSearchLog_;
  ProgressSink* panel_ = nullptr;
};

// Cut_Logfile: drops the entries of `file` older than `days`; continuation
// lines stay with their entry. Returns false with *error set on failure.
bool Cut_Logfile(double days, const std::filesystem::path& file, std::string* error);
// The same with the messages in the catalog's language; `now` (a day-fraction
// date) is the moment the ages are measured from.
bool Cut_Logfile(double days, const std::filesystem::path& file, std::string* error,
                 const TextCatalog& texts, double now);

// LogfileDEL: with "LogDel" of section "DupVerz" on, logs the notice into the
// general log and cuts it to the last "LogDelDays" days; a failure is logged.
void LogfileDEL(const SettingsStore& settings, Logger& logger, const TextCatalog& texts);

}  // namespace kelvor
