#include "Tovik/lifecycle.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "Tovik/alarms/email.h"
#include "Tovik/core/state.h"
#include "Tovik/core/trace.h"
#include "Tovik/daemon.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/threads.h"
#include "base/lossy_stream.h"
#include "base/owners.h"
#include "base/stop.h"

const char* app_name = "";
FILE* log_stream = nullptr;
int counter = 0;
volatile int running = 0;

namespace {

constexpr std::array<int, 4> HANDLED_SIGNALS = {SIGINT, SIGHUP, SIGTERM, SIGALRM};

Options given;
base::UniqueFile logFile;
base::UniqueFd pid_fd;  // of a locked PID file; nothing opens one today

sigset_t HandledSet() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : HANDLED_SIGNALS) sigaddset(&set, signal);
  return set;
}

void WriteDebugLine(const char* text) {
  if (log_stream != nullptr) std::fprintf(log_stream, "Debug: %s\n", text);
}

void ReleasePidFile() {
  if (pid_fd.Valid()) {
    [[maybe_unused]] const int unlocked = ::lockf(pid_fd.Get(), F_ULOCK, 0);
    pid_fd.Reset();
  }
  if (given.hasPidFile) ::unlink(given.pidFile.c_str());
}

// A second stop signal finds every thread joined and every block freed.
void Stop() {
  WriteDebugLine("stopping daemon ...");
  TRACE(TRACE_INFO, "Stop DunraSTT_Admin Service");
  gSvcManageThrdExit = 1;
  base::StopRequest();
  hManageThread.Join();
  hTimerThread1.Join();
  hTimerThread2.Join();
  hTimerThread6.Join();
  hTimerThread7.Join();
  EMailListFree(*gEmailLists.Get());
  gEmailLists.Set({});
  delete gSendInfo;
  gSendInfo = nullptr;
  SHM_CLOS();
  hTimerThread4.Join();
  hTimerThread5.Join();
  ReleasePidFile();
  running = 0;
  std::signal(SIGINT, SIG_DFL);
}

const char* StreamName() {
  return given.hasLogFile ? given.logFile.c_str() : "stdout";
}

bool WriteHeartbeat() {
  if (std::fprintf(log_stream, "Debug: %d\n", counter++) < 0) {
    const int error = errno;
    syslog(LOG_ERR, "Can not write to log stream: %s, error: %s", StreamName(), std::strerror(error));
    return false;
  }
  if (std::fflush(log_stream) != 0) {
    const int error = errno;
    syslog(LOG_ERR, "Can not fflush() log stream: %s, error: %s", StreamName(), std::strerror(error));
    return false;
  }
  return true;
}

// Sleeps until a signal comes, at most so long, and handles that one.
void SleepTakingSignal(int seconds) {
  const sigset_t handled = HandledSet();
  const timespec limit{seconds, 0};
  const int signal = sigtimedwait(&handled, nullptr, &limit);
  if (signal > 0) handle_signal(signal);
}

}  // namespace

void KeepOptions(const Options& options) {
  given = options;
}

void InstallSignalHandlers() {
  const sigset_t handled = HandledSet();
  pthread_sigmask(SIG_BLOCK, &handled, nullptr);
  struct sigaction action {};
  action.sa_handler = handle_signal;
  action.sa_mask = handled;
  action.sa_flags = SA_RESTART;
  for (const int signal : HANDLED_SIGNALS) sigaction(signal, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

void handle_signal(int sig) {
  switch (sig) {
    case SIGINT:
    case SIGTERM:
      Stop();
      break;
    case SIGHUP:
      WriteDebugLine("reloading daemon config file ...");
      read_conf_file(1);
      break;
    case SIGCHLD:
      WriteDebugLine("received SIGCHLD signal");
      break;
    default:
      break;
  }
}

void OpenLogStream() {
  log_stream = stdout;
  if (!given.hasLogFile) return;
  logFile = base::LossyStream(base::UniqueFile(std::fopen(given.logFile.c_str(), "a+e")));
  if (logFile) {
    log_stream = logFile.get();
    return;
  }
  const int error = errno;
  syslog(LOG_ERR, "Can not open log file: %s, error: %s", given.logFile.c_str(), std::strerror(error));
}

int read_conf_file(int reload) {
  if (!given.hasConfigFile) return 0;
  const char* name = given.configFile.c_str();
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

void MainLoop() {
  running = 1;
  while (running == 1) {
    if (!WriteHeartbeat()) break;
    SleepTakingSignal(delay);
  }
}

int EndProcess() {
  log_stream = logFile ? nullptr : stdout;
  logFile.reset();
  syslog(LOG_INFO, "Stopped %s", app_name);
  ::closelog();
  daemonShutdown();
  std::fflush(stdout);
  ::kill(::getpid(), SIGINT);
  if (running == 1) {
    SleepTakingSignal(0);
    return 0;
  }
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
  return 0;
}
