// The agent's command line.
#ifndef TOVIK_PROCESS_OPTIONS_H
#define TOVIK_PROCESS_OPTIONS_H

#include <string>

extern const char* app_name;  // the program's path

struct Options {
  std::string configFile;  // -f
  std::string logFile;     // -l
  std::string pidFile;     // -p: never written, removed at the stop
  bool hasLogFile = false;
  bool hasPidFile = false;
  bool hasConfigFile = false;
  bool daemon = false;  // -d
};

// What the command line gave; set once, before anything else runs.
extern Options given_options;

// Reads the options (getopt_long(3)). -1 to go on, else the status to end with at once: help was printed (0),
// an option is unknown or lacks its argument (1), or -t tested a file.
int ParseOptions(int argc, char** argv, Options* options);

void print_help();

#endif
