// Owner types: each holds one resource and releases it exactly once. A raw int, FILE* or char* that is
// passed beside them is borrowed.
#ifndef BASE_OWNERS_H
#define BASE_OWNERS_H

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace base {

// A file descriptor. Moving leaves the source empty; assigning over a live one closes it first.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  int Get() const { return fd_; }
  bool Valid() const { return fd_ >= 0; }
  // Gives the descriptor away: the caller closes it.
  int Release() { return std::exchange(fd_, -1); }
  // Closes what is held and takes fd. Returns the result of close, 0 when nothing was held.
  int Reset(int fd = -1) {
    const int old = std::exchange(fd_, fd);
    return old >= 0 ? ::close(old) : 0;
  }

 private:
  int fd_ = -1;
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
// Heap text of a C interface (malloc, strdup): freed with free().
using UniqueText = std::unique_ptr<char, MallocFree>;

// As realloc(3): the text gets room for so many bytes (1 or more). False with errno when there is no memory;
// the text is then as it was.
[[nodiscard]] inline bool Resize(UniqueText& text, size_t size) {
  auto* const moved = static_cast<char*>(std::realloc(text.get(), size));
  if (moved == nullptr) return false;
  static_cast<void>(text.release());
  text.reset(moved);
  return true;
}

}  // namespace base

#endif
