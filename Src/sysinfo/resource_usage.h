// Figures of the host and of processes, read from /proc (proc(5)) and statfs(2).
//
// Only the CPU sample is kept between calls. Each call reads its file again, at most the first 4,096 bytes,
// and parses as much as is there; a figure that is missing or cut counts as 0. Errors show only in the
// results. Out-pointers may be null. Any number of threads may call these functions at once, except CpuUsage
// and system_cpu_usage. None blocks, except NetworkUsage, and DiskUsage on a file system that hangs.
#ifndef SYSINFO_RESOURCE_USAGE_H
#define SYSINFO_RESOURCE_USAGE_H

#include <cstdint>

// The busy share of the host since the previous call, in percent: 100 minus the share of idle in the ticks of
// user, nice, system and idle. Time spent waiting for devices is in none of these. 0 on the first call, when
// no tick has passed, when counters went back, and when /proc/stat cannot be opened; the sample is kept only
// in the last case. Only one thread may call it: two would spoil each other's interval.
float CpuUsage();
// CpuUsage, truncated toward zero.
int system_cpu_usage();

// Used memory of the host in percent, truncated. MemFree, Buffers and Cached count as available. Returns 0
// and leaves both figures unchanged when /proc/meminfo cannot be opened or has no total.
int memory_usage(double* total_kb, double* available_kb);
// The memory of the host in kB (not a percentage). 0 when memory_usage fails.
double system_memory_usage();
// The same as memory_usage in 32-bit integers that wrap around. On a host that uses 21 GB (20 GiB) or more
// the percentage is wrong.
int MemUsage(double* total_kb, double* available_kb);

// Resident memory of a process in whole MB (1,024 kB), truncated. 0 for a process that has none (kernel
// threads, zombies), -1 when there is no such process.
int process_memory_usage(int pid);
// The same in kB.
int process_memory_kb(int pid);

// Used space of the file system that contains path (null: the working directory) in percent, truncated.
// total_mb and available_mb are in MB (1,024 kB); available is what users without privileges may use. Blocks
// are counted in units of 1,024, so a file system with fewer has a total of 0. Returns 0 on failure, with
// both out-values unchanged, and when total or available is 0.
unsigned int DiskUsage(const char* path, uint64_t* total_mb, uint64_t* available_mb);

// The layout of a text of /proc/net/dev: 3 with "compressed" columns, 2 with "bytes", 1 with packets only.
int procnetdev_version(const char* net_dev);
// Bytes received and sent by the interface eth<eth_number> since it came up (packets in layout 1). 0 when the
// file or the interface is missing.
uint64_t NetworkStatics(int eth_number);
// The load of eth<eth_number> over one second, both directions together, in percent of a link of 100 Mbit/s.
// A huge number when the counter went back meanwhile. Blocks for that second; a stop of the agent ends it
// early.
float NetworkUsage(int eth_number);

#endif
