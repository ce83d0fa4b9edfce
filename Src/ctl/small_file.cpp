#include "ctl/small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ctl {
std::optional<std::string> ReadDescriptor(int fd, size_t limit) {
  std::string text;
  char buffer[4096];
  while (text.size() < limit) {
    const ssize_t got = ::read(fd, buffer, std::min(sizeof buffer, limit - text.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && text.empty()) return std::nullopt;
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  return text;
}

std::optional<std::string> ReadSmallFile(const std::string& path, size_t limit) {
  const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.Valid()) return std::nullopt;
  return ReadDescriptor(file.Get(), limit);
}

std::optional<std::string> ReadTail(int fd, size_t limit) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return std::nullopt;
  }
  const auto size = static_cast<size_t>(status.st_size);
  if (size <= limit) return ReadDescriptor(fd, limit);
  ::lseek(fd, static_cast<off_t>(size - limit), SEEK_SET);
  std::optional<std::string> text = ReadDescriptor(fd, limit);
  if (text) text->erase(0, text->find('\n') + 1);
  return text;
}

std::string LinkTarget(const std::string& path) {
  char target[4096];
  const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
  return {target, static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

bool SameFile(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

int WriteAll(int fd, const char* data, size_t length) {
  while (length > 0) {
    const ssize_t written = ::write(fd, data, length);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return -1;
    data += written;
    length -= static_cast<size_t>(written);
  }
  return 0;
}

}  // namespace ctl
