// The agent as a whole.
#ifndef TOVIK_AGENT_H
#define TOVIK_AGENT_H

// Runs the agent from its command line to its end. Returns the exit status: 0 or 1 for runs that only print
// or test, -1 for a start-up that failed. A started agent does not return (see EndProcess in lifecycle.h).
int RunAgent(int argc, char** argv);

#endif
