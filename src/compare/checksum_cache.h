#pragma once
// Checksums kept across runs. Users search the same folders again and again;
// a file whose identity, size and times have not changed since its digest was
// made need not be read again. The cache is an SQLite file in the data folder
// (ChecksumCachePath). It is only ever an aid: every failure (damaged file,
// a lock held by another Kelvor, a full disk, a read-only folder, a file of a
// later Kelvor) ends in a miss or a skipped store, and the search goes on.
//
// What a row is trusted for: the digest of one file state (device, inode,
// size, mtime and ctime in nanoseconds) under one digest kind (the
// ContentCompare mode) over one byte range (the cut rules and values of
// HashRange, and either the whole range or only its first N bytes). Any
// difference is a miss. Each row carries a check value over its key and
// digest; a row that fails it, or any sign of a damaged file, makes the cache
// move the file aside and start afresh: a damaged cache is never read from.
//
// Every row is read into memory when the cache is opened (one sequential
// scan, each row's check value tested on the way), so that a lookup is a
// probe of a hash table and never a call into SQLite: asking the cache costs
// less than hashing even a small file. Stores go into the table at once and
// to the file in one transaction per batch.
//
// Housekeeping (Finish): a row that was not read in this run and was last
// used more than keepUnused ago is deleted; a row read in this run gets its
// last-use time moved to now once that time is older than refreshUsedAfter,
// so that the rows of folders searched now and then are kept and the rows of
// deleted files or of folders no longer searched go after a while.
//
// Thread-safe: several hashing threads may look up and store at once (the
// table and the connection behind one mutex; the statements are prepared
// once).

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "compare/content.h"

struct sqlite3;
struct sqlite3_stmt;

namespace kelvor {

struct AppPaths;
class TextCatalog;

// The state of a file a digest belongs to, taken by one statx/stat before any
// of its bytes are read.
struct ChecksumFileState {
  std::uint64_t device = 0;  // st_dev (makedev of statx's major/minor)
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t mtimeNs = 0;  // nanoseconds since the epoch
  std::int64_t ctimeNs = 0;  // status change: moves on every write, rename, chmod
  // Wall-clock time (nanoseconds since the epoch) the state was taken. Not part
  // of the key: Store refuses a state taken too soon after its ctime, since a
  // write in the same tick of the file system's clock would leave the times
  // unchanged while the bytes differ. A state without it is never stored.
  std::int64_t takenAtNs = 0;

  bool SameFile(const ChecksumFileState& o) const {
    return device == o.device && inode == o.inode && size == o.size && mtimeNs == o.mtimeNs &&
           ctimeNs == o.ctimeNs;
  }
};

// Which part of the compared range a digest covers.
enum class ChecksumSpan : std::uint8_t {
  kWholeRange = 0,  // the checksum of the content comparison
  kPrefix = 1,      // only the first prefixBytes bytes of the range (a cheap first stage)
};

struct ChecksumKey {
  ChecksumFileState file;
  int mode = kCompareSHA1;  // ContentCompare (1..5)
  HashRange range;          // cut rules and values as the hasher used them
  ChecksumSpan span = ChecksumSpan::kWholeRange;
  std::uint32_t prefixBytes = 0;  // with kPrefix: N; 0 with kWholeRange
};

// The file state from a statx result. Empty when the result lacks the inode,
// size, mtime or ctime (stx_mask), since such a state cannot be compared.
// takenAtNs is set to now: call it right after the statx.
std::optional<ChecksumFileState> ChecksumFileStateFrom(const struct statx& st);
// The same from a struct stat (st_mtim/st_ctim).
ChecksumFileState ChecksumFileStateFrom(const struct stat& st);
// statx of `path` (following links) into *state; false with *error otherwise.
bool ReadChecksumFileState(const std::string& path, ChecksumFileState* state, std::string* error);
// The state of the regular file at `path` (a symbolic link is not followed)
// without opening it, when it is still the file `expected` names (device,
// inode and size as the walk saw them). Empty for anything else (gone,
// replaced, another size, not a regular file, a path too long for one
// lookup): the caller then opens the file, which reports the problem.
std::optional<ChecksumFileState> PeekChecksumFileState(const std::string& path,
                                                       const ExpectedFile* expected);

// <data folder>/data/checksums.sqlite (with its -wal and -shm beside it).
std::filesystem::path ChecksumCachePath(const AppPaths& paths);

struct ChecksumCacheOptions {
  // How long a statement waits for another Kelvor's lock before the cache
  // gives up (lookups: the cache is left alone for the run; stores: storing
  // stops for the run).
  std::chrono::milliseconds busyTimeout{250};
  // Stores are written in one transaction once this many are waiting, or when
  // the oldest waiting one is older than maxBatchAge, or on Flush.
  std::size_t batchSize = 256;
  std::chrono::milliseconds maxBatchAge{5000};
  // A state taken less than this after the file's ctime is not stored (see
  // ChecksumFileState::takenAtNs). Two seconds cover file systems that keep
  // times in whole or double seconds.
  std::chrono::milliseconds minStateAge{2000};
  // SQLite VFS to open the file with; empty for the default one. Tests give a
  // VFS that makes writes fail.
  std::string vfs;
  // Housekeeping in Finish: rows not read in the run and last used longer ago
  // than keepUnused are deleted; rows read in the run whose last use is older
  // than refreshUsedAfter are marked as used now. Zero turns either off.
  std::chrono::seconds keepUnused{std::chrono::hours(24 * 90)};
  std::chrono::seconds refreshUsedAfter{std::chrono::hours(24 * 7)};
};

class ChecksumCache {
 public:
  // Opens (creating when missing) the cache file `file`. A damaged file or one
  // that is not Kelvor's is moved aside to "<file>.damaged" and the cache made
  // afresh. Returns null when the search has to go without the cache (locked
  // by another Kelvor, a later Kelvor's schema, cannot be created or read);
  // *message then says why. On success *message may still hold a note for the
  // log (the file was rebuilt, or it can only be read). Texts come from
  // `texts`, which must outlive the cache.
  static std::unique_ptr<ChecksumCache> Open(const std::filesystem::path& file,
                                             const TextCatalog& texts, std::string* message,
                                             const ChecksumCacheOptions& options = {});

  // Deletes the cache file with its -wal, -shm and -journal. True when none of
  // them is left (also when there was none); else *error names the failure.
  // A Kelvor that still has the file open goes on with its own unlinked copy.
  static bool Clear(const std::filesystem::path& file, std::string* error);

  // Writes waiting stores, then closes.
  ~ChecksumCache();
  ChecksumCache(const ChecksumCache&) = delete;
  ChecksumCache& operator=(const ChecksumCache&) = delete;

  // The digest stored for exactly this key, or nothing. Never throws; a failure
  // is a miss and leaves a message (TakeMessages).
  std::optional<std::string> Lookup(const ChecksumKey& key);
  // Whether any row belongs to this device and inode: without one, asking
  // for the file's state is not worth a system call.
  bool HasRowsOf(std::uint64_t device, std::uint64_t inode);
  // Remembers the digest for the key; written with the next batch. Ignored
  // once storing has stopped, and for states taken too soon after their ctime.
  // An older row of the same device and inode (other size or times) is
  // replaced.
  void Store(const ChecksumKey& key, std::string_view digest);
  // Writes every waiting store now (one transaction).
  void Flush();
  // The end of a run: writes waiting stores, then does the housekeeping
  // (see keepUnused) in one transaction. Later calls do nothing.
  void Finish();

  // The problems met since the last call, each at most once per run, as texts
  // for the run's log. Any thread; meant for the one that logs.
  std::vector<std::string> TakeMessages();

  // False once lookups have been given up for this run (damage that could
  // not be repaired, a lock, a read failure).
  bool Usable() const { return usable_.load(std::memory_order_relaxed); }
  // False once stores have been given up for this run.
  bool Storing() const { return storing_.load(std::memory_order_relaxed); }

  std::int64_t Hits() const { return hits_.load(std::memory_order_relaxed); }
  std::int64_t Misses() const { return misses_.load(std::memory_order_relaxed); }
  // Rows written (committed).
  std::int64_t Stored() const { return stored_.load(std::memory_order_relaxed); }
  // Stores refused because the state was taken too close to its ctime.
  std::int64_t SkippedFresh() const { return skippedFresh_.load(std::memory_order_relaxed); }
  // Rows read from the file when it was opened.
  std::int64_t Loaded() const { return loaded_.load(std::memory_order_relaxed); }
  // Rows deleted by Finish's housekeeping.
  std::int64_t Pruned() const { return pruned_.load(std::memory_order_relaxed); }

  // One log line with the counters: "Prüfsummen-Cache: ... Treffer, ...".
  std::string Summary(const TextCatalog& texts) const;

  // The schema this build writes (PRAGMA user_version). Raise it whenever what
  // a digest covers or how it is made changes: older files are then rebuilt.
  static constexpr int kSchemaVersion = 1;
  // PRAGMA application_id of a Kelvor checksum cache ("KVCC").
  static constexpr std::int32_t kApplicationId = 0x4B564343;

 private:
  struct Pending {
    ChecksumKey key;
    std::string digest;
    bool replaces = false;  // rows of an earlier state of the file are to go
  };
  // The primary key of a row: what identifies a digest apart from the file's
  // state, which is checked on every lookup.
  struct RowKey {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int32_t cutStart = 0;
    std::int32_t cutEnd = 0;
    std::uint32_t spanBytes = 0;
    std::uint8_t mode = 0;
    std::uint8_t cuts = 0;
    std::uint8_t span = 0;
    bool operator==(const RowKey&) const = default;
  };
  // A row in memory; its digest lives in digests_.
  struct Row {
    std::int64_t size = 0;
    std::int64_t mtimeNs = 0;
    std::int64_t ctimeNs = 0;
    std::int64_t storedAt = 0;  // seconds since the epoch: last store or refresh
    std::uint32_t digestAt = 0;
    std::uint8_t digestLength = 0;
    bool used = false;     // read in this run
    bool written = false;  // in the file (false while its store waits)
  };
  // An open-addressing table of rows (linear probing over an index of
  // entry numbers): one flat array, no allocation per row.
  class RowTable {
   public:
    void Clear();
    void Reserve(std::size_t rows);
    Row* Find(const RowKey& key);
    Row& Insert(const RowKey& key);  // finds or adds
    void Erase(const RowKey& key);
    // The keys of the rows of one file (device and inode), whatever their
    // digest kind and range. All of them hash to one home slot.
    std::vector<RowKey> RowsOf(std::uint64_t device, std::uint64_t inode) const;
    bool HasRowsOf(std::uint64_t device, std::uint64_t inode) const;
    std::size_t Size() const { return live_; }
    template <typename F>
    void ForEach(F&& f) {
      for (Entry& e : entries_)
        if (e.live) f(static_cast<const RowKey&>(e.key), e.row);
    }

   private:
    struct Entry {
      RowKey key;
      Row row;
      bool live = true;
    };
    std::size_t Slot(const RowKey& key) const { return Slot(key.device, key.inode); }
    std::size_t Slot(std::uint64_t device, std::uint64_t inode) const;
    void Rehash(std::size_t slots);
    std::vector<Entry> entries_;
    std::vector<std::uint32_t> index_;  // entry number + 1, 0 for a free slot
    std::size_t live_ = 0;
  };
  static RowKey KeyOf(const ChecksumKey& key);
  enum class OpenResult { kOk, kDamaged, kLocked, kLaterSchema, kFailed };

  ChecksumCache(std::filesystem::path file, const TextCatalog& texts,
                const ChecksumCacheOptions& options);
  // Opens the connection and settles the schema; on failure closes it again
  // and sets *why (the library's text) and, for kLaterSchema, *schema.
  OpenResult OpenConnection(std::string* why, int* schema);
  void CloseConnection();
  // Closes, moves the damaged file aside, opens afresh. Caller holds mu_.
  bool Rebuild(const std::string& why);
  // Reacts to a failed library call: damage rebuilds, anything else stops
  // lookups (lookup) or stores (write). Caller holds mu_.
  void Fail(int rc, bool whileWriting);
  // Reads every row into rows_; SQLITE_OK, or the failing code (with *why
  // "row check failed" for a row whose check value does not match).
  int LoadRows(std::string* why);
  // Puts a row into rows_, dropping the rows of other states of the same
  // file; true when there were such rows (or one of this key).
  bool Remember(const RowKey& key, const ChecksumFileState& file, std::string_view digest,
                std::int64_t storedAt, bool written);
  void WriteBatch();     // caller holds mu_
  void ForgetPending();  // drops waiting stores, from rows_ too; caller holds mu_
  void Housekeep();      // caller holds mu_
  void StopStoring(const std::string& why);
  // A write transaction failed with `rc`: rolls it back, then rebuilds a
  // damaged file or stops storing for the run. Caller holds mu_.
  void FailedTransaction(int rc);
  void StopUsing(std::string message);
  void Note(std::string message);  // caller holds mu_

  const std::filesystem::path file_;
  const TextCatalog& texts_;
  const ChecksumCacheOptions opt_;

  std::mutex mu_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* dropStale_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  RowTable rows_;
  std::string digests_;  // the digests of rows_, one after the other
  std::vector<Pending> pending_;
  bool finished_ = false;
  std::chrono::steady_clock::time_point pendingSince_{};
  std::vector<std::string> messages_;
  bool rebuiltOnce_ = false;

  std::atomic<bool> usable_{true};
  std::atomic<bool> storing_{true};
  std::atomic<std::int64_t> hits_{0}, misses_{0}, stored_{0}, skippedFresh_{0}, loaded_{0},
      pruned_{0};
};

}  // namespace kelvor
