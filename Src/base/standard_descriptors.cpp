#include "base/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/unique_handles.h"

namespace base {
namespace {

void ReplaceByNullDevice(int standard_fd) {
  UniqueFd null_device(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!null_device.Valid()) return;
  if (null_device.Get() <= STDERR_FILENO) {
    // fd itself or another of the three was free, and the null device has just taken that number.
    ::fcntl(null_device.Get(), F_SETFD, 0);
    if (null_device.Release() == standard_fd) return;
    ReplaceByNullDevice(standard_fd);
    return;
  }
  while (::dup2(null_device.Get(), standard_fd) < 0 && (errno == EINTR || errno == EBUSY)) {
  }
}

}  // namespace

void GuardStandardDescriptors() {
  int null_device = ::open("/dev/null", O_RDWR);
  while (null_device >= 0 && null_device <= STDERR_FILENO) null_device = ::dup(null_device);
  if (null_device >= 0) ::close(null_device);
}

int CloseKeepingStandard(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return ::close(descriptor);
  ReplaceByNullDevice(descriptor);
  return 0;
}

}  // namespace base
