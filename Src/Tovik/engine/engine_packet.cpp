#include "Tovik/engine/engine_packet.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "Tovik/engine/engine_payload.h"
#include "Tovik/trace.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "tls/tls_error.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int HEADER_RETRY_MS = 10;

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
