#include "sysinfo/proc_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace sysinfo {

ProcFolder::ProcFolder(const char* root) : folder_(::open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

// Returns null at the end.
const char* ProcFolder::NextName() {
  if (next_ == end_) {
    const ssize_t got = folder_.Valid() ? ::getdents64(folder_.Get(), entries_, sizeof entries_) : 0;
    if (got <= 0) return nullptr;
    next_ = 0;
    end_ = static_cast<size_t>(got);
  }
  const auto* const entry = reinterpret_cast<const dirent64*>(entries_ + next_);
  next_ += entry->d_reclen;
  return entry->d_name;
}

bool ProcFolder::Next() {
  const char* name = nullptr;
  do {
    name = NextName();
    if (name == nullptr) return false;
  } while (name[0] < '0' || name[0] > '9');
  pid_ = static_cast<int32_t>(std::strtol(name, nullptr, 0));
  length_ = ::strnlen(name, NAME_MAX);
  std::memcpy(path_, name, length_);
  path_[length_++] = '/';
  return true;
}

bool ProcFolder::Here() {
  path_[length_] = '\0';
  struct stat status {};
  return ::fstatat(folder_.Get(), path_, &status, 0) == 0;
}

base::UniqueFd ProcFolder::OpenPath() const {
  return base::UniqueFd(::openat(folder_.Get(), path_, O_RDONLY | O_CLOEXEC));
}

}  // namespace sysinfo
