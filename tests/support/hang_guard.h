#pragma once
// A guard for code that must not hang: when the guarded scope has not ended
// within the limit, the test program reports what hung and ends with a failure
// instead of waiting for ever (a blocked open() cannot be interrupted from the
// test itself).

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kelvor::test {

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

}  // namespace kelvor::test
