// Owners of descriptors, files, folders and allocated texts. Each holds one resource and releases it exactly
// once. A plain int, FILE* or char* beside them is borrowed.
#ifndef BASE_UNIQUE_HANDLES_H
#define BASE_UNIQUE_HANDLES_H

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace base {

// A file descriptor. A moved-from object is empty. Assigning to an object closes what it held.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : unique_fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : unique_fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  int Get() const { return unique_fd_; }
  bool Valid() const { return unique_fd_ >= 0; }
  // Gives up the descriptor; the caller closes it.
  int Release() { return std::exchange(unique_fd_, -1); }
  // Closes the descriptor held and takes fd instead. Returns the result of close(2), or 0 when none was held.
  int Reset(int fd = -1) {
    const int old_fd = std::exchange(unique_fd_, fd);
    return old_fd >= 0 ? ::close(old_fd) : 0;
  }

 private:
  int unique_fd_ = -1;
};

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
struct MallocFree {
  void operator()(void* block) const { std::free(block); }
};

using UniqueFile = std::unique_ptr<FILE, FileCloser>;
using UniqueDir = std::unique_ptr<DIR, DirCloser>;
// Text that a C interface allocated with malloc(3).
using UniqueText = std::unique_ptr<char, MallocFree>;

// Gives the text room for size bytes (1 or more), as realloc(3) does. Returns false with errno when memory
// runs out; the text is then unchanged.
[[nodiscard]] inline bool Resize(UniqueText& unique_text, size_t size) {
  auto* const moved_text = static_cast<char*>(std::realloc(unique_text.get(), size));
  if (moved_text == nullptr) return false;
  static_cast<void>(unique_text.release());
  unique_text.reset(moved_text);
  return true;
}

}  // namespace base

#endif
