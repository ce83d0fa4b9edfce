// The name that somebody may have meant: of a command, an option, a key.
#ifndef CTL_NEAR_NAME_H
#define CTL_NEAR_NAME_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace ctl {

// How many letters have to be put in, left out, replaced, or swapped with their neighbour; case does not
// count.
size_t EditDistance(std::string_view one, std::string_view other);

// The nearest of the names, at most two edits away and sharing a letter at least; empty when there is none.
std::string_view NearName(std::string_view word, std::span<const std::string_view> names);

// ", NAME?" with the near name, or nothing: to stand at the end of a complaint.
std::string NearNameHint(std::string_view word, std::span<const std::string_view> names);

}  // namespace ctl

#endif
