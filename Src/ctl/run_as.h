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

// Runs work as that user and returns its exit status. For another user than the caller it runs in a child
// process, which only root can do; for any other caller *taken_on becomes false and work runs as the caller.
// Standard output is flushed before and after.
int DoAs(const RunAs& user, bool* taken_on, const std::function<int()>& work);

}  // namespace ctl

#endif
