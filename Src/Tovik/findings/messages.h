// The messages of the alarms that the agent words itself.
#ifndef TOVIK_FINDINGS_MESSAGES_H
#define TOVIK_FINDINGS_MESSAGES_H

#include <string>

// Of a dead engine. process is its name, in code page 949.
std::string RestartMessage(const char* process);
// Of a threshold that was reached. what is "Channel", "Memory" or "CPU"; figures in percent.
std::string OverMessage(const char* process, const char* what, int figure, int limit);

#endif
