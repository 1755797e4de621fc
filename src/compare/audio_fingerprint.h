#pragma once
// Acoustic fingerprints of audio files, made by the outside tool fpcalc
// (Chromaprint), and their comparison.
//
// Search_CreateAudioHash is a pure function of the file and the options: it
// touches no shared state, so that fingerprints can be made on any thread and
// handed to the comparator later (SimilarAudioComparator::AcceptFingerprint).

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

struct RunState;

// The algorithms the tool offers in the list of the setup, by list index.
inline constexpr int kAudioAlgorithms[] = {2, 4, 5};
// The tool's algorithm number of a list index (out of range: the default).
int AudioAlgorithmOfIndex(int listIndex);

struct AudioFingerprintOptions {
  std::string tool;   // the fpcalc program (empty: not found)
  int algorithm = 5;  // the tool's algorithm number
  int seconds = 30;   // how much sound the tool reads
  std::chrono::milliseconds timeLimit{std::chrono::minutes(2)};
  const RunState* run = nullptr;  // a stop ends the tool
};

// The error text the tool gives for a file without (enough) sound.
inline constexpr std::string_view kEmptyFingerprint = "Empty fingerprint";

struct AudioFingerprint {
  std::vector<std::uint32_t> words;
  std::string error;  // empty: the fingerprint stands
  bool Ok() const { return error.empty(); }
  // The file has no usable sound (too short, or silent).
  bool NoSound() const { return error.find(kEmptyFingerprint) != std::string::npos; }
};

// The tool's command line for `path`: -raw -algorithm N -length S path.
std::vector<std::string> FingerprintCommand(const std::string& path,
                                            const AudioFingerprintOptions& options);

// Reads the tool's mixed output. A "FINGERPRINT=" line with words stands
// even when the tool also printed "ERROR:" lines (it does so when the sound
// ends before the length asked for, and then exits with 3). Otherwise the
// text behind "ERROR:" with " (exit:<code>)", or "FINGERPRINT not found". A
// fingerprint of one repeated word is silence and counts as empty.
AudioFingerprint ParseFingerprintOutput(std::string_view output, int exitCode);

// Runs the tool on `path` and reads its answer. Thread-safe.
AudioFingerprint Search_CreateAudioHash(const std::string& path,
                                        const AudioFingerprintOptions& options);

// Search_CompareAudioHash: over the words both fingerprints have (index 0 to
// m, m the smaller last index), 32 for each equal pair and else the number of
// bits set in both. *compared gets m + 1.
std::int64_t Search_CompareAudioHash(std::span<const std::uint32_t> first,
                                     std::span<const std::uint32_t> second,
                                     std::int32_t* compared = nullptr);

// The match in percent, rounded to a whole number: count x 100 / ((m+1) x 32).
// Empty fingerprints match 0.
int AudioMatchPercent(std::span<const std::uint32_t> first, std::span<const std::uint32_t> second);

}  // namespace kelvor
