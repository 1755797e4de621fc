// Composite steps of the file manager on the file-system layer.

#include "results/file_actions.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "data/file_system.h"
#include "frame/error_text.h"

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

ReplaceResult LinkAtFreePath(std::string_view path, std::string_view source, LinkKind kind,
                             const TextCatalog& texts) {
  ReplaceResult r;
  std::string err;
  if (!xCopyFile_W(source, path, &err, Overwrite::No)) {
    r.outcome = ReplaceOutcome::Failed;
    r.errorText = err;
    return r;
  }
  ReplaceRequest req;
  req.path = std::string(path);
  req.source = std::string(source);
  req.kind = kind;
  return ReplaceWithLink(req, texts);
}

}  // namespace kelvor
