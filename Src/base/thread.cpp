#include "base/thread.h"

#include <cerrno>

namespace base {

int Thread::Start(void* (*thread_body)(void*), void* thread_argument) {
  if (thread_handle_) {
    errno = EBUSY;
    return -1;
  }
  pthread_t thread_handle{};
  const int create_error = pthread_create(&thread_handle, nullptr, thread_body, thread_argument);
  if (create_error != 0) {
    errno = create_error;
    return -1;
  }
  thread_handle_ = thread_handle;
  return 0;
}

void Thread::Join() {
  if (!thread_handle_) return;
  pthread_join(*thread_handle_, nullptr);
  thread_handle_.reset();
}

}  // namespace base
