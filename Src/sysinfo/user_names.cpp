#include "sysinfo/user_names.h"

#include <pwd.h>

#include <cerrno>
#include <new>
#include <vector>

namespace sysinfo {
namespace {

constexpr size_t FIRST_PASSWD_ENTRY = 1024;
constexpr size_t LARGEST_PASSWD_ENTRY = size_t{1024} * 1024;

std::string LookUpUser(uid_t uid) {
  std::vector<char> texts(FIRST_PASSWD_ENTRY);
  for (;;) {
    passwd entry{};
    passwd* found = nullptr;
    const int error = ::getpwuid_r(uid, &entry, texts.data(), texts.size(), &found);
    if (found != nullptr) return found->pw_name;
    if (error != ERANGE || texts.size() >= LARGEST_PASSWD_ENTRY) return "owner";
    texts.resize(texts.size() * 2);
  }
}

}  // namespace

const char* UserNames::Find(uid_t uid) noexcept try {
  auto known = names_.find(uid);
  if (known == names_.end()) known = names_.emplace(uid, LookUpUser(uid)).first;
  return known->second.c_str();
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace sysinfo
