#include "Tovik/config/host_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Tovik/config/config.h"
#include "base/format.h"
#include "base/unique_handles.h"

char gIpaddr[IP_TEXT];

namespace {

constexpr size_t HOST_NAME_SIZE = 4096;

// Returns the address as text, or an empty text when it is neither IPv4 nor IPv6.
std::string HostAddressText(const sockaddr* interfaceAddress) {
  std::array<char, INET6_ADDRSTRLEN> hostAddress{};
  const void* hostIp = nullptr;
  if (interfaceAddress != nullptr && interfaceAddress->sa_family == AF_INET) {
    hostIp = &reinterpret_cast<const sockaddr_in*>(interfaceAddress)->sin_addr;
  } else if (interfaceAddress != nullptr && interfaceAddress->sa_family == AF_INET6) {
    hostIp = &reinterpret_cast<const sockaddr_in6*>(interfaceAddress)->sin6_addr;
  }
  if (hostIp == nullptr ||
      inet_ntop(interfaceAddress->sa_family, hostIp, hostAddress.data(), hostAddress.size()) == nullptr)
    return {};
  return hostAddress.data();
}

}  // namespace

void ChooseIpAddr(const ifaddrs* hostInterfaces, char* hostAddressOut, bool hostAddressTold) {
  for (const ifaddrs* hostInterface = hostInterfaces; hostInterface != nullptr;
       hostInterface = hostInterface->ifa_next) {
    const std::string hostAddress = HostAddressText(hostInterface->ifa_addr);
    if (hostAddress.empty()) continue;
    if (hostAddressTold) std::printf("%s IP Address %s\n", hostInterface->ifa_name, hostAddress.c_str());
    if (hostInterface->ifa_addr->sa_family == AF_INET && hostAddress == "127.0.0.1") continue;
    base::CopyText(hostAddressOut, IP_TEXT, hostAddress);
    return;
  }
}

void GetMyIpAddr(char* hostAddressOut) {
  ifaddrs* hostInterfaces = nullptr;
  if (::getifaddrs(&hostInterfaces) != 0) return;
  ChooseIpAddr(hostInterfaces, hostAddressOut);
  ::freeifaddrs(hostInterfaces);
}

std::string HostName() {
  std::array<char, HOST_NAME_SIZE> hostName{};
  return ::gethostname(hostName.data(), hostName.size() - 1) == 0 ? hostName.data() : "";
}

std::optional<std::string> HostNameInFiles() {
  return m_log_hostname_inc_flag != 0 ? std::optional(HostName()) : std::nullopt;
}
