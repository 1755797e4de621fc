// kelvor_gentree: writes a reproducible file tree for timing duplicate searches.
//
// The tree is a function of its parameters alone: one seeded generator drives
// every choice in a fixed order, file contents come from per-file seeds, and
// nothing depends on the order in which the file system lists a folder. Two
// runs with the same parameters give byte-identical trees.
//
// Kinds of files:
//   unique  random content of a drawn size
//   copy    same content as an earlier file in another folder
//   trap    same size as an earlier unique file, same bytes except the first
//           byte or the last byte (alternating, so half each)
//   zero    empty file
//   link    hard link to an earlier non-empty file in another folder
//
// Sizes come from power-of-two buckets chosen with integer arithmetic only, so
// the same seed gives the same sizes on every machine. --total-bytes scales the
// sizes of the larger files (4 KiB and up) so that the bytes written land close
// to the target.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

__extension__ typedef unsigned __int128 u128;  // GCC and Clang; for 64x64 products

// ---------------------------------------------------------------- generator

uint64_t SplitMix64(uint64_t& state) {
  uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

// xoshiro256**: fast, good quality, and fully specified, so the stream of a
// seed never changes between compilers or libraries.
class Xoshiro {
 public:
  explicit Xoshiro(uint64_t seed) {
    uint64_t sm = seed;
    for (auto& word : s_) word = SplitMix64(sm);
  }

  uint64_t Next() {
    const uint64_t result = Rotl(s_[1] * 5, 7) * 9;
    const uint64_t t = s_[1] << 17;
    s_[2] ^= s_[0];
    s_[3] ^= s_[1];
    s_[1] ^= s_[2];
    s_[0] ^= s_[3];
    s_[2] ^= t;
    s_[3] = Rotl(s_[3], 45);
    return result;
  }

  // Uniform in [0, bound) for bound > 0 (Lemire's multiply-shift; the tiny
  // bias of the plain form does not matter here, determinism does).
  uint64_t Below(uint64_t bound) {
    return static_cast<uint64_t>((static_cast<u128>(Next()) * bound) >> 64);
  }

  // Uniform in [lo, hi).
  uint64_t Between(uint64_t lo, uint64_t hi) { return lo + Below(hi - lo); }

 private:
  static uint64_t Rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
  uint64_t s_[4];
};

// ---------------------------------------------------------------- options

enum class SizeMix { kSmall, kMixed, kLarge };

struct Options {
  std::string out;
  uint64_t files = 0;
  uint64_t seed = 1;
  unsigned depth = 3;
  unsigned dirs_per_level = 0;  // 0: chosen from the file count
  double dup_share = 0.20;
  double trap_share = 0.01;
  double zero_share = 0.01;
  double hardlink_share = 0.01;
  SizeMix size_mix = SizeMix::kMixed;
  std::optional<uint64_t> total_bytes;
};

void Usage(FILE* to) {
  std::fputs(
      "usage: kelvor_gentree --out DIR --files N --seed S [--depth D] [--dirs-per-level K]\n"
      "                      [--dup-share 0.20] [--trap-share 0.01] [--zero-share 0.01]\n"
      "                      [--hardlink-share 0.01] [--size-mix small|mixed|large]\n"
      "                      [--total-bytes B]\n"
      "Writes N files into a new (or empty) folder DIR. The same parameters give the same\n"
      "tree. B and N take the suffixes K, M, G, T (powers of 1000) or Ki, Mi, Gi, Ti.\n"
      "Without --dirs-per-level, K is chosen so that folders hold about 200 files.\n",
      to);
}

[[noreturn]] void Fail(const std::string& message) {
  std::fprintf(stderr, "kelvor_gentree: %s\n", message.c_str());
  std::exit(1);
}

std::optional<uint64_t> ParseCount(std::string_view text) {
  // Digits, an optional fraction ("2.45G"), an optional unit suffix.
  size_t i = 0;
  u128 whole = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    whole = whole * 10 + static_cast<unsigned>(text[i] - '0');
    if (whole > UINT64_MAX) return std::nullopt;
  }
  if (i == 0) return std::nullopt;
  u128 frac = 0, frac_div = 1;
  if (i < text.size() && text[i] == '.') {
    for (++i; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
      if (frac_div < 1000000000000ULL) {
        frac = frac * 10 + static_cast<unsigned>(text[i] - '0');
        frac_div *= 10;
      }
    }
  }
  const std::string_view suffix = text.substr(i);
  uint64_t unit = 1;
  if (!suffix.empty()) {
    const bool binary = suffix.size() == 2 && (suffix[1] == 'i' || suffix[1] == 'I');
    if (suffix.size() != 1 && !binary) return std::nullopt;
    const uint64_t base = binary ? 1024 : 1000;
    int power = 0;
    switch (suffix[0]) {
      case 'k':
      case 'K':
        power = 1;
        break;
      case 'm':
      case 'M':
        power = 2;
        break;
      case 'g':
      case 'G':
        power = 3;
        break;
      case 't':
      case 'T':
        power = 4;
        break;
      default:
        return std::nullopt;
    }
    for (int p = 0; p < power; ++p) unit *= base;
  }
  const u128 value = whole * unit + frac * unit / frac_div;
  if (value > UINT64_MAX) return std::nullopt;
  return static_cast<uint64_t>(value);
}

std::optional<double> ParseShare(std::string_view text) {
  const std::string s(text);
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(s.c_str(), &end);
  if (s.empty() || errno != 0 || end != s.c_str() + s.size() || !(value >= 0.0 && value <= 1.0)) {
    return std::nullopt;
  }
  return value;
}

Options ParseOptions(int argc, char** argv) {
  Options opt;
  bool have_files = false;
  bool have_seed = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      Usage(stdout);
      std::exit(0);
    }
    if (i + 1 >= argc) Fail("option " + std::string(arg) + " needs a value (see --help)");
    const std::string_view value = argv[++i];
    auto count = [&]() {
      auto v = ParseCount(value);
      if (!v) Fail("bad number for " + std::string(arg) + ": '" + std::string(value) + "'");
      return *v;
    };
    auto share = [&]() {
      auto v = ParseShare(value);
      if (!v) Fail("bad share for " + std::string(arg) + " (0..1): '" + std::string(value) + "'");
      return *v;
    };
    if (arg == "--out") {
      opt.out = value;
    } else if (arg == "--files") {
      opt.files = count();
      have_files = true;
    } else if (arg == "--seed") {
      opt.seed = count();
      have_seed = true;
    } else if (arg == "--depth") {
      const uint64_t d = count();
      if (d > 16) Fail("--depth must be 0..16");
      opt.depth = static_cast<unsigned>(d);
    } else if (arg == "--dirs-per-level") {
      const uint64_t k = count();
      if (k < 1 || k > 10000) Fail("--dirs-per-level must be 1..10000");
      opt.dirs_per_level = static_cast<unsigned>(k);
    } else if (arg == "--dup-share") {
      opt.dup_share = share();
    } else if (arg == "--trap-share") {
      opt.trap_share = share();
    } else if (arg == "--zero-share") {
      opt.zero_share = share();
    } else if (arg == "--hardlink-share") {
      opt.hardlink_share = share();
    } else if (arg == "--size-mix") {
      if (value == "small") {
        opt.size_mix = SizeMix::kSmall;
      } else if (value == "mixed") {
        opt.size_mix = SizeMix::kMixed;
      } else if (value == "large") {
        opt.size_mix = SizeMix::kLarge;
      } else {
        Fail("--size-mix must be small, mixed or large");
      }
    } else if (arg == "--total-bytes") {
      opt.total_bytes = count();
    } else {
      Fail("unknown option " + std::string(arg) + " (see --help)");
    }
  }
  if (opt.out.empty() || !have_files || !have_seed) {
    Usage(stderr);
    std::exit(1);
  }
  if (opt.files > 0xFFFFFFF0ULL) Fail("--files is too large");
  if (opt.dup_share + opt.trap_share + opt.zero_share + opt.hardlink_share > 1.0) {
    Fail("the shares of copies, traps, zero-byte files and links add up to more than 1");
  }
  return opt;
}

// ---------------------------------------------------------------- sizes

struct Bucket {
  unsigned weight;  // out of 1000
  unsigned lo_bit;  // sizes in [2^lo_bit, 2^hi_bit)
  unsigned hi_bit;
};

// Mean sizes: small about 2 KB, mixed about 18 KB, large about 5 MB.
std::vector<Bucket> BucketsOf(SizeMix mix) {
  switch (mix) {
    case SizeMix::kSmall:
      return {{900, 4, 12}, {100, 12, 15}};
    case SizeMix::kMixed:
      return {{850, 4, 12}, {140, 12, 17}, {10, 17, 22}};
    case SizeMix::kLarge:
      return {{300, 4, 12}, {500, 12, 20}, {200, 20, 26}};
  }
  return {};
}

constexpr uint64_t kScaledFrom = 4096;  // sizes from here on follow --total-bytes
constexpr uint64_t kMinSize = 16;       // random content this long never repeats by chance

uint64_t DrawSize(Xoshiro& rng, const std::vector<Bucket>& buckets) {
  uint64_t pick = rng.Below(1000);
  const Bucket* chosen = &buckets.back();
  for (const auto& b : buckets) {
    if (pick < b.weight) {
      chosen = &b;
      break;
    }
    pick -= b.weight;
  }
  // A power of two first, then a point inside it: many more small files than
  // large ones, as in real folders.
  const unsigned bit = static_cast<unsigned>(rng.Between(chosen->lo_bit, chosen->hi_bit));
  return rng.Between(uint64_t{1} << bit, uint64_t{1} << (bit + 1));
}

// ---------------------------------------------------------------- plan

enum class Kind : uint8_t { kUnique, kCopy, kTrap, kZero, kLink };

enum class Flip : uint8_t { kNone, kFirst, kLast };

struct Entry {
  uint64_t content_seed = 0;
  uint64_t raw_size = 0;  // before --total-bytes scaling
  uint32_t folder = 0;
  uint32_t source = 0;  // link target
  Kind kind = Kind::kUnique;
  Flip flip = Flip::kNone;
  bool trapped = false;  // a trap was already made from this file
};

struct Counts {
  uint64_t files = 0, folders = 0, bytes = 0, copies = 0, traps = 0, zero = 0, links = 0;
};

struct Folders {
  std::vector<std::string> paths;  // relative, "" is the top
  uint32_t first_file_folder = 0;  // files go into folders from this index on
};

Folders PlanFolders(const Options& opt) {
  unsigned k = opt.dirs_per_level;
  if (k == 0) {
    // About 200 files a folder.
    const uint64_t wanted = std::max<uint64_t>(1, opt.files / 200);
    k = 2;
    while (k < 10000) {
      uint64_t total = 0, level = 1;
      for (unsigned d = 0; d < opt.depth && total < wanted; ++d) {
        level *= k;
        total += level;
      }
      if (total >= wanted || opt.depth == 0) break;
      ++k;
    }
  }
  uint64_t total = 1, level = 1;
  for (unsigned d = 0; d < opt.depth; ++d) {
    level *= k;
    total += level;
    if (total > 2000000) Fail("too many folders: lower --depth or --dirs-per-level");
  }
  Folders f;
  f.paths.reserve(total);
  f.paths.emplace_back();
  const int width = static_cast<int>(std::to_string(k - 1).size());
  size_t level_begin = 0, level_end = 1;
  for (unsigned d = 0; d < opt.depth; ++d) {
    for (size_t parent = level_begin; parent < level_end; ++parent) {
      for (unsigned c = 0; c < k; ++c) {
        char name[32];
        std::snprintf(name, sizeof name, "d%0*u", width, c);
        f.paths.push_back(f.paths[parent].empty() ? std::string(name)
                                                  : f.paths[parent] + "/" + name);
      }
    }
    level_begin = level_end;
    level_end = f.paths.size();
  }
  f.first_file_folder = f.paths.size() > 1 ? 1 : 0;
  return f;
}

uint64_t Share(uint64_t n, double share) {
  return static_cast<uint64_t>(static_cast<double>(n) * share + 0.5);
}

struct Plan {
  std::vector<Entry> entries;
  Folders folders;
  // Scaling of sizes from kScaledFrom on: size * num / den.
  uint64_t scale_num = 1, scale_den = 1;
};

uint64_t FinalSize(const Plan& plan, const Entry& e) {
  if (e.kind == Kind::kZero) return 0;
  if (e.raw_size < kScaledFrom) return e.raw_size;
  const auto scaled = static_cast<u128>(e.raw_size) * plan.scale_num / plan.scale_den;
  return std::max<uint64_t>(kMinSize, static_cast<uint64_t>(scaled));
}

Plan MakePlan(const Options& opt) {
  Plan plan;
  plan.folders = PlanFolders(opt);
  const uint64_t n = opt.files;
  Xoshiro rng(opt.seed);

  // Exact numbers of each kind, in an order shuffled by the generator.
  std::vector<Kind> kinds(n, Kind::kUnique);
  {
    size_t at = 0;
    auto fill = [&](uint64_t count, Kind kind) {
      for (uint64_t i = 0; i < count && at < kinds.size(); ++i) kinds[at++] = kind;
    };
    fill(Share(n, opt.dup_share), Kind::kCopy);
    fill(Share(n, opt.trap_share), Kind::kTrap);
    fill(Share(n, opt.zero_share), Kind::kZero);
    fill(Share(n, opt.hardlink_share), Kind::kLink);
    for (uint64_t i = n; i > 1; --i) std::swap(kinds[i - 1], kinds[rng.Below(i)]);
  }

  const auto buckets = BucketsOf(opt.size_mix);
  const uint32_t folder_lo = plan.folders.first_file_folder;
  const uint32_t folder_count = static_cast<uint32_t>(plan.folders.paths.size()) - folder_lo;
  auto other_folder = [&](uint32_t avoid) {
    uint32_t f = folder_lo + static_cast<uint32_t>(rng.Below(folder_count));
    if (f == avoid && folder_count > 1) f = folder_lo + (f - folder_lo + 1) % folder_count;
    return f;
  };

  std::vector<uint32_t> with_content;  // non-empty files that hold their own bytes
  std::vector<uint32_t> uniques;       // candidates for traps
  uint64_t traps_made = 0;
  plan.entries.resize(n);
  for (uint64_t i = 0; i < n; ++i) {
    Entry& e = plan.entries[i];
    Kind kind = kinds[i];
    if ((kind == Kind::kCopy || kind == Kind::kLink) && with_content.empty()) {
      kind = Kind::kUnique;
    }
    if (kind == Kind::kTrap) {
      // A unique file that has no trap yet, so that no two traps are equal.
      uint32_t src = UINT32_MAX;
      for (int attempt = 0; attempt < 16 && !uniques.empty(); ++attempt) {
        const uint32_t candidate = uniques[rng.Below(uniques.size())];
        if (!plan.entries[candidate].trapped) {
          src = candidate;
          break;
        }
      }
      if (src == UINT32_MAX) {
        kind = Kind::kUnique;
      } else {
        Entry& s = plan.entries[src];
        s.trapped = true;
        e.content_seed = s.content_seed;
        e.raw_size = s.raw_size;
        // Half the traps differ at the first byte, half at the last.
        e.flip = (traps_made++ % 2 == 0) ? Flip::kFirst : Flip::kLast;
        e.folder = other_folder(s.folder);
      }
    }
    e.kind = kind;
    switch (kind) {
      case Kind::kUnique:
        e.content_seed = rng.Next();
        e.raw_size = DrawSize(rng, buckets);
        e.folder = other_folder(UINT32_MAX);
        break;
      case Kind::kCopy: {
        const Entry& s = plan.entries[with_content[rng.Below(with_content.size())]];
        e.content_seed = s.content_seed;
        e.raw_size = s.raw_size;
        e.flip = s.flip;
        e.folder = other_folder(s.folder);
        break;
      }
      case Kind::kLink: {
        e.source = with_content[rng.Below(with_content.size())];
        const Entry& s = plan.entries[e.source];
        e.raw_size = s.raw_size;
        e.folder = other_folder(s.folder);
        break;
      }
      case Kind::kZero:
        e.folder = other_folder(UINT32_MAX);
        break;
      case Kind::kTrap:
        break;
    }
    if (kind == Kind::kUnique || kind == Kind::kCopy || kind == Kind::kTrap) {
      with_content.push_back(static_cast<uint32_t>(i));
    }
    if (kind == Kind::kUnique) uniques.push_back(static_cast<uint32_t>(i));
  }

  if (opt.total_bytes) {
    uint64_t fixed = 0, scaled = 0;
    for (const auto& e : plan.entries) {
      if (e.kind == Kind::kZero || e.kind == Kind::kLink) continue;
      (e.raw_size < kScaledFrom ? fixed : scaled) += e.raw_size;
    }
    if (scaled > 0) {
      plan.scale_num = *opt.total_bytes > fixed ? *opt.total_bytes - fixed : 0;
      plan.scale_den = scaled;
    }
  }
  return plan;
}

// ---------------------------------------------------------------- writing

class Writer {
 public:
  Writer() : buffer_(kBufferBytes) {}

  // Writes `size` bytes of the stream of `seed`, with one byte changed if asked.
  void WriteFile(const std::string& path, uint64_t seed, uint64_t size, Flip flip) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) Fail("cannot create " + path + ": " + std::strerror(errno));
    Xoshiro stream(seed);
    uint64_t done = 0;
    while (done < size) {
      const size_t chunk = static_cast<size_t>(std::min<uint64_t>(size - done, buffer_.size()));
      const size_t words = (chunk + 7) / 8;
      for (size_t w = 0; w < words; ++w) {
        const uint64_t v = stream.Next();
        std::memcpy(buffer_.data() + w * 8, &v, 8);
      }
      if (flip == Flip::kFirst && done == 0) buffer_[0] ^= 0xA5;
      if (flip == Flip::kLast && done + chunk == size) buffer_[chunk - 1] ^= 0xA5;
      WriteAll(fd, path, chunk);
      done += chunk;
    }
    if (::close(fd) != 0) Fail("cannot write " + path + ": " + std::strerror(errno));
  }

 private:
  static constexpr size_t kBufferBytes = 4 << 20;  // whole-word multiple

  void WriteAll(int fd, const std::string& path, size_t len) {
    size_t off = 0;
    while (off < len) {
      const ssize_t w = ::write(fd, buffer_.data() + off, len - off);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) Fail("cannot write " + path + ": " + std::strerror(errno));
      off += static_cast<size_t>(w);
    }
  }

  std::vector<unsigned char> buffer_;
};

void PrepareOut(const std::string& out) {
  struct stat st {};
  if (::stat(out.c_str(), &st) == 0) {
    if (!S_ISDIR(st.st_mode)) Fail(out + " exists and is not a folder");
    // Refuse to mix with an earlier tree: the result would not be reproducible.
    if (::rmdir(out.c_str()) != 0) Fail(out + " is not empty");
  }
  if (::mkdir(out.c_str(), 0755) != 0) Fail("cannot create " + out + ": " + std::strerror(errno));
}

Counts WriteTree(const Options& opt, const Plan& plan) {
  Counts c;
  PrepareOut(opt.out);
  for (size_t f = 1; f < plan.folders.paths.size(); ++f) {
    const std::string path = opt.out + "/" + plan.folders.paths[f];
    if (::mkdir(path.c_str(), 0755) != 0)
      Fail("cannot create " + path + ": " + std::strerror(errno));
    ++c.folders;
  }
  const int width = std::max<int>(7, static_cast<int>(std::to_string(opt.files).size()));
  auto path_of = [&](uint64_t i) {
    const Entry& e = plan.entries[i];
    char name[48];
    std::snprintf(name, sizeof name, "f%0*llu.dat", width, static_cast<unsigned long long>(i));
    const std::string& folder = plan.folders.paths[e.folder];
    return folder.empty() ? opt.out + "/" + name : opt.out + "/" + folder + "/" + name;
  };

  Writer writer;
  for (uint64_t i = 0; i < plan.entries.size(); ++i) {
    const Entry& e = plan.entries[i];
    const std::string path = path_of(i);
    ++c.files;
    if (e.kind == Kind::kLink) {
      const std::string target = path_of(e.source);
      if (::link(target.c_str(), path.c_str()) != 0) {
        Fail("cannot link " + path + " to " + target + ": " + std::strerror(errno));
      }
      ++c.links;
      continue;
    }
    const uint64_t size = FinalSize(plan, e);
    writer.WriteFile(path, e.content_seed, size, e.flip);
    c.bytes += size;
    if (e.kind == Kind::kCopy) ++c.copies;
    if (e.kind == Kind::kTrap) ++c.traps;
    if (e.kind == Kind::kZero) ++c.zero;
  }
  return c;
}

}  // namespace

int main(int argc, char** argv) {
  const Options opt = ParseOptions(argc, argv);
  const auto start = std::chrono::steady_clock::now();
  const Plan plan = MakePlan(opt);
  const Counts c = WriteTree(opt, plan);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (opt.total_bytes && *opt.total_bytes > 0) {
    const double off = static_cast<double>(c.bytes) / static_cast<double>(*opt.total_bytes);
    if (off < 0.9 || off > 1.1) {
      std::fprintf(stderr,
                   "kelvor_gentree: wrote %llu bytes for --total-bytes %llu: the files below 4 KiB "
                   "alone do not fit the target\n",
                   static_cast<unsigned long long>(c.bytes),
                   static_cast<unsigned long long>(*opt.total_bytes));
    }
  }
  std::printf(
      "files %llu folders %llu bytes %llu copies %llu traps %llu zero %llu links %llu "
      "(seed %llu, %.1f s)\n",
      static_cast<unsigned long long>(c.files), static_cast<unsigned long long>(c.folders),
      static_cast<unsigned long long>(c.bytes), static_cast<unsigned long long>(c.copies),
      static_cast<unsigned long long>(c.traps), static_cast<unsigned long long>(c.zero),
      static_cast<unsigned long long>(c.links), static_cast<unsigned long long>(opt.seed), seconds);
  return 0;
}
