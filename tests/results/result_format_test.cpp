// Size formats, date masks of groups, cell keys and colour settings.

#include <gtest/gtest.h>

#include "frame/settings_store.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

TEST(ResultSizeFormat, AutomaticUnitChoosesByThresholds) {
  TextCatalog t;
  EXPECT_EQ(FormatFileSize(0, true, t), "0 Bytes");
  EXPECT_EQ(FormatFileSize(1024, true, t), "1.024 Bytes");
  EXPECT_EQ(FormatFileSize(1536, true, t), "1,50 KB");
  EXPECT_EQ(FormatFileSize(1048576, false, t), "1.024,00");
  EXPECT_EQ(FormatFileSize(3 * 1048576, true, t), "3,00 MB");
  // Up to 999 MiB the unit is MB; one byte more is already GB.
  EXPECT_EQ(FormatFileSize(1047527424, true, t), "999,00 MB");
  EXPECT_EQ(FormatFileSize(1047527425, true, t), "0,98 GB");
  EXPECT_EQ(FormatFileSize(1048576000, true, t), "0,98 GB");
  EXPECT_EQ(FormatFileSize(1099511627776LL, true, t), "1.024,00 GB");
  EXPECT_EQ(FormatFileSize(2 * 1099511627776LL, true, t), "2,00 TB");
}

TEST(ResultSizeFormat, FixedFormatsHaveCellAndTextForms) {
  TextCatalog t;
  const std::int64_t b = 5 * 1048576 + 524288;  // 5.5 MiB
  EXPECT_EQ(FormatFileSizeAs(b, kSizeBytes, true, t), "5.767.168");
  EXPECT_EQ(FormatFileSizeAs(b, kSizeKB, false, t), "5.632,00");
  EXPECT_EQ(FormatFileSizeAs(b, kSizeKB, true, t), "5.632,00 KB");
  EXPECT_EQ(FormatFileSizeAs(b, kSizeMB, true, t), "5,50 MB");
  EXPECT_EQ(FormatFileSizeAs(b, kSizeGB, false, t), "0,01");
  EXPECT_EQ(FormatFileSizeAs(b, kSizeEmpty, true, t), "");
  EXPECT_EQ(FormatFileSizeAs(3 * 1099511627776LL, kSizeTB, true, t), "3,00 TB");
  EXPECT_EQ(SizeFormatUnit(kSizeGB, t), "GB");
  EXPECT_EQ(FormatDecimal2(-1234.567), "-1.234,57");
}

TEST(ResultDates, GroupMaskAndValueFollowTheDateOptions) {
  ResultOptions o;
  o.DateFormat = "dd/MM/yyyy hh:nn:ss";
  EXPECT_EQ(GroupDateMask(o), "dd/MM/yyyy hh:nn:ss");
  o.IgnoreSeconds = true;
  EXPECT_EQ(GroupDateMask(o), "dd/MM/yyyy hh:nn");
  const double d = 45000.0 + (10 * 3600 + 5 * 60 + 42) / 86400.0;
  EXPECT_NEAR(GroupDateValue(d, o), 45000.0 + (10 * 3600 + 5 * 60) / 86400.0, 1e-9);
  o.IgnoreTime = true;
  EXPECT_EQ(GroupDateMask(o), "dd/MM/yyyy");
  EXPECT_EQ(GroupDateValue(d, o), 45000.0);
  o.DateFormat = "MM/dd/yyyy h:n:s AM/PM";
  EXPECT_EQ(GroupDateMask(o), "MM/dd/yyyy");
}

TEST(ResultCells, KeysRoundTripAndConvert) {
  for (int i = 0; i < kCellKeyCount; ++i) {
    CellKey k{};
    ASSERT_TRUE(CellKeyFromName(CellKeyName(static_cast<CellKey>(i)), &k));
    EXPECT_EQ(static_cast<int>(k), i);
  }
  CellKey k{};
  EXPECT_TRUE(CellKeyFromName("AudioBitRate", &k));
  EXPECT_EQ(k, CellKey::AudioBitrate);
  EXPECT_FALSE(CellKeyFromName("RTFpath", &k));
  EXPECT_EQ(CellAsInt(CellValue{}), 0);
  EXPECT_EQ(CellAsInt(CellValue{std::string("42")}), 42);
  EXPECT_EQ(CellAsInt(CellValue{std::string("abc")}), 0);
  EXPECT_DOUBLE_EQ(CellAsDouble(CellValue{std::string("2.5")}), 2.5);
  EXPECT_EQ(CellAsText(CellValue{std::int64_t{7}}), "7");
  EXPECT_EQ(CellAsText(CellValue{3.0}), "3");
}

TEST(ResultColorsSettings, ReadFromConfigWithDefaultsForBrokenValues) {
  test::TempDir dir;
  const auto file = dir.Write("config4.ini",
                              "[Optionen]\nGroupBackColor=255\nHardlinkTextColor=-5\n"
                              "ArchiveFileTextColor=abc\n");
  SettingsStore s;
  std::string error;
  ASSERT_TRUE(EinstellungenLaden(s, file, &error)) << error;
  const ResultColors c = LoadResultColors(s);
  EXPECT_EQ(c.GroupBackColor, 255);
  EXPECT_EQ(c.HardlinkTextColor, 10053222);
  EXPECT_EQ(c.ReferenceFileTextColor, 4297405);
  EXPECT_EQ(c.SelectedFilesBackgroundColor, 16777215);
}

}  // namespace
}  // namespace kelvor
