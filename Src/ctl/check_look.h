// Gathers what "check" judges by. Opens nothing for writing and connects to nobody.
#ifndef CTL_CHECK_LOOK_H
#define CTL_CHECK_LOOK_H

#include <optional>
#include <string>
#include <string_view>

#include "ctl/check_facts.h"

namespace ctl {

// The file, the values that the agent takes from it, and who runs. Nothing, with what is wrong, when it
// cannot be read. As LoadAgentConfig, not for two threads at once.
std::optional<Facts> ReadFacts(const std::string& file, std::string* complaint);

// Adds what the files say to the user who calls.
void LookAtFiles(Facts* facts);

// The two figures of ip_local_port_range; first above last when they cannot be read.
void ParsePortRange(std::string_view text, HostFacts* host);
// Whether a text of /proc/mounts has /proc with hidepid.
bool HidesProcesses(std::string_view mounts);

}  // namespace ctl

#endif
