#include "sysinfo/proc_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace sysinfo {

ProcFolder::ProcFolder(const char* root)
    : folder_(::opendir(root)), fd_(folder_ ? ::dirfd(folder_.get()) : -1) {}

bool ProcFolder::Next() {
  const dirent* entry = nullptr;
  do {
    entry = folder_ ? ::readdir(folder_.get()) : nullptr;
    if (entry == nullptr) return false;
  } while (entry->d_name[0] < '0' || entry->d_name[0] > '9');
  pid_ = static_cast<int32_t>(std::strtol(entry->d_name, nullptr, 0));
  length_ = ::strnlen(entry->d_name, NAME_MAX);
  std::memcpy(path_, entry->d_name, length_);
  path_[length_++] = '/';
  return true;
}

bool ProcFolder::Here() {
  path_[length_] = '\0';
  struct stat status {};
  return ::fstatat(fd_, path_, &status, 0) == 0;
}

base::UniqueFd ProcFolder::OpenPath() const {
  return base::UniqueFd(::openat(fd_, path_, O_RDONLY | O_CLOEXEC));
}

}  // namespace sysinfo
