#include "compare/content_comparator.h"

#include <algorithm>
#include <cstring>

#include "data/file_record_collection.h"
#include "data/file_system.h"

namespace kelvor {

namespace {

// A fingerprint of a file's first and last 4 KiB; false when it cannot be
// read or is no longer the file the walk saw (the comparison then reports
// the problem itself).
bool ReadSample(const std::string& path, const FileRecord& rec, std::uint64_t* out) {
  constexpr std::int64_t kSampleBytes = 4096;
  const std::int64_t size = rec.SIZE;
  const ExpectedFile expected = WalkExpectation(rec);
  ReadFile file;
  if (!file.Open(path, false, nullptr, &expected)) return false;
  char buf[2 * kSampleBytes];
  const std::int64_t head = std::min(size, kSampleBytes);
  const std::int64_t tailStart = std::max(head, size - kSampleBytes);
  const std::int64_t tail = size - tailStart;
  const bool ok = file.ReadAt(buf, static_cast<std::size_t>(head), 0, nullptr) == head &&
                  (tail == 0 || file.ReadAt(buf + head, static_cast<std::size_t>(tail), tailStart,
                                            nullptr) == tail);
  if (!ok) return false;
  std::uint64_t h = 1469598103934665603ULL ^ static_cast<std::uint64_t>(size);
  for (std::int64_t i = 0; i < head + tail; ++i) {
    h ^= static_cast<unsigned char>(buf[i]);
    h *= 1099511628211ULL;
  }
  *out = h;
  return true;
}

}  // namespace

ContentComparator::ContentComparator(const ContentCompareOptions& options, ContentSearchRules rules,
                                     const TextCatalog& texts, Logger& log, RunState& run,
                                     ProgressSink& progress)
    : comparer_(options, texts, log, run, progress), opt_(options) {
  // The index stands in for the walk along the representatives only when
  // that walk compares with each of them, by checksum, and no hard-link rule
  // makes two files equal without their checksums.
  indexed_ = opt_.mode > 0 && !opt_.dontCompareHardlinks && rules.comparesEveryMeeting;
  samples_ = opt_.mode == kCompareSideBySide && opt_.percent >= 100;
  // Prefix digests stand in front of the checksums only where every checksum
  // covers the whole file. Under a tag rule a record's cached checksum may
  // cover another range than the one a later meeting asks for, and which
  // range it covers depends on the partner it was first hashed for: skipping
  // that first checksum would change what later meetings compare. Hard-link
  // rules decide by identity before any reading.
  prefixes_ = opt_.mode > 0 && !opt_.ignoreMP3Tags && !opt_.ignoreExif &&
              !opt_.ignoreFlacMetadata && !opt_.dontCompareHardlinks;
  // Reading ahead pays only where every meeting is a comparison by checksum
  // over the whole file, whatever its partner.
  readAhead_ = opt_.mode > 0 && !rules.hardlinkSearch && !opt_.ignoreMP3Tags && !opt_.ignoreExif &&
               !opt_.ignoreFlacMetadata && rules.comparesEveryMeeting;
}

ContentComparator::~ContentComparator() = default;

std::string_view ContentComparator::RecordDigest::operator()(std::uint32_t node) const {
  return files->Hash(static_cast<std::int32_t>(node));
}

// In a checksum search every key's representatives are counted and their
// checksums indexed, whatever kind of file made them. A file that no tag rule
// cuts compares its whole bytes with each representative's cached checksum,
// so the index finds the one the walk along the representatives would stop
// at. A file under a tag rule may be hashed with or without its cuts
// depending on its partner, so it meets them one by one; it must still be
// counted and indexed, or the index would hide the suffixes it takes.
std::optional<PartnerAnswer> ContentComparator::FindPartner(const CascadeFile& file, KeyPlace place,
                                                            const CStringCollection2& files,
                                                            std::int32_t firstNode) {
  chain_ = indexed_ ? &ChainOf(place.key, files, firstNode) : nullptr;
  if (!chain_ || file.UnderTagRule() || !file.rec.HashCreated[0] || chain_->unhashed != 0)
    return std::nullopt;
  // Every representative of this key has its checksum in the index, and they
  // all differ: the one with the file's checksum is the one the walk would
  // stop at, and the walk's comparisons are counted.
  const int* hit = hashIndex_.Find(chain_->id, file.rec.Hash, DigestOfRecord());
  PartnerAnswer answer;
  answer.matched = hit != nullptr;
  answer.suffix = answer.matched ? *hit : chain_->reps + 1;
  comparer_.CompareCount += std::min(answer.suffix, chain_->reps) - place.suffix + 1;
  return answer;
}

bool ContentComparator::IsDuplicate(CascadeFile& file, FileRecord& rep, const std::string& repPath,
                                    KeyPlace place) {
  const bool hadHash = rep.HashCreated[0];
  bool dup;
  // A member of an archive has no bytes of its own on disk to sample.
  if (samples_ && !file.UnderTagRule() && !file.rec.HaveErrorMessage && !rep.HaveErrorMessage &&
      file.rec.ArchiveType == 0 && rep.ArchiveType == 0 && SamplesDiffer(file, rep, repPath)) {
    // Their first or last bytes differ: the files are different without
    // reading them side by side.
    ++comparer_.CompareCount;
    dup = false;
  } else if (prefixes_ && PrefixesDiffer(file, rep, repPath)) {
    // Their first bytes differ, so their checksums would: a comparison made
    // without either checksum.
    ++comparer_.CompareCount;
    dup = false;
  } else {
    dup = comparer_.Search_CompareContent(file.rec, file.path, rep, repPath, file.isMP3, file.isJPG,
                                          file.isFLAC) == kContentEqual;
  }
  if (chain_ && !hadHash && rep.HashCreated[0]) {
    --chain_->unhashed;
    // The collection gets the digest when the cascade writes `rep` back,
    // before the index is asked again.
    hashIndex_.TryEmplace(chain_->id, rep.Hash, static_cast<std::uint32_t>(rep.RecordNumber),
                          place.suffix, DigestOfRecord());
  }
  // A new file that failed goes on like a different one: it meets no further
  // comparison (its flag ends each at once) and becomes a representative in
  // error, so that it stays a file without duplicates.
  return dup;
}

bool ContentComparator::AreDuplicates(FileRecord& a, const std::string& aPath, FileRecord& b,
                                      const std::string& bPath, const CascadeFile& rules) {
  return comparer_.Search_CompareContent(a, aPath, b, bPath, rules.isMP3, rules.isJPG,
                                         rules.isFLAC) == kContentEqual;
}

void ContentComparator::BecameRepresentative(std::string_view key, const FileRecord& rec) {
  if (filePrefix_.has_value()) prefixOf_.emplace(rec.RecordNumber, *filePrefix_);
  if (!indexed_) return;
  auto it = chains_.find(std::string(key));
  if (it == chains_.end()) return;  // the first of its key
  RepChain& c = it->second;
  ++c.reps;
  if (rec.HashCreated[0]) {
    hashIndex_.TryEmplace(c.id, rec.Hash, static_cast<std::uint32_t>(rec.RecordNumber), c.reps,
                          DigestOfRecord());
  } else {
    ++c.unhashed;
  }
}

bool ContentComparator::SamplesDiffer(const CascadeFile& file, const FileRecord& rep,
                                      const std::string& repPath) {
  if (!fileSample_.has_value()) {
    std::uint64_t v;
    if (!ReadSample(file.path, file.rec, &v)) return false;
    fileSample_ = v;
  }
  auto it = sampleOf_.find(rep.RecordNumber);
  if (it == sampleOf_.end()) {
    std::uint64_t v;
    if (!ReadSample(repPath, rep, &v)) return false;
    it = sampleOf_.emplace(rep.RecordNumber, v).first;
  }
  return it->second != *fileSample_;
}

bool ContentComparator::PrefixesDiffer(const CascadeFile& file, const FileRecord& rep,
                                       const std::string& repPath) {
  // Files no longer than the prefix are hashed whole at once; two cached
  // checksums decide by themselves.
  if (file.rec.HaveErrorMessage || rep.HaveErrorMessage || file.rec.ArchiveType != 0 ||
      rep.ArchiveType != 0 || file.rec.SIZE <= kPrefixDigestBytes ||
      rep.SIZE <= kPrefixDigestBytes || (file.rec.HashCreated[0] && rep.HashCreated[0]))
    return false;
  // Without tag rules every range is the whole file.
  const HashRange whole;
  auto part = [](const std::string& digest) {
    std::uint64_t v = 0;
    std::memcpy(&v, digest.data(), std::min(digest.size(), sizeof v));
    return v;
  };
  std::string digest;
  if (!filePrefix_.has_value()) {
    if (!comparer_.PrefixDigest(file.rec, file.path, whole, &digest)) return false;
    filePrefix_ = part(digest);
  }
  auto it = prefixOf_.find(rep.RecordNumber);
  if (it == prefixOf_.end()) {
    if (!comparer_.PrefixDigest(rep, repPath, whole, &digest)) return false;
    it = prefixOf_.emplace(rep.RecordNumber, part(digest)).first;
  }
  return it->second != *filePrefix_;
}

ContentComparator::RepChain& ContentComparator::ChainOf(std::string_view key,
                                                        const CStringCollection2& files,
                                                        std::int32_t firstNode) {
  files_ = &files;
  auto [it, inserted] = chains_.try_emplace(std::string(key));
  if (inserted) {
    // A key's chain is made when its second file arrives: only the first
    // representative exists then.
    it->second.reps = 1;
    it->second.id = static_cast<std::uint32_t>(chains_.size());
    if (files.HashCreated(firstNode, 0)) {
      hashIndex_.TryEmplace(it->second.id, files.Hash(firstNode),
                            static_cast<std::uint32_t>(firstNode), 1, DigestOfRecord());
    } else {
      it->second.unhashed = 1;
    }
  }
  return it->second;
}

bool ContentComparator::ReadsAhead() const {
  return readAhead_;
}

// Files of a folder whose key already has a representative, or that share a
// key with an earlier file of the folder, will be compared by checksum: they
// (and the representative, while it has no checksum) are read ahead.
ContentComparator::ReadAhead ContentComparator::PlanFile(const std::string& key, std::size_t entry,
                                                         const CStringCollection2& files,
                                                         std::int32_t representative) {
  ReadAhead plan;
  if (representative != 0) {
    plan.representative =
        !files.HashCreated(representative, 0) && !files.HaveErrorMessage(representative);
    plan.file = true;
    return plan;
  }
  auto [it, inserted] = firstOfKey_.try_emplace(key, entry);
  if (inserted) return plan;
  if (it->second != SIZE_MAX) {
    plan.earlier = it->second;
    it->second = SIZE_MAX;
  }
  plan.file = true;
  return plan;
}

}  // namespace kelvor
