#include "Tovik/core/host.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "support/support.h"

namespace {

// A list as getifaddrs gives it; an empty text is an interface without an address.
class Interfaces {
 public:
  explicit Interfaces(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) Add(text);
  }
  const ifaddrs* List() const { return entries_.empty() ? nullptr : &entries_.front(); }

 private:
  void Add(const std::string& text) {
    ifaddrs& entry = entries_.emplace_back();
    sockaddr_storage& storage = addresses_.emplace_back();
    entry.ifa_name = name_;
    if (!text.empty()) entry.ifa_addr = reinterpret_cast<sockaddr*>(&storage);
    if (text.find(':') != std::string::npos) {
      storage.ss_family = AF_INET6;
      inet_pton(AF_INET6, text.c_str(), &reinterpret_cast<sockaddr_in6*>(&storage)->sin6_addr);
    } else if (text == "packet") {
      storage.ss_family = AF_PACKET;
    } else {
      storage.ss_family = AF_INET;
      inet_pton(AF_INET, text.c_str(), &reinterpret_cast<sockaddr_in*>(&storage)->sin_addr);
    }
    if (entries_.size() > 1) entries_[entries_.size() - 2].ifa_next = &entry;
  }
  std::deque<ifaddrs> entries_;
  std::deque<sockaddr_storage> addresses_;
  char name_[5] = "eth0";
};

TEST(HostTest, TheFirstUsableAddressWins) {
  const struct {
    std::vector<std::string> addresses;
    const char* chosen;
  } cases[] = {{{"packet", "127.0.0.1", "10.1.2.3", "10.1.2.4"}, "10.1.2.3"},
               {{"", "127.0.0.1", "::1", "10.1.2.3"}, "::1"},
               {{"127.0.0.2"}, "127.0.0.2"},
               {{"127.0.0.1"}, "before"},
               {{}, "before"}};
  for (const auto& c : cases) {
    char out[IP_TEXT] = "before";
    ChooseIpAddr(Interfaces(c.addresses).List(), out);
    EXPECT_STREQ(out, c.chosen);
  }
}

TEST(HostTest, FindsAProcessByItsExecutable) {
  const support::TempFolder root;
  for (const char* pid : {"12", "34", "x56"}) std::filesystem::create_directory(root / pid);
  std::filesystem::create_symlink("/opt/stt/bin/engine", root / "34/exe");
  std::filesystem::create_symlink("/opt/stt/bin/engine", root / "x56/exe");
  EXPECT_EQ(getProcessID("stt/bin", root.Path().c_str()), 34);
  EXPECT_EQ(getProcessID("nothing", root.Path().c_str()), 0);
  EXPECT_EQ(getProcessID("x", "/nonexistent"), 0);
}

TEST(HostTest, TheBuildMomentIsFixed) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_EQ(time_when_compiled(), 1683199607) << "4 May 2023, one hour early";
  ::unsetenv("TZ");
  ::tzset();
}

}  // namespace
