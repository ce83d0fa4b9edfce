#include "tls/stoppable_bio.h"

#include <openssl/bio.h>

#include <cstdint>

#include "base/net.h"

namespace tls {
namespace {

// The descriptor is kept in the data pointer itself; the flag of the shut-down mode stays BIO_NOCLOSE.
int Descriptor(BIO* bio) {
  return static_cast<int>(reinterpret_cast<intptr_t>(BIO_get_data(bio)));
}

int WriteSocket(BIO* bio, const char* data, int length) {
  return static_cast<int>(base::SendSome(Descriptor(bio), data, static_cast<size_t>(length)));
}

int ReadSocket(BIO* bio, char* buffer, int length) {
  const ssize_t got = base::ReceiveSome(Descriptor(bio), buffer, static_cast<size_t>(length));
#ifdef BIO_FLAGS_IN_EOF
  // From version 3 on the library asks for this to tell an end of stream from an error.
  if (got == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
#endif
  return static_cast<int>(got);
}

long Control(BIO* bio, int command, [[maybe_unused]] long number, void* out) {
  switch (command) {
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_C_GET_FD:
      if (out != nullptr) *static_cast<int*>(out) = Descriptor(bio);
      return Descriptor(bio);
#ifdef BIO_FLAGS_IN_EOF
    case BIO_CTRL_EOF:
      return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
#endif
    default:
      return 0;
  }
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
    return made;
  }();
  return method;
}

}  // namespace

bool AttachSocket(SSL* session, int fd) {
  const BIO_METHOD* method = Method();
  BIO* bio = method == nullptr ? nullptr : BIO_new(method);
  if (bio == nullptr) return false;
  BIO_set_data(bio, reinterpret_cast<void*>(static_cast<intptr_t>(fd)));
  BIO_set_init(bio, 1);
  SSL_set_bio(session, bio, bio);
  return true;
}

}  // namespace tls
