// A search by content made faster without changing its answer: digests of the
// files' first bytes before their checksums. Checked through what the user
// sees: groups, counters and the run log.

#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "frame/app_paths.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadUtf16File;
using test::TempDir;

using test::Groups;

std::uint64_t InodeOf(const fs::path& file) {
  struct stat st {};
  return ::stat(file.c_str(), &st) == 0 ? static_cast<std::uint64_t>(st.st_ino) : 0;
}

class ContentSpeedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    test::OnlyCriteria(settings_, {3});
  }
  void Set(const char* key, std::string value) { settings_.Set("DupVerz", key, std::move(value)); }
  void W(const std::string& rel, std::string_view content) { tmp_.Write("tree/" + rel, content); }

  // One search over the tree with a fresh log.
  Groups Run() {
    fs::remove(data_ / "run.txt");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    logger_->SetPanel(&progress_);
    SearchOptions options = Init_Variablen(settings_, texts_);
    options.Content.readAheadThreads = readAheadThreads_;
    engine_ = std::make_unique<SearchEngine>(
        SearchContext{std::move(options), texts_, *logger_, progress_, prompt_, run_, paths_});
    SourceFolderRow r;
    r.path = tree_.string();
    EXPECT_TRUE(engine_->Search_Start({r}));
    return test::GroupsBelow(engine_->Result(), tree_);
  }
  std::string RunLog() const { return ReadUtf16File(data_ / "run.txt"); }
  std::string GeneralLog() const { return ReadUtf16File(data_ / "Kelvor4.txt"); }
  // Searches keep their checksums in the data folder from now on.
  void UseDataFolder() {
    appPaths_.dataFolder = data_;
    appPaths_.dataSubFolder = tmp_.Mkdir("data/data");
    paths_ = &appPaths_;
  }
  // The cache stores no digest of a file changed in the last two seconds,
  // whose times could still stay the same across a write.
  static void LetFilesSettle() { std::this_thread::sleep_for(std::chrono::milliseconds(2300)); }
  // A log line that ends with `text`.
  static bool HasLine(const std::string& log, const std::string& text) {
    for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
      const std::size_t end = at + text.size();
      if (end == log.size() || log[end] == '\r' || log[end] == '\n') return true;
    }
    return false;
  }

  TempDir tmp_;
  fs::path tree_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  NullProgressSink progress_;
  test::SilentPrompt prompt_;
  RunState run_;
  AppPaths appPaths_;
  const AppPaths* paths_ = nullptr;
  unsigned readAheadThreads_ = 0;  // workers reading ahead; 0: one per core
  std::unique_ptr<SearchEngine> engine_;
};

// The groups of the last search in their order, each with its files in
// their order, by path below the tree.
std::vector<std::vector<std::string>> OrderedGroups(const ResultModel& result,
                                                    const fs::path& tree) {
  const std::string prefix = tree.string() + "/";
  std::vector<std::vector<std::string>> out;
  result.ForEachGroup([&](RowRef g) {
    std::vector<std::string> files;
    result.ForEachFile(g, [&](RowRef f) {
      std::string p = result.File_GetPathFromNode(f);
      files.push_back(p.rfind(prefix, 0) == 0 ? p.substr(prefix.size()) : p);
      return true;
    });
    out.push_back(std::move(files));
    return true;
  });
  return out;
}

// The lines of the run log that carry counts (statistics), without their
// time stamps.
std::vector<std::string> CountLines(const std::string& log) {
  std::vector<std::string> out;
  std::size_t at = 0;
  while (at < log.size()) {
    std::size_t end = log.find('\n', at);
    if (end == std::string::npos) end = log.size();
    std::string line = log.substr(at, end - at);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (const std::size_t stamp = line.find(" - "); stamp != std::string::npos)
      line.erase(0, stamp + 3);
    for (const char* head :
         {"Gruppen:", "Dateivergleiche:", "Prüfsummen", "Duplikate:", "Überprüfte Dateien:"}) {
      if (line.rfind(head, 0) == 0) {
        out.push_back(line);
        break;
      }
    }
    at = end + 1;
  }
  return out;
}

// Many files of few sizes, read ahead on one worker or on many: the same
// groups in the same order, the same comparisons, checksums and prefix
// digests, and the same statistics in the run log. Among them are equal
// files, files that differ in their first 4 KiB, in their last byte, and
// small ones that are their own prefix.
TEST_F(ContentSpeedTest, ReadingAheadOnManyWorkersChangesNoAnswerAndNoCount) {
  const std::size_t sizes[] = {3000, 9000, 70001, 250000};
  int n = 0;
  for (std::size_t s : sizes) {
    for (int cls = 0; cls < 5; ++cls) {
      std::string body(s, static_cast<char>('a' + cls));
      for (std::size_t i = 0; i < s; i += 97) body[i] = static_cast<char>(i * 31 + s);
      if (cls == 3) body[0] = 'X';      // differs in its first bytes
      if (cls == 4) body[s - 1] = 'Y';  // differs in its last byte only
      for (int copy = 0; copy < 1 + (cls + n) % 4; ++copy) {
        W("d" + std::to_string((cls + copy) % 6) + "/s" + std::to_string(s) + "_" +
              std::to_string(cls) + "_" + std::to_string(copy) + ".bin",
          body);
        ++n;
      }
      // Files of this size that equal no other.
      for (int single = 0; single < 3; ++single) {
        std::string other = body;
        other[s / 2] = static_cast<char>(other[s / 2] ^ (1 + single));
        W("d" + std::to_string(single) + "/u" + std::to_string(s) + "_" + std::to_string(cls) +
              "_" + std::to_string(single),
          other);
      }
    }
  }
  Set("ContentCompare", "2");
  readAheadThreads_ = 1;
  Run();
  const auto groups = OrderedGroups(engine_->Result(), tree_);
  const SearchStatistics one = engine_->Stats();
  const std::vector<std::string> lines = CountLines(RunLog());
  ASSERT_FALSE(groups.empty());
  EXPECT_GT(one.ChecksumCount, 0);
  EXPECT_GT(one.PrefixCount, 0);
  ASSERT_GE(lines.size(), 5u) << RunLog();

  for (unsigned threads : {4u, 8u, 0u, 1u}) {
    SCOPED_TRACE(threads);
    readAheadThreads_ = threads;
    Run();
    EXPECT_EQ(OrderedGroups(engine_->Result(), tree_), groups);
    const SearchStatistics many = engine_->Stats();
    EXPECT_EQ(many.CompareCount, one.CompareCount);
    EXPECT_EQ(many.ChecksumCount, one.ChecksumCount);
    EXPECT_EQ(many.PrefixCount, one.PrefixCount);
    EXPECT_EQ(many.CacheCount, one.CacheCount);
    EXPECT_EQ(CountLines(RunLog()), lines);
  }
}

// Five files of one size: two equal, one differing only in its last byte, two
// differing in their first bytes. Only the files whose beginnings match a
// partner's are hashed in full; the groups and the number of comparisons are
// those of the byte-by-byte search.
TEST_F(ContentSpeedTest, FilesWithDifferentBeginningsNeedNoChecksum) {
  const std::string body(10000, 'q');
  W("a/x1.bin", body);
  W("b/x2.bin", body);
  W("c/y.bin", "Y" + body.substr(1));
  W("d/z.bin", body.substr(0, 9999) + "Z");
  W("e/w.bin", "WW" + body.substr(2));
  const Groups expected{{"a/x1.bin", "b/x2.bin"}};

  Set("ContentCompare", "0");
  EXPECT_EQ(Run(), expected);
  const std::int64_t sideBySideCompares = engine_->Stats().CompareCount;

  for (const char* mode : {"1", "2", "5"}) {
    SCOPED_TRACE(mode);
    Set("ContentCompare", mode);
    EXPECT_EQ(Run(), expected);
    EXPECT_EQ(engine_->Stats().CompareCount, sideBySideCompares);
    // x1, x2 and z share their beginning; y and w meet nobody with theirs.
    EXPECT_EQ(engine_->Stats().ChecksumCount, 3);
    EXPECT_EQ(engine_->Stats().PrefixCount, 5);
    const std::string log = RunLog();
    EXPECT_TRUE(HasLine(log, "Prüfsummen erstellt: 3")) << log;
    EXPECT_TRUE(HasLine(log, "Prüfsummen der Dateianfänge erstellt: 5")) << log;
  }
}

// Files not longer than a prefix are hashed whole at once, and under a tag
// rule every meeting still makes full checksums: no prefix digests, no line.
TEST_F(ContentSpeedTest, SmallFilesAndTagRulesGoWithoutPrefixes) {
  const std::string small(3000, 's');
  W("a/s1.bin", small);
  W("b/s2.bin", small);
  W("c/s3.bin", "S" + small.substr(1));
  const std::string big(9000, 'b');
  W("a/b1.mp3", big);
  W("b/b2.mp3", big);
  W("c/b3.mp3", "B" + big.substr(1));
  const Groups expected{{"a/s1.bin", "b/s2.bin"}, {"a/b1.mp3", "b/b2.mp3"}};
  Set("ContentCompare", "2");
  Set("IgnoreMP3Tags", "1");
  EXPECT_EQ(Run(), expected);
  EXPECT_EQ(engine_->Stats().ChecksumCount, 6);
  EXPECT_EQ(engine_->Stats().PrefixCount, 0);
  EXPECT_EQ(RunLog().find("Dateianfänge"), std::string::npos) << RunLog();

  Set("IgnoreMP3Tags", "0");
  EXPECT_EQ(Run(), expected);
  // The small files are hashed as before; of the large ones only b1 and b2.
  EXPECT_EQ(engine_->Stats().ChecksumCount, 5);
  EXPECT_EQ(engine_->Stats().PrefixCount, 3);
}

// A second search over an unchanged tree reads no file for a checksum: every
// digest comes from the cache, with the same groups. A file rewritten between
// the runs (same size, new content, new time) is hashed afresh and joins the
// group its new content belongs to.
TEST_F(ContentSpeedTest, ChecksumCacheServesUnchangedFilesOnly) {
  UseDataFolder();
  const std::string body(100000, 'q');
  W("a/x1.bin", body);
  W("b/x2.bin", body);
  W("c/y.bin", "Y" + body.substr(1));
  W("d/z.bin", body.substr(0, 99999) + "Z");
  W("e/s1.txt", "small");
  W("f/s2.txt", "small");
  W("e/m1.txt", std::string(3000, 'm'));
  W("f/m2.txt", std::string(3000, 'm'));
  const Groups expected{
      {"a/x1.bin", "b/x2.bin"}, {"e/s1.txt", "f/s2.txt"}, {"e/m1.txt", "f/m2.txt"}};
  Set("ContentCompare", "2");
  LetFilesSettle();

  EXPECT_EQ(Run(), expected);
  const SearchStatistics first = engine_->Stats();
  // Even a first search can take a digest from the cache: one the read-ahead
  // helper made and stored a moment before the cascade asks for it again.
  EXPECT_GT(first.ChecksumCount, 0);
  EXPECT_TRUE(fs::exists(data_ / "data" / "checksums.sqlite"));

  EXPECT_EQ(Run(), expected);
  const SearchStatistics second = engine_->Stats();
  // Files no longer than a digest are their own checksum and are read again;
  // every other digest of the first run comes from the cache, short files'
  // too.
  EXPECT_EQ(second.ChecksumCount, 2);
  EXPECT_EQ(second.PrefixCount, 0);
  EXPECT_EQ(second.CacheCount, first.ChecksumCount - 2 + first.PrefixCount + first.CacheCount);
  EXPECT_EQ(second.CompareCount, first.CompareCount);
  EXPECT_TRUE(HasLine(RunLog(), "Prüfsummen aus dem Prüfsummen-Cache übernommen: " +
                                    std::to_string(second.CacheCount)))
      << RunLog();
  EXPECT_TRUE(HasLine(RunLog(), "Prüfsummen erstellt: 2")) << RunLog();

  // y gets x1's content; its size stays, its time moves on.
  W("c/y.bin", body);
  test::SetMtime(tree_ / "c/y.bin", 1700000000);
  const Groups changed{
      {"a/x1.bin", "b/x2.bin", "c/y.bin"}, {"e/s1.txt", "f/s2.txt"}, {"e/m1.txt", "f/m2.txt"}};
  EXPECT_EQ(Run(), changed);
  // y's checksum (and no other) is made anew.
  EXPECT_EQ(engine_->Stats().ChecksumCount, 2 + 1);
  EXPECT_GT(engine_->Stats().CacheCount, 0);

  // With the cache switched off every digest is made again.
  Set("ChecksumCache", "0");
  EXPECT_EQ(Run(), changed);
  EXPECT_EQ(engine_->Stats().CacheCount, 0);
  EXPECT_GT(engine_->Stats().ChecksumCount, 0);
}

// Three files of one size whose times are set to one whole second; y is then
// given x1's content without changing its size or modification time, in two
// ways. Only the status-change time tells, and that is enough for y to be
// hashed afresh while x1 and x2 still come from the cache:
//  - rewritten in place, its old modification time put back (same inode);
//  - deleted and replaced by another file that gets the freed inode number
//    (left out where the file system does not hand the number out again).
TEST_F(ContentSpeedTest, FileChangedBehindTheSameSizeAndTimeIsHashedAfresh) {
  UseDataFolder();
  const std::string body(6000, 'q'), other = "Y" + body.substr(1);
  constexpr std::int64_t kWhen = 1600000000;
  const fs::path y = tree_ / "c/y.bin";
  struct Case {
    const char* what;
    // Gives y x1's content; false when the case cannot be made here.
    std::function<bool()> change;
  };
  const Case cases[] = {
      {"rewritten in place",
       [&] {
         const std::uintmax_t inode = InodeOf(y);
         W("c/y.bin", body);
         EXPECT_EQ(InodeOf(y), inode);
         return true;
       }},
      {"replaced, inode reused",
       [&] {
         // New files in y's folder until one gets y's number; the others go.
         const std::uintmax_t inode = InodeOf(y);
         fs::remove(y);
         bool reused = false;
         std::vector<fs::path> spares;
         for (int i = 0; i < 64 && !reused; ++i) {
           const fs::path f = tmp_.Write("tree/c/spare" + std::to_string(i), body);
           if (InodeOf(f) == inode) {
             fs::rename(f, y);
             reused = true;
           } else {
             spares.push_back(f);
           }
         }
         for (const fs::path& f : spares) fs::remove(f);
         return reused;
       }},
  };
  Set("ContentCompare", "2");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    fs::remove_all(tree_);
    fs::create_directories(tree_);
    for (const char* f : {"checksums.sqlite", "checksums.sqlite-wal", "checksums.sqlite-shm"})
      fs::remove(data_ / "data" / f);
    W("a/x1.bin", body);
    W("b/x2.bin", body);
    W("c/y.bin", other);
    for (const char* f : {"a/x1.bin", "b/x2.bin", "c/y.bin"}) test::SetMtime(tree_ / f, kWhen);
    LetFilesSettle();
    const Groups before{{"a/x1.bin", "b/x2.bin"}};
    EXPECT_EQ(Run(), before);
    EXPECT_EQ(Run(), before);
    EXPECT_EQ(engine_->Stats().ChecksumCount, 0);
    EXPECT_GT(engine_->Stats().CacheCount, 0);

    if (!c.change()) {
      std::cout << "left out: " << c.what << " (the file system gave no freed inode back)\n";
      continue;
    }
    test::SetMtime(y, kWhen);
    const Groups after{{"a/x1.bin", "b/x2.bin", "c/y.bin"}};
    EXPECT_EQ(Run(), after);
    EXPECT_EQ(engine_->Stats().ChecksumCount, 1);
    EXPECT_GT(engine_->Stats().CacheCount, 0);
  }
}

// A damaged cache file changes no group: the search logs why and goes on.
TEST_F(ContentSpeedTest, DamagedChecksumCacheIsLoggedAndChangesNothing) {
  UseDataFolder();
  {
    std::ofstream junk(data_ / "data" / "checksums.sqlite", std::ios::binary);
    junk << std::string(8192, '\x5a');
  }
  const std::string body(10000, 'q');
  W("a/x1.bin", body);
  W("b/x2.bin", body);
  W("c/y.bin", "Y" + body.substr(1));
  Set("ContentCompare", "2");
  EXPECT_EQ(Run(), (Groups{{"a/x1.bin", "b/x2.bin"}}));
  const std::string logs = RunLog() + GeneralLog();
  EXPECT_NE(logs.find("Prüfsummen-Cache"), std::string::npos) << logs;
  EXPECT_NE(logs.find("checksums.sqlite"), std::string::npos) << logs;
  EXPECT_EQ(engine_->Stats().CacheCount, 0);
}

}  // namespace
}  // namespace kelvor
