// The stream for heartbeats (the file of option -l, else standard output) and for the "Debug:" lines of
// signals.
#ifndef TOVIK_PROCESS_HEARTBEAT_STREAM_H
#define TOVIK_PROCESS_HEARTBEAT_STREAM_H

#include <cstdio>

extern FILE* log_stream;  // null before OpenHeartbeatStream, and after CloseHeartbeatStream has closed a file

// Opens the file of option -l for append, or uses standard output.
void OpenHeartbeatStream();
// Closes the file of -l, if there is one.
void CloseHeartbeatStream();
// The name of the stream in syslog lines.
const char* HeartbeatStreamName();

// Writes "Debug: <text>".
void WriteDebugLine(const char* text);

#endif
