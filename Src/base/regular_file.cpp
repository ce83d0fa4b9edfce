#include "base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace base {
namespace {

constexpr size_t FILE_COUNT_BLOCK = 65536;
constexpr char COUNT_END_MARK = '\xFF';

UniqueFd OpenFileToRead(const char* file_path, int flags) {
  return UniqueFd(::open(file_path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags));
}

bool IsRegularFile(int fd, size_t* file_size) {
  struct stat file_status {};
  if (::fstat(fd, &file_status) != 0 || !S_ISREG(file_status.st_mode)) return false;
  if (file_size != nullptr) *file_size = static_cast<size_t>(file_status.st_size);
  return true;
}

}  // namespace

UniqueFd OpenRegular(const char* file_path, size_t* file_size, int flags) {
  UniqueFd regular_file = OpenFileToRead(file_path, flags);
  if (!regular_file.Valid() || IsRegularFile(regular_file.Get(), file_size)) return regular_file;
  regular_file.Reset();
  errno = EINVAL;
  return regular_file;
}

UniqueFile OpenRegularStream(const char* file_path) {
  UniqueFd regular_file = OpenRegular(file_path);
  UniqueFile file_stream(regular_file.Valid() ? ::fdopen(regular_file.Get(), "r") : nullptr);
  if (file_stream) regular_file.Release();
  return file_stream;
}

size_t ReadUpTo(int fd, char* file_bytes, size_t limit) {
  size_t read_size = 0;
  while (read_size < limit) {
    const ssize_t file_read = ::read(fd, file_bytes + read_size, limit - read_size);
    if (file_read < 0 && errno == EINTR) continue;
    if (file_read <= 0) break;
    read_size += static_cast<size_t>(file_read);
  }
  return read_size;
}

int64_t CountFileNewlines(const char* file_path) {
  const UniqueFd counted_file = OpenFileToRead(file_path, 0);
  if (!counted_file.Valid()) return -1;
  if (!IsRegularFile(counted_file.Get(), nullptr)) return 0;
  // Whole blocks: a day's result file is counted as fast as it is read.
  char count_block[FILE_COUNT_BLOCK];
  int64_t newlines = 0;
  while (const size_t file_block_size = ReadUpTo(counted_file.Get(), count_block, sizeof count_block)) {
    const std::string_view file_block(count_block, file_block_size);
    const std::string_view counted = file_block.substr(0, file_block.find(COUNT_END_MARK));
    for (size_t at = counted.find('\n'); at != counted.npos; at = counted.find('\n', at + 1)) ++newlines;
    if (counted.size() < file_block_size) break;
  }
  return newlines;
}

}  // namespace base
