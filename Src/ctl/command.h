// A command of the tool: each is a row of the table in commands.cpp and a file of its own.
#ifndef CTL_COMMAND_H
#define CTL_COMMAND_H

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ctl/exit_status.h"

namespace ctl {

struct Option {
  const char* name;      // without the "--"
  char letter;           // 0: none
  const char* argument;  // its name in the help; null: it takes none
  const char* help;
};

// The command line of one call.
struct Call {
  std::string config;  // -f; empty: not given
  bool json = false;
  std::vector<std::pair<std::string_view, std::string>>
      given;                        // the command's own options: name and argument
  std::span<char* const> operands;  // words that are not options; a null pointer follows the last

  bool Has(std::string_view option) const { return Value(option) != nullptr; }
  // The argument of the last such option, empty when it takes none; null when the option was not given.
  const std::string* Value(std::string_view option) const;
};

struct Command {
  const char* name;
  const char* help;   // one line
  const char* usage;  // the words that follow the name
  std::span<const Option> options;
  int (*run)(const Call& call);  // returns the exit status
  // The operands are a command to run: its options are not read. A mistake in the options before it is told,
  // and the command runs all the same.
  bool runs_operands = false;
};

}  // namespace ctl

#endif
