// kelvor --headless with --select, --remove and --undo: the marks and
// counters of the JSON output, undo back to the searched state, removal
// ending the history, and refused ids and replies.

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

struct Outcome {
  int code = -1;
  std::string out, err;
};

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

class HeadlessMarksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* bin = std::getenv("KELVOR_BIN");
    if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
    bin_ = bin;
    tree_ = tmp_.Mkdir("tree");
    // Two groups of equal content: old/new/mid copies of one file, and a
    // pair of another.
    Put("a/photo.jpg", "picture", 2019);
    Put("b/photo.jpg", "picture", 2023);
    Put("backup/photo.jpg", "picture", 2021);
    Put("a/notes.txt", "some notes", 2020);
    Put("backup/notes.txt", "some notes", 2018);
  }

  void Put(const std::string& rel, const std::string& content, int year) {
    const fs::path p = tmp_.Write("tree/" + rel, content);
    const std::string cmd =
        "touch -d '" + std::to_string(year) + "-06-01 12:00' " + Quote(p.string());
    ASSERT_EQ(std::system(cmd.c_str()), 0);
  }

  Outcome Kelvor(const std::vector<std::string>& args) {
    std::string cmd = "timeout -k 5 60 " + Quote(bin_) + " --data-dir " +
                      Quote((tmp_.path() / "kdata").string()) + " --headless -s3 --json " +
                      Quote(tree_.string());
    for (const auto& a : args) cmd += " " + Quote(a);
    const fs::path out = tmp_.path() / "stdout.txt", err = tmp_.path() / "stderr.txt";
    cmd += " >" + Quote(out.string()) + " 2>" + Quote(err.string()) + " </dev/null";
    const int status = std::system(cmd.c_str());
    Outcome o;
    o.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    o.out = test::ReadBytes(out);
    o.err = test::ReadBytes(err);
    return o;
  }

  // The marks by path below the tree.
  static std::map<std::string, bool> Marks(const nlohmann::json& doc, const fs::path& tree) {
    std::map<std::string, bool> m;
    for (const auto& g : doc["groups"]) {
      for (const auto& f : g["files"]) {
        const std::string p = f["path"];
        m[p.substr(tree.string().size() + 1)] = f["marked"];
      }
    }
    return m;
  }

  nlohmann::json Run(const std::vector<std::string>& args) {
    const Outcome o = Kelvor(args);
    EXPECT_EQ(o.code, 0) << o.err;
    return nlohmann::json::parse(o.out);
  }

  test::TempDir tmp_;
  std::string bin_;
  fs::path tree_;
};

using MarkMap = std::map<std::string, bool>;

TEST_F(HeadlessMarksTest, AllButTheNewestThenARuleAndTwoUndosGiveTheSearchBack) {
  const nlohmann::json searched = Run({});
  EXPECT_EQ(searched["statistics"]["DupCountSelected"], 0);
  EXPECT_FALSE(searched.contains("undo"));

  const nlohmann::json newest = Run({"--select", "27"});
  EXPECT_EQ(Marks(newest, tree_), (MarkMap{{"a/notes.txt", false},
                                           {"backup/notes.txt", true},
                                           {"a/photo.jpg", true},
                                           {"b/photo.jpg", false},
                                           {"backup/photo.jpg", true}}));
  const auto& st = newest["statistics"];
  EXPECT_EQ(st["DupCount"], 5);
  EXPECT_EQ(st["DupCountSelected"], 3);
  EXPECT_EQ(st["FilesizeAll"], 3 * 7 + 2 * 10);
  EXPECT_EQ(st["FilesizeSelected"], 2 * 7 + 10);
  EXPECT_TRUE(newest["undo"]["enabled"]);

  // Then everything under backup/ is unmarked by a path rule, and both
  // steps are taken back.
  const nlohmann::json rule = Run({"--select", "27", "--select", "235:*/backup"});
  EXPECT_EQ(rule["statistics"]["DupCountSelected"], 1);
  EXPECT_EQ(rule["undo"]["steps"], 2);
  const nlohmann::json once = Run({"--select", "27", "--select", "235:*/backup", "--undo"});
  EXPECT_EQ(Marks(once, tree_), Marks(newest, tree_));
  const nlohmann::json back =
      Run({"--select", "27", "--select", "235:*/backup", "--undo", "--undo"});
  EXPECT_EQ(Marks(back, tree_), Marks(searched, tree_));
  EXPECT_EQ(back["statistics"]["DupCountSelected"], 0);
  EXPECT_EQ(back["statistics"]["FilesizeSelected"], 0);
  EXPECT_FALSE(back["undo"]["enabled"]);
  EXPECT_EQ(back["undo"]["steps"], 0);
}

TEST_F(HeadlessMarksTest, TwoRulesAndARemovalLeaveNoHistory) {
  const nlohmann::json doc = Run({"--select", "13", "--select", "27", "--remove", "220"});
  EXPECT_FALSE(doc["undo"]["enabled"]);
  EXPECT_EQ(doc["undo"]["steps"], 0);
  EXPECT_EQ(Marks(doc, tree_), (MarkMap{{"a/notes.txt", false}, {"b/photo.jpg", false}}));
  EXPECT_EQ(doc["statistics"]["DupCount"], 2);
  EXPECT_EQ(doc["statistics"]["FilesizeAll"], 17);
  // A further undo has nothing to take back: the result stays.
  const nlohmann::json after =
      Run({"--select", "13", "--select", "27", "--remove", "220", "--undo"});
  EXPECT_EQ(Marks(after, tree_), Marks(doc, tree_));
  EXPECT_TRUE(fs::exists(tree_ / "backup" / "photo.jpg")) << "a removal touches no file";
}

TEST_F(HeadlessMarksTest, RefusedIdsAndRepliesExitWithTheirMessage) {
  Outcome o = Kelvor({"--select", "4711"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("Unbekannte Befehlsnummer: 4711"), std::string::npos) << o.err;
  EXPECT_TRUE(o.out.empty());
  o = Kelvor({"--remove", "27"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("Der Befehl 27 kann hier nicht ausgeführt werden."), std::string::npos);
  o = Kelvor({"--select", "236:150"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("zwischen 1 und 100"), std::string::npos) << o.err;
  o = Kelvor({"--select", "229:[photo"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("Das Textmuster '[photo' ist ungültig"), std::string::npos) << o.err;
  o = Kelvor({"--remove", "8:viele"});
  EXPECT_EQ(o.code, 1);
  o = Kelvor({"--select"});
  EXPECT_EQ(o.code, 1);
}

TEST_F(HeadlessMarksTest, RemovalsByFolderAndByGroupSize) {
  const nlohmann::json doc = Run({"--remove", "1500:" + (tree_ / "backup").string()});
  EXPECT_EQ(Marks(doc, tree_),
            (MarkMap{{"a/notes.txt", false}, {"a/photo.jpg", false}, {"b/photo.jpg", false}}));
  const nlohmann::json ones =
      Run({"--remove", "1500:" + (tree_ / "backup").string(), "--remove", "8:1"});
  EXPECT_EQ(ones["groups"].size(), 1u);
  EXPECT_EQ(ones["statistics"]["DupCount"], 2);
}

}  // namespace
}  // namespace kelvor
