// The resource figures as functions of text, and their readers with the place of the process file system as
// a parameter; for this folder and its tests. The results are those of the functions of resource_usage.h.
#ifndef SYSINFO_RESOURCE_USAGE_INTERNAL_H
#define SYSINFO_RESOURCE_USAGE_INTERNAL_H

#include <cstdint>

namespace sysinfo {

// Clock ticks of the first line of /proc/stat. A negative puser says that there is no sample yet.
struct CpuSample {
  double puser = -1.0;
  double pwait = 0.0;
  double psys = 0.0;
  double pidle = 0.0;
};

// The busy share between *previous and the text of /proc/stat, which becomes *previous.
float NextCpuUsage(const char* text, CpuSample* previous);
// Toward zero; what no int can hold is the nearest that can, not-a-number is 0.
int TruncateToInt(double value);
int MemoryPercent(const char* text, double* total, double* available);
int MemoryPercentInt(const char* text, double* total, double* available);
// Of a line that holds "VmRSS".
int ResidentKilobytes(const char* line);
unsigned int DiskPercent(uint64_t block_size, uint64_t blocks, uint64_t available_blocks, uint64_t* total_mb,
                         uint64_t* available_mb);
uint64_t NetworkCounter(const char* text, int number);
float LinkPercent(uint64_t before, uint64_t after);

float CpuUsage(const char* proc_root, CpuSample* previous);
int MemoryUsage(const char* proc_root, double* total, double* available);
int MemoryUsageInt(const char* proc_root, double* total, double* available);
int ProcessMemory(const char* proc_root, int pid);
int ResidentMemory(const char* proc_root, int pid);
uint64_t NetworkStatics(const char* proc_root, int number);

}  // namespace sysinfo

#endif
