// Content searches with the tag and Exif rules on, checked against a plain
// model of the cascade: every file, in walk order, is compared with the
// representatives of its compare size one after another, each file's
// checksum made once with the cut rule of the comparison that first needs it.
// The engine's shortcuts (the checksum index, read-ahead) must give the same
// groups as this walk.

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compare/audio_tags.h"
#include "compare/content.h"
#include "compare/exif.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

using test::Group;
using test::Groups;

enum class Rule { Mp3, Exif, Flac };

const char* RuleKey(Rule r) {
  switch (r) {
    case Rule::Mp3:
      return "IgnoreMP3Tags";
    case Rule::Exif:
      return "IgnoreExif";
    case Rule::Flac:
      return "IgnoreFlacMetadata";
  }
  return "";
}

// ---------------------------------------------------------------------------
// The model.

struct ModelFile {
  std::string rel;   // below the tree, for the result
  std::string path;  // full path
  std::string ext;   // lower case
  std::int64_t size = 0;
  std::int32_t mp3Start = 0, mp3End = 0, exifStart = 0, exifEnd = 0;
  bool hashed = false, failed = false;
  std::string hash;
  int group = -1;
};

bool IsJpegExt(const std::string& e) {
  return e == "jpeg" || e == "jpg" || e == "cr2";
}

class CascadeModel {
 public:
  CascadeModel(std::set<Rule> rules, int mode) : rules_(std::move(rules)), mode_(mode) {}

  void Add(ModelFile f) {
    if (f.size == 0) return;  // empty files never take part in a content search
    const bool isMP3 = rules_.count(Rule::Mp3) && f.ext == "mp3";
    const bool isJPG = rules_.count(Rule::Exif) && IsJpegExt(f.ext);
    const bool isFLAC = rules_.count(Rule::Flac) && f.ext == "flac";
    std::int64_t sizeKey = f.size;
    std::string msg;
    std::int32_t a = 0, b = 0;
    if (isMP3) {
      if (Search_CheckForMP3IDTag(a, b, f.path, texts_, &msg)) {
        f.mp3Start = a;
        f.mp3End = b;
        sizeKey -= a + b;
      }
    } else if (isJPG) {
      bool ok = f.ext == "cr2" ? Search_GetExifDatablockSize_CR2(f.path, a, b, texts_, &msg)
                               : Search_GetExifDatablockSize(f.path, a, b, texts_, &msg);
      if (ok) {
        f.exifStart = a;
        f.exifEnd = b;
        sizeKey -= a + b;
      }
    } else if (isFLAC) {
      if (Search_CheckForFlacTag(a, f.size, f.path, texts_, &msg)) sizeKey -= a;
    }
    sizeKey = std::max<std::int64_t>(sizeKey, 0);

    files_.push_back(std::move(f));
    const std::size_t me = files_.size() - 1;
    std::vector<std::size_t>& reps = reps_[sizeKey];
    for (std::size_t k = 0;; ++k) {
      if (k == reps.size()) {
        reps.push_back(me);
        return;
      }
      ModelFile& found = files_[reps[k]];
      if (Equal(files_[me], found, isMP3, isJPG, isFLAC)) {
        if (found.group < 0) {
          found.group = groupCount_++;
          groups_.emplace_back().insert(found.rel);
        }
        groups_[static_cast<std::size_t>(found.group)].insert(files_[me].rel);
        return;
      }
    }
  }

  Groups Result() const { return Groups(groups_.begin(), groups_.end()); }

 private:
  // The checksum route: the cut rule follows the representative's extension,
  // and a checksum, once made, is kept whatever rule a later partner has.
  bool Equal(ModelFile& newFile, ModelFile& found, bool isMP3, bool isJPG, bool isFLAC) {
    const bool useMp3 = isMP3 && found.ext == "mp3";
    const bool useExif = (isJPG && IsJpegExt(found.ext)) || (isFLAC && found.ext == "flac");
    for (ModelFile* f : {&found, &newFile}) {
      if (f->hashed) continue;
      if (f->failed) return false;
      HashRange range;
      range.useMp3Cuts = useMp3;
      range.useExifCuts = !useMp3 && useExif;
      if (range.useMp3Cuts) {
        range.cutFromStart = f->mp3Start;
        range.cutFromEnd = f->mp3End;
      } else if (range.useExifCuts) {
        range.cutFromStart = f->exifStart;
        range.cutFromEnd = f->exifEnd;
      }
      std::string error;
      f->hash = CreateHashFromFile(f->path, mode_, range, nullptr, &error);
      if (!error.empty()) {
        f->failed = true;
        return false;
      }
      f->hashed = true;
    }
    return newFile.hash == found.hash;
  }

  std::set<Rule> rules_;
  int mode_;
  TextCatalog texts_;
  std::vector<ModelFile> files_;
  std::map<std::int64_t, std::vector<std::size_t>> reps_;
  std::vector<Group> groups_;
  int groupCount_ = 0;
};

// ---------------------------------------------------------------------------
// Random trees of small files that look like music and pictures, with and
// without the blocks the rules cut, so that many files share a compare size.

class TreeMaker {
 public:
  explicit TreeMaker(std::uint32_t seed) : rng_(seed) {
    for (int i = 0; i < 3; ++i) bodies_.push_back(Bytes(180));
    for (int i = 0; i < 2; ++i) bodies_.push_back(Bytes(150));
  }

  // One file's name (with extension) and bytes.
  std::pair<std::string, std::string> File(int n) {
    static const char* const kExts[] = {"bin", "mp3", "mp3", "jpg", "jpg", "flac", "flac"};
    std::string ext = kExts[Pick(7)];
    if (!made_.empty() && Pick(4) == 0) {
      // A copy of an earlier file, perhaps under another extension.
      const auto& [oldName, bytes] = made_[Pick(static_cast<std::uint32_t>(made_.size()))];
      std::string name = "f" + std::to_string(n) + "." + (Pick(2) ? ext : Ext(oldName));
      made_.emplace_back(name, bytes);
      return made_.back();
    }
    const std::string& body = bodies_[Pick(static_cast<std::uint32_t>(bodies_.size()))];
    std::string bytes;
    switch (Pick(3)) {
      case 0:
        bytes = body;
        break;
      case 1:
        bytes = Mp3(body);
        break;
      default:
        bytes = ext == "flac" ? Flac(body) : Jpeg(body);
        break;
    }
    std::string name = "f" + std::to_string(n) + "." + ext;
    made_.emplace_back(name, bytes);
    return made_.back();
  }

  std::uint32_t Pick(std::uint32_t n) { return static_cast<std::uint32_t>(rng_() % n); }

 private:
  static std::string Ext(const std::string& name) { return name.substr(name.rfind('.') + 1); }

  std::string Bytes(std::size_t n) {
    std::string s(n, '\0');
    // Letters only: no accidental tag markers inside a body.
    for (char& c : s) c = static_cast<char>('a' + Pick(26));
    return s;
  }

  std::string Mp3(const std::string& body) {
    std::string out;
    if (Pick(3) != 0) {
      // ID3v2 of 10 + 20 or 10 + 40 bytes.
      const int len = Pick(2) ? 20 : 40;
      out += std::string("ID3\x03\x00\x00\x00\x00\x00", 9);
      out += static_cast<char>(len);
      out += Bytes(static_cast<std::size_t>(len));
    }
    out += body;
    if (Pick(2)) out += "TAG" + Bytes(125);
    return out;
  }

  std::string Jpeg(const std::string& body) {
    std::string out("\xFF\xD8", 2);
    const int exif = Pick(2) ? 16 : 30;
    out += std::string("\xFF\xE1", 2);
    out += static_cast<char>(0);
    out += static_cast<char>(exif + 2);
    out += Bytes(static_cast<std::size_t>(exif));
    out += std::string("\xFF\xDA", 2);
    out += body;
    out += std::string("\xFF\xD9", 2);
    if (Pick(2)) out += Bytes(12);
    return out;
  }

  std::string Flac(const std::string& body) {
    std::string out("fLaC", 4);
    out += std::string("\x00\x00\x00\x22", 4);
    out += Bytes(34);
    const int meta = Pick(2) ? 8 : 24;
    out += static_cast<char>(0x84);
    out += static_cast<char>(0);
    out += static_cast<char>(0);
    out += static_cast<char>(meta);
    out += Bytes(static_cast<std::size_t>(meta));
    out += body;
    return out;
  }

  std::mt19937 rng_;
  std::vector<std::string> bodies_;
  std::vector<std::pair<std::string, std::string>> made_;
};

class CascadeModelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = tmp_.Mkdir("tree");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    test::OnlyCriteria(settings_, {3});
  }

  void Write(const std::string& rel, const std::string& bytes) {
    tmp_.Write("tree/" + rel, bytes);
    if (std::find(sources_.begin(), sources_.end(), rel.substr(0, rel.find('/'))) == sources_.end())
      sources_.push_back(rel.substr(0, rel.find('/')));
  }

  Groups RunEngine(const std::set<Rule>& rules, int mode) {
    for (Rule r : {Rule::Mp3, Rule::Exif, Rule::Flac})
      settings_.SetBool("DupVerz", RuleKey(r), rules.count(r) > 0);
    settings_.Set("DupVerz", "ContentCompare", std::to_string(mode));
    std::vector<SourceFolderRow> rows;
    for (const auto& s : sources_) {
      SourceFolderRow r;
      r.path = (tree_ / s).string();
      rows.push_back(r);
    }
    RunState run;
    NullProgressSink progress;
    test::SilentPrompt prompt;
    SearchEngine engine(
        SearchContext{Init_Variablen(settings_, texts_), texts_, *logger_, progress, prompt, run});
    EXPECT_TRUE(engine.Search_Start(rows));
    return test::GroupsBelow(engine.Result(), tree_);
  }

  // The model sees the files as the walk does: source after source, each
  // flat folder in the order the system lists it.
  Groups RunModel(const std::set<Rule>& rules, int mode) {
    CascadeModel model(rules, mode);
    for (const auto& s : sources_) {
      const fs::path dir = tree_ / s;
      for (const std::string& name : test::ListingOrder(dir)) {
        ModelFile f;
        f.rel = s + "/" + name;
        f.path = (dir / name).string();
        f.ext = LowerCase(name.substr(name.rfind('.') + 1));
        f.size = static_cast<std::int64_t>(fs::file_size(dir / name));
        model.Add(std::move(f));
      }
    }
    return model.Result();
  }

  TempDir tmp_;
  fs::path tree_, data_;
  std::vector<std::string> sources_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
};

// An untagged .mp3 that becomes a representative of a size must not hide the
// later files of that size from each other.
TEST_F(CascadeModelTest, FileUnderARuleTakingASuffixHidesNoDuplicates) {
  const Groups expected{{"3/d.bin", "4/e.bin"}};
  for (Rule r : {Rule::Mp3, Rule::Exif, Rule::Flac}) {
    SCOPED_TRACE(RuleKey(r));
    sources_.clear();
    fs::remove_all(tree_);
    Write("1/a.bin", std::string(1000, 'A'));
    Write(std::string("2/c.") + (r == Rule::Mp3    ? "mp3"
                                 : r == Rule::Exif ? "jpg"
                                                   : "flac"),
          std::string(1000, 'C'));
    Write("3/d.bin", std::string(1000, 'D'));
    Write("4/e.bin", std::string(1000, 'D'));
    EXPECT_EQ(RunEngine({r}, kCompareSHA1), expected);
    EXPECT_EQ(RunEngine({}, kCompareSHA1), expected);
  }
}

// Random trees with a fixed seed: for each rule alone and all together, for
// two digests, the engine finds exactly the model's groups.
TEST_F(CascadeModelTest, RandomTreesGiveTheGroupsOfTheModel) {
  for (std::uint32_t seed : {7u, 1234u, 99991u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    sources_.clear();
    fs::remove_all(tree_);
    fs::create_directories(tree_);
    TreeMaker maker(seed);
    for (int n = 0; n < 54; ++n) {
      auto [name, bytes] = maker.File(n);
      Write("s" + std::to_string(maker.Pick(5)) + "/" + name, bytes);
    }
    std::size_t grouped = 0;
    for (const std::set<Rule>& rules : std::vector<std::set<Rule>>{
             {Rule::Mp3}, {Rule::Exif}, {Rule::Flac}, {Rule::Mp3, Rule::Exif, Rule::Flac}}) {
      for (int mode : {kCompareSHA1, kCompareMD5}) {
        SCOPED_TRACE(::testing::Message() << "rules " << rules.size() << " first "
                                          << RuleKey(*rules.begin()) << " mode " << mode);
        const Groups model = RunModel(rules, mode);
        EXPECT_EQ(RunEngine(rules, mode), model);
        grouped += model.size();
      }
    }
    // The trees are made so that the rules matter: there is something to find.
    EXPECT_GT(grouped, 20u);
  }
}

}  // namespace
}  // namespace kelvor
