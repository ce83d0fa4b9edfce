// Bounded reading of files that others write. Only regular files are read: a FIFO could block and a device
// might never end. No more is read than the caller has room for.
#ifndef BASE_REGULAR_FILE_H
#define BASE_REGULAR_FILE_H

#include <cstddef>
#include <cstdint>

#include "base/unique_handles.h"

namespace base {

// Opens a regular file for reading, close-on-exec. *file_size (may be null) receives its present size. flags
// are further flags of open(2), such as O_NOFOLLOW. Returns an invalid descriptor with errno on failure:
// EINVAL for a file of another kind.
[[nodiscard]] UniqueFd OpenRegular(const char* file_path, size_t* file_size = nullptr, int flags = 0);
// The same as a stream. Also null when memory runs out.
[[nodiscard]] UniqueFile OpenRegularStream(const char* file_path);

// Reads up to limit bytes into file_bytes and returns their number. Fewer than limit means end of file or a
// read error.
[[nodiscard]] size_t ReadUpTo(int fd, char* file_bytes, size_t limit);

// Counts the newlines of a file up to its end or its first byte 0xFF. Returns -1 when the file cannot be
// opened, and 0 when it is not a regular file.
[[nodiscard]] int64_t CountFileNewlines(const char* file_path);

}  // namespace base

inline int64_t GetTotalLine(const char* file_path) {
  return base::CountFileNewlines(file_path);
}

#endif
