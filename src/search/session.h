#pragma once
// A search session: the whole road of one search, the same for every front
// end. The terminal and the window drive this one object:
//
//   SearchSession session(options, &prompt);  // start-up, log retention
//   const Preparation& p = session.Prepare(); // command line, source rows,
//                                             // profile, start check
//   if (p.verdict == SessionVerdict::Ready)
//     session.Run(progress, prompt, run);     // the search, the run's log
//   session.Result(), Stats(), ...            // what the run found
//
// Threads: the constructor and Prepare run on the caller's thread. Run may be
// called on another thread (a window's worker); while it runs, the caller
// touches nothing of the session and talks to the run only through the
// RunState (stop, pause) and the sinks it handed over (a ProgressSnapshot it
// polls, a Prompt that blocks the worker). Once Run has returned and the
// caller has joined that thread, the result and the statistics are the
// caller's to read or take over.

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/startup.h"
#include "results/result_file.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/source_folders.h"

namespace kelvor {

class Logger;

struct SessionOptions {
  std::filesystem::path executable;              // ExecutablePath(argv[0])
  std::optional<std::filesystem::path> dataDir;  // --data-dir
  std::vector<std::string> items;                // Kelvor's command-line items
  Environment env;                               // what start-up reads of the environment
  bool takeInstanceLock = true;
  std::chrono::milliseconds restartWait{10000};  // the wait of "-RESTART"
  // This run only, whatever the setting says: keep no checksums across runs
  // (--no-checksum-cache), or start from an empty cache (--clear-checksum-cache).
  bool noChecksumCache = false;
  bool clearChecksumCache = false;
};

enum class SessionVerdict {
  Ready,           // the start check passed: Run may follow
  BadCommandLine,  // items that are none of Kelvor's (Preparation::unknownItems)
  Rejected,        // the start check refused the setup (its text is in messages)
};

struct Preparation {
  SessionVerdict verdict = SessionVerdict::Rejected;
  std::vector<std::string> unknownItems;
  // What the user is to read, in order: a profile that could not be loaded,
  // then the start check's refusal.
  std::vector<std::string> messages;
};

struct RunOutcome {
  bool ran = false;            // false: no search ran (no usable source folder)
  bool stoppedByUser = false;  // the run ended on a stop of the user
  std::string logError;        // the run's log could not be kept (SaveTmpLog)
  // The automatic save at the end of the search (setting "SaveReport" of
  // section "DupVerz"); nullopt when none was due.
  std::optional<SaveOutcome> autoSave;
};

class SearchSession {
 public:
  // Start-up (data folder, settings, language, folders, the run's log, the
  // instance lock) and the retention of the general log. Start-up's boxes go
  // to `startupPrompt` (may be null) and stay in StartupMessages().
  SearchSession(SessionOptions options, Prompt* startupPrompt);
  ~SearchSession();
  SearchSession(const SearchSession&) = delete;
  SearchSession& operator=(const SearchSession&) = delete;

  // Caller's thread: the command-line items, the source rows without their
  // marks, the items' folders, a -p: profile, then the start check. The
  // command line is read once; later calls give the current preparation.
  const Preparation& Prepare();
  // Caller's thread, for a later search of the same session (a window's
  // next search): the start check over `rows` as the window's source list
  // holds them, with the settings as they stand now. The command line is
  // not read again.
  const Preparation& Prepare(std::vector<SourceFolderRow> rows);

  // The search over the prepared rows, then the run's log is closed
  // (SaveTmpLog). May run on a worker thread; `progress`, `prompt` and `run`
  // are called or read from that thread only and must outlive the call.
  // Runs once per preparation that said Ready; otherwise nothing runs. A new
  // run drops the result of the last one unless it was taken over.
  RunOutcome Run(ProgressSink& progress, Prompt& prompt, RunState& run);

  // After Run has returned. Result() is empty before, and after TakeResult.
  bool HasResult() const;
  const ResultModel& Result() const;
  std::unique_ptr<ResultModel> TakeResult();
  // The result for the commands that change it (marks, removals); null
  // without one.
  ResultModel* EditResult();
  const SearchStatistics& Stats() const;
  double ElapsedSeconds() const;
  // "Duplikate: ..." or "Es wurden ... keine Duplikate gefunden."; the
  // message of a search that could not start.
  const std::string& ClosingMessage() const;

  // ----- saved results (caller's thread, or the worker as Run)
  // The window's ResultFileName and ResultListChanged.
  ResultFileState& FileState() { return fileState_; }
  // Report_Save of the current result. A non-empty `name` becomes the
  // ResultFileName first (a later save writes there again without asking).
  SaveOutcome SaveResult(std::string_view name, bool askName, bool autoSave, ProgressSink& progress,
                         Prompt& prompt, RunState& run);
  // Searchresult_Load and Report_Laden: the saved result `name` replaces the
  // session's result. "" when loaded, else text 3938 with the reason (the
  // result is then empty). After a load the front end resets the undo
  // history of the result it showed (UNDO_reset): the loaded result starts
  // with none.
  std::string LoadResult(std::string_view name, ProgressSink& progress, Prompt& prompt,
                         RunState& run);
  // What a save writes into the .ini4a for `result`.
  SavedResultInfo InfoForSave(const ResultModel& result) const;

  // The session's frame, for the front end (caller's thread, not while Run
  // runs elsewhere).
  const AppPaths& Paths() const { return start_.paths; }
  SettingsStore& Settings() { return start_.settings; }
  const TextCatalog& Texts() const { return start_.texts; }
  const std::vector<std::string>& StartupMessages() const { return start_.messages; }
  const std::vector<SourceFolderRow>& Rows() const { return rows_; }

 private:
  SessionOptions options_;
  StartupResult start_;
  std::unique_ptr<Logger> logger_;
  std::optional<Preparation> preparation_;
  std::vector<SourceFolderRow> rows_;
  std::unique_ptr<SearchEngine> engine_;
  ResultModel emptyResult_;
  SearchStatistics emptyStats_;
  std::string noMessage_;
  const Preparation& StartCheck(Preparation& p);

  ResultFileEnv FileEnv(ProgressSink& progress, Prompt& prompt, RunState& run) const;
  ResultFileState fileState_;
  std::unique_ptr<ResultModel> loaded_;  // a loaded saved result
  std::optional<SavedResultInfo> loadedInfo_;

  bool runPending_ = false;  // a Ready preparation that has not run yet
  bool hasResult_ = false;
};

}  // namespace kelvor
