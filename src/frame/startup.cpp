// Start-up of the application: folders, settings file, language, logs,
// outside programs and the instance lock.

#include "frame/startup.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>
#include <thread>

#include "frame/error_text.h"
#include "frame/formats.h"
#include "frame/ini_file.h"
#include "frame/log.h"
#include "frame/sinks.h"
#include "frame/text_file.h"

extern char** environ;

namespace kelvor {
namespace {

namespace fs = std::filesystem;

long long TickCountMs() {
  struct timespec ts {};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Makes a folder with its parents; on failure the box text of the form
// "Can't create <what> folder '<path>': <reason>".
bool MakeFolder(const fs::path& folder, std::string_view what, std::string* message) {
  std::error_code ec;
  if (fs::is_directory(folder, ec)) return true;
  fs::create_directories(folder, ec);
  if (!ec && fs::is_directory(folder)) return true;
  std::string reason = ec ? ErrorText(ec) : "not a folder";
  *message = "Can't create " + std::string(what) + " folder '" + folder.string() + "': " + reason;
  return false;
}

bool IsExecutableFile(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec) && ::access(p.c_str(), X_OK) == 0;
}

}  // namespace

// ---------------------------------------------------------------- environment

Environment Environment::FromProcess() {
  Environment env;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    const std::string_view entry(*e);
    const auto eq = entry.find('=');
    if (eq == std::string_view::npos) continue;
    env.vars.emplace(std::string(entry.substr(0, eq)), std::string(entry.substr(eq + 1)));
  }
  return env;
}

std::string Environment::Get(std::string_view name) const {
  auto it = vars.find(std::string(name));
  return it == vars.end() ? std::string() : it->second;
}

fs::path ExecutablePath(const char* argv0) {
  std::error_code ec;
  if (argv0 != nullptr && std::strchr(argv0, '/') != nullptr) return fs::absolute(argv0, ec);
  fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) return self;
  return fs::current_path(ec) / (argv0 != nullptr ? argv0 : "kelvor");
}

// ---------------------------------------------------------------- paths

AppPaths InitAppPaths(const fs::path& executable, const std::optional<fs::path>& dataDirOption,
                      const Environment& env) {
  AppPaths p;
  std::error_code ec;
  const fs::path invoked = fs::absolute(executable, ec).lexically_normal();
  fs::path real = fs::weakly_canonical(invoked, ec);
  if (ec) real = invoked;
  p.appFolder = real.parent_path();
  // Beside the program in a build folder or a portable copy; under
  // share/kelvor once installed into a prefix (bin/kelvor).
  p.langFolder = p.appFolder / "lang";
  const fs::path installedLang = p.appFolder.parent_path() / "share" / "kelvor" / "lang";
  if (!fs::is_directory(p.langFolder, ec) && p.appFolder.filename() == "bin" &&
      fs::is_directory(installedLang, ec))
    p.langFolder = installedLang;
  p.helperFolder = p.appFolder / "dep";
  p.portable = invoked.filename() == "KelvorPortable";

  const std::string envDir = env.Get("KELVOR_DATA_DIR");
  if (dataDirOption && !dataDirOption->empty()) {
    p.dataFolder = fs::absolute(*dataDirOption, ec).lexically_normal();
  } else if (!envDir.empty()) {
    p.dataFolder = fs::absolute(envDir, ec).lexically_normal();
  } else if (p.portable) {
    p.dataFolder = invoked.parent_path();
  } else {
    const std::string xdg = env.Get("XDG_DATA_HOME");
    if (!xdg.empty() && fs::path(xdg).is_absolute()) {
      p.dataFolder = fs::path(xdg) / "Kelvor";
    } else {
      std::string home = env.Get("HOME");
      if (home.empty()) home = "/tmp";
      p.dataFolder = fs::path(home) / ".local" / "share" / "Kelvor";
    }
  }
  // Strip a trailing separator so that every joined path reads cleanly.
  if (p.dataFolder.has_parent_path() && p.dataFolder.filename().empty()) {
    p.dataFolder = p.dataFolder.parent_path();
  }

  p.settingsFile = p.dataFolder / "config4.ini";
  p.logFolder = p.dataFolder / "log";
  p.dataSubFolder = p.dataFolder / "data";
  p.updateFolder = p.dataFolder / "update";
  p.tempFolder = p.dataFolder / "temp";
  p.profileFolder = p.dataFolder / "profile";
  p.exportFolder = p.dataFolder / "export";
  p.generalLog = p.logFolder / "Kelvor4.txt";
  p.lastSearchLog = p.logFolder / "lastsearch.txt";
  return p;
}

fs::path xGetTempFileNameFromTickCount(const fs::path& folder) {
  long long tick = TickCountMs();
  std::error_code ec;
  for (;;) {
    fs::path candidate = folder / (std::to_string(tick) + ".txt");
    if (!fs::exists(candidate, ec)) return candidate;
    ++tick;
  }
}

std::optional<fs::path> FindHelperProgram(std::string_view name, const AppPaths& paths,
                                          const Environment& env) {
  const fs::path bundled = paths.helperFolder / name;
  if (IsExecutableFile(bundled)) return bundled;
  const std::string path = env.Get("PATH");
  std::size_t pos = 0;
  while (pos <= path.size()) {
    std::size_t end = path.find(':', pos);
    if (end == std::string::npos) end = path.size();
    const std::string dir = path.substr(pos, end - pos);
    pos = end + 1;
    if (dir.empty()) continue;
    const fs::path candidate = fs::path(dir) / name;
    if (IsExecutableFile(candidate)) return candidate;
  }
  return std::nullopt;
}

// ---------------------------------------------------------------- instance lock

InstanceLock::~InstanceLock() {
  Release();
}

InstanceLock::InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_) {
  other.fd_ = -1;
}

InstanceLock& InstanceLock::operator=(InstanceLock&& other) noexcept {
  if (this != &other) {
    Release();
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

namespace {

// The lock file is only ever a plain file of Kelvor's; a FIFO or device put
// in its place is neither opened in a way that waits nor taken as a lock.
int OpenLockFile(const fs::path& file, int flags) {
  const int fd = ::open(file.c_str(), flags | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

bool InstanceLock::Acquire(const fs::path& dataFolder) {
  Release();
  const fs::path file = dataFolder / kInstanceLockName;
  const int fd = OpenLockFile(file, O_RDWR | O_CREAT);
  if (fd < 0) return false;
  while (::flock(fd, LOCK_SH) != 0) {
    if (errno != EINTR) {
      ::close(fd);
      return false;
    }
  }
  fd_ = fd;
  return true;
}

void InstanceLock::Release() {
  if (fd_ >= 0) {
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
    fd_ = -1;
  }
}

bool WaitForInstanceRelease(const fs::path& dataFolder, std::chrono::milliseconds timeout) {
  const fs::path file = dataFolder / kInstanceLockName;
  const int fd = OpenLockFile(file, O_RDONLY);
  if (fd < 0) return true;  // no lock file (or none of ours): no earlier instance
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  bool released = false;
  for (;;) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
      ::flock(fd, LOCK_UN);
      released = true;
      break;
    }
    if (std::chrono::steady_clock::now() >= deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ::close(fd);
  return released;
}

// ---------------------------------------------------------------- settings file

bool EnsureUnicodeSettingsFile(const fs::path& file, std::string* error) {
  std::error_code ec;
  if (!fs::exists(file, ec)) {
    if (CreateEmptyFileWithUnicodeHeader(file)) return true;
    if (error) *error = ErrorText(errno);
    return false;
  }
  // A FIFO, device or folder: left for the settings reader to report.
  if (ExistsButNotRegular(file)) return true;
  std::string bytes;
  if (!ReadWholeFile(file, &bytes, error)) return false;
  if (bytes.size() >= 2 && bytes.compare(0, 2, "\xFF\xFE") == 0) return true;
  TextEncoding found{};
  const std::string text = DecodeText(bytes, true, &found);
  // UTF-16 of an odd length was cut: converting it would make the damage
  // part of the text. Left for the settings reader to report, untouched.
  if (found == TextEncoding::Utf16be && bytes.size() % 2 != 0) return true;
  // Not a text file: leave it for the settings reader to report, untouched.
  if (ParseIni(text).binary) return true;
  return WriteFileAtomic(file, Utf16leWithBom(text), error);
}

// ---------------------------------------------------------------- Main

StartupResult RunStartup(const StartupOptions& options, const Environment& env, Prompt* prompt) {
  StartupResult r;
  r.startTime = DateNow();
  auto box = [&](std::string text) {
    if (prompt != nullptr) prompt->Message(text, MessageIcon::Exclamation);
    r.messages.push_back(std::move(text));
  };

  r.paths = InitAppPaths(options.executable, options.dataDirOption, env);
  const AppPaths& p = r.paths;

  // "-RESTART": wait until the instance that asked for it has ended.
  if (options.restart) WaitForInstanceRelease(p.dataFolder, options.restartWait);

  // The outside programs: the first one missing gets its box.
  r.sevenZip = FindHelperProgram("7z", p, env);
  if (!r.sevenZip) r.sevenZip = FindHelperProgram("7zz", p, env);
  r.fpcalc = FindHelperProgram("fpcalc", p, env);
  if (!r.sevenZip) {
    box("File '7z' not found!");
  } else if (!r.fpcalc) {
    box("File 'fpcalc' not found!");
  }

  std::string message;
  if (!MakeFolder(p.dataFolder, "app data", &message)) box(message);
  if (options.takeInstanceLock) r.lock.Acquire(p.dataFolder);

  std::string error;
  if (!EnsureUnicodeSettingsFile(p.settingsFile, &error)) {
    box("Can't create settings file '" + p.settingsFile.string() + "': " + error);
  }

  if (!MakeFolder(p.logFolder, "log", &message)) box(message);

  // Language: needs the settings ("Lang", "UseLangTxt" of "Allgemein").
  // A settings file that could not be read, wholly or in part, is said: the
  // start goes on with what could be read and the defaults.
  if (!EinstellungenLaden(r.settings, p.settingsFile, &error)) box(error);
  std::string langMessage;
  std::string locale;
  for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    locale = env.Get(var);
    if (!locale.empty()) break;
  }
  r.texts.Init_Sprache(r.settings, p.langFolder, &langMessage, locale);
  if (!langMessage.empty()) r.messages.push_back(langMessage);

  const std::pair<const fs::path*, const char*> folders[] = {
      {&p.dataSubFolder, "data"},    {&p.updateFolder, "update"}, {&p.tempFolder, "temp"},
      {&p.profileFolder, "profile"}, {&p.exportFolder, "export"},
  };
  for (const auto& [folder, what] : folders) {
    if (!MakeFolder(*folder, what, &message)) box(message);
  }

  if (!CreateEmptyFileWithUnicodeHeader(p.generalLog)) {
    box("Can't create log file '" + p.generalLog.string() + "': " + ErrorText(errno));
  }

  // The run's log: a new tick-count name, made with O_EXCL so that it is new
  // even when another instance picks the same tick. A name that was made but
  // cannot take the byte-order mark (a full disk) is removed again, said once,
  // and the run goes on without a log.
  for (int attempt = 0; attempt < 1000 && r.paths.runLog.empty(); ++attempt) {
    const fs::path candidate = xGetTempFileNameFromTickCount(p.tempFolder);
    const int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      box("Can't create log file '" + candidate.string() + "': " + ErrorText(errno));
      r.paths.runLog = candidate;  // logging to it fails quietly
      break;
    }
    ssize_t n;
    do {
      n = ::write(fd, "\xFF\xFE", 2);
    } while (n < 0 && errno == EINTR);
    int err = n == 2 ? 0 : n < 0 ? errno : ENOSPC;
    if (::close(fd) != 0 && err == 0) err = errno;
    if (err != 0) {
      ::unlink(candidate.c_str());
      box(r.texts.Get(txt::T9021, {candidate.string(), ErrorText(err)}));
    }
    r.paths.runLog = candidate;  // without its file, logging to it fails quietly
  }
  return r;
}

}  // namespace kelvor
