#pragma once
// --action, --dry-run and --set Aktionen.KEY=VALUE of the headless front end:
// the file manager on the files marked in the result.

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/app_paths.h"

namespace kelvor {

class ProgressSink;
class ResultModel;
class SettingsStore;
class TextCatalog;
struct RunState;
struct SourceFolderRow;

// Exit codes of a run with --action.
inline constexpr int kActionDone = 0;        // every marked file was treated
inline constexpr int kActionRefused = 1;     // nothing marked, or no target folder
inline constexpr int kActionIncomplete = 2;  // some were skipped or failed
inline constexpr int kActionStopped = 3;

struct ActionRequest {
  // Keys of section "Aktionen" the action sets.
  std::vector<std::pair<std::string, std::string>> settings;
  // --set Aktionen.KEY=VALUE, in their order, after the action's own keys.
  std::vector<std::pair<std::string, std::string>> extra;
  bool dryRun = false;
};

// delete, trash, move:DIR, copy:DIR, rename[:MASK], hardlink, symlink.
bool ParseActionRequest(std::string_view value, ActionRequest* req, std::string* error);
// "Aktionen.KEY=VALUE" with a key the file manager reads.
bool ParseSetting(std::string_view value, std::pair<std::string, std::string>* kv,
                  std::string* error);

// The archive program that deletes members: "7z", else "7zz" (the helper
// folder first, then PATH).
std::optional<std::filesystem::path> FindSevenZip(const AppPaths& paths);

// Runs the file manager on `result` with the settings store's section
// "Aktionen" and the request on top; the action log goes to
// <data>/log/actions.txt, whose path is printed on `err` at the end.
// Members of zip and 7z archives are deleted with `sevenZip` when it is
// given.
int RunHeadlessAction(const ActionRequest& req, ResultModel& result, SettingsStore& settings,
                      const std::vector<SourceFolderRow>& sources, const AppPaths& paths,
                      const std::optional<std::filesystem::path>& sevenZip,
                      const TextCatalog& texts, ProgressSink& progress, RunState& run,
                      std::ostream& out, std::ostream& err,
                      const std::function<void()>& undoReset = {});

}  // namespace kelvor
