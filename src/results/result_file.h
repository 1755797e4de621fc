#pragma once
// Saved search results. One saved result is three files with one base name
// in the data folder's "data":
//
//   <name>.ksr4a   the rows: one branch record per group (result_branch.h)
//   <name>.ini4a   counters, source folders, criteria: UTF-16LE settings text
//   <name>.txt     a copy of the search's own log
//
// Report_Save writes the rows branch by branch into a temporary file, then
// the .ini4a and the .txt into temporary files of their own, and only when
// all three are complete moves them to their names: a full disk or a stop
// leaves the saved result of that name as it was. Every record carries a
// stamp of the counters, so rows and counters of two different saves are
// never loaded together.
//
// Report_Laden reads a copy of the rows (the saved file is never held open)
// into a new ResultModel. It refuses, with text 3938 and the reason, a file
// that is cut short, damaged, of another layout or of another .ini4a, and
// leaves no half tree behind. The caller owns what follows a load: the undo
// history of the old result must be reset (UNDO_reset) once the loaded model
// takes its place.
//
// The list operations (Init_SearchResults, Searchresult_*) are what the list
// of saved results in the setup window calls.
//
// All files are written through data/file_write.h.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "results/result_model.h"

namespace kelvor {

class Prompt;
class ProgressSink;
class TextCatalog;
struct RunState;

inline constexpr std::string_view kResultRowsExt = ".ksr4a";
inline constexpr std::string_view kResultIniExt = ".ini4a";
inline constexpr std::string_view kResultLogExt = ".txt";
inline constexpr std::string_view kResultVersion = "405";

// One source folder of a saved result.
struct SavedSource {
  std::string path;
  std::int32_t protectedFlag = 0;  // ContextA: 1 protected
  std::int32_t serial = 0;         // ContextS: volume serial (the device number)
};

// What the .ini4a holds besides the rows.
struct SavedResultInfo {
  std::int32_t GroupID = 0;
  bool writeContext = true;  // the source-folder keys are written
  std::vector<SavedSource> Context;
  bool ContextQserials = false;
  std::string Tag;                 // the description the grid held
  std::string SearchCriteria;      // one digit per criterion
  std::string SearchCriteriaDesc;  // the description computed at the save
  bool Unicode = false;
  // Read from a file (the writer takes them from the model).
  std::int32_t DupCount = 0;
  std::int32_t DupCountSelected = 0;
  std::int64_t FilesizeAll = 0;
  std::int64_t FilesizeSelected = 0;
  std::int64_t ListCount = 0;
};

// Where saved results live and what they talk to.
struct ResultFileEnv {
  std::filesystem::path dataFolder;  // <data folder>/data
  std::filesystem::path tempFolder;  // temporary files ("KVS...")
  std::filesystem::path searchLog;   // the current search's log (lastsearch.txt)
  const TextCatalog& texts;
  Prompt& prompt;
  ProgressSink& progress;
  RunState& run;
};

// The fields of the results window that saving and loading keep.
struct ResultFileState {
  std::string ResultFileName;      // "<name>.ksr4a"; empty: never saved
  bool ResultListChanged = false;  // the list of saved results is to be refreshed
};

enum class SaveVerdict {
  Saved,
  NothingToSave,  // fewer than 3 rows or no duplicate: nothing is asked or written
  Cancelled,      // the name question was answered with nothing
  Stopped,        // a stop during the rows; nothing changed on disk
  Failed,         // a write failed; the old saved result is whole (message says why)
};

struct SaveOutcome {
  SaveVerdict verdict = SaveVerdict::NothingToSave;
  std::string name;     // base name saved under
  std::string message;  // text 9612 with the reason, for Failed
};

// Report_Save. `info` gives the .ini4a's keys beyond the counters (which come
// from the model, with ListCount its group count).
SaveOutcome Report_Save(const ResultModel& model, const SavedResultInfo& info, bool askName,
                        bool autoSave, ResultFileState& state, const ResultFileEnv& env);

// The first "AutoSave000", "AutoSave001", ... whose .ksr4a is not in the
// folder (gaps are filled).
std::string AutoSaveName(const std::filesystem::path& dataFolder);

// A name the user may give a saved result: not empty, no "/", not "." or "..".
bool IsValidResultName(std::string_view name);

struct LoadOutcome {
  std::unique_ptr<ResultModel> model;  // null when refused or stopped
  SavedResultInfo info;
  bool stopped = false;
  std::string error;  // text 3938 with the reason
};

// Report_Laden: loads state.ResultFileName. `options` are the model options
// of the window (date format, colours); GroupTitleMode and the source
// folders come from the file. `sizeFormat` is applied after the load.
LoadOutcome Report_Laden(ResultFileState& state, ResultOptions options, std::int32_t sizeFormat,
                         const ResultFileEnv& env);

// Searchresult_Load's checks, in order: the .ksr4a exists, the .ini4a
// exists, its "v" is "405". "" when all hold, else text 3938 with the reason.
std::string Searchresult_Check(const std::filesystem::path& dataFolder, std::string_view name,
                               const TextCatalog& texts);

// Reads the .ini4a of a saved result with all checks. False with *error
// (the reason, without 3938).
bool ReadResultIni(const std::filesystem::path& iniFile, SavedResultInfo* info,
                   const TextCatalog& texts, std::string* error);

// One line of the list of saved results.
struct SavedResultLine {
  std::string name;
  std::int32_t DupCount = 0;
  std::string DupCountText;   // formatted as a number
  std::int64_t fileSize = 0;  // of the .ksr4a
  double fileDate = 0;        // change date of the .ksr4a
  std::string comment;        // SearchCriteriaDesc
};

// Init_SearchResults: every <name>.ksr4a of the folder that has its .ini4a,
// by name.
std::vector<SavedResultLine> Init_SearchResults(const std::filesystem::path& dataFolder,
                                                const TextCatalog& texts);

// Searchresult_Delete: asks text 3971; on yes deletes the .ksr4a and the
// .ini4a (the .txt stays). True when deleted.
bool Searchresult_Delete(const std::filesystem::path& dataFolder, std::string_view name,
                         Prompt& prompt, const TextCatalog& texts);

// Searchresult_Rename: asks text 3978 with the old name; moves the three
// files. A target that exists is never replaced: then nothing moves and
// *error says so. Returns the new name, nullopt when cancelled or refused.
std::optional<std::string> Searchresult_Rename(const std::filesystem::path& dataFolder,
                                               std::string_view name, Prompt& prompt,
                                               const TextCatalog& texts, std::string* error);

// The comment editor: writes the trimmed text to SearchCriteriaDesc of the
// .ini4a (the other keys stay as they are).
bool Searchresult_SetComment(const std::filesystem::path& dataFolder, std::string_view name,
                             std::string_view comment, std::string* error);

// Searchresult_open_log: the path of the result's .txt, nullopt when it is
// not there.
std::optional<std::filesystem::path> Searchresult_LogPath(const std::filesystem::path& dataFolder,
                                                          std::string_view name);

}  // namespace kelvor
