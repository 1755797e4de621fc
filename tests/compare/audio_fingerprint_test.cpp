// Fingerprints from the tool's output, and how two fingerprints are measured.

#include <gtest/gtest.h>

#include <vector>

#include "compare/audio_fingerprint.h"

namespace kelvor {
namespace {

TEST(AudioFingerprintOutput, WordsBehindTheMarker) {
  const AudioFingerprint fp =
      ParseFingerprintOutput("DURATION=31\nFINGERPRINT=1,4294967295,3\n", 0);
  ASSERT_TRUE(fp.Ok()) << fp.error;
  EXPECT_EQ(fp.words, (std::vector<std::uint32_t>{1, 4294967295u, 3}));
}

TEST(AudioFingerprintOutput, SignedWordsAreTheSameBits) {
  const AudioFingerprint fp = ParseFingerprintOutput("FINGERPRINT=-1,2\n", 0);
  ASSERT_TRUE(fp.Ok()) << fp.error;
  EXPECT_EQ(fp.words, (std::vector<std::uint32_t>{4294967295u, 2}));
}

TEST(AudioFingerprintOutput, AFingerprintStandsBesideTheEndOfStreamNote) {
  // The tool notes the end of the stream and exits with 3 when the sound is
  // shorter than the length asked for; its fingerprint is whole.
  const AudioFingerprint fp = ParseFingerprintOutput(
      "ERROR: Error decoding audio frame (End of file)\nDURATION=30\nFINGERPRINT=5,6,7\n", 3);
  ASSERT_TRUE(fp.Ok()) << fp.error;
  EXPECT_EQ(fp.words.size(), 3u);
}

TEST(AudioFingerprintOutput, TheToolsErrorWithItsExitCode) {
  const AudioFingerprint fp =
      ParseFingerprintOutput("ERROR: Could not open the input file\r\n(Invalid argument)\n", 2);
  EXPECT_EQ(fp.error, "Could not open the input file  (Invalid argument) (exit:2)");
  EXPECT_FALSE(fp.NoSound());
}

TEST(AudioFingerprintOutput, NoSoundIsToldApartFromFailures) {
  const AudioFingerprint tooShort = ParseFingerprintOutput(
      "ERROR: Error decoding audio frame (End of file)\nERROR: Empty fingerprint\n", 2);
  EXPECT_TRUE(tooShort.NoSound()) << tooShort.error;
  const AudioFingerprint empty = ParseFingerprintOutput("DURATION=1\nFINGERPRINT=\n", 0);
  EXPECT_TRUE(empty.NoSound()) << empty.error;
  // Silence gives one word over and over.
  const AudioFingerprint silent =
      ParseFingerprintOutput("FINGERPRINT=627964279,627964279,627964279,627964279\n", 3);
  EXPECT_TRUE(silent.NoSound()) << silent.error;
  EXPECT_TRUE(silent.words.empty());

  const AudioFingerprint nothing = ParseFingerprintOutput("something else\n", 0);
  EXPECT_EQ(nothing.error, "FINGERPRINT not found");
  EXPECT_FALSE(nothing.NoSound());
  EXPECT_FALSE(ParseFingerprintOutput("FINGERPRINT=1,x,3\n", 0).Ok());
}

TEST(AudioFingerprintCommand, TheToolsCommandLine) {
  AudioFingerprintOptions o;
  o.tool = "/usr/bin/fpcalc";
  o.algorithm = AudioAlgorithmOfIndex(0);
  o.seconds = 45;
  EXPECT_EQ(FingerprintCommand("/music/a b.mp3", o),
            (std::vector<std::string>{"/usr/bin/fpcalc", "-raw", "-algorithm", "2", "-length", "45",
                                      "/music/a b.mp3"}));
  EXPECT_EQ(AudioAlgorithmOfIndex(1), 4);
  EXPECT_EQ(AudioAlgorithmOfIndex(2), 5);
  EXPECT_EQ(AudioAlgorithmOfIndex(7), 5);
}

TEST(AudioFingerprintCompare, EqualWordsCountAllTheirBits) {
  const std::vector<std::uint32_t> a{0x12345678u, 0, 0xFFFFFFFFu};
  std::int32_t compared = 0;
  EXPECT_EQ(Search_CompareAudioHash(a, a, &compared), 96);
  EXPECT_EQ(compared, 3);
  EXPECT_EQ(AudioMatchPercent(a, a), 100);
}

TEST(AudioFingerprintCompare, DifferingWordsCountOnlyTheBitsSetInBoth) {
  // 0b1100 and 0b1010 share one set bit; the 30 bits that are 0 in both
  // count nothing.
  const std::vector<std::uint32_t> a{0b1100u}, b{0b1010u};
  EXPECT_EQ(Search_CompareAudioHash(a, b), 1);
  EXPECT_EQ(AudioMatchPercent(a, b), 3);  // 1 x 100 / 32 = 3.1
  // Words one bit apart: their common set bits.
  const std::vector<std::uint32_t> c{0xFFFFFFFFu}, d{0xFFFFFFFEu};
  EXPECT_EQ(Search_CompareAudioHash(c, d), 31);
  EXPECT_EQ(AudioMatchPercent(c, d), 97);
}

TEST(AudioFingerprintCompare, OnlyTheShorterLengthCounts) {
  std::vector<std::uint32_t> shortOne(10, 0xABCDEF01u), longOne(100, 0u);
  for (std::size_t i = 0; i < 10; ++i) longOne[i] = shortOne[i];
  std::int32_t compared = 0;
  EXPECT_EQ(Search_CompareAudioHash(shortOne, longOne, &compared), 320);
  EXPECT_EQ(compared, 10);
  EXPECT_EQ(AudioMatchPercent(longOne, shortOne), 100);
  EXPECT_EQ(AudioMatchPercent({}, longOne), 0);
}

TEST(AudioFingerprintCompare, NoShiftBetweenTheTwo) {
  // The same words one place later are measured word by word as they stand.
  const std::vector<std::uint32_t> a{0xF0F0F0F0u, 0x0F0F0F0Fu, 0xF0F0F0F0u, 0x0F0F0F0Fu};
  const std::vector<std::uint32_t> b{0x0F0F0F0Fu, 0xF0F0F0F0u, 0x0F0F0F0Fu, 0xF0F0F0F0u};
  EXPECT_EQ(AudioMatchPercent(a, b), 0);
}

TEST(AudioFingerprintTool, AMissingToolIsAnError) {
  AudioFingerprintOptions o;
  EXPECT_FALSE(Search_CreateAudioHash("/tmp/x.mp3", o).Ok());
  o.tool = "/nonexistent/fpcalc";
  const AudioFingerprint fp = Search_CreateAudioHash("/tmp/x.mp3", o);
  EXPECT_NE(fp.error.find("posix_spawn"), std::string::npos) << fp.error;
}

}  // namespace
}  // namespace kelvor
