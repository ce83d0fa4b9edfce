// The configuration file as text: what each line holds, valid or not.
#ifndef CTL_CONFIG_PIECES_H
#define CTL_CONFIG_PIECES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// The agent reads a line in pieces of this many bytes, and takes each piece as a line.
inline constexpr size_t CONFIG_PIECE = 1023;

struct ConfigPiece {
  size_t line = 0;        // its number, from 1
  size_t length = 0;      // bytes of the whole line, without its end
  bool rest = false;      // it is a later piece of its line
  bool comment = false;   // by the agent's rules
  bool own_value = true;  // false: nothing follows the key, so it gets the value of the line before
  std::string text;       // up to the first NUL, as the agent sees it
  std::string key;        // empty: none
  std::string value;      // as the agent stores it
};

// In the file's order. Blank lines are pieces too.
std::vector<ConfigPiece> SplitConfig(std::string_view text);

}  // namespace ctl

#endif
