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

constexpr size_t HOST_SIZE = 4096;

// Returns the address as text, or an empty text when it is neither IPv4 nor IPv6.
std::string AddressText(const sockaddr* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void* bytes = nullptr;
  if (address != nullptr && address->sa_family == AF_INET) {
    bytes = &reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
  } else if (address != nullptr && address->sa_family == AF_INET6) {
    bytes = &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  }
  if (bytes == nullptr || inet_ntop(address->sa_family, bytes, text.data(), text.size()) == nullptr)
    return {};
  return text.data();
}

}  // namespace

void ChooseIpAddr(const ifaddrs* list, char* out, bool told) {
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    const std::string text = AddressText(entry->ifa_addr);
    if (text.empty()) continue;
    if (told) std::printf("%s IP Address %s\n", entry->ifa_name, text.c_str());
    if (entry->ifa_addr->sa_family == AF_INET && text == "127.0.0.1") continue;
    base::CopyText(out, IP_TEXT, text);
    return;
  }
}

void GetMyIpAddr(char* out) {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return;
  ChooseIpAddr(list, out);
  ::freeifaddrs(list);
}

std::string HostName() {
  std::array<char, HOST_SIZE> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::optional<std::string> HostNameInFiles() {
  return m_log_hostname_inc_flag != 0 ? std::optional(HostName()) : std::nullopt;
}
