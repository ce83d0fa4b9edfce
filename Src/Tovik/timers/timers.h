// The agent's timers: one thread for each enabled check.
//
// Each timer thread runs send_timer, which repeats the check's cycle (check, trace line, pause) until the
// agent stops. A check that fails is traced and stops nothing. A stop cuts all waits, so a thread ends as
// soon as its present exchange does.
#ifndef TOVIK_TIMERS_TIMERS_H
#define TOVIK_TIMERS_TIMERS_H

// Starts each enabled timer that is not running yet, in the order of the table, unless a stop signal is
// pending. Returns false, after a trace line, as soon as one cannot be created or the result check has no
// valid time of day.
[[nodiscard]] bool StartTimerThreads();
// Waits until every started timer has ended.
void JoinTimerThreads();

// The name of a timer whose cycle takes longer than it may (timer_budgets.h); null when each of those that
// run moves. Any thread.
const char* StuckTimer();

// The body of a timer thread. timer_id points to the timer's id (uint32_t), which must outlive the thread.
// Ends on gSvcManageThrdExit and returns 1.
void* send_timer(void* timer_id);

#endif
