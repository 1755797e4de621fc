#include "support/audio_samples.h"

#include <cstdlib>
#include <fstream>

#include "support/temp_tree.h"

namespace kelvor::test {

namespace {

// A tune of 60 plucked notes of half a second, their pitches drawn from
// `seed`: structure enough for an acoustic fingerprint.
std::string TuneCommand(unsigned seed, const std::filesystem::path& out) {
  std::string cmd = "sox -n -r 44100 -c 1 -b 16 -e signed-integer '" + out.string() + "'";
  unsigned long long s = seed;
  for (int i = 0; i < 60; ++i) {
    s = (s * 1103515245ULL + 12345ULL) % 2147483648ULL;
    cmd += " synth 0.5 pluck " + std::to_string(150 + (s / 65536) % 700);
    if (i < 59) cmd += " :";
  }
  return cmd;
}

bool Run(const std::string& cmd, std::string* problem) {
  if (std::system((cmd + " >/dev/null 2>&1").c_str()) == 0) return true;
  *problem = "failed: " + cmd.substr(0, 120);
  return false;
}

}  // namespace

const AudioSamples& SharedAudioSamples() {
  static TempDir dir;
  static const AudioSamples samples = [] {
    AudioSamples a;
    a.dir = dir.path();
    const auto p = [&](const char* name) { return "'" + (a.dir / name).string() + "'"; };
    const bool ok =
        Run(TuneCommand(7, a.dir / "tune.wav"), &a.problem) &&
        Run("flac -s -f " + p("tune.wav") + " -o " + p("tune.flac"), &a.problem) &&
        Run("lame --quiet -b 128 " + p("tune.wav") + " " + p("tune-128.mp3"), &a.problem) &&
        Run("lame --quiet -b 320 " + p("tune.wav") + " " + p("tune-320.mp3"), &a.problem) &&
        Run("oggenc -Q " + p("tune.wav") + " -o " + p("tune.ogg"), &a.problem) &&
        Run(TuneCommand(11, a.dir / "other.wav"), &a.problem) &&
        Run("sox -n -r 44100 -c 1 -b 16 " + p("silence.wav") + " trim 0 10", &a.problem) &&
        Run("sox -n -r 44100 -c 1 -b 16 " + p("short.wav") + " synth 1 sine 440", &a.problem);
    if (ok) std::ofstream(a.dir / "broken.mp3") << "this is no sound at all\n";
    return a;
  }();
  return samples;
}

}  // namespace kelvor::test
