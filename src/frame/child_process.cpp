// RunChildProcess: posix_spawn with both output streams on one pipe, read
// until the pipe ends while watching the time limit and the run's stop.

#include "frame/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "frame/error_text.h"
#include "frame/run_state.h"

extern char** environ;

namespace kelvor {

namespace {

std::string ErrnoText(int err, const char* call) {
  return ErrorText(err) + " (" + call + ")";
}

// Closes a descriptor once.
struct Fd {
  int fd = -1;
  ~Fd() { Close(); }
  void Close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }
};

}  // namespace

ChildProcessResult RunChildProcess(const std::vector<std::string>& argv,
                                   const ChildProcessOptions& options) {
  ChildProcessResult r;
  if (argv.empty() || argv[0].empty()) {
    r.error = "no program (posix_spawn)";
    return r;
  }
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    r.error = ErrnoText(errno, "pipe2");
    return r;
  }
  Fd readEnd{fds[0]}, writeEnd{fds[1]};

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.fd, 1);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.fd, 2);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  // The child starts with the default signal dispositions and mask, whatever
  // this process has set up for itself.
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  pid_t pid = -1;
  const bool hasSlash = argv[0].find('/') != std::string::npos;
  const int rc = hasSlash ? ::posix_spawn(&pid, args[0], &actions, &attr, args.data(), environ)
                          : ::posix_spawnp(&pid, args[0], &actions, &attr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  writeEnd.Close();
  if (rc != 0) {
    r.error = ErrnoText(rc, "posix_spawn");
    return r;
  }
  r.started = true;

  const auto start = std::chrono::steady_clock::now();
  char buf[4096];
  bool killed = false;
  for (;;) {
    int waitMs = 100;
    if (!killed && options.timeLimit.count() > 0) {
      const auto left = options.timeLimit - std::chrono::duration_cast<std::chrono::milliseconds>(
                                                std::chrono::steady_clock::now() - start);
      if (left.count() <= 0) {
        r.timedOut = true;
      } else if (left.count() < waitMs) {
        waitMs = static_cast<int>(left.count());
      }
    }
    if (!killed && options.run && options.run->StopRequested()) r.stopped = true;
    if (!killed && (r.timedOut || r.stopped)) {
      ::kill(pid, SIGKILL);
      killed = true;
    }
    pollfd p{readEnd.fd, POLLIN, 0};
    const int n = ::poll(&p, 1, waitMs);
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (n == 0) continue;
    const ssize_t got = ::read(readEnd.fd, buf, sizeof buf);
    if (got < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      break;
    }
    if (got == 0) break;  // every writer closed: the child has ended (or closed its streams)
    const std::size_t room =
        r.output.size() < options.maxOutput ? options.maxOutput - r.output.size() : 0;
    r.output.append(buf, std::min(room, static_cast<std::size_t>(got)));
  }
  readEnd.Close();

  int status = 0;
  for (;;) {
    // A child that closed its streams but goes on running still meets the
    // time limit and the stop.
    const pid_t w = ::waitpid(pid, &status, killed ? 0 : WNOHANG);
    if (w == pid) break;
    if (w < 0 && errno != EINTR) {
      r.error = ErrnoText(errno, "waitpid");
      return r;
    }
    if (w == 0) {
      if (options.timeLimit.count() > 0 &&
          std::chrono::steady_clock::now() - start >= options.timeLimit)
        r.timedOut = true;
      if (options.run && options.run->StopRequested()) r.stopped = true;
      if (r.timedOut || r.stopped) {
        ::kill(pid, SIGKILL);
        killed = true;
      } else {
        ::usleep(10000);
      }
    }
  }
  if (WIFEXITED(status)) {
    r.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    r.signal = WTERMSIG(status);
  }
  return r;
}

}  // namespace kelvor
