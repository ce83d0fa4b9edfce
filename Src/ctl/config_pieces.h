// The configuration file as text: what each line holds, sound or not.
#ifndef CTL_CONFIG_PIECES_H
#define CTL_CONFIG_PIECES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// Bytes that the agent reads at once; what follows in a longer line is a line of its own to it.
inline constexpr size_t CONFIG_PIECE = 1023;

struct ConfigPiece {
  size_t line = 0;        // its number, from 1
  size_t length = 0;      // bytes of the whole line, without its end
  bool rest = false;      // it is not the line's beginning
  bool comment = false;   // by the agent's rules
  bool own_value = true;  // false: nothing at all stands behind the key, and the value is the one before
  std::string text;       // up to a NUL, as the agent's functions see it
  std::string key;        // empty: none
  std::string value;      // as the agent stores it
};

// In the file's order. Blank lines are pieces too.
std::vector<ConfigPiece> SplitConfig(std::string_view text);

}  // namespace ctl

#endif
