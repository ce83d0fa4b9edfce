// The hang check: does the engine still accept clients? It writes its verdicts to the hang log and, with
// HANG_ALARM, raises an alarm. It kills and restarts nothing.
#ifndef TOVIK_CHECKS_HANG_CHECK_H
#define TOVIK_CHECKS_HANG_CHECK_H

#include <cstdint>

// One check and the pause. For one thread.
void HangCycle();

// The pause between two checks in seconds: hangTime, and 60 more when it is below 60.
int64_t HangPause(int64_t hangTime);

// Checks the process of this short name once. It must run under the pid of its PID file, and its port must
// accept a connection on the loopback address; no request is sent. With HANG_QUEUE its queue of connections
// must also not be too long in two checks in a row. This holds for HANG_SAVE 1: with any other value the
// engine counts as dead. Returns 1 when the process table could be read, whatever the verdict; otherwise 0,
// and the hang log gets no line. Blocks for one second, up to 5 seconds for the connection, and for the mail
// and the post of an alarm. For one thread.
int hangCheckProc(const char* name);

// What one check remembers for the next.
struct HangState {
  bool hangQueueWasOver = false;
  int64_t hangsInARow = 0;
};
// Returns true when more than limit connections wait now and did in the check before. With limit 0 it is
// never true.
bool QueueHangs(int64_t waiting, int64_t limit, HangState* hangs);
// Counts a verdict. Returns true when an alarm is due: after every `every` dead verdicts in a row, or never
// when that is 0.
bool HangAlarmDue(bool engineAlive, int64_t every, HangState* hangs);

#endif
