// Name resolution that a stop can cut.
#ifndef BASE_RESOLVE_H
#define BASE_RESOLVE_H

#include <netdb.h>

#include <memory>

namespace base {

struct AddrinfoFree {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddrinfoFree>;

// Resolves host and service as getaddrinfo(3) does, for stream sockets of this family and protocol. A null
// host is the loopback. Returns 0 and the list, or an EAI_ code.
// A numeric address with a numeric port is answered at once. Anything else is looked up in a thread of its
// own, for as long as the system's resolver takes. When a stop cuts the wait (base/stoppable_wait.h), that
// thread is abandoned and the result is EAI_SYSTEM with errno ECANCELED.
[[nodiscard]] int Resolve(const char* host, const char* service, int family, int protocol,
                          AddressList* addresses_out);

}  // namespace base

#endif
