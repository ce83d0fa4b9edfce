// The agent's timers: one thread per enabled check.
//
// Every timer thread runs send_timer, which repeats its check's cycle until the agent stops: the check, its
// trace line, the pause. A check that fails is traced and stops nothing. All waits are cut by a stop, so a
// thread ends as soon as the exchange that it is in.
#ifndef TOVIK_TIMERS_TIMERS_H
#define TOVIK_TIMERS_TIMERS_H

// Starts, in the table's order, each enabled timer that does not run yet, unless a stop signal is
// pending. False once one cannot be created (or the result check has no time of day), which is traced.
[[nodiscard]] bool StartTimerThreads();
// Waits for the end of every timer that was started.
void JoinTimerThreads();

// A timer thread's body; the argument points to its id (uint32_t), which must outlive it. Ends, with 1, on
// gSvcManageThrdExit.
void* send_timer(void* argument);

#endif
