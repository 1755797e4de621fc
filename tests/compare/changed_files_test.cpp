// Files that change between the walk and their comparison: cut short, grown,
// replaced by another file or by a FIFO, or lying below a path longer than
// the system's limit. None of them may ever be called equal to a file it was
// not equal to when read, none may hold the comparison, and files of any
// depth are read like any other.

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "compare/audio_tags.h"
#include "compare/content.h"
#include "compare/exif.h"
#include "compare_fixture.h"
#include "frame/work_pool.h"
#include "support/hang_guard.h"

namespace kelvor::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class ChangedFileTest : public CompareTest, public ::testing::WithParamInterface<int> {
 protected:
  ContentCompareOptions Options() const {
    ContentCompareOptions o;
    o.mode = GetParam();
    return o;
  }
  // A file and the record the walk makes of it: its size and identity then.
  FileRecord Walked(const std::string& name, const std::string& content) {
    dir_.Write(name, content);
    return Stated(P(name));
  }
  static FileRecord Stated(const std::string& path) {
    FileRecord r;
    const std::string file = path.substr(path.rfind('/') + 1);
    const std::size_t dot = file.rfind('.');
    r.Name = dot == std::string::npos ? file : file.substr(0, dot);
    r.Extension = dot == std::string::npos ? "" : file.substr(dot + 1);
    struct stat st {};
    EXPECT_TRUE(StatAnyPath(path, &st)) << path;
    r.SIZE = r.SizeKey = st.st_size;
    r.WalkDevice = st.st_dev;
    r.WalkInode = st.st_ino;
    r.NumberOfLinks = 1;
    return r;
  }
  int Compare(ContentComparer& c, FileRecord& a, const std::string& an, FileRecord& b,
              const std::string& bn) {
    return c.Search_CompareContent(a, P(an), b, P(bn), false, false, false);
  }
  static void Resize(const fs::path& p, std::uintmax_t size) { fs::resize_file(p, size); }
};

// Cut to nothing, cut to a common prefix, or grown by the same bytes: each
// file has another size than the walk saw, and none is equal to anything.
TEST_P(ChangedFileTest, FileOfAnotherSizeThanTheWalkSawIsNeverEqual) {
  ContentComparer c(Options(), texts_, log_, run_, progress_);
  const std::string common = Filler(1000, 7);
  FileRecord z1 = Walked("z1", Filler(48000, 1)), z2 = Walked("z2", Filler(48000, 2));
  FileRecord p1 = Walked("p1", common + Filler(47000, 3)),
             p2 = Walked("p2", common + Filler(47000, 4));
  FileRecord g1 = Walked("g1", Filler(48000, 5)), g2 = Walked("g2", Filler(48000, 6));
  Resize(dir_ / "z1", 0);
  Resize(dir_ / "z2", 0);
  Resize(dir_ / "p1", 1000);
  Resize(dir_ / "p2", 1000);
  for (const char* g : {"g1", "g2"}) dir_.Write(g, Filler(60000, 9));

  EXPECT_NE(Compare(c, z2, "z2", z1, "z1"), kContentEqual);
  EXPECT_NE(Compare(c, p2, "p2", p1, "p1"), kContentEqual);
  EXPECT_NE(Compare(c, g2, "g2", g1, "g1"), kContentEqual);
  // The changed file that was read first is logged once and is out of the
  // run; its partner never got to be read.
  for (const FileRecord* r : {&z1, &p1, &g1}) EXPECT_TRUE(r->HaveErrorMessage) << r->Name;
  const std::string log = RunLog();
  for (const char* name : {"z1", "p1", "g1"})
    EXPECT_EQ(Count(log, P(name) + "'"), 1) << name << "\n" << log;
  EXPECT_NE(log.find("size changed after the folder was read"), std::string::npos) << log;
  // A file of the right size is still compared as usual.
  FileRecord a = Walked("a", Filler(48000, 8)), b = Walked("b", Filler(48000, 8));
  EXPECT_EQ(Compare(c, b, "b", a, "a"), kContentEqual);
}

// A file replaced by another of the same size and content after the walk is
// not the file the walk found.
TEST_P(ChangedFileTest, FileReplacedAfterTheWalkIsNotRead) {
  ContentComparer c(Options(), texts_, log_, run_, progress_);
  const std::string body = Filler(30000, 3);
  FileRecord a = Walked("a", body), b = Walked("b", body);
  dir_.Write("b.new", body);
  fs::rename(dir_ / "b.new", dir_ / "b");
  EXPECT_NE(Compare(c, b, "b", a, "a"), kContentEqual);
  EXPECT_TRUE(b.HaveErrorMessage);
  EXPECT_FALSE(a.HaveErrorMessage);
  EXPECT_NE(RunLog().find("replaced by another file"), std::string::npos) << RunLog();
}

// A FIFO in the place of a file: no open waits for a writer, the FIFO is
// logged and out of the run; the read-ahead workers do not wait either.
TEST_P(ChangedFileTest, FifoInPlaceOfAFileDoesNotHoldTheComparison) {
  const std::string body = Filler(30000, 4);
  FileRecord a = Walked("a", body), f1 = Walked("f1", body), f2 = Walked("f2", body);
  FileRecord other = Walked("other", body);
  SwapForFifo(P("f1"));
  SwapForFifo(P("f2"));
  const std::vector<std::string> fifos{P("f1"), P("f2")};
  int r1 = 0, r2 = 0, r3 = 0;
  auto compare = [&] {
    WorkPool pool(2);
    ContentComparer c(Options(), texts_, log_, run_, progress_);
    c.SetWorkPool(&pool);
    c.Prefetch(P("f2"), f2);
    c.Prefetch(P("other"), other);
    r1 = Compare(c, f1, "f1", a, "a");
    r2 = Compare(c, f2, "f2", a, "a");
    r3 = Compare(c, other, "other", a, "a");
  };
  EXPECT_TRUE(FinishesWithin(5000ms, compare, [&] { ReleaseFifoReaders(fifos); }));
  EXPECT_NE(r1, kContentEqual);
  EXPECT_NE(r2, kContentEqual);
  EXPECT_EQ(r3, kContentEqual);
  EXPECT_TRUE(f1.HaveErrorMessage);
  EXPECT_TRUE(f2.HaveErrorMessage);
  EXPECT_NE(RunLog().find("not a regular file"), std::string::npos) << RunLog();
}

// Files below a path longer than PATH_MAX are compared like any other.
TEST_P(ChangedFileTest, FilesBelowAVeryLongPathAreRead) {
  const std::string deep = MakeDeepFolder(dir_.path(), "a_folder_name_of_thirty_chars", 180);
  ASSERT_GT(deep.size(), 5000u);
  const std::string body = Filler(70000, 5);
  std::string other = body;
  other[35000] = static_cast<char>(other[35000] ^ 1);
  WriteDeep(deep + "/a.bin", body);
  WriteDeep(deep + "/b.bin", body);
  WriteDeep(deep + "/c.bin", other);
  FileRecord a = Stated(deep + "/a.bin"), b = Stated(deep + "/b.bin"), d = Stated(deep + "/c.bin");
  WorkPool pool(2);
  ContentComparer c(Options(), texts_, log_, run_, progress_);
  c.SetWorkPool(&pool);
  c.Prefetch(deep + "/b.bin", b);
  EXPECT_EQ(c.Search_CompareContent(b, deep + "/b.bin", a, deep + "/a.bin", false, false, false),
            kContentEqual);
  EXPECT_EQ(c.Search_CompareContent(d, deep + "/c.bin", a, deep + "/a.bin", false, false, false),
            kContentDifferent);
  EXPECT_EQ(RunLog(), "");
  RemoveDeep(dir_.path(), "a_folder_name_of_thirty_chars");
}

INSTANTIATE_TEST_SUITE_P(AllMethods, ChangedFileTest,
                         ::testing::Values(kCompareSideBySide, kCompareMD5, kCompareSHA1,
                                           kCompareSHA256));

using ChangedTagFileTest = CompareTest;

// The tag and Exif readers neither wait on a FIFO nor fail on a long path.
TEST_F(ChangedTagFileTest, TagReadersDoNotWaitAndReachDeepFiles) {
  for (const char* name : {"t.mp3", "t.flac", "t.jpg", "t.cr2"}) dir_.Write(name, Filler(4000));
  std::vector<std::string> fifos;
  for (const char* name : {"t.mp3", "t.flac", "t.jpg", "t.cr2"}) {
    SwapForFifo(P(name));
    fifos.push_back(P(name));
  }
  std::string m1, m2, m3, m4;
  auto read = [&] {
    std::int32_t s = 0, e = 0, len = 0;
    EXPECT_FALSE(Search_CheckForMP3IDTag(s, e, P("t.mp3"), texts_, &m1));
    EXPECT_FALSE(Search_CheckForFlacTag(len, 4000, P("t.flac"), texts_, &m2));
    EXPECT_FALSE(Search_GetExifDatablockSize(P("t.jpg"), s, e, texts_, &m3));
    EXPECT_FALSE(Search_GetExifDatablockSize_CR2(P("t.cr2"), s, e, texts_, &m4));
    std::string ignored;
    EXPECT_EQ(CreateHashFromFile(P("t.mp3"), kCompareSHA1, HashRange{}, &run_, &ignored), "");
  };
  EXPECT_TRUE(FinishesWithin(5000ms, read, [&] { ReleaseFifoReaders(fifos); }));
  for (const std::string* m : {&m1, &m2, &m3, &m4})
    EXPECT_NE(m->find("not a regular file"), std::string::npos) << *m;

  // An MP3 with an ID3v2 tag of 100 bytes below a very long path.
  const std::string deep = MakeDeepFolder(dir_.path(), "another_folder_name_29_chars_", 180);
  std::string id3 = "ID3";
  id3 += std::string{'\x03', '\x00', '\x00', '\x00', '\x00', '\x00', '\x5A'};
  WriteDeep(deep + "/song.mp3", id3 + std::string(90, 'x') + Filler(3000));
  std::int32_t start = 0, end = 0;
  std::string message;
  EXPECT_TRUE(Search_CheckForMP3IDTag(start, end, deep + "/song.mp3", texts_, &message)) << message;
  EXPECT_EQ(start, 100);
  EXPECT_EQ(end, 0);
  std::string error;
  EXPECT_NE(CreateHashFromFile(deep + "/song.mp3", kCompareSHA1, HashRange{}, &run_, &error), "")
      << error;
  RemoveDeep(dir_.path(), "another_folder_name_29_chars_");
}

}  // namespace
}  // namespace kelvor::test
