#pragma once
// Steps of the file manager that are made of several calls of the
// file-system layer (data/file_ops.h, data/trash.h), which does every write,
// move and delete, so that the layer's fault seam reaches all of them.

#include <cstdint>
#include <string>
#include <string_view>

#include "data/file_ops.h"

namespace kelvor {

class TextCatalog;

// The file's own state now (links not followed).
struct DiskFileState {
  bool exists = false;
  bool regular = false;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t links = 1;
  std::int64_t size = 0;
};
// False (with the system's text) only when the state cannot be read; a
// missing file is exists = false.
bool ReadDiskFileState(std::string_view path, DiskFileState* st, std::string* error);

// A link to `source` at `path`, whose file has just been moved or trashed
// (the name is free). The kept file's data is first copied to `path`, and
// the copy is then replaced by the link in one step, so that no step ever
// removes data: on failure `path` holds a copy of the kept file or nothing.
ReplaceResult LinkAtFreePath(std::string_view path, std::string_view source, LinkKind kind,
                             const TextCatalog& texts);

}  // namespace kelvor
