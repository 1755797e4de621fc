#include "compare/similar_pictures.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "compare/picture_decoder.h"
#include "data/file_record_collection.h"
#include "data/file_system.h"
#include "frame/formats.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "frame/work_pool.h"

namespace kelvor {

namespace {

// Where a size or hash could not be read, as the log line tells it: the gate
// that first needed it, odd for the representative and even for the new
// file; 7 is a representative's hash, 0 the new file's hash.
enum Place : int {
  kFormatCandidate = 1,
  kFormatNew = 2,
  kDimensionCandidate = 3,
  kDimensionNew = 4,
  kRatioCandidate = 5,
  kRatioNew = 6,
  kHashCandidate = 7,
  kHashNew = 0,
};

// The place of a size reading: the first gate on that needs it.
int DimensionPlace(const SimilarPictureOptions& o, bool isNew) {
  if (o.sameFormat) return isNew ? kFormatNew : kFormatCandidate;
  if (o.sameDimension) return isNew ? kDimensionNew : kDimensionCandidate;
  return isNew ? kRatioNew : kRatioCandidate;
}

// Bits that differ between form 0 of the new file and a representative's form.
int Distance(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
  return GetHammingDistanceFromArray(a, b);
}

}  // namespace

PictureProbe ProbePicture(const std::string& path, const PictureHashRequest& request) {
  PictureProbe p;
  std::unique_ptr<PictureDecoder> decoder = MakePictureDecoder();
  // The decode reports the size from the header on the way; only a picture
  // that fails to decode, or a reader that gives no size, is asked for its
  // header alone, to tell a bad header from bad pixels.
  int w = -1, h = -1;
  p.hashed = CreatePictureHashes(*decoder, path, request.algo, request.side, request.formMask | 1u,
                                 &p.hashes, &p.hashError, &w, &h);
  if (!p.hashed && p.hashError.empty()) p.hashError = "LoadThumbnail: unreadable picture";
  if (!p.hashed || w <= 0 || h <= 0) {
    std::string error;
    if (!decoder->GetPictureDimension(path, &w, &h, &error)) {
      p.dimensionError = error.empty() ? "GetPictureDimension: unreadable picture" : error;
      p.hashed = false;
      p.hashes = {};
      if (p.hashError.empty()) p.hashError = p.dimensionError;
      return p;
    }
  }
  p.dimensionsRead = true;
  p.width = w;
  p.height = h;
  p.format = PicFormatOf(w, h);
  p.ratio = PicRatioOf(w, h);
  return p;
}

// Probes made ahead on the pool, by full path. Only workers compute: the
// cascade's own reading stays in Probe, as without a pool.
class SimilarPicturesComparator::ReadAhead {
 public:
  ReadAhead(WorkPool& pool, const PictureHashRequest& request)
      : table_(
            pool,
            [request, faults = FileSystemFaults::Current()](
                const std::string& path, const bool&, int worker) -> std::optional<PictureProbe> {
              if (worker < 0) return std::nullopt;
              // Workers read for the thread that made the table.
              FileSystemFaults::Scope scope(faults);
              return ProbePicture(path, request);
            }) {}

  void Add(const std::string& path) { table_.Ahead(path, true); }
  std::optional<PictureProbe> Take(const std::string& path) { return table_.TakeAhead(path, true); }

 private:
  AheadTable<std::string, bool, PictureProbe> table_;
};

SimilarPicturesComparator::SimilarPicturesComparator(const SimilarPictureOptions& options,
                                                     const TextCatalog& texts, Logger& log,
                                                     ProgressSink& progress, LongOperation& pacing,
                                                     std::function<void()> refresh)
    : opt_(options),
      texts_(texts),
      log_(log),
      progress_(progress),
      pacing_(pacing),
      refresh_(std::move(refresh)) {
  opt_.forms &= 0xFEu;  // form 0 is always compared
  request_.algo = opt_.algo;
  request_.side = opt_.side;
  request_.formMask = 1u | opt_.forms;
  hashLength_ = PicHashLength(opt_.algo, opt_.side);
}

SimilarPicturesComparator::~SimilarPicturesComparator() = default;

void SimilarPicturesComparator::Prefetch(const std::string& path) {
  if (!pool_) return;
  if (!ahead_) ahead_ = std::make_unique<ReadAhead>(*pool_, request_);
  ahead_->Add(path);
}

void SimilarPicturesComparator::BeginFile() {
  newProbe_ = PictureProbe{};
  newProbed_ = false;
}

void SimilarPicturesComparator::TakeProbe(const std::string& path, PictureProbe probe) {
  ready_.insert_or_assign(path, std::move(probe));
}

PictureProbe SimilarPicturesComparator::Probe(const std::string& path) {
  if (auto it = ready_.find(path); it != ready_.end()) {
    PictureProbe p = std::move(it->second);
    ready_.erase(it);
    return p;
  }
  if (ahead_) {
    if (std::optional<PictureProbe> p = ahead_->Take(path)) return std::move(*p);
  }
  return ProbePicture(path, request_);
}

void SimilarPicturesComparator::CountHash() {
  ++hashesMade_;
  progress_.SetLabel(Label::ChecksumCreated, FormatNumber(hashesMade_));
}

void SimilarPicturesComparator::LogFailure(const std::string& error, int place,
                                           const std::string& path) {
  std::string what = error;
  if (place != kHashNew) what += " (" + std::to_string(place) + ")";
  log_.LogProtokoll(texts_.Get(txt::T5029, {what, path}), true);
}

bool SimilarPicturesComparator::NewDimensions(CascadeFile& file, int place) {
  FileRecord& rec = file.rec;
  if (rec.PicWidth != -1) return true;
  if (!newProbed_) {
    newProbe_ = Probe(file.path);
    newProbed_ = true;
  }
  if (!newProbe_.dimensionsRead) {
    rec.HaveErrorMessage = true;
    LogFailure(newProbe_.dimensionError, place, file.path);
    return false;
  }
  rec.PicWidth = newProbe_.width;
  rec.PicHeight = newProbe_.height;
  rec.PicFormat = newProbe_.format;
  rec.PicRatio = newProbe_.ratio;
  return true;
}

bool SimilarPicturesComparator::NewHash(CascadeFile& file) {
  FileRecord& rec = file.rec;
  if (rec.HashCreated[0]) return true;
  if (!newProbed_) {
    newProbe_ = Probe(file.path);
    newProbed_ = true;
    if (newProbe_.dimensionsRead && rec.PicWidth == -1) {
      rec.PicWidth = newProbe_.width;
      rec.PicHeight = newProbe_.height;
      rec.PicFormat = newProbe_.format;
      rec.PicRatio = newProbe_.ratio;
    }
  }
  if (!newProbe_.hashed) {
    rec.HaveErrorMessage = true;
    LogFailure(newProbe_.hashError, kHashNew, file.path);
    return false;
  }
  // Every form the probe made goes onto the record: once the file is a
  // representative, later files are measured against them.
  for (int k = 0; k < kPicFormCount; ++k) {
    if ((request_.formMask & (1u << k)) == 0) continue;
    rec.HashArray[k] = std::move(newProbe_.hashes[k]);
    rec.HashCreated[k] = true;
  }
  CountHash();
  return true;
}

void SimilarPicturesComparator::StoreInCollection(CStringCollection2& files, std::int32_t pos,
                                                  PictureProbe& probe) {
  if (probe.dimensionsRead && files.PicWidth(pos) == -1) {
    files.SetPicWidth(pos, probe.width);
    files.SetPicHeight(pos, probe.height);
    files.SetPicFormat(pos, probe.format);
    files.SetPicRatio(pos, probe.ratio);
  }
  if (probe.hashed && !files.HashCreated(pos, 0)) {
    for (int k = 0; k < kPicFormCount; ++k) {
      if ((request_.formMask & (1u << k)) == 0) continue;
      files.SetHashArray(pos, k, std::move(probe.hashes[k]));
      files.SetHashCreated(pos, k, true);
    }
    CountHash();
  } else if (probe.dimensionsRead && !probe.hashed) {
    hashErrors_[pos] = probe.hashError;
  }
}

bool SimilarPicturesComparator::CandidateDimensions(
    CStringCollection2& files, std::int32_t pos,
    const std::function<std::string(std::int32_t)>& pathOf, int place) {
  if (files.PicWidth(pos) != -1) return true;
  const std::string path = pathOf(pos);
  PictureProbe probe = Probe(path);
  if (!probe.dimensionsRead) {
    files.SetHaveErrorMessage(pos, true);
    LogFailure(probe.dimensionError, place, path);
    return false;
  }
  StoreInCollection(files, pos, probe);
  return true;
}

bool SimilarPicturesComparator::CandidateHash(
    CStringCollection2& files, std::int32_t pos,
    const std::function<std::string(std::int32_t)>& pathOf) {
  if (files.HashCreated(pos, 0)) return true;
  const std::string path = pathOf(pos);
  std::string error;
  if (auto it = hashErrors_.find(pos); it != hashErrors_.end()) {
    error = std::move(it->second);
    hashErrors_.erase(it);
  } else {
    PictureProbe probe = Probe(path);
    StoreInCollection(files, pos, probe);
    if (probe.hashed) return true;
    hashErrors_.erase(pos);
    error = probe.hashError;
  }
  files.SetHaveErrorMessage(pos, true);
  LogFailure(error, kHashCandidate, path);
  return false;
}

void SimilarPicturesComparator::BecameRepresentative(std::string_view /*key*/,
                                                     const FileRecord& rec) {
  // A size read without a hash: the hash's error waits for the first file
  // that needs it.
  if (newProbed_ && newProbe_.dimensionsRead && !newProbe_.hashed && !rec.HashCreated[0])
    hashErrors_[rec.RecordNumber] = newProbe_.hashError;
}

std::int32_t SimilarPicturesComparator::SearchCollection(
    CascadeFile& file, CStringCollection2& files, std::int32_t startPosition,
    const std::function<std::string(std::int32_t)>& pathOf) {
  FileRecord& rec = file.rec;
  if (!(rec.GroupID == -1 || rec.IsReferenceFile || (startPosition > 1 && rec.GroupID > -1)))
    return kNoMatch;
  if (rec.HaveErrorMessage) return kNoMatch;
  const bool needDimensions = opt_.sameFormat || opt_.sameDimension || opt_.sameRatio;
  const std::int32_t count = files.Count();
  unsigned steps = 0;
  for (std::int32_t pos = std::max<std::int32_t>(startPosition, 1); pos <= count; ++pos) {
    // Pause, stop and the refresh, without a clock reading per candidate.
    if ((++steps & 63u) == 0 && !pacing_.Step(refresh_)) return kNoMatch;
    const std::int32_t group = files.GroupID(pos);
    if (!(group == -1 || (files.IsReferenceFile(pos) && !rec.IsReferenceFile))) continue;
    if (files.HaveErrorMessage(pos)) continue;
    switch (opt_.sourceRule) {
      case PicSourceRule::kAll:
        break;
      case PicSourceRule::kSameFolder:
        if (files.SourceNr(pos) != rec.SourceNr) continue;
        break;
      case PicSourceRule::kAcross:
        if (files.SourceNr(pos) == rec.SourceNr) continue;
        break;
      case PicSourceRule::kSamePath:
        if (files.SourceNr(pos) == rec.SourceNr || files.Path(pos) != rec.Path) continue;
        break;
    }
    if (opt_.sameType && files.Extension(pos) != rec.Extension) continue;
    if (needDimensions) {
      // A new file whose size cannot be read can meet no representative:
      // it is logged once and stays apart.
      if (!NewDimensions(file, DimensionPlace(opt_, true))) return kNoMatch;
      if (!CandidateDimensions(files, pos, pathOf, DimensionPlace(opt_, false))) continue;
      if (opt_.sameFormat && files.PicFormat(pos) != rec.PicFormat) continue;
      if (opt_.sameDimension &&
          (files.PicWidth(pos) != rec.PicWidth || files.PicHeight(pos) != rec.PicHeight))
        continue;
      if (opt_.sameRatio && files.PicRatio(pos) != rec.PicRatio) continue;
    }

    int percent = -1;
    if (opt_.dontCompareHardlinks && rec.NumberOfLinks >= 2 && files.NumberOfLinks(pos) >= 2 &&
        files.VolumeSerialNumber(pos) == rec.VolumeSerialNumber &&
        files.FileIndexHigh(pos) == rec.FileIndexHigh &&
        files.FileIndexLow(pos) == rec.FileIndexLow) {
      percent = 100;
    } else {
      if (!NewHash(file)) return kFileFails;
      if (!CandidateHash(files, pos, pathOf)) continue;
      const std::span<const std::uint8_t> mine(rec.HashArray[0]);
      for (int k = 0; k < kPicFormCount; ++k) {
        if (k > 0 && (opt_.forms & (1u << k)) == 0) continue;
        if (!files.HashCreated(pos, k)) continue;
        ++compares_;
        const int p = PicMatchPercent(Distance(mine, files.HashArrayView(pos, k)), hashLength_);
        if (p >= opt_.matchPercent) {
          percent = p;
          break;
        }
      }
      if (percent < 0) continue;
    }

    rec.PercentMatch = static_cast<std::uint8_t>(percent);
    if (group == -1 && rec.GroupID == -1) {
      files.SetPercentMatch(pos, 100);
      files.SetIsReferenceFile(pos, true);
    }
    return pos;
  }
  return kNoMatch;
}

}  // namespace kelvor
