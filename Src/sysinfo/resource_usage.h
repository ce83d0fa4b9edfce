// Host and process figures read from /proc (proc(5)) and statfs(2).
//
// Nothing is kept between calls but the CPU sample. Files are read afresh, at most their first 4,096 bytes,
// and parsed as far as they go: an absent or cut figure counts as 0. No function reports an error otherwise
// than by its result. Out-pointers may be null. All but CpuUsage and system_cpu_usage may be called by any
// number of threads at once. None blocks, except NetworkUsage, and DiskUsage on a file system that hangs.
#ifndef SYSINFO_RESOURCE_USAGE_H
#define SYSINFO_RESOURCE_USAGE_H

#include <cstdint>

// The busy share of the host in percent since the previous call: 100 less the share of idle among the ticks
// spent in user, nice, system and idle (time waiting for devices is in none of them). 0 on the first call,
// when no tick passed or counters went back, and when /proc/stat cannot be opened; only the last keeps the
// previous sample. One caller at a time: two would see each other's interval.
float CpuUsage();
// CpuUsage truncated toward zero.
int system_cpu_usage();

// Used memory of the host in percent, truncated, where MemFree, Buffers and Cached count as available; total
// and available in kB. 0, with both out-values untouched, when /proc/meminfo cannot be opened or tells no
// total.
int memory_usage(double* total, double* available);
// The host's memory in kB (not a percentage); 0 when memory_usage fails.
double system_memory_usage();
// memory_usage in 32-bit integers that wrap: on hosts that use 21 GB (20 GiB) and more the percentage is
// wrong.
int MemUsage(double* total, double* available);

// Resident memory of a process in whole MB (1,024 kB), truncated. 0 for a process without any (kernel
// threads, zombies); -1 when there is no such process.
int process_memory_usage(int pid);
// The same in kB.
int process_memory_kb(int pid);

// Used space of the file system that holds path (null: the working directory) in percent, truncated; total
// and the space available to users without privileges in MB (1,024 kB). Blocks count in units of 1,024, so
// that a file system of fewer has a total of 0. 0 on failure, then with both out-values untouched, and when
// total or available is 0.
unsigned int DiskUsage(const char* path, uint64_t* total_mb, uint64_t* available_mb);

// The layout of a text of /proc/net/dev: 3 with the "compressed" columns, 2 with "bytes", 1 with packets
// only.
int procnetdev_version(const char* text);
// Bytes received and sent by the interface eth<number> since it came up (packets in layout 1); 0 when the
// file or the interface is missing.
uint64_t NetworkStatics(int number);
// The load of eth<number> over one second in percent of a link of 100 Mbit/s, both directions together; huge
// when the counter went back meanwhile. Blocks for the second; a stop of the agent ends it early.
float NetworkUsage(int number);

#endif
