// Core files: finds the engine's newest, and the signal that it died of.
#ifndef CTL_CORE_FILE_H
#define CTL_CORE_FILE_H

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

struct CoreNotes {
  int signal = 0;
  pid_t pid = 0;
  std::string name;  // short name of the process
};
// Parses the first bytes of a core file (64-bit ELF in this host's byte order). Returns nothing for other
// bytes, or when they end before the notes do.
std::optional<CoreNotes> ParseCore(std::string_view bytes);

// The folder for core files: pattern is the text of /proc/sys/kernel/core_pattern, working the working
// directory of the process. For the pattern of the service manager's collector it is the collector's folder.
// Empty when not known.
std::string CoreFolder(std::string_view pattern, const std::string& working);

struct CoreFound {
  std::string path;
  CoreNotes notes;
};
// Finds the newest core in a folder, written at `since` or later, of a process of this short name and, unless
// it is 0, this pid. Follows no link. Looks at no more than 4,096 entries.
std::optional<CoreFound> FindCore(const std::string& folder, std::string_view name, pid_t pid, time_t since);

}  // namespace ctl

#endif
