#pragma once
// Where Kelvor keeps its files. The data folder is chosen once at start-up:
// --data-dir, then KELVOR_DATA_DIR, then the folder of the binary when it runs
// as "KelvorPortable", else $XDG_DATA_HOME/Kelvor (~/.local/share/Kelvor).

#include <filesystem>
#include <string>

namespace kelvor {

struct AppPaths {
  std::filesystem::path appFolder;      // where the executable stands
  std::filesystem::path langFolder;     // appFolder/lang, or <prefix>/share/kelvor/lang
  std::filesystem::path helperFolder;   // appFolder/dep
  std::filesystem::path dataFolder;     // the application data folder
  std::filesystem::path settingsFile;   // dataFolder/config4.ini
  std::filesystem::path logFolder;      // dataFolder/log
  std::filesystem::path dataSubFolder;  // dataFolder/data (saved results)
  std::filesystem::path updateFolder;   // dataFolder/update
  std::filesystem::path tempFolder;     // dataFolder/temp
  std::filesystem::path profileFolder;  // dataFolder/profile
  std::filesystem::path exportFolder;   // dataFolder/export
  std::filesystem::path generalLog;     // logFolder/Kelvor4.txt
  std::filesystem::path lastSearchLog;  // logFolder/lastsearch.txt
  std::filesystem::path runLog;         // tempFolder/<tick count>.txt
  bool portable = false;
};

}  // namespace kelvor
