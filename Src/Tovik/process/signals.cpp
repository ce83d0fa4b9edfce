#include "Tovik/process/signals.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "Tovik/process/heartbeat_stream.h"
#include "Tovik/process/options.h"

namespace {

constexpr std::initializer_list<int> HANDLED_SIGNALS = {SIGINT, SIGHUP, SIGTERM, SIGALRM};

void (*stopAction)() = nullptr;

sigset_t SetOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

void TakeSignal(const sigset_t& set, int seconds) {
  const timespec limit{seconds, 0};
  const int signal = sigtimedwait(&set, nullptr, &limit);
  if (signal > 0) handle_signal(signal);
}

}  // namespace

void BlockJobSignals() {
  sigset_t job_signals;
  sigemptyset(&job_signals);
  for (const int signal : {SIGCHLD, SIGTSTP, SIGTTOU, SIGTTIN}) sigaddset(&job_signals, signal);
  sigprocmask(SIG_BLOCK, &job_signals, nullptr);
}

void InstallEarlyHandler() {
  struct sigaction early {};
  early.sa_handler = signal_handler;
  sigemptyset(&early.sa_mask);
  for (const int signal : {SIGHUP, SIGTERM, SIGINT}) sigaction(signal, &early, nullptr);
}

void signal_handler(int /*sig*/) {}

void InstallSignalHandlers(void (*stop)()) {
  stopAction = stop;
  const sigset_t handled = SetOf(HANDLED_SIGNALS);
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
      stopAction();
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

void SleepTakingSignal(int seconds) {
  TakeSignal(SetOf(HANDLED_SIGNALS), seconds);
}

void DieBySigint(bool stopped) {
  const sigset_t interrupt = SetOf({SIGINT});
  ::kill(::getpid(), SIGINT);
  if (stopped) {
    pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
  } else {
    TakeSignal(interrupt, 0);
  }
}
