#include "ctl/commands.h"

#include <algorithm>

namespace ctl {

// One row a command: declared here, defined in its file.
extern const Command CHECK_COMMAND;
extern const Command RENDER_COMMAND;
extern const Command TEST_ALARM_COMMAND;
extern const Command STATUS_COMMAND;
extern const Command START_COMMAND;
extern const Command PAUSE_COMMAND;
extern const Command RESUME_COMMAND;
extern const Command HISTORY_COMMAND;

namespace {

constexpr const Command* COMMANDS[] = {
    &CHECK_COMMAND, &RENDER_COMMAND, &TEST_ALARM_COMMAND, &STATUS_COMMAND,
    &START_COMMAND, &PAUSE_COMMAND,  &RESUME_COMMAND,     &HISTORY_COMMAND,
};

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
