#include "sysinfo/process_state.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/number.h"
#include "base/owners.h"
#include "base/text_file.h"

namespace sysinfo {
namespace {

constexpr int THREADS_BEHIND_STATE = 17;  // fields between the state and the number of threads
constexpr size_t STAT_SIZE = 1024;        // some 50 numbers, and a name of 64 bytes

// The text behind so many blanks.
std::string_view Behind(std::string_view text, int blanks) {
  for (; blanks > 0 && !text.empty(); --blanks)
    text.remove_prefix(std::min(text.find(' '), text.size() - 1) + 1);
  return text;
}

}  // namespace

bool TellsZombie(std::string_view stat) {
  // The name in parentheses may hold some of its own.
  const size_t name = stat.rfind(") ");
  if (name == std::string_view::npos || name + 2 >= stat.size()) return false;
  const std::string_view state = stat.substr(name + 2);
  if (state[0] != 'Z' && state[0] != 'X') return false;
  return base::LeadingNumber(Behind(state, THREADS_BEHIND_STATE)) <= 1;
}

bool IsZombie(int32_t pid) {
  std::array<char, sizeof "/proc/-2147483648/stat"> path;
  std::snprintf(path.data(), path.size(), "/proc/%d/stat", pid);
  const base::UniqueFd file(::open(path.data(), O_RDONLY | O_CLOEXEC));
  std::array<char, STAT_SIZE> text;
  return file.Valid() && TellsZombie({text.data(), base::ReadUpTo(file.Get(), text.data(), text.size())});
}

}  // namespace sysinfo
