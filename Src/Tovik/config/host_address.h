// The address and the name of the host.
#ifndef TOVIK_CONFIG_HOST_ADDRESS_H
#define TOVIK_CONFIG_HOST_ADDRESS_H

#include <ifaddrs.h>

#include <optional>
#include <string>

inline constexpr int IP_TEXT = 256;

// The host's address as text, for alarm texts. Set once at start-up; empty when none was found.
extern char gIpaddr[IP_TEXT];

// Writes the host's address to hostAddressOut (IP_TEXT bytes): the first IPv4 address other than 127.0.0.1 or
// the first IPv6 address, whichever comes first in getifaddrs(3). Prints each address it looks at. Leaves it
// unchanged when there is none.
void GetMyIpAddr(char* hostAddressOut);
// The choice behind it, on a list of getifaddrs(3); hostAddressTold: whether each address looked at is
// printed.
void ChooseIpAddr(const ifaddrs* hostInterfaces, char* hostAddressOut, bool hostAddressTold = true);

// The host name, at most 4,095 bytes; empty when it cannot be read.
std::string HostName();
// The host name if LOG_HOSTNAME_INC asks for it in the names of files, else nothing.
std::optional<std::string> HostNameInFiles();

#endif
