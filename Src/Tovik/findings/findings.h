// The one call that reports what was found (finding_table.h): to the management servers, then by mail, then
// by webhook.
#ifndef TOVIK_FINDINGS_FINDINGS_H
#define TOVIK_FINDINGS_FINDINGS_H

#include <cstdint>
#include <string>

#include "Tovik/alarms/alarm.h"
#include "Tovik/findings/finding_table.h"

// Something found just now. Texts are in code page 949 and borrowed for the call.
struct Found {
  Finding finding;
  const char* process = "";  // the engine's name, in the finding's messages
  const char* message = "";
  const char* attachment = nullptr;  // path of a file for the finding's mail
};

// The alarm for people. Its title is "[ <host's IP> ] <process> <subject>", cut to 1,023 bytes.
Alarm AlarmOf(const Found& found);

// Reports what was found on each channel that its row has and the configuration switches on. Mail and post go
// out on the caller's thread, which waits for them. Each is followed by its trace line, sent or not.
void Raise(const Found& found);

// The messages whose text comes from the agent.
//
// For a dead engine. found_process is its name; the message has its encoding, code page 949.
std::string RestartMessage(const char* found_process);
// For a threshold that was reached. found_what is "Channel", "Memory" or "CPU"; found_figure and limit
// are in percent.
std::string OverMessage(const char* found_process, const char* found_what, int found_figure, int limit);
// Of an engine that hangs. found_verdict is the hang log's, found_times how often in a row it was found.
std::string HangMessage(const char* found_process, const char* found_verdict, int64_t found_times);

#endif
