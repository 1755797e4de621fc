#pragma once
// Test helpers for code that must never hang: a guard that fails a test
// instead of waiting for ever, FIFOs put in the place of files, and trees
// deeper than the system's path limit.

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kelvor::test {

// Ends the test program with a failure when the scope it guards has not
// ended within the limit (a blocked open() cannot be interrupted from the
// test itself).
class HangGuard {
 public:
  HangGuard(std::chrono::seconds limit, std::string what);
  ~HangGuard();
  HangGuard(const HangGuard&) = delete;
  HangGuard& operator=(const HangGuard&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  std::thread watcher_;
};

// Runs `work` on a thread of its own and waits at most `limit` for it. When
// it is not done by then, `release` is called again and again (it should
// free whatever holds the work, e.g. ReleaseFifoReaders) until the work ends;
// if it still does not end within a further 10 seconds the test program is
// ended, since a test must fail, not hang. True when the work ended in time.
bool FinishesWithin(std::chrono::milliseconds limit, const std::function<void()>& work,
                    const std::function<void()>& release);

// Replaces the file at `path` by a FIFO of the same name.
void SwapForFifo(const std::string& path);
// Opens each FIFO for writing without waiting and closes it again: a reader
// blocked in opening it goes on (and reads the end of the stream).
void ReleaseFifoReaders(const std::vector<std::string>& fifos);

// Makes `depth` nested folders named `segment` below `base` (which exists)
// and returns the full path of the deepest; with enough depth it is longer
// than PATH_MAX, so that only descriptor-relative calls reach it.
std::string MakeDeepFolder(const std::filesystem::path& base, std::string_view segment, int depth);
// Writes a file at a path of any length; its folder must exist.
void WriteDeep(const std::string& path, std::string_view content);
// stat of a path of any length (symbolic links followed); false on failure.
bool StatAnyPath(const std::string& path, struct stat* st);
// Removes `name` below `parent` with everything in it, at any depth.
void RemoveDeep(const std::filesystem::path& parent, const std::string& name);

// The names of a folder in the order the system lists them (without "." and
// ".."), which is the order a walk meets them.
std::vector<std::string> ListingOrder(const std::filesystem::path& folder);

}  // namespace kelvor::test
