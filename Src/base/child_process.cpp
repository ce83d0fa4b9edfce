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
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&actions_, stdoutFd, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  int Spawn(pid_t* pid, char* const* words, char* const* environment) {
    return posix_spawnp(pid, words[0], &actions_, &attributes_, words, environment);
  }

 private:
  posix_spawnattr_t attributes_{};
  posix_spawn_file_actions_t actions_{};
};

std::vector<char*> ArgumentPointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

bool SameVariable(std::string_view one, std::string_view other) {
  return one.substr(0, one.find('=')) == other.substr(0, other.find('='));
}

std::vector<std::string> ChildEnvironment(const std::vector<std::string>& changes) {
  std::vector<std::string> result = changes;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    bool changed = false;
    for (const std::string& change : changes) changed = changed || SameVariable(change, *entry);
    if (!changed) result.emplace_back(*entry);
  }
  return result;
}

// Returns 1 when the child has ended, or -1 with errno when the wait failed or was cut.
int AwaitEnd(pid_t pid, int* status, const Overdue* overdue) {
  const UniqueFd process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  int64_t left = overdue == nullptr ? FOREVER : overdue->milliseconds;  // until the child is overdue
  while (true) {
    if (left == 0) {
      overdue->tell();
      left = FOREVER;
    }
    const pid_t ended = ::waitpid(pid, status, WNOHANG);
    if (ended == pid) return 1;
    if (ended < 0 && errno != EINTR) return -1;
    if (process.Valid()) {
      const int ready = WaitDescriptor(process.Get(), POLLIN, left);
      if (ready < 0) return -1;
      if (ready == 0) left = 0;
    } else if (StopGraceOver()) {
      errno = ECANCELED;
      return -1;
    } else {
      ::poll(nullptr, 0, CHILD_POLL_MS);
      if (left != FOREVER) left = std::max<int64_t>(left - CHILD_POLL_MS, 0);
    }
  }
}

}  // namespace

int RunProgram(const std::vector<std::string>& words, int stdoutFd,
               const std::vector<std::string>& environment, const Overdue* overdue) {
  std::vector<std::string> wordCopy = words;
  std::vector<std::string> environmentCopy = ChildEnvironment(environment);
  SpawnPlan plan(stdoutFd);
  pid_t pid = 0;
  const int error =
      plan.Spawn(&pid, ArgumentPointers(wordCopy).data(), ArgumentPointers(environmentCopy).data());
  if (error != 0) {
    errno = error;
    return -1;
  }
  int status = 0;
  return AwaitEnd(pid, &status, overdue) == 1 ? status : -1;
}

int RunShell(const std::string& command, const Overdue* overdue) {
  return RunProgram({"/bin/sh", "-c", command}, -1, {}, overdue);
}

}  // namespace base
