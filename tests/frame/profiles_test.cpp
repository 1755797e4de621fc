#include <gtest/gtest.h>

#include <sys/stat.h>

#include "fake_prompt.h"
#include "frame/profiles.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::FakePrompt;
using test::TempDir;

TEST(Profiles, NewSaveListLoadRenameDelete) {
  TempDir dir;
  const auto folder = dir / "profile";
  const TextCatalog texts;
  FakePrompt prompt;

  SettingsStore s;
  s.SetInt("DupVerz", "ContentCompare", 0);
  // The source list's rows are numbered from 1.
  s.Set("Ordnerlist", "V1", "/musik");
  s.Set("Ordnerlist", "A1", "1");
  s.Set("Ordnerlist", "V2", "/hoerbuch");

  prompt.inputs = {std::string("Bilder")};
  ASSERT_EQ(Profil_New(folder, s, prompt, texts), "Bilder");
  EXPECT_EQ(prompt.questions.back(), "Profilname:");
  EXPECT_EQ(prompt.messages.back(), "Profil wurde gespeichert.");
  prompt.inputs = {std::string("Alles")};
  ASSERT_EQ(Profil_New(folder, s, prompt, texts), "Alles");
  std::filesystem::create_directories(folder / "no.pro4.d");
  dir.Write("profile/notes.txt", "x");
  EXPECT_EQ(Init_ProfileList(folder), (std::vector<std::string>{"Alles", "Bilder"}));

  // An existing name, an empty answer and cancel save nothing.
  prompt.inputs = {std::string("Bilder"), std::string(""), std::nullopt};
  EXPECT_FALSE(Profil_New(folder, s, prompt, texts));
  EXPECT_EQ(prompt.messages.back(), "Ein Profil mit dem Namen 'Bilder' ist schon vorhanden!");
  const auto count = prompt.messages.size();
  EXPECT_FALSE(Profil_New(folder, s, prompt, texts));
  EXPECT_FALSE(Profil_New(folder, s, prompt, texts));
  EXPECT_EQ(prompt.messages.size(), count);

  // Loading: a profile with folders brings them; one without keeps the
  // current list unless "ProfileKeineQuellordner" is off.
  // The profile's list replaces the current one as a whole, also under the
  // default "ProfileKeineQuellordner".
  SettingsStore current;
  current.Set("Ordnerlist", "V1", "/home");
  current.Set("Ordnerlist", "V2", "/srv");
  current.Set("Ordnerlist", "V3", "/tmp");
  current.SetInt("Allgemein", "Lang", 9);
  ASSERT_TRUE(current.GetBool("DupVerz", "ProfileKeineQuellordner"));
  std::string error;
  ASSERT_TRUE(Profil_Load(folder, "Bilder", current, texts, &error)) << error;
  EXPECT_EQ(current.GetInt("DupVerz", "ContentCompare"), 0);
  EXPECT_EQ(current.Get("Ordnerlist", "V1"), "/musik");
  EXPECT_EQ(current.Get("Ordnerlist", "A1"), "1");
  EXPECT_EQ(current.Get("Ordnerlist", "V2"), "/hoerbuch");
  EXPECT_FALSE(current.Has("Ordnerlist", "V3"));
  EXPECT_EQ(current.GetInt("Allgemein", "Lang"), 9);
  SettingsStore noFolders;
  noFolders.SetInt("DupVerz", "NullByte", 1);
  prompt.inputs = {std::string("Leer")};
  ASSERT_EQ(Profil_New(folder, noFolders, prompt, texts), "Leer");
  ASSERT_TRUE(Profil_Load(folder, "Leer", current, texts, &error));
  EXPECT_EQ(current.Get("Ordnerlist", "V1"), "/musik");
  EXPECT_EQ(current.Get("Ordnerlist", "V2"), "/hoerbuch");
  EXPECT_EQ(current.GetInt("DupVerz", "NullByte"), 1);
  current.SetBool("DupVerz", "ProfileKeineQuellordner", false);
  ASSERT_TRUE(Profil_Load(folder, "Leer", current, texts, &error));
  EXPECT_FALSE(current.Has("Ordnerlist", "V1"));
  std::filesystem::remove(ProfilePath(folder, "Leer"));
  EXPECT_EQ(ProfileWindowTitle("Kelvor", "Bilder"), "Kelvor - Bilder");
  EXPECT_FALSE(Profil_Load(folder, "Fehlt", current, texts, &error));
  EXPECT_EQ(error, "Das Profil 'Fehlt' konnte nicht gefunden werden.");

  // Comment.
  ASSERT_TRUE(Profil_Save_Comment(folder, "Bilder", "nur Fotos"));
  EXPECT_EQ(Profil_GetComment(folder, "Bilder"), "nur Fotos");
  EXPECT_EQ(Profil_GetComment(folder, "Alles"), "");
  // Saving the profile again keeps its comment.
  ASSERT_TRUE(Profil_Save(folder, "Bilder", s, prompt, texts));
  EXPECT_EQ(Profil_GetComment(folder, "Bilder"), "nur Fotos");

  // Rename onto an existing name is refused, to a new one works.
  prompt.inputs = {std::string("Alles")};
  EXPECT_FALSE(Profil_Rename(folder, "Bilder", prompt, texts));
  prompt.inputs = {std::string("Fotos")};
  EXPECT_EQ(Profil_Rename(folder, "Bilder", prompt, texts), "Fotos");
  EXPECT_EQ(Profil_GetComment(folder, "Fotos"), "nur Fotos");

  // Delete asks first.
  prompt.answers = {false, true};
  EXPECT_FALSE(Profil_Delete(folder, "Fotos", prompt, texts));
  EXPECT_EQ(prompt.questions.back(), "Möchten Sie das Profil 'Fotos' wirklich löschen?");
  EXPECT_TRUE(Profil_Delete(folder, "Fotos", prompt, texts));
  EXPECT_EQ(Init_ProfileList(folder), (std::vector<std::string>{"Alles"}));
}

TEST(Profiles, NamesThatCannotBeFileNamesAreRefused) {
  TempDir dir;
  FakePrompt prompt;
  prompt.inputs = {std::string("a/b"), std::string("..")};
  const SettingsStore s;
  EXPECT_FALSE(Profil_New(dir.path(), s, prompt, TextCatalog{}));
  EXPECT_FALSE(Profil_New(dir.path(), s, prompt, TextCatalog{}));
  EXPECT_EQ(prompt.messages.back(), "Der Profilname '..' ist ungültig.");
  EXPECT_TRUE(Init_ProfileList(dir.path()).empty());
  EXPECT_TRUE(Init_ProfileList(dir / "missing").empty());
}

TEST(Profiles, AFifoInPlaceOfAProfileIsRefusedWithoutWaiting) {
  TempDir dir;
  const auto folder = dir.Mkdir("profile");
  const auto fifo = ProfilePath(folder, "Geteilt");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
  test::HangGuard guard(std::chrono::seconds(20), "loading a FIFO as a profile");
  const TextCatalog texts;
  SettingsStore s;
  s.SetInt("DupVerz", "ContentCompare", 4);
  std::string error;
  EXPECT_FALSE(Profil_Load(folder, "Geteilt", s, texts, &error));
  EXPECT_NE(error.find(fifo.string()), std::string::npos) << error;
  EXPECT_NE(error.find("keine reguläre Datei"), std::string::npos) << error;
  EXPECT_TRUE(Init_ProfileList(folder).empty());
  EXPECT_EQ(Profil_GetComment(folder, "Geteilt"), "");

  // Saving under that name leaves the FIFO alone and says so.
  FakePrompt prompt;
  EXPECT_FALSE(Profil_Save(folder, "Geteilt", s, prompt, texts));
  ASSERT_FALSE(prompt.messages.empty());
  EXPECT_NE(prompt.messages.back().find("keine reguläre Datei"), std::string::npos)
      << prompt.messages.back();
  EXPECT_FALSE(Profil_Save_Comment(folder, "Geteilt", "x"));
  struct stat st {};
  ASSERT_EQ(::lstat(fifo.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

}  // namespace
}  // namespace kelvor
