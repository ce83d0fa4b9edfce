#include "Tovik/engine/engine_socket.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "Tovik/engine/engine_payload.h"
#include "Tovik/trace.h"
#include "base/resolve.h"
#include "base/standard_descriptors.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "tls/tls_error.h"
#include "tls/tls_socket.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int CLOSED_ENGINE_SOCKET = -2;
constexpr int HEADER_RETRY_MS = 10;

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

// Repeats the receive while the error is a temporary one.
ssize_t ReceivePlainHeaderPiece(int fd, char* buffer, size_t length, int flags) {
  while (true) {
    const ssize_t got = base::ReceiveSome(fd, buffer, length, base::FOREVER, flags);
    if (got >= 0 || (errno != ENOBUFS && errno != EAGAIN)) return got;
    // A sleep that only the end of a stop's grace can cut.
    if (base::WaitDescriptor(fd, 0, HEADER_RETRY_MS) < 0) return -1;
  }
}

// Under TLS the wait for a reply happens here: the bytes that made the socket readable need not belong to
// one.
ssize_t ReceiveHeaderPiece(LVCSR_SOCK_HEAD* head, char* buffer, size_t length, int flags,
                           Clock::time_point replyDeadline) {
  if (head->bUseSSL != 1) return ReceivePlainHeaderPiece(head->uSock, buffer, length, flags);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(replyDeadline - Clock::now()).count();
  return ReadWithin(head, buffer, static_cast<int>(length), std::max<int64_t>(left, 0));
}

ssize_t ReceivePayloadPiece(LVCSR_SOCK_HEAD* head, char* buffer, size_t length, int flags) {
  if (head->bUseSSL != 1) return base::ReceiveSome(head->uSock, buffer, length, base::FOREVER, flags);
  TRACE(TRACE_INFO, "[RecvData] recvData start");
  const long got = Read(head, buffer, static_cast<int>(std::min<size_t>(length, INT_MAX)));
  if (got < 1) {
    TRACE(TRACE_ERROR, "recvData End [ %ld ]", got);
    if (got == -1) TRACE(TRACE_ERROR, "[RecvData] %s ", ErrorMessage(head));
  }
  return got;
}

int ReceiveHeader(LVCSR_SOCK_HEAD* head, LVCSR_NET_HEADER* out, int flags, Clock::time_point replyDeadline) {
  char header[sizeof *out] = {};
  for (size_t have = 0; have < sizeof header;) {
    const ssize_t got = ReceiveHeaderPiece(head, header + have, sizeof header - have, flags, replyDeadline);
    if (got < 1 && have == 0 && head->bUseSSL == 1 && TimedOut(head)) {
      TRACE(TRACE_ERROR, "[RecvData] %s ", ErrorMessage(head));
      return ENGINE_TIMED_OUT;
    }
    if (got < 1) return ENGINE_FAILED;
    have += static_cast<size_t>(got);
  }
  std::memcpy(out, header, sizeof header);
  return ENGINE_OK;
}

base::UniqueText BuildPacket(const LVCSR_NET_HEADER& header, const char* data, size_t* packetSize) {
  const size_t payloadLength = static_cast<size_t>(std::max(header.nLength, 0));
  *packetSize = sizeof header + payloadLength;
  base::UniqueText packet(static_cast<char*>(std::calloc(1, *packetSize)));
  if (packet == nullptr) return packet;
  std::memcpy(packet.get(), &header, sizeof header);
  if (payloadLength > 0 && data != nullptr) std::memcpy(packet.get() + sizeof header, data, payloadLength);
  return packet;
}

int SendTls(LVCSR_SOCK_HEAD* head, const char* packet, size_t packetSize) {
  TRACE(TRACE_INFO, "[SendData] sendData start");
  const int sent = packetSize > INT_MAX ? 0 : Write(head, packet, static_cast<int>(packetSize));
  if (sent > 0) return ENGINE_OK;
  TRACE(TRACE_ERROR, "[SendData] sendData End [ %d ]", sent);
  if (sent == -1) TRACE(TRACE_ERROR, "[SendData] %s", ErrorMessage(head));
  return ENGINE_FAILED;
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
  if (socket != -1 && base::CloseDescriptor(socket) < 0) return -1;
  if (head->bUseSSL == 1) {
    SSLClose(head);
    head->uSock = -1;
    TRACE(TRACE_INFO, "[EXIT] SSL Close Successed");
  }
  TRACE(TRACE_INFO, "[EXIT] Successed [ %d ]", socket);
  return 0;
}

int SendData(LVCSR_SOCK_HEAD* head, const LVCSR_NET_HEADER* header, const char* data, int flags) {
  if (head->uSock < 1 || header == nullptr) return ENGINE_FAILED;
  size_t packetSize = 0;
  const base::UniqueText packet = BuildPacket(*header, data, &packetSize);
  if (packet == nullptr) return ENGINE_FAILED;
  if (head->bUseSSL == 1) return SendTls(head, packet.get(), packetSize);
  // A packet that was sent in part counts as sent.
  size_t sent = 0;
  base::SendAll(head->uSock, packet.get(), packetSize, base::FOREVER, flags, &sent);
  return sent > 0 ? ENGINE_OK : ENGINE_FAILED;
}

int Recv_Wait(int sock, int seconds) {
  if (sock < 0) {
    TRACE(TRACE_INFO, "[Recv_Wait] Socket ID Create Failed");
    return ENGINE_FAILED;
  }
  TRACE(TRACE_INFO, "[Recv_Wait] select");
  const int ready = seconds < 0 ? -1 : base::WaitDescriptor(sock, POLLIN, int64_t{seconds} * 1000);
  TRACE(TRACE_INFO, "[Recv_Wait] select end[ %d ]", ready);
  if (ready == 0) return ENGINE_TIMED_OUT;
  return ready > 0 ? ENGINE_OK : ENGINE_FAILED;
}

char* RecvData(LVCSR_SOCK_HEAD* head, LVCSR_NET_HEADER* out, int* status, int flags) {
  *status = ENGINE_FAILED;
  if (head->uSock < 1 || out == nullptr) return nullptr;
  const auto replyDeadline = Clock::now() + std::chrono::seconds(head->uRecvTimeout);
  *status = Recv_Wait(head->uSock, head->uRecvTimeout);
  if (*status == ENGINE_OK) *status = ReceiveHeader(head, out, flags, replyDeadline);
  if (*status != ENGINE_OK || out->nLength <= 0) return nullptr;
  base::UniqueText payload = ReceivePayload(
      out->nLength, [&](char* to, size_t length) { return ReceivePayloadPiece(head, to, length, flags); });
  if (payload == nullptr) *status = ENGINE_FAILED;
  return payload.release();
}
