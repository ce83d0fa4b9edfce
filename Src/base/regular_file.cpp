#include "base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace base {
namespace {

constexpr size_t NEWLINE_COUNT_BLOCK = 65536;
constexpr char COUNT_END_MARK = '\xFF';

UniqueFd OpenToRead(const char* path, int flags) {
  return UniqueFd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags));
}

bool IsRegular(int fd, size_t* size) {
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (size != nullptr) *size = static_cast<size_t>(status.st_size);
  return true;
}

}  // namespace

UniqueFd OpenRegular(const char* path, size_t* size, int flags) {
  UniqueFd file = OpenToRead(path, flags);
  if (!file.Valid() || IsRegular(file.Get(), size)) return file;
  file.Reset();
  errno = EINVAL;
  return file;
}

UniqueFile OpenRegularStream(const char* path) {
  UniqueFd file = OpenRegular(path);
  UniqueFile stream(file.Valid() ? ::fdopen(file.Get(), "r") : nullptr);
  if (stream) file.Release();
  return stream;
}

size_t ReadUpTo(int fd, char* out, size_t limit) {
  size_t length = 0;
  while (length < limit) {
    const ssize_t got = ::read(fd, out + length, limit - length);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    length += static_cast<size_t>(got);
  }
  return length;
}

int64_t CountNewlines(const char* path) {
  const UniqueFd file = OpenToRead(path, 0);
  if (!file.Valid()) return -1;
  if (!IsRegular(file.Get(), nullptr)) return 0;
  // Whole blocks: a day's result file is counted as fast as it is read.
  char block[NEWLINE_COUNT_BLOCK];
  int64_t lines = 0;
  while (const size_t size = ReadUpTo(file.Get(), block, sizeof block)) {
    const std::string_view bytes(block, std::min(size, std::string_view(block, size).find(COUNT_END_MARK)));
    for (size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1)) ++lines;
    if (bytes.size() < size) break;
  }
  return lines;
}

}  // namespace base
