#include "compare/audio_tags.h"

#include "compare_fixture.h"

namespace kelvor::test {
namespace {

// Tag builders; the lengths are what the measurement must find.
std::string Id3v2(std::size_t body) {
  std::string h = "ID3";
  h += '\x04';
  h += '\x00';
  h += '\x00';
  h += static_cast<char>((body >> 21) & 0x7F);
  h += static_cast<char>((body >> 14) & 0x7F);
  h += static_cast<char>((body >> 7) & 0x7F);
  h += static_cast<char>(body & 0x7F);
  return h + std::string(body, 'v');
}
std::string Id3v1() {
  return "TAG" + std::string(125, 't');
}
std::string Le32(std::uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
  return s;
}
// APE tag with header and footer; the footer's size counts items + footer.
std::string Ape(std::size_t items, std::uint32_t claimed = 0) {
  std::uint32_t size = claimed ? claimed : static_cast<std::uint32_t>(items + 32);
  std::string frame = "APETAGEX" + Le32(2000) + Le32(size) + Le32(1) + Le32(0) + std::string(8, 0);
  return frame + std::string(items, 'a') + frame;
}
std::string ApeWithoutHeader(std::size_t items) {
  std::string frame = "APETAGEX" + Le32(2000) + Le32(static_cast<std::uint32_t>(items + 32)) +
                      Le32(1) + Le32(0) + std::string(8, 0);
  return std::string(items, 'a') + frame;
}
std::string Lyrics(std::size_t content, const char* sizeText = nullptr) {
  std::string body = "LYRICSBEGIN" + std::string(content, 'l');
  char buf[16];
  std::snprintf(buf, sizeof buf, "%06zu", body.size());
  return body + (sizeText ? sizeText : buf) + "LYRICS200";
}

class AudioTagsTest : public CompareTest {
 protected:
  struct Cut {
    bool ok;
    std::int32_t start, end;
    std::string message;
  };
  Cut Mp3(const std::string& content) {
    std::filesystem::path p = dir_.Write("t" + std::to_string(n_++) + ".mp3", content);
    Cut c{false, 0, 0, ""};
    c.ok = Search_CheckForMP3IDTag(c.start, c.end, p.string(), texts_, &c.message);
    return c;
  }
  Cut Flac(const std::string& content) {
    std::filesystem::path p = dir_.Write("f" + std::to_string(n_++) + ".flac", content);
    Cut c{false, 0, 0, ""};
    c.ok = Search_CheckForFlacTag(c.end, static_cast<std::int64_t>(content.size()), p.string(),
                                  texts_, &c.message);
    return c;
  }
  int n_ = 0;
  const std::string audio_ = Filler(2000);
};

TEST_F(AudioTagsTest, MeasuresEveryTagKind) {
  Cut c = Mp3(audio_);
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.start, 0);
  EXPECT_EQ(c.end, 0);

  c = Mp3(Id3v2(300) + audio_ + Id3v1());
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.start, 310);
  EXPECT_EQ(c.end, 128);

  // APE in front of Lyrics and the other way about, both before ID3v1.
  const int both = 64 + 100 + 11 + 50 + 15 + 128;
  c = Mp3(audio_ + Ape(100) + Lyrics(50) + Id3v1());
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, both);
  c = Mp3(audio_ + Lyrics(50) + Ape(100) + Id3v1());
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, both);
  c = Mp3(audio_ + Ape(100));
  EXPECT_EQ(c.end, 164);

  // A footer-only APE tag is still counted with 32 bytes for a header.
  c = Mp3(audio_ + ApeWithoutHeader(100));
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 164);

  // Two stacked ID3v2 tags count, a third does not.
  c = Mp3(Id3v2(20) + Id3v2(40) + audio_);
  EXPECT_EQ(c.start, 80);
  c = Mp3(Id3v2(20) + Id3v2(40) + Id3v2(60) + audio_);
  EXPECT_EQ(c.start, 80);
}

TEST_F(AudioTagsTest, Id3v1Quirks) {
  // "TAG" at both places: 256 bytes. Only 256 from the end: the last 128.
  Cut c = Mp3(audio_ + Id3v1() + Id3v1());
  EXPECT_EQ(c.end, 256);
  c = Mp3(audio_ + Id3v1() + std::string(128, 'x'));
  EXPECT_EQ(c.end, 128);
}

TEST_F(AudioTagsTest, CorruptLengthsAndShortFiles) {
  Cut c = Mp3(audio_ + Ape(100, 0x7FFFFFFF));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "Die Datei '" + P("t0.mp3") + "' besitzt ein korruptes APE-Tag!");

  // A length larger than the whole file is as corrupt.
  c = Mp3(audio_ + Ape(100, 500000) + Id3v1());
  EXPECT_FALSE(c.ok);
  EXPECT_NE(c.message.find("korruptes APE-Tag"), std::string::npos);

  // A Lyrics length that is no number is ignored.
  c = Mp3(audio_ + Lyrics(50, "00x061"));
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 0);
  // One that reaches in front of the file fails the measurement.
  c = Mp3(audio_ + Lyrics(50, "999999"));
  EXPECT_FALSE(c.ok);
  EXPECT_NE(c.message.find("(Pos:9)"), std::string::npos) << c.message;

  // An ID3v2 header claiming more than the file holds.
  const std::string big("ID3\x04\x00\x00\x7f\x7f\x7f\x7f", 10);
  c = Mp3(big + audio_);
  EXPECT_FALSE(c.ok);

  // Under 128 bytes the first positioning fails.
  c = Mp3("short");
  EXPECT_FALSE(c.ok);
  EXPECT_NE(c.message.find("Beim Zugriff auf die Datei"), std::string::npos);
  EXPECT_NE(c.message.find("(Pos:3)"), std::string::npos);

  std::int32_t s = 0, e = 0;
  std::string msg;
  EXPECT_FALSE(Search_CheckForMP3IDTag(s, e, P("missing.mp3"), texts_, &msg));
  EXPECT_NE(msg.find("(Pos:8)"), std::string::npos);
}

std::string FlacBlock(unsigned char type, std::size_t len) {
  std::string h(4, '\0');
  h[0] = static_cast<char>(type);
  h[1] = static_cast<char>((len >> 16) & 0xFF);
  h[2] = static_cast<char>((len >> 8) & 0xFF);
  h[3] = static_cast<char>(len & 0xFF);
  return h + std::string(len, 'm');
}

TEST_F(AudioTagsTest, FlacMetadataLength) {
  Cut c = Flac("fLaC" + FlacBlock(0, 34) + FlacBlock(4, 100) + FlacBlock(0x81, 20) + audio_);
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 4 + 38 + 104 + 24 - 1);

  // Last-block flag never set: nothing measured.
  c = Flac("fLaC" + FlacBlock(0, 34) + FlacBlock(4, 100));
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 0);

  // Not a FLAC stream.
  c = Flac(audio_);
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 0);

  // No STREAMINFO first (or it is the last block).
  c = Flac("fLaC" + FlacBlock(4, 34) + audio_);
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "Der Streaminfo-Block konnte nicht in der Datei '" + P("f3.flac") +
                           "' gefunden werden!");
  c = Flac("fLaC" + FlacBlock(0x80, 34) + audio_);
  EXPECT_FALSE(c.ok);

  // A last block that runs past the end measures nothing.
  c = Flac("fLaC" + FlacBlock(0, 34) + FlacBlock(0x84, 100).substr(0, 50));
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.end, 0);

  c = Flac("fLaC");
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.message, "");
}

// Copies that differ only in their tags are grouped with the rule on.
TEST_F(AudioTagsTest, TaggedCopiesCompareEqualOnlyWithTheRule) {
  const std::string tagged[] = {
      Id3v2(400) + audio_ + Ape(60) + Lyrics(30) + Id3v1(),
      Id3v2(10) + Id3v2(90) + audio_ + Id3v1(),
      audio_ + Lyrics(300),
  };
  std::vector<FileRecord> recs;
  for (std::size_t i = 0; i < std::size(tagged); ++i) {
    std::string name = "copy" + std::to_string(i) + ".mp3";
    FileRecord r = Rec(name, tagged[i]);
    std::string msg;
    ASSERT_TRUE(Search_CheckForMP3IDTag(r.MP3CutFromStart, r.MP3CutFromEnd, P(name), texts_, &msg));
    r.SizeKey = r.SIZE - r.MP3CutFromStart - r.MP3CutFromEnd;
    EXPECT_EQ(r.SizeKey, static_cast<std::int64_t>(audio_.size()));
    recs.push_back(r);
  }
  for (int mode : {kCompareSideBySide, kCompareSHA1}) {
    ContentCompareOptions o;
    o.mode = mode;
    o.ignoreMP3Tags = true;
    ContentComparer on(o, texts_, log_, run_, progress_);
    std::vector<FileRecord> r = recs;
    for (std::size_t i = 1; i < r.size(); ++i)
      EXPECT_EQ(on.Search_CompareContent(r[i], P("copy" + std::to_string(i) + ".mp3"), r[0],
                                         P("copy0.mp3"), true, false, false),
                kContentEqual)
          << mode << " " << i;
    ContentComparer off(o, texts_, log_, run_, progress_);
    r = recs;
    EXPECT_EQ(
        off.Search_CompareContent(r[1], P("copy1.mp3"), r[0], P("copy0.mp3"), false, false, false),
        kContentDifferent);
  }
}

// The metadata length only shortens the compare size; the comparison itself
// still covers the whole file.
TEST_F(AudioTagsTest, FlacCopiesWithOtherMetadataStayDifferent) {
  const std::string a = "fLaC" + FlacBlock(0, 34) + FlacBlock(0x84, 40) + audio_;
  std::string bmeta = FlacBlock(0x84, 40);
  bmeta[10] = 'X';
  const std::string b = "fLaC" + FlacBlock(0, 34) + bmeta + audio_;
  FileRecord ra = Rec("a.flac", a), rb = Rec("b.flac", b), rc = Rec("c.flac", a);
  for (FileRecord* r : {&ra, &rb, &rc}) {
    std::int32_t len = 0;
    std::string msg;
    std::string name = r->Name + ".flac";
    ASSERT_TRUE(Search_CheckForFlacTag(len, r->SIZE, P(name), texts_, &msg));
    r->SizeKey = r->SIZE - len;
  }
  EXPECT_EQ(ra.SizeKey, rb.SizeKey);
  for (int mode : {kCompareSideBySide, kCompareSHA256}) {
    ContentCompareOptions o;
    o.mode = mode;
    o.ignoreFlacMetadata = true;
    ContentComparer c(o, texts_, log_, run_, progress_);
    FileRecord x = ra, y = rb, z = rc;
    EXPECT_EQ(c.Search_CompareContent(y, P("b.flac"), x, P("a.flac"), false, false, true),
              kContentDifferent);
    EXPECT_EQ(c.Search_CompareContent(z, P("c.flac"), x, P("a.flac"), false, false, true),
              kContentEqual);
  }
}

}  // namespace
}  // namespace kelvor::test
