#include "sysinfo/proc_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace sysinfo {
namespace {

// Larger than every ordinary file of a process; only long command lines and group lists need more.
constexpr size_t FIRST_TEXT_CAPACITY = size_t{64} * 1024;

ssize_t ReadUninterrupted(int fd, char* to, size_t count) {
  ssize_t got = 0;
  do {
    got = ::read(fd, to, count);
  } while (got < 0 && errno == EINTR);
  return got;
}

}  // namespace

ProcFolder::ProcFolder(const char* root) : folder_(::open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

// Returns null at the end.
const char* ProcFolder::NextName() {
  if (next_ == end_) {
    const ssize_t got =
        folder_.Valid() ? ::getdents64(folder_.Get(), proc_entries_, sizeof proc_entries_) : 0;
    if (got <= 0) return nullptr;
    next_ = 0;
    end_ = static_cast<size_t>(got);
  }
  const auto* const entry = reinterpret_cast<const dirent64*>(proc_entries_ + next_);
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

bool ProcText::Grow() {
  const size_t wanted = std::clamp(capacity_ * 4, FIRST_TEXT_CAPACITY, LIMIT);
  if (wanted == capacity_ || !base::Resize(buffer_, wanted)) return false;
  capacity_ = wanted;
  return true;
}

std::string_view ProcText::Read(int fd) {
  if (fd < 0) return {};
  size_t size = 0;
  while (size < capacity_ || Grow()) {
    const ssize_t got = ReadUninterrupted(fd, buffer_.get() + size, capacity_ - size);
    if (got <= 0) break;
    size += static_cast<size_t>(got);
    if (size < capacity_) break;
  }
  return {buffer_.get(), size};
}

bool ProcHead::Read(const char* proc_root, const char* name) {
  std::array<char, PATH_MAX> path;
  const int length = std::snprintf(path.data(), path.size(), "%s/%s", proc_root, name);
  if (length < 0 || static_cast<size_t>(length) >= path.size()) return false;
  const base::UniqueFd file(::open(path.data(), O_RDONLY | O_CLOEXEC));
  if (!file.Valid()) return false;
  const ssize_t got = ReadUninterrupted(file.Get(), text_.data(), text_.size() - 1);
  text_[got > 0 ? static_cast<size_t>(got) : 0] = '\0';
  return true;
}

}  // namespace sysinfo
