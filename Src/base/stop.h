// The stop of the agent, as seen by everything that waits.
//
// A stop has two moments. When it is requested, every sleep ends at once, while waits on descriptors go on:
// an exchange that moves is finished. GRACE later (counted from the request) those waits end too, with
// ECANCELED, however silent the peer; what is ready at that moment is still served. So nothing in the agent
// may block outside the waits of this header and of net.h and child.h.
//
// Before Prepare() the waits work and simply cannot be cut.
#ifndef BASE_STOP_H
#define BASE_STOP_H

#include <chrono>
#include <cstdint>

#include "base/owners.h"

namespace base {

inline constexpr std::chrono::seconds STOP_GRACE{5};
inline constexpr int FOREVER = -1;

// Opens the descriptor that wakes the waits. Once, before the first thread. 0, or -1 with errno.
[[nodiscard]] int StopPrepare();
// Requests the stop; later calls change nothing. Callable from any thread, also in a signal handler.
void StopRequest();
// True once the grace of a requested stop has passed.
bool StopGraceOver();

// While one lives, the waits of the calling thread also end (at once, without grace) as soon as SIGINT or
// SIGTERM is pending for the process. For the time in which these signals are blocked and not yet taken:
// start-up. The signals stay pending. Both must be blocked in all threads.
class StopOnPendingSignal {
 public:
  StopOnPendingSignal();
  ~StopOnPendingSignal();
  StopOnPendingSignal(const StopOnPendingSignal&) = delete;
  StopOnPendingSignal& operator=(const StopOnPendingSignal&) = delete;

 private:
  UniqueFd signals_;
};

// Whether such a signal is pending; false without a StopOnPendingSignal on this thread.
bool StopSignalPending();

// Sleeps, or returns early because of a stop. True when the whole time has passed.
bool SleepMilliseconds(int64_t milliseconds);
// As sleep(3): the count is taken as an unsigned 32-bit number.
bool SleepSeconds(int64_t seconds);

// Waits for events (of poll(2)) on a descriptor of any number, up to the time given or FOREVER.
// 1 ready (an error or hang-up of the peer counts), 0 timed out, -1 failed with errno, ECANCELED when a
// stop cut it. Interruptions by signals do not shorten or lengthen it.
[[nodiscard]] int WaitDescriptor(int fd, short events, int64_t milliseconds);

}  // namespace base

#endif
