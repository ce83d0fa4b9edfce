#include "Tovik/process/heartbeat.h"

#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Tovik/process/heartbeat_stream.h"
#include "Tovik/process/options.h"
#include "Tovik/process/signals.h"

int counter = 0;
volatile int running = 0;

namespace {

bool WriteHeartbeat() {
  if (std::fprintf(log_stream, "Debug: %d\n", counter++) < 0) {
    const int heartbeat_error = errno;
    syslog(LOG_ERR, "Can not write to log stream: %s, error: %s", HeartbeatStreamName(),
           std::strerror(heartbeat_error));
    return false;
  }
  if (std::fflush(log_stream) != 0) {
    const int heartbeat_error = errno;
    syslog(LOG_ERR, "Can not fflush() log stream: %s, error: %s", HeartbeatStreamName(),
           std::strerror(heartbeat_error));
    return false;
  }
  return true;
}

}  // namespace

void MainLoop() {
  running = 1;
  while (running == 1) {
    if (!WriteHeartbeat()) break;
    SleepTakingSignal(delay);
  }
}
