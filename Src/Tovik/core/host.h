// What the agent knows of its host.
#ifndef TOVIK_CORE_HOST_H
#define TOVIK_CORE_HOST_H

#include <ifaddrs.h>
#include <sys/types.h>

#include <ctime>
#include <string>

inline constexpr int IP_TEXT = 256;

// The host's address as text, quoted in alarm texts; filled once at start-up, empty when none was found.
extern char gIpaddr[IP_TEXT];

// Fills out (IP_TEXT bytes) with the first IPv4 address that is not 127.0.0.1, or the first IPv6 address,
// whichever getifaddrs(3) yields first, and prints each address looked at. out stays as it was when there is
// none.
void GetMyIpAddr(char* out);
// The choice behind it, on a list of getifaddrs(3).
void ChooseIpAddr(const ifaddrs* list, char* out);

// Process id of the first process whose executable's path contains text, 0 when there is none; prints which.
pid_t getProcessID(const char* text, const char* proc_root = "/proc");

// The moment of the build as the agent reports it: fixed, so that builds are reproducible.
time_t time_when_compiled();

// The host name of at most 4,095 bytes; empty when it cannot be read.
std::string HostName();

#endif
