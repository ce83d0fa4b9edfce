#include "base/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/unique_handles.h"

namespace base {
namespace {

void ReplaceByNullDevice(int fd) {
  UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!null.Valid()) return;
  if (null.Get() <= STDERR_FILENO) {
    // fd itself or another of the three was free, and the null device has just taken that number.
    ::fcntl(null.Get(), F_SETFD, 0);
    if (null.Release() == fd) return;
    ReplaceByNullDevice(fd);
    return;
  }
  while (::dup2(null.Get(), fd) < 0 && (errno == EINTR || errno == EBUSY)) {
  }
}

}  // namespace

void GuardStandardDescriptors() {
  int fd = ::open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = ::dup(fd);
  if (fd >= 0) ::close(fd);
}

int CloseDescriptor(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return ::close(fd);
  ReplaceByNullDevice(fd);
  return 0;
}

}  // namespace base
