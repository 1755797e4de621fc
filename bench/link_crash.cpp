// Replacing duplicates by hard links must survive being killed at any
// moment: every path holds either its old file or a link to its group's kept
// file. bench/link_crash.sh kills this program mid-run and checks the tree.
//
//   kelvor_link_crash make DIR FILES GROUP   a tree of FILES files in groups
//                                            of GROUP equal files
//   kelvor_link_crash link DIR               replaces every file but the
//                                            first of each group by a link
//   kelvor_link_crash check DIR              exit 0 when nothing is lost

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "data/file_ops.h"
#include "frame/texts.h"

namespace {

constexpr int kFolders = 10;

std::string PathOf(const std::string& dir, int group, int k) {
  return dir + "/d" + std::to_string((group + k) % kFolders) + "/g" + std::to_string(group) + "-" +
         std::to_string(k);
}

std::string ContentOf(int group) {
  std::string s = "group " + std::to_string(group) + "\n";
  s.append(static_cast<std::size_t>(100 + (group * 37) % 4000),
           static_cast<char>('a' + group % 26));
  return s;
}

std::string Read(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return {};
  std::string s;
  char buf[8192];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  std::fclose(f);
  return s;
}

int Groups(const std::string& dir, int* groupSize) {
  std::FILE* f = std::fopen((dir + "/plan").c_str(), "r");
  int groups = 0;
  if (!f || std::fscanf(f, "%d %d", &groups, groupSize) != 2) {
    std::fprintf(stderr, "no plan in %s\n", dir.c_str());
    std::exit(2);
  }
  std::fclose(f);
  return groups;
}

int Make(const std::string& dir, int files, int groupSize) {
  for (int i = 0; i < kFolders; ++i)
    std::filesystem::create_directories(dir + "/d" + std::to_string(i));
  const int groups = files / groupSize;
  for (int g = 0; g < groups; ++g) {
    const std::string content = ContentOf(g);
    for (int k = 0; k < groupSize; ++k) {
      std::FILE* f = std::fopen(PathOf(dir, g, k).c_str(), "wb");
      if (!f) return 2;
      std::fwrite(content.data(), 1, content.size(), f);
      std::fclose(f);
    }
  }
  std::FILE* plan = std::fopen((dir + "/plan").c_str(), "w");
  std::fprintf(plan, "%d %d\n", groups, groupSize);
  std::fclose(plan);
  return 0;
}

int Link(const std::string& dir) {
  int groupSize = 0;
  const int groups = Groups(dir, &groupSize);
  const kelvor::TextCatalog texts;
  int failed = 0;
  for (int g = 0; g < groups; ++g) {
    for (int k = 1; k < groupSize; ++k) {
      kelvor::ReplaceRequest req;
      req.path = PathOf(dir, g, k);
      req.source = PathOf(dir, g, 0);
      req.kind = kelvor::LinkKind::HardLink;
      const kelvor::ReplaceResult r = kelvor::ReplaceWithLink(req, texts);
      if (!r.ok() && r.outcome != kelvor::ReplaceOutcome::AlreadyLinked) {
        std::fprintf(stderr, "%s: %s\n", req.path.c_str(), r.errorText.c_str());
        ++failed;
      }
    }
  }
  return failed ? 1 : 0;
}

int Check(const std::string& dir) {
  int groupSize = 0;
  const int groups = Groups(dir, &groupSize);
  long linked = 0, old = 0, lost = 0;
  for (int g = 0; g < groups; ++g) {
    const std::string content = ContentOf(g);
    struct stat src {};
    const std::string source = PathOf(dir, g, 0);
    if (::lstat(source.c_str(), &src) != 0 || Read(source) != content) {
      std::printf("LOST: %s\n", source.c_str());
      ++lost;
      continue;
    }
    for (int k = 1; k < groupSize; ++k) {
      const std::string p = PathOf(dir, g, k);
      struct stat st {};
      if (::lstat(p.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || Read(p) != content) {
        std::printf("LOST: %s\n", p.c_str());
        ++lost;
      } else if (st.st_ino == src.st_ino && st.st_dev == src.st_dev) {
        ++linked;
      } else {
        ++old;
      }
    }
  }
  // Temporary names a kill left behind: extra names of kept files, never a
  // file of their own.
  long temporaries = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
    if (e.path().filename().string().rfind(std::string(kelvor::kTemporaryNamePrefix), 0) == 0)
      ++temporaries;
  }
  std::printf("linked %ld, old %ld, lost %ld, temporary names left %ld\n", linked, old, lost,
              temporaries);
  return lost ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "make" && argc == 5) return Make(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
  if (mode == "link" && argc == 3) return Link(argv[2]);
  if (mode == "check" && argc == 3) return Check(argv[2]);
  std::fprintf(stderr, "usage: kelvor_link_crash make DIR FILES GROUP | link DIR | check DIR\n");
  return 2;
}
