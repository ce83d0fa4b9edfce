// The user that the agent runs as, and looking at the host as that user.
#ifndef CTL_RUN_AS_H
#define CTL_RUN_AS_H

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// Names are taken from the files of the host alone: asking a directory service would connect to it.
struct RunAs {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;
  std::vector<gid_t> groups;
};

// A user by name or number; nothing for a name that stands in no file. root: where etc/passwd lies.
std::optional<RunAs> FindUser(const std::string& name, const std::string& root = "/");
RunAs CurrentUser();
// The last User= of a unit's text and of those that add to it; empty: none.
std::string UserOfUnit(std::string_view text);
// The same of the agent's unit as it is installed, when that unit starts the agent with this file.
std::string UserOfInstalledUnit(const std::string& config, const std::string& root = "/");

// Whom the agent runs as that has this file: its process (0: none) tells, else its unit, else it is the
// caller. Nothing when the unit's user stands in no file.
std::optional<RunAs> UserOfAgent(pid_t process, const std::string& config);

// Runs work as that user and gives back its exit status: in a child of its own when it is another one than
// the caller's, which only root can take on; else *taken_on is false and work runs as the caller. Standard
// output is flushed before and behind. The child dies with the caller.
int DoAs(const RunAs& user, bool* taken_on, const std::function<int()>& work);

}  // namespace ctl

#endif
