#include "support/hang_guard.h"

#include <unistd.h>

#include <cstdio>

namespace kelvor::test {

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

}  // namespace kelvor::test
