// What the fuzz targets share. A target is one function over bytes; what must hold for its input is checked
// with HOLDS, by a second, simpler statement of the rule wherever there is one.
#ifndef TESTS_FUZZ_FUZZ_H
#define TESTS_FUZZ_FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#include "base/owners.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#define HOLDS(condition) \
  if (!(condition)) fuzz::Broken(#condition, __FILE__, __LINE__)

namespace fuzz {

[[noreturn]] inline void Broken(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

inline std::string Text(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// A file that holds these bytes, by its path.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content) : fd_(::memfd_create("input", MFD_CLOEXEC)) {
    HOLDS(fd_.Valid() && ::write(fd_.Get(), content.data(), content.size()) == ssize_t(content.size()));
    path_ = "/proc/self/fd/" + std::to_string(fd_.Get());
  }
  const char* Path() const { return path_.c_str(); }

 private:
  base::UniqueFd fd_;
  std::string path_;
};

inline double CpuSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// What instrumented code costs more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
inline constexpr double SLOWER = 10;
#else
inline constexpr double SLOWER = 1;
#endif

// Runs it; more than a millisecond of processor time for a line of the text, three times in a row, is a
// finding.
template <typename Function>
void Quickly(std::string_view text, Function function) {
  const double limit = 0.001 * SLOWER * double(std::count(text.begin(), text.end(), '\n') + 1);
  double least = limit + 1;
  for (int run = 0; run < 3 && least > limit; ++run) {
    const double start = CpuSeconds();
    function();
    least = std::min(least, CpuSeconds() - start);
  }
  HOLDS(least <= limit);
}

}  // namespace fuzz

#endif
