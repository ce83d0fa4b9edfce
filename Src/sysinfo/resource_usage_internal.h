// The resource figures as functions of text, and their readers with the path of the process file system as a
// parameter, for the sources and tests of this folder. Results are as in resource_usage.h.
#ifndef SYSINFO_RESOURCE_USAGE_INTERNAL_H
#define SYSINFO_RESOURCE_USAGE_INTERNAL_H

#include <cstdint>

namespace sysinfo {

// Clock ticks of the first line of /proc/stat. A negative puser means that there is no sample yet.
struct CpuSample {
  double puser = -1.0;
  double pwait = 0.0;
  double psys = 0.0;
  double pidle = 0.0;
};

// The busy share between *previous and this text of /proc/stat. The text's sample becomes *previous.
float NextCpuUsage(const char* stat, CpuSample* previous_cpu);
// Truncates toward zero. A value out of range becomes the nearest int, not-a-number becomes 0.
int TruncateToInt(double resource_figure);
int MemoryPercent(const char* meminfo, double* total_kb, double* available_kb);
int MemoryPercentInt(const char* meminfo, double* total_kb, double* available_kb);
// rss_line contains "VmRSS".
int ResidentKilobytes(const char* rss_line);
unsigned int DiskPercent(uint64_t block_size, uint64_t blocks, uint64_t available_blocks, uint64_t* total_mb,
                         uint64_t* available_mb);
uint64_t NetworkCounter(const char* net_dev, int eth_number);
float LinkPercent(uint64_t eth_bytes_before, uint64_t eth_bytes_after);

float CpuUsage(const char* proc_root, CpuSample* previous_cpu);
int MemoryUsage(const char* proc_root, double* total_kb, double* available_kb);
int MemoryUsageInt(const char* proc_root, double* total_kb, double* available_kb);
int ProcessMemoryUsage(const char* proc_root, int pid);
int ResidentMemoryUsage(const char* proc_root, int pid);
uint64_t NetworkStatics(const char* proc_root, int eth_number);

}  // namespace sysinfo

#endif
