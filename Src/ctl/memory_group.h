// Whether processes were killed for want of memory: the kernel's counters, of the host and of a control
// group. Control groups of version 1 and 2.
#ifndef CTL_MEMORY_GROUP_H
#define CTL_MEMORY_GROUP_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// The folder of the memory controller's figures of the process that this text of /proc/PID/cgroup is of;
// empty when it is in none, or outside of what can be seen.
std::string MemoryGroupFolder(std::string_view text, const std::string& root = "/sys/fs/cgroup");
// The service of the service manager in which that process is ("stt.service"); empty for none.
std::string UnitIn(std::string_view text);

// The number behind a name that begins a line: "oom_kill 3".
std::optional<int64_t> CounterIn(std::string_view text, std::string_view name);

struct KillCounters {
  std::optional<int64_t> host;   // processes of this host killed for want of memory
  std::string group;             // folder of the control group
  std::optional<int64_t> kills;  // processes of the group killed so
  std::optional<int64_t> hits;   // times that the group met its limit
};
// Of the host and of a group's folder (empty: none).
KillCounters ReadKillCounters(const std::string& group, const std::string& proc = "/proc");
// The text of /proc/PID/cgroup.
std::string ReadGroupText(pid_t pid, const std::string& proc = "/proc");

}  // namespace ctl

#endif
