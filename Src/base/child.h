// Child processes that inherit nothing of the agent but descriptors 0, 1 and 2.
#ifndef BASE_CHILD_H
#define BASE_CHILD_H

#include <string>
#include <vector>

namespace base {

// Runs a program (looked up in PATH) with these words as its argv, default signal actions, an empty signal
// mask and no descriptor above 2, and waits for its end. stdoutFd, when not negative, becomes its standard
// output; environment entries ("NAME=value") are put in place of, or beside, the agent's own. The wait status
// of waitpid(2); -1 with errno when it could not be started, or with ECANCELED when a stop was under way and
// the grace ended before the child did (it lives on).
[[nodiscard]] int RunProgram(const std::vector<std::string>& words, int stdoutFd = -1,
                             const std::vector<std::string>& environment = {});

// RunProgram of the system shell with "-c" and this command line.
[[nodiscard]] int RunShell(const std::string& command);

}  // namespace base

#endif
