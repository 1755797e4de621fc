// A short form of bench/link_crash.sh: a child process replaces duplicates
// by hard links and is killed (SIGKILL) midway; every path still holds its
// old file or a link to its group's kept file.

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "data/file_ops.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::ReadBytes;

constexpr int kGroups = 300;
constexpr int kGroupSize = 4;

std::string PathOf(const std::filesystem::path& dir, int g, int k) {
  return (dir / ("d" + std::to_string((g + k) % 7)) /
          ("g" + std::to_string(g) + "-" + std::to_string(k)))
      .string();
}

std::string ContentOf(int g) {
  return "group " + std::to_string(g) + std::string(50 + g % 300, 'x');
}

TEST(LinkCrash, KilledAtARandomMomentNoFileIsLost) {
  std::mt19937 random(std::random_device{}());
  for (int round = 0; round < 3; ++round) {
    test::TempDir d;
    for (int g = 0; g < kGroups; ++g) {
      for (int k = 0; k < kGroupSize; ++k)
        d.Write(std::filesystem::relative(PathOf(d.path(), g, k), d.path()).string(), ContentOf(g));
    }
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const TextCatalog texts;
      for (int g = 0; g < kGroups; ++g) {
        for (int k = 1; k < kGroupSize; ++k) {
          ReplaceRequest req;
          req.path = PathOf(d.path(), g, k);
          req.source = PathOf(d.path(), g, 0);
          ReplaceWithLink(req, texts);
        }
      }
      ::_exit(0);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 40000));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);

    int linked = 0;
    for (int g = 0; g < kGroups; ++g) {
      struct stat src {};
      ASSERT_EQ(::lstat(PathOf(d.path(), g, 0).c_str(), &src), 0);
      for (int k = 0; k < kGroupSize; ++k) {
        const std::string p = PathOf(d.path(), g, k);
        struct stat st {};
        ASSERT_EQ(::lstat(p.c_str(), &st), 0) << p << " is lost";
        ASSERT_TRUE(S_ISREG(st.st_mode)) << p;
        ASSERT_EQ(ReadBytes(p), ContentOf(g)) << p;
        if (k > 0 && st.st_ino == src.st_ino) ++linked;
      }
    }
    RecordProperty("linked" + std::to_string(round), linked);
  }
}

}  // namespace
}  // namespace kelvor
