#include "compare/checksum_cache.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "frame/texts.h"
#include "support/temp_tree.h"

namespace kelvor::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr std::int64_t kSecond = 1000000000;
// File times well in the past, so that the fresh-state guard lets them through.
constexpr std::int64_t kOld = 1600000000 * kSecond;

ChecksumKey Key(std::uint64_t inode, int mode = kCompareSHA1) {
  ChecksumKey k;
  k.file.device = 2049;
  k.file.inode = inode;
  k.file.size = 100000 + static_cast<std::int64_t>(inode);
  k.file.mtimeNs = kOld + 123456789;
  k.file.ctimeNs = kOld + 223456789;
  k.file.takenAtNs = kOld + 1000 * kSecond;
  k.mode = mode;
  return k;
}

std::string DigestFor(std::uint64_t inode, std::size_t len = 20) {
  std::string d(len, '\0');
  for (std::size_t i = 0; i < len; ++i) d[i] = static_cast<char>((inode * 131 + i * 7) & 0xff);
  return d;
}

// A raw connection to the cache file: what another Kelvor, or another
// program, does to it.
class RawDb {
 public:
  explicit RawDb(const fs::path& file) {
    EXPECT_EQ(sqlite3_open(file.c_str(), &db_), SQLITE_OK);
    sqlite3_busy_timeout(db_, 100);
  }
  ~RawDb() { sqlite3_close_v2(db_); }
  int Exec(const std::string& sql) {
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
  }
  std::int64_t Int(const std::string& sql) {
    sqlite3_stmt* st = nullptr;
    std::int64_t v = -1;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) == SQLITE_OK &&
        sqlite3_step(st) == SQLITE_ROW)
      v = sqlite3_column_int64(st, 0);
    sqlite3_finalize(st);
    return v;
  }
  std::string Text(const std::string& sql) {
    sqlite3_stmt* st = nullptr;
    std::string v;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) == SQLITE_OK &&
        sqlite3_step(st) == SQLITE_ROW)
      v = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    sqlite3_finalize(st);
    return v;
  }

 private:
  sqlite3* db_ = nullptr;
};

// A VFS over the default one that can make the disk full or the folder
// read-only. Its state lives in the VFS's own data, one per test.
class FaultVfs {
 public:
  explicit FaultVfs(std::string name) : name_(std::move(name)) {
    real_ = sqlite3_vfs_find(nullptr);
    vfs_ = *real_;
    vfs_.zName = name_.c_str();
    vfs_.pAppData = this;
    vfs_.pNext = nullptr;
    vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
    vfs_.xOpen = &Open;
    vfs_.xDelete = &Delete;
    sqlite3_vfs_register(&vfs_, 0);
  }
  ~FaultVfs() { sqlite3_vfs_unregister(&vfs_); }
  const std::string& Name() const { return name_; }

  std::atomic<int> writeError{SQLITE_OK};  // returned by every write and truncate
  std::atomic<bool> noNewFiles{false};     // creating or deleting a file fails

 private:
  struct File {
    sqlite3_file base;
    FaultVfs* owner;
    sqlite3_file* real;
  };
  static File* F(sqlite3_file* f) { return reinterpret_cast<File*>(f); }
  static sqlite3_file* R(sqlite3_file* f) { return F(f)->real; }

  static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags,
                  int* outFlags) {
    auto* self = static_cast<FaultVfs*>(vfs->pAppData);
    File* f = F(file);
    f->base.pMethods = nullptr;
    f->owner = self;
    f->real = reinterpret_cast<sqlite3_file*>(f + 1);
    if (self->noNewFiles && name && (flags & SQLITE_OPEN_CREATE)) {
      int exists = 0;
      self->real_->xAccess(self->real_, name, SQLITE_ACCESS_EXISTS, &exists);
      if (!exists) return SQLITE_CANTOPEN;
    }
    int rc = self->real_->xOpen(self->real_, name, f->real, flags, outFlags);
    if (rc == SQLITE_OK) {
      self->methods_ = *f->real->pMethods;
      self->methods_.xClose = &Close;
      self->methods_.xRead = &Read;
      self->methods_.xWrite = &Write;
      self->methods_.xTruncate = &Truncate;
      self->methods_.xSync = &Sync;
      self->methods_.xFileSize = &FileSize;
      self->methods_.xLock = &Lock;
      self->methods_.xUnlock = &Unlock;
      self->methods_.xCheckReservedLock = &CheckReserved;
      self->methods_.xFileControl = &FileControl;
      self->methods_.xSectorSize = &SectorSize;
      self->methods_.xDeviceCharacteristics = &DeviceCharacteristics;
      self->methods_.xShmMap = &ShmMap;
      self->methods_.xShmLock = &ShmLock;
      self->methods_.xShmBarrier = &ShmBarrier;
      self->methods_.xShmUnmap = &ShmUnmap;
      self->methods_.xFetch = &Fetch;
      self->methods_.xUnfetch = &Unfetch;
      f->base.pMethods = &self->methods_;
    }
    return rc;
  }
  static int Delete(sqlite3_vfs* vfs, const char* name, int syncDir) {
    auto* self = static_cast<FaultVfs*>(vfs->pAppData);
    if (self->noNewFiles) return SQLITE_IOERR_DELETE;
    return self->real_->xDelete(self->real_, name, syncDir);
  }
  static int Close(sqlite3_file* f) { return R(f)->pMethods->xClose(R(f)); }
  static int Read(sqlite3_file* f, void* b, int n, sqlite3_int64 o) {
    return R(f)->pMethods->xRead(R(f), b, n, o);
  }
  static int Write(sqlite3_file* f, const void* b, int n, sqlite3_int64 o) {
    if (int e = F(f)->owner->writeError.load()) return e;
    return R(f)->pMethods->xWrite(R(f), b, n, o);
  }
  static int Truncate(sqlite3_file* f, sqlite3_int64 size) {
    if (int e = F(f)->owner->writeError.load()) return e;
    return R(f)->pMethods->xTruncate(R(f), size);
  }
  static int Sync(sqlite3_file* f, int flags) { return R(f)->pMethods->xSync(R(f), flags); }
  static int FileSize(sqlite3_file* f, sqlite3_int64* s) {
    return R(f)->pMethods->xFileSize(R(f), s);
  }
  static int Lock(sqlite3_file* f, int l) { return R(f)->pMethods->xLock(R(f), l); }
  static int Unlock(sqlite3_file* f, int l) { return R(f)->pMethods->xUnlock(R(f), l); }
  static int CheckReserved(sqlite3_file* f, int* r) {
    return R(f)->pMethods->xCheckReservedLock(R(f), r);
  }
  static int FileControl(sqlite3_file* f, int op, void* a) {
    return R(f)->pMethods->xFileControl(R(f), op, a);
  }
  static int SectorSize(sqlite3_file* f) { return R(f)->pMethods->xSectorSize(R(f)); }
  static int DeviceCharacteristics(sqlite3_file* f) {
    return R(f)->pMethods->xDeviceCharacteristics(R(f));
  }
  static int ShmMap(sqlite3_file* f, int i, int sz, int ext, void volatile** p) {
    return R(f)->pMethods->xShmMap(R(f), i, sz, ext, p);
  }
  static int ShmLock(sqlite3_file* f, int o, int n, int fl) {
    return R(f)->pMethods->xShmLock(R(f), o, n, fl);
  }
  static void ShmBarrier(sqlite3_file* f) { R(f)->pMethods->xShmBarrier(R(f)); }
  static int ShmUnmap(sqlite3_file* f, int del) { return R(f)->pMethods->xShmUnmap(R(f), del); }
  static int Fetch(sqlite3_file* f, sqlite3_int64 o, int n, void** p) {
    return R(f)->pMethods->xFetch(R(f), o, n, p);
  }
  static int Unfetch(sqlite3_file* f, sqlite3_int64 o, void* p) {
    return R(f)->pMethods->xUnfetch(R(f), o, p);
  }

  std::string name_;
  sqlite3_vfs* real_ = nullptr;
  sqlite3_vfs vfs_{};
  sqlite3_io_methods methods_{};
};

class ChecksumCacheTest : public ::testing::Test {
 protected:
  fs::path File() const { return dir_ / "data" / "checksums.sqlite"; }

  std::unique_ptr<ChecksumCache> OpenCache(std::string* message = nullptr,
                                           ChecksumCacheOptions o = {}) {
    std::string local;
    return ChecksumCache::Open(File(), texts_, message ? message : &local, o);
  }
  // A cache with `n` rows, closed again.
  void Fill(int n) {
    auto c = OpenCache();
    ASSERT_TRUE(c);
    for (int i = 1; i <= n; ++i) c->Store(Key(i), DigestFor(i));
  }
  static std::string Joined(const std::vector<std::string>& v) {
    std::string s;
    for (const auto& m : v) s += m + "\n";
    return s;
  }

  TempDir dir_;
  TextCatalog texts_;
};

TEST_F(ChecksumCacheTest, SecondRunFindsTheDigestsOfTheFirst) {
  std::string message;
  {
    auto c = OpenCache(&message);
    ASSERT_TRUE(c) << message;
    EXPECT_EQ(message, "");
    for (int i = 1; i <= 1000; ++i) c->Store(Key(i), DigestFor(i));
    ChecksumKey prefix = Key(5);
    prefix.span = ChecksumSpan::kPrefix;
    prefix.prefixBytes = 4096;
    c->Store(prefix, DigestFor(5000));
    // Found before it is written, too.
    EXPECT_EQ(c->Lookup(Key(1000)), DigestFor(1000));
    // Closing writes what is still waiting.
  }
  EXPECT_TRUE(fs::exists(File()));
  auto c = OpenCache(&message);
  ASSERT_TRUE(c) << message;
  EXPECT_EQ(message, "");
  for (int i = 1; i <= 1000; ++i) ASSERT_EQ(c->Lookup(Key(i)), DigestFor(i)) << i;
  ChecksumKey prefix = Key(5);
  prefix.span = ChecksumSpan::kPrefix;
  prefix.prefixBytes = 4096;
  EXPECT_EQ(c->Lookup(prefix), DigestFor(5000));
  EXPECT_EQ(c->Lookup(Key(1001)), std::nullopt);
  EXPECT_EQ(c->Hits(), 1001);
  EXPECT_EQ(c->Misses(), 1);
  EXPECT_EQ(c->Stored(), 0);
  EXPECT_EQ(c->Summary(texts_), "Prüfsummen-Cache: 1001 Treffer, 0 Prüfsummen neu gespeichert");
  EXPECT_TRUE(c->TakeMessages().empty());
}

TEST_F(ChecksumCacheTest, AChangedFileMissesAndReplacesItsRow) {
  Fill(3);
  auto c = OpenCache();
  ASSERT_TRUE(c);
  ASSERT_EQ(c->Lookup(Key(1)), DigestFor(1));

  ChecksumKey k = Key(1);
  k.file.mtimeNs += 1;
  EXPECT_EQ(c->Lookup(k), std::nullopt) << "mtime";
  k = Key(1);
  k.file.ctimeNs += 1;
  EXPECT_EQ(c->Lookup(k), std::nullopt) << "ctime";
  k = Key(1);
  k.file.size += 1;
  EXPECT_EQ(c->Lookup(k), std::nullopt) << "size";
  k = Key(1);
  k.file.inode = 99;
  EXPECT_EQ(c->Lookup(k), std::nullopt) << "inode";
  k = Key(1);
  k.file.device += 1;
  EXPECT_EQ(c->Lookup(k), std::nullopt) << "device";
  // The time the state was taken is no part of the key.
  k = Key(1);
  k.file.takenAtNs += kSecond;
  EXPECT_EQ(c->Lookup(k), DigestFor(1));

  // The file was rewritten: its new digest replaces every row of the old state.
  ChecksumKey whole = Key(2), prefix = Key(2);
  prefix.span = ChecksumSpan::kPrefix;
  prefix.prefixBytes = 4096;
  c->Store(prefix, DigestFor(7));
  c->Flush();
  ChecksumKey rewritten = Key(2);
  rewritten.file.ctimeNs += kSecond;
  c->Store(rewritten, DigestFor(8));
  c->Flush();
  EXPECT_EQ(c->Lookup(rewritten), DigestFor(8));
  EXPECT_EQ(c->Lookup(whole), std::nullopt);
  EXPECT_EQ(c->Lookup(prefix), std::nullopt);
  c.reset();
  RawDb raw(File());
  EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums WHERE inode=2"), 1);
  EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums"), 3);
}

TEST_F(ChecksumCacheTest, AnotherModeOrRangeMisses) {
  auto c = OpenCache();
  ASSERT_TRUE(c);
  ChecksumKey base = Key(1);
  base.range.useExifCuts = true;
  base.range.cutFromStart = 0;
  base.range.cutFromEnd = 300;
  c->Store(base, DigestFor(1));
  c->Flush();
  ASSERT_EQ(c->Lookup(base), DigestFor(1));

  std::vector<std::pair<const char*, ChecksumKey>> others;
  ChecksumKey k = base;
  k.mode = kCompareMD5;
  others.push_back({"mode", k});
  k = base;
  k.range = HashRange{};
  others.push_back({"no cuts", k});
  k = base;
  k.range.useExifCuts = false;
  k.range.useMp3Cuts = true;
  others.push_back({"MP3 instead of Exif cuts", k});
  k = base;
  k.range.cutFromStart = 1;
  others.push_back({"cut from start", k});
  k = base;
  k.range.cutFromEnd = 301;
  others.push_back({"cut from end", k});
  k = base;
  k.span = ChecksumSpan::kPrefix;
  k.prefixBytes = 4096;
  others.push_back({"prefix of the range", k});
  for (const auto& [what, key] : others) EXPECT_EQ(c->Lookup(key), std::nullopt) << what;

  // Two prefix lengths are two digests.
  ChecksumKey p4 = base, p8 = base;
  p4.span = p8.span = ChecksumSpan::kPrefix;
  p4.prefixBytes = 4096;
  p8.prefixBytes = 8192;
  c->Store(p4, DigestFor(4));
  c->Flush();
  EXPECT_EQ(c->Lookup(p4), DigestFor(4));
  EXPECT_EQ(c->Lookup(p8), std::nullopt);
  EXPECT_EQ(c->Lookup(base), DigestFor(1));
}

TEST_F(ChecksumCacheTest, FileStateComesFromStatxOrStatAndFollowsChanges) {
  const fs::path f = dir_.Write("a.bin", "hello world");
  ChecksumFileState s1;
  std::string error;
  ASSERT_TRUE(ReadChecksumFileState(f.string(), &s1, &error)) << error;
  struct stat st {};
  ASSERT_EQ(::stat(f.c_str(), &st), 0);
  const ChecksumFileState s2 = ChecksumFileStateFrom(st);
  EXPECT_TRUE(s1.SameFile(s2));
  EXPECT_EQ(s1.size, 11);
  EXPECT_EQ(s1.inode, st.st_ino);
  EXPECT_EQ(s1.device, st.st_dev);
  EXPECT_EQ(s1.mtimeNs, st.st_mtim.tv_sec * kSecond + st.st_mtim.tv_nsec);
  EXPECT_GE(s1.takenAtNs, s1.ctimeNs);

  struct statx partial {};
  partial.stx_mask = STATX_INO | STATX_SIZE | STATX_MTIME;  // no ctime
  EXPECT_FALSE(ChecksumFileStateFrom(partial).has_value());
  EXPECT_FALSE(ReadChecksumFileState((dir_ / "missing").string(), &s1, &error));
  EXPECT_NE(error, "");

  // A chmod changes nothing in the bytes but moves the ctime: the key misses.
  ASSERT_TRUE(ReadChecksumFileState(f.string(), &s1, &error));
  ::usleep(20000);
  ASSERT_EQ(::chmod(f.c_str(), 0600), 0);
  ChecksumFileState s3;
  ASSERT_TRUE(ReadChecksumFileState(f.string(), &s3, &error));
  EXPECT_FALSE(s1.SameFile(s3));
}

TEST_F(ChecksumCacheTest, AStateTakenRightAfterAChangeIsNotStored) {
  const fs::path f = dir_.Write("fresh.bin", "new bytes");
  ChecksumKey k;
  std::string error;
  ASSERT_TRUE(ReadChecksumFileState(f.string(), &k.file, &error)) << error;
  {
    auto c = OpenCache();
    ASSERT_TRUE(c);
    c->Store(k, DigestFor(1));
    c->Flush();
    EXPECT_EQ(c->SkippedFresh(), 1);
    EXPECT_EQ(c->Stored(), 0);
    EXPECT_EQ(c->Lookup(k), std::nullopt);
  }
  ChecksumCacheOptions o;
  o.minStateAge = milliseconds(0);
  auto c = OpenCache(nullptr, o);
  ASSERT_TRUE(c);
  c->Store(k, DigestFor(1));
  c->Flush();
  EXPECT_EQ(c->Stored(), 1);
  EXPECT_EQ(c->Lookup(k), DigestFor(1));
}

// What can be wrong with the cache file or its folder when a search opens it,
// and what the log then says. A damaged file or one of another program is
// moved aside (".damaged", its bytes kept) and the cache starts afresh; a file
// of a later Kelvor or one locked by another Kelvor is left as it is and the
// search goes without the cache; so it does where the file cannot be made.
// None of them makes the search wait long.
TEST_F(ChecksumCacheTest, WhatGoesWrongOnOpeningAndWhatTheLogSays) {
  enum class After { kKept, kMovedAside, kNoFile };
  struct Case {
    const char* what;
    // Makes the fault; what it returns (a lock, a fault VFS) lives until the
    // cache has been opened. May set options and the file to open.
    std::function<std::shared_ptr<void>(ChecksumCacheOptions&, fs::path&)> make;
    bool usable;
    std::vector<std::string> says;  // parts of the message, or with `exact` all of it
    bool exact;
    After after;
    // Checks the file moved aside (kMovedAside) or left (kNoFile).
    std::function<void(const fs::path&)> check;
  };
  const std::string garbage(5000, '\x5a');
  const Case cases[] = {
      {"garbage",
       [&](ChecksumCacheOptions&, fs::path&) {
         dir_.Write("data/checksums.sqlite", garbage);
         return std::shared_ptr<void>();
       },
       true,
       {"war beschädigt und wurde neu angelegt", File().string() + ".damaged"},
       false,
       After::kMovedAside,
       [&](const fs::path& aside) { EXPECT_EQ(ReadBytes(aside), garbage); }},
      {"another program's database",
       [&](ChecksumCacheOptions&, fs::path&) {
         fs::create_directories(File().parent_path());
         RawDb raw(File());
         EXPECT_EQ(raw.Exec("CREATE TABLE notes(x TEXT); INSERT INTO notes VALUES('mine');"),
                   SQLITE_OK);
         return std::shared_ptr<void>();
       },
       true,
       {"not a Kelvor checksum cache"},
       false,
       After::kMovedAside,
       [](const fs::path& aside) {
         RawDb raw(aside);
         EXPECT_EQ(raw.Int("SELECT count(*) FROM notes"), 1);
       }},
      {"a later schema",
       [&](ChecksumCacheOptions&, fs::path&) {
         Fill(3);
         RawDb raw(File());
         EXPECT_EQ(raw.Exec("PRAGMA user_version=7"), SQLITE_OK);
         return std::shared_ptr<void>();
       },
       false,
       {"Der Prüfsummen-Cache '" + File().string() +
        "' stammt von einer neueren Kelvor-Version (Schema 7) und wird nicht verwendet."},
       true,
       After::kKept,
       nullptr},
      {"locked by another Kelvor",
       [&](ChecksumCacheOptions& o, fs::path&) -> std::shared_ptr<void> {
         Fill(3);
         auto other = std::make_shared<RawDb>(File());
         EXPECT_EQ(other->Exec("PRAGMA locking_mode=EXCLUSIVE"), SQLITE_OK);
         EXPECT_EQ(other->Exec("BEGIN EXCLUSIVE; DELETE FROM checksums WHERE inode=3; COMMIT;"),
                   SQLITE_OK);
         o.busyTimeout = milliseconds(50);
         return other;
       },
       false,
       {"Der Prüfsummen-Cache '" + File().string() +
        "' ist von einem anderen Kelvor gesperrt, die Suche läuft ohne ihn weiter."},
       true,
       After::kKept,
       nullptr},
      {"a folder where nothing can be made",
       [&](ChecksumCacheOptions& o, fs::path&) -> std::shared_ptr<void> {
         // As a read-only mount would be.
         auto vfs = std::make_shared<FaultVfs>("kelvor-read-only");
         vfs->noNewFiles = true;
         o.vfs = vfs->Name();
         return vfs;
       },
       false,
       {"kann nicht verwendet werden, die Suche läuft ohne ihn weiter"},
       false,
       After::kNoFile,
       nullptr},
      {"a data folder that is a file",
       [&](ChecksumCacheOptions&, fs::path& file) {
         file = dir_.Write("plain", "x") / "checksums.sqlite";
         return std::shared_ptr<void>();
       },
       false,
       {"kann nicht verwendet werden"},
       false,
       After::kNoFile,
       [](const fs::path& file) { EXPECT_EQ(ReadBytes(file.parent_path()), "x"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    fs::remove_all(File().parent_path());
    fs::remove(dir_ / "plain");
    ChecksumCacheOptions o;
    fs::path file = File();
    std::shared_ptr<void> fault = c.make(o, file);
    const bool existed = fs::exists(file);
    const std::string before = existed ? ReadBytes(file) : std::string();
    std::string message;
    const auto started = std::chrono::steady_clock::now();
    auto cache = ChecksumCache::Open(file, texts_, &message, o);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
    EXPECT_EQ(cache != nullptr, c.usable);
    if (c.exact) {
      EXPECT_EQ(message, c.says.at(0));
    } else {
      for (const std::string& part : c.says)
        EXPECT_NE(message.find(part), std::string::npos) << part << " in: " << message;
    }
    const fs::path aside = file.string() + ".damaged";
    switch (c.after) {
      case After::kKept:
        ASSERT_TRUE(existed);
        EXPECT_EQ(ReadBytes(file), before);
        EXPECT_FALSE(fs::exists(aside));
        break;
      case After::kMovedAside:
        ASSERT_TRUE(fs::exists(aside));
        if (c.check) c.check(aside);
        break;
      case After::kNoFile:
        EXPECT_FALSE(fs::exists(file));
        if (c.check) c.check(file);
        break;
    }
    if (cache) {
      // Made afresh: what is stored now is found by the next run, which
      // opens without a word.
      cache->Store(Key(1), DigestFor(1));
      cache.reset();
      cache = ChecksumCache::Open(file, texts_, &message, o);
      ASSERT_TRUE(cache);
      EXPECT_EQ(message, "");
      EXPECT_EQ(cache->Lookup(Key(1)), DigestFor(1));
    }
    cache.reset();
    fault.reset();
  }
}

TEST_F(ChecksumCacheTest, TruncatedFileIsNeverTrusted) {
  Fill(5000);
  const auto size = fs::file_size(File());
  ASSERT_GT(size, 40000u);
  for (std::uintmax_t cut : {size / 2, std::uintmax_t{50}}) {
    if (!fs::exists(File())) Fill(5000);
    fs::resize_file(File(), cut);
    std::string message;
    auto c = OpenCache(&message);
    int found = 0;
    if (c) {
      for (int i = 1; i <= 5000; ++i) {
        auto d = c->Lookup(Key(i));
        if (d) {
          ++found;
          ASSERT_EQ(*d, DigestFor(i));
        }
      }
      for (const auto& m : c->TakeMessages()) message += m;
    }
    EXPECT_NE(message.find("war beschädigt und wurde neu angelegt"), std::string::npos)
        << cut << ": " << message;
    EXPECT_EQ(found, 0) << cut;
    EXPECT_TRUE(fs::exists(File().string() + ".damaged"));
    c.reset();
    fs::remove(File());
  }
}

TEST_F(ChecksumCacheTest, RowWhoseBytesChangedIsNotTrusted) {
  // A digest with a pattern that can be found in the file and changed there,
  // behind SQLite's back.
  const std::string marked = "KELVOR-DIGEST-MARK!!";
  {
    auto c = OpenCache();
    ASSERT_TRUE(c);
    c->Store(Key(1), marked);
    c->Store(Key(2), DigestFor(2));
  }
  std::string bytes = ReadBytes(File());
  const auto at = bytes.find(marked);
  ASSERT_NE(at, std::string::npos);
  {
    std::ofstream out(File(), std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(static_cast<std::streamoff>(at));
    out.put('X');
  }
  std::string message;
  auto c = OpenCache(&message);
  ASSERT_TRUE(c) << message;
  EXPECT_EQ(c->Lookup(Key(1)), std::nullopt);
  // Every row is checked when the file is read in, so the damage is found by
  // the opening already.
  const std::string messages = message + "\n" + Joined(c->TakeMessages());
  EXPECT_NE(messages.find("war beschädigt"), std::string::npos) << messages;
  EXPECT_NE(messages.find("row check failed"), std::string::npos) << messages;
  // Made afresh: the intact row went with the damaged file.
  EXPECT_EQ(c->Lookup(Key(2)), std::nullopt);
  c->Store(Key(3), DigestFor(3));
  c->Flush();
  EXPECT_EQ(c->Lookup(Key(3)), DigestFor(3));
  EXPECT_TRUE(c->Usable());
}

TEST_F(ChecksumCacheTest, EarlierSchemaIsRebuiltQuietly) {
  Fill(3);
  {
    RawDb raw(File());
    ASSERT_EQ(raw.Exec("PRAGMA user_version=0"), SQLITE_OK);
  }
  std::string message;
  auto c = OpenCache(&message);
  ASSERT_TRUE(c);
  EXPECT_EQ(message, "");
  EXPECT_EQ(c->Lookup(Key(1)), std::nullopt);
  c.reset();
  RawDb raw(File());
  EXPECT_EQ(raw.Int("PRAGMA user_version"), ChecksumCache::kSchemaVersion);
  EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums"), 0);
}

TEST_F(ChecksumCacheTest, WriterLockOfAnotherKelvorStopsStoringOnly) {
  Fill(3);
  RawDb other(File());
  ASSERT_EQ(other.Exec("BEGIN IMMEDIATE"), SQLITE_OK);  // holds the write lock

  TextCatalog english;
  english.SetLanguage(kLangEnglish);
  const fs::path lang = dir_.Write("lang.txt", "9103,\"Cache '%1' is read-only now (%2)\"\n");
  ASSERT_TRUE(english.LoadTextFromFile(lang));

  ChecksumCacheOptions o;
  o.busyTimeout = milliseconds(50);
  std::string message;
  auto started = std::chrono::steady_clock::now();
  auto c = ChecksumCache::Open(File(), english, &message, o);
  ASSERT_TRUE(c) << message;
  EXPECT_EQ(c->Lookup(Key(1)), DigestFor(1));
  c->Store(Key(10), DigestFor(10));
  c->Flush();
  EXPECT_FALSE(c->Storing());
  EXPECT_TRUE(c->Usable());
  auto messages = c->TakeMessages();
  ASSERT_EQ(messages.size(), 1u) << Joined(messages);
  EXPECT_EQ(messages[0], "Cache '" + File().string() + "' is read-only now (database is locked)");
  // Said once; later stores are dropped quietly, lookups go on.
  c->Store(Key(11), DigestFor(11));
  c->Flush();
  EXPECT_TRUE(c->TakeMessages().empty());
  EXPECT_EQ(c->Lookup(Key(2)), DigestFor(2));
  EXPECT_EQ(c->Lookup(Key(10)), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
  ASSERT_EQ(other.Exec("COMMIT"), SQLITE_OK);
}

TEST_F(ChecksumCacheTest, FullDiskStopsStoringAndKeepsTheFileWhole) {
  Fill(3);
  FaultVfs vfs("kelvor-full-disk");
  ChecksumCacheOptions o;
  o.vfs = vfs.Name();
  std::string message;
  {
    auto c = OpenCache(&message, o);
    ASSERT_TRUE(c) << message;
    vfs.writeError = SQLITE_FULL;
    for (int i = 10; i < 20; ++i) c->Store(Key(i), DigestFor(i));
    c->Flush();
    EXPECT_FALSE(c->Storing());
    const std::string messages = Joined(c->TakeMessages());
    EXPECT_NE(messages.find("In den Prüfsummen-Cache '" + File().string() +
                            "' kann nicht geschrieben werden"),
              std::string::npos)
        << messages;
    EXPECT_NE(messages.find("full"), std::string::npos) << messages;
    EXPECT_EQ(c->Lookup(Key(2)), DigestFor(2));
    EXPECT_EQ(c->Lookup(Key(12)), std::nullopt);
    EXPECT_EQ(c->Stored(), 0);
    vfs.writeError = SQLITE_OK;
  }
  auto c = OpenCache(&message);
  ASSERT_TRUE(c);
  EXPECT_EQ(message, "");
  EXPECT_EQ(c->Lookup(Key(3)), DigestFor(3));
  EXPECT_EQ(c->Lookup(Key(12)), std::nullopt);
}

TEST_F(ChecksumCacheTest, ReadOnlyFolderOnDisk) {
  if (::geteuid() == 0) GTEST_SKIP() << "root writes into read-only folders";
  Fill(3);
  const std::string before = ReadBytes(File());
  // The folder read-only, the file writable or not: the log beside the file
  // cannot be made, so the search goes without the cache.
  for (mode_t fileMode : {0644, 0444}) {
    ASSERT_EQ(::chmod(File().c_str(), fileMode), 0);
    ASSERT_EQ(::chmod(File().parent_path().c_str(), 0555), 0);
    std::string message;
    auto c = OpenCache(&message);
    EXPECT_FALSE(c) << fileMode;
    EXPECT_NE(message.find("kann nicht verwendet werden, die Suche läuft ohne ihn weiter"),
              std::string::npos)
        << message;
    c.reset();
    ASSERT_EQ(::chmod(File().parent_path().c_str(), 0755), 0);
    EXPECT_FALSE(fs::exists(File().string() + ".damaged"));
    EXPECT_EQ(ReadBytes(File()), before);
  }
}

TEST_F(ChecksumCacheTest, CrashMidWayLeavesTheCommittedBatches) {
  fs::create_directories(File().parent_path());
  // A run that ends without closing: three batches written, five waiting.
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ChecksumCacheOptions o;
    o.batchSize = 10;
    std::string message;
    auto c = ChecksumCache::Open(File(), texts_, &message, o);
    if (!c) ::_exit(2);
    for (int i = 1; i <= 35; ++i) c->Store(Key(i), DigestFor(i));
    ::_exit(c->Stored() == 30 ? 0 : 3);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  {
    std::string message;
    auto c = OpenCache(&message);
    ASSERT_TRUE(c);
    EXPECT_EQ(message, "");
    for (int i = 1; i <= 30; ++i) EXPECT_EQ(c->Lookup(Key(i)), DigestFor(i)) << i;
    for (int i = 31; i <= 35; ++i) EXPECT_EQ(c->Lookup(Key(i)), std::nullopt) << i;
  }

  // Killed at any moment while it writes batch after batch. It says when the
  // first batch is in, so that a slow start does not leave nothing to check.
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(ready[0]);
    ChecksumCacheOptions o;
    o.batchSize = 3;
    std::string message;
    auto c = ChecksumCache::Open(File(), texts_, &message, o);
    if (!c) ::_exit(2);
    for (std::uint64_t i = 100;; ++i) {
      c->Store(Key(i), DigestFor(i));
      if (ready[1] >= 0 && c->Stored() > 0) {
        (void)!::write(ready[1], "x", 1);
        ::close(ready[1]);
        ready[1] = -1;
      }
    }
  }
  ::close(ready[1]);
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);  // 0: the child ended without writing
  ::close(ready[0]);
  ::usleep(200000);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  std::string message;
  auto c = OpenCache(&message);
  ASSERT_TRUE(c);
  EXPECT_EQ(message, "");
  int found = 0;
  for (std::uint64_t i = 100; i < 100 + 20000; ++i) {
    if (auto d = c->Lookup(Key(i))) {
      ++found;
      ASSERT_EQ(*d, DigestFor(i)) << i;
    }
  }
  EXPECT_GT(found, 0);
  EXPECT_TRUE(c->TakeMessages().empty());
  RawDb raw(File());
  EXPECT_EQ(raw.Text("PRAGMA integrity_check"), "ok");
}

TEST_F(ChecksumCacheTest, ManyThreadsStoreAndLookUpAtOnce) {
  constexpr int kThreads = 8;
  constexpr int kPerThread = 2000;
  {
    ChecksumCacheOptions o;
    o.batchSize = 64;
    auto c = OpenCache(nullptr, o);
    ASSERT_TRUE(c);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kPerThread; ++i) {
          const std::uint64_t mine = static_cast<std::uint64_t>(t) * kPerThread + i + 1;
          c->Store(Key(mine), DigestFor(mine));
          // Someone else's, stored or not yet.
          const std::uint64_t theirs =
              static_cast<std::uint64_t>((t + 1) % kThreads) * kPerThread + i + 1;
          if (auto d = c->Lookup(Key(theirs)); d && *d != DigestFor(theirs)) ++wrong;
          if (auto d = c->Lookup(Key(mine)); !d || *d != DigestFor(mine)) ++wrong;
        }
        c->Flush();
      });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(c->Stored(), kThreads * kPerThread);
    EXPECT_TRUE(c->TakeMessages().empty());
  }
  auto c = OpenCache();
  ASSERT_TRUE(c);
  for (std::uint64_t i = 1; i <= kThreads * kPerThread; ++i)
    ASSERT_EQ(c->Lookup(Key(i)), DigestFor(i)) << i;
}

// Rows nobody reads for a long time go; rows read in a run are marked as used
// then and stay, however old their digest is; young rows stay anyway.
TEST_F(ChecksumCacheTest, FinishPrunesOldUnreadRowsAndKeepsTheRest) {
  // Taken before the rows are stored, so that no row stored or marked in
  // this test can be older than it, however slowly the test runs.
  const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr));
  Fill(6);
  const std::int64_t longAgo = now - 200 * 24 * 3600;
  {
    RawDb raw(File());
    ASSERT_EQ(
        raw.Exec("UPDATE checksums SET stored_at=" + std::to_string(longAgo) + " WHERE inode<=4"),
        SQLITE_OK);
  }
  {
    auto c = OpenCache();
    ASSERT_TRUE(c);
    EXPECT_EQ(c->Loaded(), 6);
    // 1 and 2 are old but read in this run; 3 and 4 are old and not read;
    // 5 is young and not read; 6 is young and read.
    EXPECT_EQ(c->Lookup(Key(1)), DigestFor(1));
    EXPECT_EQ(c->Lookup(Key(2)), DigestFor(2));
    EXPECT_EQ(c->Lookup(Key(6)), DigestFor(6));
    // A lookup of another state of 3 is no read of its row.
    ChecksumKey changed = Key(3);
    changed.file.mtimeNs += 1;
    EXPECT_EQ(c->Lookup(changed), std::nullopt);
    c->Store(Key(7), DigestFor(7));
    c->Finish();
    EXPECT_EQ(c->Pruned(), 2);
    // Pruned rows are gone from the table in memory too.
    EXPECT_EQ(c->Lookup(Key(3)), std::nullopt);
    EXPECT_EQ(c->Lookup(Key(1)), DigestFor(1));
    c->Finish();  // once a run
    EXPECT_EQ(c->Pruned(), 2);
    EXPECT_TRUE(c->TakeMessages().empty());
  }
  {
    RawDb raw(File());
    EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums"), 5);
    EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums WHERE inode IN (3,4)"), 0);
    // The rows read were marked as used now.
    EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums WHERE stored_at<" + std::to_string(now)), 0);
  }
  auto c = OpenCache();
  ASSERT_TRUE(c);
  EXPECT_EQ(c->Loaded(), 5);
  for (int i : {1, 2, 5, 6, 7}) EXPECT_EQ(c->Lookup(Key(i)), DigestFor(i)) << i;
  for (int i : {3, 4}) EXPECT_EQ(c->Lookup(Key(i)), std::nullopt) << i;
}

TEST_F(ChecksumCacheTest, PruningCanBeTurnedOffAndNeverTouchesALockedFile) {
  Fill(3);
  const std::int64_t longAgo = static_cast<std::int64_t>(std::time(nullptr)) - 400 * 24 * 3600;
  {
    RawDb raw(File());
    ASSERT_EQ(raw.Exec("UPDATE checksums SET stored_at=" + std::to_string(longAgo)), SQLITE_OK);
  }
  ChecksumCacheOptions off;
  off.keepUnused = std::chrono::seconds(0);
  off.refreshUsedAfter = std::chrono::seconds(0);
  {
    auto c = OpenCache(nullptr, off);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->Lookup(Key(1)), DigestFor(1));
    c->Finish();
    EXPECT_EQ(c->Pruned(), 0);
  }
  {
    // Another Kelvor holds the write lock: the rows stay as they are and the
    // run says once that it could not write.
    RawDb other(File());
    ASSERT_EQ(other.Exec("BEGIN IMMEDIATE"), SQLITE_OK);
    ChecksumCacheOptions o;
    o.busyTimeout = milliseconds(50);
    auto c = OpenCache(nullptr, o);
    ASSERT_TRUE(c);
    c->Finish();
    EXPECT_EQ(c->Pruned(), 0);
    EXPECT_EQ(c->TakeMessages().size(), 1u);
    EXPECT_FALSE(c->Storing());
    ASSERT_EQ(other.Exec("COMMIT"), SQLITE_OK);
  }
  RawDb raw(File());
  EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums"), 3);
  EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums WHERE stored_at=" + std::to_string(longAgo)),
            3);
}

// The table in memory is what the file holds: many rows of many states,
// replaced, pruned and stored, read back by a second run exactly.
TEST_F(ChecksumCacheTest, TableInMemoryAgreesWithTheFileAfterARun) {
  constexpr int kFiles = 3000;
  auto prefixOf = [](ChecksumKey k) {
    k.span = ChecksumSpan::kPrefix;
    k.prefixBytes = 4096;
    return k;
  };
  {
    ChecksumCacheOptions o;
    o.batchSize = 97;
    auto c = OpenCache(nullptr, o);
    ASSERT_TRUE(c);
    for (int i = 1; i <= kFiles; ++i) {
      c->Store(Key(i), DigestFor(i));
      c->Store(prefixOf(Key(i)), DigestFor(i + 100000));
    }
    // Every third file changed later in the run: both its old rows go.
    for (int i = 3; i <= kFiles; i += 3) {
      ChecksumKey k = Key(i);
      k.file.ctimeNs += kSecond;
      c->Store(k, DigestFor(i + 200000));
    }
    c->Finish();
    for (int i = 1; i <= kFiles; ++i) {
      ChecksumKey k = Key(i);
      if (i % 3 == 0) {
        ASSERT_EQ(c->Lookup(k), std::nullopt) << i;
        ASSERT_EQ(c->Lookup(prefixOf(k)), std::nullopt) << i;
        k.file.ctimeNs += kSecond;
        ASSERT_EQ(c->Lookup(k), DigestFor(i + 200000)) << i;
      } else {
        ASSERT_EQ(c->Lookup(prefixOf(k)), DigestFor(i + 100000)) << i;
      }
    }
  }
  const int rows = kFiles * 2 - kFiles / 3;
  RawDb raw(File());
  EXPECT_EQ(raw.Int("SELECT count(*) FROM checksums"), rows);
  auto c = OpenCache();
  ASSERT_TRUE(c);
  EXPECT_EQ(c->Loaded(), rows);
  for (int i = 1; i <= kFiles; ++i) {
    ChecksumKey k = Key(i);
    if (i % 3 == 0) {
      ASSERT_EQ(c->Lookup(k), std::nullopt) << i;
      k.file.ctimeNs += kSecond;
      ASSERT_EQ(c->Lookup(k), DigestFor(i + 200000)) << i;
    } else {
      ASSERT_EQ(c->Lookup(k), DigestFor(i)) << i;
      ASSERT_EQ(c->Lookup(prefixOf(k)), DigestFor(i + 100000)) << i;
    }
  }
}

// Stores of new states of a few hundred files in a random order, against a
// plain model of what must be found: a new state of a file drops every digest
// of its earlier states, other kinds and ranges of the same state stay.
TEST_F(ChecksumCacheTest, RandomStoresAgreeWithAModel) {
  ChecksumCacheOptions o;
  o.batchSize = 50;
  auto c = OpenCache(nullptr, o);
  ASSERT_TRUE(c);
  std::uint64_t seed = 12345;
  auto next = [&seed](std::uint64_t n) {
    seed = seed * 6364136223846793005ull + 1442695040888963407ull;
    return (seed >> 33) % n;
  };
  struct Want {
    std::int64_t ctimeNs;
    std::string digest;
  };
  // (inode, mode, span) -> what a lookup with that state must give.
  std::map<std::tuple<std::uint64_t, int, int>, Want> model;
  auto keyOf = [](std::uint64_t inode, int mode, int span, std::int64_t ctimeNs) {
    ChecksumKey k = Key(inode, mode);
    k.file.ctimeNs = ctimeNs;
    if (span) {
      k.span = ChecksumSpan::kPrefix;
      k.prefixBytes = 4096;
    }
    return k;
  };
  for (int step = 0; step < 20000; ++step) {
    const std::uint64_t inode = 1 + next(400);
    const int mode = 1 + static_cast<int>(next(2));
    const int span = static_cast<int>(next(2));
    const std::int64_t ctimeNs = kOld + static_cast<std::int64_t>(next(3)) * kSecond;
    const std::string digest = DigestFor(static_cast<std::uint64_t>(step));
    c->Store(keyOf(inode, mode, span, ctimeNs), digest);
    for (auto it = model.begin(); it != model.end();) {
      if (std::get<0>(it->first) == inode && it->second.ctimeNs != ctimeNs)
        it = model.erase(it);
      else
        ++it;
    }
    model[{inode, mode, span}] = {ctimeNs, digest};
    if (step % 97 == 0) {
      const std::uint64_t probe = 1 + next(400);
      for (int m = 1; m <= 2; ++m) {
        for (int sp = 0; sp <= 1; ++sp) {
          auto it = model.find({probe, m, sp});
          for (int t = 0; t < 3; ++t) {
            const std::int64_t ct = kOld + t * kSecond;
            const auto want = it != model.end() && it->second.ctimeNs == ct
                                  ? std::optional<std::string>(it->second.digest)
                                  : std::nullopt;
            ASSERT_EQ(c->Lookup(keyOf(probe, m, sp, ct)), want) << step;
          }
        }
      }
    }
  }
  c.reset();
  c = OpenCache();
  ASSERT_TRUE(c);
  EXPECT_EQ(c->Loaded(), static_cast<std::int64_t>(model.size()));
  for (const auto& [k, want] : model) {
    const auto& [inode, mode, span] = k;
    ASSERT_EQ(c->Lookup(keyOf(inode, mode, span, want.ctimeNs)), want.digest) << inode;
  }
}

TEST_F(ChecksumCacheTest, ClearRemovesTheCache) {
  Fill(3);
  dir_.Write("data/checksums.sqlite.damaged", "old");
  std::string error;
  EXPECT_TRUE(ChecksumCache::Clear(File(), &error)) << error;
  for (const char* s : {"", "-wal", "-shm", ".damaged"})
    EXPECT_FALSE(fs::exists(File().string() + s)) << s;
  auto c = OpenCache();
  ASSERT_TRUE(c);
  EXPECT_EQ(c->Lookup(Key(1)), std::nullopt);
  c.reset();
  // Nothing there: nothing to do.
  ASSERT_TRUE(ChecksumCache::Clear(File(), &error));
  EXPECT_TRUE(ChecksumCache::Clear(File(), &error)) << error;
  // Something in the way that cannot be removed.
  dir_.Write("data/checksums.sqlite-wal/keep", "x");
  EXPECT_FALSE(ChecksumCache::Clear(File(), &error));
  EXPECT_NE(error.find("checksums.sqlite-wal"), std::string::npos) << error;
  EXPECT_EQ(ReadBytes(File().string() + "-wal/keep"), "x");
}

}  // namespace
}  // namespace kelvor::test
