#include "base/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/unique_handles.h"

namespace base {
namespace {

void ReplaceStandardByNull(int standard_fd) {
  UniqueFd standard_null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!standard_null.Valid()) return;
  if (standard_null.Get() <= STDERR_FILENO) {
    // fd itself or another of the three was free, and the null device has just taken that number.
    ::fcntl(standard_null.Get(), F_SETFD, 0);
    if (standard_null.Release() == standard_fd) return;
    ReplaceStandardByNull(standard_fd);
    return;
  }
  while (::dup2(standard_null.Get(), standard_fd) < 0 && (errno == EINTR || errno == EBUSY)) {
  }
}

}  // namespace

void GuardStandardDescriptors() {
  int standard_null = ::open("/dev/null", O_RDWR);
  while (standard_null >= 0 && standard_null <= STDERR_FILENO) standard_null = ::dup(standard_null);
  if (standard_null >= 0) ::close(standard_null);
}

int CloseKeepingStandard(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return ::close(descriptor);
  ReplaceStandardByNull(descriptor);
  return 0;
}

}  // namespace base
