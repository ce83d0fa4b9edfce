// Signals.
//
// SIGINT, SIGTERM, SIGHUP and SIGALRM are blocked in every thread, and taken by the main one while it sleeps
// between two heartbeats, by sigtimedwait(2). So handle_signal always runs on the main thread at a point
// where it holds nothing, and may do what a handler otherwise must not: join threads, free memory, write. A
// signal that comes during start-up waits for the first heartbeat; what start-up waits for is cut short by it
// (base::StopOnPendingSignal).
#ifndef TOVIK_PROCESS_SIGNALS_H
#define TOVIK_PROCESS_SIGNALS_H

// Blocks the signals and installs handle_signal; SIGPIPE is ignored. stop is what SIGINT and SIGTERM do.
void InstallSignalHandlers(void (*stop)());
void handle_signal(int sig);

// Sleeps until one of the four signals comes, at most so many seconds, and handles that one.
void SleepTakingSignal(int seconds);

// Sends SIGINT to this process and has it handled: by the stop where that has still to be run (of what else
// is pending nothing comes before it), else by the signal's default action, which ends the process.
void DieBySigint(bool stopped);

#endif
