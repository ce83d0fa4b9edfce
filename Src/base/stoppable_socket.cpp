#include "base/stoppable_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>

#include <cerrno>

namespace base {
namespace {

// Repeats call until it no longer fails with "would block", and waits for the events between two calls. With
// MSG_DONTWAIT among the flags there is no wait, and that failure is the result.
template <typename SocketCall>
ssize_t RetrySocketCall(int fd, short events, int64_t milliseconds, int flags, SocketCall socket_call) {
  while (true) {
    const ssize_t call_result = socket_call(flags | MSG_DONTWAIT);
    if (call_result >= 0) return call_result;
    if (errno == EINTR) continue;
    if ((errno != EAGAIN && errno != EWOULDBLOCK) || (flags & MSG_DONTWAIT) != 0) return -1;
    const int socket_ready = WaitDescriptor(fd, events, milliseconds);
    if (socket_ready < 0) return -1;
    if (socket_ready == 0) {
      errno = ETIMEDOUT;
      return -1;
    }
  }
}

int FinishConnect(int fd, int64_t milliseconds) {
  const int socket_ready = WaitDescriptor(fd, POLLOUT, milliseconds);
  if (socket_ready < 0) return -1;
  int connect_error = ETIMEDOUT;
  if (socket_ready > 0) {
    socklen_t error_size = sizeof connect_error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &connect_error, &error_size) < 0) return -1;
  }
  errno = connect_error;
  return connect_error == 0 ? 0 : -1;
}

}  // namespace

UniqueFd OpenSocket(int family, int protocol) {
  return UniqueFd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, protocol));
}

int SetBlocking(int fd, bool blocking) {
  const int socket_flags = ::fcntl(fd, F_GETFL);
  if (socket_flags < 0) return -1;
  return ::fcntl(fd, F_SETFL, blocking ? socket_flags & ~O_NONBLOCK : socket_flags | O_NONBLOCK);
}

int Connect(int fd, const sockaddr* address, socklen_t address_size, int64_t milliseconds) {
  if (SetBlocking(fd, false) < 0) return -1;
  int connected = ::connect(fd, address, address_size);
  if (connected < 0 && (errno == EINPROGRESS || errno == EINTR)) connected = FinishConnect(fd, milliseconds);
  if (connected < 0) return -1;
  return SetBlocking(fd, true) < 0 ? -1 : 0;
}

ssize_t ReceiveSome(int fd, void* buffer, size_t length, int64_t milliseconds, int flags) {
  return RetrySocketCall(fd, POLLIN, milliseconds, flags,
                         [&](int flags_now) { return ::recv(fd, buffer, length, flags_now); });
}

ssize_t ReceiveExactly(int fd, void* buffer, size_t length, int64_t milliseconds) {
  char* receive_to = static_cast<char*>(buffer);
  ssize_t received = 1;
  while (length > 0) {
    received = ReceiveSome(fd, receive_to, length, milliseconds);
    if (received <= 0) return received;
    receive_to += received;
    length -= static_cast<size_t>(received);
  }
  return received;
}

ssize_t SendSome(int fd, const void* data, size_t length, int64_t milliseconds, int flags) {
  return RetrySocketCall(fd, POLLOUT, milliseconds, flags | MSG_NOSIGNAL,
                         [&](int flags_now) { return ::send(fd, data, length, flags_now); });
}

int SendAll(int fd, const void* data, size_t length, int64_t milliseconds, int flags, size_t* sent) {
  const char* bytes_to_send = static_cast<const char*>(data);
  size_t sent_size = 0;
  ssize_t sent_now = 1;
  while (sent_size < length && sent_now > 0) {
    sent_now = SendSome(fd, bytes_to_send + sent_size, length - sent_size, milliseconds, flags);
    if (sent_now > 0) sent_size += static_cast<size_t>(sent_now);
  }
  if (sent != nullptr) *sent = sent_size;
  return sent_size == length ? 0 : -1;
}

}  // namespace base
