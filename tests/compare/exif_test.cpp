#include "compare/exif.h"

#include "compare_fixture.h"

namespace kelvor::test {
namespace {

std::string Seg(unsigned char marker, const std::string& payload) {
  std::size_t len = payload.size() + 2;
  std::string s = "\xFF";
  s += static_cast<char>(marker);
  s += static_cast<char>((len >> 8) & 0xFF);
  s += static_cast<char>(len & 0xFF);
  return s + payload;
}

const std::string kSoi("\xFF\xD8", 2);
const std::string kEoi("\xFF\xD9", 2);

// Everything in front of the start-of-scan marker.
std::string JpegHead(const std::string& exif) {
  return kSoi + Seg(0xE0, "JFIF" + std::string(10, 'j')) +
         Seg(0xE1, std::string("Exif\0\0", 6) + exif) + Seg(0xDB, std::string(65, 'q')) +
         Seg(0xC0, std::string(15, 'f')) + Seg(0xC4, std::string(30, 'h'));
}
std::string ScanAndEnd(const std::string& scan) {
  return Seg(0xDA, std::string(10, 's')) + scan + kEoi;
}

std::string Le32(std::uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
  return s;
}
std::string Le16(unsigned v) {
  return {static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
}
std::string Entry(unsigned tag, std::uint32_t value) {
  return Le16(tag) + Le16(4) + Le32(1) + Le32(value);
}

class ExifTest : public CompareTest {
 protected:
  struct Cut {
    bool ok;
    std::int32_t start, end;
    std::string message;
  };
  Cut Jpeg(const std::string& content) {
    std::filesystem::path p = dir_.Write("p" + std::to_string(n_++) + ".jpg", content);
    Cut c{false, 0, 0, ""};
    c.ok = Search_GetExifDatablockSize(p.string(), c.start, c.end, texts_, &c.message);
    return c;
  }
  Cut Cr2(const std::string& content) {
    std::filesystem::path p = dir_.Write("r" + std::to_string(n_++) + ".cr2", content);
    Cut c{false, 0, 0, ""};
    c.ok = Search_GetExifDatablockSize_CR2(p.string(), c.start, c.end, texts_, &c.message);
    return c;
  }
  // A CR2 file: header, raw directory at 100, JPEG strip at 200, 50 bytes
  // behind it.
  static std::string MakeCr2(const char* order = "II", unsigned t1 = 0x0103,
                             std::uint32_t ifd = 100, std::uint32_t countDelta = 0,
                             bool endMark = true) {
    std::string strip = kSoi + Filler(300) + (endMark ? kEoi : std::string("\x00\x00", 2));
    std::string f = std::string(order) + "*" + std::string(1, '\0') + Le32(8) + "CR" +
                    std::string("\x02\x00", 2) + Le32(ifd);
    f.resize(100, 'z');
    f += Le16(3) + Entry(t1, 6) + Entry(0x0111, 200) +
         Entry(0x0117, static_cast<std::uint32_t>(strip.size()) + countDelta) + Le32(0);
    f.resize(200, 'z');
    return f + strip + std::string(50, 'w');
  }
  int n_ = 0;
};

TEST_F(ExifTest, FindsImageDataAndTrailingBytes) {
  const std::string head = JpegHead(Filler(500));
  const std::string scan = Filler(5000);
  Cut c = Jpeg(head + ScanAndEnd(scan) + "trailing!");
  EXPECT_TRUE(c.ok) << c.message;
  EXPECT_EQ(c.start, static_cast<std::int32_t>(head.size()));
  EXPECT_EQ(c.end, 9);
  EXPECT_EQ(c.message, "");

  // Ending exactly with the end-of-image marker.
  c = Jpeg(head + ScanAndEnd(scan));
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 0);

  // A thumbnail inside the Exif block is skipped with its segment.
  const std::string thumbHead = JpegHead(kSoi + Filler(200) + kEoi);
  c = Jpeg(thumbHead + ScanAndEnd(scan) + "xy");
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.start, static_cast<std::int32_t>(thumbHead.size()));
  EXPECT_EQ(c.end, 2);

  // FF D9 inside trailing data: the last pair in the file wins.
  c = Jpeg(head + ScanAndEnd(scan) + "abc" + kEoi + "12345");
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 5);
}

TEST_F(ExifTest, OtherStructuresFailQuietly) {
  const std::string scan = Filler(1000);
  EXPECT_FALSE(Jpeg("not a jpeg at all").ok);
  // A lossless or arithmetic frame in front of the scan.
  Cut c = Jpeg(kSoi + Seg(0xC1, std::string(15, 'f')) + ScanAndEnd(scan));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
  c = Jpeg(kSoi + Seg(0xDC, "xx") + ScanAndEnd(scan));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
  // A file that ends in front of the scan, and one with garbage for a marker.
  c = Jpeg(JpegHead("e"));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
  c = Jpeg(kSoi + "garbage" + ScanAndEnd(scan));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
  c = Jpeg(kSoi);
  EXPECT_FALSE(c.ok);
}

TEST_F(ExifTest, BrokenLengthsAndMissingEndAreReported) {
  const std::string scan = Filler(1000);
  // A segment that claims more than the file holds.
  std::string broken = kSoi + "\xFF\xE1\x7F\xFF" + "Exif";
  Cut c = Jpeg(broken + ScanAndEnd(scan));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message.rfind("Marker FF-E1 Value-Error: 7F/FF FileLen: ", 0), 0u) << c.message;
  EXPECT_NE(c.message.find(P("p0.jpg")), std::string::npos);
  // A length below 2.
  c = Jpeg(kSoi + std::string("\xFF\xE1\x00\x01", 4) + ScanAndEnd(scan));
  EXPECT_FALSE(c.ok);
  EXPECT_NE(c.message.find("Value-Error"), std::string::npos);

  // No end-of-image marker: the whole rest after the scan header was searched.
  const std::string head = JpegHead("x");
  const std::string noEnd = head + Seg(0xDA, std::string(10, 's')) + scan;
  c = Jpeg(noEnd);
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "Das Ende der Bilddaten (EOI) konnte nicht in den letzten " +
                           std::to_string(scan.size() + 10) + " Bytes der Datei '" + P("p2.jpg") +
                           "' gefunden werden!");
  // More than 300000 bytes behind the end of the image.
  c = Jpeg(head + ScanAndEnd(scan) + Filler(300001));
  EXPECT_FALSE(c.ok);
  EXPECT_NE(c.message.find("in den letzten 300000 Bytes"), std::string::npos);

  std::int32_t s = 0, e = 0;
  std::string msg;
  EXPECT_FALSE(Search_GetExifDatablockSize(P("missing.jpg"), s, e, texts_, &msg));
  EXPECT_NE(msg.find("(Search_GetExifDatablockSize:1)"), std::string::npos) << msg;
}

TEST_F(ExifTest, CopiesDifferingOnlyInMetadataCompareEqualWithTheRule) {
  const std::string scan = Filler(20000, 7);
  const std::string one = JpegHead(Filler(800, 2)) + ScanAndEnd(scan);
  const std::string two = JpegHead(Filler(3000, 3)) + ScanAndEnd(scan) + "edited by a tool";
  const std::string other = JpegHead(Filler(800, 2)) + ScanAndEnd(Filler(20000, 8));
  std::vector<FileRecord> recs;
  for (const auto& [name, content] : {std::pair<std::string, std::string>{"one.jpg", one},
                                      {"two.jpg", two},
                                      {"other.jpg", other}}) {
    FileRecord r = Rec(name, content);
    std::string msg;
    ASSERT_TRUE(
        Search_GetExifDatablockSize(P(name), r.ExifCutFromStart, r.ExifCutFromEnd, texts_, &msg));
    r.SizeKey = r.SIZE - r.ExifCutFromStart - r.ExifCutFromEnd;
    recs.push_back(r);
  }
  EXPECT_EQ(recs[0].SizeKey, recs[1].SizeKey);
  for (int mode : {kCompareSideBySide, kCompareSHA1, kCompareMD5}) {
    ContentCompareOptions o;
    o.mode = mode;
    o.ignoreExif = true;
    ContentComparer on(o, texts_, log_, run_, progress_);
    std::vector<FileRecord> r = recs;
    EXPECT_EQ(on.Search_CompareContent(r[1], P("two.jpg"), r[0], P("one.jpg"), false, true, false),
              kContentEqual)
        << mode;
    EXPECT_EQ(
        on.Search_CompareContent(r[2], P("other.jpg"), r[0], P("one.jpg"), false, true, false),
        kContentDifferent)
        << mode;
    ContentComparer off(o, texts_, log_, run_, progress_);
    r = recs;
    EXPECT_EQ(
        off.Search_CompareContent(r[1], P("two.jpg"), r[0], P("one.jpg"), false, false, false),
        kContentDifferent)
        << mode;
  }
}

TEST_F(ExifTest, Cr2StripAndOddDirectories) {
  Cut c = Cr2(MakeCr2());
  EXPECT_TRUE(c.ok) << c.message;
  EXPECT_EQ(c.start, 200);
  EXPECT_EQ(c.end, 50);
  // "MM" is accepted, its values still read low byte first.
  c = Cr2(MakeCr2("MM"));
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.start, 200);

  // Entries other than the three expected tags first.
  c = Cr2(MakeCr2("II", 0x0100));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
  // Directory behind the end of the file, or running past it.
  c = Cr2(MakeCr2("II", 0x0103, 0x7FFFFFF0));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
  std::string shortDir = MakeCr2();
  c = Cr2(MakeCr2("II", 0x0103, static_cast<std::uint32_t>(shortDir.size() - 20)));
  EXPECT_FALSE(c.ok);
  // Strip count past the end of the file, or no end mark.
  c = Cr2(MakeCr2("II", 0x0103, 100, 1000));
  EXPECT_FALSE(c.ok);
  c = Cr2(MakeCr2("II", 0x0103, 100, 0, false));
  EXPECT_FALSE(c.ok);
  // Not a CR2 header.
  std::string tiff = MakeCr2();
  tiff[8] = 'X';
  c = Cr2(tiff);
  EXPECT_FALSE(c.ok);
  c = Cr2("II*");
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
}

}  // namespace
}  // namespace kelvor::test
