// The agent's command line, and whether the configuration file that it names can be read. The settings
// themselves are read by config/config.h.
#ifndef TOVIK_PROCESS_OPTIONS_H
#define TOVIK_PROCESS_OPTIONS_H

#include <getopt.h>

#include <string>

extern const char* app_name;  // the program's path

// For getopt_long(3). Whoever reads the command line of an agent that runs already uses them too.
inline constexpr const char* AGENT_SHORT_OPTIONS = "f:l:t:p:dh";
inline constexpr option AGENT_LONG_OPTIONS[] = {
    {"conf_file", required_argument, nullptr, 'f'},
    {"test_conf", required_argument, nullptr, 't'},
    {"log_file", required_argument, nullptr, 'l'},
    {"help", no_argument, nullptr, 'h'},
    {"daemon", no_argument, nullptr, 'd'},
    {"pid_file", required_argument, nullptr, 'p'},
    {nullptr, 0, nullptr, 0},
};

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

// Seconds between two heartbeats. Only test_conf_file changes it.
extern int delay;

// Opens the file of option -f and reports the result to syslog. reload is 1 after SIGHUP. Returns 0 when no
// file was given, else -1.
int read_conf_file(int reload);

// Reads one decimal number from a file into delay. Returns 0, or 1 after a message on standard error.
int test_conf_file(const char* option_t_path);

#endif
