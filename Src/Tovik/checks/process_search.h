// Looking for a process in the host's process table.
#ifndef TOVIK_CHECKS_PROCESS_SEARCH_H
#define TOVIK_CHECKS_PROCESS_SEARCH_H

#include <cstdint>
#include <memory>

#include "sysinfo/qxapi_process.h"

struct ProcessListCloser {
  void operator()(qxapi_process* list) const { qxapi_close_process(list); }
};
using ProcessList = std::unique_ptr<qxapi_process, ProcessListCloser>;

// The second of two snapshots, taken one second after the first (at once when the first is empty). Null when
// there is none. Blocks for that second; a stop shortens it. Nothing but its being empty is asked of the
// first, so it is not read beyond its first process: a second walk would double what the agent costs its
// host.
ProcessList SpacedSnapshot();

enum class Search { FOUND, ABSENT, NAMELESS };
struct SearchResult {
  Search verdict;
  const qxapi_process* process;  // of a match, else null
};

inline constexpr int64_t ANY_PID = -1;

// The first process of exactly this short name (and of this pid). The search ends, as NAMELESS, at a record
// without a name: a process that vanished while the snapshot was taken.
SearchResult FindProcess(const qxapi_process* list, const char* name, int64_t pid = ANY_PID);

// How many processes bear this short name; 0 when a record without a name stands in the list.
int CountProcesses(const qxapi_process* list, const char* name);

// The decimal pid at the start of a PID file, of whose first 1,024 bytes; false when it cannot be opened.
bool ReadPidFile(const char* path, int64_t* pid);

#endif
