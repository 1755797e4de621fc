// The two passes over a source folder: the counting pass and the compare
// pass. Both are visitors of the walk (search/walk.h); the compare pass hands
// each file the filters let through to the cascade.

#include <string>

#include "frame/formats.h"
#include "frame/long_operation.h"
#include "frame/unicode.h"
#include "search/archive_types.h"
#include "search/cascade.h"
#include "search/engine.h"
#include "search/walk.h"

namespace kelvor {

bool SearchEngine::WantFolder(const DirStack& stack, const DirEntry& e, bool counting) {
  if (!currentSubfolders_) return false;
  if (e.isLink && !opt_.FollowJunctions) return false;
  std::string name(stack.Name(e));
  std::string path = stack.Top().path + "/" + name;
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
    e_.cascade_->CheckFile(e_.currentSourceNr_, folder, name, e.size, e.mtime, e.btime,
                           e.attributes, &e.identity);
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

void SearchEngine::Search_ScanArchive(const std::string& /*path*/, int /*type*/) {
  // Members of archives join the search through the archive scan; until it
  // is built an archive is only counted.
}

}  // namespace kelvor
