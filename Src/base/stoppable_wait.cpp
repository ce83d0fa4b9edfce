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

using StopClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

UniqueFd stopEvent;
std::atomic<int64_t> stopGraceEndMs{0};  // by the steady clock; 0: no stop requested
// A plain int: an object with a destructor would cost every thread memory.
thread_local int stopSignalsFd = -1;

int64_t StopClockMs() {
  return std::chrono::duration_cast<milliseconds>(StopClock::now().time_since_epoch()).count();
}

int PollTimeout(int64_t wait_deadline) {
  if (wait_deadline == INT64_MAX) return -1;
  return static_cast<int>(std::clamp<int64_t>(wait_deadline - StopClockMs(), 0, INT_MAX));
}

int64_t WaitDeadline(int64_t ms) {
  return ms < 0 ? INT64_MAX : StopClockMs() + ms;
}

// One poll of a descriptor, the stop event and the pending signals.
struct StoppablePoll {
  std::array<pollfd, 3> wait_polled;

  explicit StoppablePoll(int fd = -1, short events = 0, bool watch_stop = true)
      : wait_polled{
            {{fd, events, 0}, {watch_stop ? stopEvent.Get() : -1, POLLIN, 0}, {stopSignalsFd, POLLIN, 0}}} {}
  int PollUntil(int64_t wait_deadline) {
    return ::poll(wait_polled.data(), wait_polled.size(), PollTimeout(wait_deadline));
  }
  bool Ready() const { return wait_polled[0].revents != 0; }
  bool BadDescriptor() const { return (wait_polled[0].revents & POLLNVAL) != 0; }
  bool Stopped() const { return wait_polled[1].revents != 0; }
  bool SignalPending() const { return wait_polled[2].revents != 0; }
};

int WaitFailed(int wait_error) {
  errno = wait_error;
  return -1;
}

}  // namespace

int StopPrepare() {
  stopEvent = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  return stopEvent.Valid() ? 0 : -1;
}

void StopRequest() {
  int64_t no_stop_yet = 0;
  if (!stopGraceEndMs.compare_exchange_strong(no_stop_yet, StopClockMs() + milliseconds(STOP_GRACE).count()))
    return;
  const uint64_t stop_wake_up = 1;
  [[maybe_unused]] const ssize_t stop_written = ::write(stopEvent.Get(), &stop_wake_up, sizeof stop_wake_up);
}

bool StopGraceOver() {
  const int64_t stop_grace_end_ms = stopGraceEndMs.load();
  return stop_grace_end_ms != 0 && StopClockMs() >= stop_grace_end_ms;
}

WaitsEndOnSignal::WaitsEndOnSignal() {
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  stop_signals_fd_ = UniqueFd(::signalfd(-1, &stop_signals, SFD_CLOEXEC | SFD_NONBLOCK));
  stopSignalsFd = stop_signals_fd_.Get();
}

WaitsEndOnSignal::~WaitsEndOnSignal() {
  stopSignalsFd = -1;
}

bool StopSignalPending() {
  StoppablePoll signal_poll;
  signal_poll.PollUntil(StopClockMs());
  return signal_poll.SignalPending();
}

bool SleepMilliseconds(int64_t ms) {
  const int64_t sleep_deadline = WaitDeadline(std::max<int64_t>(ms, 0));
  while (StopClockMs() < sleep_deadline) {
    StoppablePoll sleep_poll;
    sleep_poll.PollUntil(sleep_deadline);
    if (sleep_poll.Stopped() || sleep_poll.SignalPending()) return false;
  }
  return true;
}

bool SleepSeconds(int64_t seconds) {
  return SleepMilliseconds(int64_t{static_cast<uint32_t>(seconds)} * 1000);
}

int WaitDescriptor(int fd, short events, int64_t ms) {
  if (fd < 0) return WaitFailed(EBADF);
  const int64_t wait_deadline = WaitDeadline(ms);
  while (true) {
    const int64_t stop_grace_end_ms = stopGraceEndMs.load();
    StoppablePoll wait_poll(fd, events, stop_grace_end_ms == 0);
    const int wait_result = wait_poll.PollUntil(
        stop_grace_end_ms == 0 ? wait_deadline : std::min(wait_deadline, stop_grace_end_ms));
    if (wait_result < 0 && errno != EINTR) return -1;
    if (wait_result < 0) continue;
    if (wait_poll.BadDescriptor()) return WaitFailed(EBADF);
    if (wait_poll.Ready()) return 1;
    if (wait_poll.SignalPending() || (stop_grace_end_ms != 0 && StopClockMs() >= stop_grace_end_ms))
      return WaitFailed(ECANCELED);
    if (StopClockMs() >= wait_deadline) return 0;
  }
}

}  // namespace base
