// The agent's command line.
#ifndef TOVIK_PROCESS_OPTIONS_H
#define TOVIK_PROCESS_OPTIONS_H

#include <string>

extern const char* app_name;  // the program's path

struct Options {
  std::string configFile;  // -f
  std::string logFile;     // -l
  std::string pidFile;     // -p: not written, but removed at the stop
  bool hasLogFile = false;
  bool hasPidFile = false;
  bool hasConfigFile = false;
  bool daemon = false;  // -d
};

// The options of the command line. Set once, before anything else runs.
extern Options given_options;

// Reads the options (getopt_long(3)). Returns -1 to go on, or the status to end with at once: 0 after -h, 1
// for an unknown option or a missing argument, and the result of test_conf_file for -t.
int ParseOptions(int argc, char** argv, Options* options);

void print_help();

#endif
