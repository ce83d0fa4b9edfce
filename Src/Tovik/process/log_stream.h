// The stream of the heartbeats and of the signals' "Debug:" lines.
#ifndef TOVIK_PROCESS_LOG_STREAM_H
#define TOVIK_PROCESS_LOG_STREAM_H

#include <cstdio>

extern FILE* log_stream;  // null before and after the agent's life

// The file given by -l, opened for append, else standard output.
void OpenLogStream();
void CloseLogStream();
// How syslog lines call it.
const char* LogStreamName();

// "Debug: <text>".
void WriteDebugLine(const char* text);

#endif
