#pragma once
// Real audio files for tests, made once per test program with Debian's sox,
// lame, flac and oggenc: one tune of 30 seconds in several formats, another
// tune, silence, a clip too short to measure and a file that is no audio.

#include <filesystem>
#include <string>
#include <vector>

namespace kelvor::test {

struct AudioSamples {
  std::filesystem::path dir;  // holds the files below
  std::string problem;        // why they could not be made (empty: they were)
  // The tune as WAV, FLAC, MP3 at 128 and 320 kbit/s and Ogg Vorbis.
  static inline const std::vector<std::string> kTuneForms = {
      "tune.wav", "tune.flac", "tune-128.mp3", "tune-320.mp3", "tune.ogg"};
  // "other.wav" another tune; "silence.wav" 10 s of silence; "short.wav" a
  // one-second tone; "broken.mp3" text with an audio name.
};

// The samples, made on first use; they are removed when the program ends.
const AudioSamples& SharedAudioSamples();

}  // namespace kelvor::test
