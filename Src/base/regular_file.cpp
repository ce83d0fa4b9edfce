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

UniqueFd OpenFileToRead(const char* path, int flags) {
  return UniqueFd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags));
}

bool IsRegularFile(int fd, size_t* file_size) {
  struct stat file_status {};
  if (::fstat(fd, &file_status) != 0 || !S_ISREG(file_status.st_mode)) return false;
  if (file_size != nullptr) *file_size = static_cast<size_t>(file_status.st_size);
  return true;
}

}  // namespace

UniqueFd OpenRegular(const char* path, size_t* file_size, int flags) {
  UniqueFd regular_file = OpenFileToRead(path, flags);
  if (!regular_file.Valid() || IsRegularFile(regular_file.Get(), file_size)) return regular_file;
  regular_file.Reset();
  errno = EINVAL;
  return regular_file;
}

UniqueFile OpenRegularStream(const char* path) {
  UniqueFd regular_file = OpenRegular(path);
  UniqueFile file_stream(regular_file.Valid() ? ::fdopen(regular_file.Get(), "r") : nullptr);
  if (file_stream) regular_file.Release();
  return file_stream;
}

size_t ReadUpTo(int fd, char* out, size_t limit) {
  size_t read_size = 0;
  while (read_size < limit) {
    const ssize_t read_now = ::read(fd, out + read_size, limit - read_size);
    if (read_now < 0 && errno == EINTR) continue;
    if (read_now <= 0) break;
    read_size += static_cast<size_t>(read_now);
  }
  return read_size;
}

int64_t CountNewlines(const char* path) {
  const UniqueFd counted_file = OpenFileToRead(path, 0);
  if (!counted_file.Valid()) return -1;
  if (!IsRegularFile(counted_file.Get(), nullptr)) return 0;
  // Whole blocks: a day's result file is counted as fast as it is read.
  char count_block[NEWLINE_COUNT_BLOCK];
  int64_t newlines = 0;
  while (const size_t block_size = ReadUpTo(counted_file.Get(), count_block, sizeof count_block)) {
    const std::string_view block(count_block, block_size);
    const std::string_view counted = block.substr(0, block.find(COUNT_END_MARK));
    for (size_t at = counted.find('\n'); at != counted.npos; at = counted.find('\n', at + 1)) ++newlines;
    if (counted.size() < block_size) break;
  }
  return newlines;
}

}  // namespace base
