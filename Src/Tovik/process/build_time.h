#ifndef TOVIK_PROCESS_BUILD_TIME_H
#define TOVIK_PROCESS_BUILD_TIME_H

#include <ctime>

// The time of the build as the agent reports it. It is a constant, so that builds are reproducible.
time_t time_when_compiled();

#endif
