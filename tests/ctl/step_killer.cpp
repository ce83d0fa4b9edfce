#include "ctl/step_killer.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>

namespace {

constexpr long OPTIONS = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                         PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;

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

class Tracer {
 public:
  Tracer(pid_t starter, Victim victim, int step) : starter_(starter), victim_(victim), step_(step) {
    generation_[starter] = 0;
  }

  bool Run() {
    int status = 0;
    waitpid(starter_, &status, 0);
    ptrace(PTRACE_SETOPTIONS, starter_, nullptr, OPTIONS);
    ptrace(PTRACE_SYSCALL, starter_, nullptr, nullptr);
    while (!Over()) {
      const pid_t pid = waitpid(-1, &status, __WALL);
      if (pid < 0) break;
      if (WIFSTOPPED(status)) {
        Stopped(pid, status);
      } else if (generation_.count(pid) > 0) {
        ended_[generation_[pid]] = true;
      }
    }
    return killed_;
  }

 private:
  // Generations: the starter; the child that forks the helper; the helper. What comes behind goes free, and
  // so does the starter once it is the command.
  void Stopped(pid_t pid, int status) {
    const int event = status >> 16;
    if (event == PTRACE_EVENT_FORK || event == PTRACE_EVENT_CLONE || event == PTRACE_EVENT_VFORK) {
      unsigned long child = 0;
      ptrace(PTRACE_GETEVENTMSG, pid, nullptr, &child);
      generation_[static_cast<pid_t>(child)] = generation_[pid] + 1;
    }
    if (event == PTRACE_EVENT_EXEC && ++execs_ == 2) {
      ended_[0] = true;
      ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
      return;
    }
    if (generation_.count(pid) == 0) generation_[pid] = generation_[starter_] + Unknown(pid);
    const int generation = generation_[pid];
    if (generation > 2) {
      ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
      return;
    }
    const bool call = WSTOPSIG(status) == (SIGTRAP | 0x80);
    if (call && generation == (victim_ == Victim::STARTER ? 0 : 2) && execs_ == 1 && ++steps_ == step_) {
      killed_ = true;
      kill(pid, SIGKILL);
      return;
    }
    const bool ours = call || event != 0 || WSTOPSIG(status) == SIGSTOP || WSTOPSIG(status) == SIGTRAP;
    ptrace(PTRACE_SYSCALL, pid, nullptr, ours ? 0 : WSTOPSIG(status));
  }

  bool Over() const {
    for (const auto& [pid, generation] : generation_) {
      if (generation <= 2 && !ended_[generation]) return false;
    }
    return true;
  }

  // A child may be seen before its parent's word of it: then its parent tells its generation.
  int Unknown(pid_t pid) const {
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    FILE* file = fopen(path.c_str(), "re");
    int parent = 0;
    if (file != nullptr && fscanf(file, "%*d (%*[^)]) %*c %d", &parent) != 1) parent = 0;
    if (file != nullptr) fclose(file);
    const auto known = generation_.find(parent);
    return known == generation_.end() ? 1 : known->second + 1;
  }

  pid_t starter_;
  Victim victim_;
  int step_;
  std::map<pid_t, int> generation_;
  bool ended_[3] = {};
  int execs_ = 0;
  int steps_ = 0;
  bool killed_ = false;
};

}  // namespace

bool RunKilledAt(std::vector<std::string> words, Victim victim, int step) {
  return Tracer(StartTraced(words), victim, step).Run();
}
