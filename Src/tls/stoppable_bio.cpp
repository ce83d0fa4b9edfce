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

using BioClock = std::chrono::steady_clock;

constexpr int BIO_CONTROL_LIMIT_TIME = 1000;  // above the numbers that the library uses

// The data of a BIO.
struct BioSocket {
  int bio_fd;
  BioClock::time_point bio_deadline = BioClock::time_point::max();
};

BioSocket* SocketOf(BIO* bio) {
  return static_cast<BioSocket*>(BIO_get_data(bio));
}

void SetBioLimit(BioSocket* bio_socket, int64_t milliseconds) {
  bio_socket->bio_deadline = milliseconds < 0 ? BioClock::time_point::max()
                                              : BioClock::now() + std::chrono::milliseconds(milliseconds);
}

int64_t BioTimeLeft(const BioSocket& bio_socket) {
  if (bio_socket.bio_deadline == BioClock::time_point::max()) return base::FOREVER;
  return std::max<int64_t>(
      0, std::chrono::ceil<std::chrono::milliseconds>(bio_socket.bio_deadline - BioClock::now()).count());
}

// Makes one call on the socket. After the deadline it fails without calling: a peer that keeps sending bytes
// which are no data could otherwise go on for ever.
template <typename BioSocketCall>
int CallBioSocket(BIO* bio, int retry_flag, BioSocketCall socket_call) {
  const BioSocket& bio_socket = *SocketOf(bio);
  BIO_clear_retry_flags(bio);
  const int64_t bio_time_left = BioTimeLeft(bio_socket);
  errno = ETIMEDOUT;
  const ssize_t bio_result = bio_time_left == 0 ? -1 : socket_call(bio_socket.bio_fd, bio_time_left);
  if (bio_result < 0 && errno == ETIMEDOUT) BIO_set_flags(bio, retry_flag | BIO_FLAGS_SHOULD_RETRY);
  return static_cast<int>(bio_result);
}

int WriteBio(BIO* bio, const char* bio_data, int bio_length) {
  return CallBioSocket(bio, BIO_FLAGS_WRITE, [=](int bio_fd, int64_t bio_time_left) {
    return base::SendSome(bio_fd, bio_data, static_cast<size_t>(bio_length), bio_time_left);
  });
}

int ReadBio(BIO* bio, char* bio_buffer, int bio_length) {
  const int bio_bytes = CallBioSocket(bio, BIO_FLAGS_READ, [=](int bio_fd, int64_t bio_time_left) {
    return base::ReceiveSome(bio_fd, bio_buffer, static_cast<size_t>(bio_length), bio_time_left);
  });
#ifdef BIO_FLAGS_IN_EOF
  // OpenSSL 3 needs this flag to tell the end of the stream from an error.
  if (bio_bytes == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
#endif
  return bio_bytes;
}

long ControlBio(BIO* bio, int bio_command, long limit_ms, void* out) {
  switch (bio_command) {
    case BIO_CONTROL_LIMIT_TIME:
      SetBioLimit(SocketOf(bio), limit_ms);
      return 1;
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_C_GET_FD:
      if (out != nullptr) *static_cast<int*>(out) = SocketOf(bio)->bio_fd;
      return SocketOf(bio)->bio_fd;
#ifdef BIO_FLAGS_IN_EOF
    case BIO_CTRL_EOF:
      return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
#endif
    default:
      return 0;
  }
}

int DestroyBio(BIO* bio) {
  delete SocketOf(bio);
  return 1;
}

// Never freed.
const BIO_METHOD* StoppableBioMethod() {
  static const BIO_METHOD* const shared_method = [] {
    const int bio_type = BIO_get_new_index() | BIO_TYPE_SOURCE_SINK | BIO_TYPE_DESCRIPTOR;
    BIO_METHOD* bio_method = BIO_meth_new(bio_type, "stoppable socket");
    if (bio_method == nullptr) return bio_method;
    BIO_meth_set_write(bio_method, WriteBio);
    BIO_meth_set_read(bio_method, ReadBio);
    BIO_meth_set_ctrl(bio_method, ControlBio);
    BIO_meth_set_destroy(bio_method, DestroyBio);
    return bio_method;
  }();
  return shared_method;
}

}  // namespace

bool AttachStoppableBio(SSL* session, int fd) {
  const BIO_METHOD* bio_method = StoppableBioMethod();
  std::unique_ptr<BioSocket> bio_socket(new (std::nothrow) BioSocket{fd});
  BIO* bio = bio_method == nullptr || bio_socket == nullptr ? nullptr : BIO_new(bio_method);
  if (bio == nullptr) return false;
  BIO_set_data(bio, bio_socket.release());
  BIO_set_init(bio, 1);
  SSL_set_bio(session, bio, bio);
  return true;
}

void LimitBioTime(SSL* session, int64_t milliseconds) {
  BIO_ctrl(SSL_get_rbio(session), BIO_CONTROL_LIMIT_TIME, milliseconds, nullptr);
}

}  // namespace tls
