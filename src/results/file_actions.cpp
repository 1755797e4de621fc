// The file manager's operations on the file-system layer.

#include "results/file_actions.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>

#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/formats.h"

namespace kelvor {

bool ReadDiskFileState(std::string_view path, DiskFileState* st, std::string* error) {
  *st = DiskFileState{};
  struct statx sx {};
  const std::string p(path);
  if (xStatAt(AT_FDCWD, p.c_str(), false, STATX_BASIC_STATS, &sx) != 0) {
    const int e = errno;
    if (e == ENOENT || e == ENOTDIR) return true;  // not there: no failure
    if (error) *error = ErrorText(e);
    return false;
  }
  st->exists = true;
  st->regular = S_ISREG(sx.stx_mode);
  st->device = (static_cast<std::uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
  st->inode = sx.stx_ino;
  st->links = sx.stx_nlink;
  st->size = static_cast<std::int64_t>(sx.stx_size);
  return true;
}

}  // namespace kelvor

namespace kelvor {

bool FileUnchangedSinceSearch(std::string_view path, const RowFileState& row, std::string* reason) {
  struct statx sx {};
  const std::string p(path);
  if (xStatAt(AT_FDCWD, p.c_str(), false, STATX_BASIC_STATS, &sx) != 0) {
    if (reason) *reason = ErrorText(errno);
    return false;
  }
  if (!S_ISREG(sx.stx_mode)) {
    if (reason) *reason = "no regular file";
    return false;
  }
  if (row.size >= 0 && static_cast<std::int64_t>(sx.stx_size) != row.size) {
    if (reason) *reason = std::to_string(row.size) + " -> " + std::to_string(sx.stx_size);
    return false;
  }
  if (row.dateVal != 0) {
    const double now = DateFromTimespec(sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec);
    // Saved results keep the date to the second at least.
    if (std::fabs(now - row.dateVal) > 1.0 / 86400.0) {
      if (reason)
        *reason = FormatDate(row.dateVal, "dd.MM.yyyy hh:nn:ss") + " -> " +
                  FormatDate(now, "dd.MM.yyyy hh:nn:ss");
      return false;
    }
  }
  return true;
}

bool ActionDeleteFile(std::string_view path, std::string* error) {
  return xDeleteFile_W(path, error);
}

bool ActionDirEmpty(std::string_view folder) {
  return xDirEmpty_W(folder);
}

}  // namespace kelvor

// PENDING-FSOPS: the operations below wait for the file-system layer's copy,
// move, link, trash and zero-length calls.
namespace kelvor {
namespace {
bool Pending(std::string* error) {
  if (error) *error = ErrorText(ENOSYS);
  return false;
}
}  // namespace
bool ActionTrashFile(std::string_view, std::string* error, bool*, std::string*) {
  return Pending(error);
}
bool ActionBackup(std::string_view, std::string_view, bool, bool, std::string*,
                  std::string* error) {
  return Pending(error);
}
bool ActionRename(std::string_view, std::string_view, std::string* error) {
  return Pending(error);
}
bool ActionZeroLength(std::string_view, std::string* error) {
  return Pending(error);
}
bool ActionReplaceByHardlink(std::string_view, std::string_view, std::string* error) {
  return Pending(error);
}
bool ActionReplaceBySymlink(std::string_view, std::string_view, std::string* error) {
  return Pending(error);
}
bool ActionRemoveEmptyFolder(std::string_view, std::string* error) {
  return Pending(error);
}
std::string ActionReplaceSystemVariables(std::string_view text) {
  return std::string(text);
}
}  // namespace kelvor
