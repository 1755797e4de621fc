// Memory and speed of the file record collection with a million files.
//
// Adds N records (default 1,000,000) as a search by size and name would,
// with folders of about 40 files, then looks every key up once. Prints the
// time of both passes and the resident memory per record, measured from
// /proc/self/statm before and after. Not part of the tests.
//
//   kelvor_collection_bench [N]

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <string>

#include "data/file_record_collection.h"

namespace {

// Processor time of this process: steadier than wall time on a busy machine.
double CpuSeconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

std::size_t ResidentBytes() {
  std::ifstream f("/proc/self/statm");
  std::size_t pages = 0, resident = 0;
  f >> pages >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

const char* const kExt[] = {"jpg", "JPG", "png", "mp3", "flac", "pdf", "docx", "txt", "cr2", "mkv"};
const char* const kWords[] = {"IMG_",  "DSC",     "Urlaub ",    "Rechnung_", "track",
                              "Scan ", "report-", "Kopie von ", "song ",     "Foto_"};

}  // namespace

int main(int argc, char** argv) {
  const long n = argc > 1 ? std::atol(argv[1]) : 1000000;
  std::mt19937_64 rng(42);
  using Clock = std::chrono::steady_clock;

  const std::size_t before = ResidentBytes();
  kelvor::CStringCollection2 c;
  std::string key, name, path;
  std::size_t textBytes = 0;  // path + name + extension + key, as given
  std::size_t pathBytes = 0;  // path + name + extension
  const auto t0 = Clock::now();
  const double c0 = CpuSeconds();
  for (long i = 0; i < n; ++i) {
    if (i % 40 == 0) {
      path = "/Bilder/" + std::to_string(2000 + (i / 40) % 25) + "/Album " +
             std::to_string(i / 40) + "/Unterordner";
    }
    name.clear();
    name.append(kWords[rng() % 10]);
    name.append(std::to_string(rng() % 100000000));
    const char* ext = kExt[rng() % 10];
    const std::int64_t size = static_cast<std::int64_t>(rng() % 50000000);
    // A key as the cascade builds it for name + extension + size.
    key.clear();
    key.push_back('K');
    key += name;
    key += '.';
    key += ext;
    key += std::to_string(size);

    kelvor::FileRecordView v;
    v.SourceNr = 1;
    v.Path = path;
    v.Name = name;
    v.Extension = ext;
    v.NameKey = name;
    v.SIZE = size;
    v.SizeKey = size;
    v.Attributes = 128;
    v.DateLastModified = 44000.0 + static_cast<double>(i % 1000);
    v.DateCreated = v.DateLastModified;
    v.NumberOfLinks = 1;
    c.Add(key, v);
    textBytes += path.size() + name.size() + std::string_view(ext).size() + key.size();
    pathBytes += path.size() + 1 + name.size() + 1 + std::string_view(ext).size();
  }
  const auto t1 = Clock::now();
  const double c1 = CpuSeconds();
  const std::size_t after = ResidentBytes();

  // Look every key up once more (allocation-free lookups).
  long hits = 0;
  for (std::int32_t i = 1; i <= c.Count(); ++i) {
    std::string_view k = c.FoldedKey(i);
    hits += c.Find(k) != 0;
  }
  const auto t2 = Clock::now();
  const double c2 = CpuSeconds();

  const double count = static_cast<double>(c.Count());
  const double rss = static_cast<double>(after - before);
  std::printf("records:                 %d\n", c.Count());
  std::printf("add:                     %.3f s (processor %.3f s)\n",
              std::chrono::duration<double>(t1 - t0).count(), c1 - c0);
  std::printf("lookup of every key:     %.3f s (processor %.3f s, %ld hits)\n",
              std::chrono::duration<double>(t2 - t1).count(), c2 - c1, hits);
  std::printf("resident growth:         %.1f MiB\n", rss / (1024.0 * 1024.0));
  std::printf("bytes per record (RSS):  %.1f\n", rss / count);
  std::printf("  full path text/record: %.1f\n", static_cast<double>(pathBytes) / count);
  std::printf("  all text given/record: %.1f (path, name, extension, key)\n",
              static_cast<double>(textBytes) / count);
  std::printf("  RSS less path text:    %.1f\n", (rss - static_cast<double>(pathBytes)) / count);
  std::printf("collection's own count:  %.1f bytes per record\n",
              static_cast<double>(c.MemoryBytes()) / count);
  return 0;
}
