// Finds the command, option or key that a misspelt word may have meant.
#ifndef CTL_NEAR_NAME_H
#define CTL_NEAR_NAME_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace ctl {

// The number of letters to insert, remove, replace or swap with their neighbour to turn one word into the
// other. Case does not count.
size_t EditDistance(std::string_view one, std::string_view other);

// The nearest of the names, at most two edits away and sharing a letter at least; empty when there is none.
std::string_view NearName(std::string_view word, std::span<const std::string_view> names);

// ", NAME?" with the near name, to end a complaint; empty when there is none.
std::string NearNameHint(std::string_view word, std::span<const std::string_view> names);

}  // namespace ctl

#endif
