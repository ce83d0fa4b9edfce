// Signal handling.
//
// SIGINT, SIGTERM, SIGHUP and SIGALRM are blocked in every thread. The main thread accepts them with
// sigtimedwait(2) while it sleeps between two heartbeats. So handle_signal always runs on the main thread, at
// a point where it holds no lock, and may do what a signal handler must not: join threads, free memory,
// write. A signal that arrives during start-up waits for the first heartbeat, and cuts the waits of start-up
// short (base::WaitsEndOnSignal).
#ifndef TOVIK_PROCESS_SIGNALS_H
#define TOVIK_PROCESS_SIGNALS_H

// For a daemon in the making: blocks the signals of children and of the terminal.
void BlockJobSignals();
// For the same, until InstallSignalHandlers. A stop signal that arrives in this time is lost.
void InstallEarlySignalHandler();
void signal_handler(int sig);

// Blocks the signals, installs handle_signal and ignores SIGPIPE. SIGINT and SIGTERM call stop.
void InstallSignalHandlers(void (*stop_action)());
void handle_signal(int sig);

// Sleeps until one of the four signals arrives, at most for so many seconds, and handles that one.
void SleepTakingSignal(int seconds);

// Sends SIGINT to this process. If the stop has not run yet, SIGINT is handled at once, before any other
// pending signal, and runs it. After the stop (stopped is true) the signal's default action ends the process.
void DieBySigint(bool stopped);

#endif
