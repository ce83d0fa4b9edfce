#include "ctl/near_name.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace ctl {
namespace {

constexpr size_t MAX_EDITS = 2;
constexpr size_t MAX_NAME = 64;  // a longer word is no misspelt name

char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

}  // namespace

size_t EditDistance(std::string_view one, std::string_view other) {
  const size_t width = other.size() + 1;
  std::vector<size_t> cells((one.size() + 1) * width);
  const auto at = [&](size_t i, size_t j) -> size_t& { return cells[i * width + j]; };
  for (size_t i = 0; i <= one.size(); ++i) at(i, 0) = i;
  for (size_t j = 0; j <= other.size(); ++j) at(0, j) = j;
  const auto same = [&](size_t i, size_t j) { return Lower(one[i]) == Lower(other[j]); };
  for (size_t i = 1; i <= one.size(); ++i) {
    for (size_t j = 1; j <= other.size(); ++j) {
      const size_t replaced = at(i - 1, j - 1) + (same(i - 1, j - 1) ? 0 : 1);
      at(i, j) = std::min({replaced, at(i - 1, j) + 1, at(i, j - 1) + 1});
      if (i > 1 && j > 1 && same(i - 1, j - 2) && same(i - 2, j - 1)) {
        at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + 1);
      }
    }
  }
  return cells.back();
}

std::string_view NearName(std::string_view word, std::span<const std::string_view> names) {
  if (word.size() > MAX_NAME) return {};
  std::string_view nearest;
  size_t best = MAX_EDITS + 1;
  for (const std::string_view name : names) {
    const size_t distance = EditDistance(word, name);
    if (distance >= best || distance >= std::min(name.size(), word.size())) continue;
    best = distance;
    nearest = name;
  }
  return nearest;
}

std::string NearNameHint(std::string_view word, std::span<const std::string_view> names) {
  const std::string_view name = NearName(word, names);
  return name.empty() ? std::string() : std::string(", ") + std::string(name) + "?";
}

}  // namespace ctl
