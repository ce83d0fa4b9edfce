// The table of commands.
#ifndef CTL_COMMANDS_H
#define CTL_COMMANDS_H

#include <span>
#include <string_view>
#include <vector>

#include "ctl/command.h"

namespace ctl {

// In the order of the help.
std::span<const Command* const> Commands();
std::vector<std::string_view> CommandNames();
// Null when there is none of this name.
const Command* FindCommand(std::string_view name);

// Options that every command has.
std::span<const Option> CommonOptions();

}  // namespace ctl

#endif
