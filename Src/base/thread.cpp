#include "base/thread.h"

#include <cerrno>

namespace base {

int Thread::Start(void* (*body)(void*), void* argument) {
  if (handle_) {
    errno = EBUSY;
    return -1;
  }
  pthread_t handle{};
  const int error = pthread_create(&handle, nullptr, body, argument);
  if (error != 0) {
    errno = error;
    return -1;
  }
  handle_ = handle;
  return 0;
}

void Thread::Join() {
  if (!handle_) return;
  pthread_join(*handle_, nullptr);
  handle_.reset();
}

}  // namespace base
