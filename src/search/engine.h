#pragma once
// The search engine: one search run from the source folders to the result.
//
// Search_Start counts the files, then walks every source folder once; each
// file that passes the filters goes at once through the comparison cascade
// (search/cascade.h), which keys it, looks the key up in the file record
// collection and, where the criteria ask, compares it with the candidates.
// Duplicates go into the result model. After the walk come the closing
// statistics and the end-of-search steps. The engine keeps these run steps;
// the walk (search/walk.h) and the cascade are its parts.
//
// The engine runs on one thread. It shows what it does through a
// ProgressSink, writes the run's log through the Logger, asks through the
// Prompt and paces every loop with a LongOperation (pause, stop, refresh).

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "data/file_record_collection.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "results/result_model.h"
#include "search/filters.h"
#include "search/options.h"
#include "search/source_folders.h"
#include "search/walk.h"

namespace kelvor {

class ArchiveTempFolder;
struct AppPaths;
class Cascade;
class LongOperation;
class Logger;
class TextCatalog;

// The run statistics of the search.
struct SearchStatistics {
  std::int32_t FilesTotal = 0;
  std::int32_t ArchivesTotal = 0;
  std::int32_t ArchiveFilesTotal = 0;
  std::int32_t FilesChecked = 0;
  std::int32_t FilesExcluded = 0;
  std::int64_t FilesExcludedSize = 0;
  std::int32_t FoldersSearched = 0;
  std::int32_t FoldersExcluded = 0;
  std::int32_t GroupCount = 0;
  std::int64_t CompareCount = 0;
  std::int32_t ChecksumCount = 0;
  std::int32_t PrefixCount = 0;  // digests of file beginnings made before checksums
  std::int32_t CacheCount = 0;   // checksums and prefix digests taken from the checksum cache
  std::int32_t ArchivesSearched = 0;
  std::int32_t ArchiveFilesChecked = 0;
  std::int32_t FilesExtracted = 0;
  std::int32_t DupCount = 0;
  std::int64_t DupSize = 0;
};

// One source folder of the run.
struct SourceFolder {
  std::string path;    // as shown ("/" for the root)
  std::string prefix;  // path to put before a record's Path ("" for the root)
  bool subfolders = true;
  bool protect = false;
  std::uint64_t volumeSerial = 0;

  // The full path of a record of this source.
  std::string FullPath(const FileRecord& r) const;
};

// Everything a run needs from outside: the options record, built by the
// caller with Init_Variablen, and the texts and sinks. The engine is given no
// settings store. All references outlive the engine.
struct SearchContext {
  SearchOptions options;
  const TextCatalog& texts;
  Logger& log;
  ProgressSink& progress;
  Prompt& prompt;
  RunState& run;
  // The application's folders. The checksum cache lives in the data folder:
  // without them a search keeps no checksums across runs.
  const AppPaths* paths = nullptr;
};

class SearchEngine {
 public:
  explicit SearchEngine(SearchContext ctx);
  ~SearchEngine();
  SearchEngine(const SearchEngine&) = delete;
  SearchEngine& operator=(const SearchEngine&) = delete;

  // Search_Start over the given source rows. Returns false when no search
  // ran (a search already running, or no usable source folder; the message
  // is in ClosingMessage()).
  bool Search_Start(const std::vector<SourceFolderRow>& rows);

  const SearchStatistics& Stats() const { return stats_; }
  ResultModel& Result() { return *result_; }
  std::unique_ptr<ResultModel> TakeResult() { return std::move(result_); }
  // The result's closing message ("Duplikate: ..." or "Es wurden ... keine
  // Duplikate gefunden.") or the message of a search that could not start.
  const std::string& ClosingMessage() const { return closingMessage_; }
  double ElapsedSeconds() const { return elapsedSeconds_; }

  // CancelSearch: asks (text 4125); on Yes requests the stop (reason 5).
  void CancelSearch();
  // cmdStop_Click(index): 0 cancel, 1 pause/resume, 2 state 4.
  void cmdStop_Click(int index);

 private:
  class CountingWalk;
  class CompareWalk;

  // Search_Start steps.
  bool BuildSourceArrays(const std::vector<SourceFolderRow>& rows);
  void WriteLogHeader();
  void BuildSteps();
  void ShowStep(int textIndex);
  void LogStatistics();
  void EndOfSearch(bool skippedCompare);

  // The walks.
  bool WantFolder(const DirStack& stack, const DirEntry& e, bool counting);
  void Search_ScanArchive(const std::string& path, int type);
  double ElapsedNow() const;
  void Search_GetSourceFolderFileCount(const SourceFolder& src, std::int32_t& folderCount);
  void Search_GetFiles(const SourceFolder& src);

  std::string FullPath(const FileRecord& r) const;

  // Pacing: a loop's LongOperation with the pause button's captions. The
  // compare pass refreshes once a second, the counting pass and the lists of
  // files without duplicates every second and a half.
  static constexpr std::chrono::milliseconds kCompareRefresh{1000};
  static constexpr std::chrono::milliseconds kCountRefresh{1500};
  std::unique_ptr<LongOperation> MakePacing(std::chrono::milliseconds interval);
  void Search_ShowProgress();
  void ShowPause(bool paused);
  bool Stopped() const { return ctx_.run.StopRequested(); }
  double Now() const;

  // Files without duplicates.
  void Search_ShowOnlyFilesWithoutDups();
  bool Search_LogFilesWithoutDups(std::string* error);

  SearchContext ctx_;
  // The run's options record, as given (the filters keep per-call buffers,
  // so the engine's own copy serves its one thread).
  const SearchOptions& opt_ = ctx_.options;
  SearchStatistics stats_;
  std::vector<SourceFolder> sources_;
  int currentSourceNr_ = 0;  // 1-based
  bool currentSubfolders_ = true;
  bool sameVolume_ = true;
  bool searchRunning_ = false;

  std::unique_ptr<ResultModel> result_;

  std::vector<std::string> steps_;
  double lastStatisticTime_ = 0;
  std::chrono::steady_clock::time_point startClock_;
  double elapsedSeconds_ = 0;
  int lastPercent_ = -1;
  std::string closingMessage_;
  std::string pathBuf_;                    // reused for every file's full path
  std::int64_t memoryLimit_ = 1650000000;  // resident bytes that end a very large search
  // The compare pass: its pacing, the refresh it runs once a second (showing
  // the folder the walk stands in), and the cascade.
  std::unique_ptr<LongOperation> pacing_;
  std::function<void()> refresh_;
  const std::string* currentFolder_ = nullptr;
  std::unique_ptr<Cascade> cascade_;
  // Extracts of archive members, and the folder that holds them (skipped by
  // the walk should it lie inside a source).
  std::unique_ptr<ArchiveTempFolder> archiveTemp_;
  std::string archiveTempPath_;
};

}  // namespace kelvor
