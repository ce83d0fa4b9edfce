// Receives a payload whose announced length cannot be trusted.
#ifndef TOVIK_ENGINE_ENGINE_PAYLOAD_H
#define TOVIK_ENGINE_ENGINE_PAYLOAD_H

#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "base/unique_handles.h"

// Receives exactly length bytes (1 or more) with calls of receive(char* to, size_t at_most), which returns
// the number of bytes received, or a number below 1 to give up. Returns null when it gave up or memory ran
// out. The buffer starts at 64 KiB and doubles as bytes arrive.
template <typename Receive>
base::UniqueText ReceivePayload(int64_t length, Receive receive) {
  constexpr int64_t FIRST_PAYLOAD_ROOM = int64_t{64} * 1024;
  base::UniqueText payload;
  int64_t payloadRoom = 0;
  for (int64_t received = 0; received < length;) {
    if (received == payloadRoom) {
      payloadRoom = std::min(length, std::max(FIRST_PAYLOAD_ROOM, payloadRoom * 2));
      if (!base::Resize(payload, static_cast<size_t>(payloadRoom))) return nullptr;
    }
    const ssize_t got = receive(payload.get() + received, static_cast<size_t>(payloadRoom - received));
    if (got < 1) return nullptr;
    received += got;
  }
  return payload;
}

#endif
