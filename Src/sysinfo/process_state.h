// Whether a process still lives, for those that have ended and wait for their parent.
#ifndef SYSINFO_PROCESS_STATE_H
#define SYSINFO_PROCESS_STATE_H

#include <cstdint>
#include <string_view>

namespace sysinfo {

// What a text of /proc/PID/stat tells: true for a process that has ended as a whole. One whose first thread
// alone has ended shows the same state and lives on in the others. False for a text that tells neither.
bool TellsZombie(std::string_view stat);

// The same of a process; false when it cannot be read. One small file is read; it does not block.
bool IsZombie(int32_t pid);

}  // namespace sysinfo

#endif
