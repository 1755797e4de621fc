// Saved search results on disk: what a save writes, what a load gives back,
// the questions asked, damaged files refused, and a full disk that keeps the
// saved result it found.

#include "results/result_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "data/file_system.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/text_file.h"
#include "frame/texts.h"
#include "results/result_branch.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::ReadUtf16File;
using test::TempDir;

// Answers questions from a script and keeps what was asked.
class ScriptedPrompt : public Prompt {
 public:
  std::deque<std::optional<std::string>> inputs;
  std::deque<bool> answers;
  std::vector<std::string> asked;
  std::vector<std::string> defaults;

  void Message(std::string_view text, MessageIcon) override { asked.emplace_back(text); }
  bool AskYesNo(std::string_view text) override {
    asked.emplace_back(text);
    if (answers.empty()) return false;
    const bool a = answers.front();
    answers.pop_front();
    return a;
  }
  std::optional<std::string> Input(std::string_view text, std::string_view deflt) override {
    asked.emplace_back(text);
    defaults.emplace_back(deflt);
    if (inputs.empty()) return std::nullopt;
    auto a = inputs.front();
    inputs.pop_front();
    return a;
  }
};

// Stops the run at the n-th status text that shows progress.
class StopAtProgress : public ProgressSink {
 public:
  explicit StopAtProgress(RunState& run) : run_(run) {}
  void SetLabel(Label l, std::string_view text) override {
    if (l == Label::StatusBar && text.find(" | ") != std::string_view::npos)
      run_.RequestStop(kStopUser);
  }

 private:
  RunState& run_;
};

FileRecord Rec(std::string name, std::int64_t size, int source = 1, std::string path = "") {
  FileRecord r;
  r.Name = std::move(name);
  r.Extension = "txt";
  r.NameKey = r.Name;
  r.SIZE = r.SizeKey = size;
  r.SourceNr = source;
  r.Path = std::move(path);
  r.Attributes = kAttrNormal;
  r.DateLastModified = 45000.5;
  r.DateCreated = 44999.25;
  return r;
}

class SavedResults : public ::testing::Test {
 protected:
  void SetUp() override {
    data_ = tmp_.Mkdir("data");
    temp_ = tmp_.Mkdir("temp");
    log_ = tmp_.Write("log/lastsearch.txt", "the search's log\n");
  }

  ResultFileEnv Env() {
    return ResultFileEnv{data_, temp_, log_, texts_, prompt_, progress_, run_};
  }

  // Two sources, a size group with marks and colours, an archive member,
  // a similar-picture file with its details, cells under unknown keys.
  std::unique_ptr<ResultModel> Rich() {
    auto m = std::make_unique<ResultModel>(&texts_);
    ResultOptions o;
    o.GroupTitleMode = 3;
    o.GroupSize = true;
    o.SourceFolders = {"/data/one", "/data/two"};
    m->SetOptions(o);
    m->Report_Create_Root_Node();
    m->SetDescription("Dateigröße");
    const int g1 = m->Search_AddNewGroup(Rec("a", 1000));
    m->AddFileRow(g1, Rec("a", 1000, 1, "/sub"));
    FileRecord member = Rec("b", 1000, 2, "/zips");
    member.ArchiveType = 3;
    member.PathInsideZip = "inner/dir";
    FileRowExtras mx;
    mx.TmpPath = "/tmp/KVtemp/17";
    const RowRef archived = m->AddFileRow(g1, member, mx);
    FileRecord ref = Rec("c", 1000, 2);
    ref.IsReferenceFile = true;
    m->AddFileRow(g1, ref);
    const int g2 = m->Search_AddNewGroup(Rec("pic", 5000));
    FileRecord p1 = Rec("pic", 5000);
    p1.PercentMatch = 93;
    FileRowExtras px;
    px.HasPicSize = true;
    px.PicW = 640;
    px.PicH = 480;
    px.HasOwner = true;
    px.Owner = "anna";
    px.HasAudio = true;
    px.AudioDurationVal = 125;
    px.AudioBitrate = 320000;
    px.AudioSamplingrate = 44100;
    px.HasHardlinks = true;
    px.Hardlinks = 3;
    px.HardlinkID = "00000801-1234";
    px.GetFileInfo = kInfoOwner | kInfoPicture;
    const RowRef pic = m->AddFileRow(g2, p1, px);
    FileRecord p2 = Rec("pic-copy", 5000, 1, "/ü/日本");
    p2.PercentMatch = 100;
    m->AddFileRow(g2, p2);
    // Marks: one by a command, one by hand (another back colour).
    m->File_Select(archived, true);
    m->Report_Set_Group_Checkbox_Image(m->Parent(archived));
    m->Report_ChangeCheckboxStatus(pic);
    m->SetCell(pic, "myNote", std::string("kept"));
    m->SetCell(m->Parent(pic), "groupNote", std::int64_t{7});
    m->SetCell(pic, CellKey::thumbnailpath, std::string("/cache/thumb1.png"));
    m->SetExpanded(m->Parent(pic), true);
    m->SetTextColor(m->Parent(pic), 255);
    return m;
  }

  SavedResultInfo Info() {
    SavedResultInfo info;
    info.GroupID = 3;
    info.Context = {{"/data/one", 1, 77}, {"/data/two", 0, 88}};
    info.Tag = "Dateigröße";
    info.SearchCriteria = "0010000000";
    info.SearchCriteriaDesc = "Dateigröße (gespeichert)";
    info.Unicode = true;
    return info;
  }

  SaveOutcome Save(const ResultModel& m, const std::string& name) {
    state_.ResultFileName = name + ".ksr4a";
    return Report_Save(m, Info(), false, false, state_, Env());
  }

  LoadOutcome Load(const std::string& name) {
    ResultFileState st;
    st.ResultFileName = name + ".ksr4a";
    return Report_Laden(st, ResultOptions{}, kSizeBytes, Env());
  }

  fs::path Rows(const std::string& name) { return data_ / (name + ".ksr4a"); }
  fs::path Ini(const std::string& name) { return data_ / (name + ".ini4a"); }

  bool TempFolderEmpty() { return fs::is_empty(temp_); }

  // Rewrites one key of a saved .ini4a, or removes it when `value` is "".
  void SetIniKey(const std::string& name, const std::string& key, const std::string& value) {
    std::string text = ReadUtf16File(Ini(name));
    const std::string start = "\n" + key + "=";
    auto at = text.find(start);
    ASSERT_NE(at, std::string::npos) << key;
    auto end = text.find('\n', at + 1);
    text.replace(at, end - at, value.empty() ? std::string() : "\n" + key + "=\"" + value + "\"\r");
    std::ofstream(Ini(name), std::ios::binary | std::ios::trunc) << Utf16leWithBom(text);
  }

  TextCatalog texts_;
  ScriptedPrompt prompt_;
  NullProgressSink progress_;
  RunState run_;
  ResultFileState state_;
  TempDir tmp_;
  fs::path data_, temp_, log_;
};

// Every row below the root as a user sees it: level, caption, check state,
// colours, expansion and all its cells.
std::vector<std::string> Shown(const ResultModel& m) {
  std::vector<std::string> out;
  for (int i = 1; i < m.RowCount(); ++i) {
    const RowRef r = m.RowByIndex(i);
    std::string s = std::to_string(m.Level(r)) + "|" + m.Caption(r) + "|" +
                    std::to_string(m.GetCheckState(r)) + "|" + std::to_string(m.BackColor(r)) +
                    "|" + std::to_string(m.TextColor(r)) + "|" + (m.Expanded(r) ? "+" : "-");
    for (const auto& [k, v] : m.Cells(r)) {
      if (k == "thumbnailpath") continue;
      s += "|" + k + "=" + std::to_string(v.index()) + ":" + CellAsText(v);
    }
    out.push_back(s);
  }
  return out;
}

TEST_F(SavedResults, RoundTripKeepsRowsMarksColoursCellsAndCounters) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "mine").verdict, SaveVerdict::Saved);
  EXPECT_TRUE(state_.ResultListChanged);
  EXPECT_EQ(ReadBytes(data_ / "mine.txt"), "the search's log\n");
  EXPECT_TRUE(TempFolderEmpty());

  // The log command is to show the loaded search's log.
  fs::remove(log_);
  LoadOutcome l = Load("mine");
  ASSERT_TRUE(l.model) << l.error;
  EXPECT_EQ(Shown(*l.model), Shown(*m));
  EXPECT_EQ(l.model->DupCount(), 5);
  EXPECT_EQ(l.model->DupCountSelected(), 2);
  EXPECT_EQ(l.model->FilesizeAll(), m->FilesizeAll());
  EXPECT_EQ(l.model->FilesizeSelected(), 6000);
  EXPECT_EQ(l.model->Description(), "Dateigröße (gespeichert)");
  EXPECT_EQ(l.model->Options().GroupTitleMode, 3);
  EXPECT_EQ(l.model->Options().SourceFolders, (std::vector<std::string>{"/data/one", "/data/two"}));
  EXPECT_EQ(l.info.Tag, "Dateigröße");
  EXPECT_EQ(l.info.SearchCriteria, "0010000000");
  EXPECT_TRUE(l.info.Unicode);
  // The serial of a protected folder is kept, the other one's taken anew.
  EXPECT_EQ(l.info.Context[0].serial, 77);
  EXPECT_NE(l.info.Context[1].serial, 88);
  // The thumbnail cache is rebuilt on demand.
  const RowRef pic = l.model->RowByIndex(6);
  EXPECT_EQ(l.model->FileName(pic), "pic.txt");
  EXPECT_EQ(CellAsText(l.model->Cell(pic, CellKey::thumbnailpath)), "");
  // The log of that search is the one the log command shows now.
  EXPECT_EQ(ReadBytes(log_), "the search's log\n");
  EXPECT_TRUE(TempFolderEmpty());

  // Marks of a loaded result work as after a search.
  l.model->File_Select(pic, false);
  EXPECT_EQ(l.model->DupCountSelected(), 1);
  EXPECT_EQ(l.model->FilesizeSelected(), 1000);
}

TEST_F(SavedResults, IniIsUtf16WithItsKeysInOrder) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "keys").verdict, SaveVerdict::Saved);
  const std::string raw = ReadBytes(Ini("keys"));
  ASSERT_GE(raw.size(), 2u);
  EXPECT_EQ(raw.substr(0, 2), "\xFF\xFE");
  const std::string text = ReadUtf16File(Ini("keys"));
  std::vector<std::string> keys;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    auto eq = line.find('=');
    if (eq != std::string::npos) keys.push_back(line.substr(0, eq));
  }
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "DupCount", "DupCountSelected", "GroupID", "ContextCount", "Context1",
                      "ContextA1", "ContextS1", "Context2", "ContextA2", "ContextS2",
                      "ContextQserials", "Tag", "SearchCriteria", "FilesizeAll", "FilesizeSelected",
                      "ListCount", "SearchCriteriaDesc", "Unicode", "v"}));
  EXPECT_NE(text.find("v=\"405\""), std::string::npos);
  EXPECT_NE(text.find("ListCount=\"2\""), std::string::npos);
  EXPECT_NE(text.find("FilesizeAll=\"13000\""), std::string::npos);
}

TEST_F(SavedResults, FilesWithoutDuplicatesGroupRoundTrips) {
  ResultModel m(&texts_);
  ResultOptions o;
  o.SourceFolders = {"/x"};
  m.SetOptions(o);
  const int g = m.BeginFilesWithoutDupsGroup();
  for (int i = 0; i < 40; ++i)
    m.AddFileRow(g, Rec("lonely" + std::to_string(i), 10 + i, 1, "/d" + std::to_string(i % 3)));
  m.FinishFilesWithoutDupsGroup(g);
  ASSERT_EQ(Save(m, "alone").verdict, SaveVerdict::Saved);
  LoadOutcome l = Load("alone");
  ASSERT_TRUE(l.model) << l.error;
  EXPECT_EQ(Shown(*l.model), Shown(m));
  EXPECT_EQ(l.model->Caption(l.model->RowByIndex(1)), "Dateien ohne Duplikate");
  EXPECT_EQ(l.model->DupCount(), 40);
}

// ----- the save's rules and questions ------------------------------------------

TEST_F(SavedResults, TwoRowsAreNotSavedAndNothingIsAsked) {
  ResultModel m(&texts_);
  m.Report_Create_Root_Node();
  const int g = m.Search_AddNewGroup(Rec("one", 1));
  m.AddFileRow(g, Rec("one", 1));
  m.File_RemoveFromReport(m.RowByIndex(2));
  ResultFileState st;
  EXPECT_EQ(Report_Save(m, Info(), true, false, st, Env()).verdict, SaveVerdict::NothingToSave);
  EXPECT_TRUE(prompt_.asked.empty());
  EXPECT_TRUE(fs::is_empty(data_));
}

TEST_F(SavedResults, AutomaticNamesFillGapsAndASecondSaveReusesTheName) {
  tmp_.Write("data/AutoSave000.ksr4a", "x");
  tmp_.Write("data/AutoSave002.ksr4a", "x");
  EXPECT_EQ(AutoSaveName(data_), "AutoSave001");
  auto m = Rich();
  ResultFileState st;
  ASSERT_EQ(Report_Save(*m, Info(), false, true, st, Env()).verdict, SaveVerdict::Saved);
  EXPECT_EQ(st.ResultFileName, "AutoSave001.ksr4a");
  ASSERT_EQ(Report_Save(*m, Info(), false, true, st, Env()).verdict, SaveVerdict::Saved);
  EXPECT_EQ(st.ResultFileName, "AutoSave001.ksr4a");
  EXPECT_FALSE(fs::exists(data_ / "AutoSave003.ksr4a"));
  EXPECT_TRUE(prompt_.asked.empty());
}

TEST_F(SavedResults, NameQuestionCancelledOrOverwriteRefusedChangesNothing) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "kept").verdict, SaveVerdict::Saved);
  const std::string before = ReadBytes(Rows("kept"));

  // Cancelled at once.
  ResultFileState st;
  EXPECT_EQ(Report_Save(*m, Info(), true, false, st, Env()).verdict, SaveVerdict::Cancelled);
  ASSERT_EQ(prompt_.asked.size(), 1u);
  EXPECT_EQ(prompt_.asked[0], "Dateiname für das Suchergebnis:");
  EXPECT_TRUE(st.ResultFileName.empty());

  // An empty reply ends the save too.
  prompt_.asked.clear();
  prompt_.inputs = {std::string("  ")};
  EXPECT_EQ(Report_Save(*m, Info(), true, false, st, Env()).verdict, SaveVerdict::Cancelled);

  // "kept" exists: No asks for the name again, with it as the default;
  // then cancelled.
  prompt_.asked.clear();
  prompt_.defaults.clear();
  m->File_Select(m->RowByIndex(2), true);
  prompt_.inputs = {std::string("kept")};
  prompt_.answers = {false};
  EXPECT_EQ(Report_Save(*m, Info(), true, false, st, Env()).verdict, SaveVerdict::Cancelled);
  ASSERT_EQ(prompt_.asked.size(), 3u);
  EXPECT_EQ(prompt_.asked[1],
            "Ein Suchergebnis mit dem Dateinamen 'kept' ist schon vorhanden! Überschreiben?");
  EXPECT_EQ(prompt_.defaults[1], "kept");
  EXPECT_EQ(ReadBytes(Rows("kept")), before);

  // Yes replaces it, and the name sticks: the next save does not ask.
  prompt_.asked.clear();
  prompt_.inputs = {std::string("kept")};
  prompt_.answers = {true};
  EXPECT_EQ(Report_Save(*m, Info(), true, false, st, Env()).verdict, SaveVerdict::Saved);
  EXPECT_NE(ReadBytes(Rows("kept")), before);
  EXPECT_EQ(st.ResultFileName, "kept.ksr4a");
  prompt_.asked.clear();
  EXPECT_EQ(Report_Save(*m, Info(), false, false, st, Env()).verdict, SaveVerdict::Saved);
  EXPECT_TRUE(prompt_.asked.empty());
  LoadOutcome l = Load("kept");
  ASSERT_TRUE(l.model) << l.error;
  EXPECT_EQ(l.model->DupCountSelected(), 3);
}

// ----- a full disk and stops -----------------------------------------------------------

TEST_F(SavedResults, FullDiskKeepsThePreviousSaveWhole) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "safe").verdict, SaveVerdict::Saved);
  const std::string rows = ReadBytes(Rows("safe")), ini = ReadBytes(Ini("safe"));
  const std::string log = ReadBytes(data_ / "safe.txt");
  m->File_Select(m->RowByIndex(2), true);
  tmp_.Write("log/lastsearch.txt", "another search\n");
  {
    FileSystemFaults faults;
    faults.Fail(FsCall::WriteFile, "", ENOSPC);
    FileSystemFaults::Scope scope(&faults);
    const SaveOutcome o = Save(*m, "safe");
    EXPECT_EQ(o.verdict, SaveVerdict::Failed);
    EXPECT_NE(o.message.find("Das Suchergebnis konnte nicht gespeichert werden"),
              std::string::npos);
    EXPECT_NE(o.message.find(std::strerror(ENOSPC)), std::string::npos) << o.message;
  }
  EXPECT_EQ(ReadBytes(Rows("safe")), rows);
  EXPECT_EQ(ReadBytes(Ini("safe")), ini);
  EXPECT_EQ(ReadBytes(data_ / "safe.txt"), log);
  EXPECT_TRUE(TempFolderEmpty());
  LoadOutcome l = Load("safe");
  ASSERT_TRUE(l.model) << l.error;
  EXPECT_EQ(l.model->DupCountSelected(), 2);
}

TEST_F(SavedResults, NewRowsWithOldCountersAreRefusedNotMixed) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "half").verdict, SaveVerdict::Saved);
  m->File_Select(m->RowByIndex(2), true);
  {
    // The rows reach their name, the .ini4a does not.
    FileSystemFaults faults;
    faults.Fail(FsCall::Rename, "half.ini4a", EIO);
    FileSystemFaults::Scope scope(&faults);
    EXPECT_EQ(Save(*m, "half").verdict, SaveVerdict::Failed);
  }
  LoadOutcome l = Load("half");
  EXPECT_FALSE(l.model);
  EXPECT_NE(l.error.find("stammen aus einem anderen Suchergebnis"), std::string::npos) << l.error;
  EXPECT_TRUE(TempFolderEmpty());
}

TEST_F(SavedResults, StopsLeaveNothingBehind) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "stop").verdict, SaveVerdict::Saved);
  const std::string rows = ReadBytes(Rows("stop"));
  StopAtProgress stopper(run_);
  m->File_Select(m->RowByIndex(2), true);
  ResultFileState st;
  st.ResultFileName = "stop.ksr4a";
  const ResultFileEnv env{data_, temp_, log_, texts_, prompt_, stopper, run_};
  EXPECT_EQ(Report_Save(*m, Info(), false, false, st, env).verdict, SaveVerdict::Stopped);
  EXPECT_EQ(ReadBytes(Rows("stop")), rows);
  EXPECT_FALSE(run_.StopRequested());

  LoadOutcome l = Report_Laden(st, ResultOptions{}, kSizeBytes, env);
  EXPECT_TRUE(l.stopped);
  EXPECT_FALSE(l.model);
  EXPECT_TRUE(TempFolderEmpty());
}

// ----- damaged and foreign files ----------------------------------------------------------

class DamagedResults : public SavedResults {
 protected:
  void SetUp() override {
    SavedResults::SetUp();
    model_ = Rich();
    ASSERT_EQ(Save(*model_, "r").verdict, SaveVerdict::Saved);
    rows_ = ReadBytes(Rows("r"));
  }
  void WriteRows(const std::string& bytes) {
    std::ofstream(Rows("r"), std::ios::binary | std::ios::trunc) << bytes;
  }
  // The load is refused with text 3938 and a reason holding `reason`.
  void ExpectRefused(const std::string& reason) {
    LoadOutcome l = Load("r");
    EXPECT_FALSE(l.model);
    EXPECT_EQ(l.error.rfind("Das Suchergebnis kann nicht geladen werden:\r\n\r\n", 0), 0u)
        << l.error;
    EXPECT_NE(l.error.find(reason), std::string::npos) << l.error;
    EXPECT_TRUE(TempFolderEmpty());
  }
  std::unique_ptr<ResultModel> model_;
  std::string rows_;
};

TEST_F(DamagedResults, TruncatedFiles) {
  WriteRows(rows_.substr(0, rows_.size() - 1));
  ExpectRefused("unvollständig");
  WriteRows(rows_.substr(0, 10));
  ExpectRefused("nennt 2 Gruppen");
  // Cut at a record boundary: one group less than ListCount says.
  std::uint32_t len = 0;
  std::memcpy(&len, rows_.data() + 8, 4);
  WriteRows(rows_.substr(0, kBranchHeaderSize + len));
  ExpectRefused("nennt 2 Gruppen, die Datei");
  WriteRows("");
  ExpectRefused("nennt 2 Gruppen");
}

TEST_F(DamagedResults, EveryFlippedByteIsCaught) {
  // Every byte of the first header, and a spread of the rest.
  for (std::size_t i = 0; i < rows_.size(); i += i < kBranchHeaderSize ? 1 : 5) {
    std::string bad = rows_;
    bad[i] = static_cast<char>(bad[i] ^ 0x10);
    WriteRows(bad);
    LoadOutcome l = Load("r");
    EXPECT_FALSE(l.model) << "byte " << i;
    EXPECT_FALSE(l.error.empty()) << "byte " << i;
  }
  EXPECT_TRUE(TempFolderEmpty());
  std::string bad = rows_;
  bad[kBranchHeaderSize + 3] ^= 1;
  WriteRows(bad);
  ExpectRefused("die Prüfsumme der Gruppe 1 stimmt nicht");
}

TEST_F(DamagedResults, OtherLayoutsAndOtherFiles) {
  std::string bad = rows_;
  bad[2] = 9;
  WriteRows(bad);
  ExpectRefused("das Format 9, das diese Version von Kelvor nicht lesen kann");
  WriteRows("This is a text file, not a saved result at all.\n");
  ExpectRefused("kein gespeichertes Suchergebnis");
}

TEST_F(DamagedResults, RowsOfAnotherResult) {
  auto other = Rich();
  other->File_Select(other->RowByIndex(2), true);
  ASSERT_EQ(Save(*other, "other").verdict, SaveVerdict::Saved);
  fs::copy_file(Rows("other"), Rows("r"), fs::copy_options::overwrite_existing);
  ExpectRefused("gehört nicht zu");
}

TEST_F(DamagedResults, MoreOrFewerBranchesThanListCount) {
  // One group more in the file than counted: the stamp holds the count, so
  // the rows are refused as another result's; with the stamp matched the
  // count is what refuses them.
  SetIniKey("r", "ListCount", "1");
  ExpectRefused("gehört nicht zu");
  SetIniKey("r", "ListCount", "3");
  ExpectRefused("gehört nicht zu");
}

TEST_F(DamagedResults, ExtraRecordsBehindTheCountedOnes) {
  // Records of the same result appended twice: the stamp matches, the count
  // does not.
  WriteRows(rows_ + rows_);
  ExpectRefused("nennt 2 Gruppen, die Datei");
  EXPECT_NE(Load("r").error.find("enthält 4"), std::string::npos);
}

TEST_F(DamagedResults, IniVersionsKeysAndValues) {
  const std::string ini = ReadBytes(Ini("r"));
  auto restore = [&] { std::ofstream(Ini("r"), std::ios::binary | std::ios::trunc) << ini; };

  SetIniKey("r", "v", "404");
  EXPECT_EQ(Searchresult_Check(data_, "r", texts_),
            "Das Suchergebnis kann nicht geladen werden:\r\n\r\nFile is not compatible");
  ExpectRefused("File is not compatible");
  restore();

  SetIniKey("r", "DupCount", "");
  ExpectRefused("fehlt der Schlüssel 'DupCount'");
  restore();
  SetIniKey("r", "ListCount", "");
  ExpectRefused("fehlt der Schlüssel 'ListCount'");
  restore();

  SetIniKey("r", "SearchCriteria", "00100a0000");
  ExpectRefused("'SearchCriteria' den ungültigen Wert '00100a0000'");
  restore();
  SetIniKey("r", "SearchCriteria", "0010010000");  // ten digits, one more criterion on
  {
    LoadOutcome l = Load("r");
    ASSERT_TRUE(l.model) << l.error;
    EXPECT_EQ(l.info.SearchCriteria, "0010010000");
  }
  restore();

  // Huge counts never make the loader allocate or loop for them.
  SetIniKey("r", "DupCount", "99999999999999999999");
  ExpectRefused("'DupCount' den ungültigen Wert");
  restore();
  SetIniKey("r", "ListCount", "2000000000");
  ExpectRefused("nennt 2000000000 Gruppen");
  restore();
  SetIniKey("r", "ContextCount", "2147483647");
  ExpectRefused("'ContextCount' den ungültigen Wert");
  restore();
  SetIniKey("r", "FilesizeAll", "99999999999999999999999");
  ExpectRefused("'FilesizeAll' den ungültigen Wert");
  restore();

  // Keys the rows do not depend on are read with their defaults.
  SetIniKey("r", "Tag", "");
  SetIniKey("r", "Unicode", "");
  SetIniKey("r", "ContextCount", "");
  {
    LoadOutcome l = Load("r");
    ASSERT_TRUE(l.model) << l.error;
    EXPECT_EQ(l.info.Tag, "");
    EXPECT_FALSE(l.info.Unicode);
    EXPECT_TRUE(l.info.Context.empty());
  }
}

TEST_F(DamagedResults, MissingFiles) {
  fs::remove(Ini("r"));
  EXPECT_EQ(Searchresult_Check(data_, "r", texts_),
            "Das Suchergebnis kann nicht geladen werden:\r\n\r\nFile '" + Ini("r").string() +
                "' not exist");
  EXPECT_NE(Searchresult_Check(data_, "nothing", texts_).find("nothing.ksr4a' not exist"),
            std::string::npos);
  EXPECT_NE(Searchresult_Check(data_, "../r", texts_), "");
}

// ----- the list of saved results -----------------------------------------------------------

TEST_F(SavedResults, ListDeleteRenameAndComment) {
  auto m = Rich();
  ASSERT_EQ(Save(*m, "b-result").verdict, SaveVerdict::Saved);
  ASSERT_EQ(Save(*m, "a-result").verdict, SaveVerdict::Saved);
  tmp_.Write("data/orphan.ksr4a", "rows without counters");
  tmp_.Write("data/folder.ksr4a/x", "");
  auto lines = Init_SearchResults(data_, texts_);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].name, "a-result");
  EXPECT_EQ(lines[0].DupCount, 5);
  EXPECT_EQ(lines[0].DupCountText, "5");
  EXPECT_EQ(lines[0].fileSize, static_cast<std::int64_t>(fs::file_size(Rows("a-result"))));
  EXPECT_EQ(lines[0].comment, "Dateigröße (gespeichert)");
  EXPECT_GT(lines[0].fileDate, 40000);

  // The comment editor.
  ASSERT_TRUE(Searchresult_SetComment(data_, "a-result", "  for tomorrow  ", nullptr));
  EXPECT_EQ(Init_SearchResults(data_, texts_)[0].comment, "for tomorrow");
  ASSERT_TRUE(Load("a-result").model);

  // Rename onto an existing name keeps both results as they were.
  const std::string bRows = ReadBytes(Rows("b-result"));
  prompt_.inputs = {std::string("b-result")};
  std::string error;
  EXPECT_FALSE(Searchresult_Rename(data_, "a-result", prompt_, texts_, &error));
  EXPECT_EQ(prompt_.defaults.back(), "a-result");
  EXPECT_NE(error.find("kann nicht in 'b-result' umbenannt werden"), std::string::npos);
  EXPECT_TRUE(fs::exists(Rows("a-result")));
  EXPECT_EQ(ReadBytes(Rows("b-result")), bRows);

  prompt_.inputs = {std::string("c-result")};
  EXPECT_EQ(Searchresult_Rename(data_, "a-result", prompt_, texts_, &error), "c-result");
  EXPECT_FALSE(fs::exists(Rows("a-result")));
  EXPECT_TRUE(fs::exists(data_ / "c-result.txt"));
  ASSERT_TRUE(Load("c-result").model);
  ASSERT_TRUE(Searchresult_LogPath(data_, "c-result"));

  // Delete: No keeps it, Yes removes rows and counters, the log stays.
  prompt_.answers = {false};
  EXPECT_FALSE(Searchresult_Delete(data_, "c-result", prompt_, texts_));
  EXPECT_EQ(prompt_.asked.back(), "Suchergebnis 'c-result' löschen?");
  EXPECT_TRUE(fs::exists(Rows("c-result")));
  prompt_.answers = {true};
  EXPECT_TRUE(Searchresult_Delete(data_, "c-result", prompt_, texts_));
  EXPECT_FALSE(fs::exists(Rows("c-result")));
  EXPECT_FALSE(fs::exists(Ini("c-result")));
  EXPECT_TRUE(fs::exists(data_ / "c-result.txt"));
  EXPECT_EQ(Init_SearchResults(data_, texts_).size(), 1u);
}

}  // namespace
}  // namespace kelvor
