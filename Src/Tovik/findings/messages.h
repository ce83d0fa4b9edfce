// The messages of the alarms whose text comes from the agent.
#ifndef TOVIK_FINDINGS_MESSAGES_H
#define TOVIK_FINDINGS_MESSAGES_H

#include <cstdint>
#include <string>

// For a dead engine. process is its name; the message has its encoding, code page 949.
std::string RestartMessage(const char* process);
// For a threshold that was reached. what is "Channel", "Memory" or "CPU"; figure and limit are in percent.
std::string OverMessage(const char* process, const char* what, int figure, int limit);
// Of an engine that hangs. verdict is the hang log's, how many times it was found in a row.
std::string HangMessage(const char* process, const char* verdict, int64_t times);

#endif
