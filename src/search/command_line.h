#pragma once
// Init_Kommandozeile: Kelvor's command-line items (-s..., -c..., folders,
// -p:"profile") shape the search setup and start a search.

#include <filesystem>
#include <string>
#include <vector>

#include "search/source_folders.h"

namespace kelvor {

class SettingsStore;
class TextCatalog;

struct CommandLine {
  bool empty = true;                 // the whole line is "", "-TL" or "-RESTART": nothing happens
  std::vector<std::string> folders;  // in the order given
  std::string profileName;           // -p:"name", when its file exists
  std::filesystem::path profilePath;
  bool flagN = false;                // -n
  std::vector<std::string> unknown;  // items that are none of the above
};

// Splits and reads the items. `profileFolder` is where -p: looks. Criteria
// and numeric options are applied to `settings` as the items come.
CommandLine Init_Kommandozeile(const std::vector<std::string>& items, SettingsStore& settings,
                               const std::filesystem::path& profileFolder);

// After the items: clears the check mark of every row, adds each collected
// folder that exists (Folder_Add_to_List); one that does not is left out.
void ApplyCommandLineFolders(const CommandLine& cl, std::vector<SourceFolderRow>& rows);

// The steps after the items, in their order: the source rows of `settings`
// lose their marks, the collected folders that exist come in, then the
// profile is loaded. Returns the rows for the start check. A profile that
// could not be read leaves its message in *error.
std::vector<SourceFolderRow> ApplyCommandLine(const CommandLine& cl, SettingsStore& settings,
                                              const std::filesystem::path& profileFolder,
                                              const TextCatalog& texts, std::string* error);

}  // namespace kelvor
