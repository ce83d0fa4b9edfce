// status_floor FILE...: what one look of `dunrasttctl status` cannot do without, and nothing else. Reads the
// name of each process, then each file to its end; of a folder, which ends in "/", the entries.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

namespace {

char buffer[65536];

void Read(int folder, const char* path) {
  const int fd = ::openat(folder, path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  while (::read(fd, buffer, sizeof buffer) > 0) {
  }
  ::close(fd);
}

void ReadNames() {
  DIR* const directory = ::opendir("/proc");
  if (directory == nullptr) return;
  char path[300];
  char name[64];
  while (const dirent* const entry = ::readdir(directory)) {
    if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
    const size_t length = std::strlen(entry->d_name);
    std::memcpy(path, entry->d_name, length);
    std::memcpy(path + length, "/comm", sizeof "/comm");
    const int fd = ::openat(::dirfd(directory), path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) continue;
    if (::read(fd, name, sizeof name) < 0) buffer[0] = '\0';
    ::close(fd);
  }
  ::closedir(directory);
}

void ReadEntries(const char* path) {
  DIR* const directory = ::opendir(path);
  if (directory == nullptr) return;
  while (::readdir(directory) != nullptr) {
  }
  ::closedir(directory);
}

}  // namespace

int main(int argc, char** argv) {
  ReadNames();
  for (int i = 1; i < argc; ++i) {
    const size_t length = std::strlen(argv[i]);
    if (length > 0 && argv[i][length - 1] == '/') {
      ReadEntries(argv[i]);
    } else {
      Read(AT_FDCWD, argv[i]);
    }
  }
}
