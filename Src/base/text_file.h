// Reading files of other people: only regular ones, so that a FIFO in a file's place holds nobody up and a
// device never ends, and only as much as the caller has room for.
#ifndef BASE_TEXT_FILE_H
#define BASE_TEXT_FILE_H

#include <cstddef>
#include <cstdint>

#include "base/owners.h"

namespace base {

// Opens a regular file for reading, close-on-exec; *size (may be null) gets its size of this moment. Invalid
// with errno when it cannot be opened: EINVAL for one of another kind. flags are further ones of open(2),
// such as O_NOFOLLOW.
[[nodiscard]] UniqueFd OpenRegular(const char* path, size_t* size = nullptr, int flags = 0);
// The same as a stream; null as well without memory.
[[nodiscard]] UniqueFile OpenRegularStream(const char* path);

// Reads up to limit bytes into out; fewer only at the end of the file or where reading fails. The count.
[[nodiscard]] size_t ReadUpTo(int fd, char* out, size_t limit);

// Newlines of a file up to its end or its first byte 0xFF; -1 when it cannot be opened. What is no regular
// file has none.
[[nodiscard]] int64_t CountNewlines(const char* path);

}  // namespace base

#endif
