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
double LabelledFigure(const char* meminfo, const char* label) {
  const char* const label_at = std::strstr(meminfo, label);
  double figure = 0;
  if (label_at != nullptr) std::sscanf(label_at + std::strlen(label), "%lf", &figure);
  return figure;
}

uint32_t LabelledFigureInt(const char* meminfo, const char* label) {
  const char* const label_at = std::strstr(meminfo, label);
  return label_at == nullptr ? 0 : static_cast<uint32_t>(base::LeadingNumber(label_at + std::strlen(label)));
}

template <typename Value, typename From>
void StoreFigure(Value* figure_out, From figure) {
  if (figure_out != nullptr) *figure_out = static_cast<Value>(figure);
}

// The columns of a layout of /proc/net/dev, and which of them counts what was sent.
struct NetworkLayout {
  size_t columns;
  size_t sent;
};
constexpr std::array<NetworkLayout, 3> NETWORK_LAYOUTS{{{10, 5}, {12, 6}, {16, 8}}};

}  // namespace

namespace sysinfo {

float NextCpuUsage(const char* stat, CpuSample* previous) {
  CpuSample sample{0.0, 0.0, 0.0, 0.0};
  std::sscanf(stat, "cpu %lf %lf %lf %lf", &sample.puser, &sample.pwait, &sample.psys, &sample.pidle);
  const double idle_ticks = sample.pidle - previous->pidle;
  const double total_ticks = (sample.puser - previous->puser) + (sample.pwait - previous->pwait) +
                             (sample.psys - previous->psys) + idle_ticks;
  double cpu_usage = 0.0;
  if (total_ticks > 0 && previous->puser >= 0) cpu_usage = 100 - 100 * idle_ticks / total_ticks;
  *previous = sample;
  return static_cast<float>(cpu_usage);
}

int TruncateToInt(double figure) {
  if (std::isnan(figure)) return 0;
  if (figure >= INT_MAX) return INT_MAX;
  return figure <= INT_MIN ? INT_MIN : static_cast<int>(figure);
}

int MemoryPercent(const char* meminfo, double* total_kb, double* available_kb) {
  const double mem_total = LabelledFigure(meminfo, "MemTotal:");
  const double mem_unused = LabelledFigure(meminfo, "MemFree:") + LabelledFigure(meminfo, "Cached:") +
                            LabelledFigure(meminfo, "Buffers:");
  if (mem_total == 0) return 0;
  StoreFigure(total_kb, mem_total);
  StoreFigure(available_kb, mem_unused);
  return TruncateToInt(100.0 * (mem_total - mem_unused) / mem_total);
}

int MemoryPercentInt(const char* meminfo, double* total_kb, double* available_kb) {
  const uint32_t mem_total = LabelledFigureInt(meminfo, "MemTotal:");
  const uint32_t mem_unused = LabelledFigureInt(meminfo, "MemFree:") +
                              LabelledFigureInt(meminfo, "Buffers:") + LabelledFigureInt(meminfo, "Cached:");
  if (mem_total == 0) return 0;
  StoreFigure(total_kb, static_cast<int32_t>(mem_total));
  StoreFigure(available_kb, static_cast<int32_t>(mem_unused));
  // Divided in 64 bits: the smallest 32-bit number divided by -1 would overflow.
  const int64_t hundredfold = static_cast<int32_t>((mem_total - mem_unused) * 100);
  return static_cast<int>(hundredfold / static_cast<int32_t>(mem_total));
}

int ResidentKilobytes(const char* rss_line) {
  constexpr const char* STATUS_WHITE = " \t\n\v\f\r";
  rss_line += std::strspn(rss_line, STATUS_WHITE);
  rss_line += std::strcspn(rss_line, STATUS_WHITE);
  return static_cast<int>(base::LeadingNumber(rss_line));
}

unsigned int DiskPercent(uint64_t block_size, uint64_t blocks, uint64_t available_blocks, uint64_t* total_mb,
                         uint64_t* available_mb) {
  const uint64_t disk_total = (block_size * (blocks >> 10)) >> 10;
  const uint64_t disk_available = (block_size * (available_blocks >> 10)) >> 10;
  StoreFigure(total_mb, disk_total);
  StoreFigure(available_mb, disk_available);
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

float LinkPercent(uint64_t bytes_before, uint64_t bytes_after) {
  return 800.0F * static_cast<float>(bytes_after - bytes_before) / 100000000.0F;
}

float CpuUsage(const char* proc_root, CpuSample* previous) {
  ProcHead proc_stat;
  return proc_stat.Read(proc_root, "stat") ? NextCpuUsage(proc_stat.Text(), previous) : 0.0F;
}

int MemoryUsage(const char* proc_root, double* total_kb, double* available_kb) {
  ProcHead meminfo;
  return meminfo.Read(proc_root, "meminfo") ? MemoryPercent(meminfo.Text(), total_kb, available_kb) : 0;
}

int MemoryUsageInt(const char* proc_root, double* total_kb, double* available_kb) {
  ProcHead meminfo;
  return meminfo.Read(proc_root, "meminfo") ? MemoryPercentInt(meminfo.Text(), total_kb, available_kb) : 0;
}

int ResidentMemory(const char* proc_root, int pid) {
  std::array<char, PATH_MAX> status_path;
  const int path_length =
      std::snprintf(status_path.data(), status_path.size(), "%s/%d/status", proc_root, pid);
  if (path_length < 0 || static_cast<size_t>(path_length) >= status_path.size()) return -1;
  const base::UniqueFile status_file(std::fopen(status_path.data(), "re"));
  if (!status_file) return -1;
  std::array<char, 1024> status_line;
  while (std::fgets(status_line.data(), status_line.size(), status_file.get()) != nullptr) {
    if (std::strstr(status_line.data(), "VmRSS") != nullptr) return ResidentKilobytes(status_line.data());
  }
  return 0;
}

int ProcessMemory(const char* proc_root, int pid) {
  const int kilobytes = ResidentMemory(proc_root, pid);
  return kilobytes == -1 ? -1 : kilobytes / 1024;
}

uint64_t NetworkStatics(const char* proc_root, int eth_number) {
  ProcHead net_dev;
  return net_dev.Read(proc_root, "net/dev") ? NetworkCounter(net_dev.Text(), eth_number) : 0;
}

}  // namespace sysinfo

float CpuUsage() {
  static sysinfo::CpuSample previous;
  return sysinfo::CpuUsage(PROC_ROOT, &previous);
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
  return sysinfo::ProcessMemory(PROC_ROOT, pid);
}

int process_memory_kb(int pid) {
  return sysinfo::ResidentMemory(PROC_ROOT, pid);
}

unsigned int DiskUsage(const char* path, uint64_t* total_mb, uint64_t* available_mb) {
  std::array<char, 511> working_folder;
  if (path == nullptr) path = ::getcwd(working_folder.data(), working_folder.size());
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
  const uint64_t bytes_before = NetworkStatics(eth_number);
  base::SleepSeconds(1);
  return sysinfo::LinkPercent(bytes_before, NetworkStatics(eth_number));
}
