// Shared by the fuzz targets. The target NAME is the function fuzz_NAME of a text. It checks its conditions
// with HOLDS.
#ifndef TESTS_FUZZ_FUZZ_H
#define TESTS_FUZZ_FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "support/support.h"

#define HOLDS(condition)                                                                \
  if (!(condition)) {                                                                   \
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
    std::abort();                                                                       \
  }

namespace fuzz {

// A file with this content, without a place on the disk.
struct MemoryFile {
  base::UniqueFd fd{::memfd_create("input", MFD_CLOEXEC)};
  const std::string path = "/proc/self/fd/" + std::to_string(fd.Get());
  explicit MemoryFile(std::string_view content) {
    HOLDS(::write(fd.Get(), content.data(), content.size()) == ssize_t(content.size()));
  }
};

// Runs function and limits its processor time: 10 ms for each line of the text. (The aim is 1 ms;
// instrumented code is slower.) It is a finding when three runs in a row take longer.
template <typename Function>
void Quickly(std::string_view text, Function function) {
  const auto limit = CLOCKS_PER_SEC / 100 * (std::count(text.begin(), text.end(), '\n') + 1);
  std::clock_t least = limit + 1;
  for (int run = 0; run < 3 && least > limit; ++run) {
    const std::clock_t start = std::clock();
    function();
    least = std::min(least, std::clock() - start);
  }
  HOLDS(least <= limit);
}

}  // namespace fuzz

#endif
