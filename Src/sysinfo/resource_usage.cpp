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
double LabelledFigure(const char* text, const char* label) {
  const char* const at = std::strstr(text, label);
  double value = 0;
  if (at != nullptr) std::sscanf(at + std::strlen(label), "%lf", &value);
  return value;
}

uint32_t LabelledFigureInt(const char* text, const char* label) {
  const char* const at = std::strstr(text, label);
  return at == nullptr ? 0 : static_cast<uint32_t>(base::LeadingNumber(at + std::strlen(label)));
}

template <typename Value, typename From>
void StoreFigure(Value* out, From value) {
  if (out != nullptr) *out = static_cast<Value>(value);
}

// The columns of a layout of /proc/net/dev, and which of them counts what was sent.
struct NetworkLayout {
  size_t columns;
  size_t sent;
};
constexpr std::array<NetworkLayout, 3> NETWORK_LAYOUTS{{{10, 5}, {12, 6}, {16, 8}}};

}  // namespace

namespace sysinfo {

float NextCpuUsage(const char* text, CpuSample* previous) {
  CpuSample now{0.0, 0.0, 0.0, 0.0};
  std::sscanf(text, "cpu %lf %lf %lf %lf", &now.puser, &now.pwait, &now.psys, &now.pidle);
  const double idle = now.pidle - previous->pidle;
  const double total =
      (now.puser - previous->puser) + (now.pwait - previous->pwait) + (now.psys - previous->psys) + idle;
  double usage = 0.0;
  if (total > 0 && previous->puser >= 0) usage = 100 - 100 * idle / total;
  *previous = now;
  return static_cast<float>(usage);
}

int TruncateToInt(double value) {
  if (std::isnan(value)) return 0;
  if (value >= INT_MAX) return INT_MAX;
  return value <= INT_MIN ? INT_MIN : static_cast<int>(value);
}

int MemoryPercent(const char* text, double* total, double* available) {
  const double all = LabelledFigure(text, "MemTotal:");
  const double unused =
      LabelledFigure(text, "MemFree:") + LabelledFigure(text, "Cached:") + LabelledFigure(text, "Buffers:");
  if (all == 0) return 0;
  StoreFigure(total, all);
  StoreFigure(available, unused);
  return TruncateToInt(100.0 * (all - unused) / all);
}

int MemoryPercentInt(const char* text, double* total, double* available) {
  const uint32_t all = LabelledFigureInt(text, "MemTotal:");
  const uint32_t unused = LabelledFigureInt(text, "MemFree:") + LabelledFigureInt(text, "Buffers:") +
                          LabelledFigureInt(text, "Cached:");
  if (all == 0) return 0;
  StoreFigure(total, static_cast<int32_t>(all));
  StoreFigure(available, static_cast<int32_t>(unused));
  // Divided in 64 bits: the smallest 32-bit number divided by -1 would overflow.
  const int64_t hundredfold = static_cast<int32_t>((all - unused) * 100);
  return static_cast<int>(hundredfold / static_cast<int32_t>(all));
}

int ResidentKilobytes(const char* line) {
  constexpr const char* WHITE = " \t\n\v\f\r";
  line += std::strspn(line, WHITE);
  line += std::strcspn(line, WHITE);
  return static_cast<int>(base::LeadingNumber(line));
}

unsigned int DiskPercent(uint64_t block_size, uint64_t blocks, uint64_t available_blocks, uint64_t* total_mb,
                         uint64_t* available_mb) {
  const uint64_t total = (block_size * (blocks >> 10)) >> 10;
  const uint64_t available = (block_size * (available_blocks >> 10)) >> 10;
  StoreFigure(total_mb, total);
  StoreFigure(available_mb, available);
  if (total == 0 || available == 0) return 0;
  return static_cast<unsigned int>((total - available) * 100 / total);
}

uint64_t NetworkCounter(const char* text, int number) {
  std::array<char, 32> label;
  std::snprintf(label.data(), label.size(), "eth%d:", number);
  const char* const at = std::strstr(text, label.data());
  if (at == nullptr) return 0;
  std::string_view rest(at + std::strlen(label.data()));
  const NetworkLayout layout = NETWORK_LAYOUTS[static_cast<size_t>(procnetdev_version(text)) - 1];
  std::array<uint64_t, 16> counters{};
  for (size_t i = 0; i < layout.columns && base::TakeUnsigned(&rest, &counters[i]); ++i) {
  }
  return counters[0] + counters[layout.sent];
}

float LinkPercent(uint64_t before, uint64_t after) {
  return 800.0F * static_cast<float>(after - before) / 100000000.0F;
}

float CpuUsage(const char* proc_root, CpuSample* previous) {
  ProcHead text;
  return text.Read(proc_root, "stat") ? NextCpuUsage(text.Get(), previous) : 0.0F;
}

int MemoryUsage(const char* proc_root, double* total, double* available) {
  ProcHead text;
  return text.Read(proc_root, "meminfo") ? MemoryPercent(text.Get(), total, available) : 0;
}

int MemoryUsageInt(const char* proc_root, double* total, double* available) {
  ProcHead text;
  return text.Read(proc_root, "meminfo") ? MemoryPercentInt(text.Get(), total, available) : 0;
}

int ResidentMemory(const char* proc_root, int pid) {
  std::array<char, PATH_MAX> path;
  const int length = std::snprintf(path.data(), path.size(), "%s/%d/status", proc_root, pid);
  if (length < 0 || static_cast<size_t>(length) >= path.size()) return -1;
  const base::UniqueFile file(std::fopen(path.data(), "re"));
  if (!file) return -1;
  std::array<char, 1024> status_line;
  while (std::fgets(status_line.data(), status_line.size(), file.get()) != nullptr) {
    if (std::strstr(status_line.data(), "VmRSS") != nullptr) return ResidentKilobytes(status_line.data());
  }
  return 0;
}

int ProcessMemory(const char* proc_root, int pid) {
  const int kilobytes = ResidentMemory(proc_root, pid);
  return kilobytes == -1 ? -1 : kilobytes / 1024;
}

uint64_t NetworkStatics(const char* proc_root, int number) {
  ProcHead text;
  return text.Read(proc_root, "net/dev") ? NetworkCounter(text.Get(), number) : 0;
}

}  // namespace sysinfo

float CpuUsage() {
  static sysinfo::CpuSample previous;
  return sysinfo::CpuUsage(PROC_ROOT, &previous);
}

int system_cpu_usage() {
  return sysinfo::TruncateToInt(CpuUsage());
}

int memory_usage(double* total, double* available) {
  return sysinfo::MemoryUsage(PROC_ROOT, total, available);
}

double system_memory_usage() {
  double total = 0;
  double available = 0;
  memory_usage(&total, &available);
  return total;
}

int MemUsage(double* total, double* available) {
  return sysinfo::MemoryUsageInt(PROC_ROOT, total, available);
}

int process_memory_usage(int pid) {
  return sysinfo::ProcessMemory(PROC_ROOT, pid);
}

int process_memory_kb(int pid) {
  return sysinfo::ResidentMemory(PROC_ROOT, pid);
}

unsigned int DiskUsage(const char* path, uint64_t* total_mb, uint64_t* available_mb) {
  std::array<char, 511> here;
  if (path == nullptr) path = ::getcwd(here.data(), here.size());
  struct statfs figures {};
  if (path == nullptr || ::statfs(path, &figures) != 0) return 0;
  return sysinfo::DiskPercent(static_cast<uint64_t>(figures.f_bsize), figures.f_blocks, figures.f_bavail,
                              total_mb, available_mb);
}

int procnetdev_version(const char* text) {
  if (std::strstr(text, "compressed") != nullptr) return 3;
  return std::strstr(text, "bytes") != nullptr ? 2 : 1;
}

uint64_t NetworkStatics(int number) {
  return sysinfo::NetworkStatics(PROC_ROOT, number);
}

float NetworkUsage(int number) {
  const uint64_t before = NetworkStatics(number);
  base::SleepSeconds(1);
  return sysinfo::LinkPercent(before, NetworkStatics(number));
}
