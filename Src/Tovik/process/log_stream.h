// The stream for heartbeats and for the "Debug:" lines of signals.
#ifndef TOVIK_PROCESS_LOG_STREAM_H
#define TOVIK_PROCESS_LOG_STREAM_H

#include <cstdio>

extern FILE* log_stream;  // null before OpenLogStream, and after CloseLogStream has closed a file

// Opens the file of option -l for append, or uses standard output.
void OpenLogStream();
// Closes the file of -l, if there is one.
void CloseLogStream();
// The name of the stream in syslog lines.
const char* LogStreamName();

// Writes "Debug: <text>".
void WriteDebugLine(const char* text);

#endif
