#pragma once
// The comparison cascade: each file, on arrival, gets its compare key, meets
// the representative(s) of that key in the file record collection, and is
// compared where the criteria ask for it. Duplicates go into the result.
//
// A file goes through named steps (CheckFile):
//   1. record: the file's record, its size key after tag and Exif cuts;
//   2. key: the compare key of the criteria;
//   3. partner: the representative the file meets, under the rule of the
//      source compare method, and the comparator's answer whether the file is
//      its duplicate;
//   4. group: the file joins (or opens) a group and gets its file row.
// A criterion that needs more than the key answers through a Comparator
// (compare/comparator.h); the cascade picks the first one in step order.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "compare/comparator.h"
#include "data/file_record_collection.h"
#include "search/engine.h"
#include "search/walk.h"

namespace kelvor {

class ArchiveTempFiles;
class ChecksumCache;
class ContentComparator;
class LongOperation;
class MediaProperties;
class SimilarAudioComparator;
class SimilarPicturesComparator;
class WorkPool;

// The name key of a base name (ignored characters, ignored text, method).
std::string NameKey(const SearchOptions& opt, std::string_view baseName);
// The base name after ignored characters and ignored text only.
std::string NameAfterIgnore(const SearchOptions& opt, std::string_view baseName);

// What the cascade works with. All references outlive the cascade.
struct CascadeContext {
  const SearchOptions& opt;
  const std::vector<SourceFolder>& sources;
  const TextCatalog& texts;
  Logger& log;
  ProgressSink& progress;
  RunState& run;
  SearchStatistics& stats;
  ResultModel& result;
  // The pacing of the compare pass and its refresh, for the cascade's own
  // loop over further representatives.
  LongOperation& pacing;
  const std::function<void()>& refresh;
  bool sameVolume = true;
  // The application's folders, for the checksum cache (none: no cache).
  const AppPaths* paths = nullptr;
};

class Cascade {
 public:
  explicit Cascade(CascadeContext ctx);
  ~Cascade();
  Cascade(const Cascade&) = delete;
  Cascade& operator=(const Cascade&) = delete;

  // One file on disk of source `sourceNr` (1-based). `folder` is the file's
  // full folder.
  // `mtimeNs` and `ctimeNs` are the walk's times in nanoseconds (0: unknown).
  void CheckFile(int sourceNr, std::string_view folder, std::string_view name, std::int64_t size,
                 double dateChanged, double dateCreated, std::int32_t attributes,
                 const FileIdentity* identity, std::int64_t mtimeNs = 0, std::int64_t ctimeNs = 0);

  // One member of an archive of source `sourceNr`: `archivePath` is the
  // archive's full path (the record's Path), `innerFolder` the member's
  // folder inside it ("" at its root), `archiveType` the record's type.
  void CheckMember(int sourceNr, std::string_view archivePath, std::string_view innerFolder,
                   std::string_view name, std::int64_t size, double dateChanged, double dateCreated,
                   std::int32_t attributes, std::uint8_t archiveType);
  // Where the comparator gets the bytes of archive members (none: members
  // cannot be compared by content).
  void SetArchiveTempFiles(ArchiveTempFiles* temp);

  // The walk entered a folder of source `sourceNr`: files whose comparison is
  // sure to come are read ahead. Only files the filters let through count.
  void PredictComparisons(const Frame& top, int sourceNr, const FilterOptions& filters);
  bool ReadsAhead() const;
  // The walk hands over the next file of the folder `top`: pictures and
  // music move their read-ahead along.
  void FileReached(const Frame& top, const FilterOptions& filters);

  // The comparisons and checksums of the comparator (false without one).
  bool ComparatorCounts(std::int64_t* compares, std::int32_t* checksums,
                        std::int32_t* prefixes = nullptr) const;

  // Writes the checksum cache's waiting stores and logs its problems; the
  // number of digests taken from it so far.
  std::int32_t FinishChecksumCache();

  CStringCollection2& Files() { return files_; }
  std::string FullPath(const FileRecord& r) const;
  // The file whose bytes a comparator reads for `r`: its full path, or for a
  // member of an archive its extract (made on first use, its name kept in
  // r.ArchiveTempFileNr). False when the member cannot be extracted.
  bool PathToRead(FileRecord& r, std::string* path);

 private:
  // The steps of one file.
  bool MakeRecord(int sourceNr, std::string_view folder, std::string_view name, std::int64_t size,
                  double dateChanged, double dateCreated, std::int32_t attributes,
                  const FileIdentity* identity, std::int64_t mtimeNs, std::int64_t ctimeNs);
  // Whether an ignore-tags option applies to this file's extension.
  bool CutsTags(const FileRecord& rec) const;
  void CompareSize(FileRecord& rec, const std::string& fullPath, bool* isMP3, bool* isJPG,
                   bool* isFLAC);
  void BuildCompareKey(const FileRecord& rec, std::string& key) const;
  enum class Meeting { Placed, Different, Duplicate };
  Meeting MeetWithComparator(CascadeFile& file, std::string& key, std::size_t keyLength,
                             int& suffix, FileRecord& found);
  void MeetByWalk(CascadeFile& file, std::string& key);
  Meeting MeetAcrossSources(std::string& key, FileRecord& found);
  Meeting MeetByKey(std::string& key, FileRecord& found);
  bool JoinGroup(CascadeFile& file, std::string& key, std::size_t keyLength, int suffix,
                 FileRecord& found, bool& newGroupMade);
  bool CollectFurtherRepresentatives(CascadeFile& file, std::string& key, std::size_t keyLength,
                                     int suffix, FileRecord& found);
  void AddFileRow(const FileRecord& r, int groupNumber);
  void ReadMediaProperties(const FileRecord& r, FileRowExtras& x);
  void SyncCounts();
  void OpenChecksumCache();
  std::unique_ptr<Comparator> MakeSimilarPictures();
  WorkPool& MakeWorkPool();
  void PredictMediaFiles(const Frame& top, const FilterOptions& filters);

  CascadeContext ctx_;
  const SearchOptions& opt_;
  int sourceNr_ = 0;  // of the file being placed
  CStringCollection2 files_;
  // The workers that read ahead of the cascade (none when nothing is read
  // ahead); outlives the comparators that give it work.
  std::unique_ptr<WorkPool> pool_;
  // Checksums kept across runs; outlives the comparator and its workers.
  std::unique_ptr<ChecksumCache> checksumCache_;
  // The comparator of the first step the criteria ask for (none: the key
  // alone decides), and the content comparator when that is it.
  std::unique_ptr<Comparator> comparator_;
  ContentComparator* content_ = nullptr;
  // The picture or music comparator when that is it (they read ahead too).
  SimilarPicturesComparator* pictures_ = nullptr;
  SimilarAudioComparator* audio_ = nullptr;
  std::unique_ptr<MediaProperties> media_;  // made when a row first needs it
  FileRecord recBuf_;                       // reused for every file's record
  FileRecord foundBuf_;                     // reused for the representative a file meets
  FileRecord repBuf_;                       // reused for representatives read ahead
  std::string keyBuf_;                      // reused for every compare key
  std::string pathBuf_;
  std::string predictKey_;
  // Pictures and music: the folder read ahead and its next entry to queue,
  // at most kMediaWindow entries ahead of the walk.
  static constexpr std::size_t kMediaWindow = 128;
  std::string mediaFolder_;
  std::size_t mediaCursor_ = 0;
  // Numbers the keys of files placed by a walking comparator, unique to the run.
  std::int64_t walkSerial_ = 0;
  // The archive member being placed (type 0: a file on disk).
  std::uint8_t memberType_ = 0;
  ArchiveTempFiles* archiveTemp_ = nullptr;
  bool comparatorReadsBytes_ = false;  // similar pictures or audio decide
  std::string_view memberFolder_;
};

}  // namespace kelvor
