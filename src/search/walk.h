#pragma once
// The folder stack of the walks: one frame per folder the walk stands in,
// with the folder's entries read in the order the system gives them.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "search/engine.h"

namespace kelvor {

enum class EntryKind : std::uint8_t { Unknown, File, Folder, Other, Gone };

struct DirEntry {
  std::uint32_t nameOffset = 0;
  std::uint32_t nameLength = 0;
  unsigned char type = 0;  // d_type
  EntryKind kind = EntryKind::Unknown;
  bool isLink = false;
  std::int32_t attributes = 0;
  std::int64_t size = 0;
  double mtime = 0, btime = 0;
  StatIdentity identity;
};

struct Frame {
  int fd = -1;
  std::string name;  // last component ("" for the root)
  std::string path;  // full path ("" for "/")
  dev_t dev = 0;
  ino_t ino = 0;
  std::string names;  // all entry names, back to back
  std::vector<DirEntry> entries;
  std::size_t next = 0;
};

class DirStack {
 public:
  DirStack() = default;
  ~DirStack();
  DirStack(const DirStack&) = delete;
  DirStack& operator=(const DirStack&) = delete;

  // Opens the source folder ("" = "/") and reads its entries.
  bool PushRoot(const std::string& path);
  // Opens a subfolder of the top folder and reads its entries. False when it
  // cannot be opened, or when it is a folder the walk already stands in.
  bool PushChild(const std::string& name, bool followLink);
  void Pop();
  bool Empty() const { return frames_.empty(); }
  Frame& Top() { return frames_.back(); }
  std::string_view Name(const DirEntry& e) const {
    return std::string_view(frames_.back().names).substr(e.nameOffset, e.nameLength);
  }
  // Sets kind (and for files size, times, attributes and identity) of an
  // entry of the top folder with one statx.
  bool Stat(DirEntry& e);
  // Stat unless the entry's type is known to be a folder.
  void Classify(DirEntry& e);

 private:
  bool Fill(Frame& f);
  int Fd(std::size_t level);
  void ReleaseDescriptors(std::size_t keepFrom);
  std::vector<Frame> frames_;
};

// The extension of a file name: what follows the last ".", "" if none.
std::string_view ExtensionOf(std::string_view name);
// The name without its extension.
std::string_view BaseNameOf(std::string_view name);

}  // namespace kelvor
