// The operator's tool: reads the command line, runs the command.
#ifndef CTL_TOOL_H
#define CTL_TOOL_H

#include <span>
#include <string>

#include "ctl/command.h"

namespace ctl {

// The package's.
inline constexpr const char* VERSION = "2.3.0";

// The whole program; returns its exit status. Nothing is thrown.
int RunTool(int argc, char** argv);

// The command line after the program's name, for tests and RunTool.
struct Parsed {
  const Command* command = nullptr;
  Call call;
  bool help = false;
  bool version = false;
  std::string complaint;  // what is wrong with it, with a near name; empty: nothing
};
// argv as main has it; its words may be put into another order. Uses getopt_long(3), so one thread at a time.
Parsed ParseCommandLine(int argc, char** argv);

// The texts behind --help.
std::string HelpText();
std::string HelpText(const Command& command);

}  // namespace ctl

#endif
