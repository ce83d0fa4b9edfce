// To be preloaded: lets the waits of the agent pass FACTOR times as fast, so that its 1,000 ticks of a long
// day take a minute. Only the monotonic clock and the time-outs of poll and ppoll are scaled; what the agent
// does between its waits, and so what it takes of memory in its life, stays the same.
#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace {

constexpr int FACTOR = 20;
constexpr int64_t NANOSECONDS = 1'000'000'000;

int Shorter(int milliseconds) {
  return milliseconds <= 0 ? milliseconds : (milliseconds + FACTOR - 1) / FACTOR;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const long result = ::syscall(SYS_clock_gettime, clock, time);
  if (result == 0 && clock == CLOCK_MONOTONIC) {
    const int64_t scaled = (time->tv_sec * NANOSECONDS + time->tv_nsec) * FACTOR;
    *time = {scaled / NANOSECONDS, scaled % NANOSECONDS};
  }
  return static_cast<int>(result);
}

int poll(pollfd* set, nfds_t count, int milliseconds) {
  return static_cast<int>(::syscall(SYS_poll, set, count, Shorter(milliseconds)));
}

int __poll_chk(pollfd* set, nfds_t count, int milliseconds, size_t /*size*/) {
  return poll(set, count, milliseconds);
}

int ppoll(pollfd* set, nfds_t count, const timespec* wait, const sigset_t* signals) {
  timespec shorter{};
  if (wait != nullptr) {
    const int64_t scaled = (wait->tv_sec * NANOSECONDS + wait->tv_nsec) / FACTOR;
    shorter = {scaled / NANOSECONDS, scaled % NANOSECONDS};
  }
  return static_cast<int>(
      ::syscall(SYS_ppoll, set, count, wait == nullptr ? nullptr : &shorter, signals, _NSIG / 8));
}

}  // extern "C"
