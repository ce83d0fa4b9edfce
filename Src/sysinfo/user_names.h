// User names of one process table, each looked up once.
#ifndef SYSINFO_USER_NAMES_H
#define SYSINFO_USER_NAMES_H

#include <sys/types.h>

#include <string>
#include <unordered_map>

namespace sysinfo {

class UserNames {
 public:
  // The password database's name of uid (getpwuid_r(3)), or "owner" when it has none or cannot be asked; it
  // lives as long as this object. Null when memory runs out. May block on a remote name service.
  const char* Find(uid_t uid) noexcept;

 private:
  std::unordered_map<uid_t, std::string> names_;
};

}  // namespace sysinfo

#endif
