// The two passes over a source folder: the counting pass and the compare
// pass. Both are visitors of the walk (search/walk.h); the compare pass hands
// each file the filters let through to the cascade.

#include <string>

#include "archive/archive_scan.h"
#include "archive/archive_types.h"
#include "frame/formats.h"
#include "frame/long_operation.h"
#include "frame/unicode.h"
#include "search/cascade.h"
#include "search/engine.h"
#include "search/walk.h"

namespace kelvor {

bool SearchEngine::WantFolder(const DirStack& stack, const DirEntry& e, bool counting) {
  if (!currentSubfolders_) return false;
  if (e.isLink && !opt_.FollowJunctions) return false;
  std::string name(stack.Name(e));
  std::string path = stack.Top().path + "/" + name;
  // The folder of this run's archive extracts is never searched.
  if (!archiveTempPath_.empty() && path == archiveTempPath_) return false;
  if (opt_.Filters.Search_CheckFolderFilter(name, path)) {
    if (!counting) ++stats_.FoldersExcluded;
    return false;
  }
  return true;
}

// The counting pass: files, archives and folders of a source.
class SearchEngine::CountingWalk final : public WalkVisitor {
 public:
  CountingWalk(SearchEngine& engine, std::int32_t& folderCount)
      : e_(engine), folderCount_(folderCount), pacing_(engine.MakePacing(kCountRefresh)) {
    refresh_ = [this] {
      ProgressSink& p = e_.ctx_.progress;
      p.SetLabel(Label::Dauer, FormatElapsed(static_cast<long long>(e_.ElapsedNow())));
      p.SetLabel(Label::Gesamt, FormatNumber(e_.stats_.FilesTotal));
      p.SetLabel(Label::GesamtArchive, std::to_string(e_.stats_.ArchivesTotal));
      p.SetLabel(Label::AktuellerOrdner, DisplayUtf8(*folder_));
    };
  }
  bool Step(const DirStack& stack) override {
    folder_ = &stack.Top().path;
    return pacing_->Step(refresh_);
  }
  bool WantFolder(const DirStack& stack, const DirEntry& e) override {
    return e_.WantFolder(stack, e, true);
  }
  void FolderEntered(DirStack&) override { ++folderCount_; }
  bool FileFound(DirStack& stack, DirEntry& e) override {
    ++e_.stats_.FilesTotal;
    if (e_.opt_.ScanArchives && !e_.opt_.CriterionHardlink &&
        ArchiveTypeOf(stack.Name(e), e_.opt_.ArchiveTypes) > 0)
      ++e_.stats_.ArchivesTotal;
    return true;
  }

 private:
  SearchEngine& e_;
  std::int32_t& folderCount_;
  std::unique_ptr<LongOperation> pacing_;
  std::function<void()> refresh_;
  const std::string* folder_ = nullptr;
};

void SearchEngine::Search_GetSourceFolderFileCount(const SourceFolder& src,
                                                   std::int32_t& folderCount) {
  if (Stopped()) return;
  CountingWalk walk(*this, folderCount);
  WalkMode mode;
  mode.trustFileType = true;
  WalkTree(src.prefix, walk, mode);
}

// The compare pass: every file the filters let through goes into the cascade.
class SearchEngine::CompareWalk final : public WalkVisitor {
 public:
  explicit CompareWalk(SearchEngine& engine) : e_(engine) {}
  bool Step(const DirStack& stack) override {
    e_.currentFolder_ = &stack.Top().path;
    return e_.pacing_->Step(e_.refresh_);
  }
  bool WantFolder(const DirStack& stack, const DirEntry& e) override {
    return e_.WantFolder(stack, e, false);
  }
  void FolderEntered(DirStack& stack) override {
    ++e_.stats_.FoldersSearched;
    // The folder's files are stat'ed already: the comparator can start
    // reading files ahead of the cascade.
    if (e_.cascade_->ReadsAhead())
      e_.cascade_->PredictComparisons(stack.Top(), e_.currentSourceNr_, e_.opt_.Filters);
  }
  bool FileFound(DirStack& stack, DirEntry& e) override;

 private:
  SearchEngine& e_;
};

bool SearchEngine::CompareWalk::FileFound(DirStack& stack, DirEntry& e) {
  SearchStatistics& stats = e_.stats_;
  const SearchOptions& opt = e_.opt_;
  const std::string& folder = stack.Top().path;
  ++stats.FilesChecked;
  std::string_view name = stack.Name(e);
  std::string& path = e_.pathBuf_;
  path.assign(folder).append("/").append(name);
  bool excludedByFilter =
      e_.opt_.Filters.Search_CheckFileFilter(static_cast<std::uint64_t>(e.size), name, path);
  bool excluded = excludedByFilter;
  if (!excluded && (opt.CriterionSimilarPics || opt.CriterionSimilarAudio)) {
    std::string ext = "/" + LowerCase(ExtensionOf(name)) + "/";
    const char* list = opt.CriterionSimilarPics ? kSimilarPicsExtensions : kSimilarAudioExtensions;
    excluded = std::string_view(list).find(ext) == std::string_view::npos || ext == "//";
  }
  if (excluded) {
    ++stats.FilesExcluded;
    stats.FilesExcludedSize += e.size;
  } else {
    e_.cascade_->FileReached(stack.Top(), e_.opt_.Filters);
    e_.cascade_->CheckFile(e_.currentSourceNr_, folder, name, e.size, e.mtime, e.btime,
                           e.attributes, &e.identity, e.mtimeNs, e.ctimeNs);
    if (e_.result_->DupCount() >= opt.MaxDupCount && !e_.Stopped())
      e_.ctx_.run.RequestStop(kStopMaxDups);
  }
  if (e_.Stopped()) return false;
  if (!excludedByFilter && opt.ScanArchives && !opt.CriterionHardlink) {
    int type = ArchiveTypeOf(name, opt.ArchiveTypes);
    if (type > 0) {
      ++stats.ArchivesSearched;
      e_.ctx_.progress.SetLabel(Label::Archive, FormatNumber(stats.ArchivesSearched));
      e_.Search_ScanArchive(path, type);
      if (e_.Stopped()) return false;
    }
  }
  return true;
}

void SearchEngine::Search_GetFiles(const SourceFolder& src) {
  if (Stopped()) return;
  CompareWalk walk(*this);
  WalkMode mode;
  mode.statOnEntry = true;
  WalkTree(src.prefix, walk, mode);
}

// The members of an archive join the cascade like files of the folder the
// archive stands in.
void SearchEngine::Search_ScanArchive(const std::string& path, int type) {
  MemberRules rules;
  rules.readsContent =
      opt_.CriterionContent || opt_.CriterionSimilarPics || opt_.CriterionSimilarAudio;
  rules.sizeFilter = opt_.ArchiveSizeFilter;
  rules.sizeLimit = opt_.ArchiveSizeLimit;
  if (opt_.CriterionSimilarPics)
    rules.onlyExtensions = kSimilarPicsExtensions;
  else if (opt_.CriterionSimilarAudio)
    rules.onlyExtensions = kSimilarAudioExtensions;
  rules.logEncrypted = opt_.LogPasswordProtected;
  rules.unstatedCap = opt_.ArchiveUnstatedSizeCap;

  ProgressSink& p = ctx_.progress;
  p.SetLabel(Label::Zipdatei, DisplayUtf8(path));
  std::int64_t seen = 0;
  const std::function<void()> refresh = [&] {
    refresh_();
    p.SetLabel(Label::ZipProgress, FormatNumber(seen));
  };
  const std::uint8_t recordType = RecordArchiveType(type);
  const int sourceNr = currentSourceNr_;
  ArchiveScanHooks hooks;
  hooks.step = [&](std::int64_t n) {
    seen = n;
    return pacing_->Step(refresh);
  };
  hooks.leftOut = [&](std::int64_t size, std::string_view name, std::string_view memberPath) {
    return opt_.Filters.Search_CheckFileFilter(static_cast<std::uint64_t>(size), name, memberPath);
  };
  hooks.take = [&](std::string_view folder, std::string_view name, const ArchiveMember& m) {
    cascade_->CheckMember(sourceNr, path, folder, name, m.size, m.dateChanged, m.dateCreated,
                          m.attributes, recordType);
    if (result_->DupCount() >= opt_.MaxDupCount && !Stopped()) ctx_.run.RequestStop(kStopMaxDups);
    return !Stopped();
  };
  ArchiveScanCounts counts;
  kelvor::Search_ScanArchive(path, type, rules, hooks, ctx_.texts, ctx_.log, counts);
  // The counting pass opens no archive, so the members found become part of
  // the total as each archive is listed; a stopped listing adds what it saw.
  stats_.ArchiveFilesTotal += counts.membersChecked;
  stats_.ArchiveFilesChecked += counts.membersChecked;
  stats_.FilesExcluded += counts.membersExcluded;
  stats_.FilesExcludedSize += counts.excludedSize;
  p.SetLabel(Label::Zipdatei, "-");
  p.SetLabel(Label::ZipProgress, "-");
}

}  // namespace kelvor
