// A POSIX thread that its owner joins.
#ifndef BASE_THREAD_H
#define BASE_THREAD_H

#include <pthread.h>

#include <optional>

namespace base {

// Two threads must not use one object at once. The destructor joins a running thread.
class Thread {
 public:
  Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread() { Join(); }

  // Runs thread_body(thread_argument) on a new thread with the caller's signal mask. thread_argument must
  // outlive the thread. Returns 0, or -1 with errno: EAGAIN without resources, EBUSY while a thread runs
  // already.
  [[nodiscard]] int Start(void* (*thread_body)(void*), void* thread_argument);
  // Whether a thread was started and not yet joined.
  bool Started() const { return thread_handle_.has_value(); }
  // Waits until the thread ends. Without a thread it does nothing.
  void Join();

 private:
  std::optional<pthread_t> thread_handle_;
};

}  // namespace base

#endif
