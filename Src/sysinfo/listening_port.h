// What waits at a listening TCP port, read without touching it.
#ifndef SYSINFO_LISTENING_PORT_H
#define SYSINFO_LISTENING_PORT_H

#include <cstdint>
#include <string_view>

namespace sysinfo {

struct ListeningPort {
  bool listening = false;
  // Connections that the kernel has taken and the program has not: of several listeners the most.
  uint32_t waiting = 0;
};

// Adds the listeners of this port in a text of /proc/net/tcp or tcp6 to *port_found. False when the text goes
// beyond the listeners, which come first: nothing behind it matters.
bool AddListeners(std::string_view tcp_rows, uint16_t port, ListeningPort* port_found);

// Looks into both files, each up to the end of its listeners. 1, or 0 when neither can be read. proc_root is
// where the process file system stands. It does not block.
int ReadListeningPort(uint16_t port, ListeningPort* port_found, const char* proc_root = "/proc");

}  // namespace sysinfo

#endif
