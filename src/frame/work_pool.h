#pragma once
// Worker threads for work that can be done ahead of a single-threaded loop.
//
// WorkPool is a fixed set of threads (one per core unless told otherwise)
// with a bounded queue of jobs. It knows nothing of what the jobs do. A job
// gets the index of the worker that runs it (0 .. Threads()-1), so that a
// user can keep one scratch object per worker (a digest context, a decoder)
// without locking.
//
// AheadTable sits on a pool and answers by key: a loop says "compute the
// result for key K ahead" (Ahead) and later "give me the result for K" (Get).
// Get takes a finished result, waits for one in progress, or takes a job that
// has not started back and computes it on the calling thread. So the loop
// gets exactly the results it would have computed itself, in its own order;
// the pool only changes when they are known. Results not asked for are kept
// up to a limit and then dropped oldest first; waiting keys are bounded too,
// so nothing runs unbounded ahead.
//
// Stop: the pool is given a stop test (the run's stop request). A stop ends
// every wait in Get (which then answers "nothing") and workers skip jobs not
// yet started. The destructor of a table waits only for jobs already
// running; the destructor of the pool joins its threads, dropping jobs not
// started.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kelvor {

class WorkPool {
 public:
  using Job = std::function<void(unsigned worker)>;

  // `threads` 0: one per core (std::thread::hardware_concurrency, at least
  // 1). `maxQueued`: jobs waiting for a worker; Submit refuses more.
  // `stop` (may be empty) is tested by waits and before each job.
  explicit WorkPool(unsigned threads = 0, std::function<bool()> stop = {},
                    std::size_t maxQueued = 4096);
  ~WorkPool();
  WorkPool(const WorkPool&) = delete;
  WorkPool& operator=(const WorkPool&) = delete;

  // The number of threads a pool made with `requested` gets.
  static unsigned ThreadsFor(unsigned requested);

  unsigned Threads() const { return static_cast<unsigned>(threads_.size()); }
  // Queues a job. False when the queue is full, a stop was requested or the
  // pool is closing: the job is not run.
  bool Submit(Job job);
  bool StopRequested() const { return stop_ && stop_(); }

 private:
  void Run(unsigned worker);

  std::function<bool()> stop_;
  const std::size_t maxQueued_;
  std::mutex m_;
  std::condition_variable cv_;
  std::list<Job> queue_;
  bool quit_ = false;
  unsigned idle_ = 0;  // workers waiting for a job
  std::vector<std::thread> threads_;
};

// Results by key, computed ahead on a WorkPool or now on the caller's thread.
// `Request` says what to compute for a key (compared with ==: a result made
// for another request is not used); `Result` is what comes out. The compute
// function runs on a worker (worker = its index) or on the thread calling Get
// (worker = kCaller); it answers std::nullopt when it was stopped, and such
// an answer is never handed out as a result made ahead.
//
// Ahead and Get are meant for one thread (the loop); the compute function
// runs on any thread and must keep per-thread state apart by `worker`.
template <class Key, class Request, class Result, class Hash = std::hash<Key>>
class AheadTable {
 public:
  static constexpr int kCaller = -1;
  using Compute = std::function<std::optional<Result>(const Key&, const Request&, int worker)>;

  // `maxWaiting`: keys queued and not started; `maxDone`: results made ahead
  // and not asked for yet.
  AheadTable(WorkPool& pool, Compute compute, std::size_t maxWaiting = 512,
             std::size_t maxDone = 4096)
      : pool_(pool), s_(std::make_shared<Shared>()) {
    s_->compute = std::move(compute);
    s_->maxWaiting = maxWaiting;
    s_->maxDone = maxDone;
  }
  ~AheadTable() {
    std::unique_lock<std::mutex> lock(s_->m);
    s_->closing = true;
    s_->closingFlag.store(true, std::memory_order_relaxed);
    s_->waiting.clear();
    // Jobs not started find the table closed and do nothing; running ones
    // are waited for, as they use what the compute function refers to.
    ++s_->waiters;
    s_->cv.wait(lock, [&] { return s_->running == 0; });
    --s_->waiters;
  }
  AheadTable(const AheadTable&) = delete;
  AheadTable& operator=(const AheadTable&) = delete;

  // True from the destructor on; a long compute may test it to end early.
  bool Closing() const { return s_->closingFlag.load(std::memory_order_relaxed); }

  // Compute the result for `key` ahead. False (and nothing happens) when the
  // key is known already, too many keys wait, or the pool refuses the job.
  bool Ahead(const Key& key, Request request) {
    std::shared_ptr<Shared> s = s_;
    {
      std::lock_guard<std::mutex> lock(s->m);
      if (s->closing || s->waiting.size() >= s->maxWaiting || s->entries.count(key)) return false;
      auto [it, inserted] = s->entries.try_emplace(key);
      it->second.request = std::move(request);
      s->waiting.push_back(key);
      it->second.pos = std::prev(s->waiting.end());
      // A pool job works keys until none waits; more jobs than workers
      // would only wait for each other. So a key gets a job of its own only
      // while fewer jobs than workers are under way, and the hand-off to a
      // worker is paid once per run of keys rather than once per key.
      if (s->jobs >= pool_.Threads()) return true;
      ++s->jobs;
    }
    std::weak_ptr<Shared> weak = s;
    if (pool_.Submit([weak](unsigned worker) {
          if (auto shared = weak.lock()) Work(*shared, static_cast<int>(worker));
        }))
      return true;
    std::lock_guard<std::mutex> lock(s->m);
    --s->jobs;
    if (s->jobs > 0) return true;  // a job under way takes the key
    auto it = s->entries.find(key);
    if (it != s->entries.end() && it->second.state == State::Waiting) {
      s->waiting.erase(it->second.pos);
      s->entries.erase(it);
    }
    return false;
  }

  // The result for `key` under `request`: made ahead, waited for, or computed
  // now on this thread. std::nullopt: stopped.
  std::optional<Result> Get(const Key& key, const Request& request) {
    if (auto r = TakeAhead(key, request)) return r;
    return s_->compute(key, request, kCaller);
  }

  // A result made ahead for `key` under `request`, taken out of the table
  // (waiting for it when in progress). std::nullopt when there is none: not
  // asked ahead, not started (then taken back), made for another request,
  // stopped, or a stop ended the wait.
  std::optional<Result> TakeAhead(const Key& key, const Request& request) {
    std::unique_lock<std::mutex> lock(s_->m);
    auto it = s_->entries.find(key);
    for (;;) {
      if (it == s_->entries.end()) return std::nullopt;
      if (it->second.state == State::Waiting) {
        s_->waiting.erase(it->second.pos);
        s_->entries.erase(it);
        return std::nullopt;
      }
      if (it->second.state == State::Done) break;
      // Short steps, so that a stop request ends the wait even when the job
      // itself does not notice it.
      if (pool_.StopRequested()) return std::nullopt;
      ++s_->waiters;
      s_->cv.wait_for(lock, std::chrono::milliseconds(50));
      --s_->waiters;
      it = s_->entries.find(key);
    }
    Entry e = std::move(it->second);
    s_->done.erase(e.pos);
    s_->entries.erase(it);
    lock.unlock();
    if (!e.result || !(e.request == request)) return std::nullopt;
    return std::move(e.result);
  }

  // Calls `look` with a finished result for `key` under `request`, which
  // stays in the table. False without calling when none is finished.
  template <class Look>
  bool Peek(const Key& key, const Request& request, Look&& look) const {
    std::lock_guard<std::mutex> lock(s_->m);
    auto it = s_->entries.find(key);
    if (it == s_->entries.end() || it->second.state != State::Done || !it->second.result ||
        !(it->second.request == request))
      return false;
    look(*it->second.result);
    return true;
  }

  // Compute `key` ahead once more under the request it was asked with: a
  // finished result is dropped and made again, a running one is made again
  // when it ends. Meant for the compute function, which may find that a key
  // it finished earlier needs more than it made then; the worker calling it
  // takes the key before it leaves. False when the key is not in the table
  // (taken, dropped or never asked) or waits already.
  bool Redo(const Key& key) {
    std::lock_guard<std::mutex> lock(s_->m);
    if (s_->closing) return false;
    auto it = s_->entries.find(key);
    if (it == s_->entries.end()) return false;
    Entry& e = it->second;
    if (e.state == State::Running) {
      e.again = true;
      return true;
    }
    if (e.state != State::Done) return false;
    s_->done.erase(e.pos);
    e.state = State::Waiting;
    e.result.reset();
    s_->waiting.push_back(key);
    e.pos = std::prev(s_->waiting.end());
    return true;
  }

  // Keys waiting, running or finished and not taken (for tests).
  std::size_t Size() const {
    std::lock_guard<std::mutex> lock(s_->m);
    return s_->entries.size();
  }

 private:
  enum class State { Waiting, Running, Done };
  struct Entry {
    Request request{};
    State state = State::Waiting;
    std::optional<Result> result;
    bool again = false;                     // Redo while running: wait again when done
    typename std::list<Key>::iterator pos;  // in `waiting` or `done`, by state
  };
  // Shared with the pool's jobs, which may outlive the table unstarted.
  struct Shared {
    mutable std::mutex m;
    std::condition_variable cv;
    Compute compute;
    std::size_t maxWaiting = 0, maxDone = 0;
    std::unordered_map<Key, Entry, Hash> entries;
    std::list<Key> waiting, done;
    int running = 0;    // keys being computed
    int waiters = 0;    // threads waiting on `cv`: a finished key wakes only them
    unsigned jobs = 0;  // pool jobs queued or working keys
    bool closing = false;
    std::atomic<bool> closingFlag{false};  // `closing`, for tests without the lock
  };

  // One pool job: computes waiting keys, the newest first, until none is
  // left. Newest first, so that workers start at the far end of what the
  // loop will ask for while the loop takes back the near end: the two rarely
  // meet on a key.
  static void Work(Shared& s, int worker) {
    std::unique_lock<std::mutex> lock(s.m);
    while (!s.closing && !s.waiting.empty()) {
      Key key = std::move(s.waiting.back());
      s.waiting.pop_back();
      auto it = s.entries.find(key);
      it->second.state = State::Running;
      const Request request = it->second.request;
      ++s.running;
      lock.unlock();

      std::optional<Result> result = s.compute(key, request, worker);

      lock.lock();
      --s.running;
      it = s.entries.find(key);
      if (it->second.again && !s.closing) {
        it->second.again = false;
        it->second.state = State::Waiting;
        s.waiting.push_back(std::move(key));
        it->second.pos = std::prev(s.waiting.end());
        if (s.waiters > 0) s.cv.notify_all();
        continue;
      }
      it->second.state = State::Done;
      it->second.result = std::move(result);
      s.done.push_back(std::move(key));
      it->second.pos = std::prev(s.done.end());
      while (s.done.size() > s.maxDone) {
        s.entries.erase(s.done.front());
        s.done.pop_front();
      }
      // Most keys are finished before anyone asks for them: waking nobody
      // spares a futex call per key.
      if (s.waiters > 0) s.cv.notify_all();
    }
    --s.jobs;
  }

  WorkPool& pool_;
  std::shared_ptr<Shared> s_;
};

}  // namespace kelvor
