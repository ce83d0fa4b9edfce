// Host and process figures read from /proc (proc(5)) and statfs(2).
#ifndef SYSINFO_RESOURCE_USAGE_H
#define SYSINFO_RESOURCE_USAGE_H

#include <cstdint>

float CpuUsage();
int system_cpu_usage();
int memory_usage(double* total, double* available);
double system_memory_usage();
int process_memory_usage(int pid);
int MemUsage(double* total, double* available);
unsigned int DiskUsage(const char* path, uint64_t* total_mb, uint64_t* available_mb);
int procnetdev_version(const char* text);
uint64_t NetworkStatics(int number);
float NetworkUsage(int number);

#endif
