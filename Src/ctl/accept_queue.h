// The accept queue of a port: how many connections wait and how many may, from the kernel's socket
// diagnostics.
#ifndef CTL_ACCEPT_QUEUE_H
#define CTL_ACCEPT_QUEUE_H

#include <cstdint>
#include <optional>
#include <string>

namespace ctl {

struct AcceptQueue {
  bool listening = false;
  uint32_t waiting = 0;          // with several listeners, that of the fullest
  std::optional<uint32_t> room;  // its backlog; nothing where only /proc/net/tcp could be read
  bool at_loopback = true;       // some listener takes connections to 127.0.0.1; true when not known
  // More wait than the backlog (the kernel takes one more): no further connection gets in.
  bool Full() const { return listening && room && waiting > *room; }
};

// Reads the queues of all listeners of this port in this process's network namespace, by socket diagnostics
// or, where those are refused, from /proc/net/tcp. Makes no connection. Blocks for 200 ms at most. Returns
// nothing when neither can be read.
std::optional<AcceptQueue> ReadAcceptQueue(uint16_t port);

// "port 9100 listening, 129 of 128 waiting".
std::string AcceptQueueWords(int64_t port, const std::optional<AcceptQueue>& queue);

}  // namespace ctl

#endif
