// The tree adapter over a result model filled as a search fills it: what
// each row shows in each column, its colours and check boxes, and the
// headings for what the groups share.

#include "gui/result_tree_model.h"

#include <QColor>
#include <QSignalSpy>
#include <memory>

#include <gtest/gtest.h>

#include "frame/texts.h"
#include "results/result_model.h"

inline void PrintTo(const QString& s, std::ostream* os) {
  *os << '"' << s.toStdString() << '"';
}

namespace kelvor::gui {
namespace {

FileRecord File(std::string name, std::int64_t size, std::string sub = "/a") {
  FileRecord r;
  r.SourceNr = 1;
  r.Path = std::move(sub);
  r.Name = std::move(name);
  r.Extension = "jpg";
  r.SIZE = size;
  r.DateLastModified = 45000.5;
  return r;
}

class ResultTreeModelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResultOptions o;
    o.GroupTitleMode = 3;  // groups of one size
    o.GroupSize = true;
    o.SourceFolders = {"/data"};
    result_.SetOptions(o);
    result_.Report_Create_Root_Node();
    // A group of a plain file, an archive member, a file in a reference
    // folder and a file with three hard links.
    FileRecord plain = File("plain", 2048);
    const int g = result_.Search_AddNewGroup(plain);
    result_.AddFileRow(g, plain);
    FileRecord member = File("member", 2048, "/a/pack.zip");
    member.ArchiveType = 1;
    member.PathInsideZip = "inner/dir";
    result_.AddFileRow(g, member);
    FileRecord ref = File("ref", 2048, "/b");
    ref.IsReferenceFile = true;
    result_.AddFileRow(g, ref);
    FileRowExtras links;
    links.HasHardlinks = true;
    links.Hardlinks = 3;
    links.HardlinkID = "00-11-22";
    result_.AddFileRow(g, File("linked", 2048, "/c"), links);
    // A second group: a similar picture at 87 % and one with a single link.
    FileRecord a = File("x", 1);
    const int g2 = result_.Search_AddNewGroup(a);
    a.PercentMatch = 87;
    FileRowExtras one;
    one.HasHardlinks = true;
    one.Hardlinks = 1;
    result_.AddFileRow(g2, a, one);
    result_.AddFileRow(g2, File("y", 1, "/z"));
    model_.SetResult(&result_);
  }

  QModelIndex Row(int group, int file = -1, int column = 0) {
    const QModelIndex g = model_.index(group, column, model_.index(0, 0));
    return file < 0 ? g : model_.index(file, column, model_.index(group, 0, model_.index(0, 0)));
  }
  QString Text(const QModelIndex& i) { return model_.data(i, Qt::DisplayRole).toString(); }
  QColor Fore(const QModelIndex& i) { return model_.data(i, Qt::ForegroundRole).value<QColor>(); }

  TextCatalog texts_;
  ResultModel result_{&texts_};
  ResultTreeModel model_{texts_};
};

TEST_F(ResultTreeModelTest, IndexesRoundTripThroughTheRowsOfTheResult) {
  ASSERT_EQ(model_.rowCount(), 1);
  ASSERT_EQ(model_.rowCount(model_.index(0, 0)), 2);
  EXPECT_EQ(model_.rowCount(Row(0)), 4);
  EXPECT_EQ(model_.rowCount(Row(1)), 2);
  EXPECT_FALSE(model_.hasChildren(Row(0, 2)));
  for (int g = 0; g < 2; ++g)
    for (int f = 0; f < model_.rowCount(Row(g)); ++f) {
      const QModelIndex i = Row(g, f, 3);
      EXPECT_EQ(model_.parent(i), Row(g));
      EXPECT_EQ(model_.parent(Row(g)), model_.index(0, 0));
      EXPECT_EQ(model_.IndexOf(model_.RowOf(i), 3), i);
    }
  EXPECT_FALSE(model_.index(4, 0, Row(0)).isValid());
  EXPECT_FALSE(model_.index(0, kColumnCount, Row(0)).isValid());
}

TEST_F(ResultTreeModelTest, ColumnsShowTheirCellsByTheirMasks) {
  EXPECT_EQ(Text(Row(0, 0, 1)), "plain.jpg");
  EXPECT_EQ(Text(Row(0, 0, 2)), "/data/a");
  EXPECT_EQ(Text(Row(0, 1, 2)), "/data/a/pack.zip");
  EXPECT_EQ(Text(Row(0, 1, 3)), "inner/dir");
  EXPECT_EQ(Text(Row(0, 0, 3)), "");
  EXPECT_EQ(Text(Row(0, -1, 4)), "4");      // files in the group
  EXPECT_EQ(Text(Row(0, -1, 5)), "8.192");  // the group's bytes, grouped
  EXPECT_EQ(Text(Row(0, 3, 10)), "3");      // three links
  EXPECT_EQ(Text(Row(0, 3, 14)), "00-11-22");
  EXPECT_EQ(Text(Row(1, 0, 10)), "-");  // a single link
  EXPECT_EQ(Text(Row(1, 1, 10)), "");   // links unknown
  EXPECT_EQ(Text(Row(1, 0, 11)), "87%");
  EXPECT_EQ(Text(Row(1, 1, 11)), "");
  EXPECT_EQ(model_.data(Row(0, 0, 5), Qt::TextAlignmentRole).value<int>() & Qt::AlignRight,
            Qt::AlignRight);
  EXPECT_EQ(model_.data(Row(0, 0, 2), Qt::TextAlignmentRole).value<int>() & Qt::AlignLeft,
            Qt::AlignLeft);
  EXPECT_EQ(ColumnIdOfCommand(66), 2);
  EXPECT_EQ(ColumnIdOfCommand(417), 17);
  EXPECT_EQ(ColumnIdOfCommand(28), 0);
}

TEST_F(ResultTreeModelTest, RowsWearTheColoursOfWhatTheyAre) {
  const ResultColors c;
  EXPECT_EQ(model_.data(Row(0), Qt::BackgroundRole).value<QColor>(),
            ColorFromSetting(c.GroupBackColor));
  EXPECT_EQ(Fore(Row(0)), ColorFromSetting(c.GroupTextColor));
  EXPECT_FALSE(model_.data(Row(0, 0), Qt::ForegroundRole).isValid());  // the theme's
  EXPECT_EQ(Fore(Row(0, 1)), ColorFromSetting(c.ArchiveFileTextColor));
  EXPECT_EQ(Fore(Row(0, 2)), ColorFromSetting(c.ReferenceFileTextColor));
  EXPECT_EQ(Fore(Row(0, 3)), ColorFromSetting(c.HardlinkTextColor));
  // 16382443 is 0xF9F9EB: red EB, green F9, blue F9.
  EXPECT_EQ(ColorFromSetting(16382443), QColor(0xEB, 0xF9, 0xF9));
}

TEST_F(ResultTreeModelTest, CheckBoxesHaveThreeStatesOnGroupsAndTwoOnFiles) {
  QSignalSpy marks(&model_, &ResultTreeModel::marksChanged);
  EXPECT_FALSE(model_.data(model_.index(0, 0), Qt::CheckStateRole).isValid());  // the root
  EXPECT_FALSE(model_.flags(model_.index(0, 0)) & Qt::ItemIsUserCheckable);
  EXPECT_TRUE(model_.flags(Row(0, 1)) & Qt::ItemIsUserCheckable);
  EXPECT_TRUE(model_.setData(Row(0, 1), Qt::Checked, Qt::CheckStateRole));
  EXPECT_EQ(model_.data(Row(0, 1), Qt::CheckStateRole).value<int>(), Qt::Checked);
  EXPECT_EQ(model_.data(Row(0), Qt::CheckStateRole).value<int>(), Qt::PartiallyChecked);
  EXPECT_EQ(result_.DupCountSelected(), 1);
  // Whatever state is proposed, a partly marked group becomes marked.
  EXPECT_TRUE(model_.setData(Row(0), Qt::Unchecked, Qt::CheckStateRole));
  EXPECT_EQ(model_.data(Row(0), Qt::CheckStateRole).value<int>(), Qt::Checked);
  EXPECT_EQ(result_.DupCountSelected(), 4);
  EXPECT_EQ(result_.FilesizeSelected(), 4 * 2048);
  EXPECT_TRUE(model_.setData(Row(0), Qt::Checked, Qt::CheckStateRole));
  EXPECT_EQ(model_.data(Row(0), Qt::CheckStateRole).value<int>(), Qt::Unchecked);
  EXPECT_EQ(result_.DupCountSelected(), 0);
  EXPECT_EQ(marks.count(), 3);
  EXPECT_FALSE(model_.setData(Row(0, 1, 2), Qt::Checked, Qt::CheckStateRole));  // no box there
}

TEST_F(ResultTreeModelTest, HeadingsNameWhatGroupsShareAndTheSizeUnit) {
  model_.SetHeadings(3);
  EXPECT_EQ(model_.headerData(1, Qt::Horizontal, Qt::DisplayRole).toString(),
            "Gruppe - Dateigröße (Bytes)");
  EXPECT_EQ(model_.headerData(5, Qt::Horizontal, Qt::DisplayRole).toString(), "Größe (Bytes)");
  model_.ChangeSizeFormat(kSizeKB);
  EXPECT_EQ(model_.headerData(1, Qt::Horizontal, Qt::DisplayRole).toString(),
            "Gruppe - Dateigröße (KB)");
  EXPECT_EQ(model_.headerData(5, Qt::Horizontal, Qt::DisplayRole).toString(), "Größe (KB)");
  EXPECT_EQ(Text(Row(0, -1, 5)), "8,00");
  EXPECT_EQ(Text(Row(0, -1, 1)), "2,00 KB");
  model_.SetHeadings(1);
  EXPECT_EQ(model_.headerData(1, Qt::Horizontal, Qt::DisplayRole).toString(),
            "Gruppe - Dateiname mit Endung");
  model_.SetHeadings(42);
  EXPECT_EQ(model_.headerData(1, Qt::Horizontal, Qt::DisplayRole).toString(), "Gruppe - ???");
  EXPECT_EQ(model_.headerData(10, Qt::Horizontal, Qt::DisplayRole).toString(), "Hardlinks");
  EXPECT_EQ(model_.headerData(16, Qt::Horizontal, Qt::DisplayRole).toString(), "Bitrate");
}

}  // namespace
}  // namespace kelvor::gui
