#pragma once
// Shared pieces of the comparator tests: a temporary folder, a run log that
// can be read back, and records built from real files.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "compare/content.h"
#include "data/file_record.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "support/temp_tree.h"

namespace kelvor::test {

class CompareTest : public ::testing::Test {
 protected:
  CompareTest()
      : logDir_(dir_.Mkdir("log")),
        log_(logDir_ / "general.txt", logDir_ / "run.txt", logDir_ / "last.txt") {}

  // A file in the temporary folder with the record the scan would make.
  FileRecord Rec(const std::string& name, const std::string& content) {
    std::filesystem::path p = dir_.Write(name, content);
    return RecFor(p);
  }
  static FileRecord RecFor(const std::filesystem::path& p) {
    FileRecord r;
    r.Name = p.stem().string();
    std::string ext = p.extension().string();
    r.Extension = ext.empty() ? "" : ext.substr(1);
    std::error_code ec;
    r.SIZE = static_cast<std::int64_t>(std::filesystem::file_size(p, ec));
    r.SizeKey = r.SIZE;
    return r;
  }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }

  // The run log as text ("" before the first line).
  std::string RunLog() const {
    std::error_code ec;
    if (!std::filesystem::exists(logDir_ / "run.txt", ec)) return "";
    return ReadUtf16File(logDir_ / "run.txt");
  }
  static int Count(const std::string& hay, const std::string& needle) {
    int n = 0;
    for (std::size_t at = hay.find(needle); at != std::string::npos;
         at = hay.find(needle, at + needle.size()))
      ++n;
    return n;
  }

  TempDir dir_;
  std::filesystem::path logDir_;
  Logger log_;
  TextCatalog texts_;
  RunState run_;
  NullProgressSink progress_;
};

// Deterministic filler bytes without FF, so that JPEG scan data built from it
// holds no markers.
inline std::string Filler(std::size_t n, unsigned seed = 1) {
  std::string s(n, '\0');
  unsigned x = seed * 2654435761u + 12345u;
  for (auto& c : s) {
    x = x * 1103515245u + 12345u;
    c = static_cast<char>((x >> 16) % 255);
  }
  return s;
}

}  // namespace kelvor::test
