// The kernel's counters of processes killed for want of memory, of the host and of a control group (version 1
// or 2).
#ifndef CTL_MEMORY_GROUP_H
#define CTL_MEMORY_GROUP_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// The folder with the memory figures of a process. text is its /proc/PID/cgroup. Empty when the process is in
// no such group or the group cannot be seen from here.
std::string MemoryGroupFolder(std::string_view text, const std::string& root = "/sys/fs/cgroup");
// The service that the process belongs to ("stt.service"), from the same text; empty for none.
std::string UnitIn(std::string_view text);

// The number after a name at the start of a line: "oom_kill 3".
std::optional<int64_t> CounterIn(std::string_view text, std::string_view name);

struct KillCounters {
  std::optional<int64_t> host;   // processes of this host killed for want of memory
  std::string group;             // folder of the control group
  std::optional<int64_t> kills;  // processes of the group killed for want of memory
  std::optional<int64_t> hits;   // how often the group reached its limit
};
// Reads the counters of the host and of the group with this folder (empty: none).
KillCounters ReadKillCounters(const std::string& group, const std::string& proc = "/proc");
// The text of /proc/PID/cgroup.
std::string ReadGroupText(pid_t pid, const std::string& proc = "/proc");

}  // namespace ctl

#endif
