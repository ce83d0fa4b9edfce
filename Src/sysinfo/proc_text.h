// Reads whole small files into one buffer that is used again.
#ifndef SYSINFO_PROC_TEXT_H
#define SYSINFO_PROC_TEXT_H

#include <cstddef>
#include <string_view>

#include "base/owners.h"

namespace sysinfo {

class ProcText {
 public:
  static constexpr size_t LIMIT = 3145727;

  // Reads at most LIMIT bytes of a file (borrowed). This takes one read(2) unless the file fills the buffer,
  // which then grows. When memory runs out, the text ends where the buffer does. The text is empty when the
  // file cannot be read or the descriptor is negative. It stays valid until the next call.
  std::string_view Read(int fd);

 private:
  bool Grow();

  base::UniqueText buffer_;
  size_t capacity_ = 0;
};

}  // namespace sysinfo

#endif
