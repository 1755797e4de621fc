// The real kelvor binary run headless in a temporary data folder: exit
// codes, messages, the data folder it makes, its logs and its output.

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "headless/headless.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::ReadUtf16File;
using test::TempDir;

struct Outcome {
  int code = -1;
  std::string out, err;
};

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

class HeadlessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* bin = std::getenv("KELVOR_BIN");
    if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
    bin_ = bin;
    data_ = tmp_.path() / "kdata";
    tree_ = tmp_.Mkdir("tree");
  }

  // Runs kelvor with the data folder in the temp folder, then `args`.
  Outcome Kelvor(const std::vector<std::string>& args, bool withData = true) {
    std::string cmd = Quote(bin_);
    if (withData) cmd += " --data-dir " + Quote(data_.string());
    for (const auto& a : args) cmd += " " + Quote(a);
    const fs::path out = tmp_.path() / "stdout.txt", err = tmp_.path() / "stderr.txt";
    cmd += " >" + Quote(out.string()) + " 2>" + Quote(err.string()) + " </dev/null";
    int status = std::system(cmd.c_str());
    Outcome o;
    o.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    o.out = ReadBytes(out);
    o.err = ReadBytes(err);
    return o;
  }

  TempDir tmp_;
  std::string bin_;
  fs::path data_, tree_;
};

TEST_F(HeadlessTest, SearchMakesDataFolderLogsAndGroups) {
  tmp_.Write("tree/a/x.txt", "12345");
  tmp_.Write("tree/b/y.txt", "abcde");
  tmp_.Write("tree/c/z.txt", "1234567");
  Outcome o = Kelvor({"--headless", "-s2", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;

  for (const char* sub : {"log", "data", "update", "temp", "profile", "export"})
    EXPECT_TRUE(fs::is_directory(data_ / sub)) << sub;
  const std::string ini = ReadBytes(data_ / "config4.ini");
  ASSERT_GE(ini.size(), 2u);
  EXPECT_EQ(static_cast<unsigned char>(ini[0]), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(ini[1]), 0xFE);
  EXPECT_TRUE(fs::exists(data_ / "log/Kelvor4.txt"));

  const std::string log = ReadUtf16File(data_ / "log/lastsearch.txt");
  for (const std::string& line :
       {std::string("Suchmethode: Finde Duplikate anhand der gleichen Dateigröße"),
        "1.Quellordner: " + tree_.string(), std::string("Dateianzahl: 3"),
        std::string("Überprüfte Dateien: 3"), std::string("Duplikate: 2"),
        std::string("Gruppen: 1"), std::string("Dateivergleiche: "), std::string("Zeitaufwand: ")})
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n---\n" << log;

  // One group: its title line, then the full paths.
  const std::string a = (tree_ / "a/x.txt").string(), b = (tree_ / "b/y.txt").string();
  EXPECT_TRUE(o.out == "5\n" + a + "\n" + b + "\n" || o.out == "5\n" + b + "\n" + a + "\n")
      << o.out;
  EXPECT_EQ(o.out.find("z.txt"), std::string::npos);
  EXPECT_NE(o.err.find("Duplikate: 2"), std::string::npos) << o.err;
}

TEST_F(HeadlessTest, RejectedSetupsExitWithTheirMessage) {
  tmp_.Mkdir("tree/sub");
  const std::string tree = tree_.string(), sub = (tree_ / "sub").string();
  const std::string gone = (tmp_.path() / "gone").string();
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  for (const Case& c : std::vector<Case>{
           {{"--headless", tree}, "Es ist kein Suchkriterium ausgewählt."},
           {{"--headless", "-s2"}, "Es ist kein Quellordner ausgewählt!"},
           {{"--headless", "-s2", gone}, "Es ist kein Quellordner ausgewählt!"},
           {{"--headless", "-s8", tree},
            "Das Suchkriterium 'Finde ähnliche Bilder' ist in dieser Version noch nicht "
            "verfügbar."},
           {{"--headless", "-s9", tree}, "Das Suchkriterium 'Finde ähnliche Musik"},
           {{"--headless", "-sa", tree}, "Das Suchkriterium 'Finde ähnliche Musik"},
           {{"--headless", "-s2", tree, sub},
            "Der Suchvorgang kann nicht durchgeführt werden:\r\n\r\n'" + tree + "' und '" + sub +
                "' überschneiden sich."},
       }) {
    // A fresh data folder each time, so no earlier run's settings count.
    fs::remove_all(data_);
    Outcome o = Kelvor(c.args);
    EXPECT_EQ(o.code, kExitRejected) << c.message;
    EXPECT_NE(o.err.find(c.message), std::string::npos) << o.err;
    EXPECT_EQ(o.out, "");
  }
}

// Writes a settings file (UTF-8 is read as well) with exactly `on` as the
// criteria and `folders` as the source list.
void WriteSetup(const fs::path& file, std::initializer_list<int> on,
                const std::vector<std::string>& folders) {
  std::string text = "[DupVerz]\n";
  for (int i = 0; i < 10; ++i) {
    bool set = false;
    for (int o : on) set = set || o == i;
    text += "Suchkriterien" + std::to_string(i) + "=" + (set ? "1" : "0") + "\n";
  }
  text += "[Ordnerlist]\n";
  for (std::size_t i = 0; i < folders.size(); ++i) {
    const std::string n = std::to_string(i + 1);
    text += "V" + n + "=" + folders[i] + "\nA" + n + "=1\nU" + n + "=1\nP" + n + "=0\n";
  }
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

TEST_F(HeadlessTest, MissingFoldersAndProfiles) {
  tmp_.Write("tree/mine/p.txt", "same");
  tmp_.Write("tree/mine/q.txt", "same");
  tmp_.Write("tree/theirs/x.txt", "12345");
  tmp_.Write("tree/theirs/y.txt", "abcde");
  const std::string mine = (tree_ / "mine").string(), theirs = (tree_ / "theirs").string();
  const std::string gone = (tmp_.path() / "gone").string();

  // A missing folder beside an existing one: the existing one is searched.
  Outcome o = Kelvor({"--headless", "-s2", gone, mine});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find(mine + "/p.txt"), std::string::npos) << o.out;
  EXPECT_EQ(o.err.find("gone"), std::string::npos) << o.err;

  // A profile with folders: loaded after the command line's folders, it
  // brings its own folders and criteria.
  WriteSetup(data_ / "profile/Mit.pro4", {2}, {theirs});
  o = Kelvor({"--headless", "-s0", mine, "-p:Mit"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find(theirs + "/x.txt"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find(mine), std::string::npos) << o.out;

  // A profile without folders keeps the command line's.
  WriteSetup(data_ / "profile/Ohne.pro4", {2}, {});
  o = Kelvor({"--headless", "-p:Ohne", mine});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find(mine + "/p.txt"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find(theirs), std::string::npos) << o.out;

  // Criteria that are not built yet are refused wherever they come from.
  WriteSetup(data_ / "profile/Bilder.pro4", {8}, {});
  o = Kelvor({"--headless", "-p:Bilder", mine});
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("'Finde ähnliche Bilder' ist in dieser Version noch nicht verfügbar."),
            std::string::npos)
      << o.err;
  EXPECT_EQ(o.out, "");
  fs::remove_all(data_);
  WriteSetup(data_ / "config4.ini", {9}, {mine});
  o = Kelvor({"--headless", mine});
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("'Finde ähnliche Musik"), std::string::npos) << o.err;
}

TEST_F(HeadlessTest, JsonHelpAndUnknownOptions) {
  tmp_.Write("tree/one.txt", "same");
  tmp_.Write("tree/sub/one.txt", "same");
  tmp_.Write("tree/two.txt", "other");
  Outcome o = Kelvor({"--headless", "--json", "-s3", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  nlohmann::json doc = nlohmann::json::parse(o.out);
  ASSERT_EQ(doc["groups"].size(), 1u);
  const auto& files = doc["groups"][0]["files"];
  ASSERT_EQ(files.size(), 2u);
  std::set<std::string> paths{files[0]["path"].get<std::string>(),
                              files[1]["path"].get<std::string>()};
  EXPECT_EQ(paths, (std::set<std::string>{(tree_ / "one.txt").string(),
                                          (tree_ / "sub/one.txt").string()}));
  EXPECT_EQ(files[0]["size"], 4);
  const auto& st = doc["statistics"];
  EXPECT_EQ(st["files_total"], 3);
  EXPECT_EQ(st["files_checked"], 3);
  EXPECT_EQ(st["groups"], 1);
  EXPECT_EQ(st["duplicates"], 2);
  EXPECT_EQ(st["duplicate_bytes"], 8);

  o = Kelvor({"--headless", "--frobnicate", "-s2", tree_.string()});
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("--frobnicate"), std::string::npos) << o.err;
  o = Kelvor({"--headless", "-q", "-s2", tree_.string()});
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("-q"), std::string::npos) << o.err;

  o = Kelvor({"--help"}, false);
  EXPECT_EQ(o.code, 0);
  EXPECT_NE(o.out.find("--headless"), std::string::npos);
  EXPECT_NE(o.out.find("--data-dir"), std::string::npos);
  EXPECT_EQ(o.out, HelpText());
}

}  // namespace
}  // namespace kelvor
