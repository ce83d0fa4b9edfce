#include "Tovik/process/options.h"

#include <getopt.h>

#include <cstdio>

#include "Tovik/notices/notices.h"
#include "Tovik/process/conf_file.h"

const char* app_name = "";
Options given_options;

namespace {

constexpr const char* VERSION = "2.3.x.x";

void KeepArgument(std::string* text, bool* given) {
  *text = optarg;
  *given = true;
}

}  // namespace

int ParseOptions(int argc, char** argv, Options* options) {
  int letter = 0;
  while ((letter = getopt_long(argc, argv, AGENT_SHORT_OPTIONS, AGENT_LONG_OPTIONS, nullptr)) != -1) {
    switch (letter) {
      case 'f':
        KeepArgument(&options->configFile, &options->hasConfigFile);
        break;
      case 'l':
        KeepArgument(&options->logFile, &options->hasLogFile);
        break;
      case 'p':
        KeepArgument(&options->pidFile, &options->hasPidFile);
        break;
      case 'd':
        options->daemon = true;
        break;
      case 't':
        return test_conf_file(optarg);
      case 'h':
        print_help();
        return 0;
      default:
        // Which one has just been told on standard error.
        notices::Tell<notices::Notice::NO_START>("an option is unknown or lacks its argument");
        print_help();
        return 1;
    }
  }
  return -1;
}

void print_help() {
  std::printf("  DUNRA STT Service Daemon Ver.%s\n", VERSION);
  std::printf("\n");
  std::printf("  Usage: %s [OPTIONS]\n\n", app_name);
  std::printf("  Options:\n");
  std::printf("   -h --help                 Print this help\n");
  std::printf("   -f --conf_file filename   Read configuration from the file\n");
  std::printf("   -t --test_conf filename   Test configuration file\n");
  std::printf("   -l --log_file  filename   Write logs to the file\n");
  std::printf("   -d --daemon               Daemonize this application\n");
  std::printf("   -p --pid_file  filename   PID file used by daemonized app\n");
  std::printf("\n");
}
