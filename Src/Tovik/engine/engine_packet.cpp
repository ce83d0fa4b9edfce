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

using PacketClock = std::chrono::steady_clock;

constexpr int PACKET_RETRY_MS = 10;

// Repeats the receive while the error is a temporary one.
ssize_t ReceivePlainHeaderPiece(int packetSocket, char* packetPiece, size_t pieceLength, int flags) {
  while (true) {
    const ssize_t packetGot = base::ReceiveSome(packetSocket, packetPiece, pieceLength, base::FOREVER, flags);
    if (packetGot >= 0 || (errno != ENOBUFS && errno != EAGAIN)) return packetGot;
    // A sleep that only the end of a stop's grace can cut.
    if (base::WaitDescriptor(packetSocket, 0, PACKET_RETRY_MS) < 0) return -1;
  }
}

// Under TLS the wait for a reply happens here: the bytes that made the socket readable need not belong to
// one.
ssize_t ReceivePacketHeaderPiece(LVCSR_SOCK_HEAD* packetSocket, char* packetPiece, size_t pieceLength,
                                 int flags, PacketClock::time_point packetDeadline) {
  if (packetSocket->bUseSSL != 1)
    return ReceivePlainHeaderPiece(packetSocket->uSock, packetPiece, pieceLength, flags);
  const auto packetWaitMs =
      std::chrono::ceil<std::chrono::milliseconds>(packetDeadline - PacketClock::now()).count();
  return ReadWithin(packetSocket, packetPiece, static_cast<int>(pieceLength),
                    std::max<int64_t>(packetWaitMs, 0));
}

ssize_t ReceivePacketPayloadPiece(LVCSR_SOCK_HEAD* packetSocket, char* packetPiece, size_t pieceLength,
                                  int flags) {
  if (packetSocket->bUseSSL != 1)
    return base::ReceiveSome(packetSocket->uSock, packetPiece, pieceLength, base::FOREVER, flags);
  TRACE(TRACE_INFO, "[RecvData] recvData start");
  const long packetGot =
      Read(packetSocket, packetPiece, static_cast<int>(std::min<size_t>(pieceLength, INT_MAX)));
  if (packetGot < 1) {
    TRACE(TRACE_ERROR, "recvData End [ %ld ]", packetGot);
    if (packetGot == -1) TRACE(TRACE_ERROR, "[RecvData] %s ", ErrorMessage(packetSocket));
  }
  return packetGot;
}

int ReceivePacketHeader(LVCSR_SOCK_HEAD* packetSocket, LVCSR_NET_HEADER* packetHeader, int flags,
                        PacketClock::time_point packetDeadline) {
  char packetBytes[sizeof *packetHeader] = {};
  for (size_t packetHeaderGot = 0; packetHeaderGot < sizeof packetBytes;) {
    const ssize_t packetGot =
        ReceivePacketHeaderPiece(packetSocket, packetBytes + packetHeaderGot,
                                 sizeof packetBytes - packetHeaderGot, flags, packetDeadline);
    if (packetGot < 1 && packetHeaderGot == 0 && packetSocket->bUseSSL == 1 && TimedOut(packetSocket)) {
      TRACE(TRACE_ERROR, "[RecvData] %s ", ErrorMessage(packetSocket));
      return ENGINE_TIMED_OUT;
    }
    if (packetGot < 1) return ENGINE_FAILED;
    packetHeaderGot += static_cast<size_t>(packetGot);
  }
  std::memcpy(packetHeader, packetBytes, sizeof packetBytes);
  return ENGINE_OK;
}

base::UniqueText BuildPacket(const LVCSR_NET_HEADER& packetHeader, const char* packetData,
                             size_t* packetSize) {
  const size_t payloadSize = static_cast<size_t>(std::max(packetHeader.nLength, 0));
  *packetSize = sizeof packetHeader + payloadSize;
  base::UniqueText packet(static_cast<char*>(std::calloc(1, *packetSize)));
  if (packet == nullptr) return packet;
  std::memcpy(packet.get(), &packetHeader, sizeof packetHeader);
  if (payloadSize > 0 && packetData != nullptr)
    std::memcpy(packet.get() + sizeof packetHeader, packetData, payloadSize);
  return packet;
}

int SendTlsPacket(LVCSR_SOCK_HEAD* packetSocket, const char* packet, size_t packetSize) {
  TRACE(TRACE_INFO, "[SendData] sendData start");
  const int packetSent = packetSize > INT_MAX ? 0 : Write(packetSocket, packet, static_cast<int>(packetSize));
  if (packetSent > 0) return ENGINE_OK;
  TRACE(TRACE_ERROR, "[SendData] sendData End [ %d ]", packetSent);
  if (packetSent == -1) TRACE(TRACE_ERROR, "[SendData] %s", ErrorMessage(packetSocket));
  return ENGINE_FAILED;
}

}  // namespace

int SendData(LVCSR_SOCK_HEAD* packetSocket, const LVCSR_NET_HEADER* packetHeader, const char* packetData,
             int flags) {
  if (packetSocket->uSock < 1 || packetHeader == nullptr) return ENGINE_FAILED;
  size_t packetSize = 0;
  const base::UniqueText packet = BuildPacket(*packetHeader, packetData, &packetSize);
  if (packet == nullptr) return ENGINE_FAILED;
  if (packetSocket->bUseSSL == 1) return SendTlsPacket(packetSocket, packet.get(), packetSize);
  // A packet that was sent in part counts as sent.
  size_t packetSent = 0;
  base::SendAll(packetSocket->uSock, packet.get(), packetSize, base::FOREVER, flags, &packetSent);
  return packetSent > 0 ? ENGINE_OK : ENGINE_FAILED;
}

int Recv_Wait(int packetSock, int seconds) {
  if (packetSock < 0) {
    TRACE(TRACE_INFO, "[Recv_Wait] Socket ID Create Failed");
    return ENGINE_FAILED;
  }
  TRACE(TRACE_INFO, "[Recv_Wait] select");
  const int packetReady =
      seconds < 0 ? -1 : base::WaitDescriptor(packetSock, POLLIN, int64_t{seconds} * 1000);
  TRACE(TRACE_INFO, "[Recv_Wait] select end[ %d ]", packetReady);
  if (packetReady == 0) return ENGINE_TIMED_OUT;
  return packetReady > 0 ? ENGINE_OK : ENGINE_FAILED;
}

char* RecvData(LVCSR_SOCK_HEAD* packetSocket, LVCSR_NET_HEADER* packetHeader, int* packetStatus, int flags) {
  *packetStatus = ENGINE_FAILED;
  if (packetSocket->uSock < 1 || packetHeader == nullptr) return nullptr;
  const auto packetDeadline = PacketClock::now() + std::chrono::seconds(packetSocket->uRecvTimeout);
  *packetStatus = Recv_Wait(packetSocket->uSock, packetSocket->uRecvTimeout);
  if (*packetStatus == ENGINE_OK)
    *packetStatus = ReceivePacketHeader(packetSocket, packetHeader, flags, packetDeadline);
  if (*packetStatus != ENGINE_OK || packetHeader->nLength <= 0) return nullptr;
  base::UniqueText packetPayload =
      ReceivePayload(packetHeader->nLength, [&](char* packetPiece, size_t pieceLength) {
        return ReceivePacketPayloadPiece(packetSocket, packetPiece, pieceLength, flags);
      });
  if (packetPayload == nullptr) *packetStatus = ENGINE_FAILED;
  return packetPayload.release();
}
