#pragma once
// The operations that change files: copy, move, dates, links in a file's
// place, shared blocks, emptying, the backup of a file into a target folder,
// folder removal. Every write, delete, move or link of the program goes
// through here (the trash: data/trash.h).
//
// What none of them ever does: leave a half-written file under a final name
// (data goes to a temporary name in the target folder, which a rename puts in
// place in one step), remove a file before the thing that takes its place
// exists, or lose the only copy when a step fails. On failure the files are as
// they were and the error text says why; with a crash in between, a temporary
// name (".~kelvor-" followed by letters) may stay behind, never a lost file.
//
// Error texts: the system's text in brackets (ErrorText), as xDeleteFile_W
// gives it; Kelvor's own reasons come from the text table in the caller's
// language. Every system call asks the test faults first (FsCall in
// data/file_system.h).

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "frame/texts.h"

namespace kelvor {

// The prefix of every temporary name these operations make in a folder.
inline constexpr std::string_view kTemporaryNamePrefix = ".~kelvor-";

// --- moving and copying ---

// Whether a file at the target may be replaced.
enum class Overwrite : std::uint8_t { No, Yes };

// Renames `source` to `target`. Across file systems the file is copied under
// a temporary name beside the target (data, mode, dates, owner where
// allowed), flushed to the disk, renamed into place, and only then is the
// source deleted; should that delete fail, the copy is removed again (and a
// target it replaced is put back), so either the old state or the new one
// stands. With Overwrite::No an existing target is an error (EEXIST) and is
// not touched. A symbolic link is moved as the link (within a file system).
bool xMoveFile_W(std::string_view source, std::string_view target, std::string* errorText = nullptr,
                 Overwrite overwrite = Overwrite::No);
// The same, and the target keeps the source's dates (access and change date;
// Linux has no creation date to set), which a rename keeps anyway. Each step
// that fails adds its text.
bool xMoveFileWithDate_W(std::string_view source, std::string_view target,
                         std::string* errorText = nullptr, Overwrite overwrite = Overwrite::No);
// Copies a regular file: copy_file_range (the file system may share or
// copy on its side), read/write where that cannot be used; under a temporary
// name in the target's folder, renamed into place when complete. The copy
// gets the source's permission bits; dates are those of the moment (see
// xCopyFileDate_W). A symbolic link as `source` is followed.
bool xCopyFile_W(std::string_view source, std::string_view target, std::string* errorText = nullptr,
                 Overwrite overwrite = Overwrite::No);
// Gives `target` the access and change dates of `source` (a symbolic link
// at the target is not followed).
bool xCopyFileDate_W(std::string_view source, std::string_view target,
                     std::string* errorText = nullptr);

// --- folders ---

// Removes one empty folder (never its contents). When the first try fails
// for want of permission, the owner's rights on the folder are given back
// and the removal tried again.
bool RemoveDirectoryForce_W(std::string_view path, std::string* errorText = nullptr);
// xCreatePath_W, xDirEmpty_W, xDeleteFile_W: data/file_system.h.

// --- the state the search saw ---

// What the result row recorded of a file: a file is touched only when it is
// still this one.
struct RecordedFileState {
  std::int64_t size = -1;       // bytes; -1: not checked
  double modified = 0;          // change date, days since 30.12.1899 local
                                // (the row's date); 0: not checked
  double toleranceSeconds = 1;  // dates read back from a saved result are
                                // rounded: a change within this is none
  std::uint64_t device = 0;     // device and inode as the walk saw them;
  std::uint64_t inode = 0;      // both 0: not checked
};

// The answer of CheckFileUnchanged.
struct UnchangedCheck {
  bool unchanged = false;
  bool exists = false;  // false: the file is gone (ENOENT), not changed
  std::string why;      // the difference, in the caller's language
};

// Is the file at `path` (not followed when a symbolic link) a regular file
// that still matches what the search recorded? `why` names the first
// difference: gone, not a regular file, replaced by another file (device
// and inode), size, change date.
UnchangedCheck CheckFileUnchanged(std::string_view path, const RecordedFileState& recorded,
                                  const TextCatalog& texts);

// --- a file replaced by a link to the kept file ---

enum class LinkKind : std::uint8_t {
  HardLink,  // link(2): both names one file
  Symlink,   // a symbolic link at the file's own path to the kept file
  Reflink,   // the file keeps its name and inode, its blocks shared with the
             // kept file's (FIDEDUPERANGE: the kernel compares the bytes);
             // where only cloning exists (FICLONE), a clone under a temporary
             // name with the file's owner, mode and dates renamed over it
};

struct ReplaceRequest {
  std::string path;    // the file that is replaced (a marked duplicate)
  std::string source;  // the kept file it will point to
  LinkKind kind = LinkKind::HardLink;
  // What the search recorded; a file that differs now is not touched.
  std::optional<RecordedFileState> pathState;
  std::optional<RecordedFileState> sourceState;
};

enum class ReplaceOutcome : std::uint8_t {
  Replaced,        // done
  AlreadyLinked,   // the path is already the source (same device and inode)
  PathChanged,     // the file changed since the search: left alone
  SourceChanged,   // the kept file changed since the search: left alone
  OtherDevice,     // hard link or reflink across file systems: not possible
  NotSupported,    // reflink: the file system cannot share blocks
  ContentDiffers,  // reflink: the kernel found the bytes not equal
  Failed,          // a system call failed; the file is as it was
};

struct ReplaceResult {
  ReplaceOutcome outcome = ReplaceOutcome::Failed;
  int error = 0;          // the errno of a failed call, or 0
  std::string errorText;  // why it was not done, in the caller's language
  bool ok() const { return outcome == ReplaceOutcome::Replaced; }
};

// Replaces `path` by a link of the chosen kind to `source`. Hard and symbolic
// links are made under a temporary name in the path's folder and renamed
// over the file in one step; a reflink shares the blocks in place. On any
// outcome but Replaced the file at `path` is as it was.
ReplaceResult ReplaceWithLink(const ReplaceRequest& request, const TextCatalog& texts);

// The hard-link count of a file (not followed); -1 with *errorText on failure.
std::int64_t xGetLinkCount(std::string_view path, std::string* errorText = nullptr);

// --- emptying, backup ---

// Empties the file (open for writing with truncation; a symbolic link in its
// place is not followed, nothing is created). The file keeps its name; its
// dates become those of the moment.
bool SetFileToZeroLength(std::string_view path, std::string* errorText = nullptr);

// BackupDaten: copies or moves `source` into `targetFolder`. With
// `keepStructure` the source's folder follows below the target
// ("/a/b/c.txt" -> "<target>/a/b/c.txt") and a file standing there is
// replaced; without, the file goes straight into the target folder and a file
// of the same name there is first renamed to the first free
// "<base>-001.<ext>", "<base>-002.<ext>", ... Copies keep the source's dates.
// *target (may be null) gets the path the file now has.
struct BackupResult {
  bool ok = false;
  std::string target;     // where the file went
  std::string renamedTo;  // an existing file moved aside to "-001", or ""
  std::string errorText;
};
BackupResult BackupDaten(std::string_view source, std::string_view targetFolder, bool move,
                         bool keepStructure, const TextCatalog& texts);
// The name a file standing at `path` is moved aside to: the first of
// "<base>-001.<ext>", "<base>-002.<ext>", ... that does not exist.
std::string FirstFreeNumberedName(std::string_view path);

// --- variables ---

// Looks up a variable by name; nullopt = unknown (the text stays as written).
using VariableLookup = std::function<std::optional<std::string>(std::string_view name)>;
// The lookup of the process environment. "USERNAME" (the Windows name) falls
// back to USER, then to the user name of the process's user.
VariableLookup EnvironmentVariables();
// Replaces every "%NAME%" with the variable's value; unknown names and a
// lone "%" stay as written.
std::string ReplaceSystemvariablen(std::string_view text, const VariableLookup& lookup);

}  // namespace kelvor
