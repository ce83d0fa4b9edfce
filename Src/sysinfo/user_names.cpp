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
  std::vector<char> passwd_texts(FIRST_PASSWD_ENTRY);
  for (;;) {
    passwd passwd_entry{};
    passwd* found_user = nullptr;
    const int passwd_error =
        ::getpwuid_r(uid, &passwd_entry, passwd_texts.data(), passwd_texts.size(), &found_user);
    if (found_user != nullptr) return found_user->pw_name;
    if (passwd_error != ERANGE || passwd_texts.size() >= LARGEST_PASSWD_ENTRY) return "owner";
    passwd_texts.resize(passwd_texts.size() * 2);
  }
}

}  // namespace

const char* UserNames::Find(uid_t uid) noexcept try {
  auto known_user = user_names_.find(uid);
  if (known_user == user_names_.end()) known_user = user_names_.emplace(uid, LookUpUser(uid)).first;
  return known_user->second.c_str();
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace sysinfo
