#include "Tovik/process/options.h"

#include <getopt.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Tovik/notices/notices.h"
#include "base/unique_handles.h"

const char* app_name = "";
Options given_options;

namespace {

constexpr const char* HELP_VERSION = "2.3.x.x";

void KeepOptionArgument(std::string* option_text, bool* given) {
  *option_text = optarg;
  *given = true;
}

}  // namespace

int ParseOptions(int argc, char** argv, Options* options) {
  int option_letter = 0;
  while ((option_letter = getopt_long(argc, argv, AGENT_SHORT_OPTIONS, AGENT_LONG_OPTIONS, nullptr)) != -1) {
    switch (option_letter) {
      case 'f':
        KeepOptionArgument(&options->configFile, &options->hasConfigFile);
        break;
      case 'l':
        KeepOptionArgument(&options->logFile, &options->hasLogFile);
        break;
      case 'p':
        KeepOptionArgument(&options->pidFile, &options->hasPidFile);
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
  std::printf("  DUNRA STT Service Daemon Ver.%s\n", HELP_VERSION);
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

int delay = 1;

int read_conf_file(int reload) {
  if (!given_options.hasConfigFile) return 0;
  const char* const option_f_path = given_options.configFile.c_str();
  const base::UniqueFile option_f_file(std::fopen(option_f_path, "re"));
  if (!option_f_file) {
    const int option_f_error = errno;
    syslog(LOG_ERR, "Can not open config file: %s, error: %s", option_f_path, std::strerror(option_f_error));
  } else if (reload == 1) {
    syslog(LOG_INFO, "Reloaded configuration file %s of %s", option_f_path, app_name);
  } else {
    syslog(LOG_INFO, "Configuration of %s read from file %s", app_name, option_f_path);
  }
  return -1;
}

int test_conf_file(const char* option_t_path) {
  const base::UniqueFile option_t_file(std::fopen(option_t_path, "re"));
  if (!option_t_file) {
    std::fprintf(stderr, "Can't read config file %s\n", option_t_path);
    return 1;
  }
  if (std::fscanf(option_t_file.get(), "%d", &delay) < 1) {
    std::fprintf(stderr, "Wrong config file %s\n", option_t_path);
    return 1;
  }
  return 0;
}
