#include "compare/content.h"

#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "compare_fixture.h"
#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/work_pool.h"

namespace kelvor::test {
namespace {

std::string Digest(const char* name, const std::string& bytes) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(bytes.data(), bytes.size(), md, &len, EVP_get_digestbyname(name), nullptr);
  return std::string(reinterpret_cast<char*>(md), len);
}

class ContentBase : public CompareTest {
 protected:
  ContentCompareOptions Options(int mode) {
    ContentCompareOptions o;
    o.mode = mode;
    return o;
  }
  int Compare(ContentComparer& c, FileRecord& a, const std::string& an, FileRecord& b,
              const std::string& bn, bool mp3 = false, bool jpg = false, bool flac = false) {
    return c.Search_CompareContent(a, P(an), b, P(bn), mp3, jpg, flac);
  }
};

class ContentTest : public ContentBase, public ::testing::WithParamInterface<int> {};

// Every method: equal files are equal, a difference anywhere is found,
// including one that lies only inside the end block or just in front of it.
TEST_P(ContentTest, FindsEqualAndEveryDifference) {
  const int mode = GetParam();
  const std::string base = Filler(200000);
  auto changed = [&](std::size_t at) {
    std::string s = base;
    s[at] = static_cast<char>(s[at] ^ 0x5A);
    return s;
  };
  ContentComparer c(Options(mode), texts_, log_, run_, progress_);
  FileRecord a = Rec("a.bin", base), same = Rec("same.bin", base);
  EXPECT_EQ(Compare(c, same, "same.bin", a, "a.bin"), kContentEqual);

  const std::size_t places[] = {
      0,     base.size() - 1, base.size() - 1000, base.size() - 32768, base.size() - 32769,
      16384, 100000};
  for (std::size_t at : places) {
    std::string name = "d" + std::to_string(at) + ".bin";
    FileRecord d = Rec(name, changed(at));
    EXPECT_EQ(Compare(c, d, name, a, "a.bin"), kContentDifferent) << "byte " << at;
  }
  EXPECT_EQ(c.CompareCount, 1 + static_cast<std::int64_t>(std::size(places)));
  if (mode != kCompareSideBySide) {
    // One checksum per file, the representative's made once.
    EXPECT_EQ(c.ChecksumCount, 2 + static_cast<int>(std::size(places)));
    EXPECT_TRUE(a.HashCreated[0]);
  } else {
    EXPECT_EQ(c.ChecksumCount, 0);
    EXPECT_FALSE(a.HashCreated[0]);
  }
  EXPECT_EQ(RunLog(), "");
}

// Small buffers and the end block off make the side-by-side route grow its
// reads across many blocks; files shorter than the first read work too.
TEST_P(ContentTest, SmallFilesAndOddBufferSizes) {
  ContentCompareOptions o = Options(GetParam());
  o.compareBuffer = {7, 100, 13, 11};
  o.compareFileEndFirst = 0;
  ContentComparer c(o, texts_, log_, run_, progress_);
  for (std::size_t n : {1u, 5u, 20u, 21u, 64u, 65u, 1000u}) {
    std::string s = Filler(n, static_cast<unsigned>(n));
    std::string t = s;
    t[n / 2] = static_cast<char>(t[n / 2] ^ 1);
    FileRecord a = Rec("s" + std::to_string(n), s), b = Rec("t" + std::to_string(n), s),
               x = Rec("x" + std::to_string(n), t);
    EXPECT_EQ(Compare(c, b, "t" + std::to_string(n), a, "s" + std::to_string(n)), kContentEqual)
        << n;
    EXPECT_EQ(Compare(c, x, "x" + std::to_string(n), a, "s" + std::to_string(n)), kContentDifferent)
        << n;
  }
}

INSTANTIATE_TEST_SUITE_P(AllMethods, ContentTest,
                         ::testing::Values(kCompareSideBySide, kCompareMD5, kCompareSHA1,
                                           kCompareSHA256, kCompareSHA384, kCompareSHA512));

using ChecksumTest = ContentBase;

TEST_F(ChecksumTest, DigestIsRawAndSmallFilesAreTheirOwnChecksum) {
  ContentComparer c(Options(kCompareSHA1), texts_, log_, run_, progress_);
  std::string big = Filler(5000);
  FileRecord a = Rec("a", big), b = Rec("b", big);
  ASSERT_EQ(Compare(c, a, "a", b, "b"), kContentEqual);
  EXPECT_EQ(a.Hash, Digest("SHA1", big));

  // Up to the digest length the bytes themselves stand for the file.
  FileRecord t1 = Rec("t1", "0123456789"), t2 = Rec("t2", "0123456789");
  ASSERT_EQ(Compare(c, t1, "t1", t2, "t2"), kContentEqual);
  EXPECT_EQ(t1.Hash, "0123456789");
  std::string twenty(20, 'q');
  FileRecord u1 = Rec("u1", twenty), u2 = Rec("u2", twenty);
  ASSERT_EQ(Compare(c, u1, "u1", u2, "u2"), kContentEqual);
  EXPECT_EQ(u1.Hash, twenty);
  FileRecord v1 = Rec("v1", twenty + "q"), v2 = Rec("v2", twenty + "q");
  ASSERT_EQ(Compare(c, v1, "v1", v2, "v2"), kContentEqual);
  EXPECT_EQ(v1.Hash, Digest("SHA1", twenty + "q"));
}

TEST_F(ChecksumTest, EmptyFilesLeaveTheChecksumRunButAreEqualSideBySide) {
  FileRecord a = Rec("a", ""), b = Rec("b", "");
  {
    ContentComparer c(Options(kCompareSideBySide), texts_, log_, run_, progress_);
    EXPECT_EQ(Compare(c, a, "a", b, "b"), kContentEqual);
  }
  ContentComparer c(Options(kCompareMD5), texts_, log_, run_, progress_);
  EXPECT_EQ(Compare(c, a, "a", b, "b"), kContentChecksumFailed);
  EXPECT_TRUE(b.HaveErrorMessage);
  EXPECT_NE(RunLog().find("File size 0"), std::string::npos);
}

TEST_F(ChecksumTest, ExifRuleWithoutMeasuredStartHashesOneZeroByteMore) {
  ContentComparer c(Options(kCompareSHA256), texts_, log_, run_, progress_);
  std::string body = Filler(3000);
  FileRecord a = Rec("a.jpg", body), b = Rec("b.jpg", body);
  ASSERT_EQ(Compare(c, a, "a.jpg", b, "b.jpg", false, true, false), kContentEqual);
  EXPECT_EQ(a.Hash, Digest("SHA256", body + std::string(1, '\0')));

  // FLAC files share the rule through the Exif fields, which stay 0.
  FileRecord f = Rec("f.flac", body), g = Rec("g.flac", body);
  ASSERT_EQ(Compare(c, f, "f.flac", g, "g.flac", false, false, true), kContentEqual);
  EXPECT_EQ(f.Hash, a.Hash);
  // The rule follows the extension of the record found.
  FileRecord h = Rec("h.bin", body);
  ASSERT_EQ(Compare(c, h, "h.bin", g, "g.flac", false, false, true), kContentEqual);
  FileRecord k = Rec("k.flac", body), m = Rec("m.bin", body);
  ASSERT_EQ(Compare(c, k, "k.flac", m, "m.bin", false, false, true), kContentEqual);
  EXPECT_EQ(k.Hash, Digest("SHA256", body));
}

TEST_F(ChecksumTest, CutsLeaveOutTagRegions) {
  std::string audio = Filler(4000);
  FileRecord a = Rec("a.mp3", "HEAD-A" + audio + "tail-aaaa");
  FileRecord b = Rec("b.mp3", "HEADER-B" + audio + "tl");
  a.MP3CutFromStart = 6;
  a.MP3CutFromEnd = 9;
  b.MP3CutFromStart = 8;
  b.MP3CutFromEnd = 2;
  for (int mode : {kCompareSideBySide, kCompareSHA1}) {
    FileRecord x = a, y = b;
    ContentComparer on(Options(mode), texts_, log_, run_, progress_);
    EXPECT_EQ(on.Search_CompareContent(x, P("a.mp3"), y, P("b.mp3"), true, false, false),
              kContentEqual);
    x = a;
    y = b;
    ContentComparer off(Options(mode), texts_, log_, run_, progress_);
    EXPECT_EQ(off.Search_CompareContent(x, P("a.mp3"), y, P("b.mp3"), false, false, false),
              kContentDifferent);
  }
}

TEST_F(ContentBase, PercentageRoute) {
  std::string base = Filler(1000);
  std::string five = base;
  for (int i = 0; i < 5; ++i) five[i * 100] = static_cast<char>(five[i * 100] ^ 1);
  ContentCompareOptions o = Options(kCompareSideBySide);
  o.percent = 99;
  ContentComparer c(o, texts_, log_, run_, progress_);
  FileRecord a = Rec("a", base), b = Rec("b", five);
  // 5 of 1000 bytes differ: 99 percent, which is enough.
  EXPECT_EQ(Compare(c, b, "b", a, "a"), kContentEqual);
  EXPECT_EQ(b.PercentMatch, 99);
  EXPECT_FALSE(b.IsReferenceFile);
  EXPECT_EQ(a.PercentMatch, 100);
  EXPECT_TRUE(a.IsReferenceFile);

  std::string many = base;
  for (int i = 0; i < 20; ++i) many[i * 40] = static_cast<char>(many[i * 40] ^ 1);
  FileRecord m = Rec("m", many);
  EXPECT_EQ(Compare(c, m, "m", a, "a"), kContentDifferent);  // 98 percent

  FileRecord same = Rec("same", base);
  EXPECT_EQ(Compare(c, same, "same", a, "a"), kContentEqual);
  EXPECT_EQ(same.PercentMatch, 100);
  FileRecord longer = Rec("longer", base + "x");
  EXPECT_EQ(Compare(c, longer, "longer", a, "a"), kContentDifferent);
}

TEST_F(ContentBase, HardLinksAreEqualWithoutReading) {
  dir_.Write("a", Filler(1000));
  std::filesystem::create_hard_link(dir_ / "a", dir_ / "b");
  FileRecord a = RecFor(dir_ / "a"), b = RecFor(dir_ / "b");
  ContentCompareOptions o = Options(kCompareSHA1);
  o.dontCompareHardlinks = true;
  ContentComparer c(o, texts_, log_, run_, progress_);
  EXPECT_EQ(Compare(c, b, "b", a, "a"), kContentEqual);
  EXPECT_EQ(c.CompareCount, 0);
  EXPECT_EQ(c.ChecksumCount, 0);
  EXPECT_EQ(a.NumberOfLinks, 2);

  // A file with one link is read like any other.
  FileRecord d = Rec("d", Filler(1000));
  EXPECT_EQ(Compare(c, d, "d", a, "a"), kContentEqual);
  EXPECT_EQ(d.NumberOfLinks, 1);
  EXPECT_EQ(c.CompareCount, 1);

  // Without the option the links are read.
  FileRecord a2 = RecFor(dir_ / "a"), b2 = RecFor(dir_ / "b");
  ContentComparer plain(Options(kCompareSHA1), texts_, log_, run_, progress_);
  EXPECT_EQ(plain.Search_CompareContent(b2, P("b"), a2, P("a"), false, false, false),
            kContentEqual);
  EXPECT_EQ(plain.ChecksumCount, 2);
}

TEST_P(ContentTest, VanishedFileIsReportedOnceAndLeavesTheRun) {
  const int mode = GetParam();
  ContentComparer c(Options(mode), texts_, log_, run_, progress_);
  std::string s = Filler(3000);
  FileRecord a = Rec("a", s), gone = Rec("gone", s), other = Rec("other", s);
  std::filesystem::remove(dir_ / "gone");
  EXPECT_GT(Compare(c, gone, "gone", a, "a"), 0);
  EXPECT_TRUE(gone.HaveErrorMessage);
  EXPECT_FALSE(a.HaveErrorMessage);
  EXPECT_GT(Compare(c, gone, "gone", other, "other"), 0);
  // The partner is compared with others as usual.
  EXPECT_EQ(Compare(c, other, "other", a, "a"), kContentEqual);
  std::string log = RunLog();
  EXPECT_EQ(Count(log, "gone"), 1) << log;
  if (mode == kCompareSideBySide)
    EXPECT_NE(log.find("konnte nicht geöffnet werden. Fehler: CreateFileWide2: "),
              std::string::npos)
        << log;
  else
    EXPECT_NE(log.find("Beim Erstellen der Prüfsumme von Datei"), std::string::npos) << log;
}

// The file system refuses the open (as it does for a file without read
// permission): the file is in error, reported once with the system's text.
TEST_P(ContentTest, UnreadableFileIsReportedOnce) {
  FileSystemFaults faults;
  faults.Fail(FsCall::OpenFile, "/locked", EACCES);
  FileSystemFaults::Scope scope(&faults);
  ContentComparer c(Options(GetParam()), texts_, log_, run_, progress_);
  std::string s = Filler(3000);
  FileRecord a = Rec("a", s), locked = Rec("locked", s);
  EXPECT_GT(Compare(c, a, "a", locked, "locked"), 0);
  EXPECT_TRUE(locked.HaveErrorMessage);
  EXPECT_GT(Compare(c, a, "a", locked, "locked"), 0);
  EXPECT_EQ(Count(RunLog(), "locked"), 1);
  EXPECT_EQ(Count(RunLog(), ErrorText(EACCES)), 1) << RunLog();
}

TEST_F(ContentBase, StopEndsTheSideBySideReadAsDifferent) {
  ContentCompareOptions o = Options(kCompareSideBySide);
  o.compareBuffer = {1000, 1000, 1000, 1000};
  ContentComparer c(o, texts_, log_, run_, progress_);
  std::string s = Filler(100000);
  FileRecord a = Rec("a", s), b = Rec("b", s);
  run_.RequestStop(kStopUser);
  EXPECT_EQ(Compare(c, b, "b", a, "a"), kContentStopped);
  EXPECT_FALSE(a.HaveErrorMessage);
}

TEST(ChecksumAvailability, KnownMethodsAreAvailable) {
  for (int mode = 0; mode <= 5; ++mode) {
    std::string error;
    EXPECT_TRUE(ChecksumAvailable(mode, &error)) << mode << error;
  }
  std::string error;
  EXPECT_FALSE(ChecksumAvailable(9, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(DigestLength(kCompareSHA384), 48);
  EXPECT_EQ(ChecksumName(kCompareSHA256), "SHA2-256");
}

// The read-ahead workers give the digest the cascade would make itself, and
// no file is hashed twice.
TEST_F(ContentBase, PrefetchGivesTheSameDigestOnce) {
  std::vector<std::string> bodies;
  for (int i = 0; i < 6; ++i) bodies.push_back(Filler(300000, i % 3 + 1));
  std::vector<FileRecord> recs;
  for (int i = 0; i < 6; ++i) recs.push_back(Rec("f" + std::to_string(i), bodies[i]));

  WorkPool pool(3);
  ContentComparer c(Options(kCompareSHA1), texts_, log_, run_, progress_);
  c.SetWorkPool(&pool);
  for (int i = 0; i < 6; ++i) c.Prefetch(P("f" + std::to_string(i)), recs[i]);
  c.Prefetch(P("f0"), recs[0]);  // a second hint for one file is ignored
  c.Prefetch(P("never-compared"), recs[0]);
  for (int i = 1; i < 6; ++i) {
    int expected = bodies[i] == bodies[0] ? kContentEqual : kContentDifferent;
    EXPECT_EQ(c.Search_CompareContent(recs[i], P("f" + std::to_string(i)), recs[0], P("f0"), false,
                                      false, false),
              expected)
        << i;
    EXPECT_EQ(recs[i].Hash, Digest("SHA1", bodies[i]));
  }
  EXPECT_EQ(c.ChecksumCount, 6);
  EXPECT_EQ(c.CompareCount, 5);
  EXPECT_EQ(recs[0].Hash, Digest("SHA1", bodies[0]));

  // A hint made under other cut rules is not taken.
  FileRecord j = Rec("j.jpg", bodies[0]), k = Rec("k.jpg", bodies[0]);
  ContentCompareOptions o = Options(kCompareSHA1);
  o.ignoreExif = true;
  ContentComparer e(o, texts_, log_, run_, progress_);
  e.SetWorkPool(&pool);
  e.Prefetch(P("j.jpg"), j);
  e.Prefetch(P("k.jpg"), k);
  EXPECT_EQ(e.Search_CompareContent(j, P("j.jpg"), k, P("k.jpg"), false, false, false),
            kContentEqual);
  EXPECT_EQ(j.Hash, Digest("SHA1", bodies[0]));
  EXPECT_EQ(e.ChecksumCount, 2);
}

TEST_F(ContentBase, PrefetchReportsFailuresLikeTheDirectRoute) {
  WorkPool pool(2);
  ContentComparer c(Options(kCompareSHA512), texts_, log_, run_, progress_);
  c.SetWorkPool(&pool);
  FileRecord a = Rec("a", Filler(100)), b = Rec("b", Filler(100));
  c.Prefetch(P("a"), a);
  c.Prefetch(P("missing"), b);
  EXPECT_EQ(c.Search_CompareContent(b, P("missing"), a, P("a"), false, false, false),
            kContentChecksumFailed);
  EXPECT_TRUE(b.HaveErrorMessage);
  EXPECT_EQ(Count(RunLog(), "CreateFileWide: "), 1);
}

}  // namespace
}  // namespace kelvor::test
