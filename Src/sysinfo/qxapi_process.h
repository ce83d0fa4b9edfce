// A snapshot of the host's process table, read from /proc (proc(5)).
//
// The figures are those of the moment at which each process was read, not of one moment. A process that ends
// before its status is read has no record; one that ends later keeps what was read until then, its name at
// the least. What could not be read is 0, or null, and out of memory leaves the text concerned null. All
// texts are bytes as the kernel gives them, in no particular encoding; name has a newline or a backslash
// written as \n or
// \\ by the kernel.
#ifndef SYSINFO_QXAPI_PROCESS_H
#define SYSINFO_QXAPI_PROCESS_H

#include <cstdint>

struct qxapi_process {
  qxapi_process* next;   // null at the end
  int32_t pid;           // the status file's, or else the directory's
  char* cmdline;         // raw words, each ended by NUL; null for kernel threads; at most 3,145,727 bytes
  uint64_t cmdline_len;  // bytes of cmdline, its added terminator not counted
  uint32_t argc;         // words of cmdline, empty ones too; at most 393,216
  char** argv;           // argc pointers into cmdline (no null behind the last); null when argc is 0
  char* command;         // cmdline as one text, blanks between the words; null like cmdline
  // Short name, of a program 15 characters at most, without white space at its ends; empty when it has
  // nothing else. Null when the process is there and its status cannot be read.
  char* name;
  // [0] the kernel's letter (R, S, D, Z, T ...); [1] 'W' with nothing resident unless a zombie; [2] 'N' for a
  // nice above 0, '<' below 0; a blank where nothing applies; [3] NUL.
  char state[4];
  int32_t ppid;
  uint32_t uid;     // real
  uint32_t gid;     // real
  char* owner;      // user name of uid; "owner" when the password database has none
  uint64_t vmsize;  // kB
  int32_t threads;
  uint64_t utime;  // clock ticks (sysconf(_SC_CLK_TCK) a second)
  uint64_t stime;  // clock ticks
  int64_t nice;
  uint64_t rss_kb;
};

// Takes a snapshot, in the order of the directory. proc_root is where the process file system stands.
// Returns the first record; the caller gives the list back with qxapi_close_process. Null when the directory
// cannot be opened or holds no process.
// Any number of threads may call it at the same time. It sets no locale, signal or working directory. It
// blocks as long as the kernel takes for three small files a process (some 10 microseconds each) and the
// password database for one look-up per user id; no stop cuts it short.
qxapi_process* qxapi_open_process(const char* proc_root = "/proc");

// 1 when a snapshot would hold a process, else 0; reads no further than the first.
int qxapi_has_process(const char* proc_root = "/proc");

// Frees the record and all that follow it, with everything that hangs from them. Null is allowed.
void qxapi_close_process(qxapi_process* list);

#endif
