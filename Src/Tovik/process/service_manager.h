// The service manager that started the agent and wants to hear from it: sd_notify(3)'s protocol, a datagram
// of "NAME=value" for each message. Without NOTIFY_SOCKET in the environment nothing here does anything.
#ifndef TOVIK_PROCESS_SERVICE_MANAGER_H
#define TOVIK_PROCESS_SERVICE_MANAGER_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cstdint>
#include <string>

// Takes NOTIFY_SOCKET, WATCHDOG_USEC, WATCHDOG_PID and DUNRASTT_PATIENCE out of the environment: no child is
// to speak in the agent's name. Once, before the first thread and the first child.
void TakeServiceManager();

// Whether there is one.
bool HasServiceManager();
// Sends one message; a failure is traced. Blocks for a second at most. Keeps no descriptor. Any thread.
void TellServiceManager(const std::string& manager_message);

// Within how many milliseconds it wants a sign of life each time; 0: not at all.
int64_t ManagerWatchdogMilliseconds();
// DUNRASTT_PATIENCE: seconds that may be spent on peers at most (timers/timer_budgets.h); 0: no such limit.
int64_t ManagerPatienceSeconds();

// The address that a text stands for: an absolute path, or behind "@" an abstract name. Its length, 0 for a
// text that is neither or too long.
socklen_t NotifyAddress(const std::string& manager_socket, sockaddr_un* manager_address);
// The milliseconds that WATCHDOG_USEC (may be null) asks for, where WATCHDOG_PID (may be null) is this
// process.
int64_t ManagerWatchdogOf(const char* watchdog_usec, const char* watchdog_pid, pid_t own_pid);

#endif
