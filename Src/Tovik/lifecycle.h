// The agent's life between start-up and end: signals, heartbeat, stop.
//
// SIGINT, SIGTERM, SIGHUP and SIGALRM are blocked in every thread, and taken by the main one while it sleeps
// between two heartbeats, by sigtimedwait(2). So handle_signal always runs on the main thread at a point
// where it holds nothing, and may do what a handler otherwise must not: join threads, free memory, write. A
// signal that comes during start-up waits for the first heartbeat; what start-up waits for is cut short by it
// (base::StopOnPendingSignal).
//
// The stop: the exit flag is set and every sleep ends; exchanges under way get the grace of base/stop.h; the
// threads are joined, what they used is freed, the main loop ends, and the process ends itself with SIGINT at
// its default action. A heartbeat that cannot be written ends the main loop first, and the stop follows.
#ifndef TOVIK_LIFECYCLE_H
#define TOVIK_LIFECYCLE_H

#include <cstdio>
#include <string>

#include "Tovik/options.h"

extern const char* app_name;  // the program's path
extern FILE* log_stream;      // heartbeats and "Debug:" lines; null before and after the agent's life
extern int counter;           // of heartbeats
extern volatile int running;  // 1 while the main loop runs

// Takes over the names that the command line gave.
void KeepOptions(const Options& options);

// Blocks the signals and installs handle_signal; SIGPIPE is ignored.
void InstallSignalHandlers();
void handle_signal(int sig);

// The file given by -l, opened for append, else standard output.
void OpenLogStream();

// Only proves that the configuration file can still be read, with a line to syslog. 0 when no file was given,
// else -1.
int read_conf_file(int reload);

// Writes heartbeats until the stop, or until one cannot be written. Stop signals are taken here.
void MainLoop();

// What follows the main loop, whatever signals are pending: syslog hears of the end, the daemon's lock is
// given up, and the process sends itself SIGINT. After a stop it dies of that. After a heartbeat that could
// not be written that signal runs the stop, and the status is 0; it is 0 too where SIGINT kills nobody, as in
// the first process of a container. No destructor of a static runs: a look-up of a name may be left behind on
// its thread.
[[noreturn]] void EndProcess();

#endif
