#pragma once
// The seam between the cascade and the criteria that need more than a file's
// compare key to tell two files equal.
//
// The cascade keys each file and finds the representatives of that key. Under
// one key, representatives that are not equal to each other stand under
// suffixes 1, 2, 3, ...; a new file meets them in that order until one is its
// duplicate, or becomes a representative of its own behind the last. Whether
// the file is a duplicate of a representative is the comparator's answer; it
// may also answer at once which representative the file matches, when it can
// tell without meeting them one by one.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "data/file_record.h"

namespace kelvor {

class CStringCollection2;

// The steps of the cascade in the order a file meets them once its compare
// key is made. The first step whose criterion is on decides; the key alone
// decides when none is.
enum class CascadeStep : int {
  FuzzyNames = 1,
  SimilarAudio = 2,
  SimilarPictures = 3,
  Content = 4,
  KeyAlone = 5,
};

// The file the cascade is placing.
struct CascadeFile {
  FileRecord& rec;
  const std::string& path;  // full path on disk
  // The tag rules that cut the file's compared range (its size key already
  // has the cuts taken off).
  bool isMP3 = false;
  bool isJPG = false;
  bool isFLAC = false;
  // The compare key without its suffix, once the cascade has made it.
  std::string_view key{};
  bool UnderTagRule() const { return isMP3 || isJPG || isFLAC; }
};

// Where the file stands among the representatives of its key.
struct KeyPlace {
  std::string_view key;  // the compare key without its suffix
  int suffix = 1;        // the representative the file meets now
};

// Which earlier representative the file matches.
struct PartnerAnswer {
  int suffix = 0;        // the matched representative, or the suffix a new one takes
  bool matched = false;  // false: the file equals none of them
};

class Comparator {
 public:
  virtual ~Comparator() = default;

  virtual CascadeStep Step() const = 0;

  // A new file enters the cascade: what was kept of the previous one goes.
  virtual void BeginFile() {}

  // Which earlier representative of the key does the file match? Answered
  // only when the comparator can tell without meeting the representatives one
  // by one (the comparisons that walk would make are counted all the same);
  // nullopt: meet the one at `place`. `firstNode` is the key's first
  // representative in `files`.
  virtual std::optional<PartnerAnswer> FindPartner(const CascadeFile& /*file*/, KeyPlace /*place*/,
                                                   const CStringCollection2& /*files*/,
                                                   std::int32_t /*firstNode*/) {
    return std::nullopt;
  }

  // Is the file a duplicate of the representative `rep` standing at `place`?
  // What is learnt on the way (checksums, errors) is written into both
  // records; the caller stores `rep` back into its collection.
  virtual bool IsDuplicate(CascadeFile& file, FileRecord& rep, const std::string& repPath,
                           KeyPlace place) = 0;

  // Are two earlier files duplicates of each other? `rules` are the tag rules
  // of the file being placed, under which the two are compared.
  virtual bool AreDuplicates(FileRecord& a, const std::string& aPath, FileRecord& b,
                             const std::string& bPath, const CascadeFile& rules) = 0;

  // Criteria without a key that groups candidates (similar names, pictures,
  // music)
  // measure a file against every earlier representative of the collection
  // instead of meeting those of one key.
  virtual bool WalksCollection() const { return false; }
  // For a comparator that walks the collection: the position of the first
  // representative from `startPosition` on that the file matches, kNoMatch,
  // or kFileFails when the file cannot be read and leaves the search. What is
  // learnt on the way is written into the collection and into `file.rec`.
  // `pathOf` gives the full path on disk of a position.
  static constexpr std::int32_t kNoMatch = -1;
  static constexpr std::int32_t kFileFails = -2;
  virtual std::int32_t SearchCollection(
      CascadeFile& /*file*/, CStringCollection2& /*files*/, std::int32_t /*startPosition*/,
      const std::function<std::string(std::int32_t)>& /*pathOf*/) {
    return kNoMatch;
  }

  // The file became a representative of `key` (the key without its suffix);
  // `rec.RecordNumber` is its node in the collection.
  virtual void BecameRepresentative(std::string_view /*key*/, const FileRecord& /*rec*/) {}

  // Comparisons made (or counted) so far, checksums made, and digests of
  // file beginnings made as a first stage before checksums.
  virtual std::int64_t CompareCount() const = 0;
  virtual std::int32_t ChecksumCount() const { return 0; }
  virtual std::int32_t PrefixCount() const { return 0; }
};

// A comparator for a criterion with no key that groups candidates: it walks
// the collection (SearchCollection) and a file meets its first partner only,
// so the one-by-one meeting and the further representatives never ask it.
class WalkingComparator : public Comparator {
 public:
  bool WalksCollection() const final { return true; }
  bool IsDuplicate(CascadeFile&, FileRecord&, const std::string&, KeyPlace) final { return false; }
  bool AreDuplicates(FileRecord&, const std::string&, FileRecord&, const std::string&,
                     const CascadeFile&) final {
    return false;
  }
};

}  // namespace kelvor
