// The agent as a whole.
#ifndef TOVIK_AGENT_H
#define TOVIK_AGENT_H

// Runs the agent from its command line to its end. Returns the exit status: 0 or 1 for runs that only print
// or test, -1 for a start-up that failed. A started agent ends by SIGINT (see lifecycle.h).
int RunAgent(int argc, char** argv);

#endif
