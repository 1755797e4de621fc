// Speed of the checksum cache kept across runs.
//
// Stores N digests (default 100,000; SHA1-sized, distinct inodes) the way a
// first run would, closes, opens again as a second run would, and looks every
// key up once in random order (all hits), then N keys that are not there
// (all misses), then the hits again from 4 threads at once. Prints wall
// time and rates of each pass and the size of the file. Not part of the tests.
//
//   kelvor_checksum_cache_bench [N] [folder]

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "compare/checksum_cache.h"
#include "frame/texts.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t kSecond = 1000000000;

kelvor::ChecksumKey Key(std::uint64_t inode) {
  kelvor::ChecksumKey k;
  k.file.device = 2049;
  k.file.inode = inode;
  k.file.size = 1000000 + static_cast<std::int64_t>(inode);
  k.file.mtimeNs = 1600000000 * kSecond + static_cast<std::int64_t>(inode);
  k.file.ctimeNs = k.file.mtimeNs + 5;
  k.file.takenAtNs = k.file.ctimeNs + 100 * kSecond;
  k.mode = kelvor::kCompareSHA1;
  return k;
}

std::string Digest(std::uint64_t inode) {
  std::string d(20, '\0');
  for (std::size_t i = 0; i < d.size(); ++i) d[i] = static_cast<char>((inode >> (i % 8)) + i);
  return d;
}

double Since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

void Line(const char* what, std::size_t n, double seconds) {
  std::printf("%-34s %9zu in %7.3f s  %10.0f /s  %6.2f us each\n", what, n, seconds,
              static_cast<double>(n) / seconds, seconds * 1e6 / static_cast<double>(n));
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t n = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100000;
  fs::path folder = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path();
  folder /= "kelvor-cache-bench-" + std::to_string(::getpid());
  fs::create_directories(folder);
  const fs::path file = folder / "checksums.sqlite";
  kelvor::TextCatalog texts;
  std::string message;

  std::vector<std::uint64_t> order(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = i + 1;
  std::mt19937_64 rng(42);

  {
    auto c = kelvor::ChecksumCache::Open(file, texts, &message);
    if (!c) {
      std::fprintf(stderr, "%s\n", message.c_str());
      return 1;
    }
    // Half in inode order (a folder written at once), half shuffled.
    std::shuffle(order.begin() + static_cast<std::ptrdiff_t>(n / 2), order.end(), rng);
    auto t = Clock::now();
    for (std::size_t i = 0; i < n / 2; ++i) c->Store(Key(order[i]), Digest(order[i]));
    c->Flush();
    Line("store, inode order (first run)", n / 2, Since(t));
    t = Clock::now();
    for (std::size_t i = n / 2; i < n; ++i) c->Store(Key(order[i]), Digest(order[i]));
    c->Flush();
    Line("store, random order (first run)", n - n / 2, Since(t));
  }

  auto c = kelvor::ChecksumCache::Open(file, texts, &message);
  if (!c) {
    std::fprintf(stderr, "%s\n", message.c_str());
    return 1;
  }
  std::shuffle(order.begin(), order.end(), rng);
  auto t = Clock::now();
  std::size_t hits = 0;
  for (std::uint64_t i : order) hits += c->Lookup(Key(i)).has_value();
  Line("lookup, all hits (second run)", n, Since(t));

  t = Clock::now();
  for (std::uint64_t i : order) hits += c->Lookup(Key(i + n)).has_value();
  Line("lookup, all misses", n, Since(t));

  t = Clock::now();
  std::vector<std::thread> threads;
  for (int th = 0; th < 4; ++th) {
    threads.emplace_back([&, th] {
      for (std::size_t i = static_cast<std::size_t>(th); i < n; i += 4) c->Lookup(Key(order[i]));
    });
  }
  for (auto& th : threads) th.join();
  Line("lookup, hits from 4 threads", n, Since(t));

  // A second run over changed files: every lookup misses, every store
  // replaces the row of the old state.
  t = Clock::now();
  for (std::uint64_t i : order) {
    kelvor::ChecksumKey k = Key(i);
    k.file.ctimeNs += kSecond;
    c->Store(k, Digest(i + 7));
  }
  c->Flush();
  Line("store replacing stale rows", n, Since(t));
  c.reset();

  std::error_code ec;
  std::printf("hits %zu of %zu; file %.1f MB (%.0f bytes a row)\n", hits, n,
              static_cast<double>(fs::file_size(file, ec)) / 1e6,
              static_cast<double>(fs::file_size(file, ec)) / static_cast<double>(n));
  fs::remove_all(folder, ec);
  return 0;
}
