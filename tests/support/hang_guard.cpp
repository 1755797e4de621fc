#include "support/hang_guard.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace kelvor::test {

namespace {

// Opens the folder that holds the last component of `path`, walking the
// components one by one; returns the descriptor and sets *name.
int OpenParent(const std::string& path, std::string* name) {
  int fd = ::open(path.rfind('/', 0) == 0 ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  std::size_t start = 0;
  for (;;) {
    while (start < path.size() && path[start] == '/') ++start;
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) {
      *name = path.substr(start);
      return fd;
    }
    int next =
        ::openat(fd, path.substr(start, end - start).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ::close(fd);
    if (next < 0) return -1;
    fd = next;
    start = end + 1;
  }
}

void RemoveAt(int dirFd, const char* name) {
  int fd = ::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    ::unlinkat(dirFd, name, 0);
    return;
  }
  std::vector<std::string> names;
  if (DIR* d = ::fdopendir(::dup(fd))) {
    while (dirent* e = ::readdir(d)) {
      std::string n = e->d_name;
      if (n != "." && n != "..") names.push_back(n);
    }
    ::closedir(d);
  }
  for (const auto& n : names) RemoveAt(fd, n.c_str());
  ::close(fd);
  ::unlinkat(dirFd, name, AT_REMOVEDIR);
}

}  // namespace

HangGuard::HangGuard(std::chrono::seconds limit, std::string what) {
  watcher_ = std::thread([this, limit, what = std::move(what)] {
    std::unique_lock<std::mutex> lock(mutex_);
    if (done_.wait_for(lock, limit, [this] { return finished_; })) return;
    std::fprintf(stderr, "HANG: %s did not end within %lld seconds\n", what.c_str(),
                 static_cast<long long>(limit.count()));
    std::fflush(stderr);
    ::_exit(1);
  });
}

HangGuard::~HangGuard() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
  }
  done_.notify_all();
  watcher_.join();
}

bool FinishesWithin(std::chrono::milliseconds limit, const std::function<void()>& work,
                    const std::function<void()>& release) {
  std::atomic<bool> done{false};
  std::thread t([&] {
    work();
    done.store(true);
  });
  const auto start = std::chrono::steady_clock::now();
  while (!done.load() && std::chrono::steady_clock::now() - start < limit)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  if (done.load()) {
    t.join();
    return true;
  }
  ADD_FAILURE() << "still running after " << limit.count() << " ms";
  const auto grace = std::chrono::steady_clock::now();
  while (!done.load()) {
    if (release) release();
    if (std::chrono::steady_clock::now() - grace > std::chrono::seconds(10)) {
      std::fprintf(stderr, "the work still hangs after being released; giving up\n");
      std::_Exit(1);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  t.join();
  return false;
}

void SwapForFifo(const std::string& path) {
  std::string name;
  int dir = OpenParent(path, &name);
  if (dir < 0) throw std::runtime_error("no folder for " + path);
  ::unlinkat(dir, name.c_str(), 0);
  int rc = ::mkfifoat(dir, name.c_str(), 0644);
  ::close(dir);
  if (rc != 0) throw std::runtime_error("mkfifo failed for " + path);
}

void ReleaseFifoReaders(const std::vector<std::string>& fifos) {
  for (const auto& f : fifos) {
    std::string name;
    int dir = OpenParent(f, &name);
    if (dir < 0) continue;
    int fd = ::openat(dir, name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) ::close(fd);
    ::close(dir);
  }
}

std::string MakeDeepFolder(const std::filesystem::path& base, std::string_view segment, int depth) {
  int fd = ::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("cannot open " + base.string());
  std::string path = base.string();
  const std::string seg(segment);
  for (int i = 0; i < depth; ++i) {
    ::mkdirat(fd, seg.c_str(), 0755);
    int next = ::openat(fd, seg.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(fd);
    if (next < 0) throw std::runtime_error("cannot make the deep folder");
    fd = next;
    path += "/" + seg;
  }
  ::close(fd);
  return path;
}

void WriteDeep(const std::string& path, std::string_view content) {
  std::string name;
  int dir = OpenParent(path, &name);
  if (dir < 0) throw std::runtime_error("no folder for a deep file");
  int fd = ::openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  ::close(dir);
  if (fd < 0) throw std::runtime_error("cannot write a deep file");
  std::size_t done = 0;
  while (done < content.size()) {
    ssize_t n = ::write(fd, content.data() + done, content.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
}

bool StatAnyPath(const std::string& path, struct stat* st) {
  std::string name;
  int dir = OpenParent(path, &name);
  if (dir < 0) return false;
  bool ok = ::fstatat(dir, name.c_str(), st, 0) == 0;
  ::close(dir);
  return ok;
}

void RemoveDeep(const std::filesystem::path& parent, const std::string& name) {
  int fd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  RemoveAt(fd, name.c_str());
  ::close(fd);
}

std::vector<std::string> ListingOrder(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  if (DIR* d = ::opendir(folder.c_str())) {
    while (dirent* e = ::readdir(d)) {
      std::string n = e->d_name;
      if (n != "." && n != "..") names.push_back(n);
    }
    ::closedir(d);
  }
  return names;
}

}  // namespace kelvor::test
