#pragma once
// Runs an outside program as a child process: the arguments go to it as they
// are (no shell reads them), its standard output and standard error arrive
// mixed in one text, and the caller learns the exit code. A time limit and a
// stop request of the run end the child early. Safe to call from several
// threads at once: it keeps no state between calls.

#include <chrono>
#include <string>
#include <vector>

namespace kelvor {

struct RunState;

struct ChildProcessOptions {
  // Ends the child (SIGKILL) when it runs longer; zero: no limit.
  std::chrono::milliseconds timeLimit{0};
  // Tested while the child runs; a stop request ends the child.
  const RunState* run = nullptr;
  // Output beyond this many bytes is read and dropped.
  std::size_t maxOutput = 16u << 20;
};

struct ChildProcessResult {
  bool started = false;   // the program ran
  std::string output;     // standard output and standard error, mixed
  int exitCode = -1;      // the exit status, or -1 when it did not exit normally
  int signal = 0;         // the signal that ended it, if one did
  bool timedOut = false;  // ended because of the time limit
  bool stopped = false;   // ended because the run was stopped
  std::string error;      // why it could not start (with the call that failed)
};

// Runs `argv[0]` with the arguments `argv` (argv[0] a path, or a name looked
// up in PATH). Standard input is /dev/null.
ChildProcessResult RunChildProcess(const std::vector<std::string>& argv,
                                   const ChildProcessOptions& options = {});

}  // namespace kelvor
