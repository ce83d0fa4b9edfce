// Whole small files, read into one buffer that serves for many.
#ifndef SYSINFO_PROC_TEXT_H
#define SYSINFO_PROC_TEXT_H

#include <cstddef>
#include <string_view>

#include "base/owners.h"

namespace sysinfo {

class ProcText {
 public:
  static constexpr size_t LIMIT = 3145727;

  // The next LIMIT bytes of a file (borrowed). One read(2) unless the file fills the buffer, which then
  // grows; when memory runs out the text ends where the buffer does. Empty when the file cannot be read; a
  // negative descriptor is such a file. The view holds until the next call.
  std::string_view Read(int fd);

 private:
  bool Grow();

  base::UniqueText buffer_;
  size_t capacity_ = 0;
};

}  // namespace sysinfo

#endif
