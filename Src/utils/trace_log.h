// The trace log's files: where they are, and which settings their paths depend on. LogTrace (DunraSTTUtils.h)
// writes them.
#ifndef UTILS_TRACE_LOG_H
#define UTILS_TRACE_LOG_H

#include <cstddef>

#include "utils/trace_line.h"

namespace trace {

// Longer than any path that the kernel accepts, so a path that was cut never names another file.
inline constexpr size_t LOG_PATH_SIZE = 12'288;

// Adds "<logFolder>YYYYMMDD/".
void AddDatedLogFolder(TraceText* logPath, const char* logFolder, const TraceSecond& second);

// Adds the file name of an ordinary line ('A') or a hang line ('H'). It contains the host unless host is
// null.
void AddLogFileName(TraceText* logPath, char type, long channel, const TraceSecond& second, const char* host);

}  // namespace trace

#endif
