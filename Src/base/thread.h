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

  // Runs body(argument) on a new thread with the caller's signal mask. argument must outlive the thread.
  // Returns 0, or -1 with errno: EAGAIN without resources, EBUSY while a thread runs already.
  [[nodiscard]] int Start(void* (*body)(void*), void* argument);
  // Whether a thread was started and not yet joined.
  bool Started() const { return handle_.has_value(); }
  // Waits until the thread ends. Without a thread it does nothing.
  void Join();

 private:
  std::optional<pthread_t> handle_;
};

}  // namespace base

#endif
