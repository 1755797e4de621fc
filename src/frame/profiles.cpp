// Search profiles.

#include "frame/profiles.h"

#include <algorithm>
#include <system_error>

#include "frame/error_text.h"
#include "frame/ini_file.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;

bool Exists(const fs::path& p) {
  std::error_code ec;
  return fs::exists(p, ec);
}

// Copies one section of `from` into `to`, replacing what `to` had there.
void CopySection(const SettingsStore& from, SettingsStore& to, const std::string& section) {
  for (const auto& [name, keys] : to.Sections()) {
    if (SameName(name, section)) {
      std::vector<std::string> old;
      for (const auto& kv : keys) old.push_back(kv.first);
      const std::string held = name;
      for (const auto& k : old) to.Remove(held, k);
      break;
    }
  }
  for (const auto& [name, keys] : from.Sections()) {
    if (!SameName(name, section)) continue;
    for (const auto& [k, v] : keys) to.Set(name, k, v);
  }
}

}  // namespace

std::vector<std::string> Init_ProfileList(const fs::path& profileFolder) {
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(profileFolder, ec), end; !ec && it != end; it.increment(ec)) {
    const fs::path& p = it->path();
    if (p.extension() != kProfileExtension) continue;
    std::error_code ec2;
    if (!it->is_regular_file(ec2)) continue;
    names.push_back(p.stem().string());
  }
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    const std::string la = LowerCase(a), lb = LowerCase(b);
    return la != lb ? la < lb : a < b;
  });
  return names;
}

fs::path ProfilePath(const fs::path& profileFolder, std::string_view name) {
  return profileFolder / (std::string(name) + kProfileExtension);
}

bool IsValidProfileName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

bool Profil_Load(const fs::path& profileFolder, std::string_view name, SettingsStore& s,
                 const TextCatalog& texts, std::string* error) {
  const fs::path file = ProfilePath(profileFolder, name);
  if (!IsValidProfileName(name) || !Exists(file)) {
    if (error) *error = texts.Get(txt::T9017, {name});
    return false;
  }
  const SettingsStore before = s;
  const bool keepFolders = before.GetBool("DupVerz", "ProfileKeineQuellordner");
  const bool ok = EinstellungenLaden(s, file, error, texts);
  // The source list's rows are numbered from 1; a list without its first
  // row is empty.
  const bool profileHasFolders = !s.Get("Ordnerlist", "V1").empty();
  if (keepFolders && !profileHasFolders) CopySection(before, s, "Ordnerlist");
  CopySection(before, s, "Allgemein");
  return ok;
}

std::string ProfileWindowTitle(std::string_view title, std::string_view name) {
  std::string t(title);
  t += " - ";
  t += name;
  return t;
}

bool Profil_Save(const fs::path& profileFolder, std::string_view name, const SettingsStore& s,
                 Prompt& prompt, const TextCatalog& texts) {
  if (!IsValidProfileName(name)) {
    prompt.Message(texts.Get(txt::T9016, {name}), MessageIcon::Exclamation);
    return false;
  }
  std::error_code ec;
  fs::create_directories(profileFolder, ec);
  std::string error;
  if (!EinstellungenSpeichern(s, ProfilePath(profileFolder, name), &error, texts)) {
    prompt.Message(error, MessageIcon::Critical);
    return false;
  }
  prompt.Message(texts.Get(txt::T9005), MessageIcon::Information);
  return true;
}

std::optional<std::string> Profil_New(const fs::path& profileFolder, const SettingsStore& s,
                                      Prompt& prompt, const TextCatalog& texts) {
  const std::optional<std::string> answer = prompt.Input(texts.Get(txt::T9006), "");
  if (!answer || answer->empty()) return std::nullopt;
  const std::string& name = *answer;
  if (!IsValidProfileName(name)) {
    prompt.Message(texts.Get(txt::T9016, {name}), MessageIcon::Exclamation);
    return std::nullopt;
  }
  if (Exists(ProfilePath(profileFolder, name))) {
    prompt.Message(texts.Get(txt::T9007, {name}), MessageIcon::Exclamation);
    return std::nullopt;
  }
  if (!Profil_Save(profileFolder, name, s, prompt, texts)) return std::nullopt;
  return name;
}

std::optional<std::string> Profil_Rename(const fs::path& profileFolder, std::string_view name,
                                         Prompt& prompt, const TextCatalog& texts) {
  const std::optional<std::string> answer = prompt.Input(texts.Get(txt::T9012), name);
  if (!answer || answer->empty() || *answer == name) return std::nullopt;
  const std::string& newName = *answer;
  if (!IsValidProfileName(newName)) {
    prompt.Message(texts.Get(txt::T9016, {newName}), MessageIcon::Exclamation);
    return std::nullopt;
  }
  const fs::path from = ProfilePath(profileFolder, name);
  const fs::path to = ProfilePath(profileFolder, newName);
  // A name that differs only in case is the same profile on a
  // case-insensitive file system, but a new name on Linux: check exactly.
  if (Exists(to)) {
    prompt.Message(texts.Get(txt::T9007, {newName}), MessageIcon::Exclamation);
    return std::nullopt;
  }
  std::error_code ec;
  fs::rename(from, to, ec);
  if (ec) {
    prompt.Message(texts.Get(txt::T9014, {name, ErrorText(ec)}), MessageIcon::Critical);
    return std::nullopt;
  }
  return newName;
}

bool Profil_Delete(const fs::path& profileFolder, std::string_view name, Prompt& prompt,
                   const TextCatalog& texts) {
  const fs::path file = ProfilePath(profileFolder, name);
  if (!IsValidProfileName(name) || !Exists(file)) {
    prompt.Message(texts.Get(txt::T9017, {name}), MessageIcon::Exclamation);
    return false;
  }
  if (!prompt.AskYesNo(texts.Get(txt::T9013, {name}))) return false;
  std::error_code ec;
  fs::remove(file, ec);
  if (ec) {
    prompt.Message(texts.Get(txt::T9015, {name, ErrorText(ec)}), MessageIcon::Critical);
    return false;
  }
  return true;
}

std::string Profil_GetComment(const fs::path& profileFolder, std::string_view name) {
  return ProfileGetItemWide("Profile", "Comment", "", ProfilePath(profileFolder, name));
}

bool Profil_Save_Comment(const fs::path& profileFolder, std::string_view name,
                         std::string_view comment, std::string* error) {
  return ProfileWriteItemWide("Profile", "Comment", comment, ProfilePath(profileFolder, name),
                              error);
}

}  // namespace kelvor
