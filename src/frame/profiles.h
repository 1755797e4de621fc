#pragma once
// Search profiles: saved setups "<data>/profile/<name>.pro4", files of the
// same form as config4.ini, with the list's comment under [Profile] Comment.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

class Prompt;
class SettingsStore;
class TextCatalog;

inline constexpr char kProfileExtension[] = ".pro4";

// Init_ProfileList: the names of the "*.pro4" files of the folder, sorted
// (without regard to case, then byte order).
std::vector<std::string> Init_ProfileList(const std::filesystem::path& profileFolder);

std::filesystem::path ProfilePath(const std::filesystem::path& profileFolder,
                                  std::string_view name);

// A usable profile name: not empty, no "/", no NUL, not "." or "..".
bool IsValidProfileName(std::string_view name);

// Profil_Load: reads the profile into `s`. A profile that holds no source
// folders keeps the list (section "Ordnerlist") that `s` held, as long as
// "ProfileKeineQuellordner" of the current settings is on (the default); with
// it off such a profile empties the list. A profile with folders brings its
// own. The language section "Allgemein" always stays. False when the profile does
// not exist (text 9017) or could not be read as a whole (message in *error).
bool Profil_Load(const std::filesystem::path& profileFolder, std::string_view name,
                 SettingsStore& s, const TextCatalog& texts, std::string* error);

// The window title after loading: "<title> - <name>".
std::string ProfileWindowTitle(std::string_view title, std::string_view name);

// Profil_Save: writes `s` into the profile, then the message "Profil wurde
// gespeichert." through the prompt.
bool Profil_Save(const std::filesystem::path& profileFolder, std::string_view name,
                 const SettingsStore& s, Prompt& prompt, const TextCatalog& texts);

// Profil_New: asks "Profilname:"; an empty answer or cancel ends it (nullopt).
// An existing name gives "Ein Profil mit dem Namen '%1' ist schon vorhanden!".
// Otherwise the store is saved under the name, which is returned.
std::optional<std::string> Profil_New(const std::filesystem::path& profileFolder,
                                      const SettingsStore& s, Prompt& prompt,
                                      const TextCatalog& texts);

// Profil_Rename: asks for the new name (default the old one); the new name of
// the profile, or nullopt when nothing changed.
std::optional<std::string> Profil_Rename(const std::filesystem::path& profileFolder,
                                         std::string_view name, Prompt& prompt,
                                         const TextCatalog& texts);

// Profil_Delete: asks "Möchten Sie das Profil '%1' wirklich löschen?", then
// removes the file. True when it was removed.
bool Profil_Delete(const std::filesystem::path& profileFolder, std::string_view name,
                   Prompt& prompt, const TextCatalog& texts);

// The comment of the profile list, and Profil_Save_Comment.
std::string Profil_GetComment(const std::filesystem::path& profileFolder, std::string_view name);
bool Profil_Save_Comment(const std::filesystem::path& profileFolder, std::string_view name,
                         std::string_view comment, std::string* error = nullptr);

}  // namespace kelvor
