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
std::string AddressText(const sockaddr* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void* ip = nullptr;
  if (address != nullptr && address->sa_family == AF_INET) {
    ip = &reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
  } else if (address != nullptr && address->sa_family == AF_INET6) {
    ip = &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  }
  if (ip == nullptr || inet_ntop(address->sa_family, ip, text.data(), text.size()) == nullptr) return {};
  return text.data();
}

}  // namespace

void ChooseIpAddr(const ifaddrs* interfaces, char* out, bool told) {
  for (const ifaddrs* interface = interfaces; interface != nullptr; interface = interface->ifa_next) {
    const std::string addressText = AddressText(interface->ifa_addr);
    if (addressText.empty()) continue;
    if (told) std::printf("%s IP Address %s\n", interface->ifa_name, addressText.c_str());
    if (interface->ifa_addr->sa_family == AF_INET && addressText == "127.0.0.1") continue;
    base::CopyText(out, IP_TEXT, addressText);
    return;
  }
}

void GetMyIpAddr(char* out) {
  ifaddrs* interfaces = nullptr;
  if (::getifaddrs(&interfaces) != 0) return;
  ChooseIpAddr(interfaces, out);
  ::freeifaddrs(interfaces);
}

std::string HostName() {
  std::array<char, HOST_NAME_SIZE> hostName{};
  return ::gethostname(hostName.data(), hostName.size() - 1) == 0 ? hostName.data() : "";
}

std::optional<std::string> HostNameInFiles() {
  return m_log_hostname_inc_flag != 0 ? std::optional(HostName()) : std::nullopt;
}
