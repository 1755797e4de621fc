// The terminal's progress line: German by default, translated by a language
// file like every other text.

#include <gtest/gtest.h>

#include "frame/texts.h"
#include "headless/headless.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

TEST(ProgressLine, GermanByDefaultAndTranslatedByALanguageFile) {
  TextCatalog german;
  EXPECT_EQ(ProgressLine(german, "0:00:05", "1.234", "12", "5"),
            "0:00:05  Dateien: 1.234  Duplikate: 12  Gruppen: 5");

  test::TempDir dir;
  const auto file =
      dir.Write("lang_en.txt", "9420,\"%1  Files: %2  Duplicates: %3  Groups: %4\"\n");
  TextCatalog english;
  english.SetLanguage(kLangEnglish);
  ASSERT_TRUE(english.LoadTextFromFile(file));
  EXPECT_EQ(ProgressLine(english, "0:00:05", "1,234", "12", "5"),
            "0:00:05  Files: 1,234  Duplicates: 12  Groups: 5");
}

}  // namespace
}  // namespace kelvor
