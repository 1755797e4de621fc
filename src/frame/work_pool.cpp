#include "frame/work_pool.h"

#include <algorithm>

namespace kelvor {

unsigned WorkPool::ThreadsFor(unsigned requested) {
  if (requested > 0) return requested;
  return std::max(1u, std::thread::hardware_concurrency());
}

WorkPool::WorkPool(unsigned threads, std::function<bool()> stop, std::size_t maxQueued)
    : stop_(std::move(stop)), maxQueued_(std::max<std::size_t>(1, maxQueued)) {
  const unsigned n = ThreadsFor(threads);
  threads_.reserve(n);
  for (unsigned i = 0; i < n; ++i) threads_.emplace_back([this, i] { Run(i); });
}

WorkPool::~WorkPool() {
  {
    std::lock_guard<std::mutex> lock(m_);
    quit_ = true;
    queue_.clear();
  }
  cv_.notify_all();
  for (std::thread& t : threads_) t.join();
}

bool WorkPool::Submit(Job job) {
  if (StopRequested()) return false;
  {
    std::lock_guard<std::mutex> lock(m_);
    if (quit_ || queue_.size() >= maxQueued_) return false;
    queue_.push_back(std::move(job));
    // A worker that is busy takes the job when it finishes its own.
    if (idle_ == 0) return true;
  }
  cv_.notify_one();
  return true;
}

void WorkPool::Run(unsigned worker) {
  std::unique_lock<std::mutex> lock(m_);
  for (;;) {
    ++idle_;
    cv_.wait(lock, [&] { return quit_ || !queue_.empty(); });
    --idle_;
    if (quit_) return;
    Job job = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    // After a stop the jobs still queued are dropped unrun: whoever waits
    // for their results stops waiting too.
    if (!StopRequested()) job(worker);
    job = nullptr;  // what the job holds goes before the lock is taken again
    lock.lock();
  }
}

}  // namespace kelvor
