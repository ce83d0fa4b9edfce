// The accept queue of a port, with the room it has, as the kernel's socket diagnostics tell it.
#ifndef CTL_ACCEPT_QUEUE_H
#define CTL_ACCEPT_QUEUE_H

#include <cstdint>
#include <optional>
#include <string>

namespace ctl {

struct AcceptQueue {
  bool listening = false;
  uint32_t waiting = 0;          // of several listeners: the one with the most waiting
  std::optional<uint32_t> room;  // its backlog; nothing where only /proc/net/tcp could be read
  bool at_loopback = true;       // a listener takes connections to 127.0.0.1; true when that is not known
  // More wait than there is room for (the kernel takes one more): nobody gets in.
  bool Full() const { return listening && room && waiting > *room; }
};

// Of every listener of this port in the network of this process. Nothing connects; it waits for the kernel
// for 200 ms at most. Nothing when neither way is open.
std::optional<AcceptQueue> ReadAcceptQueue(uint16_t port);

// "port 9100 listening, 129 of 128 waiting".
std::string AcceptQueueWords(int64_t port, const std::optional<AcceptQueue>& queue);

}  // namespace ctl

#endif
