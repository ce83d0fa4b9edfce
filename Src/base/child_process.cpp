#include "base/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "base/stoppable_wait.h"
#include "base/unique_handles.h"

namespace base {
namespace {

constexpr int64_t CHILD_POLL_MS = 20;  // between two checks on a kernel without pidfd_open(2)

// The spawn attributes and file actions of one child.
class SpawnPlan {
 public:
  explicit SpawnPlan(int stdoutFd) {
    posix_spawnattr_init(&spawnAttributes_);
    posix_spawn_file_actions_init(&spawnActions_);
    sigset_t spawnMask;
    sigset_t spawnDefaults;
    sigemptyset(&spawnMask);
    sigfillset(&spawnDefaults);
    posix_spawnattr_setsigmask(&spawnAttributes_, &spawnMask);
    posix_spawnattr_setsigdefault(&spawnAttributes_, &spawnDefaults);
    posix_spawnattr_setflags(&spawnAttributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&spawnActions_, stdoutFd, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&spawnActions_, STDERR_FILENO + 1);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&spawnActions_);
    posix_spawnattr_destroy(&spawnAttributes_);
  }
  int Spawn(pid_t* pid, char* const* childArgv, char* const* childVariables) {
    return posix_spawnp(pid, childArgv[0], &spawnActions_, &spawnAttributes_, childArgv, childVariables);
  }

 private:
  posix_spawnattr_t spawnAttributes_{};
  posix_spawn_file_actions_t spawnActions_{};
};

std::vector<char*> ChildTextPointers(std::vector<std::string>& childTexts) {
  std::vector<char*> childPointers;
  childPointers.reserve(childTexts.size() + 1);
  for (std::string& childText : childTexts) childPointers.push_back(childText.data());
  childPointers.push_back(nullptr);
  return childPointers;
}

bool SameEnvVariable(std::string_view childVariable, std::string_view inheritedVariable) {
  return childVariable.substr(0, childVariable.find('=')) ==
         inheritedVariable.substr(0, inheritedVariable.find('='));
}

std::vector<std::string> ChildEnvironment(const std::vector<std::string>& childChanges) {
  std::vector<std::string> childEnvironment = childChanges;
  for (char** parentVariable = environ; parentVariable != nullptr && *parentVariable != nullptr;
       ++parentVariable) {
    bool childOverrides = false;
    for (const std::string& childChange : childChanges)
      childOverrides = childOverrides || SameEnvVariable(childChange, *parentVariable);
    if (!childOverrides) childEnvironment.emplace_back(*parentVariable);
  }
  return childEnvironment;
}

// Returns 1 when the child has ended, or -1 with errno when the wait failed or was cut.
int AwaitChildEnd(pid_t childPid, int* waitStatus, const Overdue* overdue) {
  const UniqueFd childPidFd(static_cast<int>(::syscall(SYS_pidfd_open, childPid, 0)));
  int64_t childMsLeft = overdue == nullptr ? FOREVER : overdue->childLimitMs;
  while (true) {
    if (overdue != nullptr && childMsLeft == 0) {
      overdue->tellOverdue();
      childMsLeft = FOREVER;
    }
    const pid_t endedChild = ::waitpid(childPid, waitStatus, WNOHANG);
    if (endedChild == childPid) return 1;
    if (endedChild < 0 && errno != EINTR) return -1;
    if (childPidFd.Valid()) {
      const int childReady = WaitDescriptor(childPidFd.Get(), POLLIN, childMsLeft);
      if (childReady < 0) return -1;
      if (childReady == 0) childMsLeft = 0;
    } else if (StopGraceOver()) {
      errno = ECANCELED;
      return -1;
    } else {
      ::poll(nullptr, 0, CHILD_POLL_MS);
      if (childMsLeft != FOREVER) childMsLeft = std::max<int64_t>(childMsLeft - CHILD_POLL_MS, 0);
    }
  }
}

}  // namespace

int RunProgram(const std::vector<std::string>& childArgv, int stdoutFd,
               const std::vector<std::string>& childVariables, const Overdue* overdue) {
  std::vector<std::string> argvCopy = childArgv;
  std::vector<std::string> environmentCopy = ChildEnvironment(childVariables);
  SpawnPlan spawnPlan(stdoutFd);
  pid_t childPid = 0;
  const int spawnError = spawnPlan.Spawn(&childPid, ChildTextPointers(argvCopy).data(),
                                         ChildTextPointers(environmentCopy).data());
  if (spawnError != 0) {
    errno = spawnError;
    return -1;
  }
  int waitStatus = 0;
  return AwaitChildEnd(childPid, &waitStatus, overdue) == 1 ? waitStatus : -1;
}

int RunShell(const std::string& command, const Overdue* overdue) {
  return RunProgram({"/bin/sh", "-c", command}, -1, {}, overdue);
}

}  // namespace base
