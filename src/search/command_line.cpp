#include "search/command_line.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>

#include "data/file_system.h"
#include "frame/profiles.h"
#include "frame/settings_store.h"
#include "search/options.h"

namespace kelvor {

namespace {

constexpr const char* kSec = "DupVerz";

bool AllDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s)
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  return true;
}

void AllCriteriaOff(SettingsStore& s) {
  for (int i = 0; i < kCriterionCount; ++i)
    s.SetBool(kSec, "Suchkriterien" + std::to_string(i), false);
}

void On(SettingsStore& s, int index) {
  chkSuchKriterien_Click(s, index, true);
}
bool IsOn(const SettingsStore& s, int index) {
  return s.GetBool(kSec, "Suchkriterien" + std::to_string(index));
}

// A numeric rest behind an item's two letters goes to `key`.
void NumericRest(SettingsStore& s, std::string_view item, const char* key) {
  std::string_view rest = item.substr(2);
  if (AllDigits(rest)) s.Set(kSec, key, std::string(rest));
}

std::string Absolute(const std::string& path) {
  if (path.empty() || path[0] == '/' || path[0] == '~') return path;
  char buf[4096];
  if (!::getcwd(buf, sizeof buf)) return path;
  return std::string(buf) + "/" + path;
}

}  // namespace

CommandLine Init_Kommandozeile(const std::vector<std::string>& items, SettingsStore& s,
                               const std::filesystem::path& profileFolder) {
  CommandLine cl;
  std::string whole;
  for (const auto& it : items) whole += (whole.empty() ? "" : " ") + it;
  if (whole.empty() || whole == "-TL" || whole == "-RESTART") return cl;
  cl.empty = false;
  for (const std::string& item : items) {
    std::string_view v(item);
    // Items are told apart by their first characters, in the order of the
    // list: "-sab" is "-sa", and "-cx" switches content on with no method.
    if (v.substr(0, 3) == "-sa") {
      AllCriteriaOff(s);
      On(s, kCritSimilarAudio);
    } else if (v.size() >= 3 && v.substr(0, 2) == "-s" && AllDigits(v.substr(2))) {
      AllCriteriaOff(s);
      for (char d : v.substr(2)) {
        int index = d - '0';
        if (index >= 0 && index < kCriterionCount) On(s, index);
      }
    } else if (v.substr(0, 2) == "-c") {
      On(s, kCritContent);
      NumericRest(s, v, "ContentCompare");
    } else if (v.substr(0, 2) == "-h") {
      On(s, kCritSimilarPics);
      NumericRest(s, v, "SimiliarImagesAlgo");
    } else if (v.substr(0, 2) == "-m") {
      NumericRest(
          s, v, IsOn(s, kCritSimilarPics) ? "SimilarPicsMatchPercent" : "SimilarAudioMatchPercent");
    } else if (v.substr(0, 2) == "-l") {
      On(s, kCritSimilarAudio);
      NumericRest(s, v, "SimilarAudioSeconds");
    } else if (v.substr(0, 2) == "-a") {
      On(s, kCritSimilarAudio);
      NumericRest(s, v, "SimilarAudioAlgo");
    } else if (v.substr(0, 2) == "-d") {
      On(s, kCritSimilarPics);
      NumericRest(s, v, "SimilarPicsThumbSizeIndex");
    } else if (v.substr(0, 3) == "-p:") {
      std::string name(v.substr(3));
      if (name.size() >= 2 && name.front() == '"' && name.back() == '"')
        name = name.substr(1, name.size() - 2);
      std::filesystem::path p = profileFolder / (name + ".pro4");
      std::error_code ec;
      if (!name.empty() && std::filesystem::is_regular_file(p, ec)) {
        cl.profileName = name;
        cl.profilePath = p;
      }
    } else if (v.substr(0, 2) == "-n") {
      cl.flagN = true;
    } else if (v == "-RESTART") {
      // The start-up's switch (it waits for the instance before); nothing here.
    } else if (v.size() >= 2 && v.front() == '"' && v.back() == '"') {
      cl.folders.push_back(Absolute(std::string(v.substr(1, v.size() - 2))));
    } else if (!v.empty() && v[0] != '-') {
      cl.folders.push_back(Absolute(item));
    } else {
      cl.unknown.push_back(item);
    }
  }
  return cl;
}

void ApplyCommandLineFolders(const CommandLine& cl, std::vector<SourceFolderRow>& rows) {
  if (cl.empty) return;
  for (auto& r : rows) r.checked = false;
  for (const auto& f : cl.folders) {
    std::string p = NormalizeSourcePath(f);
    // A folder that does not exist is left out without a word: the search
    // goes on with the others, and with none the start check says so.
    if (xExistFolder_W(p)) Folder_Add_to_List(rows, p);
  }
}

std::vector<SourceFolderRow> ApplyCommandLine(const CommandLine& cl, SettingsStore& settings,
                                              const std::filesystem::path& profileFolder,
                                              const TextCatalog& texts, std::string* error) {
  std::vector<SourceFolderRow> rows = LoadSourceFolders(settings);
  ApplyCommandLineFolders(cl, rows);
  if (cl.profileName.empty()) return rows;
  // The profile comes last and is read into the setup as it stands now, with
  // the command line's folders in its list: a profile with folders of its
  // own replaces them, one without keeps them (Profil_Load).
  StoreSourceFolders(settings, rows);
  Profil_Load(profileFolder, cl.profileName, settings, texts, error);
  return LoadSourceFolders(settings);
}

}  // namespace kelvor
