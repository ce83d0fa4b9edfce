#include "sysinfo/resource_usage.h"

#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/number.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "sysinfo/proc_files.h"
#include "sysinfo/resource_usage_internal.h"

namespace {

constexpr const char* PROC_ROOT = "/proc";

// The number after the first occurrence of a label, or 0 without one.
double LabelledResource(const char* meminfo, const char* label) {
  const char* const resource_at = std::strstr(meminfo, label);
  double resource_figure = 0;
  if (resource_at != nullptr) std::sscanf(resource_at + std::strlen(label), "%lf", &resource_figure);
  return resource_figure;
}

uint32_t LabelledResourceInt(const char* meminfo, const char* label) {
  const char* const resource_at = std::strstr(meminfo, label);
  return resource_at == nullptr
             ? 0
             : static_cast<uint32_t>(base::LeadingNumber(resource_at + std::strlen(label)));
}

template <typename Value, typename From>
void StoreResource(Value* resource_out, From resource_figure) {
  if (resource_out != nullptr) *resource_out = static_cast<Value>(resource_figure);
}

// The columns of a layout of /proc/net/dev, and which of them counts what was sent.
struct NetworkLayout {
  size_t columns;
  size_t sent;
};
constexpr std::array<NetworkLayout, 3> NETWORK_LAYOUTS{{{10, 5}, {12, 6}, {16, 8}}};

}  // namespace

namespace sysinfo {

float NextCpuUsage(const char* stat, CpuSample* previous_cpu) {
  CpuSample cpu_sample{0.0, 0.0, 0.0, 0.0};
  std::sscanf(stat, "cpu %lf %lf %lf %lf", &cpu_sample.puser, &cpu_sample.pwait, &cpu_sample.psys,
              &cpu_sample.pidle);
  const double cpu_idle_ticks = cpu_sample.pidle - previous_cpu->pidle;
  const double cpu_total_ticks = (cpu_sample.puser - previous_cpu->puser) +
                                 (cpu_sample.pwait - previous_cpu->pwait) +
                                 (cpu_sample.psys - previous_cpu->psys) + cpu_idle_ticks;
  double cpu_usage = 0.0;
  if (cpu_total_ticks > 0 && previous_cpu->puser >= 0)
    cpu_usage = 100 - 100 * cpu_idle_ticks / cpu_total_ticks;
  *previous_cpu = cpu_sample;
  return static_cast<float>(cpu_usage);
}

int TruncateToInt(double resource_figure) {
  if (std::isnan(resource_figure)) return 0;
  if (resource_figure >= INT_MAX) return INT_MAX;
  return resource_figure <= INT_MIN ? INT_MIN : static_cast<int>(resource_figure);
}

int MemoryPercent(const char* meminfo, double* total_kb, double* available_kb) {
  const double mem_total = LabelledResource(meminfo, "MemTotal:");
  const double mem_unused = LabelledResource(meminfo, "MemFree:") + LabelledResource(meminfo, "Cached:") +
                            LabelledResource(meminfo, "Buffers:");
  if (mem_total == 0) return 0;
  StoreResource(total_kb, mem_total);
  StoreResource(available_kb, mem_unused);
  return TruncateToInt(100.0 * (mem_total - mem_unused) / mem_total);
}

int MemoryPercentInt(const char* meminfo, double* total_kb, double* available_kb) {
  const uint32_t mem_total = LabelledResourceInt(meminfo, "MemTotal:");
  const uint32_t mem_unused = LabelledResourceInt(meminfo, "MemFree:") +
                              LabelledResourceInt(meminfo, "Buffers:") +
                              LabelledResourceInt(meminfo, "Cached:");
  if (mem_total == 0) return 0;
  StoreResource(total_kb, static_cast<int32_t>(mem_total));
  StoreResource(available_kb, static_cast<int32_t>(mem_unused));
  // Divided in 64 bits: the smallest 32-bit number divided by -1 would overflow.
  const int64_t hundredfold = static_cast<int32_t>((mem_total - mem_unused) * 100);
  return static_cast<int>(hundredfold / static_cast<int32_t>(mem_total));
}

int ResidentKilobytes(const char* rss_line) {
  constexpr const char* RSS_WHITE = " \t\n\v\f\r";
  rss_line += std::strspn(rss_line, RSS_WHITE);
  rss_line += std::strcspn(rss_line, RSS_WHITE);
  return static_cast<int>(base::LeadingNumber(rss_line));
}

unsigned int DiskPercent(uint64_t block_size, uint64_t blocks, uint64_t available_blocks, uint64_t* total_mb,
                         uint64_t* available_mb) {
  const uint64_t disk_total = (block_size * (blocks >> 10)) >> 10;
  const uint64_t disk_available = (block_size * (available_blocks >> 10)) >> 10;
  StoreResource(total_mb, disk_total);
  StoreResource(available_mb, disk_available);
  if (disk_total == 0 || disk_available == 0) return 0;
  return static_cast<unsigned int>((disk_total - disk_available) * 100 / disk_total);
}

uint64_t NetworkCounter(const char* net_dev, int eth_number) {
  std::array<char, 32> eth_label;
  std::snprintf(eth_label.data(), eth_label.size(), "eth%d:", eth_number);
  const char* const eth_at = std::strstr(net_dev, eth_label.data());
  if (eth_at == nullptr) return 0;
  std::string_view eth_counters(eth_at + std::strlen(eth_label.data()));
  const NetworkLayout layout = NETWORK_LAYOUTS[static_cast<size_t>(procnetdev_version(net_dev)) - 1];
  std::array<uint64_t, 16> network_counters{};
  for (size_t i = 0; i < layout.columns && base::TakeUnsigned(&eth_counters, &network_counters[i]); ++i) {
  }
  return network_counters[0] + network_counters[layout.sent];
}

float LinkPercent(uint64_t eth_bytes_before, uint64_t eth_bytes_after) {
  return 800.0F * static_cast<float>(eth_bytes_after - eth_bytes_before) / 100000000.0F;
}

float CpuUsage(const char* proc_root, CpuSample* previous_cpu) {
  ProcHead proc_stat;
  return proc_stat.Read(proc_root, "stat") ? NextCpuUsage(proc_stat.Text(), previous_cpu) : 0.0F;
}

int MemoryUsage(const char* proc_root, double* total_kb, double* available_kb) {
  ProcHead meminfo;
  return meminfo.Read(proc_root, "meminfo") ? MemoryPercent(meminfo.Text(), total_kb, available_kb) : 0;
}

int MemoryUsageInt(const char* proc_root, double* total_kb, double* available_kb) {
  ProcHead meminfo;
  return meminfo.Read(proc_root, "meminfo") ? MemoryPercentInt(meminfo.Text(), total_kb, available_kb) : 0;
}

int ResidentMemoryUsage(const char* proc_root, int pid) {
  std::array<char, PATH_MAX> memory_usage_path;
  const int memory_path_length =
      std::snprintf(memory_usage_path.data(), memory_usage_path.size(), "%s/%d/status", proc_root, pid);
  if (memory_path_length < 0 || static_cast<size_t>(memory_path_length) >= memory_usage_path.size())
    return -1;
  const base::UniqueFile memory_usage_file(std::fopen(memory_usage_path.data(), "re"));
  if (!memory_usage_file) return -1;
  std::array<char, 1024> memory_usage_line;
  while (std::fgets(memory_usage_line.data(), memory_usage_line.size(), memory_usage_file.get()) != nullptr) {
    if (std::strstr(memory_usage_line.data(), "VmRSS") != nullptr)
      return ResidentKilobytes(memory_usage_line.data());
  }
  return 0;
}

int ProcessMemoryUsage(const char* proc_root, int pid) {
  const int resident_kb = ResidentMemoryUsage(proc_root, pid);
  return resident_kb == -1 ? -1 : resident_kb / 1024;
}

uint64_t NetworkStatics(const char* proc_root, int eth_number) {
  ProcHead net_dev;
  return net_dev.Read(proc_root, "net/dev") ? NetworkCounter(net_dev.Text(), eth_number) : 0;
}

}  // namespace sysinfo

float CpuUsage() {
  static sysinfo::CpuSample previous_cpu;
  return sysinfo::CpuUsage(PROC_ROOT, &previous_cpu);
}

int system_cpu_usage() {
  return sysinfo::TruncateToInt(CpuUsage());
}

int memory_usage(double* total_kb, double* available_kb) {
  return sysinfo::MemoryUsage(PROC_ROOT, total_kb, available_kb);
}

double system_memory_usage() {
  double total_kb = 0;
  double available_kb = 0;
  memory_usage(&total_kb, &available_kb);
  return total_kb;
}

int MemUsage(double* total_kb, double* available_kb) {
  return sysinfo::MemoryUsageInt(PROC_ROOT, total_kb, available_kb);
}

int process_memory_usage(int pid) {
  return sysinfo::ProcessMemoryUsage(PROC_ROOT, pid);
}

int process_memory_kb(int pid) {
  return sysinfo::ResidentMemoryUsage(PROC_ROOT, pid);
}

unsigned int DiskUsage(const char* path, uint64_t* total_mb, uint64_t* available_mb) {
  std::array<char, 511> disk_folder;
  if (path == nullptr) path = ::getcwd(disk_folder.data(), disk_folder.size());
  struct statfs disk_figures {};
  if (path == nullptr || ::statfs(path, &disk_figures) != 0) return 0;
  return sysinfo::DiskPercent(static_cast<uint64_t>(disk_figures.f_bsize), disk_figures.f_blocks,
                              disk_figures.f_bavail, total_mb, available_mb);
}

int procnetdev_version(const char* net_dev) {
  if (std::strstr(net_dev, "compressed") != nullptr) return 3;
  return std::strstr(net_dev, "bytes") != nullptr ? 2 : 1;
}

uint64_t NetworkStatics(int eth_number) {
  return sysinfo::NetworkStatics(PROC_ROOT, eth_number);
}

float NetworkUsage(int eth_number) {
  const uint64_t eth_bytes_before = NetworkStatics(eth_number);
  base::SleepSeconds(1);
  return sysinfo::LinkPercent(eth_bytes_before, NetworkStatics(eth_number));
}
