// The walk over a folder tree.
//
// It walks with openat/readdir on directory descriptors and one statx per
// entry relative to its folder's descriptor (the folder calls of the
// file-system layer, data/file_system.h), so that neither the depth of a
// tree nor PATH_MAX limits them. The walk keeps an explicit stack instead of
// recursing, and holds descriptors only for the deepest folders: a folder
// whose descriptor was given up is opened again from its nearest open
// ancestor when the walk comes back to it.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "data/file_record.h"
#include "data/file_system.h"
#include "frame/formats.h"
#include "search/walk.h"

namespace kelvor {

namespace {

constexpr std::size_t kMaxOpenDescriptors = 48;
constexpr unsigned kStatxMask = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_INO | STATX_SIZE |
                                STATX_MTIME | STATX_BTIME | STATX_CTIME;

}  // namespace

// ---------------------------------------------------------------------------
// DirStack

DirStack::~DirStack() {
  for (auto& f : frames_) xCloseFd(f.fd);
}

bool DirStack::PushRoot(const std::string& path) {
  int fd = xOpenFolder(path);
  if (fd < 0) return false;
  Frame f;
  f.fd = fd;
  f.path = path;
  if (!Fill(f)) {
    xCloseFd(fd);
    return false;
  }
  frames_.push_back(std::move(f));
  return true;
}

bool DirStack::PushChild(const std::string& name, bool followLink) {
  int parentFd = Fd(frames_.size() - 1);
  if (parentFd < 0) return false;
  int fd = xOpenFolderAt(parentFd, name.c_str(), followLink);
  if (fd < 0 && (errno == EMFILE || errno == ENFILE)) {
    ReleaseDescriptors(0);
    fd = xOpenFolderAt(Fd(frames_.size() - 1), name.c_str(), followLink);
  }
  if (fd < 0) return false;
  Frame f;
  f.fd = fd;
  f.name = name;
  f.path = frames_.back().path + "/" + name;
  if (!Fill(f)) {
    xCloseFd(fd);
    return false;
  }
  // A followed link never enters a folder the walk already stands in.
  for (const auto& a : frames_) {
    if (a.id.SameFile(f.id)) {
      xCloseFd(fd);
      return false;
    }
  }
  frames_.push_back(std::move(f));
  if (frames_.size() > kMaxOpenDescriptors)
    ReleaseDescriptors(frames_.size() - kMaxOpenDescriptors);
  return true;
}

void DirStack::Pop() {
  xCloseFd(frames_.back().fd);
  frames_.pop_back();
}

void DirStack::ReleaseDescriptors(std::size_t keepFrom) {
  // The root keeps its descriptor: every other folder can be reached from it.
  for (std::size_t i = 1; i < frames_.size() && i < keepFrom + 1; ++i) {
    if (i + 1 >= frames_.size()) break;  // the folder being read stays open
    if (frames_[i].fd >= 0) {
      xCloseFd(frames_[i].fd);
      frames_[i].fd = -1;
    }
  }
}

int DirStack::Fd(std::size_t level) {
  Frame& f = frames_[level];
  if (f.fd >= 0) return f.fd;
  std::size_t from = level;
  while (frames_[from].fd < 0) --from;  // the root always has one
  int fd = frames_[from].fd;
  bool own = false;
  for (std::size_t i = from + 1; i <= level; ++i) {
    // The link was followed when the folder was first entered, and the loop
    // guard held then: the same name leads to the same folder again.
    int next = xOpenFolderAt(fd, frames_[i].name.c_str(), true);
    if (own) xCloseFd(fd);
    if (next < 0) return -1;
    fd = next;
    own = true;
  }
  f.fd = fd;
  return fd;
}

bool DirStack::Fill(Frame& f) {
  return xReadFolder(f.fd, &f.id, [&f](const char* n, std::size_t length, unsigned char type) {
           DirEntry entry;
           entry.nameOffset = static_cast<std::uint32_t>(f.names.size());
           entry.nameLength = static_cast<std::uint32_t>(length);
           entry.type = type;
           f.names.append(n, length);
           f.entries.push_back(entry);
         }) == 0;
}

bool DirStack::Stat(DirEntry& e) {
  int fd = Fd(frames_.size() - 1);
  std::string name(Name(e));
  struct statx sx;
  if (fd < 0 || xStatAt(fd, name.c_str(), false, kStatxMask, &sx) != 0) {
    e.kind = EntryKind::Gone;
    return false;
  }
  e.isLink = S_ISLNK(sx.stx_mode);
  if (e.isLink) {
    // What the link points to decides: a folder is a junction, a file is
    // not a file of the search, a dangling link is nothing.
    struct statx target;
    if (xStatAt(fd, name.c_str(), true, STATX_TYPE | STATX_MODE, &target) != 0 ||
        !S_ISDIR(target.stx_mode)) {
      e.kind = EntryKind::Other;
      return true;
    }
    e.kind = EntryKind::Folder;
    return true;
  }
  if (S_ISDIR(sx.stx_mode)) {
    e.kind = EntryKind::Folder;
    return true;
  }
  if (!S_ISREG(sx.stx_mode)) {
    e.kind = EntryKind::Other;
    return true;
  }
  e.kind = EntryKind::File;
  e.size = static_cast<std::int64_t>(sx.stx_size);
  // Dates are whole seconds, as the program's date type holds them: the
  // parts of a second would split files that show the same date.
  e.mtime = DateFromTimespec(sx.stx_mtime.tv_sec);
  e.btime = (sx.stx_mask & STATX_BTIME) ? DateFromTimespec(sx.stx_btime.tv_sec) : e.mtime;
  e.identity = IdentityOf(sx);
  if ((sx.stx_mask & (STATX_MTIME | STATX_CTIME)) == (STATX_MTIME | STATX_CTIME)) {
    e.mtimeNs = sx.stx_mtime.tv_sec * 1000000000LL + sx.stx_mtime.tv_nsec;
    e.ctimeNs = sx.stx_ctime.tv_sec * 1000000000LL + sx.stx_ctime.tv_nsec;
  }
  std::int32_t attr = 0;
  if (!(sx.stx_mode & S_IWUSR)) attr |= kAttrReadOnly;
  if (name[0] == '.') attr |= kAttrHidden;
  e.attributes = attr == 0 ? kAttrNormal : attr;
  return true;
}

void DirStack::Classify(DirEntry& e) {
  if (e.kind != EntryKind::Unknown) return;
  if (e.type == DT_DIR) {
    e.kind = EntryKind::Folder;
    return;
  }
  Stat(e);
}

// ---------------------------------------------------------------------------
// WalkTree

bool WalkTree(const std::string& root, WalkVisitor& visitor, WalkMode mode) {
  DirStack stack;
  if (!stack.PushRoot(root)) return false;
  auto entered = [&] {
    if (mode.statOnEntry) {
      for (auto& e : stack.Top().entries)
        if (e.type != DT_DIR) stack.Classify(e);
    }
    visitor.FolderEntered(stack);
  };
  entered();
  while (!stack.Empty()) {
    Frame& top = stack.Top();
    if (top.next >= top.entries.size()) {
      stack.Pop();
      continue;
    }
    DirEntry& e = top.entries[top.next++];
    if (!visitor.Step(stack)) return true;
    if (mode.trustFileType && e.type == DT_REG) {
      e.kind = EntryKind::File;
    } else {
      stack.Classify(e);
    }
    if (e.kind == EntryKind::File) {
      if (!visitor.FileFound(stack, e)) return true;
    } else if (e.kind == EntryKind::Folder) {
      if (visitor.WantFolder(stack, e) && stack.PushChild(std::string(stack.Name(e)), e.isLink))
        entered();
    }
  }
  return true;
}

}  // namespace kelvor
