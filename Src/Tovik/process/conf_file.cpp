#include "Tovik/process/conf_file.h"

#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Tovik/process/options.h"
#include "base/owners.h"

int delay = 1;

int read_conf_file(int reload) {
  if (!given_options.hasConfigFile) return 0;
  const char* const name = given_options.configFile.c_str();
  const base::UniqueFile file(std::fopen(name, "re"));
  if (!file) {
    const int error = errno;
    syslog(LOG_ERR, "Can not open config file: %s, error: %s", name, std::strerror(error));
  } else if (reload == 1) {
    syslog(LOG_INFO, "Reloaded configuration file %s of %s", name, app_name);
  } else {
    syslog(LOG_INFO, "Configuration of %s read from file %s", app_name, name);
  }
  return -1;
}

int test_conf_file(const char* path) {
  const base::UniqueFile file(std::fopen(path, "re"));
  if (!file) {
    std::fprintf(stderr, "Can't read config file %s\n", path);
    return 1;
  }
  if (std::fscanf(file.get(), "%d", &delay) < 1) {
    std::fprintf(stderr, "Wrong config file %s\n", path);
    return 1;
  }
  return 0;
}
