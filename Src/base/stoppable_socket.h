// Blocking socket calls that a stop can cut (see stoppable_wait.h). The descriptor may have any number and
// may be in blocking or non-blocking mode. Nothing here raises SIGPIPE. A time limit is in milliseconds;
// FOREVER is none.
#ifndef BASE_STOPPABLE_SOCKET_H
#define BASE_STOPPABLE_SOCKET_H

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "base/stoppable_wait.h"
#include "base/unique_handles.h"

namespace base {

// Opens a stream socket, close-on-exec. Returns an invalid descriptor with errno on failure.
[[nodiscard]] UniqueFd OpenSocket(int family, int protocol = 0);

// Sets or clears O_NONBLOCK. Returns a negative number with errno on failure.
[[nodiscard]] int SetBlocking(int socket_fd, bool blocking);

// Connects as connect(2) does on a blocking socket. Returns 0, or -1 with the errno of connect, ETIMEDOUT
// when the limit passed first, or ECANCELED when a stop cut the wait. A connected socket is in blocking mode;
// after a failure it may be left non-blocking.
[[nodiscard]] int Connect(int socket_fd, const sockaddr* address, socklen_t length,
                          int64_t milliseconds = FOREVER);

// Receives as recv(2) does on a blocking socket. Returns the number of bytes (1 or more), 0 when the peer has
// closed its end, or -1 with errno: ETIMEDOUT and ECANCELED as above, EAGAIN only with MSG_DONTWAIT.
[[nodiscard]] ssize_t ReceiveSome(int socket_fd, void* buffer, size_t length, int64_t milliseconds = FOREVER,
                                  int flags = 0);
// Receives exactly length bytes. The limit applies to each receive. Returns a number above 0 on success (also
// for a length of 0), 0 when the peer closed its end early, or -1 with errno.
[[nodiscard]] ssize_t ReceiveExactly(int socket_fd, void* buffer, size_t length,
                                     int64_t milliseconds = FOREVER);

// Waits until the socket takes something and sends that. flags are those of send(2). Returns the number of
// bytes, or -1 with errno as above.
[[nodiscard]] ssize_t SendSome(int socket_fd, const void* data, size_t length, int64_t milliseconds = FOREVER,
                               int flags = 0);
// Sends everything. The limit applies to each part. Returns 0, or -1 with errno. *sent (unless sent is null)
// receives the number of bytes that were sent, also on failure.
int SendAll(int socket_fd, const void* data, size_t length, int64_t milliseconds = FOREVER, int flags = 0,
            size_t* sent = nullptr);

}  // namespace base

#endif
