// The time on a clock that only goes on, for what is measured between two moments of this process.
#ifndef BASE_STEADY_TIME_H
#define BASE_STEADY_TIME_H

#include <chrono>
#include <cstdint>

namespace base {

inline int64_t SteadyMilliseconds() {
  const auto steady_now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(steady_now).count();
}

inline int64_t SteadySeconds() {
  const auto steady_now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(steady_now).count();
}

}  // namespace base

#endif
