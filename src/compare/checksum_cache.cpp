#include "compare/checksum_cache.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>

#include "data/file_system.h"
#include "frame/app_paths.h"
#include "frame/error_text.h"
#include "frame/texts.h"

namespace kelvor {

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

namespace {

// One row per file identity, digest kind and range; the file's size and times
// are values checked on every lookup, so that a changed file misses and its
// next store replaces the row (see kDropStaleSql).
constexpr const char* kCreateSql =
    "DROP TABLE IF EXISTS checksums;"
    "CREATE TABLE checksums("
    " device INTEGER NOT NULL,"
    " inode INTEGER NOT NULL,"
    " mode INTEGER NOT NULL,"  // ContentCompare
    " cuts INTEGER NOT NULL,"  // 1 MP3 cuts, 2 Exif cuts (bits)
    " cut_start INTEGER NOT NULL,"
    " cut_end INTEGER NOT NULL,"
    " span INTEGER NOT NULL,"  // 0 whole range, 1 first span_bytes bytes
    " span_bytes INTEGER NOT NULL,"
    " size INTEGER NOT NULL,"
    " mtime_ns INTEGER NOT NULL,"
    " ctime_ns INTEGER NOT NULL,"
    " digest BLOB NOT NULL,"
    " stored_at INTEGER NOT NULL,"    // seconds since the epoch, for pruning
    " check_value INTEGER NOT NULL,"  // RowCheck of key and digest
    " PRIMARY KEY(device, inode, mode, cuts, cut_start, cut_end, span, span_bytes)"
    ") WITHOUT ROWID;";

// Every row, read once when the cache is opened.
constexpr const char* kLoadSql =
    "SELECT device, inode, mode, cuts, cut_start, cut_end, span, span_bytes, size, mtime_ns,"
    " ctime_ns, digest, stored_at, check_value FROM checksums";

// Rows of an earlier state of the same file are of no use any more.
constexpr const char* kDropStaleSql =
    "DELETE FROM checksums WHERE device=?1 AND inode=?2"
    " AND (size<>?3 OR mtime_ns<>?4 OR ctime_ns<>?5)";

constexpr const char* kInsertSql =
    "INSERT OR REPLACE INTO checksums VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12,?13,?14)";

// Housekeeping; the state in the condition keeps a row that another Kelvor
// replaced meanwhile.
constexpr const char* kPruneSql =
    "DELETE FROM checksums WHERE device=?1 AND inode=?2 AND mode=?3 AND cuts=?4 AND cut_start=?5"
    " AND cut_end=?6 AND span=?7 AND span_bytes=?8 AND size=?9 AND mtime_ns=?10 AND ctime_ns=?11";
constexpr const char* kRefreshSql =
    "UPDATE checksums SET stored_at=?12 WHERE device=?1 AND inode=?2 AND mode=?3 AND cuts=?4"
    " AND cut_start=?5 AND cut_end=?6 AND span=?7 AND span_bytes=?8 AND size=?9 AND mtime_ns=?10"
    " AND ctime_ns=?11";

constexpr const char* kDamagedSuffix = ".damaged";

std::int64_t ToNs(std::int64_t sec, std::int64_t nsec) {
  // Unsigned arithmetic: a nonsense time wraps instead of being undefined.
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(sec) * 1000000000ull +
                                   static_cast<std::uint64_t>(nsec));
}

std::int64_t NowRealtimeNs() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return ToNs(ts.tv_sec, ts.tv_nsec);
}

int Cuts(const HashRange& r) {
  return (r.useMp3Cuts ? 1 : 0) | (r.useExifCuts ? 2 : 0);
}

// FNV-1a over every stored field of a row: a row whose bytes changed on disk
// without SQLite noticing is caught before its digest is used.
class RowCheck {
 public:
  void Add(std::int64_t v) {
    for (int i = 0; i < 8; ++i)
      Byte(static_cast<unsigned char>(static_cast<std::uint64_t>(v) >> (8 * i)));
  }
  void Add(std::string_view s) {
    Add(static_cast<std::int64_t>(s.size()));
    for (char c : s) Byte(static_cast<unsigned char>(c));
  }
  std::int64_t Value() const { return static_cast<std::int64_t>(h_); }

 private:
  void Byte(unsigned char b) {
    h_ ^= b;
    h_ *= 0x100000001b3ull;
  }
  std::uint64_t h_ = 0xcbf29ce484222325ull;
};

std::int64_t CheckOf(const ChecksumKey& k, std::string_view digest) {
  RowCheck c;
  c.Add(static_cast<std::int64_t>(k.file.device));
  c.Add(static_cast<std::int64_t>(k.file.inode));
  c.Add(k.mode);
  c.Add(Cuts(k.range));
  c.Add(k.range.cutFromStart);
  c.Add(k.range.cutFromEnd);
  c.Add(static_cast<std::int64_t>(k.span));
  c.Add(static_cast<std::int64_t>(k.prefixBytes));
  c.Add(k.file.size);
  c.Add(k.file.mtimeNs);
  c.Add(k.file.ctimeNs);
  c.Add(digest);
  return c.Value();
}

// Binds ?1..?8, the primary key.
void BindKey(sqlite3_stmt* st, const ChecksumKey& k) {
  sqlite3_bind_int64(st, 1, static_cast<sqlite3_int64>(k.file.device));
  sqlite3_bind_int64(st, 2, static_cast<sqlite3_int64>(k.file.inode));
  sqlite3_bind_int(st, 3, k.mode);
  sqlite3_bind_int(st, 4, Cuts(k.range));
  sqlite3_bind_int(st, 5, k.range.cutFromStart);
  sqlite3_bind_int(st, 6, k.range.cutFromEnd);
  sqlite3_bind_int(st, 7, static_cast<int>(k.span));
  sqlite3_bind_int64(st, 8, static_cast<sqlite3_int64>(k.prefixBytes));
}

bool IsDamage(int rc) {
  const int primary = rc & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

bool IsLock(int rc) {
  const int primary = rc & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

fs::path WithSuffix(const fs::path& file, const char* suffix) {
  fs::path p = file;
  p += suffix;
  return p;
}

// Runs one statement that returns at most one integer (PRAGMA ...). SQLITE_OK
// with *value set (0 when there is no row), or the failing code.
int QueryInt(sqlite3* db, const char* sql, std::int64_t* value) {
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
  if (rc != SQLITE_OK) return rc;
  *value = 0;
  rc = sqlite3_step(st);
  if (rc == SQLITE_ROW) {
    *value = sqlite3_column_int64(st, 0);
    rc = SQLITE_OK;
  } else if (rc == SQLITE_DONE) {
    rc = SQLITE_OK;
  }
  sqlite3_finalize(st);
  return rc;
}

int QueryText(sqlite3* db, const char* sql, std::string* value) {
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
  if (rc != SQLITE_OK) return rc;
  value->clear();
  rc = sqlite3_step(st);
  if (rc == SQLITE_ROW) {
    if (const unsigned char* t = sqlite3_column_text(st, 0))
      *value = reinterpret_cast<const char*>(t);
    rc = SQLITE_OK;
  } else if (rc == SQLITE_DONE) {
    rc = SQLITE_OK;
  }
  sqlite3_finalize(st);
  return rc;
}

}  // namespace

std::optional<ChecksumFileState> ChecksumFileStateFrom(const struct statx& st) {
  constexpr unsigned kNeeded = STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME;
  if ((st.stx_mask & kNeeded) != kNeeded) return std::nullopt;
  ChecksumFileState s;
  s.device = makedev(st.stx_dev_major, st.stx_dev_minor);
  s.inode = st.stx_ino;
  s.size = static_cast<std::int64_t>(st.stx_size);
  s.mtimeNs = ToNs(st.stx_mtime.tv_sec, st.stx_mtime.tv_nsec);
  s.ctimeNs = ToNs(st.stx_ctime.tv_sec, st.stx_ctime.tv_nsec);
  s.takenAtNs = NowRealtimeNs();
  return s;
}

ChecksumFileState ChecksumFileStateFrom(const struct stat& st) {
  ChecksumFileState s;
  s.device = st.st_dev;
  s.inode = st.st_ino;
  s.size = st.st_size;
  s.mtimeNs = ToNs(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  s.ctimeNs = ToNs(st.st_ctim.tv_sec, st.st_ctim.tv_nsec);
  s.takenAtNs = NowRealtimeNs();
  return s;
}

bool ReadChecksumFileState(const std::string& path, ChecksumFileState* state, std::string* error) {
  struct statx st {};
  if (xStatAt(AT_FDCWD, path.c_str(), true, STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME,
              &st) != 0) {
    if (error) *error = ErrorText(errno);
    return false;
  }
  auto s = ChecksumFileStateFrom(st);
  if (!s) {
    if (error) *error = "statx: inode, size or times not reported";
    return false;
  }
  *state = *s;
  return true;
}

std::optional<ChecksumFileState> PeekChecksumFileState(const std::string& path,
                                                       const ExpectedFile* expected) {
  constexpr unsigned kMask = STATX_TYPE | STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME;
  struct statx st {};
  if (path.empty() ||
      statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kMask, &st) != 0 ||
      !(st.stx_mask & STATX_TYPE) || !S_ISREG(st.stx_mode))
    return std::nullopt;
  auto s = ChecksumFileStateFrom(st);
  if (!s) return std::nullopt;
  if (expected) {
    if ((expected->device != 0 || expected->inode != 0) &&
        (s->device != expected->device || s->inode != expected->inode))
      return std::nullopt;
    if (expected->size >= 0 && s->size != expected->size) return std::nullopt;
  }
  return s;
}

fs::path ChecksumCachePath(const AppPaths& paths) {
  return paths.dataSubFolder / "checksums.sqlite";
}

ChecksumCache::ChecksumCache(fs::path file, const TextCatalog& texts,
                             const ChecksumCacheOptions& options)
    : file_(std::move(file)), texts_(texts), opt_(options) {}

std::size_t ChecksumCache::RowTable::Slot(std::uint64_t device, std::uint64_t inode) const {
  // Only the file's identity: the rows of one file share a probe run, so that
  // RowsOf finds them all. Inodes of one folder are close together; the
  // multiply-and-fold spreads them.
  std::uint64_t h = (inode ^ (device * 0xC2B2AE3D27D4EB4Full)) * 0x9E3779B97F4A7C15ull;
  h ^= h >> 29;
  return static_cast<std::size_t>(h) & (index_.size() - 1);
}

bool ChecksumCache::RowTable::HasRowsOf(std::uint64_t device, std::uint64_t inode) const {
  if (index_.empty()) return false;
  const std::size_t mask = index_.size() - 1;
  for (std::size_t s = Slot(device, inode); index_[s] != 0; s = (s + 1) & mask) {
    const Entry& e = entries_[index_[s] - 1];
    if (e.key.device == device && e.key.inode == inode) return true;
  }
  return false;
}

std::vector<ChecksumCache::RowKey> ChecksumCache::RowTable::RowsOf(std::uint64_t device,
                                                                   std::uint64_t inode) const {
  std::vector<RowKey> out;
  if (index_.empty()) return out;
  const std::size_t mask = index_.size() - 1;
  for (std::size_t s = Slot(device, inode); index_[s] != 0; s = (s + 1) & mask) {
    const Entry& e = entries_[index_[s] - 1];
    if (e.key.device == device && e.key.inode == inode) out.push_back(e.key);
  }
  return out;
}

void ChecksumCache::RowTable::Clear() {
  entries_.clear();
  index_.clear();
  live_ = 0;
}

void ChecksumCache::RowTable::Reserve(std::size_t rows) {
  if (rows * 2 > index_.size()) Rehash(rows * 2);
  entries_.reserve(rows);
}

void ChecksumCache::RowTable::Rehash(std::size_t slots) {
  std::size_t n = 16;
  while (n < slots) n *= 2;
  // Erased entries are dropped on the way.
  std::vector<Entry> kept;
  kept.reserve(std::max(live_, entries_.capacity()));
  for (Entry& e : entries_)
    if (e.live) kept.push_back(std::move(e));
  entries_.swap(kept);
  index_.assign(n, 0);
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    std::size_t s = Slot(entries_[i].key);
    while (index_[s] != 0) s = (s + 1) & (n - 1);
    index_[s] = static_cast<std::uint32_t>(i + 1);
  }
}

ChecksumCache::Row* ChecksumCache::RowTable::Find(const RowKey& key) {
  if (index_.empty()) return nullptr;
  const std::size_t mask = index_.size() - 1;
  for (std::size_t s = Slot(key);; s = (s + 1) & mask) {
    const std::uint32_t at = index_[s];
    if (at == 0) return nullptr;
    Entry& e = entries_[at - 1];
    if (e.key == key) return &e.row;
  }
}

ChecksumCache::Row& ChecksumCache::RowTable::Insert(const RowKey& key) {
  if (Row* r = Find(key)) return *r;
  // At most half the slots in use, erased entries counted until a rehash.
  if ((entries_.size() + 1) * 2 > index_.size()) Rehash((live_ + 1) * 4);
  const std::size_t mask = index_.size() - 1;
  std::size_t s = Slot(key);
  while (index_[s] != 0) s = (s + 1) & mask;
  entries_.push_back(Entry{key, Row{}, true});
  index_[s] = static_cast<std::uint32_t>(entries_.size());
  ++live_;
  return entries_.back().row;
}

void ChecksumCache::RowTable::Erase(const RowKey& key) {
  if (index_.empty()) return;
  const std::size_t mask = index_.size() - 1;
  std::size_t s = Slot(key);
  for (;; s = (s + 1) & mask) {
    const std::uint32_t at = index_[s];
    if (at == 0) return;
    if (entries_[at - 1].key == key) break;
  }
  entries_[index_[s] - 1].live = false;
  --live_;
  // Backward shift: later members of the probe run move up into the gap, so
  // that no search stops early at it.
  std::size_t gap = s;
  for (std::size_t j = (gap + 1) & mask; index_[j] != 0; j = (j + 1) & mask) {
    const std::size_t home = Slot(entries_[index_[j] - 1].key);
    // Does j's run pass over the gap? (cyclic: home not in (gap, j])
    const bool passes = gap <= j ? (home <= gap || home > j) : (home <= gap && home > j);
    if (passes) {
      index_[gap] = index_[j];
      gap = j;
    }
  }
  index_[gap] = 0;
}

ChecksumCache::RowKey ChecksumCache::KeyOf(const ChecksumKey& key) {
  RowKey k;
  k.device = key.file.device;
  k.inode = key.file.inode;
  k.cutStart = key.range.cutFromStart;
  k.cutEnd = key.range.cutFromEnd;
  k.spanBytes = key.prefixBytes;
  k.mode = static_cast<std::uint8_t>(key.mode);
  k.cuts = static_cast<std::uint8_t>(Cuts(key.range));
  k.span = static_cast<std::uint8_t>(key.span);
  return k;
}

ChecksumCache::~ChecksumCache() {
  std::lock_guard<std::mutex> lock(mu_);
  WriteBatch();
  CloseConnection();
}

std::unique_ptr<ChecksumCache> ChecksumCache::Open(const fs::path& file, const TextCatalog& texts,
                                                   std::string* message,
                                                   const ChecksumCacheOptions& options) {
  std::string local;
  std::string* msg = message ? message : &local;
  msg->clear();
  const std::string shown = file.string();
  std::unique_ptr<ChecksumCache> c(new ChecksumCache(file, texts, options));
  std::lock_guard<std::mutex> lock(c->mu_);

  std::string why;
  int schema = 0;
  OpenResult r = c->OpenConnection(&why, &schema);
  if (r == OpenResult::kDamaged) {
    if (!c->Rebuild(why)) {
      *msg = c->messages_.empty() ? texts.Get(txt::T9100, {shown, why}) : c->messages_.back();
      return nullptr;
    }
    *msg = c->messages_.back();
    c->messages_.clear();
    return c;
  }
  switch (r) {
    case OpenResult::kOk:
      if (!c->messages_.empty()) {
        *msg = c->messages_.back();
        c->messages_.clear();
      }
      return c;
    case OpenResult::kLocked:
      *msg = texts.Get(txt::T9102, {shown});
      return nullptr;
    case OpenResult::kLaterSchema:
      *msg = texts.Get(txt::T9104, {shown, std::to_string(schema)});
      return nullptr;
    default:
      *msg = texts.Get(txt::T9100, {shown, why});
      return nullptr;
  }
}

ChecksumCache::OpenResult ChecksumCache::OpenConnection(std::string* why, int* schema) {
  std::error_code ec;
  // A folder that cannot be made shows in the open's own error below.
  if (!fs::exists(file_, ec)) xCreatePath_W(file_.parent_path().string());

  auto fail = [&](int rc, OpenResult kind) {
    *why = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
    if (kind == OpenResult::kFailed) {
      if (IsDamage(rc)) kind = OpenResult::kDamaged;
      if (IsLock(rc)) kind = OpenResult::kLocked;
    }
    CloseConnection();
    return kind;
  };

  int rc = sqlite3_open_v2(file_.c_str(), &db_,
                           SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                           opt_.vfs.empty() ? nullptr : opt_.vfs.c_str());
  if (rc != SQLITE_OK) return fail(rc, OpenResult::kFailed);
  sqlite3_busy_timeout(db_, static_cast<int>(opt_.busyTimeout.count()));

  // The header first: a file that is no database at all fails here.
  std::int64_t appId = 0, version = 0, tables = 0;
  if ((rc = QueryInt(db_, "PRAGMA application_id", &appId)) != SQLITE_OK ||
      (rc = QueryInt(db_, "PRAGMA user_version", &version)) != SQLITE_OK ||
      (rc = QueryInt(db_, "SELECT count(*) FROM sqlite_schema", &tables)) != SQLITE_OK)
    return fail(rc, OpenResult::kFailed);

  const bool fresh = appId == 0 && version == 0 && tables == 0;
  if (!fresh && appId != kApplicationId) {
    *why = "not a Kelvor checksum cache";
    CloseConnection();
    return OpenResult::kDamaged;
  }
  if (!fresh && version > kSchemaVersion) {
    *schema = static_cast<int>(version);
    *why = "schema " + std::to_string(version);
    CloseConnection();
    return OpenResult::kLaterSchema;
  }

  // WAL: readers never wait for the writer, and a crash in the middle of a
  // batch leaves the last committed state.
  std::string journal;
  if ((rc = QueryText(db_, "PRAGMA journal_mode=WAL", &journal)) != SQLITE_OK)
    return fail(rc, OpenResult::kFailed);
  if (journal != "wal") {
    *why = "journal mode " + journal;
    CloseConnection();
    return OpenResult::kFailed;
  }
  // synchronous=NORMAL: with WAL a crash can lose the last batches but never
  // damages the file; only checkpoints wait for the disk. Checkpoints every
  // 16 MiB of log rather than 4 halve the cost of stores that replace rows
  // all over the file (the log is folded in and removed on close). A larger
  // page cache keeps most of a few hundred thousand rows in memory.
  if ((rc = sqlite3_exec(db_,
                         "PRAGMA synchronous=NORMAL; PRAGMA cache_size=-16384;"
                         "PRAGMA wal_autocheckpoint=4096",
                         nullptr, nullptr, nullptr)) != SQLITE_OK)
    return fail(rc, OpenResult::kFailed);

  if (fresh || version < kSchemaVersion) {
    // A new file, or one of an older Kelvor whose digests may cover other
    // bytes: made afresh.
    const std::string sql = std::string("BEGIN IMMEDIATE;") + kCreateSql +
                            "PRAGMA application_id=" + std::to_string(kApplicationId) +
                            ";PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";COMMIT;";
    rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) {
      if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      return fail(rc, OpenResult::kFailed);
    }
  }

  // A table of another shape under Kelvor's header is damage too.
  if ((rc = sqlite3_prepare_v3(db_, kDropStaleSql, -1, SQLITE_PREPARE_PERSISTENT, &dropStale_,
                               nullptr)) != SQLITE_OK ||
      (rc = sqlite3_prepare_v3(db_, kInsertSql, -1, SQLITE_PREPARE_PERSISTENT, &insert_,
                               nullptr)) != SQLITE_OK) {
    const OpenResult kind =
        (rc & 0xff) == SQLITE_ERROR ? OpenResult::kDamaged : OpenResult::kFailed;
    return fail(rc, kind);
  }
  if ((rc = LoadRows(why)) != SQLITE_OK) {
    if (rc == SQLITE_CORRUPT && !why->empty()) {
      CloseConnection();
      return OpenResult::kDamaged;
    }
    const OpenResult kind =
        (rc & 0xff) == SQLITE_ERROR ? OpenResult::kDamaged : OpenResult::kFailed;
    return fail(rc, kind);
  }
  return OpenResult::kOk;
}

int ChecksumCache::LoadRows(std::string* why) {
  why->clear();
  rows_.Clear();
  digests_.clear();
  // Room for the rows the file can hold (about 85 bytes a row), so that the
  // table is not rebuilt on the way.
  std::int64_t pages = 0, pageSize = 0;
  if (QueryInt(db_, "PRAGMA page_count", &pages) == SQLITE_OK &&
      QueryInt(db_, "PRAGMA page_size", &pageSize) == SQLITE_OK && pages > 0 && pageSize > 0)
    rows_.Reserve(static_cast<std::size_t>(pages * pageSize / 80));
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db_, kLoadSql, -1, &st, nullptr);
  if (rc != SQLITE_OK) return rc;
  std::int64_t count = 0;
  while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    ChecksumKey k;
    k.file.device = static_cast<std::uint64_t>(sqlite3_column_int64(st, 0));
    k.file.inode = static_cast<std::uint64_t>(sqlite3_column_int64(st, 1));
    k.mode = sqlite3_column_int(st, 2);
    const int cuts = sqlite3_column_int(st, 3);
    k.range.useMp3Cuts = (cuts & 1) != 0;
    k.range.useExifCuts = (cuts & 2) != 0;
    k.range.cutFromStart = sqlite3_column_int(st, 4);
    k.range.cutFromEnd = sqlite3_column_int(st, 5);
    k.span = static_cast<ChecksumSpan>(sqlite3_column_int(st, 6));
    k.prefixBytes = static_cast<std::uint32_t>(sqlite3_column_int64(st, 7));
    k.file.size = sqlite3_column_int64(st, 8);
    k.file.mtimeNs = sqlite3_column_int64(st, 9);
    k.file.ctimeNs = sqlite3_column_int64(st, 10);
    const void* blob = sqlite3_column_blob(st, 11);
    const int blobLen = sqlite3_column_bytes(st, 11);
    const std::string_view digest(static_cast<const char*>(blob),
                                  blob ? static_cast<std::size_t>(blobLen) : 0);
    const std::int64_t storedAt = sqlite3_column_int64(st, 12);
    const std::int64_t check = sqlite3_column_int64(st, 13);
    // A row that fails its check, or one this build could not have written,
    // means the file was changed behind SQLite's back: nothing in it is
    // trusted.
    if (digest.empty() || digest.size() > 255 || cuts < 0 || cuts > 3 || k.mode < 0 ||
        k.mode > 255 || check != CheckOf(k, digest)) {
      *why = "row check failed";
      rc = SQLITE_CORRUPT;
      break;
    }
    Remember(KeyOf(k), k.file, digest, storedAt, true);
    ++count;
  }
  sqlite3_finalize(st);
  if (rc != SQLITE_DONE) {
    rows_.Clear();
    digests_.clear();
    return rc;
  }
  loaded_.store(count, std::memory_order_relaxed);
  // The scan filled SQLite's page cache with the whole file; lookups no
  // longer need it.
  sqlite3_db_release_memory(db_);
  return SQLITE_OK;
}

bool ChecksumCache::Remember(const RowKey& key, const ChecksumFileState& file,
                             std::string_view digest, std::int64_t storedAt, bool written) {
  // Rows of an earlier state of the same file are of no use any more (the
  // file's batch deletes them from the file as well).
  bool replaces = false;
  for (const RowKey& other : rows_.RowsOf(key.device, key.inode)) {
    const Row* o = rows_.Find(other);
    if (!o) continue;
    if (o->size != file.size || o->mtimeNs != file.mtimeNs || o->ctimeNs != file.ctimeNs) {
      rows_.Erase(other);
      replaces = true;
    } else if (other == key) {
      replaces = true;
    }
  }
  // Offsets are 32 bits: past 4 GiB of digests a row is simply not kept.
  if (digests_.size() + digest.size() > UINT32_MAX) return true;
  Row& r = rows_.Insert(key);
  r.size = file.size;
  r.mtimeNs = file.mtimeNs;
  r.ctimeNs = file.ctimeNs;
  r.storedAt = storedAt;
  r.digestAt = static_cast<std::uint32_t>(digests_.size());
  r.digestLength = static_cast<std::uint8_t>(digest.size());
  r.written = written;
  digests_.append(digest);
  return replaces;
}

void ChecksumCache::CloseConnection() {
  for (sqlite3_stmt** st : {&dropStale_, &insert_}) {
    sqlite3_finalize(*st);
    *st = nullptr;
  }
  if (db_) sqlite3_close_v2(db_);
  db_ = nullptr;
}

bool ChecksumCache::Rebuild(const std::string& why) {
  const std::string shown = file_.string();
  pending_.clear();
  CloseConnection();
  if (rebuiltOnce_) {
    // Damaged again in the same run: something keeps breaking the file.
    StopUsing(texts_.Get(txt::T9100, {shown, why}));
    return false;
  }
  rebuiltOnce_ = true;

  // The damaged file goes aside (replacing an older one); its log goes with
  // it, since played into a fresh file it would do harm.
  const fs::path aside = WithSuffix(file_, kDamagedSuffix);
  std::error_code ec;
  for (const char* s : {"-wal", "-shm", "-journal"}) fs::remove(WithSuffix(aside, s), ec);
  fs::rename(file_, aside, ec);
  if (ec) {
    std::error_code ec2;
    if (!fs::remove(file_, ec2) && ec2) {
      StopUsing(texts_.Get(txt::T9100, {shown, why + "; " + ErrorText(ec)}));
      return false;
    }
  }
  fs::rename(WithSuffix(file_, "-wal"), WithSuffix(aside, "-wal"), ec);
  for (const char* s : {"-wal", "-shm", "-journal"}) fs::remove(WithSuffix(file_, s), ec);

  std::string why2;
  int schema = 0;
  if (OpenConnection(&why2, &schema) != OpenResult::kOk) {
    StopUsing(texts_.Get(txt::T9100, {shown, why2}));
    return false;
  }
  Note(texts_.Get(txt::T9101, {shown, aside.string(), why}));
  return true;
}

void ChecksumCache::Note(std::string message) {
  for (const auto& m : messages_) {
    if (m == message) return;
  }
  messages_.push_back(std::move(message));
}

void ChecksumCache::StopUsing(std::string message) {
  storing_.store(false, std::memory_order_relaxed);
  if (usable_.exchange(false, std::memory_order_relaxed)) Note(std::move(message));
  pending_.clear();
  rows_.Clear();
  digests_.clear();
  CloseConnection();
}

void ChecksumCache::FailedTransaction(int rc) {
  const std::string why = sqlite3_errmsg(db_);
  if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  if (IsDamage(rc)) {
    Rebuild(why);
  } else {
    StopStoring(why);
  }
}

void ChecksumCache::StopStoring(const std::string& why) {
  ForgetPending();
  if (storing_.exchange(false, std::memory_order_relaxed))
    Note(texts_.Get(txt::T9103, {file_.string(), why}));
}

void ChecksumCache::Fail(int rc, bool whileWriting) {
  const std::string why = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
  if (IsDamage(rc)) {
    Rebuild(why);
  } else if (whileWriting) {
    StopStoring(why);
  } else if (IsLock(rc)) {
    StopUsing(texts_.Get(txt::T9102, {file_.string()}));
  } else {
    StopUsing(texts_.Get(txt::T9100, {file_.string(), why}));
  }
}

std::optional<std::string> ChecksumCache::Lookup(const ChecksumKey& key) {
  if (!usable_.load(std::memory_order_relaxed)) {
    misses_.fetch_add(1, std::memory_order_relaxed);
    return std::nullopt;
  }
  const RowKey rowKey = KeyOf(key);
  std::optional<std::string> found;
  {
    std::lock_guard<std::mutex> lock(mu_);
    Row* row = rows_.Find(rowKey);
    if (row && usable_.load(std::memory_order_relaxed)) {
      Row& r = *row;
      if (r.size == key.file.size && r.mtimeNs == key.file.mtimeNs &&
          r.ctimeNs == key.file.ctimeNs) {
        r.used = true;
        found.emplace(digests_, r.digestAt, r.digestLength);
      }
    }
  }
  (found ? hits_ : misses_).fetch_add(1, std::memory_order_relaxed);
  return found;
}

bool ChecksumCache::HasRowsOf(std::uint64_t device, std::uint64_t inode) {
  if (!usable_.load(std::memory_order_relaxed)) return false;
  std::lock_guard<std::mutex> lock(mu_);
  return rows_.HasRowsOf(device, inode);
}

void ChecksumCache::Store(const ChecksumKey& key, std::string_view digest) {
  if (!storing_.load(std::memory_order_relaxed) || digest.empty() || digest.size() > 255) return;
  const std::int64_t minAgeNs =
      std::chrono::duration_cast<std::chrono::nanoseconds>(opt_.minStateAge).count();
  if (minAgeNs > 0 && key.file.takenAtNs - key.file.ctimeNs < minAgeNs) {
    skippedFresh_.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  std::lock_guard<std::mutex> lock(mu_);
  if (!db_ || !storing_.load(std::memory_order_relaxed)) return;
  const auto now = SteadyClock::now();
  if (pending_.empty()) pendingSince_ = now;
  // Answers lookups at once; written with its batch (and forgotten again
  // when that fails).
  const bool replaces =
      Remember(KeyOf(key), key.file, digest, static_cast<std::int64_t>(std::time(nullptr)), false);
  pending_.push_back({key, std::string(digest), replaces});
  if (pending_.size() >= opt_.batchSize || now - pendingSince_ >= opt_.maxBatchAge) WriteBatch();
}

void ChecksumCache::Flush() {
  std::lock_guard<std::mutex> lock(mu_);
  WriteBatch();
}

void ChecksumCache::Finish() {
  std::lock_guard<std::mutex> lock(mu_);
  WriteBatch();
  if (finished_) return;
  finished_ = true;
  Housekeep();
}

void ChecksumCache::Housekeep() {
  if (!db_ || !usable_.load(std::memory_order_relaxed) || !storing_.load(std::memory_order_relaxed))
    return;
  const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr));
  const std::int64_t keep = opt_.keepUnused.count(), refresh = opt_.refreshUsedAfter.count();
  std::vector<RowKey> drop, renew;
  rows_.ForEach([&](const RowKey& key, const Row& row) {
    if (!row.written) return;
    if (!row.used && keep > 0 && now - row.storedAt > keep) drop.push_back(key);
    if (row.used && refresh > 0 && now - row.storedAt > refresh) renew.push_back(key);
  });
  if (drop.empty() && renew.empty()) return;

  sqlite3_stmt* prune = nullptr;
  sqlite3_stmt* refreshSt = nullptr;
  int rc = sqlite3_prepare_v2(db_, kPruneSql, -1, &prune, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_prepare_v2(db_, kRefreshSql, -1, &refreshSt, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  auto run = [&](sqlite3_stmt* st, const RowKey& k) {
    const Row& r = *rows_.Find(k);
    sqlite3_bind_int64(st, 1, static_cast<sqlite3_int64>(k.device));
    sqlite3_bind_int64(st, 2, static_cast<sqlite3_int64>(k.inode));
    sqlite3_bind_int(st, 3, k.mode);
    sqlite3_bind_int(st, 4, k.cuts);
    sqlite3_bind_int(st, 5, k.cutStart);
    sqlite3_bind_int(st, 6, k.cutEnd);
    sqlite3_bind_int(st, 7, k.span);
    sqlite3_bind_int64(st, 8, static_cast<sqlite3_int64>(k.spanBytes));
    sqlite3_bind_int64(st, 9, r.size);
    sqlite3_bind_int64(st, 10, r.mtimeNs);
    sqlite3_bind_int64(st, 11, r.ctimeNs);
    if (st == refreshSt) sqlite3_bind_int64(st, 12, now);
    const int stepRc = sqlite3_step(st);
    sqlite3_reset(st);
    return stepRc == SQLITE_DONE ? SQLITE_OK : stepRc;
  };
  for (std::size_t i = 0; rc == SQLITE_OK && i < drop.size(); ++i) rc = run(prune, drop[i]);
  for (std::size_t i = 0; rc == SQLITE_OK && i < renew.size(); ++i) rc = run(refreshSt, renew[i]);
  if (rc == SQLITE_OK) rc = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_finalize(prune);
  sqlite3_finalize(refreshSt);
  if (rc != SQLITE_OK) {
    FailedTransaction(rc);
    return;
  }
  for (const RowKey& k : drop) rows_.Erase(k);
  for (const RowKey& k : renew) rows_.Find(k)->storedAt = now;
  pruned_.fetch_add(static_cast<std::int64_t>(drop.size()), std::memory_order_relaxed);
}

void ChecksumCache::ForgetPending() {
  for (const Pending& p : pending_) {
    const RowKey key = KeyOf(p.key);
    if (const Row* r = rows_.Find(key); r && !r->written) rows_.Erase(key);
  }
  pending_.clear();
}

void ChecksumCache::WriteBatch() {
  if (pending_.empty()) return;
  if (!db_ || !storing_.load(std::memory_order_relaxed)) {
    ForgetPending();
    return;
  }
  int rc = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) {
    Fail(rc, true);
    return;
  }
  const sqlite3_int64 storedAt = static_cast<sqlite3_int64>(std::time(nullptr));
  for (const Pending& p : pending_) {
    const ChecksumKey& k = p.key;
    // The table in memory holds what the file holds: where it had no row of
    // this file, the file has none either and the search for one is spared.
    if (p.replaces) {
      sqlite3_bind_int64(dropStale_, 1, static_cast<sqlite3_int64>(k.file.device));
      sqlite3_bind_int64(dropStale_, 2, static_cast<sqlite3_int64>(k.file.inode));
      sqlite3_bind_int64(dropStale_, 3, k.file.size);
      sqlite3_bind_int64(dropStale_, 4, k.file.mtimeNs);
      sqlite3_bind_int64(dropStale_, 5, k.file.ctimeNs);
      rc = sqlite3_step(dropStale_);
      sqlite3_reset(dropStale_);
      if (rc != SQLITE_DONE) break;
    }

    BindKey(insert_, k);
    sqlite3_bind_int64(insert_, 9, k.file.size);
    sqlite3_bind_int64(insert_, 10, k.file.mtimeNs);
    sqlite3_bind_int64(insert_, 11, k.file.ctimeNs);
    sqlite3_bind_blob(insert_, 12, p.digest.data(), static_cast<int>(p.digest.size()),
                      SQLITE_STATIC);
    sqlite3_bind_int64(insert_, 13, storedAt);
    sqlite3_bind_int64(insert_, 14, CheckOf(k, p.digest));
    rc = sqlite3_step(insert_);
    sqlite3_reset(insert_);
    sqlite3_clear_bindings(insert_);
    if (rc != SQLITE_DONE) break;
    rc = SQLITE_OK;
  }
  if (rc == SQLITE_OK) rc = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) {
    FailedTransaction(rc);
    return;
  }
  for (const Pending& p : pending_) {
    Row* r = rows_.Find(KeyOf(p.key));
    if (r && r->size == p.key.file.size && r->mtimeNs == p.key.file.mtimeNs &&
        r->ctimeNs == p.key.file.ctimeNs)
      r->written = true;
  }
  stored_.fetch_add(static_cast<std::int64_t>(pending_.size()), std::memory_order_relaxed);
  pending_.clear();
}

std::vector<std::string> ChecksumCache::TakeMessages() {
  std::lock_guard<std::mutex> lock(mu_);
  // Each problem is noted once: the flags that stop lookups and stores change
  // only once, and a rebuild happens at most once a run.
  std::vector<std::string> out;
  out.swap(messages_);
  return out;
}

std::string ChecksumCache::Summary(const TextCatalog& texts) const {
  return texts.Get(txt::T9107, {std::to_string(Hits()), std::to_string(Stored())});
}

bool ChecksumCache::Clear(const fs::path& file, std::string* error) {
  bool ok = true;
  std::string errors;
  const fs::path aside = WithSuffix(file, kDamagedSuffix);
  for (const fs::path& base : {file, aside}) {
    for (const char* s : {"", "-wal", "-shm", "-journal"}) {
      std::error_code ec;
      const fs::path p = WithSuffix(base, s);
      fs::remove(p, ec);
      if (ec) {
        ok = false;
        if (!errors.empty()) errors += "; ";
        errors += p.string() + ": " + ErrorText(ec);
      }
    }
  }
  if (!ok && error) *error = errors;
  return ok;
}

}  // namespace kelvor
