// Core files: which is the engine's newest, and what it died of.
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
// From the first bytes of a core file (ELF of 64 bits in this host's byte order); nothing when they are none,
// or are cut before the notes end.
std::optional<CoreNotes> ParseCore(std::string_view bytes);

// The folder in which the kernel leaves cores: by /proc/sys/kernel/core_pattern and the working directory of
// the process; that of the service manager's collector for its pattern; empty when it is not known.
std::string CoreFolder(std::string_view pattern, const std::string& working);

struct CoreFound {
  std::string path;
  CoreNotes notes;
};
// The newest core in a folder of a process of this short name that was written at `since` or later; its pid
// counts where one is given (not 0). No link is followed. Looks at no more than 4,096 entries.
std::optional<CoreFound> FindCore(const std::string& folder, std::string_view name, pid_t pid, time_t since);

}  // namespace ctl

#endif
