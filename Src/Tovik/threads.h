// The agent's long-lived threads: the management thread and one timer thread per enabled check.
//
// Every timer thread runs send_timer, which repeats its id's cycle until the agent stops: the check, its
// trace line, the pause. A check that fails is traced and stops nothing. All waits are cut by a stop, so a
// thread ends as soon as the exchange that it is in.
#ifndef TOVIK_THREADS_H
#define TOVIK_THREADS_H

#include "base/thread.h"

extern base::Thread hManageThread;
extern base::Thread hTimerThread1;  // process supervision
extern base::Thread hTimerThread2;  // channel status
extern base::Thread hTimerThread4;  // hang check
extern base::Thread hTimerThread5;  // result check
extern base::Thread hTimerThread6;  // error-log check
extern base::Thread hTimerThread7;  // recipient files

// Start the threads; 1, or -1 once one cannot be created (or the result check has no time of day), which is
// traced.
int StartManageThread();
int StartTimerThreads();

// A timer thread's body; the argument points to its id, which must outlive it. Ends, with 1, on
// gSvcManageThrdExit.
void* send_timer(void* argument);

// Asks for a channel-status report when the engine has answered once.
void send_time_proc();

#endif
