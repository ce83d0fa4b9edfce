// What waits at a listening port.
#include "sysinfo/listening_port.h"

#include <gtest/gtest.h>

#include "support/support.h"

namespace sysinfo {
namespace {

constexpr const char* HEAD =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n";
constexpr const char* REST = " 00:00000000 00000000     0        0 1 1 0000000000000000 100 0 0 10 0\n";

std::string Row(const char* local, const char* state, const char* queues) {
  return std::string("   0: ") + local + " 00000000:0000 " + state + " " + queues + REST;
}

TEST(ListeningPort, IsTheListenerWithTheMostWaiting) {
  const std::string four = HEAD + Row("0100007F:2401", "0A", "00000000:00000FFF") +  // port 9217
                           Row("00000000:238C", "0A", "00000000:00000003") +         // port 9100
                           Row("0100007F:238C", "0A", "00000000:00000081");
  const std::string established = Row("0100007F:238C", "01", "00000000:0000FFFF");
  ListeningPort found;
  EXPECT_TRUE(AddListeners(four, 9100, &found));
  EXPECT_FALSE(AddListeners(established, 9100, &found));
  EXPECT_TRUE(found.listening);
  EXPECT_EQ(found.waiting, 129U);
  ListeningPort none;
  AddListeners(HEAD + established, 9100, &none);
  EXPECT_FALSE(none.listening);
}

TEST(ListeningPort, IsReadInBothFamiliesAndFromManyRows) {
  const support::TempFolder proc;
  std::filesystem::create_directory(proc / "net");
  std::string rows = HEAD;
  for (int i = 0; i < 2000; ++i) rows += Row("0100007F:0001", "0A", "00000000:00000000");
  proc.Write("net/tcp", rows + Row("0100007F:238C", "0A", "00000000:00000001"));
  proc.Write("net/tcp6", HEAD + Row("00000000000000000000000000000000:238C", "0A", "00000000:00000007"));
  ListeningPort found;
  EXPECT_EQ(ReadListeningPort(9100, &found, proc.Path().c_str()), 1);
  EXPECT_EQ(found.waiting, 7U);
  std::filesystem::remove(proc / "net/tcp6");
  EXPECT_EQ(ReadListeningPort(9100, &found, proc.Path().c_str()), 1);
  EXPECT_EQ(found.waiting, 1U);
  std::filesystem::remove(proc / "net/tcp");
  EXPECT_EQ(ReadListeningPort(9100, &found, proc.Path().c_str()), 0);
}

}  // namespace
}  // namespace sysinfo
