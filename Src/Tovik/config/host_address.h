// The host's address and name.
#ifndef TOVIK_CONFIG_HOST_ADDRESS_H
#define TOVIK_CONFIG_HOST_ADDRESS_H

#include <ifaddrs.h>

#include <optional>
#include <string>

inline constexpr int IP_TEXT = 256;

// The host's address as text, quoted in alarm texts; filled once at start-up, empty when none was found.
extern char gIpaddr[IP_TEXT];

// Fills out (IP_TEXT bytes) with the first IPv4 address that is not 127.0.0.1, or the first IPv6 address,
// whichever getifaddrs(3) yields first, and prints each address looked at. out stays as it was when there is
// none.
void GetMyIpAddr(char* out);
// The choice behind it, on a list of getifaddrs(3); told: whether each address looked at is printed.
void ChooseIpAddr(const ifaddrs* list, char* out, bool told = true);

// The host name of at most 4,095 bytes; empty when it cannot be read.
std::string HostName();
// The same where LOG_HOSTNAME_INC asks for it in the names of files.
std::optional<std::string> HostNameInFiles();

#endif
