// Finds the user that the agent runs as, and runs code as that user.
#ifndef CTL_RUN_AS_H
#define CTL_RUN_AS_H

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// A user. Names come from the host's own files only, as asking a directory service would connect to it.
struct RunAs {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;
  std::vector<gid_t> groups;
};

// Finds a user by name or number. Returns nothing for a name that is not in the files. root: the folder that
// holds etc/passwd.
std::optional<RunAs> FindUser(const std::string& name, const std::string& root = "/");
RunAs CurrentUser();
// The last User= in the text of a unit and its drop-ins; empty: none.
std::string UserOfUnit(std::string_view text);
// The same for the agent's installed unit, if that unit starts the agent with this configuration file; else
// empty.
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
