// Turns the process into a daemon.
#ifndef TOVIK_PROCESS_DAEMON_H
#define TOVIK_PROCESS_DAEMON_H

// Detaches from the terminal. The parent ends with status 0. The child goes on in its own session, with
// rundir (may be null) as working directory, the null device as descriptors 0 to 2, no other descriptor, and
// lockfile locked and containing its pid. The child ends with status 1 when it cannot get the lock. A process
// whose parent is already init does none of this. Call it before the agent has any thread or descriptor.
void daemonize(const char* rundir, const char* lockfile);

// With option -d calls daemonize, in the folder that PWD names, and makes the standard streams anew.
void DaemonizeIfGiven(const char* lockfile);

// Reports the end to syslog and releases the lock.
void daemonShutdown();

#endif
