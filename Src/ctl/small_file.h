// Files read whole, up to a bound.
#ifndef CTL_SMALL_FILE_H
#define CTL_SMALL_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "base/owners.h"

namespace ctl {

// At most limit bytes from where the descriptor stands; nothing when the first read fails (errno).
std::optional<std::string> ReadDescriptor(int fd, size_t limit);
// The first limit bytes; a FIFO in its place is not waited for. Nothing with errno.
std::optional<std::string> ReadSmallFile(const std::string& path, size_t limit = 65536);
// The last limit bytes of a regular file, from a whole line on when it is longer. Nothing with errno.
std::optional<std::string> ReadTail(int fd, size_t limit);

// Where a link leads; empty when it cannot be told.
std::string LinkTarget(const std::string& path);
// Whether two paths lead to one file.
bool SameFile(const std::string& one, const std::string& other);

// Writes all of it: 0, or -1 with errno.
int WriteAll(int fd, const char* data, size_t length);

}  // namespace ctl

#endif
