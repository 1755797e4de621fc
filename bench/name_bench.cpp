// Speed of the similar-names search. Not part of the tests.
//
//   kelvor_name_bench measures [N]        pairs per second of each measure on
//                                         pairs drawn from N names (20000)
//   kelvor_name_bench search [N] [P] [M]  the walk of N names (20000) at P %
//                                         (90) by measure M (0, SmartMatch),
//                                         as the search makes it: time, pairs
//                                         counted, pairs the bounds passed
//                                         over, hits
//   kelvor_name_bench tree DIR [N]        N files (20000) of one byte named as
//                                         the walk's names, in folders of 1000
//
// The names are made from a fixed seed: camera numbers, documents with
// versions and dates, songs as "artist - title", and about one in eight a
// variant of an earlier name (a copy mark, other case, other delimiters,
// words swapped, a typo), so that the walk finds groups.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "compare/fuzzy.h"
#include "compare/name_compare.h"
#include "data/file_record_collection.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/run_state.h"
#include "frame/texts.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using kelvor::NameMeasure;

std::vector<std::string> MakeNames(std::size_t n) {
  static const char* kWords[] = {
      "holiday", "photos",  "beach",     "summer",  "winter", "family", "party",    "wedding",
      "report",  "final",   "draft",     "invoice", "budget", "notes",  "meeting",  "minutes",
      "project", "plan",    "scan",      "letter",  "tax",    "bank",   "contract", "offer",
      "love",    "night",   "dance",     "river",   "heart",  "city",   "lights",   "dream",
      "blue",    "morning", "garden",    "road",    "home",   "fire",   "rain",     "sky",
      "Müller",  "Straße",  "Übersicht", "été",     "café",   "mix",    "live",     "remix"};
  static const char* kArtists[] = {"The Beatles", "Queen", "ABBA",      "Nirvana",
                                   "Radiohead",   "Adele", "Kraftwerk", "Daft Punk",
                                   "Björk",       "Muse",  "Coldplay",  "Metallica"};
  static const char* kDelims[] = {" ", "_", "-", "."};
  std::mt19937 rng(20261122);
  auto pick = [&](std::size_t k) { return static_cast<std::size_t>(rng() % k); };
  auto word = [&] { return std::string(kWords[pick(std::size(kWords))]); };
  std::vector<std::string> out;
  out.reserve(n);
  while (out.size() < n) {
    if (out.size() > 10 && pick(8) == 0) {
      std::string v = out[pick(out.size())];
      switch (pick(5)) {
        case 0:
          v += pick(2) ? " (2)" : " - Kopie";
          break;
        case 1:
          for (char& c : v) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
          break;
        case 2:
          std::replace(v.begin(), v.end(), ' ', '_');
          break;
        case 3: {
          const std::size_t sp = v.find(' ');
          if (sp != std::string::npos) v = v.substr(sp + 1) + " " + v.substr(0, sp);
          break;
        }
        default:
          if (!v.empty()) v[pick(v.size())] = static_cast<char>('a' + pick(26));
          break;
      }
      out.push_back(v);
      continue;
    }
    std::string s;
    char num[32];
    switch (pick(4)) {
      case 0:
        std::snprintf(num, sizeof num, "%s%05zu", pick(2) ? "IMG_" : "DSC", pick(100000));
        s = num;
        break;
      case 1: {
        const std::string d = kDelims[pick(std::size(kDelims))];
        s = word() + d + word();
        if (pick(2)) s += d + "v" + std::to_string(1 + pick(9));
        if (pick(2)) {
          std::snprintf(num, sizeof num, "%04zu-%02zu-%02zu", 2000 + pick(25), 1 + pick(12),
                        1 + pick(28));
          s += d + num;
        }
        break;
      }
      case 2:
        s = std::string(kArtists[pick(std::size(kArtists))]) + " - " + word() + " " + word();
        if (pick(3) == 0) s += " " + word();
        break;
      default:
        s = std::to_string(1 + pick(20)) + ". " + word() + " " + word() + " " + word();
        break;
    }
    out.push_back(s);
  }
  return out;
}

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

const char* kMeasureNames[] = {"SmartMatch", "FuzzyMatch", "Levenshtein",  "Ratcliff",
                               "MatchDiff",  "WordMatch",  "FuzzyPercent", "Simil"};

int Measures(std::size_t n) {
  const std::vector<std::string> names = MakeNames(n);
  std::mt19937 rng(7);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs(200000);
  for (auto& p : pairs)
    p = {static_cast<std::uint32_t>(rng() % n), static_cast<std::uint32_t>(rng() % n)};
  kelvor::FuzzyScratch scratch;
  std::printf("measure        pairs/s   (%zu pairs of %zu names)\n", pairs.size(), n);
  for (int m = 0; m < 8; ++m) {
    double sink = 0;
    std::size_t done = 0;
    const auto t0 = Clock::now();
    // At least a second per measure, whole passes over the pairs.
    do {
      for (const auto& [a, b] : pairs)
        sink += kelvor::MeasureSimilarity(static_cast<NameMeasure>(m), names[a], names[b],
                                          kelvor::kDefaultWordDelimiters, scratch);
      done += pairs.size();
    } while (Seconds(t0) < 1.0);
    const double s = Seconds(t0);
    std::printf("%-12s %10.0f   (mean %.4f)\n", kMeasureNames[m], done / s, sink / done);
  }
  return 0;
}

int Search(std::size_t n, double percent, int method) {
  const std::vector<std::string> names = MakeNames(n);
  const fs::path logDir = fs::temp_directory_path() / "kelvor_name_bench_log";
  fs::create_directories(logDir);
  kelvor::Logger log(logDir / "general.txt", logDir / "run.txt", logDir / "last.txt");
  kelvor::TextCatalog texts;
  kelvor::RunState run;
  kelvor::LongOperation pacing(run);
  std::function<void()> refresh;
  kelvor::NameCompareOptions opt;
  opt.method = static_cast<NameMeasure>(method);
  opt.threshold = percent / 100.0;
  kelvor::NameComparator cmp(opt, texts, log, pacing, refresh);
  kelvor::CStringCollection2 files;
  std::size_t hits = 0, groups = 0;
  const auto t0 = Clock::now();
  for (std::size_t i = 0; i < names.size(); ++i) {
    kelvor::FileRecord rec;
    rec.Name = rec.NameKey = names[i];
    rec.SourceNr = 1;
    const std::string path = "/bench/" + names[i];
    kelvor::CascadeFile file{rec, path};
    const std::int32_t node = cmp.SearchCollection(file, files, 1, {});
    if (node < 0) {
      files.Add("K/" + std::to_string(i), rec);
    } else {
      ++hits;
      if (files.GroupID(node) == -1) files.SetGroupID(node, static_cast<std::int32_t>(++groups));
    }
  }
  const double s = Seconds(t0);
  std::printf(
      "%s search of %zu names at %.0f %%: %.3f s, %lld pairs counted (%.0f pairs/s), %lld passed "
      "over by the bounds (%.1f %%), %zu files joined %zu groups\n",
      kMeasureNames[method], n, percent, s, static_cast<long long>(cmp.CompareCount()),
      cmp.CompareCount() / s, static_cast<long long>(cmp.PrunedCount()),
      100.0 * cmp.PrunedCount() / std::max<std::int64_t>(1, cmp.CompareCount()), hits, groups);
  fs::remove_all(logDir);
  return 0;
}

int Tree(const fs::path& dir, std::size_t n) {
  const std::vector<std::string> names = MakeNames(n);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const fs::path folder = dir / ("d" + std::to_string(i / 1000));
    fs::create_directories(folder);
    // Variants may repeat a name: keep every file, in another folder.
    fs::path p = folder / (names[i] + ".txt");
    for (int k = 0; fs::exists(p); ++k)
      p = dir / ("r" + std::to_string(k)) / (names[i] + ".txt"),
      fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << 'x';
  }
  std::printf("%zu files in %s\n", names.size(), dir.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  auto num = [&](int i, double dflt) { return argc > i ? std::atof(argv[i]) : dflt; };
  if (what == "measures") return Measures(static_cast<std::size_t>(num(2, 20000)));
  if (what == "search")
    return Search(static_cast<std::size_t>(num(2, 20000)), num(3, 90), static_cast<int>(num(4, 0)));
  if (what == "tree" && argc > 2) return Tree(argv[2], static_cast<std::size_t>(num(3, 20000)));
  std::fprintf(stderr,
               "usage: kelvor_name_bench measures [N] | search [N] [PERCENT] [MEASURE] | tree DIR "
               "[N]\n");
  return 2;
}
