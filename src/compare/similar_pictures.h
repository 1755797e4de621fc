#pragma once
// The similar-pictures step of the cascade: a new picture is measured against
// every earlier representative of the run by a perceptual hash of a small
// thumbnail. Cheap gates come first (extension, then the picture's format,
// size and ratio from its header), hashes are made once per record and kept
// on it, and a hit is the first representative whose hash (or one of its
// chosen turned and mirrored forms) shares enough bits with the new file's.
//
// Reading a picture is one pure function, ProbePicture, that may run on any
// thread: it gives the picture's size and the hashes of every chosen form, or
// why it could not. The comparator calls it on its own thread when it first
// needs a file's size or hash; a read-ahead that made the probe earlier (on a
// worker pool) hands it over with TakeProbe, and the comparator then uses it
// instead of reading the file. Given a worker pool (SetWorkPool), the
// comparator reads pictures ahead itself: Prefetch queues a file on the pool,
// and the first need of that file takes the probe made there (or, when it has
// not started, reads the file on the cascade's thread as without a pool).
// Hashes are counted and failures logged only when a probe is taken, so a
// probe made ahead and never needed leaves no trace.

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "compare/comparator.h"
#include "compare/picture_hash.h"

namespace kelvor {

class LongOperation;
class Logger;
class WorkPool;
class ProgressSink;
class TextCatalog;

// What ProbePicture makes of a file.
struct PictureHashRequest {
  PicHashAlgo algo = PicHashAlgo::kAverage;
  int side = 16;          // thumbnail side: 8, 16 or 24
  unsigned formMask = 1;  // bit k: form k; bit 0 is always wanted
};

// One reading of a picture: its size from the header, then its hashes.
struct PictureProbe {
  bool dimensionsRead = false;
  int width = -1, height = -1;
  int format = 0;      // PicFormat
  double ratio = 0.0;  // PicRatio
  std::string dimensionError;
  bool hashed = false;
  std::array<PicHash, kPicFormCount> hashes;  // the forms of the request's mask
  std::string hashError;
};

// Reads `path` and hashes it as asked. Uses decoders of its own, so calls on
// different threads do not meet.
PictureProbe ProbePicture(const std::string& path, const PictureHashRequest& request);

// How source folders may pair, by the search's source compare method.
enum class PicSourceRule : int { kAll = 0, kSameFolder = 1, kAcross = 2, kSamePath = 3 };

struct SimilarPictureOptions {
  PicHashAlgo algo = PicHashAlgo::kAverage;
  int side = 16;
  int matchPercent = 91;
  bool sameType = true, sameDimension = false, sameFormat = true, sameRatio = true;
  // Bits 1..7: the turned and mirrored forms of a representative that a new
  // file is also measured against (none when the option is off).
  unsigned forms = 0;
  bool dontCompareHardlinks = false;
  PicSourceRule sourceRule = PicSourceRule::kAll;
};

class SimilarPicturesComparator final : public WalkingComparator {
 public:
  // `refresh` shows the progress (with this comparator's counts) when the
  // walk's pacing asks for it.
  SimilarPicturesComparator(const SimilarPictureOptions& options, const TextCatalog& texts,
                            Logger& log, ProgressSink& progress, LongOperation& pacing,
                            std::function<void()> refresh);
  ~SimilarPicturesComparator() override;

  CascadeStep Step() const override { return CascadeStep::SimilarPictures; }
  void BeginFile() override;
  std::int32_t SearchCollection(CascadeFile& file, CStringCollection2& files,
                                std::int32_t startPosition,
                                const std::function<std::string(std::int32_t)>& pathOf) override;
  void BecameRepresentative(std::string_view key, const FileRecord& rec) override;
  std::int64_t CompareCount() const override { return compares_; }
  std::int32_t ChecksumCount() const override { return hashesMade_; }

  // What a read-ahead must ask ProbePicture for.
  const PictureHashRequest& Request() const { return request_; }
  // A probe made ahead for the file at `path`: used, once, when that file's
  // size or hash is first needed.
  void TakeProbe(const std::string& path, PictureProbe probe);
  std::size_t ProbesWaiting() const { return ready_.size(); }

  // The pool that reads pictures ahead (none: every file is read when it is
  // first needed). Set before the first Prefetch; the pool outlives this.
  void SetWorkPool(WorkPool* pool) { pool_ = pool; }
  // The file at `path` is likely to be needed: probe it on the pool.
  void Prefetch(const std::string& path);

 private:
  PictureProbe Probe(const std::string& path);
  // The new file's size; false (logged, flagged) when it cannot be read.
  bool NewDimensions(CascadeFile& file, int place);
  bool NewHash(CascadeFile& file);
  bool CandidateDimensions(CStringCollection2& files, std::int32_t pos,
                           const std::function<std::string(std::int32_t)>& pathOf, int place);
  bool CandidateHash(CStringCollection2& files, std::int32_t pos,
                     const std::function<std::string(std::int32_t)>& pathOf);
  // Stores a probe's size and hashes in a record of the collection.
  void StoreInCollection(CStringCollection2& files, std::int32_t pos, PictureProbe& probe);
  void CountHash();
  void LogFailure(const std::string& error, int place, const std::string& path);

  SimilarPictureOptions opt_;
  PictureHashRequest request_;
  int hashLength_ = 64;
  const TextCatalog& texts_;
  Logger& log_;
  ProgressSink& progress_;
  LongOperation& pacing_;
  std::function<void()> refresh_;

  std::int64_t compares_ = 0;
  std::int32_t hashesMade_ = 0;
  // The new file's probe, kept from its first reading to its hash.
  PictureProbe newProbe_;
  bool newProbed_ = false;
  // Probes handed over by a read-ahead, by full path.
  std::unordered_map<std::string, PictureProbe> ready_;
  // Representatives whose size was read but whose hash failed, by position:
  // the error is logged when the hash is first needed.
  std::unordered_map<std::int32_t, std::string> hashErrors_;
  WorkPool* pool_ = nullptr;
  class ReadAhead;
  std::unique_ptr<ReadAhead> ahead_;  // made on the first Prefetch
};

}  // namespace kelvor
