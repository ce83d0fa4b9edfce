// Where the agent and the engine write, by the configuration and the day.
#ifndef CTL_AGENT_FILES_H
#define CTL_AGENT_FILES_H

#include <ctime>
#include <optional>
#include <string>

#include "ctl/agent_config.h"

namespace ctl {

// A log: the folder that the configuration names, and the path below it, "YYYYMMDD/FILE".
struct DayFile {
  std::string folder;
  std::string below;
  std::string Path() const { return folder + below; }
};
DayFile MainLog(const AgentConfig& config, time_t day);
DayFile ServerLog(const AgentConfig& config, long server,
                  time_t day);  // of a management server, by its index
DayFile HangLog(const AgentConfig& config, time_t day);
DayFile EngineErrorLog(const AgentConfig& config, time_t day);

// Reads the last limit bytes of a log, from a whole line on. Follows no link below the folder, as others than
// the reader may write there. Returns nothing, with errno, on failure.
std::optional<std::string> ReadDayFile(const DayFile& file, size_t limit);

}  // namespace ctl

#endif
