// Trace logging. Every diagnostic line of the agent is filtered by level, converted from code page 949 to
// UTF-8 (valid UTF-8 stays as it is), echoed to standard output, and appended to a file in a folder named by
// the date: MAIN.LOG, one file per channel, or the hang log. The file is opened and closed for each line. So
// log files may be moved or removed at any time, and no descriptor stays open.
//
// Any thread may trace. Change the settings before the threads start; setting the same value again later is
// allowed. Tracing never fails: a line that cannot be written is lost.
#ifndef UTILS_TRACE_LOG_H
#define UTILS_TRACE_LOG_H

#include <atomic>
#include <cstddef>
#include <string_view>

#include "utils/trace_line.h"

namespace trace {

// The number of changes of the settings below that the path of a log file depends on.
inline std::atomic<unsigned> logSettings{0};

// Longer than any path that the kernel accepts, so a path that was cut never names another file.
inline constexpr size_t LOG_PATH_SIZE = 12'288;

// Adds "<logFolder>YYYYMMDD/".
void AddDatedLogFolder(TraceText* logPath, const char* logFolder, const TraceSecond& second);

// Adds the file name of an ordinary line ('A') or a hang line ('H'). It contains the host unless host is
// null.
void AddLogFileName(TraceText* logPath, char type, long channel, const TraceSecond& second, const char* host);

}  // namespace trace

class DunraSTTUtils {
 public:
  DunraSTTUtils();

  // Writes one line. The message is formatted, to 99,999 bytes at most, and may contain any bytes. If it is
  // neither UTF-8 nor convertible, each byte of 0x80 and above becomes '?'. With save 0 an ordinary line goes
  // to no file. Use DUNRA_TRACE, which tests the level before it evaluates the arguments.
  [[gnu::format(printf, 8, 9)]] static void LogTrace(char type, long level, long channel, long save,
                                                     const char* file, const char* function, int line,
                                                     const char* format, ...);
  // Whether a line of this level passes the filter: levels 0 up to the one that is set.
  static bool LevelPasses(long level) {
    return level >= 0 && level <= mDunraSTTLogLvl.load(std::memory_order_relaxed);
  }

  // The folders of the trace logs and of the hang log, used as a prefix: they must end in "/". At most 4,095
  // bytes are kept. A shorter text leaves the rest of a longer one behind it.
  static void SetPath(const char* logFolder);
  static const char* GetPath();
  static void SetHangPath(const char* hangLogFolder);
  static const char* GetHangPath();
  static void SetLogLevel(long level);
  static long GetLogLevel() { return mDunraSTTLogLvl; }
  static void SetLogHostnameFlag(long flag);
  static long GetLogHostnameFlag() { return mDunraSTTLogHostFlag; }

  // Creates every folder of a path (separated by "/" or "\") and sets the mode of the last one to 0755.
  // Prints "path: %s\n" when the mode cannot be set. Always returns 0. A path of 4,096 bytes or more is cut
  // to 4,095.
  static int MakeFolders(const char* folderPath);
  // Copies len characters as strncpy(dst, src, len) does: zeros follow a shorter src, and there is no
  // terminator when src has len characters or more. size is ignored.
  static void StrNCopy(char* dst, unsigned size, const char* src, unsigned len);
  // Appends as strcat(dst, src) does and returns dst. size is ignored.
  static char* StrCate(char* dst, unsigned size, const char* src);

 private:
  static char mDunraSTTPath[4096];
  static char mDunraHangPath[4096];
  static std::atomic<long> mDunraSTTLogLvl;
  static std::atomic<long> mDunraSTTLogHostFlag;
};

#define DUNRA_TRACE(type, level, channel, save, ...)                                                    \
  do {                                                                                                  \
    if (DunraSTTUtils::LevelPasses(level))                                                              \
      DunraSTTUtils::LogTrace(type, level, channel, save, __FILE__, static_cast<const char*>(__func__), \
                              __LINE__, __VA_ARGS__);                                                   \
  } while (false)

// DUNRA_TRACE for the agent's own lines. It refuses lambdas: a line that names "operator()" as its function
// shows nobody where it came from.
#define DUNRA_NAMED_TRACE(...)                                                                \
  do {                                                                                        \
    static_assert(std::string_view(__func__) != "operator()", "trace from a named function"); \
    DUNRA_TRACE(__VA_ARGS__);                                                                 \
  } while (false)

#endif
