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
}

namespace {

TortureControl* control;

[[gnu::constructor]] void Attach() {
  const char* path = getenv("TORTURE_CONTROL");
  const int fd = path == nullptr ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR));
  if (fd < 0) return;
  void* memory = mmap(nullptr, sizeof(TortureControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory != MAP_FAILED) control = static_cast<TortureControl*>(memory);
  unsetenv("LD_PRELOAD");
}

bool Fails(const char* name, int error) {
  if (control == nullptr || control->armed == 0 || ++control->count != control->fail_at) return false;
  ++control->failed;
  strncpy(control->name, name, sizeof control->name - 1);
  errno = error;
  return true;
}

void Live(int change) {
  if (control != nullptr) control->live += change;
}

}  // namespace

#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

#define FALLIBLE(result, name, parameters, arguments, error, failure) \
  extern "C" result name parameters {                                 \
    static const auto real = REAL(name);                              \
    return Fails(#name, error) ? (failure) : real arguments;          \
  }

// What is made is so for everybody to read: modes are not this shim's matter.
#define FALLIBLE_OPEN(name, parameters, arguments)     \
  extern "C" int name parameters {                     \
    static const auto real = REAL(name);               \
    return Fails(#name, EMFILE) ? -1 : real arguments; \
  }

FALLIBLE(int, socket, (int family, int type, int protocol), (family, type, protocol), EMFILE, -1)
FALLIBLE(int, connect, (int fd, const sockaddr* to, socklen_t size), (fd, to, size), ENETUNREACH, -1)
FALLIBLE(ssize_t, send, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags),
         ECONNRESET, -1)
FALLIBLE(ssize_t, recv, (int fd, void* data, size_t size, int flags), (fd, data, size, flags), ECONNRESET, -1)
FALLIBLE(ssize_t, read, (int fd, void* data, size_t size), (fd, data, size), EIO, -1)
FALLIBLE(ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size), ENOSPC, -1)
FALLIBLE(FILE*, fopen, (const char* path, const char* mode), (path, mode), EMFILE, nullptr)
FALLIBLE(FILE*, fopen64, (const char* path, const char* mode), (path, mode), EMFILE, nullptr)
FALLIBLE(int, pthread_create,
         (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
         (thread, attributes, body, argument), EAGAIN, EAGAIN)
FALLIBLE_OPEN(open, (const char* path, int flags, ...), (path, flags, 0644))
FALLIBLE_OPEN(open64, (const char* path, int flags, ...), (path, flags, 0644))
FALLIBLE_OPEN(openat, (int folder, const char* path, int flags, ...), (folder, path, flags, 0644))

// Fails at start-up, before anything is counted.
extern "C" int curl_global_init(long flags) {
  static const auto real = reinterpret_cast<int (*)(long)>(dlsym(RTLD_NEXT, "curl_global_init"));
  return getenv("TORTURE_CURL") != nullptr ? -1 : real(flags);
}

// Closed all the same, as Linux does.
extern "C" int close(int fd) {
  static const auto real = REAL(close);
  const int result = real(fd);
  return Fails("close", EIO) ? -1 : result;
}

extern "C" void* malloc(size_t size) {
  if (Fails("malloc", ENOMEM)) return nullptr;
  Live(1);
  return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
  if (Fails("calloc", ENOMEM)) return nullptr;
  Live(1);
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, size_t size) {
  if (Fails("realloc", ENOMEM)) return nullptr;
  if (block == nullptr) Live(1);
  if (block != nullptr && size == 0) Live(-1);
  return __libc_realloc(block, size);
}
extern "C" void free(void* block) {
  if (block != nullptr) Live(-1);
  __libc_free(block);
}
