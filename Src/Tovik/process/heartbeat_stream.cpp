#include "Tovik/process/heartbeat_stream.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>

#include "Tovik/process/options.h"
#include "base/lossy_stream.h"
#include "base/unique_handles.h"

FILE* log_stream = nullptr;

namespace {

base::UniqueFile heartbeatFile;

}  // namespace

void OpenHeartbeatStream() {
  log_stream = stdout;
  if (!given_options.hasLogFile) return;
  heartbeatFile = base::LossyStream(base::UniqueFile(std::fopen(given_options.logFile.c_str(), "a+e")));
  if (heartbeatFile) {
    log_stream = heartbeatFile.get();
    return;
  }
  const int stream_error = errno;
  syslog(LOG_ERR, "Can not open log file: %s, error: %s", HeartbeatStreamName(), std::strerror(stream_error));
}

void CloseHeartbeatStream() {
  log_stream = heartbeatFile ? nullptr : stdout;
  heartbeatFile.reset();
}

const char* HeartbeatStreamName() {
  return given_options.hasLogFile ? given_options.logFile.c_str() : "stdout";
}

void WriteDebugLine(const char* text) {
  if (log_stream != nullptr) std::fprintf(log_stream, "Debug: %s\n", text);
}
