#include "Tovik/engine/engine_connection.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "Tovik/trace.h"
#include "base/resolve.h"
#include "base/standard_descriptors.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "tls/tls_error.h"
#include "tls/tls_socket.h"

namespace {

constexpr int CLOSED_ENGINE_SOCKET = -2;

bool HostGiven(const char* host) {
  if (host == nullptr) {
    TRACE(TRACE_ERROR, "[INIT] HOST Nothing");
    return false;
  }
  if (*host == '\0') {
    TRACE(TRACE_ERROR, "[INIT] HOST Nothing Data is Null");
    return false;
  }
  return true;
}

base::AddressList EngineAddresses(const char* host, int port) {
  base::AddressList list;
  const int error = base::Resolve(host, std::to_string(port).c_str(), AF_UNSPEC, 0, &list);
  if (error != 0) TRACE(TRACE_ERROR, "[INIT] getaddrinfo error: %d", error);
  return list;
}

// Finds the first address for which a socket can be opened. Returns null when there is none.
const addrinfo* FirstSocket(const addrinfo* list, base::UniqueFd* socket) {
  for (const addrinfo* address = list; address != nullptr; address = address->ai_next) {
    *socket = base::OpenSocket(address->ai_family, address->ai_protocol);
    if (socket->Valid()) return address;
    TRACE(TRACE_ERROR, "[INIT] Socket Create Failed");
  }
  TRACE(TRACE_ERROR, "[INIT] Socket Connent Failed");
  return nullptr;
}

bool SetMode(int fd, bool blocking) {
  if (base::SetBlocking(fd, blocking) >= 0) return true;
  TRACE(TRACE_ERROR, "[INIT] %d: fcntl error: %s", h_errno, std::strerror(h_errno));
  return false;
}

// These messages show the resolver's error number, as operators are used to.
bool SetOptions(int fd) {
  const linger at_once{1, 0};
  if (::setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once) < 0) {
    TRACE(TRACE_ERROR, "[INIT] %d: setsockopt SO_LINGER error: %s", h_errno, std::strerror(h_errno));
    return false;
  }
  const int reuse = 1;
  if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) < 0) {
    TRACE(TRACE_ERROR, "[INIT] %d: setsockopt SO_REUSEADDR error: %s", h_errno, std::strerror(h_errno));
    return false;
  }
  return true;
}

// The limit is the given number of seconds plus as many microseconds, rounded up to milliseconds.
int64_t ConnectWaitMs(int seconds) {
  return int64_t{seconds} * 1000 + (int64_t{seconds} + 999) / 1000;
}

int ConnectOutcome(int fd) {
  int error = 0;
  socklen_t length = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) < 0) {
    error = errno;
    TRACE(TRACE_ERROR, "[INIT] %d: getsockopt1 error: %s", error, std::strerror(error));
    return ENGINE_FAILED;
  }
  switch (error) {
    case 0:
      TRACE(TRACE_INFO, "[INIT] getsockopt2 Successed");
      return SetMode(fd, true) ? ENGINE_OK : ENGINE_FAILED;
    case ECONNREFUSED:
      TRACE(TRACE_ERROR, "[INIT] %d: getsockopt3 refuse: %s", error, std::strerror(error));
      return ENGINE_FAILED;
    case ETIMEDOUT:
      TRACE(TRACE_ERROR, "[INIT] %d: getsockopt3 timeout: %s", error, std::strerror(error));
      return ENGINE_TIMED_OUT;
    default:
      TRACE(TRACE_ERROR, "[INIT] %d: getsockopt3 error: %s", error, std::strerror(error));
      return ENGINE_FAILED;
  }
}

int ConnectEngine(int fd, const addrinfo& address, int seconds) {
  if (::connect(fd, address.ai_addr, address.ai_addrlen) == 0) {
    return SetMode(fd, true) ? ENGINE_OK : ENGINE_FAILED;
  }
  int error = errno;
  if (error != EINPROGRESS && error != EALREADY && error != EAGAIN) {
    SetMode(fd, false);
    TRACE(TRACE_ERROR, "[INIT] %d: connect error: %s", error, std::strerror(error));
    return ENGINE_FAILED;
  }
  const int ready = base::WaitDescriptor(fd, POLLIN | POLLOUT, ConnectWaitMs(seconds));
  if (ready < 0) {
    error = errno;
    TRACE(TRACE_ERROR, "[INIT] %d: select error: %s", error, std::strerror(error));
  }
  return ready > 0 ? ConnectOutcome(fd) : ENGINE_FAILED;
}

bool StartTls(int fd, LVCSR_SOCK_HEAD* head) {
  if (ClientSockSetting(head, fd) != 1) {
    TRACE(TRACE_ERROR, "[INIT] %s", ErrorMessage(head));
    return false;
  }
  if (head->bVerify == 1 && CertificateCheck(head) == -1) {
    // CertificateCheck has reset the last error, so neither message is ever traced.
    if (head->uLastError == -1) TRACE(TRACE_ERROR, "[INIT] CertificateCheck Error");
    if (head->uLastError == -2) TRACE(TRACE_ERROR, "[INIT] CertificateCheck Error : Not Found Certificate");
    return false;
  }
  TRACE(TRACE_INFO, "[INIT] SSL Connect Successed");
  return true;
}

// Gives the connected socket to the record, after the TLS handshake if it uses TLS.
bool Adopt(base::UniqueFd socket, LVCSR_SOCK_HEAD* head) {
  if (head->bUseSSL != 1) {
    head->bUseSSL = 0;
    head->uSock = socket.Release();
    TRACE(TRACE_INFO, "VALID_SOCKET pHEAD->uSock [ %d ] uSOCK[ %d ]", head->uSock, head->uSock);
    return true;
  }
  if (StartTls(socket.Get(), head)) {
    socket.Release();
    return true;
  }
  head->uSock = CLOSED_ENGINE_SOCKET;  // on return; another thread may get its number from then on
  return false;
}

}  // namespace

int DunraSTT_INIT(const char* host, int port, int connTimeout, int recvTimeout, LVCSR_SOCK_HEAD* head) {
  if (!HostGiven(host)) return ENGINE_FAILED;
  connTimeout = std::max(connTimeout, 1);
  recvTimeout = std::max(recvTimeout, 1);
  TRACE(TRACE_ERROR, "[INIT] HOST Connent(%s:%d)", host, port);
  const base::AddressList addresses = EngineAddresses(host, port);
  if (addresses == nullptr) return ENGINE_FAILED;
  base::UniqueFd socket;
  const addrinfo* address = FirstSocket(addresses.get(), &socket);
  if (address == nullptr) return ENGINE_FAILED;
  if (!SetMode(socket.Get(), false) || !SetOptions(socket.Get())) return ENGINE_FAILED;
  const int connected = ConnectEngine(socket.Get(), *address, connTimeout);
  if (connected != ENGINE_OK) return connected;
  TRACE(TRACE_INFO, "[INIT] Successed(%s:%d)(%d)", host, port, socket.Get());
  head->uConnTimeout = connTimeout;
  head->uRecvTimeout = recvTimeout;  // of the handshake too
  if (!Adopt(std::move(socket), head)) return ENGINE_FAILED;
  head->uChannel = -1;
  return ENGINE_OK;
}

int DunraSTT_EXIT(LVCSR_SOCK_HEAD* head) {
  const int socket = head->uSock;
  head->uSock = -1;
  if (socket == CLOSED_ENGINE_SOCKET) {
    SSLClose(head);
    head->uSock = -1;
    return -1;
  }
  if (socket != -1 && base::CloseKeepingStandard(socket) < 0) return -1;
  if (head->bUseSSL == 1) {
    SSLClose(head);
    head->uSock = -1;
    TRACE(TRACE_INFO, "[EXIT] SSL Close Successed");
  }
  TRACE(TRACE_INFO, "[EXIT] Successed [ %d ]", socket);
  return 0;
}
