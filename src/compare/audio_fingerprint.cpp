// Fingerprints through fpcalc, and their bitwise comparison.

#include "compare/audio_fingerprint.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>

#include "frame/child_process.h"

namespace kelvor {

namespace {

constexpr std::string_view kErrorMarker = "ERROR:";
constexpr std::string_view kFingerprintMarker = "FINGERPRINT=";

std::string_view Trim(std::string_view s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

// The words behind the marker up to the line's end; false when an item is
// no number.
bool ReadWords(std::string_view text, std::vector<std::uint32_t>* words) {
  const std::size_t end = text.find_first_of("\r\n");
  text = Trim(text.substr(0, end));
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    std::string_view item = Trim(text.substr(0, comma));
    // The tool writes unsigned words, or signed ones with -signed: both are
    // the same 32 bits.
    long long v = 0;
    const auto [p, ec] = std::from_chars(item.data(), item.data() + item.size(), v);
    if (ec != std::errc() || p != item.data() + item.size() || item.empty()) return false;
    words->push_back(static_cast<std::uint32_t>(v));
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return true;
}

}  // namespace

int AudioAlgorithmOfIndex(int listIndex) {
  if (listIndex < 0 || listIndex >= static_cast<int>(std::size(kAudioAlgorithms)))
    return kAudioAlgorithms[2];
  return kAudioAlgorithms[listIndex];
}

std::vector<std::string> FingerprintCommand(const std::string& path,
                                            const AudioFingerprintOptions& options) {
  return {options.tool, "-raw",
          "-algorithm", std::to_string(options.algorithm),
          "-length",    std::to_string(options.seconds),
          path};
}

AudioFingerprint ParseFingerprintOutput(std::string_view output, int exitCode) {
  AudioFingerprint fp;
  const std::size_t mark = output.find(kFingerprintMarker);
  if (mark != std::string_view::npos) {
    std::string_view rest = output.substr(mark + kFingerprintMarker.size());
    if (!ReadWords(rest, &fp.words)) {
      fp.words.clear();
      fp.error = "FINGERPRINT not readable";
      return fp;
    }
    if (!fp.words.empty()) {
      // Silence gives one word over and over: nothing to tell files apart by.
      if (std::all_of(fp.words.begin(), fp.words.end(),
                      [&](std::uint32_t w) { return w == fp.words.front(); })) {
        fp.words.clear();
        fp.error = kEmptyFingerprint;
      }
      return fp;
    }
  }
  const std::size_t err = output.find(kErrorMarker);
  if (err != std::string_view::npos) {
    std::string text(Trim(output.substr(err + kErrorMarker.size())));
    std::replace(text.begin(), text.end(), '\r', ' ');
    std::replace(text.begin(), text.end(), '\n', ' ');
    fp.error = text + " (exit:" + std::to_string(exitCode) + ")";
    return fp;
  }
  fp.error =
      mark == std::string_view::npos ? "FINGERPRINT not found" : std::string(kEmptyFingerprint);
  return fp;
}

AudioFingerprint Search_CreateAudioHash(const std::string& path,
                                        const AudioFingerprintOptions& options) {
  AudioFingerprint fp;
  if (options.tool.empty()) {
    fp.error = "fpcalc not found";
    return fp;
  }
  ChildProcessOptions co;
  co.timeLimit = options.timeLimit;
  co.run = options.run;
  co.maxOutput = 4u << 20;
  const ChildProcessResult r = RunChildProcess(FingerprintCommand(path, options), co);
  if (!r.started) {
    fp.error = r.error;
    return fp;
  }
  if (r.stopped) {
    fp.error = "stopped";
    return fp;
  }
  if (r.timedOut) {
    fp.error =
        "fpcalc took longer than " +
        std::to_string(std::chrono::duration_cast<std::chrono::seconds>(co.timeLimit).count()) +
        " s";
    return fp;
  }
  if (r.signal != 0 && r.output.find(kFingerprintMarker) == std::string::npos) {
    fp.error = "fpcalc ended by signal " + std::to_string(r.signal);
    return fp;
  }
  return ParseFingerprintOutput(r.output, r.exitCode);
}

std::int64_t Search_CompareAudioHash(std::span<const std::uint32_t> first,
                                     std::span<const std::uint32_t> second,
                                     std::int32_t* compared) {
  const std::size_t n = std::min(first.size(), second.size());
  if (compared) *compared = static_cast<std::int32_t>(n);
  std::int64_t count = 0;
  for (std::size_t i = 0; i < n; ++i) {
    // Equal words count all 32 bits; differing words only the bits set in
    // both, so bits that are 0 in both count nothing there.
    count += first[i] == second[i] ? 32 : std::popcount(first[i] & second[i]);
  }
  return count;
}

int AudioMatchPercent(std::span<const std::uint32_t> first, std::span<const std::uint32_t> second) {
  std::int32_t m1 = 0;
  const std::int64_t count = Search_CompareAudioHash(first, second, &m1);
  if (m1 <= 0) return 0;
  return static_cast<int>(std::lround(static_cast<double>(count) * 100.0 / (m1 * 32.0)));
}

}  // namespace kelvor
