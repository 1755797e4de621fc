// Search_Start: one search from the source folders to the closing statistics.

#include "search/engine.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <utility>

#include "archive/archive_temp.h"
#include "archive/archive_types.h"
#include "data/file_system.h"
#include "frame/app_paths.h"
#include "frame/formats.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "search/cascade.h"

namespace kelvor {

namespace {

// Resident set size of the process in bytes, 0 when it cannot be read.
std::int64_t ResidentSetSize() {
  std::ifstream f("/proc/self/statm");
  long long pages = 0, resident = 0;
  if (!(f >> pages >> resident)) return 0;
  return resident * static_cast<std::int64_t>(::sysconf(_SC_PAGESIZE));
}

// Step texts in the order of the step list.
enum Step {
  kStepCount = 0,
  kStepCompareOnly,
  kStepCompare,
  kStepWithoutDups,
  kStepFormatSize,
  kStepSort,
  kStepLogWithoutDups,
  kStepDeleteTemp,
  kStepDeleteList,
  kStepRemoveGroups,
  kStepExpand,
  kStepColumns,
};

}  // namespace

SearchEngine::SearchEngine(SearchContext ctx) : ctx_(std::move(ctx)) {
  refresh_ = [this] {
    if (currentFolder_)
      ctx_.progress.SetLabel(Label::AktuellerOrdner, DisplayUtf8(*currentFolder_));
    if (archiveTemp_) stats_.FilesExtracted = archiveTemp_->FilesExtracted();
    Search_ShowProgress();
  };
}

SearchEngine::~SearchEngine() = default;

std::unique_ptr<LongOperation> SearchEngine::MakePacing(std::chrono::milliseconds interval) {
  auto op = std::make_unique<LongOperation>(ctx_.run, interval);
  op->SetPauseHook([this](bool paused) { ShowPause(paused); });
  op->SetPausePoll(std::chrono::milliseconds(100));
  // A loop starts with the panel just set: its first refresh comes one
  // interval later, not at its first step.
  op->Step(nullptr);
  return op;
}

std::string SourceFolder::FullPath(const FileRecord& r) const {
  std::string p = prefix;
  p += r.Path;
  // A member of an archive is reached through its archive's path.
  if (r.ArchiveType != 0) return p;
  p += '/';
  p += r.Name;
  if (!r.Extension.empty()) {
    p += '.';
    p += r.Extension;
  }
  return p;
}

std::string SearchEngine::FullPath(const FileRecord& r) const {
  return sources_[static_cast<std::size_t>(r.SourceNr - 1)].FullPath(r);
}

double SearchEngine::Now() const {
  return DateNow();
}

double SearchEngine::ElapsedNow() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - startClock_).count();
}

bool SearchEngine::BuildSourceArrays(const std::vector<SourceFolderRow>& rows) {
  sources_.clear();
  std::string missing;
  for (const auto& row : rows) {
    if (!row.checked) continue;
    std::string path = NormalizeSourcePath(row.path);
    FileIdentity folder;
    if (!xFolderIdentity(path, &folder)) {
      std::string msg = ctx_.texts.Get(txt::T3681, {path});
      if (!missing.empty()) missing += "\r\n";
      missing += msg;
      ctx_.log.LogProtokoll(msg, true);
      ctx_.progress.SetLabel(Label::StatusBar, msg);
      continue;
    }
    SourceFolder src;
    src.path = path;
    src.prefix = path == "/" ? "" : path;
    src.subfolders = row.subfolders;
    src.protect = row.protect;
    // A volume that reports 0 takes the folder's own index, so that it
    // differs from other such volumes.
    src.volumeSerial = folder.device != 0 ? folder.device : sources_.size();
    sources_.push_back(std::move(src));
  }
  if (sources_.empty()) {
    closingMessage_ = missing.empty() ? ctx_.texts.Get(txt::T3627) : missing;
    ctx_.prompt.Message(closingMessage_, MessageIcon::Exclamation);
    return false;
  }
  return true;
}

void SearchEngine::WriteLogHeader() {
  auto log = [&](const std::string& line) { ctx_.log.LogProtokoll(line); };
  log(std::string(50, '-'));
  log("Kelvor " KELVOR_VERSION);
  log(ctx_.texts.Get(txt::T3682, {opt_.Description}));
  for (std::size_t i = 0; i < sources_.size(); ++i)
    log(ctx_.texts.Get(txt::T5348, {std::to_string(i + 1), DisplayUtf8(sources_[i].path)}));
  log(ctx_.texts.Get(txt::T5173, {SourceCompareCaption(ctx_.texts, opt_.SourceCompareMethod)}));
  if (opt_.CriterionContent) {
    if (opt_.IgnoreMP3Tags) log(ctx_.texts.Get(txt::T5173, {ctx_.texts.Get(txt::T9217)}));
    if (opt_.IgnoreFlacMetadata) log(ctx_.texts.Get(txt::T5173, {ctx_.texts.Get(txt::T9218)}));
    if (opt_.IgnoreExif) log(ctx_.texts.Get(txt::T5173, {ctx_.texts.Get(txt::T9219)}));
  }
  if (opt_.DontCompareHardlinks) log(ctx_.texts.Get(txt::T5173, {ctx_.texts.Get(txt::T9220)}));
  if (opt_.ScanArchives) {
    for (const auto& line : ArchiveLogHeaderLines(opt_.ArchiveTypes, opt_.ArchiveSizeFilter,
                                                  opt_.ArchiveSizeLimit, ctx_.texts))
      log(line);
  }
  for (const auto& line : FilterLogHeaderLines(opt_.Filters, ctx_.texts)) log(line);
}

void SearchEngine::BuildSteps() {
  std::vector<int> steps;
  steps.push_back(kStepCount);
  if (opt_.ShowOnlyFilesWithoutDups) {
    steps.push_back(kStepCompareOnly);
    steps.push_back(kStepWithoutDups);
  } else {
    steps.push_back(kStepCompare);
  }
  steps.push_back(kStepFormatSize);
  steps.push_back(kStepSort);
  if (opt_.LogFilesWithNoDups) steps.push_back(kStepLogWithoutDups);
  if (opt_.ScanArchives) steps.push_back(kStepDeleteTemp);
  steps.push_back(kStepDeleteList);
  if (opt_.RemoveGroupsNotInAllSources) steps.push_back(kStepRemoveGroups);
  if (opt_.ExpandAllGroups) steps.push_back(kStepExpand);
  steps.push_back(kStepColumns);

  static constexpr const TextDef* kTexts[] = {&txt::T5178, &txt::T5179, &txt::T5180, &txt::T5181,
                                              &txt::T5182, &txt::T5183, &txt::T5184, &txt::T5322,
                                              &txt::T5347, &txt::T5354, &txt::T5355, &txt::T5356};
  steps_.assign(kStepColumns + 1, {});
  const std::string count = std::to_string(steps.size());
  for (std::size_t i = 0; i < steps.size(); ++i) {
    steps_[static_cast<std::size_t>(steps[i])] =
        ctx_.texts.Get(txt::T5177, {std::to_string(i + 1), count}) + " - " +
        ctx_.texts.Get(*kTexts[steps[i]]);
  }
}

void SearchEngine::ShowStep(int step) {
  if (step >= 0 && step < static_cast<int>(steps_.size()) &&
      !steps_[static_cast<std::size_t>(step)].empty())
    ctx_.progress.SetLabel(Label::Step, steps_[static_cast<std::size_t>(step)]);
}

void SearchEngine::Search_ShowProgress() {
  ProgressSink& p = ctx_.progress;
  long long elapsed = static_cast<long long>(ElapsedNow());
  std::string dauer = FormatElapsed(elapsed);
  p.SetLabel(Label::Dauer, dauer);
  int percent =
      static_cast<int>(std::lround(stats_.FilesChecked * 100.0 / (stats_.FilesTotal + 1.0)));
  if (percent != lastPercent_) {
    lastPercent_ = percent;
    p.ProgressBar(percent);
    p.SetLabel(Label::Title, std::to_string(percent) + "% - Kelvor");
  }
  std::string gesamt = FormatNumber(stats_.FilesChecked) + " / " + FormatNumber(stats_.FilesTotal);
  p.SetLabel(Label::Gesamt, gesamt);
  p.SetLabel(Label::GesamtArchive, std::to_string(stats_.ArchivesSearched) + " / " +
                                       std::to_string(stats_.ArchivesTotal));
  auto big = [](long long v) { return v > 999 ? FormatNumber(v) : std::to_string(v); };
  std::int64_t compares = 0;
  std::int32_t checksums = 0;
  if (cascade_ && cascade_->ComparatorCounts(&compares, &checksums)) {
    stats_.CompareCount = std::max(stats_.CompareCount, compares);
    stats_.ChecksumCount = checksums;
  }
  if (stats_.CompareCount > 0) p.SetLabel(Label::Vergleiche, big(stats_.CompareCount));
  if (stats_.ChecksumCount > 0)
    p.SetLabel(Label::ChecksumCreated, FormatNumber(stats_.ChecksumCount));
  if (stats_.FilesExcluded > 0) p.SetLabel(Label::FilterFiles, big(stats_.FilesExcluded));
  if (stats_.FoldersExcluded > 0) p.SetLabel(Label::FilterFolder, big(stats_.FoldersExcluded));

  double now = Now();
  std::int64_t rss = -1;
  if (opt_.LogStatistic && now >= lastStatisticTime_ + opt_.LogStatisticDays) {
    rss = ResidentSetSize();
    lastStatisticTime_ = now;
    // The panel's captions and values as it shows them now.
    const TextCatalog& t = ctx_.texts;
    ctx_.log.LogProtokoll(fmt::format(
        "{} {}, {} {}%, {} {}, {} {}, {} {}, {} {}, {} {}, {} {}, {} {}, {} {}, {} {}, {} {}",
        t.Get(txt::T9320), dauer, t.Get(txt::T9332), percent, t.Get(txt::T9310), gesamt,
        FormatNumber(stats_.DupCount), t.Get(txt::T9311), FormatNumber(stats_.GroupCount),
        t.Get(txt::T9322), big(stats_.CompareCount), t.Get(txt::T9313),
        FormatNumber(stats_.ChecksumCount), t.Get(txt::T9335),
        FormatNumber(stats_.ArchivesSearched), t.Get(txt::T9323),
        FormatNumber(stats_.FilesExtracted), t.Get(txt::T9336), big(stats_.FilesExcluded),
        t.Get(txt::T9326), big(stats_.FoldersExcluded), t.Get(txt::T9327), t.Get(txt::T9450),
        FormatNumber(rss)));
  }
  // The memory stop: a search this large that holds this much memory ends
  // with what it has found rather than failing.
  const std::int32_t limitFiles = opt_.UnicodeSupport ? 655000 : 1000000;
  if (stats_.FilesChecked > limitFiles) {
    if (rss < 0) rss = ResidentSetSize();
    if (rss > memoryLimit_) ctx_.run.RequestStop(kStopMemory);
  }
}

void SearchEngine::ShowPause(bool paused) {
  ctx_.progress.SetLabel(Label::StopButtonPause, ctx_.texts.Get(paused ? txt::T3692 : txt::T3693));
}

void SearchEngine::CancelSearch() {
  if (ctx_.prompt.AskYesNo(ctx_.texts.Get(txt::T4125))) ctx_.run.RequestStop(kStopUser);
}

void SearchEngine::cmdStop_Click(int index) {
  switch (index) {
    case 0:
      CancelSearch();
      break;
    case 1:
      ctx_.run.SearchState.store(ctx_.run.SearchState.load() == kPaused ? kRunning : kPaused);
      break;
    case 2:
      ctx_.run.SearchState.store(kStopBar2);
      break;
    default:
      break;
  }
}

bool SearchEngine::Search_Start(const std::vector<SourceFolderRow>& rows) {
  if (searchRunning_) return false;
  startClock_ = std::chrono::steady_clock::now();
  ctx_.run.SearchState.store(kRunning);
  ctx_.run.StopReason.store(kStopNone);
  stats_ = SearchStatistics{};
  cascade_.reset();
  pacing_.reset();
  closingMessage_.clear();
  if (!BuildSourceArrays(rows)) return false;

  searchRunning_ = true;
  ProgressSink& p = ctx_.progress;
  p.SetLabel(Label::Title, "Kelvor");
  p.SetLabel(Label::Dauer, "0:00:00");
  p.ProgressBar(0);
  for (Label l :
       {Label::Gesamt, Label::Dups, Label::Gruppen, Label::Vergleiche, Label::ChecksumCreated,
        Label::Archive, Label::FilesExtracted, Label::FilterFiles, Label::FilterFolder})
    p.SetLabel(l, "0");
  p.SetLabel(Label::Suchmethode, opt_.Description);
  WriteLogHeader();
  for (const auto& problem : opt_.FilterProblems)
    ctx_.log.LogProtokoll(problem.Text(ctx_.texts), true);
  if (opt_.Prio) ::setpriority(PRIO_PROCESS, 0, 10);
  BuildSteps();

  // Counting pass.
  ShowStep(kStepCount);
  ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T3683));
  sameVolume_ = true;
  for (std::size_t i = 1; i < sources_.size(); ++i)
    if (sources_[i].volumeSerial != sources_[i - 1].volumeSerial) sameVolume_ = false;
  std::int32_t folderCount = 0;
  const std::string total = std::to_string(sources_.size());
  for (std::size_t i = 0; i < sources_.size() && !Stopped(); ++i) {
    currentSubfolders_ = sources_[i].subfolders;
    currentSourceNr_ = static_cast<int>(i + 1);
    p.SetLabel(Label::SourceNr, ctx_.texts.Get(txt::T5177, {std::to_string(i + 1), total}) + " - " +
                                    DisplayUtf8(sources_[i].path));
    Search_GetSourceFolderFileCount(sources_[i], folderCount);
  }
  if (ctx_.run.SearchState.load() > 0 && ctx_.run.SearchState.load() != kStopBar2) {
    // A stop while counting leaves an empty result, never none or the last
    // run's.
    result_ = std::make_unique<ResultModel>(&ctx_.texts);
    EndOfSearch(true);
    return true;
  }

  // Compare pass.
  ShowStep(opt_.ShowOnlyFilesWithoutDups ? kStepCompareOnly : kStepCompare);
  for (Label l : {Label::Gesamt, Label::GesamtArchive, Label::SourceNr, Label::AktuellerOrdner})
    p.SetLabel(l, "-");
  std::string countLine = ctx_.texts.Get(txt::T3684, {FormatNumber(stats_.FilesTotal)});
  ctx_.log.LogProtokoll(countLine);
  p.SetLabel(Label::StatusBar, countLine);
  p.SetLabel(Label::StatusBar, "");

  result_ = std::make_unique<ResultModel>(&ctx_.texts);
  ResultOptions ro;
  ro.GroupTitleMode = opt_.GroupTitleMode;
  ro.DateFormat = opt_.DateFormat;
  ro.IgnoreTime = opt_.IgnoreTime;
  ro.IgnoreSeconds = opt_.IgnoreSeconds;
  ro.FileNameMethod = opt_.FileNameMethod;
  ro.FileNameChars = opt_.FileNameChars;
  ro.CriterionHardlink = opt_.CriterionHardlink;
  ro.GroupSize = opt_.GroupSize;
  ro.GroupDateA = opt_.GroupDateA;
  ro.GroupDateB = opt_.GroupDateB;
  ro.GroupAttributes = opt_.GroupAttributes;
  for (const auto& s : sources_) ro.SourceFolders.push_back(s.prefix);
  ro.Colors = opt_.Colors;
  result_->SetOptions(std::move(ro));
  result_->Report_Create_Root_Node();
  result_->SetDescription(opt_.Description);
  lastStatisticTime_ = Now();
  pacing_ = MakePacing(kCompareRefresh);
  currentFolder_ = nullptr;
  cascade_ = std::make_unique<Cascade>(CascadeContext{opt_, sources_, ctx_.texts, ctx_.log,
                                                      ctx_.progress, ctx_.run, stats_, *result_,
                                                      *pacing_, refresh_, sameVolume_, ctx_.paths});
  if (opt_.ScanArchives) {
    // Extracts go into a folder of this run: the setting's folder, else
    // KVtemp in the data folder's temp (the system's temp without one).
    std::filesystem::path root =
        !opt_.ArchiveTempFolder.empty()
            ? std::filesystem::path(opt_.ArchiveTempFolder)
            : (ctx_.paths ? ctx_.paths->tempFolder : std::filesystem::temp_directory_path()) /
                  "KVtemp";
    RemoveLeftoverRunFolders(root, ctx_.texts, ctx_.log);
    archiveTemp_ = std::make_unique<ArchiveTempFolder>(
        root / RunFolderName(std::chrono::steady_clock::now().time_since_epoch().count()),
        opt_.DeleteTempFilesAfterChecksum, ctx_.texts, ctx_.log, ctx_.run);
    archiveTempPath_ = archiveTemp_->Folder().string();
    cascade_->SetArchiveTempFiles(archiveTemp_.get());
  }

  for (std::size_t i = 0; i < sources_.size(); ++i) {
    currentSourceNr_ = static_cast<int>(i + 1);
    p.SetLabel(Label::SourceNr, ctx_.texts.Get(txt::T5177, {std::to_string(i + 1), total}) + " - " +
                                    DisplayUtf8(sources_[i].path));
    stats_.FilesExcludedSize = 0;
    const std::int32_t excludedBefore = stats_.FilesExcluded,
                       foldersBefore = stats_.FoldersExcluded;
    ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T3685, {DisplayUtf8(sources_[i].path)}));
    currentSubfolders_ = sources_[i].subfolders;
    if (stats_.FilesTotal > 0) Search_GetFiles(sources_[i]);
    if (stats_.FilesExcluded > excludedBefore)
      ctx_.log.LogProtokoll(
          ctx_.texts.Get(txt::T5133, {FormatNumber(stats_.FilesExcluded - excludedBefore),
                                      FormatFileSize(stats_.FilesExcludedSize, true, ctx_.texts)}));
    if (stats_.FoldersExcluded > foldersBefore)
      ctx_.log.LogProtokoll(
          ctx_.texts.Get(txt::T5134, {FormatNumber(stats_.FoldersExcluded - foldersBefore)}));
    if (Stopped()) break;
  }
  EndOfSearch(false);
  return true;
}

void SearchEngine::EndOfSearch(bool skippedCompare) {
  ProgressSink& p = ctx_.progress;
  const int reason = ctx_.run.StopReason.load();
  std::int64_t compares = 0;
  std::int32_t checksums = 0, prefixes = 0;
  if (cascade_ && cascade_->ComparatorCounts(&compares, &checksums, &prefixes)) {
    stats_.CompareCount = std::max(stats_.CompareCount, compares);
    stats_.ChecksumCount = checksums;
    stats_.PrefixCount = prefixes;
    stats_.CacheCount = cascade_->FinishChecksumCache();
  }
  elapsedSeconds_ = ElapsedNow();
  if (!skippedCompare) {
    for (Label l : {Label::SourceNr, Label::Gesamt, Label::GesamtArchive, Label::AktuellerOrdner,
                    Label::Zipdatei, Label::ZipProgress})
      p.SetLabel(l, "-");
    p.SetLabel(Label::Gruppen, FormatNumber(stats_.GroupCount));
    const std::string timeLine =
        ctx_.texts.Get(txt::T3686, {FormatElapsed(static_cast<long long>(elapsedSeconds_))});
    if (reason == kStopUser) ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T5073));
    if (reason == kStopMaxDups)
      ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T5227, {std::to_string(opt_.MaxDupCount)}));
    if (reason == kStopMemory) ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T5411));

    if (opt_.ShowOnlyFilesWithoutDups) {
      ShowStep(kStepWithoutDups);
      Search_ShowOnlyFilesWithoutDups();
      ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T3157, {FormatNumber(result_->DupCount())}));
    } else if (result_->RowCount() >= 2) {
      for (int s = 1; s <= static_cast<int>(sources_.size()); ++s) {
        if (result_->SourceDupCount(s) == 0) continue;
        ctx_.log.LogProtokoll(ctx_.texts.Get(
            txt::T4100, {FormatNumber(result_->SourceDupCount(s)),
                         DisplayUtf8(sources_[static_cast<std::size_t>(s - 1)].path),
                         FormatFileSize(result_->SourceDupSize(s), true, ctx_.texts)}));
      }
    }
    ShowStep(kStepFormatSize);
    result_->Report_ChangeFileSize(opt_.FormatSize, true);
    ShowStep(kStepSort);
    result_->SortRows();

    if (archiveTemp_) stats_.FilesExtracted = archiveTemp_->FilesExtracted();
    // The statistics end with the time line; a result of files without
    // duplicates has neither.
    if (!opt_.ShowOnlyFilesWithoutDups) {
      LogStatistics();
      ctx_.log.LogProtokoll(timeLine);
    }

    if (result_->RowCount() >= 2 && opt_.LogFilesWithNoDups) {
      ShowStep(kStepLogWithoutDups);
      std::string error;
      if (!Search_LogFilesWithoutDups(&error))
        ctx_.log.LogProtokoll(ctx_.texts.Get(txt::T5167, {error}), true);
    }
    if (opt_.ScanArchives) {
      ShowStep(kStepDeleteTemp);
      if (archiveTemp_) archiveTemp_->Search_DeleteTempFiles(cascade_->Files());
    }
    ShowStep(kStepDeleteList);
    cascade_.reset();
    if (archiveTemp_) archiveTemp_->RemoveFolderIfEmpty();
    pacing_.reset();
    currentFolder_ = nullptr;
    p.SetLabel(Label::StatusBar, "");

    if (opt_.RemoveGroupsNotInAllSources) {
      ShowStep(kStepRemoveGroups);
      result_->RemoveGroup_DupsNotExistAtAllSourcefolders(&ctx_.run);
    }
    if (opt_.ExpandAllGroups) {
      ShowStep(kStepExpand);
      result_->Group_ExpandAll(true);
    }
    ShowStep(kStepColumns);
    result_->ShowDupCount();
  }
  // A stop while counting comes straight here: no stop reason, no
  // statistics and no time line are logged for a run that compared nothing.
  searchRunning_ = false;
  if (opt_.Prio) ::setpriority(PRIO_PROCESS, 0, 0);
  p.SetLabel(Label::Title, "Kelvor");
}

void SearchEngine::LogStatistics() {
  auto& t = ctx_.texts;
  std::string checked = FormatNumber(stats_.FilesChecked);
  if (stats_.FilesChecked < stats_.FilesTotal) checked += " / " + FormatNumber(stats_.FilesTotal);
  ctx_.log.LogProtokoll(t.Get(txt::T4037, {checked}));
  if (result_->RowCount() < 2) {
    closingMessage_ = t.Get(
        txt::T3687, {FormatNumber(stats_.FoldersSearched), FormatNumber(stats_.FilesChecked)});
  } else {
    // Members are files of the search as much as the files on disk: the
    // share of duplicates is taken over both, so it stays within 100%.
    const double total = static_cast<double>(stats_.FilesTotal) + stats_.ArchiveFilesTotal;
    double percent =
        total > 0 ? std::trunc(std::round(result_->DupCount() / (total / 100.0) * 100.0) / 100.0)
                  : 0;
    closingMessage_ =
        t.Get(txt::T3688, {FormatNumber(result_->DupCount()), fmt::format("{}", percent),
                           FormatFileSize(result_->FilesizeAll(), true, t)});
    ctx_.log.LogProtokoll(t.Get(txt::T4038, {FormatNumber(result_->GroupCount())}));
  }
  if (stats_.ArchivesSearched > 0) {
    std::string v = FormatNumber(stats_.ArchivesSearched);
    if (stats_.ArchivesSearched < stats_.ArchivesTotal)
      v += " / " + FormatNumber(stats_.ArchivesTotal);
    ctx_.log.LogProtokoll(t.Get(txt::T4051, {v}));
  }
  if (stats_.ArchiveFilesChecked > 0) {
    std::string v = FormatNumber(stats_.ArchiveFilesChecked);
    if (stats_.ArchiveFilesChecked < stats_.ArchiveFilesTotal)
      v += " / " + FormatNumber(stats_.ArchiveFilesTotal);
    ctx_.log.LogProtokoll(t.Get(txt::T5358, {v}));
  }
  if (stats_.FilesExtracted > 0)
    ctx_.log.LogProtokoll(t.Get(txt::T5330, {FormatNumber(stats_.FilesExtracted)}));
  if (stats_.CompareCount > 0)
    ctx_.log.LogProtokoll(t.Get(txt::T5043, {FormatNumber(stats_.CompareCount)}));
  if (stats_.ChecksumCount > 0)
    ctx_.log.LogProtokoll(t.Get(txt::T5087, {FormatNumber(stats_.ChecksumCount)}));
  if (stats_.PrefixCount > 0)
    ctx_.log.LogProtokoll(t.Get(txt::T5088, {FormatNumber(stats_.PrefixCount)}));
  if (stats_.CacheCount > 0)
    ctx_.log.LogProtokoll(t.Get(txt::T5089, {FormatNumber(stats_.CacheCount)}));
  ctx_.progress.SetLabel(Label::StatusBar, "     " + closingMessage_);
  ctx_.log.LogProtokoll(closingMessage_);
}

}  // namespace kelvor
