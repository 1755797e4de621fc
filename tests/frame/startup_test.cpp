#include <gtest/gtest.h>

#include <sys/stat.h>

#include <thread>

#include "fake_prompt.h"
#include "frame/settings_store.h"
#include "frame/startup.h"
#include "frame/text_file.h"
#include "support/hang_guard.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::FakePrompt;
using test::HangGuard;
using test::ReadBytes;
using test::TempDir;

// A fake outside program: an executable shell script.
void MakeTool(const fs::path& p) {
  fs::create_directories(p.parent_path());
  {
    std::FILE* f = std::fopen(p.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("#!/bin/sh\n", f);
    std::fclose(f);
  }
  ::chmod(p.c_str(), 0755);
}

TEST(Startup, DataFolderChoice) {
  TempDir dir;
  Environment env;
  env.vars["HOME"] = (dir / "home").string();
  const fs::path exe = dir / "app" / "kelvor";

  AppPaths p = InitAppPaths(exe, std::nullopt, env);
  EXPECT_EQ(p.dataFolder, dir / "home" / ".local" / "share" / "Kelvor");
  EXPECT_EQ(p.appFolder, dir / "app");
  EXPECT_EQ(p.langFolder, dir / "app" / "lang");
  EXPECT_EQ(p.settingsFile, p.dataFolder / "config4.ini");
  EXPECT_EQ(p.generalLog, p.dataFolder / "log" / "Kelvor4.txt");
  EXPECT_FALSE(p.portable);

  // Installed into a prefix, the language files are under share/kelvor.
  fs::create_directories(dir / "usr" / "bin");
  fs::create_directories(dir / "usr" / "share" / "kelvor" / "lang");
  EXPECT_EQ(InitAppPaths(dir / "usr" / "bin" / "kelvor", std::nullopt, env).langFolder,
            dir / "usr" / "share" / "kelvor" / "lang");

  env.vars["XDG_DATA_HOME"] = (dir / "xdg").string();
  EXPECT_EQ(InitAppPaths(exe, std::nullopt, env).dataFolder, dir / "xdg" / "Kelvor");

  env.vars["KELVOR_DATA_DIR"] = (dir / "envdata").string();
  EXPECT_EQ(InitAppPaths(exe, std::nullopt, env).dataFolder, dir / "envdata");
  EXPECT_EQ(InitAppPaths(exe, dir / "opt", env).dataFolder, dir / "opt");

  env.vars.erase("KELVOR_DATA_DIR");
  const AppPaths portable = InitAppPaths(dir / "app" / "KelvorPortable", std::nullopt, env);
  EXPECT_TRUE(portable.portable);
  EXPECT_EQ(portable.dataFolder, dir / "app");
  EXPECT_EQ(portable.profileFolder, dir / "app" / "profile");
}

TEST(Startup, MakesFoldersAndFilesInOrder) {
  TempDir dir;
  Environment env;
  env.vars["HOME"] = (dir / "home").string();  // must stay untouched
  env.vars["KELVOR_DATA_DIR"] = (dir / "data").string();
  MakeTool(dir / "app" / "dep" / "7z");
  MakeTool(dir / "bin" / "fpcalc");
  env.vars["PATH"] = (dir / "bin").string();
  StartupOptions o;
  o.executable = dir / "app" / "kelvor";
  FakePrompt prompt;
  StartupResult r = RunStartup(o, env, &prompt);

  EXPECT_TRUE(prompt.messages.empty()) << prompt.messages.front();
  EXPECT_EQ(r.sevenZip, dir / "app" / "dep" / "7z");
  EXPECT_EQ(r.fpcalc, dir / "bin" / "fpcalc");
  const fs::path d = dir / "data";
  for (const char* sub : {"log", "data", "update", "temp", "profile", "export"}) {
    EXPECT_TRUE(fs::is_directory(d / sub)) << sub;
  }
  EXPECT_EQ(ReadBytes(d / "config4.ini"), "\xFF\xFE");
  EXPECT_EQ(ReadBytes(d / "log" / "Kelvor4.txt"), "\xFF\xFE");
  ASSERT_FALSE(r.paths.runLog.empty());
  EXPECT_EQ(r.paths.runLog.parent_path(), d / "temp");
  EXPECT_EQ(r.paths.runLog.extension(), ".txt");
  EXPECT_EQ(ReadBytes(r.paths.runLog), "\xFF\xFE");
  EXPECT_TRUE(r.lock.Held());
  EXPECT_FALSE(fs::exists(dir / "home"));
  EXPECT_EQ(r.texts.Language(), kLangEnglish);  // no Lang setting, no locale in env

  // The locale of the environment chooses the language; German needs no file.
  Environment german = env;
  german.vars["LC_MESSAGES"] = "de_CH.UTF-8";
  EXPECT_EQ(RunStartup(o, german, &prompt).texts.Language(), kLangGerman);

  // A second start names a new run log.
  StartupResult r2 = RunStartup(o, env, &prompt);
  EXPECT_NE(r2.paths.runLog, r.paths.runLog);
}

TEST(Startup, MissingHelpersAndUncreatableFoldersGiveBoxesAndGoOn) {
  TempDir dir;
  Environment env;
  env.vars["PATH"] = (dir / "empty").string();
  // "temp" exists as a file, so the temp folder cannot be made.
  dir.Write("data/temp", "x");
  StartupOptions o;
  o.executable = dir / "app" / "kelvor";
  o.dataDirOption = dir / "data";
  FakePrompt prompt;
  StartupResult r = RunStartup(o, env, &prompt);
  ASSERT_GE(prompt.messages.size(), 2u);
  EXPECT_EQ(prompt.messages[0], "File '7z' not found!");
  EXPECT_EQ(prompt.messages[1].rfind(
                "Can't create temp folder '" + (dir / "data" / "temp").string() + "': ", 0),
            0u)
      << prompt.messages[1];
  EXPECT_TRUE(fs::is_directory(dir / "data" / "export"));  // the start went on

  MakeTool(dir / "empty" / "7zz");
  FakePrompt prompt2;
  RunStartup(o, env, &prompt2);
  EXPECT_EQ(prompt2.messages[0], "File 'fpcalc' not found!");
}

TEST(Startup, SettingsFileGetsItsMarkWithoutLosingText) {
  TempDir dir;
  const auto utf8 =
      dir.Write("a.ini", "[Allgemein]\nLang=\"12\"\n[DupVerz]\nIgnoreTextText=\"äö\"\n");
  std::string error;
  ASSERT_TRUE(EnsureUnicodeSettingsFile(utf8, &error)) << error;
  EXPECT_EQ(ReadBytes(utf8).substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(ProfileGetItemWide("DupVerz", "IgnoreTextText", "", utf8), "äö");
  const std::string once = ReadBytes(utf8);
  ASSERT_TRUE(EnsureUnicodeSettingsFile(utf8, &error));
  EXPECT_EQ(ReadBytes(utf8), once);  // already marked: untouched

  const std::string junk("\x01\x02\x03\x00\x9F", 5);
  const auto bin = dir.Write("b.ini", junk);
  ASSERT_TRUE(EnsureUnicodeSettingsFile(bin, &error));
  EXPECT_EQ(ReadBytes(bin), junk);
}

TEST(Startup, DamagedOrFifoSettingsFileIsReportedAndLeftAsItIs) {
  TempDir dir;
  Environment env;
  StartupOptions o;
  o.executable = dir / "app" / "kelvor";
  o.dataDirOption = dir / "data";
  const auto ini = dir / "data" / "config4.ini";

  dir.Write("data/config4.ini", Utf16leWithBom("[DupVerz]\r\nno key here\r\n"));
  const std::string damaged = ReadBytes(ini);
  FakePrompt prompt;
  RunStartup(o, env, &prompt);
  const std::string said = "Die Einstellungsdatei '" + ini.string() + "' enthält 1 ungültige";
  int count = 0;
  for (const auto& m : prompt.messages) count += m.find(said) != std::string::npos;
  EXPECT_EQ(count, 1) << testing::PrintToString(prompt.messages);
  EXPECT_EQ(ReadBytes(ini), damaged);

  fs::remove(ini);
  ASSERT_EQ(::mkfifo(ini.c_str(), 0644), 0);
  {
    HangGuard guard(std::chrono::seconds(20), "a start with a FIFO as config4.ini");
    FakePrompt prompt2;
    StartupResult r = RunStartup(o, env, &prompt2);
    const std::string unread = "Die Einstellungsdatei '" + ini.string() +
                               "' konnte nicht gelesen werden. (keine reguläre Datei)";
    count = 0;
    for (const auto& m : prompt2.messages) count += m == unread;
    EXPECT_EQ(count, 1) << testing::PrintToString(prompt2.messages);
    for (const auto& m : prompt2.messages)
      EXPECT_EQ(m.find("Can't create settings file"), std::string::npos) << m;
    EXPECT_EQ(r.settings.GetInt("DupVerz", "ContentCompare"), 2);
    EXPECT_FALSE(r.paths.runLog.empty());
  }
  struct stat st {};
  ASSERT_EQ(::lstat(ini.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

TEST(Startup, LanguageComesFromTheSettingsFile) {
  TempDir dir;
  dir.Write("data/config4.ini", Utf16leWithBom("[Allgemein]\r\nLang=\"7\"\r\n"));
  Environment env;
  StartupOptions o;
  o.executable = dir / "app" / "kelvor";
  o.dataDirOption = dir / "data";
  StartupResult r = RunStartup(o, env, nullptr);
  EXPECT_EQ(r.texts.Language(), kLangGerman);
  EXPECT_EQ(r.settings.GetInt("Allgemein", "Lang"), 7);
  EXPECT_EQ(r.messages.front(), "File '7z' not found!");  // collected without a prompt
}

TEST(Startup, RestartWaitsForTheInstanceLock) {
  TempDir dir;
  // No lock file: nothing to wait for.
  EXPECT_TRUE(WaitForInstanceRelease(dir.path(), std::chrono::milliseconds(0)));
  InstanceLock first;
  ASSERT_TRUE(first.Acquire(dir.path()));
  EXPECT_FALSE(WaitForInstanceRelease(dir.path(), std::chrono::milliseconds(100)));
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    first.Release();
  });
  EXPECT_TRUE(WaitForInstanceRelease(dir.path(), std::chrono::seconds(30)));
  releaser.join();
  // Two running instances do not refuse each other.
  InstanceLock a, b;
  EXPECT_TRUE(a.Acquire(dir.path()));
  EXPECT_TRUE(b.Acquire(dir.path()));
  a.Release();
  b.Release();

  // A FIFO in the lock file's place holds neither the start nor -RESTART.
  fs::remove(dir / kInstanceLockName);
  ASSERT_EQ(::mkfifo((dir / kInstanceLockName).c_str(), 0644), 0);
  HangGuard guard(std::chrono::seconds(20), "a FIFO as the instance lock file");
  EXPECT_TRUE(WaitForInstanceRelease(dir.path(), std::chrono::seconds(30)));
  EXPECT_FALSE(a.Acquire(dir.path()));
}

TEST(Startup, TickCountNamesAreNew) {
  TempDir dir;
  const fs::path a = xGetTempFileNameFromTickCount(dir.path());
  std::FILE* f = std::fopen(a.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  const fs::path b = xGetTempFileNameFromTickCount(dir.path());
  EXPECT_NE(a, b);
  EXPECT_EQ(b.extension(), ".txt");
}

}  // namespace
}  // namespace kelvor
