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

// As getaddrinfo(3) for stream sockets of this family and protocol: 0 and the list, or its EAI_ code. A null
// host is the loopback. Names are looked up for as long as the system's resolver takes; when a stop ends the
// wait (base/stop.h) the look-up is abandoned to a thread of its own: EAI_SYSTEM with errno ECANCELED.
// Addresses in figures with a port in figures are answered at once, without a thread.
[[nodiscard]] int Resolve(const char* host, const char* service, int family, int protocol, AddressList* out);

}  // namespace base

#endif
