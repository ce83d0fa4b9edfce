#include "Tovik/process/log_stream.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>

#include "Tovik/process/options.h"
#include "base/lossy_stream.h"
#include "base/unique_handles.h"

FILE* log_stream = nullptr;

namespace {

base::UniqueFile logFile;

}  // namespace

void OpenLogStream() {
  log_stream = stdout;
  if (!given_options.hasLogFile) return;
  logFile = base::LossyStream(base::UniqueFile(std::fopen(given_options.logFile.c_str(), "a+e")));
  if (logFile) {
    log_stream = logFile.get();
    return;
  }
  const int error = errno;
  syslog(LOG_ERR, "Can not open log file: %s, error: %s", LogStreamName(), std::strerror(error));
}

void CloseLogStream() {
  log_stream = logFile ? nullptr : stdout;
  logFile.reset();
}

const char* LogStreamName() {
  return given_options.hasLogFile ? given_options.logFile.c_str() : "stdout";
}

void WriteDebugLine(const char* text) {
  if (log_stream != nullptr) std::fprintf(log_stream, "Debug: %s\n", text);
}
