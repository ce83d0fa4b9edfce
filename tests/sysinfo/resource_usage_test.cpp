// The figures of the host and of processes, and what waits at a listening port.
#include "sysinfo/resource_usage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>

#include "support/support.h"
#include "sysinfo/listening_port.h"
#include "sysinfo/resource_usage_internal.h"

namespace {

TEST(Cpu, IsTheBusyShareOfTheInterval) {
  const std::pair<const char*, float> cases[] = {{"cpu  100 20 30 850 9 9\ncpu0 1 1 1 1\n", 0},
                                                 {"cpu  110 25 35 930 99 99\n", 20},
                                                 {"cpu  110 25 35 930\n", 0},  // no tick passed
                                                 {"cpu  1 1 1 1\n", 0},        // counters went back
                                                 {"cpu  5 1", 150}};
  sysinfo::CpuSample sample{0.0, 0.0, 0.0, 1000.0};
  for (const auto& [text, usage] : cases) EXPECT_EQ(sysinfo::NextCpuUsage(text, &sample), usage) << text;
  const std::pair<double, int> truncated[] = {{99.9, 99}, {1e300, INT_MAX}, {-1e300, INT_MIN}, {NAN, 0}};
  for (const auto& [value, expected] : truncated) EXPECT_EQ(sysinfo::TruncateToInt(value), expected);
}

TEST(Memory, CountsFreeBuffersAndCachedAsAvailable) {
  const std::tuple<const char*, int, int> cases[] = {
      // 30,000,000 kB used, times 100: 3e9, which is -1,294,967,296 in 32 bits.
      {"MemTotal: 40000000 kB\nMemFree: 10000000 kB\n", 75, -32},
      {"MemTotal: 16303932 kB\nMemFree: 1000000 kB\nMemAvailable: 9 kB\nBuffers: 500000 kB\n"
       "Cached: 1500000 kB\nSwapCached: 777 kB\n",
       81, 81}};
  double total = 0;
  double available = 0;
  for (const auto& [text, percent, by_integers] : cases) {
    EXPECT_EQ(sysinfo::MemoryPercentInt(text, &total, &available), by_integers) << text;
    EXPECT_EQ(sysinfo::MemoryPercent(text, &total, &available), percent) << text;
  }
  EXPECT_TRUE(total == 16303932 && available == 3000000);
  EXPECT_EQ(sysinfo::MemoryPercent("MemFree: 5 kB\n", &total, &available), 0);
}

TEST(ProcessMemory, IsInWholeMegabytes) {
  const std::pair<std::string, int> cases[] = {
      {"Name:\tx\nVmHWM:\t 9999 kB\nVmRSS:\t    2047 kB\n", 1},
      {"VmRSS:\n", 0},
      {"", 0},
      {"Name:\tVmRSS\nVmRSS:\t2048 kB\n", 0},  // only the first line with the word counts
      {"Groups:\t" + std::string(5000, '7') + "\nVmRSS:\t4096 kB", 4}};
  const support::TempFolder proc;
  std::filesystem::create_directory(proc / "5");
  for (const auto& [status, megabytes] : cases) {
    proc.Write("5/status", status);
    EXPECT_EQ(sysinfo::ProcessMemoryUsage(proc.Path().c_str(), 5), megabytes) << status;
  }
  EXPECT_EQ(sysinfo::ProcessMemoryUsage(proc.Path().c_str(), 6), -1);
  EXPECT_GT(process_memory_usage(::getpid()), 0);
}

TEST(DiskAndNetwork, ComputeTheirFigures) {
  EXPECT_EQ(sysinfo::DiskPercent(4096, 1048576, 262144, nullptr, nullptr), 75U);
  const char* counters = "bytes compressed\n eth1: 9\n eth0:1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
  EXPECT_EQ(sysinfo::NetworkCounter(counters, 0), 1U + 9U);
}

// The head of the kernel's tables of sockets, and a row.
constexpr const char* SOCKETS =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n";
std::string Row(const char* local, const char* state, const char* queues) {
  return std::string("   0: ") + local + " 00000000:0000 " + state + " " + queues +
         " 00:00000000 00000000     0        0 1 1 0000000000000000 100 0 0 10 0\n";
}

TEST(ListeningPort, IsTheListenerWithTheMostWaiting) {
  const std::string four = SOCKETS + Row("0100007F:2401", "0A", "00000000:00000FFF") +  // port 9217
                           Row("0100007F:238C", "0A", "00000000:00000081") +            // port 9100
                           Row("00000000:238C", "0A", "00000000:00000003");
  const std::string established = Row("0100007F:238C", "01", "00000000:0000FFFF");
  sysinfo::ListeningPort found;
  EXPECT_FALSE(sysinfo::AddListeners(SOCKETS + established, 9100, &found)) << "listeners come first";
  EXPECT_FALSE(found.listening);
  EXPECT_TRUE(sysinfo::AddListeners(four, 9100, &found));
  EXPECT_TRUE(found.listening);
  EXPECT_EQ(found.waiting, 129U);
}

TEST(ListeningPort, IsReadInBothFamiliesAndFromManyRows) {
  const support::TempFolder proc;
  std::filesystem::create_directory(proc / "net");
  std::string rows = SOCKETS;
  for (int i = 0; i < 2000; ++i) rows += Row("0100007F:0001", "0A", "00000000:00000000");
  proc.Write("net/tcp", rows + Row("0100007F:238C", "0A", "00000000:00000001"));
  proc.Write("net/tcp6", SOCKETS + Row("00000000000000000000000000000000:238C", "0A", "00000000:00000007"));
  sysinfo::ListeningPort found;
  EXPECT_EQ(sysinfo::ReadListeningPort(9100, &found, proc.Path().c_str()), 1);
  EXPECT_EQ(found.waiting, 7U);
  std::filesystem::remove(proc / "net/tcp6");
  EXPECT_EQ(sysinfo::ReadListeningPort(9100, &found, proc.Path().c_str()), 1);
  EXPECT_EQ(found.waiting, 1U);
  std::filesystem::remove(proc / "net/tcp");
  EXPECT_EQ(sysinfo::ReadListeningPort(9100, &found, proc.Path().c_str()), 0);
}

}  // namespace
