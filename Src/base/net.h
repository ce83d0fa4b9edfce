// Blocking socket calls by meaning, that a stop can still cut (see stop.h). The descriptor may have any
// number and any blocking mode; nothing here ever raises SIGPIPE.
#ifndef BASE_NET_H
#define BASE_NET_H

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "base/owners.h"
#include "base/stop.h"

namespace base {

// A stream socket, close-on-exec. Invalid with errno on failure.
[[nodiscard]] UniqueFd OpenSocket(int family, int protocol = 0);

// Sets or clears O_NONBLOCK; negative with errno on failure.
[[nodiscard]] int SetBlocking(int fd, bool blocking);

// As connect(2) on a blocking socket; 0, or -1 with the errno that connect would have given, ETIMEDOUT when
// the time given passed first, ECANCELED when a stop cut it. Once connected the socket is blocking; after a
// failure it may have been left non-blocking.
[[nodiscard]] int Connect(int fd, const sockaddr* address, socklen_t length, int64_t milliseconds = FOREVER);

// As recv(2) with these flags on a blocking socket: the count received (1 or more), 0 at the peer's end, -1
// with errno (ETIMEDOUT and ECANCELED as above; EAGAIN only under MSG_DONTWAIT).
[[nodiscard]] ssize_t ReceiveSome(int fd, void* buffer, size_t length, int64_t milliseconds = FOREVER,
                                  int flags = 0);
// Receives exactly length bytes; each receive may wait the time given. The last result of ReceiveSome: above
// 0 on success, 0 when the peer ended early, -1 with errno. A length of 0 gives 1.
[[nodiscard]] ssize_t ReceiveExactly(int fd, void* buffer, size_t length, int64_t milliseconds = FOREVER);

// Sends what the socket takes at once, or waits until it takes something: the count, or -1 with errno (as
// above). The flags are those of send(2).
[[nodiscard]] ssize_t SendSome(int fd, const void* data, size_t length, int64_t milliseconds = FOREVER,
                               int flags = 0);
// Sends everything, each part of it within the time given: 0, or -1 with errno. What went out is counted in
// sent (unless it is null), also on failure.
int SendAll(int fd, const void* data, size_t length, int64_t milliseconds = FOREVER, int flags = 0,
            size_t* sent = nullptr);

}  // namespace base

#endif
