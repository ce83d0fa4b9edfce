// Why the agent does not start, told to the administrator (notices/notices.h): the trace log is not open yet,
// or is not where he looks.
#ifndef TOVIK_PROCESS_START_NOTICES_H
#define TOVIK_PROCESS_START_NOTICES_H

#include <sys/types.h>

#include <string>

#include "sysinfo/process_names.h"

// The configuration could not be opened; error is its errno.
void TellNoConfiguration(int error);
// RESULT_TIME is no time of day.
void TellNoTimeOfDay();
// The process table has not exactly one process of the agent's name; own_pid is the agent's process id.
void TellNotAlone(const sysinfo::ProcessNames& processes, const char* agent_name, pid_t own_pid);
// A step of the start failed; error is errno.
void TellNoStart(const char* failed_step, int error);

// The other processes of that name, "812, 901".
std::string OtherAgents(const sysinfo::ProcessNames& processes, const char* agent_name, pid_t own_pid);

#endif
