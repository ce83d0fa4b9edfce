#include "tls/stoppable_bio.h"

#include <openssl/bio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <new>

#include "base/net.h"

namespace tls {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int CONTROL_LIMIT_TIME = 1000;  // beyond the library's own numbers

// What a BIO holds in its data pointer.
struct Road {
  int fd;
  Clock::time_point end = Clock::time_point::max();
};

Road* RoadOf(BIO* bio) {
  return static_cast<Road*>(BIO_get_data(bio));
}

void SetLimit(Road* road, int64_t milliseconds) {
  road->end =
      milliseconds < 0 ? Clock::time_point::max() : Clock::now() + std::chrono::milliseconds(milliseconds);
}

int64_t Left(const Road& road) {
  if (road.end == Clock::time_point::max()) return base::FOREVER;
  return std::max<int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(road.end - Clock::now()).count());
}

// One call on the socket. Out of time even what would not block fails: a peer could go on for ever with what
// is no data.
template <typename Call>
int Move(BIO* bio, int retry, Call call) {
  const Road& road = *RoadOf(bio);
  BIO_clear_retry_flags(bio);
  const int64_t left = Left(road);
  errno = ETIMEDOUT;
  const ssize_t count = left == 0 ? -1 : call(road.fd, left);
  if (count < 0 && errno == ETIMEDOUT) BIO_set_flags(bio, retry | BIO_FLAGS_SHOULD_RETRY);
  return static_cast<int>(count);
}

int WriteSocket(BIO* bio, const char* data, int length) {
  return Move(bio, BIO_FLAGS_WRITE, [=](int fd, int64_t milliseconds) {
    return base::SendSome(fd, data, static_cast<size_t>(length), milliseconds);
  });
}

int ReadSocket(BIO* bio, char* buffer, int length) {
  const int got = Move(bio, BIO_FLAGS_READ, [=](int fd, int64_t milliseconds) {
    return base::ReceiveSome(fd, buffer, static_cast<size_t>(length), milliseconds);
  });
#ifdef BIO_FLAGS_IN_EOF
  // From version 3 on the library asks for this to tell an end of stream from an error.
  if (got == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
#endif
  return got;
}

long Control(BIO* bio, int command, long number, void* out) {
  switch (command) {
    case CONTROL_LIMIT_TIME:
      SetLimit(RoadOf(bio), number);
      return 1;
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_C_GET_FD:
      if (out != nullptr) *static_cast<int*>(out) = RoadOf(bio)->fd;
      return RoadOf(bio)->fd;
#ifdef BIO_FLAGS_IN_EOF
    case BIO_CTRL_EOF:
      return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
#endif
    default:
      return 0;
  }
}

int Destroy(BIO* bio) {
  delete RoadOf(bio);
  return 1;
}

// Lives as long as the process.
const BIO_METHOD* Method() {
  static const BIO_METHOD* const method = [] {
    const int type = BIO_get_new_index() | BIO_TYPE_SOURCE_SINK | BIO_TYPE_DESCRIPTOR;
    BIO_METHOD* made = BIO_meth_new(type, "stoppable socket");
    if (made == nullptr) return made;
    BIO_meth_set_write(made, WriteSocket);
    BIO_meth_set_read(made, ReadSocket);
    BIO_meth_set_ctrl(made, Control);
    BIO_meth_set_destroy(made, Destroy);
    return made;
  }();
  return method;
}

}  // namespace

bool AttachSocket(SSL* session, int fd) {
  const BIO_METHOD* method = Method();
  std::unique_ptr<Road> road(new (std::nothrow) Road{fd});
  BIO* bio = method == nullptr || road == nullptr ? nullptr : BIO_new(method);
  if (bio == nullptr) return false;
  BIO_set_data(bio, road.release());
  BIO_set_init(bio, 1);
  SSL_set_bio(session, bio, bio);
  return true;
}

void LimitTime(SSL* session, int64_t milliseconds) {
  BIO_ctrl(SSL_get_rbio(session), CONTROL_LIMIT_TIME, milliseconds, nullptr);
}

}  // namespace tls
