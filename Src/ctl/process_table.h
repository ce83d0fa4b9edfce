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

// Parses the text of /proc/PID/stat. Returns nothing when it is cut short.
std::optional<ProcessRow> ParseProcessStat(std::string_view text);
// Reads one process. Returns nothing when it is gone.
std::optional<ProcessRow> ReadProcess(pid_t pid, const std::string& proc = "/proc");
// Calls visit for each process, in the order of the directory, until it returns false. Returns false when the
// directory cannot be read.
bool VisitProcesses(const std::function<bool(const ProcessRow&)>& visit, const std::string& proc = "/proc");
// The process of this short name that was started first. Zombies do not count. Returns nothing when there is
// none or the name is empty.
std::optional<ProcessRow> FindLiving(std::string_view name, const std::string& proc = "/proc");

// The command line of a process, a word each; empty when it cannot be read.
std::vector<std::string> ReadCommandLine(pid_t pid, const std::string& proc = "/proc");

}  // namespace ctl

#endif
