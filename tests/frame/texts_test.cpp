#include <gtest/gtest.h>

#include <sys/stat.h>

#include <set>

#include "frame/settings_store.h"
#include "frame/text_file.h"
#include "frame/texts.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::TempDir;

std::string Utf16be(std::string_view utf8) {
  std::string le = Utf16leWithBom(utf8);
  for (std::size_t i = 0; i + 1 < le.size(); i += 2) std::swap(le[i], le[i + 1]);
  return le;
}

TEST(Texts, GermanDefaultsAndParameters) {
  TextCatalog german;
  EXPECT_EQ(german.Get(txt::T3681, {"/x"}), "Der Quellordner '/x' konnte nicht gefunden werden!");
  EXPECT_EQ(german.Get(txt::T3628, {"/a", "/b"}),
            "Der Suchvorgang kann nicht durchgeführt werden:\r\n\r\n'/a' und '/b' überschneiden "
            "sich.");
  // Parameters in any order, and a parameter's own "%2" is not replaced again.
  EXPECT_EQ(german.Get(0, "%2 vor %1", {"%2", "B"}), "B vor %2");
  EXPECT_EQ(german.Get(0, "100%", {"x"}), "100%");
}

TEST(Texts, LanguageFilesInEveryEncoding) {
  TempDir dir;
  const std::string body =
      "# Kommentar\r\n"
      "\r\n"
      "3681,\"Source folder '%1' not found!\"\r\n"
      "ohne Komma wird übergangen\r\n"
      "3627,\"\"\r\n"
      "3626,|No criterion chosen.|";
  const auto files = {
      dir.Write("le.txt", Utf16leWithBom(body)),
      dir.Write("be.txt", Utf16be(body)),
      dir.Write("bom8.txt", "\xEF\xBB\xBF" + body),
      dir.Write("u8.txt", body),
  };
  for (const auto& f : files) {
    TextCatalog c;
    c.SetLanguage(kLangEnglish);
    ASSERT_TRUE(c.LoadTextFromFile(f)) << f;
    EXPECT_EQ(c.Size(), 3u) << f;
    EXPECT_EQ(c.Get(txt::T3681, {"/x"}), "Source folder '/x' not found!") << f;
    EXPECT_EQ(c.Get(txt::T3626), "No criterion chosen.") << f;
    EXPECT_EQ(c.Get(txt::T3627), "Es ist kein Quellordner ausgewählt!") << f;   // empty: German
    EXPECT_EQ(c.Get(txt::T3628, {"a", "b"}).substr(0, 10), "Der Suchvo") << f;  // missing
  }
  // A file in a single-byte code page: read as Latin-1.
  const auto latin = dir.Write("l1.txt",
                               "9001,\"Gr\xF6\xDF"
                               "e\"\n");
  TextCatalog c;
  c.SetLanguage(kLangEnglish);
  ASSERT_TRUE(c.LoadTextFromFile(latin));
  EXPECT_EQ(c.Get(9001, "x"), "Größe");
  EXPECT_FALSE(c.LoadTextFromFile(dir / "none.txt"));
}

TEST(Texts, InitSpracheChoosesLanguageAndFile) {
  TempDir dir;
  const auto lang = dir.Mkdir("lang");
  dir.Write("lang/lang_eng.txt", Utf16leWithBom("3627,\"No source folder!\"\r\n"));
  dir.Write("lang/lang_fre.txt", "3627,\"Aucun dossier source !\"\n");
  dir.Write("lang/lang.txt", "3627,\"Eigene Übersetzung\"\n");

  SettingsStore s;
  TextCatalog c;
  s.SetInt("Allgemein", "Lang", 12);
  c.Init_Sprache(s, lang);
  EXPECT_EQ(c.Language(), 12);
  EXPECT_EQ(c.Get(txt::T3627), "Aucun dossier source !");

  s.SetInt("Allgemein", "Lang", 16);  // no Italian file: English
  c.Init_Sprache(s, lang);
  EXPECT_EQ(c.Language(), kLangEnglish);
  EXPECT_EQ(c.Get(txt::T3627), "No source folder!");

  s.SetInt("Allgemein", "Lang", 4242);  // unknown code: English
  c.Init_Sprache(s, lang);
  EXPECT_EQ(c.Language(), kLangEnglish);

  s.SetBool("Allgemein", "UseLangTxt", true);
  c.Init_Sprache(s, lang);
  EXPECT_EQ(c.Language(), kLangUser);
  EXPECT_EQ(c.Get(txt::T3627), "Eigene Übersetzung");

  // German reads no file, whatever the folder holds.
  dir.Write("lang/lang_ger.txt", "3627,\"should not be read\"\n");
  s.SetBool("Allgemein", "UseLangTxt", false);
  s.SetInt("Allgemein", "Lang", kLangGerman);
  c.Init_Sprache(s, lang);
  EXPECT_EQ(c.Language(), kLangGerman);
  EXPECT_EQ(c.Size(), 0u);
  EXPECT_EQ(c.Get(txt::T3627), "Es ist kein Quellordner ausgewählt!");

  std::string message;
  s.SetInt("Allgemein", "Lang", 12);
  c.Init_Sprache(s, dir / "nolang", &message);
  EXPECT_EQ(c.Language(), kLangEnglish);
  EXPECT_NE(message.find("lang_eng.txt"), std::string::npos);
}

TEST(Texts, AFifoAsLanguageFileIsRefusedWithoutWaiting) {
  TempDir dir;
  const auto lang = dir.Mkdir("lang");
  const auto fifo = lang / "lang_fre.txt";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
  test::HangGuard guard(std::chrono::seconds(20), "loading a FIFO as a language file");
  SettingsStore s;
  s.SetInt("Allgemein", "Lang", 12);
  TextCatalog c;
  std::string message;
  c.Init_Sprache(s, lang, &message);
  EXPECT_NE(message.find("Die Sprachdatei '" + fifo.string() + "' konnte nicht gelesen werden."),
            std::string::npos)
      << message;
  EXPECT_NE(message.find("keine reguläre Datei"), std::string::npos) << message;
  EXPECT_EQ(c.Size(), 0u);
  EXPECT_EQ(c.Get(txt::T3627), "Es ist kein Quellordner ausgewählt!");
}

TEST(Texts, LocaleNamesMapToLanguageCodes) {
  EXPECT_EQ(LanguageCodeFromLocale("de_DE.UTF-8"), 7);
  EXPECT_EQ(LanguageCodeFromLocale("fr_CA"), 12);
  EXPECT_EQ(LanguageCodeFromLocale("zh_TW.UTF-8"), 888888);
  EXPECT_EQ(LanguageCodeFromLocale("zh_CN.UTF-8"), 4);
  EXPECT_EQ(LanguageCodeFromLocale("sl_SI@euro"), 36);
  EXPECT_EQ(LanguageCodeFromLocale("C"), 0);
  EXPECT_EQ(LanguageFileName(9), "lang_eng.txt");
  EXPECT_EQ(LanguageFileName(999999), "lang.txt");
  EXPECT_EQ(LanguageFileName(7), "");
}

TEST(Texts, TemplateHoldsEveryTextAndLoadsBack) {
  TempDir dir;
  const auto file = dir / "lang.txt";
  ASSERT_TRUE(TextCatalog::WriteTemplate(file));
  TextCatalog c;
  c.SetLanguage(kLangUser);
  ASSERT_TRUE(c.LoadTextFromFile(file));
  std::size_t count = 0;
  const TextDef* all = AllTexts(&count);
  ASSERT_GT(count, 0u);
  EXPECT_EQ(c.Size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(c.Get(all[i].number, "?"), TextCatalog{}.Get(all[i])) << all[i].number;
  }
}

// The English file shipped with Kelvor has a line for every text of the
// program, and each English text keeps the placeholders of its German one.
TEST(Texts, EnglishCoversEveryTextWithItsPlaceholders) {
  SettingsStore settings;
  settings.Set("Allgemein", "Lang", "9");
  TextCatalog english;
  std::string message;
  english.Init_Sprache(settings, KELVOR_LANG_DIR, &message);
  ASSERT_EQ(english.Language(), kLangEnglish);
  ASSERT_TRUE(message.empty()) << message;
  auto placeholders = [](std::string_view text) {
    std::set<std::string> found;
    for (std::size_t at = text.find('%'); at != std::string_view::npos && at + 1 < text.size();
         at = text.find('%', at + 1))
      if (text[at + 1] >= '1' && text[at + 1] <= '9') found.insert(std::string(text.substr(at, 2)));
    return found;
  };
  std::size_t count = 0;
  const TextDef* all = AllTexts(&count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string shown = english.Get(all[i].number, "\x01none");
    EXPECT_NE(shown, "\x01none") << all[i].number << " has no English line";
    EXPECT_EQ(placeholders(shown), placeholders(all[i].german)) << all[i].number << ": " << shown;
  }
}

}  // namespace
}  // namespace kelvor
