// The flat checksum index against a std::unordered_map fed the same random
// operations: every lookup and every insert answers alike, across growth.

#include "compare/digest_index.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>

namespace kelvor {
namespace {

std::string MapKey(std::uint32_t key, const std::string& digest) {
  return std::to_string(key) + '\0' + digest;
}

TEST(DigestIndex, AnswersLikeAHashMapUnderRandomOperations) {
  std::mt19937_64 rng(7);
  DigestIndex index;
  std::unordered_map<std::string, int> model;
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
      const bool stored = index.TryEmplace(key, d, value);
      ASSERT_EQ(stored, model.try_emplace(MapKey(key, d), value).second) << op;
    } else {
      const int* hit = index.Find(key, d);
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
    const int* hit = index.Find(key, std::string_view(k).substr(zero + 1));
    ASSERT_NE(hit, nullptr);
    EXPECT_EQ(*hit, v);
  }
}

TEST(DigestIndex, EmptyIndexFindsNothing) {
  const DigestIndex index;
  EXPECT_EQ(index.Find(1, "abc"), nullptr);
  EXPECT_EQ(index.Find(1, ""), nullptr);
}

}  // namespace
}  // namespace kelvor
