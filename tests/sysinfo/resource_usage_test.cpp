#include "sysinfo/resource_usage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <limits>
#include <string>

#include "base/stop.h"
#include "sysinfo/proc_fixture.h"
#include "sysinfo/resource_usage_internal.h"

namespace {

using sysinfo::CpuSample;

TEST(Cpu, IsTheBusyShareOfTheInterval) {
  const ProcFixture proc;
  CpuSample sample;
  proc.Write("stat", "cpu  100 20 30 850 9 9\ncpu0 1 1 1 1\n");
  EXPECT_EQ(sysinfo::CpuUsage(proc.Root(), &sample), 0.0F);
  EXPECT_EQ(sample.pwait, 20.0);
  proc.Write("stat", "cpu  110 25 35 930 99 99\n");
  EXPECT_EQ(sysinfo::CpuUsage(proc.Root(), &sample), 20.0F);
  EXPECT_EQ(sysinfo::CpuUsage(proc.Root(), &sample), 0.0F);  // no tick passed
  proc.Write("stat", "cpu  1 1 1 1\n");                      // counters went back
  EXPECT_EQ(sysinfo::CpuUsage(proc.Root(), &sample), 0.0F);
  EXPECT_EQ(sample.pidle, 1.0);
  proc.Write("stat", "cpu  2 1");
  EXPECT_EQ(sysinfo::CpuUsage(proc.Root(), &sample), 0.0F);
  EXPECT_EQ(sample.puser, 2.0);
  EXPECT_EQ(sample.psys, 0.0);
}

TEST(Cpu, KeepsTheSampleWhenTheFileIsMissing) {
  CpuSample sample{1.0, 2.0, 3.0, 4.0};
  EXPECT_EQ(sysinfo::CpuUsage(ProcFixture().Root(), &sample), 0.0F);
  EXPECT_EQ(sample.pidle, 4.0);
}

TEST(Cpu, SurvivesAnyNumbers) {
  CpuSample sample;
  for (const char* text : {"cpu nan inf -inf 1e999", "cpu 1 1 1 1", "cpu inf 0 0 inf",
                           "cpu 1e308 1e308 1e308 -1e308", "cpu 5 5 5 5", "cpu 1e308 1 1 -1e308", ""}) {
    sysinfo::TruncateToInt(sysinfo::NextCpuUsage(text, &sample));
  }
  EXPECT_EQ(sample.puser, 0.0);
}

TEST(Cpu, RealFileGivesAPercentage) {
  CpuUsage();
  const int usage = system_cpu_usage();
  EXPECT_GE(usage, 0);
  EXPECT_LE(usage, 100);
}

TEST(Truncation, IsTowardZeroAndBounded) {
  EXPECT_EQ(sysinfo::TruncateToInt(99.9), 99);
  EXPECT_EQ(sysinfo::TruncateToInt(-1.9), -1);
  EXPECT_EQ(sysinfo::TruncateToInt(1e300), INT_MAX);
  EXPECT_EQ(sysinfo::TruncateToInt(-1e300), INT_MIN);
  EXPECT_EQ(sysinfo::TruncateToInt(std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST(Memory, CountsFreeBuffersAndCachedAsAvailable) {
  const ProcFixture proc;
  proc.Write(
      "meminfo",
      "MemTotal:       16303932 kB\nMemFree:         1000000 kB\nMemAvailable:   9 kB\nBuffers: 500000 kB\n"
      "Cached:          1500000 kB\nSwapCached:      777 kB\n");
  double total = 0;
  double available = 0;
  EXPECT_EQ(sysinfo::MemoryUsage(proc.Root(), &total, &available), 81);
  EXPECT_EQ(total, 16303932.0);
  EXPECT_EQ(available, 3000000.0);
  EXPECT_EQ(sysinfo::MemoryUsage(proc.Root(), nullptr, nullptr), 81);
  total = available = 0;
  EXPECT_EQ(sysinfo::MemoryUsageInt(proc.Root(), &total, &available), 81);
  EXPECT_EQ(total, 16303932.0);
  EXPECT_EQ(available, 3000000.0);
}

TEST(Memory, WithoutATotalStoresNothing) {
  const ProcFixture proc;
  double total = -7;
  double available = -8;
  EXPECT_EQ(sysinfo::MemoryUsage(proc.Root(), &total, &available), 0);
  proc.Write("meminfo", "MemFree: 5 kB\n");
  EXPECT_EQ(sysinfo::MemoryUsage(proc.Root(), &total, &available), 0);
  EXPECT_EQ(sysinfo::MemoryUsageInt(proc.Root(), &total, &available), 0);
  EXPECT_EQ(total, -7);
  EXPECT_EQ(available, -8);
}

TEST(Memory, IntegersWrap) {
  // 30,000,000 kB used: times 100 is 3e9, in 32 bits -1,294,967,296.
  EXPECT_EQ(sysinfo::MemoryPercentInt("MemTotal: 40000000 kB\nMemFree: 10000000 kB\n", nullptr, nullptr),
            -32);
  EXPECT_EQ(sysinfo::MemoryPercent("MemTotal: 40000000 kB\nMemFree: 10000000 kB\n", nullptr, nullptr), 75);
  // The smallest number over -1.
  EXPECT_EQ(sysinfo::MemoryPercentInt("MemTotal: -1\nMemFree: -536870913\n", nullptr, nullptr), INT_MIN);
}

TEST(Memory, RealHostHasSome) {
  double total = 0;
  MemUsage(&total, nullptr);
  EXPECT_GT(total, 0);
  EXPECT_EQ(system_memory_usage(), total);
}

TEST(ProcessMemory, IsInWholeMegabytes) {
  struct Case {
    std::string status;
    int megabytes;
  };
  const Case cases[] = {
      {"Name:\tx\nVmHWM:\t 9999 kB\nVmRSS:\t    2047 kB\n", 1},
      {"VmRSS:\t1023 kB\n", 0},
      {"VmRSS:\n", 0},
      {"Name:\tx\n", 0},
      {"", 0},
      {"Name:\tVmRSS\nVmRSS:\t2048 kB\n", 0},  // the first line that holds it counts
      {"Groups:\t" + std::string(5000, '7') + "\nVmRSS:\t4096 kB", 4},
  };
  for (const Case& c : cases) {
    const ProcFixture proc;
    proc.Write("5/status", c.status);
    EXPECT_EQ(sysinfo::ProcessMemory(proc.Root(), 5), c.megabytes) << c.status;
    EXPECT_EQ(sysinfo::ProcessMemory(proc.Root(), 6), -1);
  }
  EXPECT_GT(process_memory_usage(::getpid()), 0);
}

TEST(Disk, CountsBlocksByTheThousand) {
  uint64_t total = 7;
  uint64_t available = 7;
  EXPECT_EQ(sysinfo::DiskPercent(4096, 1048576, 262144, &total, &available), 75U);
  EXPECT_EQ(total, 4096U);
  EXPECT_EQ(available, 1024U);
  EXPECT_EQ(sysinfo::DiskPercent(4096, 1023, 1023, &total, &available), 0U);
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(sysinfo::DiskPercent(4096, 4096, 0, nullptr, nullptr), 0U);
}

TEST(Disk, MeasuresTheWorkingDirectoryByDefault) {
  uint64_t here = 0;
  uint64_t named = 1;
  DiskUsage(nullptr, &here, nullptr);
  DiskUsage(".", &named, nullptr);
  EXPECT_EQ(here, named);
  EXPECT_EQ(DiskUsage("/nowhere/at/all", &here, nullptr), 0U);
  EXPECT_EQ(here, named);
}

TEST(Network, ReadsThreeLayouts) {
  const std::string rows = " eth1: 9 9\n  eth0:1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
  struct Case {
    const char* head;
    int version;
    uint64_t sum;
  };
  const Case cases[] = {
      {"bytes packets compressed\n", 3, 1 + 9}, {"bytes packets\n", 2, 1 + 7}, {"packets\n", 1, 1 + 6}};
  for (const Case& c : cases) {
    const ProcFixture proc;
    proc.Write("net/dev", c.head + rows);
    EXPECT_EQ(procnetdev_version((c.head + rows).c_str()), c.version);
    EXPECT_EQ(sysinfo::NetworkStatics(proc.Root(), 0), c.sum);
    EXPECT_EQ(sysinfo::NetworkStatics(proc.Root(), 1), 9U);  // cut short
    EXPECT_EQ(sysinfo::NetworkStatics(proc.Root(), 2), 0U);
  }
  EXPECT_EQ(sysinfo::NetworkStatics(ProcFixture().Root(), 0), 0U);
}

TEST(Network, CountsAgainstHundredMegabits) {
  EXPECT_EQ(sysinfo::LinkPercent(1000, 1000 + 6250000), 50.0F);
  EXPECT_GT(sysinfo::LinkPercent(2, 1), 1e14F);  // the counter went back
}

TEST(Network, AbsentInterfaceHasNoLoad) {
  ASSERT_EQ(base::StopPrepare(), 0);
  base::StopRequest();  // so that the second is not waited for
  EXPECT_EQ(NetworkUsage(INT_MIN), 0.0F);
}

}  // namespace
