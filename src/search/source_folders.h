#pragma once
// The source folder list (lvwSource) and the checks made before a search.

#include <string>
#include <vector>

namespace kelvor {

class SettingsStore;
class TextCatalog;

struct SourceFolderRow {
  std::string path;
  bool checked = true;     // takes part in the search
  bool subfolders = true;  // column 1: include subfolders
  bool protect = false;    // column 4: the file manager leaves its files alone
  std::string text;        // free text kept with the row
};

// Section "Ordnerlist": V<n> path, A<n> check, U<n> subfolders, P<n>
// protected, T<n> text, from n = 1 until a path is missing.
std::vector<SourceFolderRow> LoadSourceFolders(const SettingsStore& s);
void StoreSourceFolders(SettingsStore& s, const std::vector<SourceFolderRow>& rows);

// Folder_Add_to_List: adds a row unless the same path is listed already.
void Folder_Add_to_List(std::vector<SourceFolderRow>& rows, const std::string& path,
                        bool subfolders = true);

// The path as the search uses it: trimmed, "~" expanded, no trailing "/"
// (the root stays "/").
std::string NormalizeSourcePath(const std::string& path);

// True when two checked rows overlap (same path, or one inside the other
// whose row includes subfolders).
bool FoldersOverlap(const SourceFolderRow& a, const SourceFolderRow& b);

// StartSearchForDups: the checks in their order. Returns "" when a search may
// start, else the message the user sees (texts 3626, 9300 for a criterion that
// is not built yet, 3681, 3627, 5203, 3628, 5140).
std::string StartSearchForDups(const SettingsStore& s, const std::vector<SourceFolderRow>& rows,
                               const TextCatalog& texts);

}  // namespace kelvor
