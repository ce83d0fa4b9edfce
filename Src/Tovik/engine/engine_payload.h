// Receives a payload whose announced length cannot be trusted.
#ifndef TOVIK_ENGINE_ENGINE_PAYLOAD_H
#define TOVIK_ENGINE_ENGINE_PAYLOAD_H

#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "base/unique_handles.h"

// Receives exactly payloadLength bytes (1 or more) with calls of receivePayload(char* to, size_t at_most),
// which returns the number of bytes received, or a number below 1 to give up. Returns null when it gave up or
// memory ran out. The buffer starts at 64 KiB and doubles as bytes arrive.
template <typename ReceivePayloadPiece>
base::UniqueText ReceivePayload(int64_t payloadLength, ReceivePayloadPiece receivePayload) {
  constexpr int64_t FIRST_PAYLOAD_ROOM = int64_t{64} * 1024;
  base::UniqueText payload;
  int64_t payloadRoom = 0;
  for (int64_t payloadReceived = 0; payloadReceived < payloadLength;) {
    if (payloadReceived == payloadRoom) {
      payloadRoom = std::min(payloadLength, std::max(FIRST_PAYLOAD_ROOM, payloadRoom * 2));
      if (!base::Resize(payload, static_cast<size_t>(payloadRoom))) return nullptr;
    }
    const ssize_t payloadGot =
        receivePayload(payload.get() + payloadReceived, static_cast<size_t>(payloadRoom - payloadReceived));
    if (payloadGot < 1) return nullptr;
    payloadReceived += payloadGot;
  }
  return payload;
}

#endif
