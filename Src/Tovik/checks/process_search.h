// Looking for a process in the host's process table.
#ifndef TOVIK_CHECKS_PROCESS_SEARCH_H
#define TOVIK_CHECKS_PROCESS_SEARCH_H

#include <sys/types.h>

#include <cstdint>
#include <functional>

#include "sysinfo/process_names.h"

// The processes of a table, one at a time; false at its end. A name is valid until the next call.
using ProcessSource = std::function<bool(sysinfo::ProcessName* process)>;

enum class Search { FOUND, ABSENT, NAMELESS, NO_TABLE };
struct SearchResult {
  Search verdict;
  int32_t pid;  // of a match, else 0
};

inline constexpr int64_t SEARCH_ANY_PID = -1;

// The first process of exactly this short name (and of this pid). The search ends, as NAMELESS, at one
// without a name: it is there, but may not be read. NO_TABLE: there is no process at all. isDead (may be
// null) is asked about those that match; one for which it is true is passed over. Nothing is read beyond
// what decides.
SearchResult FindProcess(const ProcessSource& nextProcess, const char* soughtName,
                         int64_t soughtPid = SEARCH_ANY_PID, bool (*isDead)(int32_t pid) = nullptr);

// The process table is looked at twice, one second apart (not again when it is empty). Nothing but its being
// empty is asked of the first look, so that ends at the first process. Both block for the second between
// them, which a stop shortens.
//
// FindProcess for the engine: with ZOMBIE_DEAD one that has ended and waits for its parent is passed over.
SearchResult FindEngine(const char* soughtName, int64_t soughtPid = SEARCH_ANY_PID);
// All processes of the second look.
sysinfo::ProcessNames SpacedSnapshot();

// The number of processes of this short name; 0 when the table holds a process without a name.
int CountProcesses(const sysinfo::ProcessNames& processes, const char* soughtName);

// Reads the number that a PID file begins with (0 when it begins with none). Looks at its first 1,024 bytes.
// Returns false when the file cannot be opened or is no regular file.
[[nodiscard]] bool ReadPidFile(const char* pidFilePath, int64_t* processPid);

// The pid of the first process whose executable's path contains soughtText; 0 when there is none. Prints the
// result on standard output.
pid_t getProcessID(const char* soughtText, const char* proc_root = "/proc");

#endif
