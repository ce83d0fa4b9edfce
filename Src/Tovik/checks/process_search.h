// Looking for a process in the host's process table.
#ifndef TOVIK_CHECKS_PROCESS_SEARCH_H
#define TOVIK_CHECKS_PROCESS_SEARCH_H

#include <sys/types.h>

#include <cstdint>

#include "sysinfo/process_names.h"

// The second of two snapshots, taken one second after the first (at once when the first is empty). Empty when
// there is none. Blocks for that second; a stop shortens it. Nothing but its being empty is asked of the
// first, so it is not read beyond its first process: a second walk would double what the agent costs its
// host.
sysinfo::ProcessNames SpacedSnapshot();

enum class Search { FOUND, ABSENT, NAMELESS };
struct SearchResult {
  Search verdict;
  int32_t pid;  // of a match, else 0
};

inline constexpr int64_t ANY_PID = -1;

// The first process of exactly this short name (and of this pid). The search ends, as NAMELESS, at one
// without a name: it is there, but may not be read.
SearchResult FindProcess(const sysinfo::ProcessNames& processes, const char* name, int64_t pid = ANY_PID);

// How many processes bear this short name; 0 when one without a name is among them.
int CountProcesses(const sysinfo::ProcessNames& processes, const char* name);

// The decimal pid at the start of a PID file's first 1,024 bytes; false when it cannot be opened or is no
// regular file.
[[nodiscard]] bool ReadPidFile(const char* path, int64_t* pid);

// Process id of the first process whose executable's path contains text, 0 when there is none; prints which.
pid_t getProcessID(const char* text, const char* proc_root = "/proc");

#endif
