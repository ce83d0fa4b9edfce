// Receives a payload whose announced length cannot be trusted.
#ifndef TOVIK_ENGINE_GROWING_RECEIVE_H
#define TOVIK_ENGINE_GROWING_RECEIVE_H

#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "base/unique_handles.h"

// Receives exactly length bytes (1 or more) with calls of receive(char* to, size_t at_most), which returns
// the number of bytes received, or a number below 1 to give up. Returns null when it gave up or memory ran
// out. The buffer starts at 64 KiB and doubles as bytes arrive.
template <typename Receive>
base::UniqueText ReceiveGrowing(int64_t length, Receive receive) {
  constexpr int64_t FIRST = int64_t{64} * 1024;
  base::UniqueText buffer;
  int64_t capacity = 0;
  for (int64_t have = 0; have < length;) {
    if (have == capacity) {
      capacity = std::min(length, std::max(FIRST, capacity * 2));
      if (!base::Resize(buffer, static_cast<size_t>(capacity))) return nullptr;
    }
    const ssize_t got = receive(buffer.get() + have, static_cast<size_t>(capacity - have));
    if (got < 1) return nullptr;
    have += got;
  }
  return buffer;
}

#endif
