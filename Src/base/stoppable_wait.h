// The stop of the agent, for everything that waits.
//
// A stop has two stages. When it is requested, every sleep ends at once. Waits on descriptors go on, so that
// an exchange in progress can finish. STOP_GRACE after the request these waits end too, with ECANCELED,
// however silent the peer is; a descriptor that is ready at that moment is still served. Nothing in the agent
// may therefore block outside the waits of this header, stoppable_socket.h, resolve.h and child_process.h.
//
// Before StopPrepare() the waits work, but nothing can cut them.
#ifndef BASE_STOPPABLE_WAIT_H
#define BASE_STOPPABLE_WAIT_H

#include <chrono>
#include <cstdint>

#include "base/unique_handles.h"

namespace base {

inline constexpr std::chrono::seconds STOP_GRACE{5};
inline constexpr int FOREVER = -1;

// Opens the descriptor that wakes the waits. Call it once, before the first thread starts. Returns 0, or -1
// with errno.
[[nodiscard]] int StopPrepare();
// Requests the stop. Later calls have no effect. Any thread and any signal handler may call it.
void StopRequest();
// Whether a stop was requested and its grace has passed.
bool StopGraceOver();

// While such an object exists, the waits of the calling thread also end, at once and without grace, when
// SIGINT or SIGTERM is pending for the process. It is meant for start-up, when these signals are blocked and
// nothing handles them yet. Both must be blocked in all threads. The signals stay pending.
class WaitsEndOnSignal {
 public:
  WaitsEndOnSignal();
  ~WaitsEndOnSignal();
  WaitsEndOnSignal(const WaitsEndOnSignal&) = delete;
  WaitsEndOnSignal& operator=(const WaitsEndOnSignal&) = delete;

 private:
  UniqueFd stop_signals_fd_;
};

// Whether SIGINT or SIGTERM is pending. Always false without a WaitsEndOnSignal on this thread.
bool StopSignalPending();

// Sleeps. Returns true after the whole time, or false as soon as a stop (or a pending signal, see above) ends
// the sleep.
bool SleepMilliseconds(int64_t milliseconds);
// The same in seconds. As for sleep(3), the count is taken as an unsigned 32-bit number.
bool SleepSeconds(int64_t seconds);

// Waits for events of poll(2) on a descriptor, for at most the given time or FOREVER. The descriptor may have
// any number. Returns 1 when it is ready (an error or hang-up of the peer counts as ready), 0 when the time
// has passed, or -1 with errno: ECANCELED when a stop cut the wait. Signals handled during the wait do not
// change its length.
[[nodiscard]] int WaitDescriptor(int fd, short events, int64_t milliseconds);

}  // namespace base

#endif
