// The user names of one process table. Each is looked up once.
#ifndef SYSINFO_USER_NAMES_H
#define SYSINFO_USER_NAMES_H

#include <sys/types.h>

#include <string>
#include <unordered_map>

namespace sysinfo {

class UserNames {
 public:
  // Returns the name of uid in the password database (getpwuid_r(3)), or "owner" when there is none or the
  // database fails. The name lives as long as this object. Returns null when memory runs out. May block on a
  // remote name service.
  const char* Find(uid_t uid) noexcept;

 private:
  std::unordered_map<uid_t, std::string> user_names_;
};

}  // namespace sysinfo

#endif
