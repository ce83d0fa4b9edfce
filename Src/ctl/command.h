// What a command of the tool is: a row of the table in commands.cpp, and a file.
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
  std::span<char* const> operands;  // words that are no options; a null pointer stands behind the last

  bool Has(std::string_view option) const { return Value(option) != nullptr; }
  // The argument of the last such option, empty for one that takes none; null when it was not given.
  const std::string* Value(std::string_view option) const;
};

struct Command {
  const char* name;
  const char* help;   // one line
  const char* usage;  // the words behind the name
  std::span<const Option> options;
  int (*run)(const Call& call);  // returns the exit status
  // The operands are a command of their own: its options are left alone, and a complaint about the options
  // before it is told but keeps nothing from running.
  bool runs_operands = false;
};

}  // namespace ctl

#endif
