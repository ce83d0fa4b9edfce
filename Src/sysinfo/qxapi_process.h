// A snapshot of the host's process table, read from /proc (proc(5)).
//
// Each process is read at its own moment; the snapshot is not of a single moment. A process that ends before
// its status is read has no record. One that ends later keeps what was read until then, at least its name. A
// figure that could not be read is 0 and a text is null; a text is also null when memory runs out. All texts
// are bytes as the kernel gives them, in no particular encoding. The kernel writes a newline or a backslash
// in a name as \n or \\.
#ifndef SYSINFO_QXAPI_PROCESS_H
#define SYSINFO_QXAPI_PROCESS_H

#include <cstdint>

struct qxapi_process {
  qxapi_process* next;   // null in the last record
  int32_t pid;           // from the status file, else from the directory
  char* cmdline;         // raw words, each ended by NUL; null for kernel threads; at most 3,145,727 bytes
  uint64_t cmdline_len;  // bytes of cmdline, without its added terminator
  uint32_t argc;         // words of cmdline, including empty ones; at most 393,216
  char** argv;           // argc pointers into cmdline, no null after the last; null when argc is 0
  char* command;         // cmdline as one text, blanks between the words; null like cmdline
  // The short name, at most 15 characters for a program, without white space at its ends; empty when nothing
  // else is left. Null when the process exists but its status cannot be read.
  char* name;
  // [0] the kernel's letter (R, S, D, Z, T ...). [1] 'W' when nothing is resident, except for a zombie. [2]
  // 'N' for a nice value above 0, '<' below 0. A blank where nothing applies. [3] NUL.
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

// Takes a snapshot, in the order of the directory. proc_root is where the process file system is mounted.
// Returns the first record; the caller releases the list with qxapi_close_process. Returns null when the
// directory cannot be opened or contains no process.
// Any number of threads may call it at once. It sets no locale, signal or working directory. It blocks while
// the kernel produces three small files per process (about 10 microseconds each) and the password database
// answers one look-up per user id; a stop does not cut it.
qxapi_process* qxapi_open_process(const char* proc_root = "/proc");

// Returns 1 when a snapshot would contain a process, else 0. Stops reading at the first one.
int qxapi_has_process(const char* proc_root = "/proc");

// Frees the record, all that follow it, and everything they point to. Null is allowed.
void qxapi_close_process(qxapi_process* list);

// For the sources and tests of this folder.
//
// Returns a record of zeros with three blanks as its state, or null without memory.
qxapi_process* __qxapi_new_process__();
// Does the work of qxapi_close_process. Returns 0.
int __qxapi_free_process__(qxapi_process* list);

#endif
