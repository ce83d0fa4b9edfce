// How long one cycle of a timer may take before its thread counts as hung: what the configuration has it
// pause, and what its peers may take at most. The one table of the latter.
#ifndef TOVIK_TIMERS_TIMER_BUDGETS_H
#define TOVIK_TIMERS_TIMER_BUDGETS_H

#include <cstdint>

// Seconds, for the timer of this id; 0 for none. patience: that many for all peers of a cycle together at
// most, 0 without such a limit.
int64_t CycleBudget(uint32_t timer_id, int64_t patience);

#endif
