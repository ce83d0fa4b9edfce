// The agent's command line.
#ifndef TOVIK_OPTIONS_H
#define TOVIK_OPTIONS_H

#include <string>

// Seconds slept per heartbeat; only a tested configuration file changes it.
extern int delay;

struct Options {
  std::string configFile;  // -f
  std::string logFile;     // -l
  std::string pidFile;     // -p: never written, removed at the stop
  bool hasLogFile = false;
  bool hasPidFile = false;
  bool hasConfigFile = false;
  bool daemon = false;  // -d
};

// Reads the options (getopt_long(3)). -1 to go on, else the status to end with at once: help was printed (0),
// an option is unknown or lacks its argument (1), or -t tested a file.
int ParseOptions(int argc, char** argv, Options* options);

void print_help();

// Reads one decimal number from a file into delay. 0, or 1 with a message on standard error.
int test_conf_file(const char* path);

#endif
