// Preloaded into the tool: a file system that hangs, wherever a path holds "hangs", on a kernel that tells a
// process's status to its parent alone.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

void Hang(const char* path) {
  while (std::strstr(path, "hangs") != nullptr) ::pause();
}

}  // namespace

extern "C" int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = va_arg(arguments, unsigned);
  va_end(arguments);
  Hang(path);
  return ::openat(AT_FDCWD, path, flags, mode);
}

extern "C" int ioctl(int, unsigned long, ...) noexcept {
  errno = ENOTTY;
  return -1;
}
