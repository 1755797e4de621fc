// Content searches over trees that change while the search runs: files cut
// short, deleted, swapped for FIFOs or changed by a background thread after
// the walk has seen them, files below paths longer than PATH_MAX, and a stop
// from another thread at any moment. No group may join files that were not
// equal when they were read, no file may hold the search, and a file that
// cannot be read stays a file without duplicates.

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::FinishesWithin;
using test::ReadUtf16File;
using test::TempDir;

using test::Group;
using test::Groups;

// Remembers nothing but lets a test act when a label changes, which is how
// it reaches into a running search.
struct HookSink : ProgressSink {
  std::function<void(Label, std::string_view)> onLabel;
  void SetLabel(Label l, std::string_view text) override {
    if (onLabel) onLabel(l, text);
  }
  void ProgressBar(int) override {}
  void LogPanel(std::string_view) override {}
};

// Bytes that differ for every seed.
std::string Bytes(std::size_t n, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::string s(n, '\0');
  for (auto& c : s) c = static_cast<char>(rng() & 0xFF);
  return s;
}

void Overwrite(const fs::path& p, const std::string& content) {
  std::ofstream f(p, std::ios::binary | std::ios::in | std::ios::out);
  f.write(content.data(), static_cast<std::streamsize>(content.size()));
}

class ChangingTreeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
  }

  // A content search by the given method ("0" byte by byte, "2" SHA1, ...).
  void ContentSearch(const char* method) {
    test::OnlyCriteria(settings_, {3});
    settings_.Set("DupVerz", "ContentCompare", method);
  }

  fs::path W(const std::string& rel, std::string_view content) {
    return tmp_.Write("tree/" + rel, content);
  }
  std::string Full(const std::string& rel) const { return (tree_ / rel).string(); }

  // Runs a search over one folder below the tree on the calling thread.
  Groups Run(const std::string& folder) {
    SourceFolderRow row;
    row.path = (tree_ / folder).string();
    SearchOptions options = Init_Variablen(settings_, texts_);
    options.Content.readAheadThreads = readAheadThreads_;
    engine_ = std::make_unique<SearchEngine>(
        SearchContext{std::move(options), texts_, *logger_, progress_, prompt_, run_});
    run_.SearchState = kRunning;
    run_.StopReason = kStopNone;
    EXPECT_TRUE(engine_->Search_Start({row}));
    return test::GroupsBelow(engine_->Result(), tree_);
  }

  // `count` files of `size` bytes in `folder`, all different, of which the
  // first two in the order the walk meets them are equal. Returns the names
  // in that order.
  std::vector<std::string> TwoEqualAndOthers(const std::string& folder, int count,
                                             std::size_t size) {
    for (int i = 0; i < count; ++i) W(folder + "/n" + std::to_string(i), Bytes(size, 100 + i));
    std::vector<std::string> order = test::ListingOrder(tree_ / folder);
    const std::string same = Bytes(size, 7);
    for (int i = 0; i < 2; ++i) W(folder + "/" + order[i], same);
    EXPECT_EQ(test::ListingOrder(tree_ / folder), order);
    return order;
  }
  // Calls `change` once, right after the first duplicate was found.
  void AtFirstDuplicate(std::function<void()> change) {
    auto done = std::make_shared<bool>(false);
    progress_.onLabel = [done, change](Label l, std::string_view text) {
      if (l == Label::Dups && text == "2" && !*done) {
        *done = true;
        change();
      }
    };
  }

  std::string RunLog() const {
    std::error_code ec;
    return fs::exists(data_ / "run.txt", ec) ? ReadUtf16File(data_ / "run.txt") : "";
  }
  std::string GeneralLog() const {
    std::error_code ec;
    return fs::exists(data_ / "Kelvor4.txt", ec) ? ReadUtf16File(data_ / "Kelvor4.txt") : "";
  }
  void ClearLogs() {
    std::error_code ec;
    fs::remove(data_ / "run.txt", ec);
    fs::remove(data_ / "Kelvor4.txt", ec);
  }
  static int Count(const std::string& hay, const std::string& needle) {
    int n = 0;
    for (auto at = hay.find(needle); at != std::string::npos; at = hay.find(needle, at + 1)) ++n;
    return n;
  }

  TempDir tmp_;
  fs::path tree_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  HookSink progress_;
  test::SilentPrompt prompt_{true};
  RunState run_;
  unsigned readAheadThreads_ = 0;  // workers reading ahead; 0: one per core
  std::unique_ptr<SearchEngine> engine_;
};

// Ten different files of one size, each cut to 0 bytes after the walk saw
// them and before their comparison: no group of them, each one logged.
TEST_F(ChangingTreeTest, FilesCutShortAfterTheWalkAreNoDuplicates) {
  for (const char* method : {"0", "2"}) {
    SCOPED_TRACE(method);
    ClearLogs();
    const std::string folder = std::string("cut") + method;
    std::vector<std::string> order = TwoEqualAndOthers(folder, 12, 48000);
    AtFirstDuplicate([&] {
      for (std::size_t i = 2; i < order.size(); ++i) fs::resize_file(tree_ / folder / order[i], 0);
    });
    ContentSearch(method);
    EXPECT_EQ(Run(folder), (Groups{{folder + "/" + order[0], folder + "/" + order[1]}}));
    if (std::string(method) == "0") {
      // Byte by byte nothing reads ahead: every cut file is read after the
      // cut, and logged once.
      const std::string log = RunLog();
      for (std::size_t i = 2; i < order.size(); ++i)
        EXPECT_EQ(Count(log, Full(folder + "/" + order[i]) + "'"), 1) << order[i] << "\n" << log;
    }
  }
}

// A new file that cannot be read is flagged, stays in the collection as a
// representative of its own, and is among the files without duplicates.
TEST_F(ChangingTreeTest, FileThatCannotBeReadStaysAmongTheFilesWithoutDuplicates) {
  settings_.SetBool("DupVerz", "LogFilesWithNoDups", true);
  for (const char* method : {"0", "2"}) {
    SCOPED_TRACE(method);
    ClearLogs();
    const std::string folder = std::string("gone") + method;
    std::vector<std::string> order = TwoEqualAndOthers(folder, 8, 30000);
    AtFirstDuplicate([&] {
      for (std::size_t i = 2; i < 6; ++i) fs::remove(tree_ / folder / order[i]);
    });
    ContentSearch(method);
    EXPECT_EQ(Run(folder), (Groups{{folder + "/" + order[0], folder + "/" + order[1]}}));
    const std::string general = GeneralLog();
    ASSERT_NE(general.find("Dateien ohne Duplikate:"), std::string::npos) << general;
    for (std::size_t i = 2; i < order.size(); ++i)
      EXPECT_EQ(Count(general, Full(folder + "/" + order[i]) + "\r\n"), 1) << order[i] << "\n"
                                                                           << general;
    if (std::string(method) == "0") {
      const std::string log = RunLog();
      for (std::size_t i = 2; i < 6; ++i)
        EXPECT_EQ(Count(log, Full(folder + "/" + order[i]) + "'"), 1) << order[i] << "\n" << log;
    }
  }
}

// Duplicates below a path longer than PATH_MAX are found by every method,
// with the tag rule in force too, and nothing is logged as an error.
TEST_F(ChangingTreeTest, DuplicatesBelowAVeryLongPathAreFound) {
  const std::string seg = "folder_name_of_thirty_chars_xy";
  const std::string deep = test::MakeDeepFolder(tree_, seg, 150);
  ASSERT_GT(deep.size(), 4200u);
  const std::string rel = deep.substr(tree_.string().size() + 1);
  const std::string body = Bytes(40000, 1);
  std::string other = body;
  other[20000] = static_cast<char>(other[20000] ^ 1);
  test::WriteDeep(deep + "/a.bin", body);
  test::WriteDeep(deep + "/b.bin", body);
  test::WriteDeep(deep + "/c.bin", other);
  // Two pieces of music that differ only in their ID3v2 tags.
  auto tag = [](char size) { return std::string("ID3\x03\0\0\0\0\0", 9) + size; };
  const std::string audio = Bytes(20000, 2);
  test::WriteDeep(deep + "/x.mp3", tag('\x0A') + std::string(10, 'x') + audio);
  test::WriteDeep(deep + "/y.mp3", tag('\x14') + std::string(20, 'y') + audio);
  for (bool tags : {false, true}) {
    settings_.SetBool("DupVerz", "IgnoreMP3Tags", tags);
    for (const char* method : {"0", "2"}) {
      SCOPED_TRACE(std::string(method) + (tags ? " tags" : ""));
      ClearLogs();
      ContentSearch(method);
      Groups expected{{rel + "/a.bin", rel + "/b.bin"}};
      if (tags) expected.insert({rel + "/x.mp3", rel + "/y.mp3"});
      EXPECT_EQ(Run(seg), expected);
      const std::string log = RunLog();
      EXPECT_EQ(log.find("File name too long"), std::string::npos) << log.substr(0, 2000);
      EXPECT_EQ(log.find("Fehler"), std::string::npos) << log.substr(0, 2000);
    }
  }
  settings_.SetBool("DupVerz", "IgnoreMP3Tags", false);
  test::RemoveDeep(tree_, seg);
}

// Files swapped for FIFOs after the walk saw them hold no method: the search
// ends by itself and names each FIFO in its log.
TEST_F(ChangingTreeTest, FifosInPlaceOfFilesDoNotHoldTheSearch) {
  for (const char* method : {"0", "1", "2"}) {
    SCOPED_TRACE(method);
    ClearLogs();
    const std::string folder = std::string("fifo") + method;
    std::vector<std::string> order = TwoEqualAndOthers(folder, 10, 70000);
    std::vector<std::string> fifos;
    for (std::size_t i = 2; i < order.size(); ++i) fifos.push_back(Full(folder + "/" + order[i]));
    AtFirstDuplicate([&] {
      for (const auto& f : fifos) test::SwapForFifo(f);
    });
    ContentSearch(method);
    Groups groups;
    EXPECT_TRUE(FinishesWithin(
        20000ms, [&] { groups = Run(folder); }, [&] { test::ReleaseFifoReaders(fifos); }));
    EXPECT_EQ(groups, (Groups{{folder + "/" + order[0], folder + "/" + order[1]}}));
    if (std::string(method) == "0") {
      const std::string log = RunLog();
      for (const auto& f : fifos) EXPECT_EQ(Count(log, f + "'"), 1) << f << "\n" << log;
      EXPECT_NE(log.find("not a regular file"), std::string::npos) << log;
    }
  }
}

// A stop from another thread (as Ctrl+C gives it) ends the search within a
// few seconds at any moment: while it reads large files, while files turn
// into FIFOs under it, in the counting pass or in the end steps.
TEST_F(ChangingTreeTest, StopFromAnotherThreadEndsTheSearchAtAnyMoment) {
  const std::string big = Bytes(6 << 20, 3);
  for (int i = 0; i < 4; ++i) W("stop/big/b" + std::to_string(i), big);
  const int delays[] = {0, 1, 3, 8, 20, 50, 120, 300};
  int round = 0;
  for (int delay : delays) {
    const char* method = round++ % 2 == 0 ? "0" : "2";
    SCOPED_TRACE(std::to_string(delay) + " ms, method " + method);
    std::error_code ec;
    fs::remove_all(tree_ / "stop/small", ec);
    std::vector<std::string> small;
    for (int i = 0; i < 60; ++i) {
      const std::string rel = "stop/small/s" + std::to_string(i);
      W(rel, Bytes(64 << 10, 200 + i % 5));
      small.push_back(Full(rel));
    }
    ContentSearch(method);
    std::atomic<bool> running{true};
    // Files keep turning into FIFOs while the search runs.
    std::thread swapper([&] {
      for (std::size_t i = 0; i < small.size() && running.load(); ++i) {
        test::SwapForFifo(small[(i * 7) % small.size()]);
        std::this_thread::sleep_for(300us);
      }
    });
    // The search resets the run state when it starts; a stop asked for
    // before would be lost, so it is asked for again until the search ends.
    std::thread stopper([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      while (running.load()) {
        run_.RequestStop(kStopUser);
        std::this_thread::sleep_for(1ms);
      }
    });
    EXPECT_TRUE(FinishesWithin(
        std::chrono::milliseconds(delay) + 5000ms, [&] { Run("stop"); },
        [&] { test::ReleaseFifoReaders(small); }));
    running = false;
    swapper.join();
    stopper.join();
  }
}

// A background thread changes files while byte-by-byte and checksum searches
// run: it deletes, cuts, appends or overwrites in place, each file at most
// once, always to bytes that no other file holds at any time (overwritten
// bytes differ from the old ones at every position, appended and cut files
// change their size). Two files can then only ever have been equal at the
// size the walk saw if they were equal from the start; so every group must
// join only files of one original content, however the threads interleave.
// The checksum searches read ahead on one, four and eight workers, which meet
// the changes at other moments than the cascade does.
TEST_F(ChangingTreeTest, ChangesWhileTheSearchRunsNeverJoinFilesThatDiffered) {
  const std::size_t sizes[] = {20000, 65553, 300000};
  std::uint32_t seed = 20240611;
  const std::pair<const char*, unsigned> runs[] = {{"0", 0}, {"2", 1}, {"0", 0},
                                                   {"2", 4}, {"0", 0}, {"2", 8}};
  for (const auto& [method, threads] : runs) {
    ++seed;
    readAheadThreads_ = threads;
    SCOPED_TRACE(std::string(method) + " seed " + std::to_string(seed) + " workers " +
                 std::to_string(threads));
    std::mt19937 rng(seed);
    const std::string folder = "mut" + std::to_string(seed);
    std::map<std::string, std::string> original;  // relative path -> content class
    std::vector<std::string> files;
    std::map<std::string, std::string> bodies;
    for (std::size_t s = 0; s < std::size(sizes); ++s) {
      for (int cls = 0; cls < 4; ++cls) {
        const std::string body =
            Bytes(sizes[s], static_cast<std::uint32_t>(seed * 31 + s * 7 + cls));
        const std::string name = std::to_string(s) + "_" + std::to_string(cls);
        for (int copy = 0; copy < 8; ++copy) {
          const std::string rel = folder + "/d" + std::to_string((cls + copy) % 4) + "/" + name +
                                  "_" + std::to_string(copy);
          W(rel, body);
          original[rel] = name;
          bodies[rel] = body;
          files.push_back(rel);
        }
      }
    }
    std::shuffle(files.begin(), files.end(), rng);
    files.resize(files.size() / 2);
    struct Change {
      std::string rel;
      int kind;
      std::string bytes;
      std::uintmax_t size;
    };
    std::vector<Change> changes;
    for (const auto& rel : files) {
      Change c{rel, static_cast<int>(rng() % 4), {}, 0};
      const std::string& body = bodies[rel];
      if (c.kind == 1) {
        // Cut to nothing half of the time: files of one size cut to 0 bytes
        // are the likeliest to be taken for each other.
        c.size = rng() % 2 == 0 ? 0 : rng() % body.size();
      } else if (c.kind == 2) {
        c.bytes = Bytes(1 + rng() % 5000, rng());
      } else if (c.kind == 3) {
        c.bytes = body;
        std::mt19937 mask(rng());
        for (auto& ch : c.bytes) ch = static_cast<char>(ch ^ (1 + mask() % 255));
      }
      changes.push_back(std::move(c));
    }

    std::atomic<bool> start{false};
    progress_.onLabel = [&](Label l, std::string_view text) {
      // The compare pass begins with "-" in the file counter.
      if (l == Label::Gesamt && text == "-") start = true;
    };
    std::thread mutator([&] {
      while (!start.load()) std::this_thread::sleep_for(50us);
      for (const auto& c : changes) {
        const fs::path p = tree_ / c.rel;
        std::error_code ec;
        switch (c.kind) {
          case 0:
            fs::remove(p, ec);
            break;
          case 1:
            fs::resize_file(p, c.size, ec);
            break;
          case 2: {
            std::ofstream f(p, std::ios::binary | std::ios::app);
            f.write(c.bytes.data(), static_cast<std::streamsize>(c.bytes.size()));
            break;
          }
          default:
            Overwrite(p, c.bytes);
            break;
        }
        std::this_thread::sleep_for(20us);
      }
    });
    ContentSearch(method);
    Groups groups;
    EXPECT_TRUE(FinishesWithin(60000ms, [&] { groups = Run(folder); }, {}));
    start = true;
    mutator.join();
    EXPECT_FALSE(groups.empty());
    for (const Group& g : groups) {
      std::set<std::string> classes;
      for (const auto& rel : g) classes.insert(original.at(rel));
      EXPECT_EQ(classes.size(), 1u) << ::testing::PrintToString(g);
    }
  }
}

}  // namespace
}  // namespace kelvor
