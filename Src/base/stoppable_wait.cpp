#include "base/stoppable_wait.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>

#include "base/unique_handles.h"

namespace base {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

UniqueFd stopEvent;
std::atomic<int64_t> graceEndMs{0};  // by the steady clock; 0: no stop requested
// A plain int: an object with a destructor would cost every thread memory.
thread_local int pendingSignals = -1;

int64_t NowMs() {
  return std::chrono::duration_cast<milliseconds>(Clock::now().time_since_epoch()).count();
}

int PollTimeout(int64_t deadline) {
  if (deadline == INT64_MAX) return -1;
  return static_cast<int>(std::clamp<int64_t>(deadline - NowMs(), 0, INT_MAX));
}

int64_t WaitDeadline(int64_t ms) {
  return ms < 0 ? INT64_MAX : NowMs() + ms;
}

// One poll of a descriptor, the stop event and the pending signals.
struct StoppablePoll {
  std::array<pollfd, 3> set;

  explicit StoppablePoll(int fd = -1, short events = 0, bool stop = true)
      : set{{{fd, events, 0}, {stop ? stopEvent.Get() : -1, POLLIN, 0}, {pendingSignals, POLLIN, 0}}} {}
  int Run(int64_t deadline) { return ::poll(set.data(), set.size(), PollTimeout(deadline)); }
  bool Ready() const { return set[0].revents != 0; }
  bool BadDescriptor() const { return (set[0].revents & POLLNVAL) != 0; }
  bool Stopped() const { return set[1].revents != 0; }
  bool SignalPending() const { return set[2].revents != 0; }
};

int WaitFailed(int error) {
  errno = error;
  return -1;
}

}  // namespace

int StopPrepare() {
  stopEvent = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  return stopEvent.Valid() ? 0 : -1;
}

void StopRequest() {
  int64_t none = 0;
  if (!graceEndMs.compare_exchange_strong(none, NowMs() + milliseconds(STOP_GRACE).count())) return;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(stopEvent.Get(), &one, sizeof one);
}

bool StopGraceOver() {
  const int64_t grace = graceEndMs.load();
  return grace != 0 && NowMs() >= grace;
}

StopOnPendingSignal::StopOnPendingSignal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  signals_ = UniqueFd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  pendingSignals = signals_.Get();
}

StopOnPendingSignal::~StopOnPendingSignal() {
  pendingSignals = -1;
}

bool StopSignalPending() {
  StoppablePoll poll;
  poll.Run(NowMs());
  return poll.SignalPending();
}

bool SleepMilliseconds(int64_t ms) {
  const int64_t deadline = WaitDeadline(std::max<int64_t>(ms, 0));
  while (NowMs() < deadline) {
    StoppablePoll poll;
    poll.Run(deadline);
    if (poll.Stopped() || poll.SignalPending()) return false;
  }
  return true;
}

bool SleepSeconds(int64_t seconds) {
  return SleepMilliseconds(int64_t{static_cast<uint32_t>(seconds)} * 1000);
}

int WaitDescriptor(int fd, short events, int64_t ms) {
  if (fd < 0) return WaitFailed(EBADF);
  const int64_t deadline = WaitDeadline(ms);
  while (true) {
    const int64_t grace = graceEndMs.load();
    StoppablePoll poll(fd, events, grace == 0);
    const int count = poll.Run(grace == 0 ? deadline : std::min(deadline, grace));
    if (count < 0 && errno != EINTR) return -1;
    if (count < 0) continue;
    if (poll.BadDescriptor()) return WaitFailed(EBADF);
    if (poll.Ready()) return 1;
    if (poll.SignalPending() || (grace != 0 && NowMs() >= grace)) return WaitFailed(ECANCELED);
    if (NowMs() >= deadline) return 0;
  }
}

}  // namespace base
