// The real kelvor binary saving and loading results headless: --save,
// --load, the automatic save, refusals, and a full disk during a save.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::TempDir;

struct Outcome {
  int code = -1;
  std::string out, err;
};

class HeadlessSaved : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* bin = std::getenv("KELVOR_BIN");
    if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
    bin_ = bin;
    data_ = tmp_.path() / "kdata";
    tree_ = tmp_.Mkdir("tree");
    tmp_.Write("tree/a/x.txt", "12345");
    tmp_.Write("tree/b/y.txt", "abcde");
    tmp_.Write("tree/c/z.txt", "1234567");
    tmp_.Write("tree/c/w.txt", "7654321");
  }

  // Runs kelvor with the data folder; `fullDisk` lets no file grow (every
  // write fails with EFBIG), as on a disk that has run full.
  Outcome Kelvor(std::vector<std::string> args, bool fullDisk = false) {
    std::vector<std::string> all{bin_, "--data-dir", data_.string()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    // Output through pipes: a full disk must not keep the messages back.
    // Both stay far below a pipe's buffer, so they are read at the end.
    int outPipe[2], errPipe[2];
    if (::pipe(outPipe) != 0 || ::pipe(errPipe) != 0) return {};
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(outPipe[1], 1);
      ::dup2(errPipe[1], 2);
      for (int fd : {outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) ::close(fd);
      if (fullDisk) {
        ::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit {
          0, 0
        };
        ::setrlimit(RLIMIT_FSIZE, &limit);
      }
      ::alarm(120);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    Outcome r;
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    for (auto [fd, into] : {std::pair{outPipe[0], &r.out}, std::pair{errPipe[0], &r.err}}) {
      char buf[4096];
      for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;)
        into->append(buf, static_cast<std::size_t>(n));
      ::close(fd);
    }
    return r;
  }

  fs::path Saved(const std::string& file) { return data_ / "data" / file; }

  TempDir tmp_;
  std::string bin_;
  fs::path data_, tree_;
};

TEST_F(HeadlessSaved, SaveThenLoadShowsTheSameResult) {
  const Outcome search = Kelvor({"--headless", "--save", "sizes", "-s2", tree_.string()});
  ASSERT_EQ(search.code, 0) << search.err;
  for (const char* f : {"sizes.ksr4a", "sizes.ini4a", "sizes.txt"})
    EXPECT_TRUE(fs::exists(Saved(f))) << f;
  EXPECT_NE(test::ReadUtf16File(Saved("sizes.txt")).find("Dateianzahl: 4"), std::string::npos);

  const Outcome load = Kelvor({"--headless", "--load", "sizes"});
  ASSERT_EQ(load.code, 0) << load.err;
  EXPECT_EQ(load.out, search.out);

  const Outcome json = Kelvor({"--headless", "--load", "sizes", "--json"});
  ASSERT_EQ(json.code, 0) << json.err;
  const auto doc = nlohmann::json::parse(json.out);
  ASSERT_EQ(doc["groups"].size(), 2u);
  EXPECT_EQ(doc["groups"][0]["files"].size(), 2u);

  // A loaded result saved under a new name loads the same again.
  ASSERT_EQ(Kelvor({"--headless", "--load", "sizes", "--save", "copy"}).code, 0);
  EXPECT_EQ(Kelvor({"--headless", "--load", "copy"}).out, search.out);
}

TEST_F(HeadlessSaved, MissingOrDamagedResultsExitWithTheMessage) {
  Outcome o = Kelvor({"--headless", "--load", "nothing"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("Das Suchergebnis kann nicht geladen werden:"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("nothing.ksr4a' not exist"), std::string::npos) << o.err;
  EXPECT_TRUE(o.out.empty());

  ASSERT_EQ(Kelvor({"--headless", "--save", "r", "-s2", tree_.string()}).code, 0);
  std::string rows = ReadBytes(Saved("r.ksr4a"));
  rows[rows.size() / 2] ^= 0x40;
  std::ofstream(Saved("r.ksr4a"), std::ios::binary | std::ios::trunc) << rows;
  o = Kelvor({"--headless", "--load", "r"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("ist beschädigt"), std::string::npos) << o.err;
  EXPECT_TRUE(o.out.empty());

  o = Kelvor({"--headless", "--load", "r", tree_.string()});
  EXPECT_EQ(o.code, 1);
  o = Kelvor({"--headless", "--save"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("--save needs the name"), std::string::npos);
  o = Kelvor({"--headless", "--load", "../r"});
  EXPECT_EQ(o.code, 1);

  o = Kelvor({"--help"});
  EXPECT_NE(o.out.find("--save NAME"), std::string::npos);
  EXPECT_NE(o.out.find("--load NAME"), std::string::npos);
}

TEST_F(HeadlessSaved, FullDiskKeepsThePreviousSave) {
  ASSERT_EQ(Kelvor({"--headless", "--save", "kept", "-s2", tree_.string()}).code, 0);
  const std::string rows = ReadBytes(Saved("kept.ksr4a"));
  const std::string ini = ReadBytes(Saved("kept.ini4a"));
  const std::string before = Kelvor({"--headless", "--load", "kept"}).out;

  tmp_.Write("tree/d/v.txt", "1234567");
  const Outcome o = Kelvor({"--headless", "--save", "kept", "-s2", tree_.string()}, true);
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("Das Suchergebnis konnte nicht gespeichert werden"), std::string::npos)
      << o.err;
  EXPECT_EQ(ReadBytes(Saved("kept.ksr4a")), rows);
  EXPECT_EQ(ReadBytes(Saved("kept.ini4a")), ini);
  for (const auto& e : fs::recursive_directory_iterator(data_))
    EXPECT_EQ(e.path().filename().string().rfind("KVS", 0), std::string::npos) << e.path();
  EXPECT_EQ(Kelvor({"--headless", "--load", "kept"}).out, before);
}

TEST_F(HeadlessSaved, AutomaticSaveAtTheEndOfASearch) {
  tmp_.Write("kdata/config4.ini", "[DupVerz]\nSaveReport=1\n");
  ASSERT_EQ(Kelvor({"--headless", "-s2", tree_.string()}).code, 0);
  ASSERT_EQ(Kelvor({"--headless", "-s2", tree_.string()}).code, 0);
  EXPECT_TRUE(fs::exists(Saved("AutoSave000.ksr4a")));
  EXPECT_TRUE(fs::exists(Saved("AutoSave001.ksr4a")));
  EXPECT_EQ(Kelvor({"--headless", "--load", "AutoSave001"}).code, 0);
  // A search without duplicates has nothing to save.
  const fs::path lone = tmp_.Mkdir("lone");
  tmp_.Write("lone/a", "1");
  ASSERT_EQ(Kelvor({"--headless", "-s2", lone.string()}).code, 0);
  EXPECT_FALSE(fs::exists(Saved("AutoSave002.ksr4a")));
}

}  // namespace
}  // namespace kelvor
