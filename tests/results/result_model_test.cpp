// The result tree: group titles, filling, marks and counters, removals,
// the source-folder thinning and sorting.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "frame/formats.h"
#include "frame/run_state.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

FileRecord Rec(std::string name, std::string ext, std::int64_t size, int source = 1,
               std::string path = "") {
  FileRecord r;
  r.Name = std::move(name);
  r.Extension = std::move(ext);
  r.NameKey = r.Name;
  r.SIZE = r.SizeKey = size;
  r.SourceNr = source;
  r.Path = std::move(path);
  r.Attributes = kAttrNormal;
  r.DateLastModified = 45000.5;
  r.DateCreated = 44999.25;
  return r;
}

ResultOptions Opts(int mode, int sources = 1) {
  ResultOptions o;
  o.GroupTitleMode = mode;
  for (int i = 1; i <= sources; ++i) o.SourceFolders.push_back("/data/src" + std::to_string(i));
  return o;
}

class Recorder : public MarkObserver {
 public:
  void RowMarkChanged(int rowIndex, bool nowMarked) override {
    rows.push_back(nowMarked ? rowIndex : -rowIndex);
  }
  std::vector<int> rows;
};

// A model with groups of the given sizes (files 1000 bytes each).
void Fill(ResultModel& m, const std::vector<int>& groupSizes) {
  m.Report_Create_Root_Node();
  int n = 0;
  for (int count : groupSizes) {
    const FileRecord first = Rec("g" + std::to_string(n), "txt", 1000);
    const int g = m.Search_AddNewGroup(first);
    for (int i = 0; i < count; ++i) {
      m.AddFileRow(g, Rec("f" + std::to_string(n) + "_" + std::to_string(i), "txt", 1000));
    }
    ++n;
  }
}

TEST(GroupTitles, NameAndExtensionModes) {
  ResultModel m;
  m.SetOptions(Opts(0));
  FileRecord r = Rec("Report", "doc", 1);
  r.NameKey = "Rep";  // after the name method
  EXPECT_EQ(m.GroupTitle(r), "Rep");
  r.NameKey.clear();
  EXPECT_EQ(m.GroupTitle(r), ".doc");

  ResultOptions o = Opts(1);
  o.FileNameMethod = 1;
  o.FileNameChars = 3;
  m.SetOptions(o);
  EXPECT_EQ(m.GroupTitle(Rec("Äpfelkorb", "jpg", 1)), "Äpf.jpg");
  o.FileNameMethod = 2;
  m.SetOptions(o);
  EXPECT_EQ(m.GroupTitle(Rec("Äpfelkorb", "", 1)), "orb");
  o.FileNameMethod = 3;  // the third method does not shorten titles
  m.SetOptions(o);
  GroupContext ctx;
  ctx.NameAfterIgnore = "pfelkorb";
  EXPECT_EQ(m.GroupTitle(Rec("Äpfelkorb", "jpg", 1), ctx), "pfelkorb.jpg");

  m.SetOptions(Opts(2));
  EXPECT_EQ(m.GroupTitle(Rec("a", "Jpeg", 1)), "JPEG");
  EXPECT_EQ(m.GroupTitle(Rec("Makefile", "", 1)), "[Ohne Dateiendung]");
}

TEST(GroupTitles, SizeDateAttributeAndPathModes) {
  ResultModel m;
  m.SetOptions(Opts(3));
  EXPECT_EQ(m.GroupTitle(Rec("a", "b", 123456789)), "123456789");

  ResultOptions o = Opts(4);
  o.DateFormat = "dd/MM/yyyy hh:nn:ss";
  FileRecord r = Rec("a", "b", 1);
  r.DateLastModified = 45000.0 + (13 * 3600 + 14 * 60 + 15) / 86400.0;
  r.DateCreated = 44000.0 + (8 * 3600) / 86400.0;
  m.SetOptions(o);
  const std::string full = m.GroupTitle(r);
  EXPECT_EQ(full, FormatDate(r.DateLastModified, "dd/MM/yyyy hh:nn:ss"));
  EXPECT_NE(full.find("13:14:15"), std::string::npos);
  o.IgnoreSeconds = true;
  m.SetOptions(o);
  EXPECT_EQ(m.GroupTitle(r), full.substr(0, full.size() - 3));
  o.IgnoreTime = true;
  m.SetOptions(o);
  const std::string dayOnly = m.GroupTitle(r);
  EXPECT_EQ(dayOnly, full.substr(0, 10));
  EXPECT_EQ(dayOnly.find(':'), std::string::npos);
  o.GroupTitleMode = 5;
  m.SetOptions(o);
  EXPECT_EQ(m.GroupTitle(r), FormatDate(44000.0, "dd/MM/yyyy"));

  m.SetOptions(Opts(6));
  EXPECT_EQ(m.GroupTitle(r), "[Keine Attribute]");
  r.Attributes = kAttrReadOnly | kAttrHidden;
  EXPECT_EQ(m.GroupTitle(r), "RH");

  m.SetOptions(Opts(8, 2));
  EXPECT_EQ(m.GroupTitle(Rec("x", "iso", 1, 2, "/images/old")), "/data/src2/images/old/x.iso");
  EXPECT_EQ(m.GroupTitle(Rec("x", "", 1, 1, "")), "/data/src1/x");
}

TEST(GroupTitles, HardlinkTitlesShowTheLinkCount) {
  test::TempDir dir;
  const auto a = dir.Write("a.bin", "same bytes");
  std::filesystem::create_hard_link(a, dir / "b.bin");
  std::filesystem::create_hard_link(a, dir / "c.bin");
  struct stat st {};
  ASSERT_EQ(stat(a.c_str(), &st), 0);
  FileRecord r = Rec("a", "bin", st.st_size);
  r.VolumeSerialNumber = static_cast<std::int32_t>(st.st_dev);
  r.FileIndexHigh = static_cast<std::int32_t>(static_cast<std::uint64_t>(st.st_ino) >> 32);
  r.FileIndexLow = static_cast<std::int32_t>(st.st_ino & 0xFFFFFFFF);
  r.NumberOfLinks = static_cast<std::int32_t>(st.st_nlink);

  ResultOptions o = Opts(7);
  o.CriterionHardlink = true;
  ResultModel m;
  m.SetOptions(o);
  m.Report_Create_Root_Node();
  const int g = m.Search_AddNewGroup(r);
  const std::string title = m.Caption(m.GroupRowByNumber(g));
  EXPECT_TRUE(title.ends_with(" (3)")) << title;
  GroupContext ctx;
  ctx.HardlinkId = "ID-7";
  EXPECT_EQ(m.GroupTitle(r, ctx), "ID-7 (3)");

  // File rows take the identity and the count from the record; a single
  // link shows "-" and count 0.
  const RowRef f1 = m.AddFileRow(g, r);
  EXPECT_EQ(CellAsInt(m.Cell(f1, CellKey::hardlinks)), 3);
  EXPECT_EQ(m.TextColor(f1), o.Colors.HardlinkTextColor);
  EXPECT_EQ(CellAsText(m.Cell(f1, CellKey::hardlinkID)) + " (3)", title);
  FileRecord single = Rec("d", "bin", 1);
  single.NumberOfLinks = 1;
  const RowRef f2 = m.AddFileRow(g, single);
  EXPECT_EQ(CellAsText(m.Cell(f2, CellKey::hardlinkID)), "-");
  EXPECT_EQ(CellAsInt(m.Cell(f2, CellKey::hardlinks)), 0);
}

TEST(Filling, RowsCellsAndTotals) {
  ResultOptions o = Opts(0, 2);
  o.SourceFolders[1] = "/mnt/b/";  // a closing slash is dropped
  o.GroupSize = true;
  o.GroupDateA = true;
  ResultModel m;
  m.SetOptions(o);
  m.Report_Create_Root_Node();
  EXPECT_EQ(m.Caption(RowRef{}), "Suchergebnis");
  EXPECT_EQ(m.RowCount(), 1);

  FileRecord a = Rec("song", "mp3", 5000, 1, "/music");
  const int g = m.Search_AddNewGroup(a);
  const RowRef group = m.GroupRowByNumber(g);
  EXPECT_EQ(m.BackColor(group), o.Colors.GroupBackColor);
  EXPECT_EQ(CellAsInt(m.Cell(group, CellKey::sizeG)), 5000);
  EXPECT_TRUE(m.HasCell(group, CellKey::dateVal));
  EXPECT_FALSE(m.HasCell(group, CellKey::dateEval));

  const RowRef fa = m.AddFileRow(g, a);
  FileRecord b = Rec("song", "mp3", 5000, 2, "");
  b.ArchiveType = 1;
  b.Path = "/backup/music.zip";
  b.PathInsideZip = "/inner";
  b.IsReferenceFile = true;
  b.PercentMatch = 97;
  FileRowExtras x;
  x.TmpPath = "/tmp/KVtemp/17";
  x.HasOwner = true;
  x.Owner = "anna";
  x.HasAudio = true;
  x.AudioDurationVal = 185;
  x.AudioBitrate = 320000;
  const RowRef fb = m.AddFileRow(g, b, x);

  EXPECT_EQ(m.File_GetPathFromNode(fa), "/data/src1/music/song.mp3");
  EXPECT_EQ(m.File_GetPathOnlyFromNode(fb), "/mnt/b/backup/music.zip");
  EXPECT_EQ(CellAsText(m.Cell(fb, "pathA")), "/inner");
  EXPECT_EQ(CellAsInt(m.Cell(fb, "archiv")), 1);
  EXPECT_EQ(CellAsText(m.Cell(fb, CellKey::tmppath)), "/tmp/KVtemp/17");
  EXPECT_EQ(CellAsText(m.Cell(fb, CellKey::owner)), "anna");
  EXPECT_EQ(CellAsText(m.Cell(fb, CellKey::AudioDuration)), "3:05");
  EXPECT_DOUBLE_EQ(CellAsDouble(m.Cell(fb, "AudioBitRate")), 320000);
  EXPECT_DOUBLE_EQ(CellAsDouble(m.Cell(fb, CellKey::similar)), 97);
  EXPECT_EQ(CellAsInt(m.Cell(fb, CellKey::IsRefFile)), 1);
  EXPECT_EQ(m.TextColor(fb), o.Colors.ReferenceFileTextColor);
  EXPECT_EQ(m.TextColor(fa), 0);
  EXPECT_FALSE(m.HasCell(fa, CellKey::pathA));
  EXPECT_FALSE(m.HasCell(fa, CellKey::similar));
  EXPECT_EQ(CellAsText(m.Cell(fa, CellKey::date)), FormatDate(45000.5, o.DateFormat));
  EXPECT_EQ(CellAsText(m.Cell(fa, CellKey::attr2)), "");
  EXPECT_EQ(CellAsText(m.Cell(fa, "nonsense")), "");

  EXPECT_EQ(CellAsInt(m.Cell(group, CellKey::anz)), 2);
  EXPECT_EQ(CellAsInt(m.Cell(group, CellKey::size)), 10000);
  EXPECT_EQ(m.DupCount(), 2);
  EXPECT_EQ(m.FilesizeAll(), 10000);
  EXPECT_EQ(m.GroupsCreated(), 1);
  EXPECT_EQ(m.SourceDupCount(1), 1);
  EXPECT_EQ(m.SourceDupSize(2), 5000);
  EXPECT_EQ(m.SourceDupCount(3), 0);
  EXPECT_EQ(m.RowCount(), 4);
  EXPECT_EQ(m.RowByIndex(3), fb);
  EXPECT_EQ(m.IndexOf(fa), 2);
  EXPECT_EQ(m.Level(1), kLevelGroup);
  EXPECT_EQ(m.Parent(fb), group);

  // Unknown keys stay as invisible fields of the row and are listed for saving.
  m.SetCell(fa, "9T", CellValue{std::string("hidden")});
  m.SetCell(fa, CellKey::picW, CellValue{std::string("640")});
  EXPECT_EQ(CellAsText(m.Cell(fa, "9T")), "hidden");
  EXPECT_EQ(CellAsInt(m.Cell(fa, CellKey::picW)), 640);
  bool sawHidden = false;
  for (const auto& [k, v] : m.Cells(fa)) sawHidden |= (k == "9T");
  EXPECT_TRUE(sawHidden);
}

TEST(Marks, CountersFollowFileSelectAndRemovals) {
  ResultModel m;
  m.SetOptions(Opts(0));
  Recorder rec;
  m.SetMarkObserver(&rec);
  Fill(m, {3, 2});
  const RowRef g0 = m.RowByIndex(1);
  const RowRef f00 = m.Child(g0, 0), f01 = m.Child(g0, 1), f02 = m.Child(g0, 2);

  m.File_Select(f00, true);
  m.File_Select(f01, true);
  m.Report_Set_Group_Checkbox_Image(g0);
  EXPECT_EQ(m.DupCountSelected(), 2);
  EXPECT_EQ(m.FilesizeSelected(), 2000);
  EXPECT_EQ(m.GroupSel(g0), 2);
  EXPECT_EQ(m.GetCheckState(g0), kCheckPartly);
  EXPECT_EQ(m.BackColor(f00), m.Options().Colors.SelectedFilesBackgroundColor);
  EXPECT_EQ(rec.rows, (std::vector<int>{2, 3}));

  m.File_Select(f02, true);
  m.Report_Set_Group_Checkbox_Image(g0);
  EXPECT_EQ(m.GetCheckState(g0), kCheckMarked);
  m.File_Select(f01, false);
  m.Report_Set_Group_Checkbox_Image(g0);
  EXPECT_EQ(m.GetCheckState(g0), kCheckPartly);
  EXPECT_EQ(m.BackColor(f01), kColorWhite);

  // Removing a marked file takes it out of all four counters.
  m.File_RemoveFromReport(f00);
  EXPECT_EQ(m.DupCount(), 4);
  EXPECT_EQ(m.DupCountSelected(), 1);
  EXPECT_EQ(m.FilesizeAll(), 4000);
  EXPECT_EQ(m.FilesizeSelected(), 1000);
  EXPECT_EQ(CellAsInt(m.Cell(g0, CellKey::anz)), 2);
  EXPECT_EQ(CellAsInt(m.Cell(g0, CellKey::size)), 2000);
  m.Report_Set_Group_Checkbox_Image(g0);
  EXPECT_EQ(m.GetCheckState(g0), kCheckPartly);

  // Unmarking with removedFromResult also lowers the total size.
  m.File_Select(f02, false, true);
  EXPECT_EQ(m.FilesizeAll(), 3000);
  EXPECT_EQ(m.DupCountSelected(), 0);

  // A whole group: counters drop by its files and marked files.
  const RowRef g1 = m.Child(RowRef{}, 1);
  m.File_Select(m.Child(g1, 0), true);
  m.Report_RemoveGroup(g1);
  EXPECT_EQ(m.GroupCount(), 1);
  EXPECT_EQ(m.DupCount(), 2);
  EXPECT_EQ(m.DupCountSelected(), 0);
  EXPECT_EQ(m.FilesizeSelected(), 0);
  EXPECT_EQ(m.RowCount(), 4);

  const DupCountFigures d = m.ShowDupCount();
  EXPECT_EQ(d.Pane3, " Gruppen: 1 ");
  EXPECT_EQ(d.Pane4, " Dateien: 2 \\ 0 ");
  EXPECT_EQ(d.Pane5, " Größe: 1.000 Bytes \\ 0 Bytes ");
  EXPECT_EQ(CellAsInt(m.Cell(RowRef{}, CellKey::anz)), 2);
}

TEST(Marks, CheckboxClicksOnGroupsAndFiles) {
  ResultModel m;
  ResultOptions o = Opts(0);
  o.Colors.UserSelectedFilesBackgroundColor = 0x00FF00;
  m.SetOptions(o);
  Recorder rec;
  m.SetMarkObserver(&rec);
  Fill(m, {3});
  const RowRef g = m.RowByIndex(1);
  m.Report_ChangeCheckboxStatus(m.Child(g, 1));  // row 3
  EXPECT_EQ(m.GetCheckState(g), kCheckPartly);
  EXPECT_EQ(m.BackColor(m.Child(g, 1)), 0x00FF00);

  // A partly marked group becomes marked; only the unmarked children change.
  rec.rows.clear();
  m.Report_ChangeCheckboxStatus(g);
  EXPECT_EQ(m.GetCheckState(g), kCheckMarked);
  EXPECT_EQ(rec.rows, (std::vector<int>{2, 4}));
  EXPECT_EQ(m.DupCountSelected(), 3);

  rec.rows.clear();
  m.Report_ChangeCheckboxStatus(g);
  EXPECT_EQ(m.GetCheckState(g), kCheckNone);
  EXPECT_EQ(rec.rows, (std::vector<int>{-2, -3, -4}));
  EXPECT_EQ(m.DupCountSelected(), 0);
  EXPECT_EQ(m.FilesizeSelected(), 0);
}

TEST(SourceFolders, OneSourceKeepsEveryGroup) {
  ResultModel m;
  m.SetOptions(Opts(0, 1));
  Fill(m, {2, 3});
  EXPECT_EQ(m.RemoveGroup_DupsNotExistAtAllSourcefolders(), 0);
  EXPECT_EQ(m.GroupCount(), 2);
  EXPECT_EQ(m.DupCount(), 5);
}

TEST(SourceFolders, GroupsMissingASourceGo) {
  ResultModel m;
  m.SetOptions(Opts(0, 3));
  m.Report_Create_Root_Node();
  auto group = [&](std::string name, std::vector<int> sources) {
    const int g = m.Search_AddNewGroup(Rec(name, "", 10));
    for (int s : sources) m.AddFileRow(g, Rec(name, "", 10, s));
    return g;
  };
  group("two-of-three", {1, 2, 2});
  group("all-three", {3, 1, 2});
  const int marked = group("marked", {1, 1});
  group("one", {3, 3});
  const RowRef mg = m.GroupRowByNumber(marked);
  m.Report_ChangeCheckboxStatus(mg);  // all files marked: exempt

  EXPECT_EQ(m.RemoveGroup_DupsNotExistAtAllSourcefolders(), 2);
  std::vector<std::string> left;
  m.ForEachGroup([&](RowRef g) {
    left.push_back(m.Caption(g));
    return true;
  });
  EXPECT_EQ(left, (std::vector<std::string>{"all-three", "marked"}));
  EXPECT_EQ(m.DupCount(), 5);
  EXPECT_EQ(m.FilesizeAll(), 50);
  EXPECT_EQ(m.DupCountSelected(), 2);
  EXPECT_EQ(CellAsInt(m.Cell(RowRef{}, CellKey::anz)), 5);
  EXPECT_EQ(m.RowCount(), 1 + 2 + 5);

  // A stop request ends the walk before it starts.
  ResultModel m2;
  m2.SetOptions(Opts(0, 2));
  Fill(m2, {2});
  RunState run;
  run.RequestStop(kStopUser);
  EXPECT_EQ(m2.RemoveGroup_DupsNotExistAtAllSourcefolders(&run), 0);
  EXPECT_EQ(m2.GroupCount(), 1);
}

// Bulk removal from the last row to the first: the rows that stay never move
// in storage (their handles stay valid through the walk), and index and
// handle agree at every step, also in one very large group.
TEST(BulkRemoval, ReverseWalkKeepsRowsInPlaceAndIndicesTrue) {
  ResultModel m;
  m.SetOptions(Opts(0));
  m.Report_Create_Root_Node();
  const int kFiles = 60000;
  const int g1 = m.Search_AddNewGroup(Rec("big", "", 1));
  for (int i = 0; i < kFiles; ++i) m.AddFileRow(g1, Rec("f" + std::to_string(i), "", 1));
  const int g2 = m.Search_AddNewGroup(Rec("small", "", 1));
  for (int i = 0; i < 5; ++i) m.AddFileRow(g2, Rec("s" + std::to_string(i), "", 1));

  std::vector<RowRef> keep;
  for (int i = 0; i < kFiles; i += 3) keep.push_back(m.Child(m.GroupRowByNumber(g1), i));
  const int rows = m.RowCount();
  ASSERT_EQ(rows, 1 + 1 + kFiles + 1 + 5);

  int removed = 0;
  for (int idx = rows - 1; idx >= 1; --idx) {
    const RowRef r = m.RowByIndex(idx);
    ASSERT_EQ(m.IndexOf(r), idx);
    if (m.Level(r) == kLevelFile) {
      const int pos = std::stoi(std::string(m.FileName(r)).substr(1));
      if (m.FileName(r)[0] == 's' || pos % 3 != 0) {
        m.File_RemoveFromReport(r);
        ++removed;
      }
    } else if (m.ChildCount(r) == 0) {
      m.Report_RemoveGroup(r);
    }
  }
  EXPECT_EQ(removed, kFiles - static_cast<int>(keep.size()) + 5);
  EXPECT_EQ(m.GroupCount(), 1);
  EXPECT_EQ(m.DupCount(), static_cast<int>(keep.size()));
  EXPECT_EQ(m.RowCount(), 2 + static_cast<int>(keep.size()));
  for (std::size_t i = 0; i < keep.size(); ++i) {
    ASSERT_TRUE(m.IsValid(keep[i]));
    EXPECT_EQ(m.IndexOf(keep[i]), 2 + static_cast<int>(i));
    EXPECT_EQ(m.FileName(keep[i]), "f" + std::to_string(3 * i));
  }
  // After compaction the same rows stand at the same indices.
  m.Compact();
  for (std::size_t i = 0; i < keep.size(); i += 997) {
    EXPECT_EQ(m.FileName(m.RowByIndex(2 + static_cast<int>(i))), "f" + std::to_string(3 * i));
  }
  // Files can still be added after holes were made.
  const RowRef added = m.AddFileRow(m.RowByIndex(1).group, Rec("late", "", 7));
  EXPECT_EQ(m.IndexOf(added), m.RowCount() - 1);
}

TEST(Sorting, GroupsByTitleThenFiles) {
  ResultModel m;
  m.SetOptions(Opts(0));
  m.Report_Create_Root_Node();
  for (std::string title : {"beta", "Alpha", "gamma"}) {
    const int g = m.Search_AddNewGroup(Rec(title, "", 1));
    for (std::string f : {"zeta.txt", "Eta.txt", "alpha.txt"}) m.AddFileRowRaw(g, f, "/x", 1, 1);
  }
  m.File_RemoveFromReport(m.RowByIndex(2));  // leaves a hole before sorting
  m.SortRows();
  std::vector<std::string> shown;
  for (int i = 1; i < m.RowCount(); ++i) shown.push_back(m.Caption(m.RowByIndex(i)));
  EXPECT_EQ(shown, (std::vector<std::string>{"Alpha", "alpha.txt", "Eta.txt", "zeta.txt", "beta",
                                             "alpha.txt", "Eta.txt", "gamma", "alpha.txt",
                                             "Eta.txt", "zeta.txt"}));
}

TEST(Sorting, SizeGroupsBiggestFirstAndSizeFormatCaptions) {
  ResultModel m;
  ResultOptions o = Opts(3);
  o.GroupSize = true;
  m.SetOptions(o);
  m.Report_Create_Root_Node();
  for (std::int64_t size : {2048, 1048576, 512}) {
    const int g = m.Search_AddNewGroup(Rec("a", "", size));
    m.AddFileRow(g, Rec("a", "", size));
    m.AddFileRow(g, Rec("b", "", size));
  }
  m.SortRows();
  m.Group_ExpandAll();
  std::vector<std::string> groups;
  m.ForEachGroup([&](RowRef g) {
    groups.push_back(m.Caption(g));
    EXPECT_TRUE(m.Expanded(g));
    return true;
  });
  EXPECT_EQ(groups, (std::vector<std::string>{"1048576", "2048", "512"}));

  EXPECT_FALSE(m.Report_ChangeFileSize(kSizeBytes));
  EXPECT_TRUE(m.Report_ChangeFileSize(kSizeKB));
  const RowRef first = m.RowByIndex(1);
  EXPECT_EQ(m.Caption(first), "1.024,00 KB");
  EXPECT_EQ(CellAsText(m.Cell(first, CellKey::dupname)), "1048576");
  EXPECT_EQ(m.SizeColumnText(first), "2.048,00");
  EXPECT_EQ(m.File_GetSize(m.Child(first, 0)), 1048576);
}

TEST(FilesWithoutDups, OneHandMadeGroup) {
  ResultModel m;
  ResultOptions o = Opts(0);
  o.GroupSize = true;
  m.SetOptions(o);
  Fill(m, {2});
  const int g = m.BeginFilesWithoutDupsGroup();
  EXPECT_EQ(m.DupCount(), 0);
  m.AddFileRow(g, Rec("lonely", "txt", 10));
  m.AddFileRow(g, Rec("single", "txt", 30));
  m.FinishFilesWithoutDupsGroup(g);
  const RowRef group = m.GroupRowByNumber(g);
  EXPECT_EQ(m.Caption(group), "Dateien ohne Duplikate");
  EXPECT_EQ(CellAsInt(m.Cell(group, CellKey::anz)), 2);
  EXPECT_FALSE(m.HasCell(group, CellKey::sizeG));
  EXPECT_EQ(m.File_GetSize(m.Child(group, 1)), 30);
  EXPECT_EQ(m.GroupCount(), 1);
  EXPECT_EQ(m.FilesizeAll(), 40);
}

TEST(FilesWithoutDups, GroupTitleFollowsTheLanguage) {
  test::TempDir dir;
  const auto file = dir.Write("lang_en.txt", "9229,\"Files without duplicates\"\n");
  TextCatalog english;
  english.SetLanguage(kLangEnglish);
  ASSERT_TRUE(english.LoadTextFromFile(file));
  ResultModel m(&english);
  m.SetOptions(Opts(0));
  const int g = m.BeginFilesWithoutDupsGroup();
  m.AddFileRow(g, Rec("lonely", "txt", 10));
  m.FinishFilesWithoutDupsGroup(g);
  EXPECT_EQ(m.Caption(m.GroupRowByNumber(g)), "Files without duplicates");
}

}  // namespace
}  // namespace kelvor
