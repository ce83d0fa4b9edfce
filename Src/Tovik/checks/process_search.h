// Looking for a process in the host's process table.
#ifndef TOVIK_CHECKS_PROCESS_SEARCH_H
#define TOVIK_CHECKS_PROCESS_SEARCH_H

#include <sys/types.h>

#include <cstdint>

#include "sysinfo/process_names.h"

// Takes two snapshots of the process names, one second apart (at once when the first is empty), and returns
// the second. It is empty when the process table cannot be read. Blocks for that second; a stop shortens it.
// The first snapshot only tells whether there is any process, so it ends at the first one: a second full walk
// would double what the agent costs its host.
sysinfo::ProcessNames SpacedSnapshot();

enum class Search { FOUND, ABSENT, NAMELESS };
struct SearchResult {
  Search verdict;
  int32_t pid;  // of a match, else 0
};

inline constexpr int64_t ANY_PID = -1;

// Finds the first process of exactly this short name and, unless it is ANY_PID, this pid. A process without a
// name, which exists but may not be read, ends the search as NAMELESS. A match for which isDead (may be null)
// returns true is skipped.
SearchResult FindProcess(const sysinfo::ProcessNames& processes, const char* name, int64_t pid = ANY_PID,
                         bool (*isDead)(int32_t pid) = nullptr);
// The same for the engine: with ZOMBIE_DEAD a zombie is skipped.
SearchResult FindEngine(const sysinfo::ProcessNames& processes, const char* name, int64_t pid = ANY_PID);

// The number of processes of this short name; 0 when the table holds a process without a name.
int CountProcesses(const sysinfo::ProcessNames& processes, const char* name);

// Reads the number that a PID file begins with (0 when it begins with none). Looks at its first 1,024 bytes.
// Returns false when the file cannot be opened or is no regular file.
[[nodiscard]] bool ReadPidFile(const char* path, int64_t* pid);

// The pid of the first process whose executable's path contains text; 0 when there is none. Prints the result
// on standard output.
pid_t getProcessID(const char* text, const char* proc_root = "/proc");

#endif
