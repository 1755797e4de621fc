// Audio properties through MediaInfoLib, and the reading of its answer.

#include <gtest/gtest.h>

#include "compare/media_info.h"
#include "support/audio_samples.h"

namespace kelvor {
namespace {

TEST(MediaInfoAnswer, ThreeNumbersDurationInMilliseconds) {
  AudioProperties a;
  ASSERT_TRUE(ParseAudioInform("30000,128000,44100", &a));
  EXPECT_EQ(a.durationSeconds, 30);
  EXPECT_EQ(a.bitRate, 128000);
  EXPECT_EQ(a.samplingRate, 44100);
  ASSERT_TRUE(ParseAudioInform("30600.500,,48000", &a));
  EXPECT_EQ(a.durationSeconds, 31);
  EXPECT_EQ(a.bitRate, 0);
  EXPECT_EQ(a.samplingRate, 48000);
  // No audio stream: an empty answer stands for 0,0,0.
  ASSERT_TRUE(ParseAudioInform("", &a));
  EXPECT_EQ(a.durationSeconds, 0);
  EXPECT_FALSE(ParseAudioInform("Format: MPEG Audio", &a));
  EXPECT_FALSE(ParseAudioInform("1,2", &a));
}

TEST(MediaInfoFiles, PropertiesOfRealFilesAndAMissingOne) {
  const test::AudioSamples& s = test::SharedAudioSamples();
  ASSERT_EQ(s.problem, "");
  auto media = MakeMediaProperties();
  AudioProperties a;
  std::string error;
  ASSERT_TRUE(media->GetMP3MediaInfo((s.dir / "tune-320.mp3").string(), &a, &error)) << error;
  EXPECT_EQ(a.durationSeconds, 30);
  EXPECT_EQ(a.bitRate, 320000);
  EXPECT_EQ(a.samplingRate, 44100);
  ASSERT_TRUE(media->GetMP3MediaInfo((s.dir / "tune.flac").string(), &a, &error)) << error;
  EXPECT_EQ(a.durationSeconds, 30);
  EXPECT_EQ(a.samplingRate, 44100);
  // Not audio: no properties, but no failure either.
  ASSERT_TRUE(media->GetMP3MediaInfo((s.dir / "broken.mp3").string(), &a, &error)) << error;
  EXPECT_EQ(a.durationSeconds, 0);
  EXPECT_FALSE(media->GetMP3MediaInfo((s.dir / "gone.mp3").string(), &a, &error));
  EXPECT_EQ(error, "No such file or directory");
}

}  // namespace
}  // namespace kelvor
