// The hang check: does the engine still accept clients? It records in the hang log and, with HANG_ALARM,
// tells people; nothing is killed or restarted.
#ifndef TOVIK_CHECKS_HANG_CHECK_H
#define TOVIK_CHECKS_HANG_CHECK_H

#include <cstdint>

// One check and the pause. For one thread.
void HangCycle();

// Seconds between two checks: short periods get a minute more.
int64_t HangPause(int64_t hangTime);

// One check of the process of this short name: it must run under the pid of its pid file, and, when HANG_SAVE
// is 1, a connection to its port on the loopback address must come about; that is all the proof there is, no
// request is sent. With HANG_QUEUE its queue of connections must not be found too long twice in a row either.
// Any other HANG_SAVE counts it as dead. 1 when the process table could be read, whatever the verdict; 0,
// without a line in the hang log, when not. Blocks for a second and for the 5 seconds that a connection may
// take, and for the mail and the post of an alarm. For one thread.
int hangCheckProc(const char* name);

// What one check has to remember for the next.
struct HangState {
  bool queueWasOver = false;
  int64_t deadInARow = 0;
};
// Whether so many connections wait that the engine counts as hung: more than limit in this probe and in the
// one before. A limit of 0 is none.
bool QueueHangs(int64_t waiting, int64_t limit, HangState* state);
// Counts a verdict; true when people are to be told: after each `every` deaths in a row. 0 is never.
bool HangAlarmDue(bool alive, int64_t every, HangState* state);

#endif
