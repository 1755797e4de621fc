// Searches over trees where the file system fails on purpose: a folder the
// walk cannot open, a file whose reads fail. The failures come from
// FileSystemFaults, so they hit exactly the chosen call, for root as for
// anybody, and the rest of the tree is searched as usual.

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "data/file_system.h"
#include "frame/error_text.h"
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
using test::Groups;

class FileFaultsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
  }

  // A content search by the given method ("0" byte by byte, "2" SHA1, ...)
  // over the tree, with `faults` in place on the searching thread.
  Groups ContentSearch(const char* method, const FileSystemFaults& faults) {
    test::OnlyCriteria(settings_, {3});
    settings_.Set("DupVerz", "ContentCompare", method);
    // No tag or Exif cuts: a checksum search then reads ahead on its helper
    // thread.
    for (const char* cut : {"IgnoreMP3Tags", "IgnoreFlacMetadata", "IgnoreExif"})
      settings_.SetBool("DupVerz", cut, false);
    SourceFolderRow row;
    row.path = tree_.string();
    engine_ = std::make_unique<SearchEngine>(SearchContext{
        Init_Variablen(settings_, texts_), texts_, *logger_, progress_, prompt_, run_});
    run_.SearchState = kRunning;
    run_.StopReason = kStopNone;
    FileSystemFaults::Scope scope(&faults);
    EXPECT_TRUE(engine_->Search_Start({row}));
    return test::GroupsBelow(engine_->Result(), tree_);
  }

  std::string RunLog() const {
    std::error_code ec;
    return fs::exists(data_ / "run.txt", ec) ? test::ReadUtf16File(data_ / "run.txt") : "";
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
  std::string Full(const std::string& rel) const { return (tree_ / rel).string(); }

  test::TempDir tmp_;
  fs::path tree_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  test::SilentProgress progress_;
  test::SilentPrompt prompt_{true};
  RunState run_;
  std::unique_ptr<SearchEngine> engine_;
};

// A folder that cannot be opened is passed over without a message, as one
// that vanished would be; its files take no part, and the folders beside it
// and below its siblings are searched in full.
TEST_F(FileFaultsTest, AFolderThatCannotBeOpenedIsPassedOverAndTheRestIsSearched) {
  const std::string same(20000, 'q');
  tmp_.Write("tree/open/a", same);
  tmp_.Write("tree/open/deeper/b", same);
  tmp_.Write("tree/locked/c", same);
  tmp_.Write("tree/locked/inner/d", same);
  FileSystemFaults faults;
  faults.Fail(FsCall::OpenFolder, "locked", EACCES);
  for (const char* method : {"0", "2"}) {
    SCOPED_TRACE(method);
    ClearLogs();
    EXPECT_EQ(ContentSearch(method, faults), (Groups{{"open/a", "open/deeper/b"}}));
    EXPECT_EQ(engine_->Stats().FoldersSearched, 3);  // the tree, open, open/deeper
    EXPECT_EQ(Count(RunLog(), "locked"), 0) << RunLog();
  }
  // Without the fault the same tree gives one group of all four.
  ClearLogs();
  EXPECT_EQ(ContentSearch("2", FileSystemFaults{}),
            (Groups{{"open/a", "open/deeper/b", "locked/c", "locked/inner/d"}}));
}

// A file whose reads fail is reported in the run log with the system's
// text and stays out of every group; the equal files beside it still form
// theirs. With a checksum the read-ahead thread makes most digests: the
// failing file is the last the folder lists, which the helper thread reaches
// while the cascade hashes the ones before, so the fault must reach it too.
TEST_F(FileFaultsTest, AFileThatCannotBeReadIsInErrorAndNeverEqual) {
  const std::string same(400000, 'z');
  for (int i = 0; i < 5; ++i) tmp_.Write("tree/f" + std::to_string(i), same);
  const std::vector<std::string> order = test::ListingOrder(tree_);
  ASSERT_EQ(order.size(), 5u);
  const std::string bad = order.back();
  FileSystemFaults faults;
  faults.Fail(FsCall::ReadFile, "/" + bad, EIO);
  const std::string ioText = ErrorText(EIO);
  for (const char* method : {"0", "2", "4"}) {
    SCOPED_TRACE(method);
    ClearLogs();
    test::Group good(order.begin(), order.end() - 1);
    EXPECT_EQ(ContentSearch(method, faults), Groups{good});
    const std::string log = RunLog();
    const int named = Count(log, "'" + Full(bad) + "'");
    // A checksum failure puts the record in error, so it is read and
    // reported once; byte by byte each comparison with it reports its own.
    if (std::string(method) == "0")
      EXPECT_GE(named, 1) << log;
    else
      EXPECT_EQ(named, 1) << log;
    EXPECT_EQ(Count(log, ioText), named) << log;
    EXPECT_EQ(Count(log, "ERROR"), named) << log;
  }
}

// A file that cannot be opened is in error in the same way, whichever of the
// pair it is.
TEST_F(FileFaultsTest, AFileThatCannotBeOpenedIsInErrorAndNeverEqual) {
  const std::string same(5000, 'k');
  for (const char* name : {"a", "b"}) tmp_.Write(std::string("tree/") + name, same);
  for (const char* denied : {"/a", "/b"}) {
    SCOPED_TRACE(denied);
    FileSystemFaults faults;
    faults.Fail(FsCall::OpenFile, denied, EACCES);
    ClearLogs();
    EXPECT_TRUE(ContentSearch("2", faults).empty());
    const std::string log = RunLog();
    EXPECT_EQ(Count(log, "'" + Full(denied + 1) + "'"), 1) << log;
    EXPECT_EQ(Count(log, ErrorText(EACCES)), 1) << log;
  }
}

}  // namespace
}  // namespace kelvor
