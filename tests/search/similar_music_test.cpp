// Similar music on real audio files: the same tune in five formats forms one
// group, another tune stays out, and files that cannot be measured are
// reported in the log and never grouped.

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/options.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/audio_samples.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::Group;
using test::Groups;
using test::ReadUtf16File;
using test::TempDir;

class SimilarMusicTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const test::AudioSamples& s = test::SharedAudioSamples();
    if (!s.problem.empty()) GTEST_FAIL() << "test audio: " << s.problem;
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    test::OnlyCriteria(settings_, {kCritSimilarAudio});
  }

  // Copies sample `name` into the tree as `as` (default: its own name).
  void Put(const std::string& name, std::string as = {}) {
    fs::copy_file(test::SharedAudioSamples().dir / name, tree_ / (as.empty() ? name : as));
  }

  Groups Run() {
    SearchOptions o = Init_Variablen(settings_, texts_);
    o.FingerprintTool = tool_;
    o.Content.readAheadThreads = threads_;
    SourceFolderRow row;
    row.path = tree_.string();
    engine_ = std::make_unique<SearchEngine>(
        SearchContext{std::move(o), texts_, *logger_, progress_, prompt_, run_});
    EXPECT_TRUE(engine_->Search_Start({row}));
    return test::GroupsBelow(engine_->Result(), tree_);
  }

  // The cell `k` of the file row of `name`.
  CellValue CellOf(const std::string& name, CellKey k) {
    CellValue v;
    const ResultModel& r = engine_->Result();
    r.ForEachGroup([&](RowRef g) {
      r.ForEachFile(g, [&](RowRef f) {
        if (fs::path(r.File_GetPathFromNode(f)).filename() == name) v = r.Cell(f, k);
        return true;
      });
      return true;
    });
    return v;
  }

  std::string RunLog() const { return ReadUtf16File(data_ / "run.txt"); }

  TempDir tmp_;
  fs::path tree_, data_;
  std::string tool_ = "/usr/bin/fpcalc";
  unsigned threads_ = 0;  // workers running the tool ahead; 0: one per core
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  test::SilentProgress progress_;
  test::SilentPrompt prompt_;
  RunState run_;
  std::unique_ptr<SearchEngine> engine_;
};

TEST_F(SimilarMusicTest, OneTuneInFiveFormatsIsOneGroupAnotherTuneStaysOut) {
  for (const auto& f : test::AudioSamples::kTuneForms) Put(f);
  Put("other.wav");
  ASSERT_EQ(settings_.Get("DupVerz", "SimilarAudioMatchPercent"), "70");
  const Groups groups = Run();
  const Group tune(test::AudioSamples::kTuneForms.begin(), test::AudioSamples::kTuneForms.end());
  EXPECT_EQ(groups, Groups{tune});

  // The file the group was opened around shows 100 %, the others their
  // own match, at least the threshold.
  int hundreds = 0;
  for (const auto& f : test::AudioSamples::kTuneForms) {
    const double similar = CellAsDouble(CellOf(f, CellKey::similar));
    EXPECT_GE(similar, 70) << f;
    EXPECT_LE(similar, 100) << f;
    if (CellAsInt(CellOf(f, CellKey::IsRefFile)) == 1) {
      EXPECT_EQ(similar, 100) << f;
      ++hundreds;
    }
  }
  EXPECT_EQ(hundreds, 1);
  EXPECT_GE(engine_->Stats().ChecksumCount, 6);  // one fingerprint a file
  EXPECT_GT(engine_->Stats().CompareCount, 0);
}

TEST_F(SimilarMusicTest, TheThresholdDecides) {
  Put("tune.wav");
  Put("other.wav");
  // Unrelated tunes share about a fifth of their bits: a threshold below
  // that groups them, the default does not.
  settings_.Set("DupVerz", "SimilarAudioMatchPercent", "10");
  EXPECT_EQ(Run(), (Groups{{"tune.wav", "other.wav"}}));
  settings_.Set("DupVerz", "SimilarAudioMatchPercent", "70");
  EXPECT_EQ(Run(), Groups{});
}

TEST_F(SimilarMusicTest, OnlyTheSameExtensionWhenAsked) {
  Put("tune.wav");
  Put("tune.flac");
  Put("tune-128.mp3");
  Put("tune-320.mp3");
  settings_.SetBool("DupVerz", "SimilarAudioOnlySameFileType", true);
  EXPECT_EQ(Run(), (Groups{{"tune-128.mp3", "tune-320.mp3"}}));
}

TEST_F(SimilarMusicTest, FilesThatCannotBeMeasuredAreReportedAndNeverGrouped) {
  Put("tune.wav");
  Put("silence.wav");
  Put("silence.wav", "silence-copy.wav");
  Put("short.wav");
  Put("short.wav", "short-copy.wav");
  Put("broken.mp3");
  Put("broken.mp3", "broken-copy.mp3");
  EXPECT_EQ(Run(), Groups{});
  const std::string log = RunLog();
  for (const char* quiet : {"silence.wav", "silence-copy.wav", "short.wav", "short-copy.wav"}) {
    const std::string info = "INFO: Es konnte keine Prüfsumme von der Musikdatei '" +
                             (tree_ / quiet).string() +
                             "' erstellt werden. Entweder ist die Tonspur kürzer als 30 Sekunden "
                             "oder es ist kein Ton vorhanden.";
    EXPECT_NE(log.find(info), std::string::npos) << quiet << "\n" << log;
  }
  for (const char* broken : {"broken.mp3", "broken-copy.mp3"}) {
    const std::string head = "Beim Erstellen der Prüfsumme von Datei '" +
                             (tree_ / broken).string() + "' ist ein Fehler aufgetreten: ";
    const std::size_t at = log.find(head);
    ASSERT_NE(at, std::string::npos) << broken << "\n" << log;
    const std::string line = log.substr(at, log.find('\n', at) - at);
    EXPECT_NE(line.find("(exit:2)"), std::string::npos) << line;
    // Reported once.
    EXPECT_EQ(log.find(head, at + 1), std::string::npos) << log;
  }
}

TEST_F(SimilarMusicTest, AToolThatFailsIsReportedWithItsExitCode) {
  // The tool fails for the FLAC file only; the other files are measured.
  const fs::path fake =
      tmp_.Write("bin/fpcalc",
                 "#!/bin/sh\n"
                 "for a; do last=$a; done\n"
                 "case $last in *.flac) echo 'ERROR: decoder gave up'; exit 4;; esac\n"
                 "exec /usr/bin/fpcalc \"$@\"\n");
  ::chmod(fake.c_str(), 0755);
  tool_ = fake.string();
  Put("tune.wav");
  Put("tune.flac");
  Put("tune-320.mp3");
  EXPECT_EQ(Run(), (Groups{{"tune.wav", "tune-320.mp3"}}));
  const std::string log = RunLog();
  const std::string head = "Beim Erstellen der Prüfsumme von Datei '" +
                           (tree_ / "tune.flac").string() +
                           "' ist ein Fehler aufgetreten: decoder gave up (exit:4) (";
  const std::size_t at = log.find(head);
  ASSERT_NE(at, std::string::npos) << log;
  // (8) when it failed as the file being placed, (7) as an earlier file.
  const char place = log[at + head.size()];
  EXPECT_TRUE(place == '8' || place == '7') << log;
  EXPECT_EQ(log.find(head, at + 1), std::string::npos) << "reported once\n" << log;
}

TEST_F(SimilarMusicTest, AcrossSourceFoldersOnlyFilesOfDifferentFoldersMeet) {
  fs::create_directories(tree_ / "mine");
  fs::create_directories(tree_ / "theirs");
  const auto run = [&] {
    settings_.Set("DupVerz", "SourceFolderCompareMode", std::to_string(kSourceAcross));
    SearchOptions o = Init_Variablen(settings_, texts_);
    o.FingerprintTool = tool_;
    std::vector<SourceFolderRow> rows(2);
    rows[0].path = (tree_ / "mine").string();
    rows[1].path = (tree_ / "theirs").string();
    engine_ = std::make_unique<SearchEngine>(
        SearchContext{std::move(o), texts_, *logger_, progress_, prompt_, run_});
    EXPECT_TRUE(engine_->Search_Start(rows));
    return test::GroupsBelow(engine_->Result(), tree_);
  };
  // Both forms in "theirs" find the tune in "mine".
  Put("tune.wav", "mine/tune.wav");
  Put("other.wav", "mine/other.wav");
  Put("tune.flac", "theirs/tune.flac");
  Put("tune-320.mp3", "theirs/tune-320.mp3");
  EXPECT_EQ(run(), (Groups{{"mine/tune.wav", "theirs/tune.flac", "theirs/tune-320.mp3"}}));

  // Two forms in one folder never meet.
  fs::remove(tree_ / "theirs/tune.flac");
  fs::rename(tree_ / "theirs/tune-320.mp3", tree_ / "mine/tune-320.mp3");
  EXPECT_EQ(run(), Groups{});
}

TEST_F(SimilarMusicTest, OnlyAudioExtensionsTakePart) {
  Put("tune.wav");
  Put("tune.wav", "tune-copy.wav");
  Put("tune.wav", "tune.bin");
  EXPECT_EQ(Run(), (Groups{{"tune.wav", "tune-copy.wav"}}));
}

TEST_F(SimilarMusicTest, AudioPropertiesInTheRows) {
  Put("tune.wav");
  Put("tune-128.mp3");
  Put("tune.ogg");
  settings_.SetBool("DupVerz", "ShowAudioProperties", true);
  settings_.Set("DupVerz", "ShowAudioPropertiesExt", "wav, mp3");
  EXPECT_EQ(Run().size(), 1u);
  EXPECT_EQ(CellAsInt(CellOf("tune.wav", CellKey::AudioDurationVal)), 30);
  EXPECT_EQ(CellAsText(CellOf("tune.wav", CellKey::AudioDuration)), "0:30");
  EXPECT_EQ(CellAsDouble(CellOf("tune.wav", CellKey::AudioSamplingrate)), 44100);
  EXPECT_EQ(CellAsDouble(CellOf("tune.wav", CellKey::AudioBitrate)), 705600);
  EXPECT_EQ(CellAsDouble(CellOf("tune-128.mp3", CellKey::AudioBitrate)), 128000);
  // Not on the list: no properties.
  EXPECT_TRUE(std::holds_alternative<std::monostate>(CellOf("tune.ogg", CellKey::AudioBitrate)));
}

// What a user sees of one search: groups, each grouped file's match and
// reference mark, the counters and the run log's lines about fingerprints,
// in their order.
struct MusicOutcome {
  Groups groups;
  std::map<std::string, std::pair<double, int>> cells;
  std::int64_t compares = 0;
  std::int32_t fingerprints = 0;
  std::vector<std::string> lines;
  bool operator==(const MusicOutcome&) const = default;
};

// The lines of `log` about fingerprints, without their time stamps.
std::vector<std::string> FingerprintLines(const std::string& log) {
  std::vector<std::string> out;
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);) {
    if (line.find("Prüfsumme") == std::string::npos) continue;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    out.push_back(line.substr(std::min(line.size(), line.find(" - ") + 3)));
  }
  return out;
}

TEST_F(SimilarMusicTest, OneWorkerOrFourGiveTheSameSearch) {
  test::HangGuard guard(std::chrono::seconds(300), "music read ahead");
  // Two folders, each with forms of the tune, another tune and files that
  // cannot be measured, so that fingerprints made ahead in one folder meet
  // files of the other.
  fs::create_directories(tree_ / "a");
  fs::create_directories(tree_ / "b");
  Put("tune.wav", "a/tune.wav");
  Put("tune-128.mp3", "a/tune-128.mp3");
  Put("other.wav", "a/other.wav");
  Put("broken.mp3", "a/broken.mp3");
  Put("silence.wav", "a/silence.wav");
  Put("tune.flac", "b/tune.flac");
  Put("tune-320.mp3", "b/tune-320.mp3");
  Put("tune.ogg", "b/tune.ogg");
  Put("other.wav", "b/other-copy.wav");
  Put("short.wav", "b/short.wav");
  Put("broken.mp3", "b/broken-copy.mp3");
  const auto search = [&](unsigned threads) {
    threads_ = threads;
    const std::string before = RunLog();
    MusicOutcome o;
    o.groups = Run();
    for (const Group& g : o.groups)
      for (const std::string& f : g)
        o.cells[f] = {CellAsDouble(CellOf(fs::path(f).filename(), CellKey::similar)),
                      CellAsInt(CellOf(fs::path(f).filename(), CellKey::IsRefFile))};
    o.compares = engine_->Stats().CompareCount;
    o.fingerprints = engine_->Stats().ChecksumCount;
    const std::string after = RunLog();
    o.lines = FingerprintLines(after.rfind(before, 0) == 0 ? after.substr(before.size()) : after);
    return o;
  };
  const MusicOutcome one = search(1);
  EXPECT_EQ(one.groups,
            (Groups{{"a/tune.wav", "a/tune-128.mp3", "b/tune.flac", "b/tune-320.mp3", "b/tune.ogg"},
                    {"a/other.wav", "b/other-copy.wav"}}));
  EXPECT_EQ(one.fingerprints, 7);
  // broken twice, silence and short once each, and the count of the summary.
  EXPECT_EQ(one.lines.size(), 5u) << [&] {
    std::string all;
    for (const std::string& l : one.lines) all += l + "\n";
    return all;
  }();
  for (unsigned threads : {4u, 1u, 4u}) {
    SCOPED_TRACE(threads);
    const MusicOutcome again = search(threads);
    EXPECT_EQ(again.groups, one.groups);
    EXPECT_EQ(again.cells, one.cells);
    EXPECT_EQ(again.compares, one.compares);
    EXPECT_EQ(again.fingerprints, one.fingerprints);
    EXPECT_EQ(again.lines, one.lines);
  }
}

TEST_F(SimilarMusicTest, WorkersRunSeveralToolsAtOnce) {
  test::HangGuard guard(std::chrono::seconds(300), "tools at once");
  // Each run of the tool notes how many runs were under way while it lasted.
  const fs::path running = tmp_.Mkdir("running");
  const fs::path seen = tmp_ / "seen.txt";
  const fs::path fake = tmp_.Write("bin/fpcalc",
                                   "#!/bin/sh\n"
                                   "touch '" +
                                       running.string() +
                                       "'/$$\n"
                                       "sleep 0.5\n"
                                       "ls '" +
                                       running.string() + "' | wc -l >> '" + seen.string() +
                                       "'\n"
                                       "/usr/bin/fpcalc \"$@\"; code=$?\n"
                                       "rm -f '" +
                                       running.string() +
                                       "'/$$\n"
                                       "exit $code\n");
  ::chmod(fake.c_str(), 0755);
  tool_ = fake.string();
  for (int i = 0; i < 8; ++i) Put("tune.wav", "t" + std::to_string(i) + ".wav");
  threads_ = 4;
  Group all;
  for (int i = 0; i < 8; ++i) all.insert("t" + std::to_string(i) + ".wav");
  EXPECT_EQ(Run(), Groups{all});
  EXPECT_EQ(engine_->Stats().ChecksumCount, 8);
  std::ifstream in(seen);
  int most = 0;
  for (int n; in >> n;) most = std::max(most, n);
  EXPECT_GE(most, 2) << "the tool never ran twice at once";
}

TEST_F(SimilarMusicTest, AStopWhileToolsRunAheadEndsTheSearchQuietly) {
  // Without a working stop the tools' time limits would hold the search for
  // minutes; the guard ends the test long before.
  test::HangGuard guard(std::chrono::seconds(90), "stop during read ahead");
  // A tool that never answers in time: only the stop ends it.
  const fs::path started = tmp_.Mkdir("started");
  const fs::path fake =
      tmp_.Write("bin/fpcalc", "#!/bin/sh\ntouch '" + started.string() + "'/$$\nexec sleep 60\n");
  ::chmod(fake.c_str(), 0755);
  tool_ = fake.string();
  for (int i = 0; i < 6; ++i) Put("tune.wav", "t" + std::to_string(i) + ".wav");
  threads_ = 4;
  std::atomic<bool> done{false};
  std::thread stopper([&] {
    while (!done && fs::is_empty(started))
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    run_.RequestStop(kStopUser);
  });
  const Groups groups = Run();
  done = true;
  stopper.join();
  EXPECT_EQ(groups, Groups{});
  // Fingerprints cut short are no failure of the files.
  EXPECT_EQ(FingerprintLines(RunLog()), std::vector<std::string>{}) << RunLog();
  EXPECT_EQ(engine_->Stats().ChecksumCount, 0);
}

TEST(SimilarMusicOptions, StoredValuesAreMended) {
  SettingsStore s;
  TextCatalog texts;
  const auto read = [&](const char* match, const char* seconds) {
    s.Set("DupVerz", "SimilarAudioMatchPercent", match);
    s.Set("DupVerz", "SimilarAudioSeconds", seconds);
    const SearchOptions o = Init_Variablen(s, texts);
    return std::pair{o.AudioMatch, o.AudioSeconds};
  };
  EXPECT_EQ(read("70", "30"), (std::pair{70, 30}));
  EXPECT_EQ(read("viel", "lang"), (std::pair{85, 30}));
  EXPECT_EQ(read("150", "0"), (std::pair{100, 30}));
  EXPECT_EQ(read("0", "45"), (std::pair{100, 45}));
}

}  // namespace
}  // namespace kelvor
