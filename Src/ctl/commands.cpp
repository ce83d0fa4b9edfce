#include "ctl/commands.h"

#include <algorithm>
#include <array>

namespace ctl {

namespace {

// One row a command: declared above, defined in its file.
constexpr std::array<const Command*, 0> COMMANDS{};

constexpr Option COMMON_OPTIONS[] = {
    {"config", 'f', "FILE", "the agent's configuration; else the one that the running agent was given"},
    {"json", 0, nullptr, "print one JSON object"},
    {"help", 'h', nullptr, "print this help"},
    {"version", 0, nullptr, "print the version"},
};

}  // namespace

std::span<const Command* const> Commands() {
  return COMMANDS;
}

std::vector<std::string_view> CommandNames() {
  std::vector<std::string_view> names;
  for (const Command* command : COMMANDS) names.emplace_back(command->name);
  return names;
}

const Command* FindCommand(std::string_view name) {
  const auto* found = std::find_if(std::begin(COMMANDS), std::end(COMMANDS),
                                   [&](const Command* command) { return command->name == name; });
  return found == std::end(COMMANDS) ? nullptr : *found;
}

std::span<const Option> CommonOptions() {
  return COMMON_OPTIONS;
}

}  // namespace ctl
