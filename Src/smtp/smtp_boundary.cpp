#include "smtp/smtp_boundary.h"

#include <sys/random.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

constexpr std::string_view BOUNDARY_START = "mime";
constexpr size_t BOUNDARY_LETTERS = 10;

// Fills in random numbers, or, where the kernel has none yet, numbers made from the clock.
void FillWithRandom(std::array<uint32_t, BOUNDARY_LETTERS>& numbers) {
  const ssize_t got = ::getrandom(numbers.data(), sizeof numbers, GRND_NONBLOCK);
  if (got == static_cast<ssize_t>(sizeof numbers)) return;
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  auto state = static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
  for (auto& number : numbers) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    number = static_cast<uint32_t>(state >> 33U);
  }
}

}  // namespace

void smtp_gen_mime_boundary(char* destination) {
  std::array<uint32_t, BOUNDARY_LETTERS> numbers{};
  FillWithRandom(numbers);
  std::memcpy(destination, BOUNDARY_START.data(), BOUNDARY_START.size());
  char* out = destination + BOUNDARY_START.size();
  for (const uint32_t number : numbers) *out++ = static_cast<char>('A' + number % 26);
  *out = '\0';
}
