// A snapshot of the host's process table, read from /proc (proc(5)).
#ifndef SYSINFO_QXAPI_PROCESS_H
#define SYSINFO_QXAPI_PROCESS_H

#include <cstdint>

struct qxapi_process {
  qxapi_process* next;
  int32_t pid;
  char* cmdline;         // raw words, each ended by NUL; null for kernel threads
  uint64_t cmdline_len;  // bytes of cmdline, its added terminator not counted
  uint32_t argc;
  char** argv;    // argc pointers into cmdline
  char* command;  // cmdline as one text, blanks between the words; null like cmdline
  char* name;     // short name, at most 15 characters; null when the process vanished
  char state[4];
  int32_t ppid;
  uint32_t uid;
  uint32_t gid;
  char* owner;
  uint64_t vmsize;  // kB
  int32_t threads;
  uint64_t utime;  // clock ticks
  uint64_t stime;  // clock ticks
  int64_t nice;
  uint64_t rss_kb;
};

qxapi_process* qxapi_open_process(const char* proc_root = "/proc");
void qxapi_close_process(qxapi_process* list);

#endif
