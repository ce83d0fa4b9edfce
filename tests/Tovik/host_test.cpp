#include "Tovik/core/host.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/support.h"

namespace {

TEST(HostTest, TheFirstUsableAddressWins) {
  const struct {
    std::vector<const char*> addresses;  // null: an interface without one
    const char* chosen;
  } cases[] = {{{"packet", "127.0.0.1", "10.1.2.3", "10.1.2.4"}, "10.1.2.3"},
               {{nullptr, "127.0.0.1", "::1", "10.1.2.3"}, "::1"},
               {{"127.0.0.2"}, "127.0.0.2"},
               {{"127.0.0.1"}, "before"},
               {{}, "before"}};
  for (const auto& c : cases) {
    char name[] = "eth0";
    ifaddrs list[4] = {};
    sockaddr_in6 storage[4] = {};
    for (size_t i = 0; i < c.addresses.size(); ++i) {
      list[i].ifa_name = name;
      if (i > 0) list[i - 1].ifa_next = &list[i];
      if (c.addresses[i] == nullptr) continue;
      list[i].ifa_addr = reinterpret_cast<sockaddr*>(&storage[i]);
      auto* const v4 = reinterpret_cast<sockaddr_in*>(&storage[i]);
      const bool is_v4 = inet_pton(AF_INET, c.addresses[i], &v4->sin_addr) == 1;
      const bool is_v6 = !is_v4 && inet_pton(AF_INET6, c.addresses[i], &storage[i].sin6_addr) == 1;
      list[i].ifa_addr->sa_family = is_v4 ? AF_INET : is_v6 ? AF_INET6 : AF_PACKET;
    }
    char out[IP_TEXT] = "before";
    ChooseIpAddr(c.addresses.empty() ? nullptr : list, out);
    EXPECT_STREQ(out, c.chosen);
  }
}

TEST(HostTest, FindsAProcessByItsExecutable) {
  const support::TempFolder root;
  for (const char* pid : {"x56", "34"}) {
    std::filesystem::create_directory(root / pid);
    std::filesystem::create_symlink("/opt/stt/bin/engine", root / pid + "/exe");
  }
  EXPECT_EQ(getProcessID("stt/bin", root.Path().c_str()), 34);
  EXPECT_EQ(getProcessID("nothing", root.Path().c_str()), 0);
}

}  // namespace
