#pragma once
// Content comparison of two file records: side by side (with an optional
// percentage) or by checksums that are made once per file and cached in the
// record. Tag and Exif regions measured while the record was built can be left
// out (audio_tags.h, exif.h).
//
// Checksums can be made ahead of time on a worker pool (Prefetch): the
// cascade stays single-threaded and decides exactly as without it; the
// workers only make a digest earlier that the cascade would make anyway.

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "data/file_record.h"
#include "data/file_system.h"

namespace kelvor {

class TextCatalog;
class Logger;
class ChecksumCache;
struct RunState;
class ProgressSink;
class WorkPool;
class ReadFile;
namespace compare_detail {
class Hasher;
class ReadAhead;
}  // namespace compare_detail

// cboContentCompare list index.
enum ContentCompareMethod : int {
  kCompareSideBySide = 0,
  kCompareMD5 = 1,
  kCompareSHA1 = 2,
  kCompareSHA256 = 3,
  kCompareSHA384 = 4,
  kCompareSHA512 = 5,
};

// The run-wide options of the content comparison, filled once by
// Init_Variablen. With the content criterion off the engine forces the three
// ignore flags and compareFileEndFirst to 0.
struct ContentCompareOptions {
  int mode = kCompareSHA1;  // ContentCompare
  int percent = 100;        // ContentComparePercent; only mode 0 uses values below 100
  // CompareBuffer0..3: first read size, largest read size, growth step (and the
  // checksum route's chunk), end-block size as entered.
  std::array<std::int64_t, 4> compareBuffer{16384, 32768, 16384, 32768};
  // Effective end-block size in bytes: CompareBuffer3 while CompareFileEndFirst
  // is on, else 0 (off).
  std::int64_t compareFileEndFirst = 32768;
  bool dontCompareHardlinks = false;                // DontCompareHardlinks
  bool ignoreMP3Tags = false;                       // IgnoreMP3Tags
  bool ignoreFlacMetadata = false;                  // IgnoreFlacMetadata
  bool ignoreExif = false;                          // IgnoreExif
  bool deleteTempFilesAfterCreateChecksum = false;  // chkZipDeleteTempFilesAfterCreateChecksum
  bool checksumCache = true;  // ChecksumCache: keep checksums across runs (needs the data folder)
  // Threads that read and hash ahead of the cascade; 0: one per core.
  unsigned readAheadThreads = 0;
};

// Bytes at the start of the compared range that a prefix digest covers (all
// of the range when it is shorter). Files whose prefix digests differ cannot
// have equal checksums.
constexpr std::int64_t kPrefixDigestBytes = 4096;
// Ranges shorter than this are hashed without asking the checksum cache. A
// lookup is a statx and a probe of the cache's table in memory, cheaper than
// opening and reading even a small file, so every range asks.
constexpr std::int64_t kCacheMinBytes = 0;

// The buffer sizes as the setup window's fields mend them when left, and as
// the comparer takes them: 0 or less becomes 50000, 500000, 50000 or 100000
// (index 0..3); the first read size and the growth step are at most the
// largest read size.
void MendCompareBuffers(std::array<std::int64_t, 4>& buffers);

// Digest length in bytes of a checksum mode (0 for side by side or unknown).
int DigestLength(int mode);
// The method's list text: "MD5", "SHA1-160", ... ("" for side by side).
std::string ChecksumName(int mode);

// Start check of a search: true when the digest of `mode` can be had (always
// true for mode 0). On false *error holds the library's reason; the caller
// logs/shows text 5140 with it and does not start the search.
bool ChecksumAvailable(int mode, std::string* error);

// Return codes of Search_CompareContent. The side-by-side failure codes are
// the ones of Search_CompareFileContent (4 `found` not opened, 5 the new file
// not opened, 6/7 read failures, 8..13 end-block failures).
enum ContentCompareCode : int {
  kContentEqual = -1,
  kContentDifferent = 0,  // also: ranges of different length
  kContentStopped = 2,    // stop request during the read; counts as different
  kContentOpenFailedFound = 4,
  kContentOpenFailedNew = 5,
  kContentReadFailedFound = 6,
  kContentReadFailedNew = 7,
  // 8..13: CompareFileAtEnd failures (seek 1/2, read 1/2, seek back 1/2)
  kContentRecordInError = 20,   // one record failed earlier (HaveErrorMessage)
  kContentChecksumFailed = 21,  // a checksum could not be made (text 5029 logged)
  kContentTempFileFailed = 22,  // an archive member could not be extracted
  kContentOtherFailure = 23,    // side-by-side failure without a code of its own
};

// Extraction of archive members for the comparison (owned by the archive
// subsystem). Optional: without it a member of an archive cannot be compared.
class ArchiveTempFiles {
 public:
  virtual ~ArchiveTempFiles() = default;
  // Search_CheckandCreateTempFileFromArchive: makes (or finds) the member's
  // temporary file, sets rec.ArchiveTempFileNr and gives the path to read.
  // `archivePath` is the archive's full path. False: the member cannot be
  // compared (any message is the implementation's).
  virtual bool CreateTempFile(FileRecord& rec, const std::string& archivePath,
                              std::string* pathToRead) = 0;
  // Search_Delete_Archive_Temp_File: true when the file was deleted (then the
  // record's ArchiveTempFileNr is cleared by the caller). Logs its own failures.
  virtual bool DeleteTempFile(const FileRecord& rec) = 0;
  // Hands the member's bytes in order to `sink`, without a temporary file
  // (a checksum needs no more). False when the member could not be read to
  // its end: a stop, a skip, a refusing sink, or a failure it has logged.
  virtual bool StreamMember(FileRecord& rec, const std::string& archivePath,
                            const std::function<bool(const char*, std::size_t)>& sink) = 0;
};

// The byte range a checksum covers, worked out from the record and the cut
// rules in force (CreateHashFromFile). Part of the digest's identity.
struct HashRange {
  bool useMp3Cuts = false;
  bool useExifCuts = false;
  std::int32_t cutFromStart = 0;
  std::int32_t cutFromEnd = 0;
  bool operator==(const HashRange&) const = default;
};

// What a record says the file on disk must still be when it is read: the size
// and identity the walk saw. Nothing is expected of a member of an archive,
// whose extract is read instead.
ExpectedFile WalkExpectation(const FileRecord& rec);

// CreateHashFromFile: the checksum of `path` (raw digest bytes, or the file's
// own bytes when it is not longer than the digest). On failure returns "" and
// sets *errorText ("CreateFileWide: ...", "File size 0", "ReadFile2: ", ...).
// A stop request (run may be null) ends with "" and no error text. With
// `expected`, a file that is no longer the one the walk saw is a failure.
std::string CreateHashFromFile(const std::string& path, int mode, const HashRange& range,
                               const RunState* run, std::string* errorText,
                               const ExpectedFile* expected = nullptr);

class ContentComparer {
 public:
  ContentComparer(const ContentCompareOptions& options, const TextCatalog& texts, Logger& log,
                  RunState& run, ProgressSink& progress);
  ~ContentComparer();
  ContentComparer(const ContentComparer&) = delete;
  ContentComparer& operator=(const ContentComparer&) = delete;

  // Search_CompareContent: -1 equal, 0 different, a positive code (see
  // ContentCompareCode) when a failure decided; failures are logged here once
  // and mark the failed record with HaveErrorMessage. Checksums are stored in
  // the records (SetHash); the caller writes `found` back to its collection.
  // For a member of an archive the full path is the archive's path.
  int Search_CompareContent(FileRecord& newRec, const std::string& newFullPath, FileRecord& found,
                            const std::string& foundFullPath, bool isMP3, bool isJPG, bool isFLAC);

  // Read-ahead hint: hash this file on the worker pool with the cut rules its
  // own extension would get. Ignored without a pool, for side by side, for
  // archive members, for records that already have a checksum or an error,
  // and when the queue is full. Safe to call for files never compared.
  void Prefetch(const std::string& fullPath, const FileRecord& rec);

  // The digest of the first kPrefixDigestBytes of the file's range (made
  // here, or taken from the read-ahead, which makes it beside the full
  // checksum). Counted in PrefixCount. False for side by side, archive
  // members, records in error and any failure (the full comparison then
  // meets the problem and reports it).
  bool PrefixDigest(const FileRecord& rec, const std::string& fullPath, const HashRange& range,
                    std::string* digest);

  void SetArchiveTempFiles(ArchiveTempFiles* archive) { archive_ = archive; }

  // The workers that read ahead (none: no read-ahead). Set before the first
  // Prefetch; the pool must outlive this object.
  void SetWorkPool(WorkPool* pool) { pool_ = pool; }

  // Digests kept across runs: looked up before a file is read, stored after
  // it was hashed (also by the read-ahead workers). Set before the first
  // comparison; the cache must outlive this object. Its problems are logged
  // as they come (TakeCacheMessages).
  void SetChecksumCache(ChecksumCache* cache);
  void TakeCacheMessages();

  std::int64_t CompareCount = 0;   // pairs really compared
  std::int32_t ChecksumCount = 0;  // checksums made
  std::int32_t PrefixCount = 0;    // prefix digests made
  std::int32_t CacheCount = 0;     // checksums and prefix digests taken from the cache

 private:
  int CompareByChecksum(FileRecord& newRec, const std::string& newFullPath, FileRecord& found,
                        const std::string& foundFullPath, const HashRange& rangeNew,
                        const HashRange& rangeFound);
  int CompareSideBySide(FileRecord& newRec, const std::string& newFullPath, FileRecord& found,
                        const std::string& foundFullPath, const HashRange& rangeNew,
                        const HashRange& rangeFound);
  bool PathToRead(FileRecord& rec, const std::string& fullPath, std::string* path, bool* created);
  bool EnsureHash(FileRecord& rec, const std::string& fullPath, const HashRange& range,
                  bool* createdTemp, int* code);
  std::string TakeOrMakeHash(const std::string& path, const HashRange& range,
                             const ExpectedFile& expected, std::string* error, bool* fromCache);
  int SideBySide(const std::string& path1, const std::string& path2, const HashRange& r1,
                 const HashRange& r2, const ExpectedFile& e1, const ExpectedFile& e2,
                 bool percentRoute, int* percentOut, std::string* error);
  int CompareFileAtEnd(const ReadFile& f1, const ReadFile& f2, std::int64_t& last1,
                       std::int64_t& last2, const std::string& path1, const std::string& path2);
  void ReadIdentity(FileRecord& rec, const std::string& fullPath);
  void ShowReadProgress(const std::string& action, const std::string& path1,
                        const std::string& path2, std::int64_t done, std::int64_t total);
  void ClearReadProgress();

  ContentCompareOptions opt_;
  const TextCatalog& texts_;
  Logger& log_;
  RunState& run_;
  ProgressSink& progress_;
  ArchiveTempFiles* archive_ = nullptr;
  ChecksumCache* cache_ = nullptr;
  WorkPool* pool_ = nullptr;
  std::unique_ptr<compare_detail::Hasher> hasher_;       // checksums made on this thread
  std::unique_ptr<compare_detail::ReadAhead> prefetch_;  // made on the first Prefetch
  std::vector<unsigned char> buf1_, buf2_;               // side-by-side buffers, reused
  bool progressShown_ = false;
};

// HashRange for a record under the rules of a comparison: MP3 cuts when the
// MP3 rule is in force and `partnerExtension` is "mp3", Exif cuts (shared by
// FLAC) when the Exif rule and "jpeg"/"jpg"/"cr2", or the FLAC rule and "flac".
HashRange HashRangeFor(const FileRecord& rec, const std::string& partnerExtension, bool isMP3,
                       bool isJPG, bool isFLAC);

}  // namespace kelvor
