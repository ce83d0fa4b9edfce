#include "base/stoppable_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>

#include <cerrno>

namespace base {
namespace {

// Repeats call until it no longer fails with "would block", and waits for the events between two calls. With
// MSG_DONTWAIT among the flags there is no wait, and that failure is the result.
template <typename Call>
ssize_t RetryWhenReady(int fd, short events, int64_t milliseconds, int flags, Call call) {
  while (true) {
    const ssize_t result = call(flags | MSG_DONTWAIT);
    if (result >= 0) return result;
    if (errno == EINTR) continue;
    if ((errno != EAGAIN && errno != EWOULDBLOCK) || (flags & MSG_DONTWAIT) != 0) return -1;
    const int ready = WaitDescriptor(fd, events, milliseconds);
    if (ready < 0) return -1;
    if (ready == 0) {
      errno = ETIMEDOUT;
      return -1;
    }
  }
}

int FinishConnect(int fd, int64_t milliseconds) {
  const int ready = WaitDescriptor(fd, POLLOUT, milliseconds);
  if (ready < 0) return -1;
  int error = ETIMEDOUT;
  if (ready > 0) {
    socklen_t length = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) < 0) return -1;
  }
  errno = error;
  return error == 0 ? 0 : -1;
}

}  // namespace

UniqueFd OpenSocket(int family, int protocol) {
  return UniqueFd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, protocol));
}

int SetBlocking(int fd, bool blocking) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) return -1;
  return ::fcntl(fd, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

int Connect(int fd, const sockaddr* address, socklen_t length, int64_t milliseconds) {
  if (SetBlocking(fd, false) < 0) return -1;
  int result = ::connect(fd, address, length);
  if (result < 0 && (errno == EINPROGRESS || errno == EINTR)) result = FinishConnect(fd, milliseconds);
  if (result < 0) return -1;
  return SetBlocking(fd, true) < 0 ? -1 : 0;
}

ssize_t ReceiveSome(int fd, void* buffer, size_t length, int64_t milliseconds, int flags) {
  return RetryWhenReady(fd, POLLIN, milliseconds, flags,
                        [&](int now) { return ::recv(fd, buffer, length, now); });
}

ssize_t ReceiveExactly(int fd, void* buffer, size_t length, int64_t milliseconds) {
  char* next = static_cast<char*>(buffer);
  ssize_t got = 1;
  while (length > 0) {
    got = ReceiveSome(fd, next, length, milliseconds);
    if (got <= 0) return got;
    next += got;
    length -= static_cast<size_t>(got);
  }
  return got;
}

ssize_t SendSome(int fd, const void* data, size_t length, int64_t milliseconds, int flags) {
  return RetryWhenReady(fd, POLLOUT, milliseconds, flags | MSG_NOSIGNAL,
                        [&](int now) { return ::send(fd, data, length, now); });
}

int SendAll(int fd, const void* data, size_t length, int64_t milliseconds, int flags, size_t* sent) {
  const char* bytes = static_cast<const char*>(data);
  size_t gone = 0;
  ssize_t count = 1;
  while (gone < length && count > 0) {
    count = SendSome(fd, bytes + gone, length - gone, milliseconds, flags);
    if (count > 0) gone += static_cast<size_t>(count);
  }
  if (sent != nullptr) *sent = gone;
  return gone == length ? 0 : -1;
}

}  // namespace base
