#pragma once
// The similar-music step of the cascade: a new audio file is measured
// against every earlier file of its key that may still take a partner, in
// the order they came, by the share of fingerprint bits they have in common;
// the first to reach the match percentage is its partner.
//
// All files of such a search share one compare key, so the earlier files are
// that key's representatives under suffixes 1, 2, 3, ... The comparator keeps
// their fingerprints itself, indexed by record, and compares them in place.
// A fingerprint is made when a file first meets a comparison, or handed in
// beforehand through AcceptFingerprint (made on another thread by
// Search_CreateAudioHash). Given a worker pool (SetWorkPool), the comparator
// runs the tool ahead itself: Prefetch queues a file, so that as many tools
// run at once as the pool has workers, and the first need of the file takes
// the fingerprint made there. Counts and log lines come from the taking, in
// the order of the search, as without a pool.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "compare/audio_fingerprint.h"
#include "compare/comparator.h"

namespace kelvor {

class Logger;
class ProgressSink;
class TextCatalog;
class WorkPool;
struct RunState;

struct SimilarAudioOptions {
  AudioFingerprintOptions fingerprint;
  int matchPercent = 70;              // a hit needs at least this
  bool sameExtension = false;         // only files of the same extension meet
  bool dontCompareHardlinks = false;  // links of one file are a hit at 100 %
  int sourceCompareMethod = 0;        // 2 across sources, 3 same relative path
};

class SimilarAudioComparator final : public WalkingComparator {
 public:
  using FullPathOf = std::function<std::string(const FileRecord&)>;
  // `files` is the cascade's collection: hits write PercentMatch and
  // IsReferenceFile into it, failures HaveErrorMessage. `fullPath` names a
  // record's file on disk.
  SimilarAudioComparator(const SimilarAudioOptions& options, CStringCollection2& files,
                         FullPathOf fullPath, const TextCatalog& texts, Logger& log, RunState& run);
  ~SimilarAudioComparator() override;

  CascadeStep Step() const override { return CascadeStep::SimilarAudio; }
  void BeginFile() override;
  // The first earlier file of the file's key that takes part and sounds
  // alike; kNoMatch, or kFileFails when the new file cannot be measured.
  std::int32_t SearchCollection(CascadeFile& file, CStringCollection2& files,
                                std::int32_t startPosition,
                                const std::function<std::string(std::int32_t)>& pathOf) override;
  void BecameRepresentative(std::string_view key, const FileRecord& rec) override;
  std::int64_t CompareCount() const override { return compares_; }
  std::int32_t ChecksumCount() const override { return fingerprints_; }

  // A fingerprint made ahead (on another thread) for the file at
  // `fullPath`; it is used instead of running the tool when that file needs
  // one. Call on the cascade's thread.
  void AcceptFingerprint(std::string fullPath, AudioFingerprint fingerprint);

  // The pool that runs the tool ahead (none: each file when first needed).
  // Set before the first Prefetch; the pool outlives this.
  void SetWorkPool(WorkPool* pool) { pool_ = pool; }
  // The file at `fullPath` is likely to be needed: fingerprint it on the pool.
  void Prefetch(const std::string& fullPath);

 private:
  struct Entry {
    std::vector<std::uint32_t> words;
    bool made = false;    // a fingerprint was asked for
    bool failed = false;  // ... and could not be made (reported once)
  };
  // Makes the fingerprint of the file at `path` into `e`; on failure logs
  // the message with the place `place` (8 the new file, 7 an earlier one).
  void Make(Entry& e, const std::string& path, int place);
  Entry& EntryOf(std::int32_t node);

  SimilarAudioOptions opt_;
  CStringCollection2& files_;
  FullPathOf fullPath_;
  const TextCatalog& texts_;
  Logger& log_;
  RunState& run_;
  std::unordered_map<std::string, std::vector<std::int32_t>> chains_;  // key -> nodes by suffix
  std::vector<Entry> entries_;                                         // by node
  Entry current_;                                                      // of the file being placed
  std::unordered_map<std::string, AudioFingerprint> ready_;            // made ahead, by path
  std::int64_t compares_ = 0;
  std::int32_t fingerprints_ = 0;
  WorkPool* pool_ = nullptr;
  class ReadAhead;
  std::unique_ptr<ReadAhead> ahead_;  // made on the first Prefetch
};

}  // namespace kelvor
