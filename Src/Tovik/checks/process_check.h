// The central check: is the engine alive? If it is, its figures are compared with their thresholds
// (thresholds.h); if not, an alarm is raised and its start script run.
#ifndef TOVIK_CHECKS_PROCESS_CHECK_H
#define TOVIK_CHECKS_PROCESS_CHECK_H

// One tick for the engine of PROC_NAME, and the pause of RESTART_CHECK_SEC seconds. For one thread.
void ProcessCycle();

// One tick for the engine of this short process name. 0 when it was found (or the search ended at a process
// without a name), 1 after a restart was tried. Blocks for the second between two snapshots, for the mails
// and posts of its alarms, and after a restart for RESTART_CHECK_SEC seconds.
int TovikProc(const char* name);

#endif
