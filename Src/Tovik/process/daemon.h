// Turning the process into a daemon.
#ifndef TOVIK_PROCESS_DAEMON_H
#define TOVIK_PROCESS_DAEMON_H

// Installed between daemonize and the agent's own handlers: a stop signal of that time is lost.
void signal_handler(int sig);

// Detaches from the terminal: the parent ends with status 0 and a child goes on in a session of its own, with
// rundir (may be null) as working directory, the null device as 0 to 2, no other descriptor, and lockfile
// locked and holding its pid. The child ends with status 1 when the lock cannot be had. A process whose
// parent is init already does nothing of this. To be called before any thread and descriptor of the agent.
void daemonize(const char* rundir, const char* lockfile);

// Says good-bye to syslog and gives the lock up.
void daemonShutdown();

#endif
