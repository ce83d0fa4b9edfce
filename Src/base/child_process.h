// Child processes. A child inherits descriptors 0, 1 and 2 from the agent, and no others.
#ifndef BASE_CHILD_PROCESS_H
#define BASE_CHILD_PROCESS_H

#include <cstdint>
#include <string>
#include <vector>

namespace base {

// Whom to tell, once, of a child that has not ended after so many milliseconds. It is waited for all the
// same.
struct Overdue {
  int64_t childLimitMs;
  void (*tellOverdue)();
};

// Runs a program, looked up in PATH, and waits until it ends. childArgv is its argv. It starts with default
// signal actions, an empty signal mask and no descriptor above 2. stdoutFd becomes its standard output unless
// it is negative. Each entry of childVariables ("NAME=value") replaces the agent's own entry of that name, or
// is added. Returns the wait status of waitpid(2), or -1 with errno when the program could not be started.
// During a stop, -1 with ECANCELED means that the grace ended before the child did; the child goes on
// running.
[[nodiscard]] int RunProgram(const std::vector<std::string>& childArgv, int stdoutFd = -1,
                             const std::vector<std::string>& childVariables = {},
                             const Overdue* overdue = nullptr);

// Runs a command line with the system shell ("/bin/sh -c"). Results as RunProgram.
[[nodiscard]] int RunShell(const std::string& command, const Overdue* overdue = nullptr);

}  // namespace base

#endif
