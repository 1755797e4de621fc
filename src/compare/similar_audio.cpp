// The similar-music step: the walk over the earlier files of the key, its
// gates, and the fingerprints it keeps.

#include "compare/similar_audio.h"

#include "data/file_record_collection.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/texts.h"
#include "frame/work_pool.h"

namespace kelvor {

namespace {
constexpr int kSourceAcross = 2;
constexpr int kSourceSamePath = 3;
}  // namespace

// Fingerprints made ahead on the pool, by full path. Only workers compute:
// the cascade runs the tool itself in Make, as without a pool. A fingerprint
// cut short by a stop is not kept.
class SimilarAudioComparator::ReadAhead {
 public:
  ReadAhead(WorkPool& pool, const AudioFingerprintOptions& options)
      : table_(pool,
               [options](const std::string& path, const bool&,
                         int worker) -> std::optional<AudioFingerprint> {
                 if (worker < 0) return std::nullopt;
                 AudioFingerprint fp = Search_CreateAudioHash(path, options);
                 if (options.run && options.run->StopRequested()) return std::nullopt;
                 return fp;
               }) {}

  void Add(const std::string& path) { table_.Ahead(path, true); }
  std::optional<AudioFingerprint> Take(const std::string& path) {
    return table_.TakeAhead(path, true);
  }

 private:
  AheadTable<std::string, bool, AudioFingerprint> table_;
};

SimilarAudioComparator::SimilarAudioComparator(const SimilarAudioOptions& options,
                                               CStringCollection2& files, FullPathOf fullPath,
                                               const TextCatalog& texts, Logger& log, RunState& run)
    : opt_(options),
      files_(files),
      fullPath_(std::move(fullPath)),
      texts_(texts),
      log_(log),
      run_(run) {
  opt_.fingerprint.run = &run_;
}

SimilarAudioComparator::~SimilarAudioComparator() = default;

void SimilarAudioComparator::Prefetch(const std::string& fullPath) {
  if (!pool_) return;
  if (!ahead_) ahead_ = std::make_unique<ReadAhead>(*pool_, opt_.fingerprint);
  ahead_->Add(fullPath);
}

void SimilarAudioComparator::BeginFile() {
  current_ = Entry{};
}

void SimilarAudioComparator::AcceptFingerprint(std::string fullPath, AudioFingerprint fingerprint) {
  ready_.insert_or_assign(std::move(fullPath), std::move(fingerprint));
}

SimilarAudioComparator::Entry& SimilarAudioComparator::EntryOf(std::int32_t node) {
  const auto i = static_cast<std::size_t>(node);
  if (i >= entries_.size()) entries_.resize(i + 1);
  return entries_[i];
}

void SimilarAudioComparator::Make(Entry& e, const std::string& path, int place) {
  e.made = true;
  AudioFingerprint fp;
  if (auto it = ready_.find(path); it != ready_.end()) {
    fp = std::move(it->second);
    ready_.erase(it);
  } else if (std::optional<AudioFingerprint> ahead = ahead_ ? ahead_->Take(path) : std::nullopt) {
    fp = std::move(*ahead);
  } else {
    fp = Search_CreateAudioHash(path, opt_.fingerprint);
  }
  if (run_.StopRequested()) {
    // A fingerprint cut short by the stop is no failure of the file.
    e.failed = true;
    return;
  }
  if (fp.Ok()) {
    e.words = std::move(fp.words);
    ++fingerprints_;
    return;
  }
  e.failed = true;
  if (fp.NoSound()) {
    log_.LogProtokoll(texts_.Get(txt::T5393, {path, std::to_string(opt_.fingerprint.seconds)}));
  } else {
    log_.LogProtokoll(texts_.Get(txt::T5029, {fp.error + " (" + std::to_string(place) + ")", path}),
                      true);
  }
}

void SimilarAudioComparator::BecameRepresentative(std::string_view key, const FileRecord& rec) {
  chains_[std::string(key)].push_back(rec.RecordNumber);
  // What was learnt about the file while it looked for a partner stays with
  // its record.
  if (current_.made) EntryOf(rec.RecordNumber) = std::move(current_);
  current_ = Entry{};
}

std::int32_t SimilarAudioComparator::SearchCollection(
    CascadeFile& file, CStringCollection2&, std::int32_t,
    const std::function<std::string(std::int32_t)>& /*pathOf*/) {
  auto chainIt = chains_.find(std::string(file.key));
  if (chainIt == chains_.end()) return kNoMatch;
  const std::vector<std::int32_t>& chain = chainIt->second;
  FileRecord& rec = file.rec;
  if (!(rec.GroupID == -1 || rec.IsReferenceFile)) return kNoMatch;

  for (std::size_t i = 0; i < chain.size(); ++i) {
    if (run_.StopRequested()) return kNoMatch;
    const std::int32_t node = chain[i];
    const std::int32_t gid = files_.GroupID(node);
    if (!(gid == -1 || (files_.IsReferenceFile(node) && !rec.IsReferenceFile))) continue;
    if (opt_.sourceCompareMethod == kSourceAcross && files_.SourceNr(node) == rec.SourceNr)
      continue;
    if (opt_.sourceCompareMethod == kSourceSamePath &&
        !(files_.SourceNr(node) != rec.SourceNr && files_.Path(node) == rec.Path))
      continue;
    if (opt_.sameExtension && files_.Extension(node) != rec.Extension) continue;

    int percent = 0;
    if (opt_.dontCompareHardlinks && rec.NumberOfLinks >= 2 && files_.NumberOfLinks(node) >= 2 &&
        files_.VolumeSerialNumber(node) == rec.VolumeSerialNumber &&
        files_.FileIndexHigh(node) == rec.FileIndexHigh &&
        files_.FileIndexLow(node) == rec.FileIndexLow) {
      // Two links of one file: the same sound without asking the tool.
      percent = 100;
    } else {
      if (!current_.made) {
        Make(current_, file.path, 8);
        if (current_.failed) {
          // The new file cannot be measured: it leaves the search.
          rec.HaveErrorMessage = true;
          return kFileFails;
        }
      }
      Entry& other = EntryOf(node);
      if (!other.made) {
        Make(other, fullPath_(files_.Record(node)), 7);
        if (other.failed && !run_.StopRequested()) files_.SetHaveErrorMessage(node, true);
      }
      if (other.failed || other.words.empty() || files_.HaveErrorMessage(node)) continue;
      ++compares_;
      percent = AudioMatchPercent(current_.words, other.words);
      if (percent < opt_.matchPercent) continue;
    }
    if (gid == -1 && rec.GroupID == -1) {
      files_.SetPercentMatch(node, 100);
      files_.SetIsReferenceFile(node, true);
    }
    rec.PercentMatch = static_cast<std::uint8_t>(percent);
    return node;
  }
  return kNoMatch;
}

}  // namespace kelvor
