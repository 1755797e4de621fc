#pragma once
// The walk over a folder tree: one frame per folder the walk stands in, with
// the folder's entries read in the order the system gives them, and the loop
// that goes through them (WalkTree). The loop knows nothing of what it walks
// for: it tells a WalkVisitor that a folder was entered and a file found, so
// that the search, the archive scan and the file manager share it.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "data/file_identity.h"

namespace kelvor {

class DirStack;

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
  // Modification and status-change times in nanoseconds; 0 when the system
  // did not report them.
  std::int64_t mtimeNs = 0, ctimeNs = 0;
  FileIdentity identity;  // from the walk's statx
};

struct Frame {
  int fd = -1;
  std::string name;   // last component ("" for the root)
  std::string path;   // full path ("" for "/")
  FileIdentity id;    // of the folder
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
  const Frame& Top() const { return frames_.back(); }
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

// What a walk is for. Every call comes from the walking thread.
class WalkVisitor {
 public:
  virtual ~WalkVisitor() = default;
  // Before each entry of a folder: pause, stop and refresh. False ends the
  // walk.
  virtual bool Step(const DirStack& stack) = 0;
  // Whether to enter the subfolder `e` of the top folder.
  virtual bool WantFolder(const DirStack& stack, const DirEntry& e) = 0;
  // A folder was entered (the root too); it is the top of the stack.
  virtual void FolderEntered(DirStack& stack) = 0;
  // A file of the top folder. False ends the walk.
  virtual bool FileFound(DirStack& stack, DirEntry& e) = 0;
};

struct WalkMode {
  // Stat all files of a folder as it is entered, before FolderEntered, so
  // that the visitor knows their sizes and times ahead of them.
  bool statOnEntry = false;
  // Take the entry type the folder reports for a regular file without a stat
  // (sizes and times are then unknown).
  bool trustFileType = false;
};

// Walks the tree below `root` ("" = "/"): folders depth first, each folder's
// entries in the order read. False when the root cannot be opened.
bool WalkTree(const std::string& root, WalkVisitor& visitor, WalkMode mode);

// The extension of a file name: what follows the last ".", "" if none.
std::string_view ExtensionOf(std::string_view name);
// The name without its extension.
std::string_view BaseNameOf(std::string_view name);

}  // namespace kelvor
