// The central check: does the engine run? If it does, its figures are compared with their thresholds
// (threshold_check.h). If not, an alarm is raised and the start script is run.
#ifndef TOVIK_CHECKS_PROCESS_CHECK_H
#define TOVIK_CHECKS_PROCESS_CHECK_H

// One check of the engine of PROC_NAME, and the pause of RESTART_CHECK_SEC seconds. For one thread.
void ProcessCycle();

// One check of the engine of this short process name. Returns 0 when it was found (or the search met a
// process without a name), 1 after a restart was tried. Blocks for one second, for the mails and posts of its
// alarms, and in case of a restart for the whole run of the start script and RESTART_CHECK_SEC seconds more.
// A stop cuts each.
int TovikProc(const char* name);

#endif
