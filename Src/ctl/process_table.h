// The tool's view of the process table. It does not ask the password database, which may hang.
#ifndef CTL_PROCESS_TABLE_H
#define CTL_PROCESS_TABLE_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

struct ProcessRow {
  pid_t pid = 0;
  std::string name;  // the short name: raw bytes, at most 15
  char state = ' ';  // the kernel's letter
  pid_t parent = 0;
  uint64_t start = 0;  // clock ticks since the boot; pid and start together never name another process
  bool Zombie() const { return state == 'Z' || state == 'X'; }
};

// "/proc/PID/NAME", "stat" say; without a name, what belongs to the process's user.
std::string ProcFile(pid_t pid, const char* name = "", const std::string& proc = "/proc");

// A text of /proc/PID/stat; nothing when it is cut.
std::optional<ProcessRow> ParseProcessStat(std::string_view text);
// Reads one process. Returns nothing when it is gone.
std::optional<ProcessRow> ReadProcess(pid_t pid, const std::string& proc = "/proc");
// Each process in the order of the directory, until the visitor returns false; the first one reads nothing of
// them. False when the directory cannot be read.
bool VisitProcessIds(const std::function<bool(pid_t)>& visit, const std::string& proc = "/proc");
bool VisitProcesses(const std::function<bool(const ProcessRow&)>& visit, const std::string& proc = "/proc");
// The process of this short name that was started first. Zombies do not count. Returns nothing when there is
// none or the name is empty.
std::optional<ProcessRow> FindLiving(std::string_view name, const std::string& proc = "/proc");

// The words of a process ("cmdline"), or its variables ("environ"); empty when they cannot be read.
std::vector<std::string> ReadTexts(pid_t pid, const char* name, const std::string& proc = "/proc");

}  // namespace ctl

#endif
