// start: what the agent runs in place of the engine's start script.
//
// The process that the agent waits for does very little: it asks a helper whether the start is held, waits a
// bounded time for the answer, and becomes the command. So the command has the parent, descriptors, signals
// and environment that it would have without the tool. Nothing that goes wrong with lock, evidence or record,
// not even the helper's death, keeps the command from running.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>

#include "base/unique_handles.h"
#include "ctl/clock.h"
#include "ctl/command.h"
#include "ctl/duration.h"
#include "ctl/output.h"
#include "ctl/start_helper.h"
#include "ctl/start_watch.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int NOT_FOUND = 127;  // exit statuses as of a shell
constexpr int NOT_RUN = 126;
constexpr Option OPTIONS[] = {
    {"backoff", 0, "FROM..TO", "pauses between starts of an engine that keeps dying; 10s..5m without it"},
    {"healthy", 0, "DURATION", "an engine that lived so long begins anew; 10m without it"},
    {"now", 0, nullptr, "start by hand: no back-off"},
};

StartPlan PlanOf(const Call& call) {
  StartPlan plan;
  plan.config = call.config;
  plan.now = call.Has("now");
  plan.starter = ::getpid();
  if (const std::string* text = call.Value("backoff")) {
    const auto rule = ParseBackoff(*text);
    if (rule) plan.backoff = *rule;
    if (!rule) Complain("--backoff " + Shown(*text) + " is no FROM..TO; 10s..5m is taken");
  }
  if (const std::string* text = call.Value("healthy")) {
    const auto seconds = ParseDuration(*text);
    if (seconds) plan.backoff.healthy = *seconds;
    if (!seconds) Complain("--healthy " + Shown(*text) + " is no duration; 10m is taken");
  }
  return plan;
}

// The channel to the helper and, after its answer, to the watch that it leaves behind.
struct Asked {
  base::UniqueFd channel;
  std::optional<Answer> answer;
  bool kernel_tells = false;  // the kernel tells a reaped process's status to holders of its pidfd
};

// Moves a descriptor above the standard ones. Those may be closed, and texts for them must not end up in the
// channel.
base::UniqueFd Lifted(int fd) {
  base::UniqueFd low(fd);
  return base::UniqueFd(::fcntl(low.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::optional<Answer> AwaitAnswer(int channel) {
  const int64_t end = BootMilliseconds() + HELPER_LIMIT_MS;
  pollfd ready = {channel, POLLIN, 0};
  int64_t left = HELPER_LIMIT_MS;
  while (::poll(&ready, 1, static_cast<int>(left)) < 0 && errno == EINTR) {
    left = std::max<int64_t>(end - BootMilliseconds(), 0);
  }
  char byte = 0;
  if (::recv(channel, &byte, 1, MSG_DONTWAIT) == 1) return static_cast<Answer>(byte);
  Complain("no answer about this start; the engine is started all the same");
  return std::nullopt;
}

// Where SIGCHLD is ignored, the status of a child would be lost. The command gets the signal back as it was.
class ChildSignal {
 public:
  ChildSignal() {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    ::sigaction(SIGCHLD, &standard, &inherited_);
  }
  void Restore() const { ::sigaction(SIGCHLD, &inherited_, nullptr); }

 private:
  struct sigaction inherited_ {};
};

// Starts the helper by way of a child that ends at once. This process must have no children when it becomes
// the command.
Asked AskHelper(const StartPlan& plan) {
  Asked asked;
  std::array<int, 2> ends{-1, -1};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    Complain(std::string("no helper: ") + std::strerror(errno) + "; the engine is started all the same");
    return asked;
  }
  asked.channel = Lifted(ends[0]);
  base::UniqueFd theirs = Lifted(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    asked.channel.Reset();
    if (::fork() == 0) RunStartHelper(plan, theirs.Get());
    ::_exit(0);
  }
  theirs.Reset();
  const base::UniqueFd ended(child < 0 ? -1 : static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  while (child > 0 && ::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  asked.kernel_tells = ended.Valid() && ReapedStatus(ended.Get()) >= 0;
  asked.answer = AwaitAnswer(asked.channel.Get());
  return asked;
}

int Become(const Call& call, const Asked& asked, const ChildSignal& signal) {
  signal.Restore();
  ::send(asked.channel.Get(), &RUNNING, sizeof RUNNING, MSG_NOSIGNAL);
  ::execvp(call.operands[0], call.operands.data());
  const int error = errno;
  Complain(Shown(call.operands[0]) + ": " + std::strerror(error));
  return error == ENOENT ? NOT_FOUND : NOT_RUN;
}

// Becomes the command. Where nobody else can learn its status, this process stays as its parent and passes
// the status on.
int RunCommand(const Call& call, const Asked& asked, const ChildSignal& signal) {
  const pid_t command = asked.answer && !asked.kernel_tells ? ::fork() : -1;
  if (command == 0) ::_exit(Become(call, asked, signal));
  if (command < 0) return Become(call, asked, signal);
  int status = 0;
  while (::waitpid(command, &status, 0) < 0 && errno == EINTR) {
  }
  ::send(asked.channel.Get(), &status, sizeof status, MSG_NOSIGNAL);
  return ShellStatus(status);
}

int RunStart(const Call& call) {
  if (call.operands.empty()) {
    Complain("usage: dunrasttctl start [--backoff FROM..TO] [--healthy DURATION] [--now] -- COMMAND...");
    return CANNOT_TELL;
  }
  const ChildSignal signal;
  const Asked asked = AskHelper(PlanOf(call));
  if (asked.answer == Answer::HELD) return TO_LOOK_AT;
  if (asked.answer == Answer::BACK) return ALL_WELL;
  return RunCommand(call, asked, signal);
}

}  // namespace

extern const Command START_COMMAND;
const Command START_COMMAND = {"start",
                               "start the engine: one start at a time, with evidence, record and back-off",
                               "[--backoff FROM..TO] [--healthy DURATION] [--now] -- COMMAND...",
                               OPTIONS,
                               RunStart,
                               true};

}  // namespace ctl
