#include "tls/stoppable_bio.h"

#include <openssl/bio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <new>

#include "base/stoppable_socket.h"

namespace tls {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int CONTROL_LIMIT_TIME = 1000;  // above the numbers that the library uses

// The data of a BIO.
struct BioSocket {
  int fd;
  Clock::time_point deadline = Clock::time_point::max();
};

BioSocket* SocketOf(BIO* bio) {
  return static_cast<BioSocket*>(BIO_get_data(bio));
}

void SetLimit(BioSocket* socket, int64_t milliseconds) {
  socket->deadline =
      milliseconds < 0 ? Clock::time_point::max() : Clock::now() + std::chrono::milliseconds(milliseconds);
}

int64_t TimeLeft(const BioSocket& socket) {
  if (socket.deadline == Clock::time_point::max()) return base::FOREVER;
  return std::max<int64_t>(
      0, std::chrono::ceil<std::chrono::milliseconds>(socket.deadline - Clock::now()).count());
}

// Makes one call on the socket. After the deadline it fails without calling: a peer that keeps sending bytes
// which are no data could otherwise go on for ever.
template <typename Call>
int CallSocket(BIO* bio, int retry, Call call) {
  const BioSocket& socket = *SocketOf(bio);
  BIO_clear_retry_flags(bio);
  const int64_t left = TimeLeft(socket);
  errno = ETIMEDOUT;
  const ssize_t count = left == 0 ? -1 : call(socket.fd, left);
  if (count < 0 && errno == ETIMEDOUT) BIO_set_flags(bio, retry | BIO_FLAGS_SHOULD_RETRY);
  return static_cast<int>(count);
}

int WriteSocket(BIO* bio, const char* data, int length) {
  return CallSocket(bio, BIO_FLAGS_WRITE, [=](int fd, int64_t milliseconds) {
    return base::SendSome(fd, data, static_cast<size_t>(length), milliseconds);
  });
}

int ReadSocket(BIO* bio, char* buffer, int length) {
  const int got = CallSocket(bio, BIO_FLAGS_READ, [=](int fd, int64_t milliseconds) {
    return base::ReceiveSome(fd, buffer, static_cast<size_t>(length), milliseconds);
  });
#ifdef BIO_FLAGS_IN_EOF
  // OpenSSL 3 needs this flag to tell the end of the stream from an error.
  if (got == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
#endif
  return got;
}

long ControlSocket(BIO* bio, int command, long number, void* out) {
  switch (command) {
    case CONTROL_LIMIT_TIME:
      SetLimit(SocketOf(bio), number);
      return 1;
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_C_GET_FD:
      if (out != nullptr) *static_cast<int*>(out) = SocketOf(bio)->fd;
      return SocketOf(bio)->fd;
#ifdef BIO_FLAGS_IN_EOF
    case BIO_CTRL_EOF:
      return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
#endif
    default:
      return 0;
  }
}

int DestroySocket(BIO* bio) {
  delete SocketOf(bio);
  return 1;
}

// Never freed.
const BIO_METHOD* SocketMethod() {
  static const BIO_METHOD* const method = [] {
    const int type = BIO_get_new_index() | BIO_TYPE_SOURCE_SINK | BIO_TYPE_DESCRIPTOR;
    BIO_METHOD* made = BIO_meth_new(type, "stoppable socket");
    if (made == nullptr) return made;
    BIO_meth_set_write(made, WriteSocket);
    BIO_meth_set_read(made, ReadSocket);
    BIO_meth_set_ctrl(made, ControlSocket);
    BIO_meth_set_destroy(made, DestroySocket);
    return made;
  }();
  return method;
}

}  // namespace

bool AttachSocket(SSL* session, int fd) {
  const BIO_METHOD* method = SocketMethod();
  std::unique_ptr<BioSocket> socket(new (std::nothrow) BioSocket{fd});
  BIO* bio = method == nullptr || socket == nullptr ? nullptr : BIO_new(method);
  if (bio == nullptr) return false;
  BIO_set_data(bio, socket.release());
  BIO_set_init(bio, 1);
  SSL_set_bio(session, bio, bio);
  return true;
}

void LimitTime(SSL* session, int64_t milliseconds) {
  BIO_ctrl(SSL_get_rbio(session), CONTROL_LIMIT_TIME, milliseconds, nullptr);
}

}  // namespace tls
