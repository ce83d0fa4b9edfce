// What a service manager hears of a running agent (process/service_manager.h): that it is ready, in words how
// things stand whenever that changes, and as its sign of life that every timer moves.
//
// A thread of its own tells it, as the main one may wait for the engine. Without a service manager there is
// none.
#ifndef TOVIK_TIMERS_LIFELINE_H
#define TOVIK_TIMERS_LIFELINE_H

// To be called once the timers run. False when its thread cannot be created, which is traced.
[[nodiscard]] bool StartLifeline();
// Waits for the thread, which a stop ends.
void JoinLifeline();

#endif
