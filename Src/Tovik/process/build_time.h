#ifndef TOVIK_PROCESS_BUILD_TIME_H
#define TOVIK_PROCESS_BUILD_TIME_H

#include <ctime>

// The moment of the build as the agent reports it: fixed, so that builds are reproducible.
time_t time_when_compiled();

#endif
