// Preloaded into the agent: counts the calls that can fail, and fails one of them. Children are left alone.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "system/torture.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
int curl_global_init(long flags);
}

TortureControl* tortureControl;

namespace {

[[gnu::constructor]] void Attach() {
  const char* path = getenv("TORTURE_CONTROL");
  const int fd = path == nullptr ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR));
  if (fd < 0) return;
  void* memory = mmap(nullptr, sizeof(TortureControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory != MAP_FAILED) tortureControl = static_cast<TortureControl*>(memory);
  unsetenv("LD_PRELOAD");
}

bool Fails(const char* name, int error) {
  if (tortureControl == nullptr || tortureControl->armed == 0 ||
      ++tortureControl->count != tortureControl->fail_at)
    return false;
  ++tortureControl->failed;
  strncpy(tortureControl->name, name, sizeof tortureControl->name - 1);
  errno = error;
  return true;
}

// Blocks of memory that are made.
void Live(int change) {
  if (tortureControl != nullptr) tortureControl->live += change;
}

}  // namespace

#define REAL(name)                                                                         \
  ([] {                                                                                    \
    static const auto real = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name)); \
    return real;                                                                           \
  }())

#define FALLIBLE(result, name, parameters, error, failure, call) \
  extern "C" result name parameters {                            \
    return Fails(#name, error) ? (failure) : (call);             \
  }

FALLIBLE(int, socket, (int family, int type, int protocol), EMFILE, -1, REAL(socket)(family, type, protocol))
FALLIBLE(int, connect, (int fd, const sockaddr* to, socklen_t size), ENETUNREACH, -1,
         REAL(connect)(fd, to, size))
FALLIBLE(ssize_t, send, (int fd, const void* data, size_t size, int flags), ECONNRESET, -1,
         REAL(send)(fd, data, size, flags))
FALLIBLE(ssize_t, recv, (int fd, void* data, size_t size, int flags), ECONNRESET, -1,
         REAL(recv)(fd, data, size, flags))
FALLIBLE(ssize_t, read, (int fd, void* data, size_t size), EIO, -1, REAL(read)(fd, data, size))
FALLIBLE(ssize_t, write, (int fd, const void* data, size_t size), ENOSPC, -1, REAL(write)(fd, data, size))
FALLIBLE(FILE*, fopen, (const char* path, const char* mode), EMFILE, nullptr, REAL(fopen)(path, mode))
FALLIBLE(FILE*, fopen64, (const char* path, const char* mode), EMFILE, nullptr, REAL(fopen64)(path, mode))
FALLIBLE(int, pthread_create,
         (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument), EAGAIN,
         EAGAIN, REAL(pthread_create)(thread, attributes, body, argument))
// What is made is so for everybody to read: modes are not this shim's matter.
FALLIBLE(int, open, (const char* path, int flags, ...), EMFILE, -1, REAL(open)(path, flags, 0644))
FALLIBLE(int, open64, (const char* path, int flags, ...), EMFILE, -1, REAL(open64)(path, flags, 0644))
FALLIBLE(int, openat, (int at, const char* path, int flags, ...), EMFILE, -1,
         REAL(openat)(at, path, flags, 0644))
// Closed all the same, as Linux does.
FALLIBLE(int, close, (int fd), EIO, (REAL(close)(fd), -1), REAL(close)(fd))
FALLIBLE(void*, malloc, (size_t size), ENOMEM, nullptr, (Live(1), __libc_malloc(size)))
FALLIBLE(void*, calloc, (size_t count, size_t size), ENOMEM, nullptr, (Live(1), __libc_calloc(count, size)))
FALLIBLE(void*, realloc, (void* block, size_t size), ENOMEM, nullptr,
         (Live(block == nullptr ? 1
               : size == 0      ? -1
                                : 0),
          __libc_realloc(block, size)))

extern "C" void free(void* block) {
  if (block != nullptr) Live(-1);
  __libc_free(block);
}

// Fails at start-up, before anything is counted.
extern "C" int curl_global_init(long flags) {
  return getenv("TORTURE_CURL") != nullptr ? -1 : REAL(curl_global_init)(flags);
}
