// StringArena and StringInterner: texts across chunk ends and oversized texts.

#include "data/string_arena.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kelvor {
namespace {

TEST(StringArena, TextsSurviveChunkEndsAndOversizedBlocks) {
  StringArena arena;
  EXPECT_EQ(arena.Put(""), 0u);
  EXPECT_EQ(arena.Get(0), "");
  std::vector<std::pair<std::uint32_t, std::string>> stored;
  for (int i = 0; i < 30000; ++i) {
    std::string s(static_cast<std::size_t>(1 + i % 300), static_cast<char>('a' + i % 26));
    s += std::to_string(i);
    if (i == 1000) s = std::string(3 * 1024 * 1024 + 17, 'X');  // larger than a chunk
    if (i == 1001) s = std::string(200, '\0') + "\xff";         // any bytes
    stored.emplace_back(arena.Put(s), s);
  }
  for (const auto& [ref, text] : stored) ASSERT_EQ(arena.Get(ref), text);
  EXPECT_GT(arena.BytesReserved(), 4u * 1024 * 1024);
  arena.Clear();
  EXPECT_EQ(arena.BytesReserved(), 0u);
  EXPECT_NE(arena.Put("again"), 0u);
}

TEST(StringArena, TheInternerStoresEachTextOnce) {
  StringArena arena;
  StringInterner paths(&arena);
  const std::uint32_t a = paths.Intern("/music/rock");
  const std::uint32_t b = paths.Intern("/music/jazz");
  EXPECT_EQ(paths.Intern("/music/rock"), a);
  EXPECT_NE(a, b);
  EXPECT_EQ(paths.Intern(""), 0u);
  EXPECT_EQ(paths.Get(b), "/music/jazz");
  EXPECT_EQ(paths.Intern("/MUSIC/ROCK"), 3u);  // case is kept: another text
  EXPECT_EQ(paths.Size(), 4u);
}

}  // namespace
}  // namespace kelvor
