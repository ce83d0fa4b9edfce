#include "ctl/run_as.h"

#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "base/format.h"
#include "base/unique_handles.h"
#include "ctl/exit_status.h"
#include "ctl/output.h"
#include "ctl/process_table.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr const char* UNIT = "dunrastt-admin.service";
// The first unit file found counts. Drop-ins are read after it.
constexpr const char* UNIT_FOLDERS[] = {"etc/systemd/system/", "run/systemd/system/",
                                        "usr/lib/systemd/system/", "lib/systemd/system/"};
constexpr std::string_view USER_KEY = "User=";

std::vector<gid_t> GroupsOf(const RunAs& user, const std::string& root) {
  std::vector<gid_t> groups = {user.group};
  const base::UniqueFile file(std::fopen((root + "etc/group").c_str(), "re"));
  while (const group* row = file ? ::fgetgrent(file.get()) : nullptr) {
    for (char** member = row->gr_mem; *member != nullptr; ++member) {
      if (user.name == *member) groups.push_back(row->gr_gid);
    }
  }
  return groups;
}

std::optional<uid_t> Figures(const std::string& text) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
    return std::nullopt;
  return static_cast<uid_t>(std::atol(text.c_str()));
}

std::vector<std::string> AddedParts(const std::string& folder) {
  std::vector<std::string> names;
  const base::UniqueDir dir(::opendir(folder.c_str()));
  while (const dirent* entry = dir ? ::readdir(dir.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name.ends_with(".conf")) names.push_back(base::Format("%s/%s", folder.c_str(), entry->d_name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool TakeOn(const RunAs& user) {
  return ::setgroups(user.groups.size(), user.groups.data()) == 0 && ::setgid(user.group) == 0 &&
         ::setuid(user.user) == 0;
}

int InChild(const RunAs& user, pid_t parent, const std::function<int()>& work) {
  if (!TakeOn(user)) {
    Complain("cannot take on user " + user.name);
    return CANNOT_TELL;
  }
  // Behind the change of user, which forgets it.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) return CANNOT_TELL;
  try {
    return work();
  } catch (const std::exception& failure) {
    Complain(failure.what());
    return CANNOT_TELL;
  }
}

}  // namespace

std::optional<RunAs> FindUser(const std::string& name, const std::string& root) {
  const std::optional<uid_t> number = Figures(name);
  const base::UniqueFile file(std::fopen((root + "etc/passwd").c_str(), "re"));
  while (const passwd* row = file ? ::fgetpwent(file.get()) : nullptr) {
    if (name != row->pw_name && number != row->pw_uid) continue;
    RunAs user{row->pw_name, row->pw_uid, row->pw_gid, {}};
    user.groups = GroupsOf(user, root);
    return user;
  }
  if (!number) return std::nullopt;
  return RunAs{name, *number, *number, {*number}};
}

RunAs CurrentUser() {
  const auto known = FindUser(std::to_string(::geteuid()));
  RunAs user = known.value_or(RunAs{std::to_string(::geteuid()), ::geteuid(), ::getegid(), {}});
  user.group = ::getegid();
  return user;
}

std::string UserOfUnit(std::string_view text) {
  std::string user;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.starts_with(USER_KEY)) continue;
    line.remove_prefix(USER_KEY.size());
    user = line.substr(0, line.find_last_not_of(" \t\r") + 1);
  }
  return user;
}

std::string UserOfInstalledUnit(const std::string& config, const std::string& root) {
  std::string text;
  for (const char* folder : UNIT_FOLDERS) {
    const auto unit = ReadSmallFile(root + folder + UNIT);
    if (!unit) continue;
    text = *unit;
    break;
  }
  if (text.find(" " + config) == std::string::npos) return {};
  for (const char* folder : {"lib/systemd/system/", "etc/systemd/system/"}) {
    for (const std::string& part : AddedParts(root + folder + UNIT + ".d"))
      text += "\n" + ReadSmallFile(part).value_or("");
  }
  return UserOfUnit(text);
}

std::optional<RunAs> UserOfAgent(pid_t process, const std::string& config) {
  struct stat status {};
  if (process > 0 && ::stat(ProcFile(process).c_str(), &status) == 0)
    return FindUser(std::to_string(status.st_uid));
  const std::string unit = UserOfInstalledUnit(config);
  return unit.empty() ? CurrentUser() : FindUser(unit);
}

int DoAs(const RunAs& user, bool* taken_on, const std::function<int()>& work) {
  *taken_on = user.user == ::geteuid() || ::geteuid() == 0;
  if (!*taken_on || user.user == ::geteuid()) return work();
  std::fflush(stdout);
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) {
    Complain("cannot start a process to look as user " + user.name);
    return CANNOT_TELL;
  }
  if (child == 0) {
    const int status = InChild(user, parent, work);
    ::_exit(std::fflush(stdout) == 0 ? status : CANNOT_TELL);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : CANNOT_TELL;
}

}  // namespace ctl
