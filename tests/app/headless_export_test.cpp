// kelvor --headless --export: the file it writes, the choices, and the
// messages and exit codes of a bad use.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

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

class HeadlessExportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* bin = std::getenv("KELVOR_BIN");
    if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
    bin_ = bin;
    tmp_.Write("tree/a/same.txt", "twins");
    tmp_.Write("tree/b/same.txt", "twins");
    tmp_.Write("tree/b/other.txt", "alone");
  }

  Outcome Kelvor(const std::vector<std::string>& args) {
    std::string cmd =
        "timeout -k 5 60 '" + bin_ + "' --headless --data-dir '" + (tmp_ / "kdata").string() + "'";
    for (const auto& a : args) cmd += " '" + a + "'";
    const fs::path out = tmp_ / "stdout.txt", err = tmp_ / "stderr.txt";
    cmd += " >'" + out.string() + "' 2>'" + err.string() + "' </dev/null";
    Outcome o;
    const int st = std::system(cmd.c_str());
    o.code = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    o.out = ReadBytes(out);
    o.err = ReadBytes(err);
    return o;
  }

  TempDir tmp_;
  std::string bin_;
};

TEST_F(HeadlessExportTest, ExportsInsteadOfPrinting) {
  const fs::path csv = tmp_ / "out.csv";
  Outcome o =
      Kelvor({"-s3", (tmp_ / "tree").string(), "--export", csv.string(), "--delimiter", ";"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out, "");
  EXPECT_NE(o.err.find("2 Dateien wurden in die Datei '" + csv.string() + "' exportiert."),
            std::string::npos)
      << o.err;
  EXPECT_EQ(ReadBytes(csv).substr(0, 2), "\xFF\xFE");
  const std::string text = ReadUtf16File(csv);
  EXPECT_EQ(text.rfind("\"Gruppen-Nr.\";\"Selektiert\";\"Datei\";\"Dateipfad\";", 0), 0u) << text;
  EXPECT_NE(text.find("\"1\";\"0\";\"same.txt\";\"" + (tmp_ / "tree/a").string() + "\";\"5\""),
            std::string::npos)
      << text;
  // The outcome is in the general log too.
  EXPECT_NE(ReadUtf16File(tmp_ / "kdata/log/Kelvor4.txt").find("exportiert"), std::string::npos);

  // Nothing is marked after a search: "marked only" has nothing to write.
  o = Kelvor(
      {"-s3", (tmp_ / "tree").string(), "--export", (tmp_ / "m.txt").string(), "--export-marked"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("Die zu exportierenden Dateien konnten im Suchergebnis nicht gefunden "
                       "werden!"),
            std::string::npos);
  EXPECT_FALSE(fs::exists(tmp_ / "m.txt"));

  o = Kelvor({"-s3", (tmp_ / "tree").string(), "--export", (tmp_ / "u.xlsx").string(),
              "--export-unmarked"});
  EXPECT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(ReadBytes(tmp_ / "u.xlsx").substr(0, 2), "PK");
}

TEST_F(HeadlessExportTest, BadUsesExitOneWithTheirMessage) {
  const std::string tree = (tmp_ / "tree").string();
  Outcome o = Kelvor({"-s3", tree, "--export", (tmp_ / "x.ods").string()});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("ist unbekannt: erlaubt sind .txt, .csv und .xlsx"), std::string::npos);
  EXPECT_FALSE(fs::exists(tmp_ / "kdata/log/lastsearch.txt")) << "no search may run";

  o = Kelvor({"-s3", tree, "--export"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("--export needs a file name"), std::string::npos);
  o = Kelvor({"-s3", tree, "--export", "x.csv", "--delimiter", "\""});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("--delimiter needs"), std::string::npos);
  o = Kelvor({"-s3", tree, "--export-marked"});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("need --export FILE"), std::string::npos);
  o = Kelvor({"-s3", tree, "--export", "x.csv", "--export-marked", "--export-unmarked"});
  EXPECT_EQ(o.code, 1);

  // A folder under the chosen name stays a folder.
  fs::create_directory(tmp_ / "dir.csv");
  o = Kelvor({"-s3", tree, "--export", (tmp_ / "dir.csv").string()});
  EXPECT_EQ(o.code, 1);
  EXPECT_NE(o.err.find("konnte nicht geschrieben werden"), std::string::npos) << o.err;
  EXPECT_TRUE(fs::is_directory(tmp_ / "dir.csv"));

  o = Kelvor({"--help"});
  EXPECT_EQ(o.code, 0);
  for (const char* opt : {"--export FILE", "--export-marked", "--export-unmarked", "--delimiter X"})
    EXPECT_NE(o.out.find(opt), std::string::npos) << opt;
}

}  // namespace
}  // namespace kelvor
