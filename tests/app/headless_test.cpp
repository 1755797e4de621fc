// The real kelvor binary run headless in a temporary data folder: exit
// codes, messages, the data folder it makes, its logs and its output.

#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "headless/headless.h"
#include "support/audio_samples.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::ReadUtf16File;
using test::TempDir;

struct Outcome {
  int code = -1;
  std::string out, err;
};

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

class HeadlessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* bin = std::getenv("KELVOR_BIN");
    if (!bin || !*bin) GTEST_SKIP() << "KELVOR_BIN is not set";
    bin_ = bin;
    data_ = tmp_.path() / "kdata";
    tree_ = tmp_.Mkdir("tree");
  }

  // Runs kelvor with the data folder in the temp folder, then `args`. A run
  // that hangs is ended after a generous time (exit code 124).
  Outcome Kelvor(const std::vector<std::string>& args, bool withData = true) {
    std::string cmd = "timeout -k 5 60 " + envPrefix_ + Quote(bin_);
    if (withData) cmd += " --data-dir " + Quote(data_.string());
    for (const auto& a : args) cmd += " " + Quote(a);
    const fs::path out = tmp_.path() / "stdout.txt", err = tmp_.path() / "stderr.txt";
    cmd += " >" + Quote(out.string()) + " 2>" + Quote(err.string()) + " </dev/null";
    int status = std::system(cmd.c_str());
    Outcome o;
    o.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    o.out = ReadBytes(out);
    o.err = ReadBytes(err);
    return o;
  }

  // Runs kelvor (with the data folder) as on a full disk: every write to a
  // file fails with EFBIG (file size limit 0, SIGXFSZ ignored). Standard
  // output and error are pipes, so the printed result still arrives.
  Outcome KelvorOnFullDisk(const std::vector<std::string>& args) {
    std::vector<std::string> all{bin_, "--data-dir", data_.string()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    int outPipe[2], errPipe[2];
    if (::pipe(outPipe) != 0 || ::pipe(errPipe) != 0) return {};
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(outPipe[1], 1);
      ::dup2(errPipe[1], 2);
      ::close(outPipe[0]);
      ::close(errPipe[0]);
      ::close(outPipe[1]);
      ::close(errPipe[1]);
      ::signal(SIGXFSZ, SIG_IGN);
      struct rlimit limit {
        0, 0
      };
      ::setrlimit(RLIMIT_FSIZE, &limit);
      ::alarm(120);  // a hang ends the run
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    Outcome o;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* into[2] = {&o.out, &o.err};
    int open = 2;
    while (open > 0 && ::poll(fds, 2, -1) >= 0) {
      for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || fds[i].revents == 0) continue;
        char buf[4096];
        const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
        if (n > 0) {
          into[i]->append(buf, static_cast<std::size_t>(n));
        } else {
          ::close(fds[i].fd);
          fds[i].fd = -1;
          --open;
        }
      }
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    o.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return o;
  }

  TempDir tmp_;
  std::string bin_;
  std::string envPrefix_;  // put before the program, e.g. "env PATH=... "
  fs::path data_, tree_;
};

TEST_F(HeadlessTest, SearchMakesDataFolderLogsAndGroups) {
  tmp_.Write("tree/a/x.txt", "12345");
  tmp_.Write("tree/b/y.txt", "abcde");
  tmp_.Write("tree/c/z.txt", "1234567");
  Outcome o = Kelvor({"--headless", "-s2", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;

  for (const char* sub : {"log", "data", "update", "temp", "profile", "export"})
    EXPECT_TRUE(fs::is_directory(data_ / sub)) << sub;
  const std::string ini = ReadBytes(data_ / "config4.ini");
  ASSERT_GE(ini.size(), 2u);
  EXPECT_EQ(static_cast<unsigned char>(ini[0]), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(ini[1]), 0xFE);
  EXPECT_TRUE(fs::exists(data_ / "log/Kelvor4.txt"));

  const std::string log = ReadUtf16File(data_ / "log/lastsearch.txt");
  for (const std::string& line :
       {std::string("Suchmethode: Finde Duplikate anhand der gleichen Dateigröße"),
        "1.Quellordner: " + tree_.string(), std::string("Dateianzahl: 3"),
        std::string("Überprüfte Dateien: 3"), std::string("Duplikate: 2"),
        std::string("Gruppen: 1"), std::string("Dateivergleiche: "), std::string("Zeitaufwand: ")})
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n---\n" << log;

  // One group: its title line, then the full paths.
  const std::string a = (tree_ / "a/x.txt").string(), b = (tree_ / "b/y.txt").string();
  EXPECT_TRUE(o.out == "5\n" + a + "\n" + b + "\n" || o.out == "5\n" + b + "\n" + a + "\n")
      << o.out;
  EXPECT_EQ(o.out.find("z.txt"), std::string::npos);
  EXPECT_NE(o.err.find("Duplikate: 2"), std::string::npos) << o.err;
}

// The run speaks the language of the locale: English from its file, German
// built in, and English for a language that has no file of its own.
TEST_F(HeadlessTest, RunLogSpeaksTheLanguageOfTheLocale) {
  tmp_.Write("tree/a/x.txt", "12345");
  tmp_.Write("tree/b/y.txt", "abcde");
  for (const auto& [locale, want] :
       std::vector<std::pair<std::string, std::string>>{{"en_GB.UTF-8", "Time taken: "},
                                                        {"de_AT.UTF-8", "Zeitaufwand: "},
                                                        {"fr_FR.UTF-8", "Time taken: "}}) {
    SCOPED_TRACE(locale);
    envPrefix_ = "env LC_ALL=" + locale + " ";
    fs::remove_all(data_);
    Outcome o = Kelvor({"--headless", "-s2", tree_.string()});
    ASSERT_EQ(o.code, 0) << o.err;
    const std::string log = ReadUtf16File(data_ / "log/lastsearch.txt");
    EXPECT_NE(log.find(want), std::string::npos) << log;
  }
}

TEST_F(HeadlessTest, SimilarPicturesFromTheCommandLine) {
  const std::string cmd = "cd '" + tree_.string() +
                          "' && convert -size 200x150 -seed 5 plasma:fractal a.jpg && convert "
                          "a.jpg -resize 50% -quality 60 a_half.jpg && convert -size 200x150 "
                          "-seed 6 plasma:fractal b.jpg && echo text > c.txt";
  ASSERT_EQ(std::system(cmd.c_str()), 0) << "convert (package imagemagick)";
  // pHash at 91 %; the text file is not a picture and is not looked at.
  Outcome o = Kelvor({"--headless", "-s8", "-h2", "-m91", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  const std::string a = (tree_ / "a.jpg").string(), half = (tree_ / "a_half.jpg").string();
  EXPECT_NE(o.out.find(a + "\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find(half + "\n"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find("b.jpg"), std::string::npos) << o.out;
  const std::string log = ReadUtf16File(data_ / "log/lastsearch.txt");
  EXPECT_NE(log.find("Finde ähnliche Bilder - Algorithmus 3 (91%) (16x16)"), std::string::npos)
      << log;
}

TEST_F(HeadlessTest, RejectedSetupsExitWithTheirMessage) {
  tmp_.Mkdir("tree/sub");
  const std::string tree = tree_.string(), sub = (tree_ / "sub").string();
  const std::string gone = (tmp_.path() / "gone").string();
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  for (const Case& c : std::vector<Case>{
           {{"--headless", tree}, "Es ist kein Suchkriterium ausgewählt."},
           {{"--headless", "-s2"}, "Es ist kein Quellordner ausgewählt!"},
           {{"--headless", "-s2", gone}, "Es ist kein Quellordner ausgewählt!"},
           {{"--headless", "-s2", tree, sub},
            "Der Suchvorgang kann nicht durchgeführt werden:\r\n\r\n'" + tree + "' und '" + sub +
                "' überschneiden sich."},
       }) {
    // A fresh data folder each time, so no earlier run's settings count.
    fs::remove_all(data_);
    Outcome o = Kelvor(c.args);
    EXPECT_EQ(o.code, kExitRejected) << c.message;
    EXPECT_NE(o.err.find(c.message), std::string::npos) << o.err;
    EXPECT_EQ(o.out, "");
  }
}

// Writes a settings file (UTF-8 is read as well) with exactly `on` as the
// criteria and `folders` as the source list.
void WriteSetup(const fs::path& file, std::initializer_list<int> on,
                const std::vector<std::string>& folders) {
  std::string text = "[DupVerz]\n";
  for (int i = 0; i < 10; ++i) {
    bool set = false;
    for (int o : on) set = set || o == i;
    text += "Suchkriterien" + std::to_string(i) + "=" + (set ? "1" : "0") + "\n";
  }
  text += "[Ordnerlist]\n";
  for (std::size_t i = 0; i < folders.size(); ++i) {
    const std::string n = std::to_string(i + 1);
    text += "V" + n + "=" + folders[i] + "\nA" + n + "=1\nU" + n + "=1\nP" + n + "=0\n";
  }
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

TEST_F(HeadlessTest, MissingFoldersAndProfiles) {
  tmp_.Write("tree/mine/p.txt", "same");
  tmp_.Write("tree/mine/q.txt", "same");
  tmp_.Write("tree/theirs/x.txt", "12345");
  tmp_.Write("tree/theirs/y.txt", "abcde");
  const std::string mine = (tree_ / "mine").string(), theirs = (tree_ / "theirs").string();
  const std::string gone = (tmp_.path() / "gone").string();

  // A missing folder beside an existing one: the existing one is searched.
  Outcome o = Kelvor({"--headless", "-s2", gone, mine});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find(mine + "/p.txt"), std::string::npos) << o.out;
  EXPECT_EQ(o.err.find("gone"), std::string::npos) << o.err;

  // A profile with folders: loaded after the command line's folders, it
  // brings its own folders and criteria.
  WriteSetup(data_ / "profile/Mit.pro4", {2}, {theirs});
  o = Kelvor({"--headless", "-s0", mine, "-p:Mit"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find(theirs + "/x.txt"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find(mine), std::string::npos) << o.out;

  // A profile without folders keeps the command line's.
  WriteSetup(data_ / "profile/Ohne.pro4", {2}, {});
  o = Kelvor({"--headless", "-p:Ohne", mine});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find(mine + "/p.txt"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find(theirs), std::string::npos) << o.out;

  // Similar music runs where fpcalc is found, and is refused where not.
  fs::remove_all(data_);
  WriteSetup(data_ / "config4.ini", {9}, {mine});
  o = Kelvor({"--headless", mine});
  EXPECT_EQ(o.code, 0) << o.err;
  envPrefix_ = "env PATH=" + Quote(tmp_.Mkdir("empty-path").string()) + " ";
  o = Kelvor({"--headless", mine});
  envPrefix_.clear();
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("Die Suche nach ähnlicher Musik braucht das Programm 'fpcalc'"),
            std::string::npos)
      << o.err;
  EXPECT_EQ(o.out, "");
}

TEST_F(HeadlessTest, JsonCarriesTheMatchAndTheAudioProperties) {
  const test::AudioSamples& a = test::SharedAudioSamples();
  ASSERT_EQ(a.problem, "");
  fs::copy_file(a.dir / "tune.wav", tree_ / "tune.wav");
  fs::copy_file(a.dir / "tune-128.mp3", tree_ / "tune-128.mp3");
  fs::create_directories(data_);
  std::ofstream(data_ / "config4.ini", std::ios::binary)
      << "[DupVerz]\nShowAudioProperties=1\nShowAudioPropertiesExt=mp3,wav\n";
  const Outcome o = Kelvor({"--headless", "--json", "-sa", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  const nlohmann::json doc = nlohmann::json::parse(o.out);
  ASSERT_EQ(doc["groups"].size(), 1u) << o.out;
  const auto& files = doc["groups"][0]["files"];
  ASSERT_EQ(files.size(), 2u) << o.out;
  for (const auto& f : files) {
    const bool mp3 = f["path"].get<std::string>().ends_with(".mp3");
    EXPECT_EQ(f["AudioDurationVal"], 30) << f;
    EXPECT_EQ(f["AudioDuration"], "0:30") << f;
    EXPECT_EQ(f["AudioSamplingrate"], 44100) << f;
    EXPECT_EQ(f["AudioBitrate"], mp3 ? 128000 : 705600) << f;
    EXPECT_GE(f["similar"].get<double>(), 70) << f;
    EXPECT_FALSE(f.contains("picW")) << f;
  }
}

TEST_F(HeadlessTest, JsonHelpAndUnknownOptions) {
  tmp_.Write("tree/one.txt", "same");
  tmp_.Write("tree/sub/one.txt", "same");
  tmp_.Write("tree/two.txt", "other");
  Outcome o = Kelvor({"--headless", "--json", "-s3", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  nlohmann::json doc = nlohmann::json::parse(o.out);
  ASSERT_EQ(doc["groups"].size(), 1u);
  const auto& files = doc["groups"][0]["files"];
  ASSERT_EQ(files.size(), 2u);
  std::set<std::string> paths{files[0]["path"].get<std::string>(),
                              files[1]["path"].get<std::string>()};
  EXPECT_EQ(paths, (std::set<std::string>{(tree_ / "one.txt").string(),
                                          (tree_ / "sub/one.txt").string()}));
  EXPECT_EQ(files[0]["size"], 4);
  const auto& st = doc["statistics"];
  EXPECT_EQ(st["files_total"], 3);
  EXPECT_EQ(st["files_checked"], 3);
  EXPECT_EQ(st["groups"], 1);
  EXPECT_EQ(st["duplicates"], 2);
  EXPECT_EQ(st["duplicate_bytes"], 8);

  o = Kelvor({"--headless", "--frobnicate", "-s2", tree_.string()});
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("--frobnicate"), std::string::npos) << o.err;
  o = Kelvor({"--headless", "-q", "-s2", tree_.string()});
  EXPECT_EQ(o.code, kExitRejected);
  EXPECT_NE(o.err.find("-q"), std::string::npos) << o.err;

  o = Kelvor({"--help"}, false);
  EXPECT_EQ(o.code, 0);
  EXPECT_NE(o.out.find("--headless"), std::string::npos);
  EXPECT_NE(o.out.find("--data-dir"), std::string::npos);
  EXPECT_EQ(o.out, HelpText());
}

int Count(const std::string& text, const std::string& what) {
  int n = 0;
  for (auto p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
  return n;
}

std::set<std::string> FilesIn(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& e : fs::directory_iterator(folder)) names.insert(e.path().filename().string());
  return names;
}

TEST_F(HeadlessTest, FullDataDiskLeavesNoFilesBehindAndSaysSoOnce) {
  tmp_.Write("tree/a.txt", "same");
  tmp_.Write("tree/b.txt", "same");
  Outcome first = Kelvor({"--headless", "-s3", tree_.string()});
  ASSERT_EQ(first.code, 0) << first.err;
  ASSERT_NE(ReadUtf16File(data_ / "log/lastsearch.txt").find("Dateianzahl: 2"), std::string::npos);
  const std::set<std::string> tempBefore = FilesIn(data_ / "temp");

  tmp_.Write("tree/c.txt", "same");
  Outcome o = KelvorOnFullDisk({"--headless", "-s3", tree_.string()});
  EXPECT_EQ(o.code, 0) << o.err;
  // The result is still printed.
  EXPECT_EQ(Count(o.out, "\n"), 4) << o.out;
  EXPECT_NE(o.out.find((tree_ / "c.txt").string()), std::string::npos) << o.out;
  // No empty run logs are left in temp, and no half-written files anywhere.
  EXPECT_EQ(FilesIn(data_ / "temp"), tempBefore);
  for (const auto& e : fs::recursive_directory_iterator(data_))
    EXPECT_EQ(e.path().string().find(".tmp"), std::string::npos) << e.path();
  // Said once: the run's log cannot be written.
  EXPECT_EQ(Count(o.err, "Das Protokoll dieses Laufs kann nicht in die Datei '"), 1) << o.err;
  EXPECT_EQ(Count(o.err, "File too large"), 1) << o.err;
  // lastsearch.txt no longer claims to be the log of this search.
  const fs::path last = data_ / "log/lastsearch.txt";
  EXPECT_FALSE(fs::exists(last));
  EXPECT_EQ(Count(o.err, last.string()), 1) << o.err;
}

TEST_F(HeadlessTest, DamagedSettingsFileIsReportedAndKept) {
  tmp_.Write("tree/a.txt", "12345");
  std::string junk;
  for (int i = 0; i < 300; ++i) junk.push_back(static_cast<char>((i * 37) % 256));
  std::string odd = "\xFF\xFE";
  for (char c : std::string("[DupVerz]\r\nLogDelDays=\"3\"\r\n")) {
    odd.push_back(c);
    odd.push_back('\0');
  }
  odd.pop_back();
  struct Case {
    std::string name, bytes, message;
  };
  for (const Case& c : std::vector<Case>{
           {"binary", junk, "' ist beschädigt und wird nicht verwendet"},
           {"odd byte count", odd, "' enthält 1 ungültige Zeile(n)"},
           {"bad lines", "[DupVerz]\nno key\n=\nLogDel=0\n", "' enthält 2 ungültige Zeile(n)"},
       }) {
    fs::remove_all(data_);
    const fs::path ini = data_ / "config4.ini";
    tmp_.Write("kdata/config4.ini", c.bytes);
    Outcome o = Kelvor({"--headless", "-s2", tree_.string()});
    EXPECT_EQ(o.code, 0) << c.name << o.err;
    EXPECT_EQ(Count(o.err, "Die Einstellungsdatei '" + ini.string() + c.message), 1)
        << c.name << "\n"
        << o.err;
    if (c.name != "bad lines") {  // a file without its mark gets one, its text unchanged
      EXPECT_EQ(ReadBytes(ini), c.bytes) << c.name;
    }
  }

  // A FIFO in its place: the start neither waits nor replaces it.
  fs::remove_all(data_);
  fs::create_directories(data_);
  const fs::path ini = data_ / "config4.ini";
  ASSERT_EQ(::mkfifo(ini.c_str(), 0644), 0);
  Outcome o = Kelvor({"--headless", "-s2", tree_.string()});
  EXPECT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(Count(o.err, "Die Einstellungsdatei '" + ini.string() +
                             "' konnte nicht gelesen werden. (keine reguläre Datei)"),
            1)
      << o.err;
  struct stat st {};
  ASSERT_EQ(::lstat(ini.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

// The shell's reading of one printed line: $'...' is unquoted by bash itself.
std::string ShellWord(const fs::path& work, const std::string& line) {
  if (line.rfind("$'", 0) != 0) return line;
  const fs::path in = work / "line.txt", out = work / "word.bin";
  {
    std::FILE* f = std::fopen(in.c_str(), "wb");
    std::fwrite(line.data(), 1, line.size(), f);
    std::fclose(f);
  }
  const std::string cmd = "bash -c 'IFS= read -r l < \"$1\"; eval \"w=$l\"; printf %s \"$w\"' _ " +
                          Quote(in.string()) + " > " + Quote(out.string());
  if (std::system(cmd.c_str()) != 0) return "<bash failed>";
  return ReadBytes(out);
}

std::string Base64Decode(const std::string& text) {
  static const std::string kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned bits = 0;
  int count = 0;
  for (char c : text) {
    if (c == '=') break;
    const auto v = kDigits.find(c);
    if (v == std::string::npos) return "<not base64>";
    bits = (bits << 6) | static_cast<unsigned>(v);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out.push_back(static_cast<char>((bits >> count) & 0xFF));
    }
  }
  return out;
}

TEST_F(HeadlessTest, QuotedLinesAreReadBackByTheShellAsTheExactName) {
  // Plain names stay as they are, whatever else they hold.
  for (const char* plain : {"/a b/c'd\\e\"f.txt", "/ü/日本/$x", "/x/$'y"})
    EXPECT_EQ(QuoteForLine(plain), std::string(plain));
  // Names that need it are quoted; bash reads them back byte for byte.
  for (const std::string& name :
       {std::string("/a\nb"), std::string("/tab\there \\ 'q'"),
        std::string("/c\xFF\xFE"
                    "d"),
        std::string("/c1\xC2\x85 ok \xC2\xA0"), std::string("/del\x7F\x01\x1B[31m"),
        std::string("$'x\\n'"), std::string("/cut \xE2\x82"), std::string("/cr\r")}) {
    const std::string line = QuoteForLine(name);
    EXPECT_EQ(line.rfind("$'", 0), 0u) << line;
    EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    EXPECT_EQ(ShellWord(tmp_.path(), line), name) << line;
  }
}

TEST_F(HeadlessTest, NamesWithLineBreaksOrInvalidUtf8CanBeReadBackExactly) {
  const std::string newline = (tree_ / "two\nlines.txt").string();
  const std::string invalid = (tree_ / "bad\xFF\xFEname 'q'.txt").string();
  const std::string plain = (tree_ / "plain name.txt").string();
  for (const auto& p : {newline, invalid, plain}) {
    std::FILE* f = std::fopen(p.c_str(), "wb");
    ASSERT_NE(f, nullptr) << p;
    std::fputs("same", f);
    std::fclose(f);
  }
  const std::set<std::string> expected{newline, invalid, plain};

  // Plain output: names that need it are quoted as the shell would read them.
  Outcome o = Kelvor({"--headless", "-s3", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  std::vector<std::string> lines;
  for (std::size_t pos = 0; pos < o.out.size();) {
    const std::size_t end = o.out.find('\n', pos);
    lines.push_back(o.out.substr(pos, end - pos));
    pos = end + 1;
  }
  ASSERT_EQ(lines.size(), 4u) << o.out;
  EXPECT_EQ(lines[0], "4");
  std::set<std::string> read;
  for (std::size_t i = 1; i < lines.size(); ++i) read.insert(ShellWord(tmp_.path(), lines[i]));
  EXPECT_EQ(read, expected) << o.out;
  EXPECT_NE(o.out.find("\n" + plain + "\n"), std::string::npos);  // plain names stay plain

  // --null: raw bytes, each path ended by NUL, groups apart by one more NUL.
  tmp_.Write("tree/x1", "other");
  tmp_.Write("tree/x2", "other");
  o = Kelvor({"--headless", "--null", "-s3", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  std::vector<std::set<std::string>> groups(1);
  std::size_t pos = 0;
  while (pos < o.out.size()) {
    const std::size_t end = o.out.find('\0', pos);
    ASSERT_NE(end, std::string::npos) << "unterminated: " << o.out.substr(pos);
    if (end == pos) {
      groups.emplace_back();
    } else {
      groups.back().insert(o.out.substr(pos, end - pos));
    }
    pos = end + 1;
  }
  const std::set<std::string> others{(tree_ / "x1").string(), (tree_ / "x2").string()};
  ASSERT_EQ(groups.size(), 2u) << o.out;
  EXPECT_TRUE((groups[0] == expected && groups[1] == others) ||
              (groups[1] == expected && groups[0] == others))
      << o.out;

  // JSON: the display text, and the bytes where the display text is not them.
  o = Kelvor({"--headless", "--json", "-s3", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  nlohmann::json doc = nlohmann::json::parse(o.out);
  std::set<std::string> decoded;
  for (const auto& g : doc["groups"]) {
    for (const auto& f : g["files"]) {
      const std::string path = f["path"].get<std::string>();
      if (f.contains("path_b64")) {
        decoded.insert(Base64Decode(f["path_b64"].get<std::string>()));
        EXPECT_NE(path.find("\xEF\xBF\xBD"), std::string::npos) << path;  // shown with U+FFFD
      } else {
        decoded.insert(path);
      }
    }
  }
  std::set<std::string> all = expected;
  all.insert(others.begin(), others.end());
  EXPECT_EQ(decoded, all);

  o = Kelvor({"--help"}, false);
  EXPECT_NE(o.out.find("--null"), std::string::npos);
}

// A content search with archives on: a file and its copy inside a zip are one
// group, and the JSON names the member's archive and its path inside; the
// data folder keeps no extract of a member without duplicates.
TEST_F(HeadlessTest, JsonNamesArchiveMembers) {
  if (::access("/usr/bin/zip", X_OK) != 0) GTEST_SKIP() << "zip is needed";
  tmp_.Write("tree/song.mp3", std::string(3000, 's'));
  tmp_.Write("pack/music/song.mp3", std::string(3000, 's'));
  tmp_.Write("pack/music/solo.mp3", std::string(3000, 'o'));
  const std::string zip = "cd '" + (tmp_.path() / "pack").string() + "' && zip -qr '" +
                          (tree_ / "box.zip").string() + "' . >/dev/null 2>&1";
  ASSERT_EQ(std::system(zip.c_str()), 0);
  tmp_.Write("kdata/config4.ini",
             "[DupVerz]\nScanArchives=1\nScanArchive=1111111111111111\nContentCompare=2\n");
  Outcome o = Kelvor({"--headless", "--json", "-s3", tree_.string()});
  ASSERT_EQ(o.code, 0) << o.err;
  nlohmann::json doc = nlohmann::json::parse(o.out);
  ASSERT_EQ(doc["groups"].size(), 1u) << o.out;
  std::set<std::string> members;
  for (const auto& f : doc["groups"][0]["files"])
    if (f.contains("archive"))
      members.insert(f["archive"].get<std::string>() + " | " + f["inner_path"].get<std::string>());
  EXPECT_EQ(members, (std::set<std::string>{(tree_ / "box.zip").string() + " | music/song.mp3"}));
  std::error_code ec;
  for (fs::recursive_directory_iterator it(data_ / "temp", ec), end; !ec && it != end;
       it.increment(ec))
    EXPECT_EQ(it->path().filename().string().find("solo"), std::string::npos) << it->path();
}

}  // namespace
}  // namespace kelvor
