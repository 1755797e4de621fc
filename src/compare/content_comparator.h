#pragma once
// The content step of the cascade: a file is a duplicate of a representative
// when their contents are equal (ContentComparer). Around the comparison it
// keeps what makes a search by content fast without changing one decision or
// the count of comparisons:
//
//  - in a checksum search, an index from key and checksum to the suffix of the
//    representative with that checksum, so that a file finds its match
//    without meeting the representatives one by one;
//  - in a checksum search without tag rules, a digest of each file's first
//    4 KiB (the prefix digest), made once per file: files whose prefixes
//    differ are different without their full checksums;
//  - in a byte-by-byte search of whole files, a sample of each file's first
//    and last 4 KiB, read once, which tells most different files apart before
//    they are read side by side;
//  - the read-ahead plan: which files of a folder the cascade will compare,
//    so that their checksums are made on the helper thread first.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "compare/comparator.h"
#include "compare/content.h"
#include "compare/digest_index.h"

namespace kelvor {

// How the search around the comparison runs.
struct ContentSearchRules {
  // Every representative a file meets is compared with it: no source rule
  // passes one by without a comparison.
  bool comparesEveryMeeting = true;
  // Only files with more than one link take part.
  bool hardlinkSearch = false;
};

class ContentComparator final : public Comparator {
 public:
  ContentComparator(const ContentCompareOptions& options, ContentSearchRules rules,
                    const TextCatalog& texts, Logger& log, RunState& run, ProgressSink& progress);
  ~ContentComparator() override;

  CascadeStep Step() const override { return CascadeStep::Content; }
  void BeginFile() override {
    fileSample_.reset();
    filePrefix_.reset();
  }
  std::optional<PartnerAnswer> FindPartner(const CascadeFile& file, KeyPlace place,
                                           const CStringCollection2& files,
                                           std::int32_t firstNode) override;
  bool IsDuplicate(CascadeFile& file, FileRecord& rep, const std::string& repPath,
                   KeyPlace place) override;
  bool AreDuplicates(FileRecord& a, const std::string& aPath, FileRecord& b,
                     const std::string& bPath, const CascadeFile& rules) override;
  void BecameRepresentative(std::string_view key, const FileRecord& rec) override;
  std::int64_t CompareCount() const override { return comparer_.CompareCount; }
  std::int32_t ChecksumCount() const override { return comparer_.ChecksumCount; }
  std::int32_t PrefixCount() const override { return comparer_.PrefixCount; }

  ContentComparer& Comparer() { return comparer_; }

  // The read-ahead plan of one folder. The walk names the folder's files in
  // the order the cascade will meet them, each with its compare key as the
  // cascade first looks it up and that key's representative (0 if none).
  bool ReadsAhead() const;
  void BeginFolder() { firstOfKey_.clear(); }
  struct ReadAhead {
    bool representative = false;     // hash the key's representative
    std::size_t earlier = SIZE_MAX;  // hash this earlier file of the folder
    bool file = false;               // hash this file
  };
  ReadAhead PlanFile(const std::string& key, std::size_t entry, const CStringCollection2& files,
                     std::int32_t representative);
  void Prefetch(const std::string& fullPath, const FileRecord& rec) {
    comparer_.Prefetch(fullPath, rec);
  }

 private:
  // The representatives of one compare key in a checksum search: how many
  // there are, and how many still lack a checksum.
  struct RepChain {
    int reps = 0;
    int unhashed = 0;
    std::uint32_t id = 0;  // the key's number in the checksum index
  };
  RepChain& ChainOf(std::string_view key, const CStringCollection2& files, std::int32_t firstNode);
  bool SamplesDiffer(const CascadeFile& file, const FileRecord& rep, const std::string& repPath);
  bool PrefixesDiffer(const CascadeFile& file, const FileRecord& rep, const std::string& repPath);

  ContentComparer comparer_;
  ContentCompareOptions opt_;
  bool indexed_ = false;   // checksum index kept
  bool samples_ = false;   // samples of whole files
  bool prefixes_ = false;  // prefix digests before full checksums
  bool readAhead_ = false;
  std::unordered_map<std::string, RepChain> chains_;  // keys that met a second file
  // chain id + checksum -> suffix; the checksums stay in the records of
  // the collection the chains were made for (files_).
  DigestIndex hashIndex_;
  const CStringCollection2* files_ = nullptr;
  struct RecordDigest {
    const CStringCollection2* files;
    std::string_view operator()(std::uint32_t node) const;
  };
  RecordDigest DigestOfRecord() const { return {files_}; }
  std::unordered_map<std::int32_t, std::uint64_t> sampleOf_;  // record -> first/last bytes
  std::optional<std::uint64_t> fileSample_;                   // of the file being placed
  std::unordered_map<std::int32_t, std::uint64_t> prefixOf_;  // record -> prefix digest (part)
  std::optional<std::uint64_t> filePrefix_;                   // of the file being placed
  RepChain* chain_ = nullptr;  // the chain of the key the file meets now
  std::unordered_map<std::string, std::size_t> firstOfKey_;  // key -> entry without partner yet
};

}  // namespace kelvor
