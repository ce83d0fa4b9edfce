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
ssize_t RetrySocketCall(int socket_fd, short events, int64_t milliseconds, int flags,
                        SocketCall socket_call) {
  while (true) {
    const ssize_t socket_result = socket_call(flags | MSG_DONTWAIT);
    if (socket_result >= 0) return socket_result;
    if (errno == EINTR) continue;
    if ((errno != EAGAIN && errno != EWOULDBLOCK) || (flags & MSG_DONTWAIT) != 0) return -1;
    const int socket_ready = WaitDescriptor(socket_fd, events, milliseconds);
    if (socket_ready < 0) return -1;
    if (socket_ready == 0) {
      errno = ETIMEDOUT;
      return -1;
    }
  }
}

int FinishConnect(int socket_fd, int64_t milliseconds) {
  const int socket_ready = WaitDescriptor(socket_fd, POLLOUT, milliseconds);
  if (socket_ready < 0) return -1;
  int socket_error = ETIMEDOUT;
  if (socket_ready > 0) {
    socklen_t error_size = sizeof socket_error;
    if (::getsockopt(socket_fd, SOL_SOCKET, SO_ERROR, &socket_error, &error_size) < 0) return -1;
  }
  errno = socket_error;
  return socket_error == 0 ? 0 : -1;
}

}  // namespace

UniqueFd OpenSocket(int family, int protocol) {
  return UniqueFd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, protocol));
}

int SetBlocking(int socket_fd, bool blocking) {
  const int socket_flags = ::fcntl(socket_fd, F_GETFL);
  if (socket_flags < 0) return -1;
  return ::fcntl(socket_fd, F_SETFL, blocking ? socket_flags & ~O_NONBLOCK : socket_flags | O_NONBLOCK);
}

int Connect(int socket_fd, const sockaddr* address, socklen_t address_size, int64_t milliseconds) {
  if (SetBlocking(socket_fd, false) < 0) return -1;
  int socket_connected = ::connect(socket_fd, address, address_size);
  if (socket_connected < 0 && (errno == EINPROGRESS || errno == EINTR))
    socket_connected = FinishConnect(socket_fd, milliseconds);
  if (socket_connected < 0) return -1;
  return SetBlocking(socket_fd, true) < 0 ? -1 : 0;
}

ssize_t ReceiveSome(int socket_fd, void* buffer, size_t length, int64_t milliseconds, int flags) {
  return RetrySocketCall(socket_fd, POLLIN, milliseconds, flags,
                         [&](int socket_flags) { return ::recv(socket_fd, buffer, length, socket_flags); });
}

ssize_t ReceiveExactly(int socket_fd, void* buffer, size_t length, int64_t milliseconds) {
  char* socket_buffer = static_cast<char*>(buffer);
  ssize_t socket_received = 1;
  while (length > 0) {
    socket_received = ReceiveSome(socket_fd, socket_buffer, length, milliseconds);
    if (socket_received <= 0) return socket_received;
    socket_buffer += socket_received;
    length -= static_cast<size_t>(socket_received);
  }
  return socket_received;
}

ssize_t SendSome(int socket_fd, const void* data, size_t length, int64_t milliseconds, int flags) {
  return RetrySocketCall(socket_fd, POLLOUT, milliseconds, flags | MSG_NOSIGNAL,
                         [&](int socket_flags) { return ::send(socket_fd, data, length, socket_flags); });
}

int SendAll(int socket_fd, const void* data, size_t length, int64_t milliseconds, int flags, size_t* sent) {
  const char* socket_bytes = static_cast<const char*>(data);
  size_t socket_sent = 0;
  ssize_t socket_sent_now = 1;
  while (socket_sent < length && socket_sent_now > 0) {
    socket_sent_now =
        SendSome(socket_fd, socket_bytes + socket_sent, length - socket_sent, milliseconds, flags);
    if (socket_sent_now > 0) socket_sent += static_cast<size_t>(socket_sent_now);
  }
  if (sent != nullptr) *sent = socket_sent;
  return socket_sent == length ? 0 : -1;
}

}  // namespace base
