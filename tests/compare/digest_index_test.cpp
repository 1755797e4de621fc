// The flat checksum index against a std::unordered_map fed the same random
// operations: every lookup and every insert answers alike, across growth.

#include "compare/digest_index.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelvor {
namespace {

std::string MapKey(std::uint32_t key, const std::string& digest) {
  return std::to_string(key) + '\0' + digest;
}

TEST(DigestIndex, AnswersLikeAHashMapUnderRandomOperations) {
  std::mt19937_64 rng(7);
  DigestIndex index;
  std::unordered_map<std::string, int> model;
  // Where the caller keeps the digests: the index holds only their numbers.
  std::vector<std::string> kept;
  auto digestOf = [&kept](std::uint32_t ref) -> const std::string& { return kept.at(ref); };
  // Few keys and short digests from a small alphabet, so that lookups hit,
  // inserts repeat and digests collide across keys; some digests are long,
  // some empty.
  auto digest = [&rng] {
    const std::size_t len = rng() % 8 == 0 ? 20 + rng() % 50 : rng() % 4;
    std::string d(len, '\0');
    for (char& c : d) c = static_cast<char>(rng() % 3);
    return d;
  };
  for (int op = 0; op < 200000; ++op) {
    const auto key = static_cast<std::uint32_t>(1 + rng() % 40);
    const std::string d = digest();
    if (rng() % 2 == 0) {
      const int value = static_cast<int>(rng() % 1000);
      kept.push_back(d);
      const bool stored =
          index.TryEmplace(key, d, static_cast<std::uint32_t>(kept.size() - 1), value, digestOf);
      ASSERT_EQ(stored, model.try_emplace(MapKey(key, d), value).second) << op;
    } else {
      const int* hit = index.Find(key, d, digestOf);
      const auto it = model.find(MapKey(key, d));
      ASSERT_EQ(hit != nullptr, it != model.end()) << op;
      if (hit) {
        ASSERT_EQ(*hit, it->second) << op;
      }
    }
  }
  EXPECT_EQ(index.Size(), model.size());
  EXPECT_GT(model.size(), 1000u);  // the table grew many times
  for (const auto& [k, v] : model) {
    const std::size_t zero = k.find('\0');
    const auto key = static_cast<std::uint32_t>(std::stoul(k.substr(0, zero)));
    const int* hit = index.Find(key, std::string_view(k).substr(zero + 1), digestOf);
    ASSERT_NE(hit, nullptr);
    EXPECT_EQ(*hit, v);
  }
}

TEST(DigestIndex, EmptyIndexFindsNothing) {
  const DigestIndex index;
  auto none = [](std::uint32_t) -> std::string_view {
    ADD_FAILURE() << "an empty index read a digest";
    return {};
  };
  EXPECT_EQ(index.Find(1, "abc", none), nullptr);
  EXPECT_EQ(index.Find(1, "", none), nullptr);
}

}  // namespace
}  // namespace kelvor
