// The similar-names search from a user's setup: config4.ini holds the name
// options, the command line picks the name criterion and the folder.

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

TEST(HeadlessNames, OptionsFromConfigAndCriterionFromCommandLine) {
  const char* bin = std::getenv("KELVOR_BIN");
  if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
  test::TempDir tmp;
  const fs::path tree = tmp.Mkdir("tree"), data = tmp.path() / "kdata";
  tmp.Write("tree/holiday photos 2019.jpg", "1");
  tmp.Write("tree/2019_Holiday-Photos.jpg", "22");
  tmp.Write("tree/holiday photos 2020.jpg", "333");
  fs::create_directories(data);
  // WordMatch at 90 %; the name criterion is off here and comes from -s0.
  std::ofstream(data / "config4.ini", std::ios::binary)
      << "[DupVerz]\nSuchkriterien0=0\nSuchkriterien2=1\nPartialFilenameCompare=1\n"
         "PartialFilenameCompareMethod=5\nPartialFilenameComparePercent=90\n";
  const fs::path out = tmp.path() / "out.json", err = tmp.path() / "err.txt";
  const std::string cmd = "timeout -k 5 60 '" + std::string(bin) + "' --data-dir '" +
                          data.string() + "' --headless --json -s0 '" + tree.string() + "' >'" +
                          out.string() + "' 2>'" + err.string() + "' </dev/null";
  const int status = std::system(cmd.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0) << test::ReadBytes(err);
  const nlohmann::json doc = nlohmann::json::parse(test::ReadBytes(out));
  ASSERT_EQ(doc["groups"].size(), 1u) << doc.dump();
  std::set<std::string> files;
  for (const auto& f : doc["groups"][0]["files"]) files.insert(f["path"].get<std::string>());
  EXPECT_EQ(files, (std::set<std::string>{(tree / "holiday photos 2019.jpg").string(),
                                          (tree / "2019_Holiday-Photos.jpg").string()}));
}

}  // namespace
}  // namespace kelvor
