// Export of a result: the files a user gets (TXT, CSV, XLSX), the file
// choices, delimiters and columns, odd names, and that a failed or stopped
// export never leaves a half-written file under the chosen name.

#include "results/export.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "results/result_columns.h"
#include "results/result_model.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::ReadUtf16File;
using test::TempDir;

// Three groups of two files; the names hold a quote, the delimiters, a line
// break and a byte that is no UTF-8.
struct Sample {
  ResultModel m;
  Sample() {
    ResultOptions o;
    o.GroupTitleMode = 1;
    o.SourceFolders = {"/data"};
    m.SetOptions(o);
    m.Report_Create_Root_Node();
    Add("a.txt", {{"a.txt", "/data/one", 1500}, {"a.txt", "/data/two", 1500}});
    Add("say \"hi\".doc", {{"say \"hi\".doc", "/data/one", 20}, {"x,y;z\tw.doc", "/data/two", 20}});
    Add("odd",
        {{"line\nbreak", "/data/one", 7}, {std::string("bad\xff") + "name", "/data/two", 7}});
  }
  struct F {
    std::string name, folder;
    std::int64_t size;
  };
  void Add(const std::string& title, const std::vector<F>& files) {
    const int g = m.AddGroupRow(title);
    for (const F& f : files) m.AddFileRowRaw(g, f.name, f.folder, f.size, 1);
  }
  // Marks the n-th file row (0-based, display order).
  void Mark(int n) {
    int i = 0;
    m.ForEachGroup([&](RowRef g) {
      m.ForEachFile(g, [&](RowRef f) {
        if (i++ == n) m.File_Select(f, true);
        return true;
      });
      return true;
    });
    m.ForEachGroup([&](RowRef g) {
      m.Report_Set_Group_Checkbox_Image(g);
      return true;
    });
  }
};

// A CSV text (UTF-8) as rows of values; every value must be quoted.
std::vector<std::vector<std::string>> ParseQuotedCsv(const std::string& text,
                                                     const std::string& delim) {
  std::vector<std::vector<std::string>> rows;
  std::size_t i = 0;
  while (i < text.size()) {
    std::vector<std::string> row;
    for (;;) {
      EXPECT_EQ(text[i], '"') << "unquoted value at " << i << " in row " << rows.size();
      if (text[i] != '"') return rows;
      ++i;
      std::string v;
      for (;;) {
        if (i >= text.size()) return rows;
        if (text[i] == '"') {
          if (i + 1 < text.size() && text[i + 1] == '"') {
            v += '"';
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        v += text[i++];
      }
      row.push_back(v);
      if (text.compare(i, delim.size(), delim) == 0) {
        i += delim.size();
        continue;
      }
      EXPECT_EQ(text.compare(i, 2, "\r\n"), 0) << "line not ended by CR LF at " << i;
      i += 2;
      break;
    }
    rows.push_back(row);
  }
  return rows;
}

class ExportTest : public ::testing::Test {
 protected:
  ExportOutcome Run(const fs::path& target, ExportOptions o,
                    const std::vector<ResultColumn>* columns = nullptr,
                    ProgressSink* progress = nullptr) {
    const std::vector<ResultColumn> cols = MakeResultColumns(s.m.Options(), {}, texts);
    ExportContext ctx{texts, run, progress, [this](std::string_view l) { log.emplace_back(l); }};
    return SAVE(s.m, columns ? *columns : cols, target, o, ctx);
  }
  std::vector<std::vector<std::string>> Csv(const fs::path& f, const std::string& delim = ",") {
    const std::string bytes = ReadBytes(f);
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE") << "no UTF-16LE byte-order mark";
    return ParseQuotedCsv(ReadUtf16File(f), delim);
  }
  // Files in the folder besides the ones named.
  std::vector<std::string> Leftovers(const fs::path& folder) {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(folder)) out.push_back(e.path().filename());
    return out;
  }

  TempDir tmp;
  TextCatalog texts;
  RunState run;
  Sample s;
  std::vector<std::string> log;
};

const std::string kFfd = "\xEF\xBF\xBD";  // U+FFFD in UTF-8

TEST_F(ExportTest, CsvIsUtf16EveryValueQuotedAndOddNamesComeThroughWhole) {
  s.Mark(1);
  const fs::path f = tmp / "list.csv";
  const ExportOutcome r = Run(f, {});
  ASSERT_EQ(r.status, ExportStatus::Done) << r.message;
  EXPECT_EQ(r.fileRows, 6);
  EXPECT_NE(r.message.find("list.csv"), std::string::npos);
  const auto rows = Csv(f);
  ASSERT_EQ(rows.size(), 7u);
  EXPECT_EQ(rows[0], (std::vector<std::string>{"Gruppen-Nr.", "Selektiert", "Datei", "Dateipfad",
                                               "Größe (Bytes)", "Gruppe - Dateiname mit Endung",
                                               "Duplikate - Gruppe", "Größe (Bytes) - Gruppe"}));
  EXPECT_EQ(rows[1], (std::vector<std::string>{"1", "0", "a.txt", "/data/one", "1500", "a.txt", "2",
                                               "3000"}));
  EXPECT_EQ(rows[2][1], "1");  // the marked one
  EXPECT_EQ(rows[3][2], "say \"hi\".doc");
  EXPECT_EQ(rows[4][2], "x,y;z\tw.doc");
  EXPECT_EQ(rows[5][2], "line\nbreak");
  EXPECT_EQ(rows[6][2], "bad" + kFfd + "name");
  EXPECT_EQ(rows[6][0], "3");
  EXPECT_EQ(Leftovers(tmp.path()), std::vector<std::string>{"list.csv"});
}

TEST_F(ExportTest, DelimitersStillQuoteEveryValue) {
  for (const std::string d : {";", "\t", " ", "||"}) {
    ExportOptions o;
    o.delimiter = d;
    const fs::path f = tmp / "d.csv";
    ASSERT_EQ(Run(f, o).status, ExportStatus::Done);
    const auto rows = Csv(f, d);
    ASSERT_EQ(rows.size(), 7u) << "delimiter '" << d << "'";
    for (const auto& row : rows) EXPECT_EQ(row.size(), 8u) << "delimiter '" << d << "'";
    EXPECT_EQ(rows[4][2], "x,y;z\tw.doc");
  }
  EXPECT_EQ(DelimiterOfIndex(0, "x"), ",");
  EXPECT_EQ(DelimiterOfIndex(1, "x"), ";");
  EXPECT_EQ(DelimiterOfIndex(2, "x"), "\t");
  EXPECT_EQ(DelimiterOfIndex(3, "x"), " ");
  EXPECT_EQ(DelimiterOfIndex(4, "<>"), "<>");
}

TEST_F(ExportTest, FileChoicesAndTheRefusals) {
  const fs::path f = tmp / "c.csv";
  ExportOptions marked, unmarked;
  marked.fileChoice = kExportMarked;
  unmarked.fileChoice = kExportUnmarked;

  // Nothing marked: "marked only" has nothing to write, and writes nothing.
  ExportOutcome r = Run(f, marked);
  EXPECT_EQ(r.status, ExportStatus::Refused);
  EXPECT_EQ(r.message, texts.Get(txt::T5292));
  EXPECT_FALSE(fs::exists(f));

  s.Mark(0);
  s.Mark(4);
  ASSERT_EQ(Run(f, marked).status, ExportStatus::Done);
  auto rows = Csv(f);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[1][2], "a.txt");
  EXPECT_EQ(rows[1][3], "/data/one");
  EXPECT_EQ(rows[2][2], "line\nbreak");
  EXPECT_EQ(rows[2][0], "3");  // group numbers stay those of the whole result

  r = Run(f, unmarked);
  ASSERT_EQ(r.status, ExportStatus::Done);
  EXPECT_EQ(r.fileRows, 4);
  rows = Csv(f);
  ASSERT_EQ(rows.size(), 5u);
  for (std::size_t i = 1; i < rows.size(); ++i) EXPECT_EQ(rows[i][1], "0");

  ASSERT_EQ(Run(f, {}).status, ExportStatus::Done);
  EXPECT_EQ(Csv(f).size(), 7u);

  // Everything marked: "unmarked only" is refused, and the last export stays.
  for (int i = 0; i < 6; ++i)
    if (i != 0 && i != 4) s.Mark(i);
  ASSERT_EQ(s.m.DupCountSelected(), s.m.DupCount());
  const std::string before = ReadBytes(f);
  EXPECT_EQ(Run(f, unmarked).status, ExportStatus::Refused);
  EXPECT_EQ(ReadBytes(f), before);

  // A result of fewer than three rows has nothing to export.
  ResultModel empty;
  empty.Report_Create_Root_Node();
  empty.AddGroupRow("g");
  const std::vector<ResultColumn> cols = MakeResultColumns(empty.Options(), {}, texts);
  ExportContext ctx{texts, run, nullptr, {}};
  EXPECT_EQ(SAVE(empty, cols, tmp / "e.csv", {}, ctx).status, ExportStatus::Refused);
  EXPECT_FALSE(fs::exists(tmp / "e.csv"));
}

TEST_F(ExportTest, OnlyFilesAndTheTextReport) {
  ExportOptions o;
  o.saveOnlyFiles = true;
  ASSERT_EQ(Run(tmp / "f.csv", o).status, ExportStatus::Done);
  const auto rows = Csv(tmp / "f.csv");
  EXPECT_EQ(rows[0], (std::vector<std::string>{"Gruppen-Nr.", "Selektiert", "Datei", "Dateipfad",
                                               "Größe (Bytes)"}));

  s.Mark(1);
  ExportOptions t;
  t.format = ExportFormat::Txt;
  t.savedName = "Urlaub";
  t.now = 45000.5;
  ASSERT_EQ(Run(tmp / "r.txt", t).status, ExportStatus::Done);
  EXPECT_EQ(ReadBytes(tmp / "r.txt").substr(0, 2), "\xFF\xFE");
  const std::string txt = ReadUtf16File(tmp / "r.txt");
  const std::string rule(80, '-');
  EXPECT_EQ(txt.substr(0, txt.find("\r\n" + rule)),
            "Suchergebnis 'Urlaub'\r\nSpeichertyp: Alle Dateien\r\nDatum: 15/03/2023 12:00:00");
  EXPECT_NE(txt.find(rule +
                     "\r\nGruppenspalten:\r\nGruppe - Dateiname mit Endung\r\nDuplikate\r\n"
                     "Größe (Bytes)\r\nDateispalten:\r\nDatei\r\nDateipfad\r\nGröße "
                     "(Bytes)\r\n" +
                     rule + "\r\n"),
            std::string::npos)
      << txt;
  EXPECT_NE(
      txt.find("\r\n[a.txt]\t[2]\t[3000]\r\n\t[ ]\ta.txt\t[/data/one]\t[1500]\r\n\t[x]\ta.txt\t"
               "[/data/two]\t[1500]\r\n"),
      std::string::npos)
      << txt;
  // One line per row whatever the name holds.
  EXPECT_NE(txt.find("\t[ ]\tline\xE2\x90\x8A"
                     "break\t"),
            std::string::npos);

  t.saveOnlyFiles = true;
  t.fileChoice = kExportMarked;
  ASSERT_EQ(Run(tmp / "r.txt", t).status, ExportStatus::Done);
  const std::string only = ReadUtf16File(tmp / "r.txt");
  EXPECT_NE(only.find("Speichertyp: Nur markierte Dateien"), std::string::npos);
  EXPECT_EQ(only.find("Gruppenspalten:"), std::string::npos);
  EXPECT_EQ(only.find("[a.txt]"), std::string::npos);
  EXPECT_TRUE(only.ends_with(rule + "\r\n\t[x]\ta.txt\t[/data/two]\t[1500]\r\n")) << only;
}

TEST_F(ExportTest, ColumnsFollowTheirPositionsAndVisibility) {
  SettingsStore st;
  // The size column first, the path column last; the dates shown.
  const int order[kColumnCount + 1] = {0, 1, 17, 3,  4,  2,  5,  6,  7,
                                       8, 9, 10, 11, 12, 13, 14, 15, 16};
  for (int id = 1; id <= kColumnCount; ++id)
    st.SetInt("Optionen", std::to_string(id) + "FolderColumnIndex", order[id]);
  st.SetBool("Optionen", "ColumnDateM", true);
  st.SetBool("Optionen", "ColumnOwner", true);
  const auto cols = MakeResultColumns(st, s.m.Options(), {}, texts);
  ASSERT_EQ(Run(tmp / "p.csv", {}, &cols).status, ExportStatus::Done);
  const auto rows = Csv(tmp / "p.csv");
  EXPECT_EQ(rows[0],
            (std::vector<std::string>{"Gruppen-Nr.", "Selektiert", "Datei", "Größe (Bytes)",
                                      "Änderungsdatum", "Besitzer", "Dateipfad",
                                      "Gruppe - Dateiname mit Endung", "Größe (Bytes) - Gruppe",
                                      "Duplikate - Gruppe", "Änderungsdatum - Gruppe"}));
  EXPECT_EQ(rows[1][3], "1500");
  EXPECT_EQ(rows[1][6], "/data/one");

  // A partial set of positions gives the default order for all.
  SettingsStore partial;
  for (int id = 1; id <= 5; ++id)
    partial.SetInt("Optionen", std::to_string(id) + "FolderColumnIndex", 18 - id);
  EXPECT_EQ(LoadColumnPositions(partial), DefaultColumnPositions());
  // So does a set that names one position twice.
  SettingsStore twice = st;
  twice.SetInt("Optionen", "2FolderColumnIndex", 3);
  EXPECT_EQ(LoadColumnPositions(twice), DefaultColumnPositions());

  // The criteria hide columns whatever the settings say.
  SettingsStore all;
  for (const char* k : {"ColumnDateM", "ColumnAttr", "ColumnSimilar", "ColumnZipPath"})
    all.SetBool("Optionen", k, true);
  ResultOptions o;
  o.GroupTitleMode = 4;  // groups share the change date
  auto visible = [&](const std::vector<ResultColumn>& c, int id) {
    for (const auto& x : c)
      if (x.id == id) return x.visible;
    return false;
  };
  auto c = MakeResultColumns(all, o, {}, texts);
  EXPECT_FALSE(visible(c, kColDate));
  EXPECT_FALSE(visible(c, kColSimilar));
  EXPECT_FALSE(visible(c, kColPathA));
  EXPECT_TRUE(visible(c, kColAttr));
  EXPECT_EQ(c[0].heading, "Gruppe - Änderungsdatum");
  o.IgnoreSeconds = true;  // then the files of a group differ in their dates
  c = MakeResultColumns(all, o, {true, true}, texts);
  EXPECT_TRUE(visible(c, kColDate));
  EXPECT_TRUE(visible(c, kColSimilar));
  EXPECT_TRUE(visible(c, kColPathA));
}

TEST_F(ExportTest, NumbersArePlainInCsvAndGroupedInTheReport) {
  SettingsStore st;
  st.SetBool("Optionen", "ColumnPicWidth", true);
  st.SetBool("Optionen", "ColumnHardlinks", true);
  const auto cols = MakeResultColumns(st, s.m.Options(), {}, texts);
  const RowRef first = s.m.RowByIndex(2);
  s.m.SetCell(first, CellKey::picW, std::int64_t{1920});
  s.m.SetCell(first, CellKey::hardlinks, std::int64_t{0});  // a single link
  ASSERT_EQ(Run(tmp / "n.csv", {}, &cols).status, ExportStatus::Done);
  const auto rows = Csv(tmp / "n.csv");
  ASSERT_EQ(rows[0][5], "Hardlinks");
  ASSERT_EQ(rows[0][6], "Breite");
  EXPECT_EQ(rows[1][5], "-");
  EXPECT_EQ(rows[1][6], "1920");
  EXPECT_EQ(rows[2][5], "");  // not known
  ExportOptions t;
  t.format = ExportFormat::Txt;
  ASSERT_EQ(Run(tmp / "n.txt", t, &cols).status, ExportStatus::Done);
  EXPECT_NE(ReadUtf16File(tmp / "n.txt").find("\t[1500]\t[-]\t[1.920]\r\n"), std::string::npos);
}

TEST_F(ExportTest, AFailedWriteLeavesTheChosenNameAsItWas) {
  const fs::path f = tmp / "keep.csv";
  { std::ofstream(f) << "the old export"; }
  for (FsCall call : {FsCall::WriteFile, FsCall::Rename}) {
    for (ExportFormat format : {ExportFormat::Csv, ExportFormat::Txt, ExportFormat::Xlsx}) {
      FileSystemFaults faults;
      faults.Fail(call, "keep.csv", ENOSPC);
      faults.Fail(call, "new.csv", ENOSPC);
      FileSystemFaults::Scope scope(&faults);
      ExportOptions o;
      o.format = format;
      const ExportOutcome r = Run(f, o);
      EXPECT_EQ(r.status, ExportStatus::Failed);
      EXPECT_NE(r.message.find(ErrorText(ENOSPC)), std::string::npos) << r.message;
      EXPECT_EQ(ReadBytes(f), "the old export");
      EXPECT_EQ(Leftovers(tmp.path()), std::vector<std::string>{"keep.csv"});
      // No file appears where there was none.
      EXPECT_EQ(Run(tmp / "new.csv", o).status, ExportStatus::Failed);
      EXPECT_FALSE(fs::exists(tmp / "new.csv"));
    }
  }
  // A folder under the chosen name is never replaced.
  fs::create_directory(tmp / "dir.csv");
  EXPECT_EQ(Run(tmp / "dir.csv", {}).status, ExportStatus::Failed);
  EXPECT_TRUE(fs::is_directory(tmp / "dir.csv"));
  // Without the faults the export replaces the old file.
  ASSERT_EQ(Run(f, {}).status, ExportStatus::Done);
  EXPECT_EQ(Csv(f).size(), 7u);
}

// Asks for a stop as soon as the export shows its progress.
class StopAtProgress final : public ProgressSink {
 public:
  explicit StopAtProgress(RunState& run) : run_(run) {}
  void ProgressBar(int) override { run_.RequestStop(kStopUser); }

 private:
  RunState& run_;
};

TEST_F(ExportTest, AStopLeavesNoFileUnderTheName) {
  const fs::path f = tmp / "stop.xlsx";
  { std::ofstream(f) << "before"; }
  StopAtProgress stop(run);
  for (ExportFormat format : {ExportFormat::Xlsx, ExportFormat::Csv}) {
    run.SearchState = kRunning;
    ExportOptions o;
    o.format = format;
    const ExportOutcome r = Run(f, o, nullptr, &stop);
    EXPECT_EQ(r.status, ExportStatus::Stopped);
    EXPECT_EQ(r.message, texts.Get(txt::T9636, {f.string()}));
    EXPECT_EQ(ReadBytes(f), "before");
    EXPECT_EQ(Leftovers(tmp.path()), std::vector<std::string>{"stop.xlsx"});
  }
}

// An entry of the XLSX (a zip) as text.
std::string XlsxPart(const fs::path& file, const std::string& part) {
  const std::string cmd = "bsdtar -xOf '" + file.string() + "' " + part;
  FILE* p = ::popen(cmd.c_str(), "r");
  if (!p) return {};
  std::string out;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  ::pclose(p);
  return out;
}

TEST_F(ExportTest, XlsxSheetHeaderFrozenRowAndNumericSizes) {
  if (::access("/usr/bin/bsdtar", X_OK) != 0) GTEST_SKIP() << "bsdtar is needed";
  const fs::path f = tmp / "s.xlsx";
  ExportOptions o;
  o.format = ExportFormat::Xlsx;
  const ExportOutcome r = Run(f, o);
  ASSERT_EQ(r.status, ExportStatus::Done) << r.message;
  EXPECT_EQ(r.sheets, 1);
  EXPECT_TRUE(log.empty());
  EXPECT_NE(XlsxPart(f, "xl/workbook.xml").find("<sheet name=\"Kelvor\""), std::string::npos);
  const std::string sheet = XlsxPart(f, "xl/worksheets/sheet1.xml");
  EXPECT_NE(sheet.find("ySplit=\"1\""), std::string::npos);
  EXPECT_NE(sheet.find("state=\"frozen\""), std::string::npos);
  // Row 2: group number, mark and size are numbers; name and folder texts.
  EXPECT_NE(sheet.find("<c r=\"A2\"><v>1</v></c>"), std::string::npos) << sheet;
  EXPECT_NE(sheet.find("<c r=\"E2\"><v>1500</v></c>"), std::string::npos) << sheet;
  EXPECT_NE(sheet.find("<c r=\"H2\"><v>3000</v></c>"), std::string::npos) << sheet;
  EXPECT_NE(sheet.find("<t>Größe (Bytes)</t>"), std::string::npos);
  EXPECT_NE(sheet.find("<t>say \"hi\".doc</t>"), std::string::npos) << sheet;
  EXPECT_NE(sheet.find("<t>bad" + kFfd + "name</t>"), std::string::npos);
}

TEST_F(ExportTest, PastTheRowLimitTheRowsGoOnInASecondSheet) {
  if (::access("/usr/bin/bsdtar", X_OK) != 0) GTEST_SKIP() << "bsdtar is needed";
  const fs::path f = tmp / "two.xlsx";
  ExportOptions o;
  o.format = ExportFormat::Xlsx;
  o.sheetRowLimit = 5;  // the header and four files
  const ExportOutcome r = Run(f, o);
  ASSERT_EQ(r.status, ExportStatus::Done) << r.message;
  EXPECT_EQ(r.fileRows, 6);
  EXPECT_EQ(r.sheets, 2);
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0], texts.Get(txt::T9634, {"Kelvor", "5", "Kelvor (2)"}));
  EXPECT_NE(XlsxPart(f, "xl/workbook.xml").find("<sheet name=\"Kelvor (2)\""), std::string::npos);
  const std::string one = XlsxPart(f, "xl/worksheets/sheet1.xml");
  const std::string two = XlsxPart(f, "xl/worksheets/sheet2.xml");
  EXPECT_NE(one.find("<row r=\"5\""), std::string::npos);
  EXPECT_EQ(one.find("<row r=\"6\""), std::string::npos);
  // The second sheet has the header again and the last two files.
  EXPECT_NE(two.find("<t>Gruppen-Nr.</t>"), std::string::npos);
  EXPECT_NE(two.find("<row r=\"3\""), std::string::npos);
  EXPECT_EQ(two.find("<row r=\"4\""), std::string::npos);
  EXPECT_NE(two.find("<t>line\nbreak</t>"), std::string::npos) << two;
}

TEST_F(ExportTest, LibreOfficeReadsTheSpreadsheetBack) {
  if (::access("/usr/bin/soffice", X_OK) != 0) GTEST_SKIP() << "soffice is needed";
  // Names without line breaks: the converted CSV is compared line by line.
  Sample plain;
  plain.m.Report_Create_Root_Node();
  plain.Add("a", {{"a.txt", "/data/one", 1500}, {"ä ö.txt", "/data/two", 1500}});
  plain.Add("b", {{"say \"hi\"", "/data/one", 123456789}, {"x,y", "/data/two", 123456789}});
  const fs::path f = tmp / "lo.xlsx";
  ExportOptions o;
  o.format = ExportFormat::Xlsx;
  const std::vector<ResultColumn> cols = MakeResultColumns(plain.m.Options(), {}, texts);
  ExportContext ctx{texts, run, nullptr, {}};
  ASSERT_EQ(SAVE(plain.m, cols, f, o, ctx).status, ExportStatus::Done);
  const fs::path out = tmp / "conv";
  const std::string cmd = "cd '" + tmp.path().string() +
                          "' && timeout 120 soffice -env:UserInstallation=file://" +
                          (tmp / "profile").string() +
                          " --headless --convert-to 'csv:Text - txt - csv (StarCalc):44,34,76' "
                          "--outdir '" +
                          out.string() + "' lo.xlsx >/dev/null 2>&1";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  std::ifstream in(out / "lo.csv");
  std::vector<std::string> lines;
  for (std::string l; std::getline(in, l);) lines.push_back(l);
  const std::vector<std::string> want = {
      "Gruppen-Nr.,Selektiert,Datei,Dateipfad,Größe (Bytes),Gruppe - Dateiname mit "
      "Endung,Duplikate - Gruppe,Größe (Bytes) - Gruppe",
      "1,0,a.txt,/data/one,1500,a,2,3000",
      "1,0,ä ö.txt,/data/two,1500,a,2,3000",
      "2,0,\"say \"\"hi\"\"\",/data/one,123456789,b,2,246913578",
      "2,0,\"x,y\",/data/two,123456789,b,2,246913578",
  };
  EXPECT_EQ(lines, want);
}

}  // namespace
}  // namespace kelvor
