#pragma once
// The recycle bin: the freedesktop.org trash, so that the desktop's own tools
// list, restore and empty what Kelvor put there.
//
// A file on the file system of the home trash ($XDG_DATA_HOME/Trash) goes
// there; a file on another mount goes to that mount's "$topdir/.Trash/$uid"
// when "$topdir/.Trash" is a real folder (no symbolic link) with the sticky
// bit, else to "$topdir/.Trash-$uid". Each file gets "info/<name>.trashinfo"
// (written first, O_EXCL, so two programs never share a name) with the
// percent-encoded original path and the deletion date, then is renamed to
// "files/<name>". A mount where no trash can be made has no recycle bin.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kelvor {

// Where the trash lives; the caller fills it (from the environment with
// TrashOptionsFromEnvironment, or a test with its own folder).
struct TrashOptions {
  std::string dataHome;  // $XDG_DATA_HOME, else $HOME/.local/share
  uid_t uid = 0;         // the user whose trash is used
};

// $XDG_DATA_HOME (when set and absolute), else $HOME/.local/share; the
// process's real user.
TrashOptions TrashOptionsFromEnvironment();

// The trash a file would go to.
struct TrashLocation {
  bool available = false;  // false: no trash can be made on the file's mount
  std::string trashDir;    // the trash folder (holding info/ and files/)
  std::string topDir;      // the mount point for a mount's trash; "" = home
  std::string drive;       // the mount point of the file's file system
  std::string errorText;   // why there is none
};
// Finds the trash for the file or folder `path`: makes it when missing and
// `make`; without, a trash that is missing counts as available where its
// folder could be made (a mount that is not read-only, a top folder we may
// write), so that asking about a drive leaves nothing behind.
TrashLocation FindTrashFor(std::string_view path, const TrashOptions& options, bool make = true);

enum class TrashOutcome : std::uint8_t {
  Trashed,
  NoTrashOnDrive,  // no trash on the file's mount: the file is left
  Failed,          // a step failed (or the file is gone): the file is left
};

struct TrashResult {
  TrashOutcome outcome = TrashOutcome::Failed;
  std::string trashedAs;  // files/<name> in the trash
  std::string infoFile;   // info/<name>.trashinfo
  std::string drive;      // the mount point of the file (for the message)
  std::string errorText;  // the system's text in brackets
  bool ok() const { return outcome == TrashOutcome::Trashed; }
};

// Moves the file (or symbolic link) at `path` into its trash. `deletionDate`
// in days since 30.12.1899 local time; 0 = now.
TrashResult MoveToTrash(std::string_view path, const TrashOptions& options,
                        double deletionDate = 0);

// The Path value of a .trashinfo: bytes other than letters, digits and
// "-_.~/" as %XX. And back.
std::string TrashPercentEncode(std::string_view path);
std::string TrashPercentDecode(std::string_view text);

}  // namespace kelvor
