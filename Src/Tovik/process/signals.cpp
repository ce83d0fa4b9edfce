#include "Tovik/process/signals.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "Tovik/process/heartbeat_stream.h"
#include "Tovik/process/options.h"

namespace {

constexpr std::initializer_list<int> HANDLED_SIGNALS = {SIGINT, SIGHUP, SIGTERM, SIGALRM};

void (*stopSignalAction)() = nullptr;

sigset_t SignalSetOf(std::initializer_list<int> signals) {
  sigset_t signal_set;
  sigemptyset(&signal_set);
  for (const int signal : signals) sigaddset(&signal_set, signal);
  return signal_set;
}

void TakeSignal(const sigset_t& signal_set, int signal_seconds) {
  const timespec signal_limit{signal_seconds, 0};
  const int signal = sigtimedwait(&signal_set, nullptr, &signal_limit);
  if (signal > 0) handle_signal(signal);
}

}  // namespace

void BlockJobSignals() {
  sigset_t job_signals;
  sigemptyset(&job_signals);
  for (const int signal : {SIGCHLD, SIGTSTP, SIGTTOU, SIGTTIN}) sigaddset(&job_signals, signal);
  sigprocmask(SIG_BLOCK, &job_signals, nullptr);
}

void InstallEarlySignalHandler() {
  struct sigaction early_action {};
  early_action.sa_handler = signal_handler;
  sigemptyset(&early_action.sa_mask);
  for (const int signal : {SIGHUP, SIGTERM, SIGINT}) sigaction(signal, &early_action, nullptr);
}

void signal_handler(int /*sig*/) {}

void InstallSignalHandlers(void (*stop_action)()) {
  stopSignalAction = stop_action;
  const sigset_t handled_signals = SignalSetOf(HANDLED_SIGNALS);
  pthread_sigmask(SIG_BLOCK, &handled_signals, nullptr);
  struct sigaction signal_action {};
  signal_action.sa_handler = handle_signal;
  signal_action.sa_mask = handled_signals;
  signal_action.sa_flags = SA_RESTART;
  for (const int signal : HANDLED_SIGNALS) sigaction(signal, &signal_action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

void handle_signal(int sig) {
  switch (sig) {
    case SIGINT:
    case SIGTERM:
      stopSignalAction();
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

void SleepTakingSignal(int signal_seconds) {
  TakeSignal(SignalSetOf(HANDLED_SIGNALS), signal_seconds);
}

void DieBySigint(bool stopped) {
  const sigset_t sigint_alone = SignalSetOf({SIGINT});
  ::kill(::getpid(), SIGINT);
  if (stopped) {
    pthread_sigmask(SIG_UNBLOCK, &sigint_alone, nullptr);
  } else {
    TakeSignal(sigint_alone, 0);
  }
}
