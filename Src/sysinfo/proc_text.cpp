#include "sysinfo/proc_text.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace sysinfo {
namespace {

// Above every ordinary file of a process; only long command lines and group lists need more.
constexpr size_t FIRST_CAPACITY = size_t{64} * 1024;

ssize_t ReadSome(int fd, char* to, size_t count) {
  ssize_t got = 0;
  do {
    got = ::read(fd, to, count);
  } while (got < 0 && errno == EINTR);
  return got;
}

}  // namespace

bool ProcText::Grow() {
  const size_t wanted = std::clamp(capacity_ * 4, FIRST_CAPACITY, LIMIT);
  if (wanted == capacity_ || !base::Resize(buffer_, wanted)) return false;
  capacity_ = wanted;
  return true;
}

std::string_view ProcText::Read(int fd) {
  if (fd < 0) return {};
  size_t size = 0;
  while (size < capacity_ || Grow()) {
    const ssize_t got = ReadSome(fd, buffer_.get() + size, capacity_ - size);
    if (got <= 0) break;
    size += static_cast<size_t>(got);
    if (size < capacity_) break;
  }
  return {buffer_.get(), size};
}

}  // namespace sysinfo
