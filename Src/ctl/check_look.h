// Gathers what "check" judges. Opens nothing for writing and makes no connection.
#ifndef CTL_CHECK_LOOK_H
#define CTL_CHECK_LOOK_H

#include <optional>
#include <string>
#include <string_view>

#include "ctl/check_facts.h"

namespace ctl {

// Reads the file, the values that the agent takes from it, and which processes run. Returns nothing, with the
// reason in *complaint, when the file cannot be read. Only one thread may call it at a time.
std::optional<Facts> ReadFacts(const std::string& file, std::string* complaint);

// Adds the files and folders that the configuration names, as the calling user sees them.
void LookAtFiles(Facts* facts);

// Parses the two numbers of ip_local_port_range into first_port and last_port. Bad text leaves first above
// last.
void ParsePortRange(std::string_view text, HostFacts* host);
// True when this text of /proc/mounts mounts /proc with hidepid.
bool HidesProcesses(std::string_view mounts);

}  // namespace ctl

#endif
