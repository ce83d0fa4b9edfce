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

constexpr int CLOSED_CONNECTION = -2;

bool EngineHostGiven(const char* engineHost) {
  if (engineHost == nullptr) {
    TRACE(TRACE_ERROR, "[INIT] HOST Nothing");
    return false;
  }
  if (*engineHost == '\0') {
    TRACE(TRACE_ERROR, "[INIT] HOST Nothing Data is Null");
    return false;
  }
  return true;
}

base::AddressList EngineAddresses(const char* engineHost, int enginePort) {
  base::AddressList engineAddresses;
  const int resolveError =
      base::Resolve(engineHost, std::to_string(enginePort).c_str(), AF_UNSPEC, 0, &engineAddresses);
  if (resolveError != 0) TRACE(TRACE_ERROR, "[INIT] getaddrinfo error: %d", resolveError);
  return engineAddresses;
}

// Finds the first address for which a socket can be opened. Returns null when there is none.
const addrinfo* FirstEngineSocket(const addrinfo* engineAddresses, base::UniqueFd* engineSocket) {
  for (const addrinfo* engineAddress = engineAddresses; engineAddress != nullptr;
       engineAddress = engineAddress->ai_next) {
    *engineSocket = base::OpenSocket(engineAddress->ai_family, engineAddress->ai_protocol);
    if (engineSocket->Valid()) return engineAddress;
    TRACE(TRACE_ERROR, "[INIT] Socket Create Failed");
  }
  TRACE(TRACE_ERROR, "[INIT] Socket Connent Failed");
  return nullptr;
}

bool SetConnectionBlocking(int engineSocket, bool blocking) {
  if (base::SetBlocking(engineSocket, blocking) >= 0) return true;
  TRACE(TRACE_ERROR, "[INIT] %d: fcntl error: %s", h_errno, std::strerror(h_errno));
  return false;
}

// These messages show the resolver's error number, as operators are used to.
bool SetConnectionOptions(int engineSocket) {
  const linger connectionLinger{1, 0};
  if (::setsockopt(engineSocket, SOL_SOCKET, SO_LINGER, &connectionLinger, sizeof connectionLinger) < 0) {
    TRACE(TRACE_ERROR, "[INIT] %d: setsockopt SO_LINGER error: %s", h_errno, std::strerror(h_errno));
    return false;
  }
  const int reuseAddress = 1;
  if (::setsockopt(engineSocket, SOL_SOCKET, SO_REUSEADDR, &reuseAddress, sizeof reuseAddress) < 0) {
    TRACE(TRACE_ERROR, "[INIT] %d: setsockopt SO_REUSEADDR error: %s", h_errno, std::strerror(h_errno));
    return false;
  }
  return true;
}

// The limit is the given number of seconds plus as many microseconds, rounded up to milliseconds.
int64_t ConnectionWaitMs(int connectSeconds) {
  return int64_t{connectSeconds} * 1000 + (int64_t{connectSeconds} + 999) / 1000;
}

int ConnectionOutcome(int engineSocket) {
  int connectError = 0;
  socklen_t connectErrorSize = sizeof connectError;
  if (::getsockopt(engineSocket, SOL_SOCKET, SO_ERROR, &connectError, &connectErrorSize) < 0) {
    connectError = errno;
    TRACE(TRACE_ERROR, "[INIT] %d: getsockopt1 error: %s", connectError, std::strerror(connectError));
    return ENGINE_FAILED;
  }
  switch (connectError) {
    case 0:
      TRACE(TRACE_INFO, "[INIT] getsockopt2 Successed");
      return SetConnectionBlocking(engineSocket, true) ? ENGINE_OK : ENGINE_FAILED;
    case ECONNREFUSED:
      TRACE(TRACE_ERROR, "[INIT] %d: getsockopt3 refuse: %s", connectError, std::strerror(connectError));
      return ENGINE_FAILED;
    case ETIMEDOUT:
      TRACE(TRACE_ERROR, "[INIT] %d: getsockopt3 timeout: %s", connectError, std::strerror(connectError));
      return ENGINE_TIMED_OUT;
    default:
      TRACE(TRACE_ERROR, "[INIT] %d: getsockopt3 error: %s", connectError, std::strerror(connectError));
      return ENGINE_FAILED;
  }
}

int ConnectEngine(int engineSocket, const addrinfo& engineAddress, int connectSeconds) {
  if (::connect(engineSocket, engineAddress.ai_addr, engineAddress.ai_addrlen) == 0) {
    return SetConnectionBlocking(engineSocket, true) ? ENGINE_OK : ENGINE_FAILED;
  }
  int connectError = errno;
  if (connectError != EINPROGRESS && connectError != EALREADY && connectError != EAGAIN) {
    SetConnectionBlocking(engineSocket, false);
    TRACE(TRACE_ERROR, "[INIT] %d: connect error: %s", connectError, std::strerror(connectError));
    return ENGINE_FAILED;
  }
  const int connectReady =
      base::WaitDescriptor(engineSocket, POLLIN | POLLOUT, ConnectionWaitMs(connectSeconds));
  if (connectReady < 0) {
    connectError = errno;
    TRACE(TRACE_ERROR, "[INIT] %d: select error: %s", connectError, std::strerror(connectError));
  }
  return connectReady > 0 ? ConnectionOutcome(engineSocket) : ENGINE_FAILED;
}

bool StartConnectionTls(int engineSocket, LVCSR_SOCK_HEAD* connection) {
  if (ClientSockSetting(connection, engineSocket) != 1) {
    TRACE(TRACE_ERROR, "[INIT] %s", ErrorMessage(connection));
    return false;
  }
  if (connection->bVerify == 1 && CertificateCheck(connection) == -1) {
    // CertificateCheck has reset the last error, so neither message is ever traced.
    if (connection->uLastError == -1) TRACE(TRACE_ERROR, "[INIT] CertificateCheck Error");
    if (connection->uLastError == -2)
      TRACE(TRACE_ERROR, "[INIT] CertificateCheck Error : Not Found Certificate");
    return false;
  }
  TRACE(TRACE_INFO, "[INIT] SSL Connect Successed");
  return true;
}

// Gives the connected socket to the record, after the TLS handshake if it uses TLS.
bool AdoptConnection(base::UniqueFd engineSocket, LVCSR_SOCK_HEAD* connection) {
  if (connection->bUseSSL != 1) {
    connection->bUseSSL = 0;
    connection->uSock = engineSocket.Release();
    TRACE(TRACE_INFO, "VALID_SOCKET pHEAD->uSock [ %d ] uSOCK[ %d ]", connection->uSock, connection->uSock);
    return true;
  }
  if (StartConnectionTls(engineSocket.Get(), connection)) {
    engineSocket.Release();
    return true;
  }
  connection->uSock = CLOSED_CONNECTION;  // on return; another thread may get its number from then on
  return false;
}

}  // namespace

int DunraSTT_INIT(const char* host, int port, int connTimeout, int recvTimeout, LVCSR_SOCK_HEAD* connection) {
  if (!EngineHostGiven(host)) return ENGINE_FAILED;
  connTimeout = std::max(connTimeout, 1);
  recvTimeout = std::max(recvTimeout, 1);
  TRACE(TRACE_ERROR, "[INIT] HOST Connent(%s:%d)", host, port);
  const base::AddressList engineAddresses = EngineAddresses(host, port);
  if (engineAddresses == nullptr) return ENGINE_FAILED;
  base::UniqueFd engineSocket;
  const addrinfo* engineAddress = FirstEngineSocket(engineAddresses.get(), &engineSocket);
  if (engineAddress == nullptr) return ENGINE_FAILED;
  if (!SetConnectionBlocking(engineSocket.Get(), false) || !SetConnectionOptions(engineSocket.Get()))
    return ENGINE_FAILED;
  const int connectResult = ConnectEngine(engineSocket.Get(), *engineAddress, connTimeout);
  if (connectResult != ENGINE_OK) return connectResult;
  TRACE(TRACE_INFO, "[INIT] Successed(%s:%d)(%d)", host, port, engineSocket.Get());
  connection->uConnTimeout = connTimeout;
  connection->uRecvTimeout = recvTimeout;  // of the handshake too
  if (!AdoptConnection(std::move(engineSocket), connection)) return ENGINE_FAILED;
  connection->uChannel = -1;
  return ENGINE_OK;
}

int DunraSTT_EXIT(LVCSR_SOCK_HEAD* connection) {
  const int engineSocket = connection->uSock;
  connection->uSock = -1;
  if (engineSocket == CLOSED_CONNECTION) {
    SSLClose(connection);
    connection->uSock = -1;
    return -1;
  }
  if (engineSocket != -1 && base::CloseKeepingStandard(engineSocket) < 0) return -1;
  if (connection->bUseSSL == 1) {
    SSLClose(connection);
    connection->uSock = -1;
    TRACE(TRACE_INFO, "[EXIT] SSL Close Successed");
  }
  TRACE(TRACE_INFO, "[EXIT] Successed [ %d ]", engineSocket);
  return 0;
}
