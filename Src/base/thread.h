// A POSIX thread that is joined by its owner.
#ifndef BASE_THREAD_H
#define BASE_THREAD_H

#include <pthread.h>

#include <optional>

namespace base {

// Not safe for use by two threads at once. Destroying a running one joins it.
class Thread {
 public:
  Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread() { Join(); }

  // Runs body(argument) on a new thread, with the caller's signal mask. Returns 0, or -1 with errno set
  // (EAGAIN: no resources; EBUSY: already running one). The argument must outlive the thread.
  [[nodiscard]] int Start(void* (*body)(void*), void* argument);
  // Whether one was started and not joined yet.
  bool Started() const { return handle_.has_value(); }
  // Waits for the end of the thread; nothing happens when none was started or it was joined before.
  void Join();

 private:
  std::optional<pthread_t> handle_;
};

}  // namespace base

#endif
