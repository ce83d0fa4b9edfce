// The agent as a whole: its start as a table of steps, its stop as the same table backwards.
//
// A stop sets the exit flag and ends every sleep; exchanges under way get the grace of base/stoppable_wait.h;
// then each step that was taken is undone, the last one first: threads are joined before what they use is
// freed. The process ends itself with SIGINT at its default action. A heartbeat that cannot be written ends
// the main loop first, and the stop follows.
#ifndef TOVIK_AGENT_H
#define TOVIK_AGENT_H

// Runs the agent from its command line to its end. Returns the exit status, 0 or 1, of runs that only print
// or test. A start-up that fails ends the process with status -1. A started agent dies of SIGINT; the status
// is 0 when its heartbeat could not be written, and where SIGINT kills nobody, as in the first process of a
// container. No destructor of a static runs: other threads may live, such as one that looks a name up.
int RunAgent(int argc, char** argv);

#endif
