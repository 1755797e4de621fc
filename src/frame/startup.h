#pragma once
// Start-up: choosing the data folder, making the program's folders and files,
// choosing the language, checking for the outside programs, and the instance
// lock that "-RESTART" waits for.

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/app_paths.h"
#include "frame/settings_store.h"
#include "frame/texts.h"

namespace kelvor {

class Prompt;

// The environment variables start-up looks at, passed in so that tests never
// touch the real home folder or PATH.
struct Environment {
  std::map<std::string, std::string> vars;

  static Environment FromProcess();
  // Value of a variable, empty when unset.
  std::string Get(std::string_view name) const;
};

// The executable as it was started, for InitAppPaths: argv[0] when it holds a
// "/", else /proc/self/exe.
std::filesystem::path ExecutablePath(const char* argv0);

// Works out every path of AppPaths. The data folder: `dataDirOption`
// (--data-dir), then KELVOR_DATA_DIR, then portable mode (the program started
// under the name "KelvorPortable": data beside it), else $XDG_DATA_HOME/Kelvor
// or ~/.local/share/Kelvor. The application folder is the folder of the real
// binary (symbolic links resolved), where lang/ and dep/ stand. runLog stays
// empty until RunStartup names it.
AppPaths InitAppPaths(const std::filesystem::path& executable,
                      const std::optional<std::filesystem::path>& dataDirOption,
                      const Environment& env);

// xGetTempFileNameFromTickCount: "<folder>/<monotonic milliseconds>.txt", a
// name that does not exist yet (the number is raised until it is new).
std::filesystem::path xGetTempFileNameFromTickCount(const std::filesystem::path& folder);

// Finds an outside program: <appFolder>/dep/<name> first, then the folders of
// PATH. Only executable regular files count.
std::optional<std::filesystem::path> FindHelperProgram(std::string_view name, const AppPaths& paths,
                                                       const Environment& env);

// The instance lock: "Kelvor4.lock" in the data folder. Every running
// instance holds it shared, so that a second instance is not refused; a
// restart waits until it can take it exclusively, i.e. until the others ended.
class InstanceLock {
 public:
  InstanceLock() = default;
  ~InstanceLock();
  InstanceLock(InstanceLock&& other) noexcept;
  InstanceLock& operator=(InstanceLock&& other) noexcept;
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

  // Takes the lock shared; false when the lock file cannot be made.
  bool Acquire(const std::filesystem::path& dataFolder);
  void Release();
  bool Held() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

inline constexpr char kInstanceLockName[] = "Kelvor4.lock";

// The wait of "-RESTART": polls until no other instance holds the lock of
// `dataFolder`, or `timeout` has passed. True when released (or never held).
bool WaitForInstanceRelease(const std::filesystem::path& dataFolder,
                            std::chrono::milliseconds timeout);

struct StartupOptions {
  std::filesystem::path executable;                    // ExecutablePath(argv[0])
  std::optional<std::filesystem::path> dataDirOption;  // --data-dir
  bool restart = false;                                // "-RESTART" on the command line
  std::chrono::milliseconds restartWait{10000};
  bool takeInstanceLock = true;
};

struct StartupResult {
  double startTime = 0;  // day-fraction date of the start
  AppPaths paths;
  SettingsStore settings;  // config4.ini as read during start-up
  TextCatalog texts;       // the chosen language
  InstanceLock lock;
  // Every box shown (also given to the prompt, when there is one), in order.
  std::vector<std::string> messages;
  // The outside programs found: "7z" (or "7zz") and "fpcalc".
  std::optional<std::filesystem::path> sevenZip;
  std::optional<std::filesystem::path> fpcalc;
};

// Main's start-up, in order: start time; the restart wait; the paths; the
// helper check (first missing program: "File '<name>' not found!"); the data
// folder; config4.ini with its byte-order mark; the log folder; the language;
// the folders data, update, temp, profile and export; Kelvor4.txt; the run's
// log. A failure shows its English box and the start goes on. `prompt` may be
// null.
StartupResult RunStartup(const StartupOptions& options, const Environment& env, Prompt* prompt);

// Step "settings file": creates config4.ini holding only the UTF-16LE mark
// when missing; a file in another encoding (UTF-8, UTF-16BE, UTF-16LE without
// mark) is converted to UTF-16LE with mark, its text unchanged. A file that is
// no text is left as it is. False with *error when the file cannot be made.
bool EnsureUnicodeSettingsFile(const std::filesystem::path& file, std::string* error);

}  // namespace kelvor
