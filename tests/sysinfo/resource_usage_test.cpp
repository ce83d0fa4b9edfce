#include "sysinfo/resource_usage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <string>

#include "support/support.h"
#include "sysinfo/resource_usage_internal.h"

namespace {

TEST(Cpu, IsTheBusyShareOfTheInterval) {
  const struct {
    const char* text;
    float usage;
  } cases[] = {{"cpu  100 20 30 850 9 9\ncpu0 1 1 1 1\n", 0},
               {"cpu  110 25 35 930 99 99\n", 20},
               {"cpu  110 25 35 930\n", 0},  // no tick passed
               {"cpu  1 1 1 1\n", 0},        // counters went back
               {"cpu  5 1", 150}};
  sysinfo::CpuSample sample{0.0, 0.0, 0.0, 1000.0};
  for (const auto& c : cases) EXPECT_EQ(sysinfo::NextCpuUsage(c.text, &sample), c.usage) << c.text;
  EXPECT_GE(system_cpu_usage(), 0);
  EXPECT_LE(system_cpu_usage(), 100);
  const std::pair<double, int> truncated[] = {
      {99.9, 99}, {-1.9, -1}, {1e300, INT_MAX}, {-1e300, INT_MIN}, {NAN, 0}};
  for (const auto& [value, expected] : truncated) EXPECT_EQ(sysinfo::TruncateToInt(value), expected);
}

TEST(Memory, CountsFreeBuffersAndCachedAsAvailable) {
  const std::tuple<const char*, int, int> cases[] = {
      {"MemFree: 5 kB\n", 0, 0},  // stores nothing
      // 30,000,000 kB used: times 100 is 3e9, in 32 bits -1,294,967,296.
      {"MemTotal: 40000000 kB\nMemFree: 10000000 kB\n", 75, -32},
      {"MemTotal: -1\nMemFree: -536870913\n", INT_MIN, INT_MIN},
      {"MemTotal: 16303932 kB\nMemFree: 1000000 kB\nMemAvailable: 9 kB\nBuffers: 500000 kB\n"
       "Cached: 1500000 kB\nSwapCached: 777 kB\n",
       81, 81}};
  double figures[4] = {};
  for (const auto& [text, percent, by_integers] : cases) {
    EXPECT_EQ(sysinfo::MemoryPercent(text, &figures[0], &figures[1]), percent) << text;
    EXPECT_EQ(sysinfo::MemoryPercentInt(text, &figures[2], &figures[3]), by_integers) << text;
  }
  EXPECT_TRUE(figures[0] == 16303932 && figures[1] == 3000000);
  EXPECT_TRUE(figures[2] == 16303932 && figures[3] == 3000000);
}

TEST(ProcessMemory, IsInWholeMegabytes) {
  const std::pair<std::string, int> cases[] = {
      {"Name:\tx\nVmHWM:\t 9999 kB\nVmRSS:\t    2047 kB\n", 1},
      {"VmRSS:\n", 0},
      {"", 0},
      {"Name:\tVmRSS\nVmRSS:\t2048 kB\n", 0},  // the first line that holds it counts
      {"Groups:\t" + std::string(5000, '7') + "\nVmRSS:\t4096 kB", 4}};
  const support::TempFolder proc;
  std::filesystem::create_directory(proc / "5");
  for (const auto& [status, megabytes] : cases) {
    proc.Write("5/status", status);
    EXPECT_EQ(sysinfo::ProcessMemory(proc.Path().c_str(), 5), megabytes) << status;
  }
  EXPECT_EQ(sysinfo::ProcessMemory(proc.Path().c_str(), 6), -1);
  EXPECT_GT(process_memory_usage(::getpid()), 0);
}

TEST(Disk, CountsBlocksByTheThousand) {
  uint64_t total = 7;
  uint64_t available = 7;
  EXPECT_EQ(sysinfo::DiskPercent(4096, 1048576, 262144, &total, &available), 75U);
  EXPECT_TRUE(total == 4096U && available == 1024U);
  EXPECT_EQ(sysinfo::DiskPercent(4096, 4096, 0, nullptr, nullptr), 0U);
  EXPECT_EQ(DiskUsage("/nowhere/at/all", nullptr, nullptr), 0U);
}

TEST(Network, ReadsThreeLayouts) {
  const std::string rows = " eth1: 9 9\n  eth0:1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
  for (const auto& [head, sum] : {std::pair("bytes packets compressed\n", 1U + 9U),
                                  {"bytes packets\n", 1U + 7U},
                                  {"packets\n", 1U + 6U}}) {
    EXPECT_EQ(sysinfo::NetworkCounter((head + rows).c_str(), 0), sum);
    EXPECT_EQ(sysinfo::NetworkCounter((head + rows).c_str(), 1), 9U);  // cut short
    EXPECT_EQ(sysinfo::NetworkCounter((head + rows).c_str(), 2), 0U);
  }
  EXPECT_EQ(sysinfo::LinkPercent(1000, 1000 + 6250000), 50.0F);
}

}  // namespace
