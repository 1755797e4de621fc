#pragma once
// The file operations of the file manager and the single-file commands, in
// the form their walks use them. Each is a few calls of the file-system
// layer (data/file_system.h), which does every write, move and delete, so
// that the layer's fault seam reaches all of them. Failures come back as
// false with the system's text; nothing here throws.

#include <cstdint>
#include <string>
#include <string_view>

namespace kelvor {

// What a file row says about the file as the search saw it.
struct RowFileState {
  std::int64_t size = -1;  // bytes; -1: not checked
  double dateVal = 0;      // change date (day fraction, local time); 0: not checked
};

// The file's own state now (links not followed).
struct DiskFileState {
  bool exists = false;
  bool regular = false;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t links = 1;
  std::int64_t size = 0;
};
bool ReadDiskFileState(std::string_view path, DiskFileState* st, std::string* error);

// The file at `path` is still the one of the row: a regular file of the same
// size and change date. *reason says what differs.
bool FileUnchangedSinceSearch(std::string_view path, const RowFileState& row, std::string* reason);

bool ActionDeleteFile(std::string_view path, std::string* error);
// Moves the file to the trash of its mount. *noTrash is set (with *mount)
// when that mount can have no trash.
bool ActionTrashFile(std::string_view path, std::string* error, bool* noTrash, std::string* mount);
// BackupDaten: copies or moves the file into `targetFolder` (with its folder
// structure below it when `keepStructure`). *target gets the new path.
bool ActionBackup(std::string_view path, std::string_view targetFolder, bool move,
                  bool keepStructure, std::string* target, std::string* error);
// Renames within the folder; never replaces a file standing at `newPath`.
bool ActionRename(std::string_view path, std::string_view newPath, std::string* error);
bool ActionZeroLength(std::string_view path, std::string* error);
// Puts a hard link / symbolic link to `source` in the place of the file at
// `path`, made under a temporary name and renamed over it in one step: on
// any failure the file stays as it was. The file may also be gone already
// (moved or trashed): then the link is made at `path`.
bool ActionReplaceByHardlink(std::string_view path, std::string_view source, std::string* error);
bool ActionReplaceBySymlink(std::string_view path, std::string_view source, std::string* error);

bool ActionDirEmpty(std::string_view folder);
bool ActionRemoveEmptyFolder(std::string_view folder, std::string* error);
// ReplaceSystemvariablen: %NAME% of the environment (and the Windows names
// the masks use) in a text.
std::string ActionReplaceSystemVariables(std::string_view text);

}  // namespace kelvor
