#include "ctl/step_killer.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>

#include "ctl/process_table.h"

namespace {

constexpr long OPTIONS = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
constexpr int HELPER = 2;

pid_t StartTraced(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int null = open("/dev/null", O_RDWR);
  for (int fd = 0; fd <= 2; ++fd) dup2(null, fd);
  ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  raise(SIGSTOP);
  execv(pointers[0], pointers.data());
  _exit(127);
}

// Generations: the starter; the child that forks the helper; the helper. What comes behind goes free, and so
// does the starter once it is the command.
class Tracer {
 public:
  Tracer(Victim victim, int step) : victim_(victim == Victim::STARTER ? 0 : HELPER), step_(step) {}

  bool Run(pid_t starter) {
    int status = 0;
    waitpid(starter, &status, 0);
    ptrace(PTRACE_SETOPTIONS, starter, nullptr, OPTIONS);
    ptrace(PTRACE_SYSCALL, starter, nullptr, nullptr);
    generation_[starter] = 0;
    while (!generation_.empty()) {
      const pid_t pid = waitpid(-1, &status, __WALL);
      if (pid < 0) break;
      if (WIFSTOPPED(status)) {
        Stopped(pid, status);
      } else {
        generation_.erase(pid);
      }
    }
    return killed_;
  }

 private:
  void Stopped(pid_t pid, int status) {
    const int event = status >> 16;
    const int generation = GenerationOf(pid);
    if (event == PTRACE_EVENT_FORK) {
      unsigned long child = 0;
      ptrace(PTRACE_GETEVENTMSG, pid, nullptr, &child);
      generation_[static_cast<pid_t>(child)] = generation + 1;
    }
    if (generation > HELPER || (event == PTRACE_EVENT_EXEC && ++execs_ == 2)) {
      generation_.erase(pid);
      ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
      return;
    }
    const bool call = WSTOPSIG(status) == (SIGTRAP | 0x80);
    if (call && generation == victim_ && execs_ == 1 && ++steps_ == step_) {
      killed_ = true;
      kill(pid, SIGKILL);
      return;
    }
    const bool ours = call || event != 0 || WSTOPSIG(status) == SIGSTOP || WSTOPSIG(status) == SIGTRAP;
    ptrace(PTRACE_SYSCALL, pid, nullptr, ours ? 0 : WSTOPSIG(status));
  }

  // A child may be seen before its parent's word of it.
  int GenerationOf(pid_t pid) {
    if (generation_.count(pid) == 0) {
      const auto row = ctl::ReadProcess(pid);
      const auto parent = generation_.find(row ? row->parent : 0);
      generation_[pid] = parent == generation_.end() ? HELPER + 1 : parent->second + 1;
    }
    return generation_[pid];
  }

  int victim_;
  int step_;
  std::map<pid_t, int> generation_;  // of the living
  int execs_ = 0;
  int steps_ = 0;
  bool killed_ = false;
};

}  // namespace

bool RunKilledAt(std::vector<std::string> words, Victim victim, int step) {
  return Tracer(victim, step).Run(StartTraced(words));
}
