// The messages of the alarms that the agent words itself.
#ifndef TOVIK_FINDINGS_MESSAGES_H
#define TOVIK_FINDINGS_MESSAGES_H

#include <cstdint>
#include <string>

// Of a dead engine. process is its name, in code page 949.
std::string RestartMessage(const char* process);
// Of a threshold that was reached. what is "Channel", "Memory" or "CPU"; figures in percent.
std::string OverMessage(const char* process, const char* what, int figure, int limit);
// Of an engine that hangs. verdict is the hang log's, how many times it was found in a row.
std::string HangMessage(const char* process, const char* verdict, int64_t times);

#endif
