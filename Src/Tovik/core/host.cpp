#include "Tovik/core/host.h"

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

#include "base/format.h"
#include "base/owners.h"

char gIpaddr[IP_TEXT];

namespace {

constexpr size_t HOST_SIZE = 4096;
constexpr size_t LINK_SIZE = 251;

constexpr const char* BUILD_DATE = "May  4 2023";
constexpr const char* BUILD_TIME = "12:26:47";
constexpr std::array<std::string_view, 12> MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// The address as text, empty for a family that is not looked at.
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

bool IsNumber(const char* name) {
  return *name != '\0' && std::all_of(name, name + std::strlen(name), [](char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
  });
}

std::string ExecutableOf(const std::string& folder) {
  std::array<char, LINK_SIZE> target;
  const ssize_t length = ::readlink((folder + "/exe").c_str(), target.data(), target.size());
  return length < 0 ? std::string() : std::string(target.data(), static_cast<size_t>(length));
}

// 1 to 12. A build with another text is broken and ends here.
int MonthNumber(std::string_view name) {
  const auto* month = std::find(MONTHS.begin(), MONTHS.end(), name);
  if (month == MONTHS.end()) std::exit(-1);
  return static_cast<int>(month - MONTHS.begin()) + 1;
}

}  // namespace

void ChooseIpAddr(const ifaddrs* list, char* out) {
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    const std::string text = AddressText(entry->ifa_addr);
    if (text.empty()) continue;
    std::printf("%s IP Address %s\n", entry->ifa_name, text.c_str());
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

pid_t getProcessID(const char* text, const char* proc_root) {
  const base::UniqueDir root(::opendir(proc_root));
  const dirent* entry = nullptr;
  while (root && (entry = ::readdir(root.get())) != nullptr) {
    if (!IsNumber(entry->d_name)) continue;
    const std::string executable = ExecutableOf(std::string(proc_root) + "/" + entry->d_name);
    if (executable.empty() || executable.find(text) == std::string::npos) continue;
    const pid_t pid = std::atoi(entry->d_name);
    std::printf("getProcessID(%s) :Found. id = %d\n", text, pid);
    return pid;
  }
  std::printf("getProcessID(%s) : id = 0 (could not find process)\n", text);
  return 0;
}

time_t time_when_compiled() {
  std::array<char, 4> month{};
  std::tm when{};
  std::sscanf(BUILD_DATE, "%3s %d %d", month.data(), &when.tm_mday, &when.tm_year);
  std::sscanf(BUILD_TIME, "%d:%d:%d", &when.tm_hour, &when.tm_min, &when.tm_sec);
  when.tm_mon = MonthNumber(month.data()) - 1;
  when.tm_year -= 1900;
  when.tm_hour -= 1;
  return std::mktime(&when);
}

std::string HostName() {
  std::array<char, HOST_SIZE> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}
