// The operator's tool: reads the command line and runs the command.
#ifndef CTL_TOOL_H
#define CTL_TOOL_H

#include <span>
#include <string>

#include "ctl/command.h"

namespace ctl {

// The package's version.
inline constexpr const char* VERSION = "2.3.0";

// The whole program. Returns the exit status. Throws nothing.
int RunTool(int argc, char** argv);

// A parsed command line.
struct Parsed {
  const Command* command = nullptr;
  Call call;
  bool help = false;
  bool version = false;
  std::string complaint;  // what is wrong, with a near name; empty: nothing
};
// argv as main has it; its words may be reordered. Uses getopt_long(3): only one thread may call it at a
// time.
Parsed ParseCommandLine(int argc, char** argv);

// The texts of --help.
std::string HelpText();
std::string HelpText(const Command& command);

}  // namespace ctl

#endif
