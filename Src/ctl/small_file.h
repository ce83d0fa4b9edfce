// Files read whole, up to a bound.
#ifndef CTL_SMALL_FILE_H
#define CTL_SMALL_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "base/unique_handles.h"

namespace ctl {

// Reads at most limit bytes from the descriptor's position. Returns nothing, with errno, when the first read
// fails.
std::optional<std::string> ReadDescriptor(int fd, size_t limit);
// Reads the first limit bytes of a file. Does not wait on a FIFO. Returns nothing, with errno, on failure.
std::optional<std::string> ReadSmallFile(const std::string& path, size_t limit = 65536);
// Reads the last limit bytes of a regular file; of a longer file, from the beginning of a line on. Returns
// nothing, with errno, on failure.
std::optional<std::string> ReadTail(int fd, size_t limit);

// Where a link leads; empty when it cannot be told.
std::string LinkTarget(const std::string& path);
// Whether two paths lead to one file.
bool SameFile(const std::string& one, const std::string& other);

// Writes all of it: 0, or -1 with errno.
int WriteAll(int fd, const char* data, size_t length);

}  // namespace ctl

#endif
