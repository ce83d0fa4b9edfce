#include "Tovik/process/daemon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Tovik/process/options.h"
#include "Tovik/process/signals.h"
#include "Tovik/process/standard_streams.h"
#include "Tovik/process/start_notices.h"
#include "base/format.h"
#include "base/standard_descriptors.h"
#include "base/unique_handles.h"

namespace {

constexpr pid_t INIT_PID = 1;
constexpr mode_t DAEMON_UMASK = 022;
constexpr mode_t DAEMON_LOCK_MODE = 0600;

base::UniqueFd pidFilehandle;

void DetachDaemon() {
  const pid_t daemon_child = fork();
  if (daemon_child < 0) {
    TellNoStart("the daemon's process", errno);
    std::_Exit(1);
  }
  if (daemon_child > 0) {
    std::fflush(nullptr);
    std::_Exit(0);
  }
  umask(DAEMON_UMASK);
  if (setsid() < 0) std::_Exit(1);
}

void CloseDaemonDescriptors() {
  if (::close_range(0, ~0U, 0) == 0) return;
  for (int daemon_fd = getdtablesize(); daemon_fd >= 0; --daemon_fd) ::close(daemon_fd);
}

void TakeDaemonLock(const char* daemon_lockfile) {
  pidFilehandle = base::UniqueFd(::open(daemon_lockfile, O_RDWR | O_CREAT | O_CLOEXEC, DAEMON_LOCK_MODE));
  if (!pidFilehandle.Valid()) {
    syslog(LOG_INFO, "Could not open PID lock file %s, exiting", daemon_lockfile);
    std::_Exit(1);
  }
  if (::lockf(pidFilehandle.Get(), F_TLOCK, 0) < 0) {
    syslog(LOG_INFO, "Could not lock PID lock file %s, exiting", daemon_lockfile);
    std::_Exit(1);
  }
  const std::string daemon_pid = base::Format("%d\n", getpid());
  [[maybe_unused]] const ssize_t pid_written =
      ::write(pidFilehandle.Get(), daemon_pid.data(), daemon_pid.size());
}

}  // namespace

void daemonize(const char* rundir, const char* lockfile) {
  if (getppid() == INIT_PID) return;
  BlockJobSignals();
  InstallEarlySignalHandler();
  std::fflush(nullptr);
  DetachDaemon();
  CloseDaemonDescriptors();
  base::GuardStandardDescriptors();
  [[maybe_unused]] const int rundir_changed = rundir == nullptr ? 0 : ::chdir(rundir);
  TakeDaemonLock(lockfile);
}

void DaemonizeIfGiven(const char* lockfile) {
  if (!given_options.daemon) return;
  daemonize(std::getenv("PWD"), lockfile);
  RenewStandardStreams();
}

void daemonShutdown() {
  syslog(LOG_INFO, "Daemon exiting");
  pidFilehandle.Reset();
}
