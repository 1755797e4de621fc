// Every operation that changes files, failed at each of its system calls in
// turn with each error a disk can give: the tree is either as it was, with
// the error named, or as the operation promised; no file is ever lost and no
// temporary name stays behind.

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "data/file_ops.h"
#include "data/file_system.h"
#include "data/trash.h"
#include "frame/error_text.h"
#include "fs_tree.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::TempDir;
using Picture = std::map<std::string, std::string>;

const TextCatalog kGerman;

constexpr int kErrors[] = {EACCES, EPERM, ENOSPC, EXDEV, EROFS, ENOENT, EEXIST, EIO};

struct Operation {
  const char* name;
  // Builds the files below the root; `second` is a folder on another file
  // system, or "" when the operation stays on one.
  std::function<void(const std::filesystem::path& root, const std::filesystem::path& second)> setup;
  // Runs it; false with *text when it says it failed.
  std::function<bool(const std::filesystem::path& root, const std::filesystem::path& second,
                     std::string* text)>
      run;
  bool acrossFileSystems = false;
  // Where a done run may take another name than the run without faults (a
  // name found taken gets the next one): says whether `p` is done.
  std::function<bool(const Picture& p)> isDone = nullptr;
};

void Put(const std::filesystem::path& p, const std::string& bytes) {
  std::filesystem::create_directories(p.parent_path());
  std::FILE* f = std::fopen(p.c_str(), "w");
  ASSERT_NE(f, nullptr) << p;
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

std::string Describe(const Picture& p) {
  std::string s;
  for (const auto& [k, v] : p) s += k + " = " + v.substr(0, 40) + "\n";
  return s;
}

// The tree of one run: a temporary folder, or a fresh folder below `base`
// (a file system mounted for the whole sweep); with a second file system
// when the operation needs one.
class RunTree {
 public:
  RunTree(const Operation& op, const std::filesystem::path* base, int run) {
    if (base) {
      root_ = *base / ("run-" + std::to_string(run));
      std::filesystem::create_directories(root_);
    } else {
      temp_.emplace();
      root_ = temp_->path();
    }
    std::filesystem::create_directories(root_ / "second");
    if (op.acrossFileSystems) other_ = std::make_unique<test::SecondFileSystem>(root_ / "second");
  }
  ~RunTree() {
    other_.reset();
    if (!temp_) std::filesystem::remove_all(root_);
  }
  const std::filesystem::path& root() const { return root_; }
  std::filesystem::path second() const { return root_ / "second"; }
  bool ready() const { return !other_ || other_->mounted(); }

 private:
  std::optional<TempDir> temp_;
  std::filesystem::path root_;
  std::unique_ptr<test::SecondFileSystem> other_;
};

// Runs `op` with the n-th call failing, for n = 1, 2, ... until a run no
// longer reaches a failing call.
void Sweep(const Operation& op, const std::filesystem::path* base = nullptr) {
  int run = 0;
  // The state the operation promises, from a run without faults.
  Picture done;
  {
    RunTree t(op, base, ++run);
    if (!t.ready()) GTEST_SKIP() << "cannot mount a second file system here: skipped";
    op.setup(t.root(), t.second());
    std::string text;
    ASSERT_TRUE(op.run(t.root(), t.second(), &text)) << op.name << ": " << text;
    done = test::TreePicture(t.root());
  }
  for (int err : kErrors) {
    for (int n = 1; n < 200; ++n) {
      SCOPED_TRACE(std::string(op.name) + ": call " + std::to_string(n) + " fails with " +
                   ErrorText(err));
      RunTree t(op, base, ++run);
      op.setup(t.root(), t.second());
      const Picture before = test::TreePicture(t.root());
      FileSystemFaults faults;
      faults.FailNth(FsCall::Any, n, err);
      std::string text;
      bool ok = false;
      {
        FileSystemFaults::Scope scope(&faults);
        ok = op.run(t.root(), t.second(), &text);
      }
      const Picture after = test::TreePicture(t.root());
      EXPECT_EQ(test::LeftoverTemporaries(t.root()), 0);
      if (ok && op.isDone) {
        EXPECT_TRUE(op.isDone(after)) << Describe(after);
      } else if (ok) {
        EXPECT_EQ(after, done) << Describe(after);
      } else {
        EXPECT_EQ(after, before) << Describe(after);
        // A stat that says "not there" (ENOENT) or a name said taken
        // (EEXIST) may end in the error of the step it misleads.
        if (err == ENOENT || err == EEXIST) {
          EXPECT_FALSE(text.empty());
        } else {
          EXPECT_NE(text.find(ErrorText(err)), std::string::npos) << text;
        }
      }
      if (faults.Fired() == 0) {
        EXPECT_TRUE(ok) << text;
        break;
      }
    }
  }
}

RecordedFileState Seen(const std::filesystem::path& p) {
  struct stat st {};
  ::lstat(p.c_str(), &st);
  RecordedFileState r;
  r.size = st.st_size;
  r.device = st.st_dev;
  r.inode = st.st_ino;
  return r;
}

bool Linked(const std::filesystem::path& root, LinkKind kind, std::string* text) {
  ReplaceRequest req;
  req.path = (root / "dups/a copy.bin").string();
  req.source = (root / "keep/a.bin").string();
  req.kind = kind;
  req.pathState = Seen(req.path);
  req.sourceState = Seen(req.source);
  const ReplaceResult r = ReplaceWithLink(req, kGerman);
  *text = r.errorText;
  return r.ok();
}

void TwoCopies(const std::filesystem::path& root, const std::filesystem::path&) {
  Put(root / "keep/a.bin", std::string(100000, 'k'));
  Put(root / "dups/a copy.bin", std::string(100000, 'k'));
  Put(root / "dups/other", "untouched");
}

TEST(FaultSweep, HardLinkReplacement) {
  Sweep({"hard link", TwoCopies,
         [](auto& root, auto&, std::string* t) { return Linked(root, LinkKind::HardLink, t); }});
}

TEST(FaultSweep, SymbolicLinkReplacement) {
  Sweep({"symbolic link", TwoCopies,
         [](auto& root, auto&, std::string* t) { return Linked(root, LinkKind::Symlink, t); }});
}

TEST(FaultSweep, ReflinkReplacement) {
  TempDir d;
  test::ReflinkFileSystem xfs(d.path());
  if (!xfs.mounted()) GTEST_SKIP() << "no XFS with reflinks here (needs xfsprogs and loop mounts)";
  Sweep({"reflink", TwoCopies,
         [](auto& root, auto&, std::string* t) { return Linked(root, LinkKind::Reflink, t); }},
        &xfs.path());
}

TEST(FaultSweep, CopyIntoAFolder) {
  Sweep({"copy",
         [](auto& root, auto&) {
           Put(root / "src/a", std::string(3 << 20, 'c'));
           Put(root / "dst/b", "there");
         },
         [](auto& root, auto&, std::string* t) {
           return xCopyFile_W((root / "src/a").string(), (root / "dst/a").string(), t);
         }});
}

TEST(FaultSweep, MoveWithinAFileSystem) {
  Sweep({"move", [](auto& root, auto&) { Put(root / "src/a", "moving"); },
         [](auto& root, auto&, std::string* t) {
           return xMoveFileWithDate_W((root / "src/a").string(), (root / "dst-a").string(), t);
         }});
}

TEST(FaultSweep, MoveAcrossFileSystemsReplacingAFile) {
  Sweep({"move across file systems",
         [](auto& root, auto& second) {
           Put(root / "src/a", std::string(1 << 20, 'm'));
           Put(second / "a", "old target");
         },
         [](auto& root, auto& second, std::string* t) {
           return xMoveFile_W((root / "src/a").string(), (second / "a").string(), t,
                              Overwrite::Yes);
         },
         true});
}

TEST(FaultSweep, BackupWithoutStructure) {
  Sweep({"backup",
         [](auto& root, auto&) {
           Put(root / "src/r.txt", "new");
           Put(root / "t/r.txt", "older copy");
           Put(root / "t/r-001.txt", "oldest copy");
         },
         [](auto& root, auto&, std::string* t) {
           const BackupResult r = BackupDaten((root / "src/r.txt").string(), (root / "t").string(),
                                              true, false, kGerman);
           *t = r.errorText;
           return r.ok;
         }});
}

TEST(FaultSweep, Emptying) {
  Sweep({"zero length", [](auto& root, auto&) { Put(root / "a", "content"); },
         [](auto& root, auto&, std::string* t) {
           return SetFileToZeroLength((root / "a").string(), t);
         }});
}

TEST(FaultSweep, Trash) {
  Sweep({"trash",
         [](auto& root, auto&) {
           Put(root / "files/-odd name\n.txt", "to trash");
           // The trash folders exist before: the sweep looks at the file.
           std::filesystem::create_directories(root / "home/Trash/files");
           std::filesystem::create_directories(root / "home/Trash/info");
         },
         [](auto& root, auto&, std::string* t) {
           TrashOptions o;
           o.dataHome = (root / "home").string();
           o.uid = ::getuid();
           const TrashResult r = MoveToTrash((root / "files/-odd name\n.txt").string(), o, 45000.5);
           *t = r.errorText;
           return r.ok();
         },
         false,
         [](const Picture& p) {
           // The file is gone from its folder and stands in the trash with
           // its info, under whatever name was free.
           int files = 0, infos = 0;
           for (const auto& [name, v] : p) {
             if (name.rfind("home/Trash/files/", 0) == 0 && v.rfind("F to trash", 0) == 0) ++files;
             if (name.rfind("home/Trash/info/", 0) == 0 &&
                 v.find("Path=<root>/files/-odd%20name%0A.txt") != std::string::npos)
               ++infos;
           }
           return files == 1 && infos == 1 && !p.count("files/-odd name\n.txt");
         }});
}

}  // namespace
}  // namespace kelvor
