// Trace logging. Every diagnostic line of the agent takes one road: it is filtered by level, converted from
// code page 949 to UTF-8 (text that is UTF-8 already passes), echoed to standard output and appended to a
// file in a folder named by the date: MAIN.LOG, a file per channel, or the hang log. Each line opens and
// closes its file, so that files may be moved or removed at any time and no descriptor is kept.
//
// Any thread may trace. Settings are made before the threads start; setting the same value again later is
// allowed. Nothing here fails: a line that cannot be written is lost and the caller goes on.
#ifndef UTILS_DUNRASTTUTILS_H
#define UTILS_DUNRASTTUTILS_H

#include <atomic>
#include <string_view>

inline constexpr long TRACE_FATAL = 0;
inline constexpr long TRACE_ERROR = 1;
inline constexpr long TRACE_WARN = 2;
inline constexpr long TRACE_INFO = 3;
inline constexpr long TRACE_DEBUG = 4;
inline constexpr long TRACE_TRACE = 5;

inline constexpr char TRACE_ORDINARY = 'A';
inline constexpr char TRACE_HANG = 'H';
inline constexpr long TRACE_MAIN_CHANNEL = -1;

class DunraSTTUtils {
 public:
  DunraSTTUtils();

  // One line. The message is formatted (99,999 bytes at most) and may hold any bytes; one that is neither
  // UTF-8 nor convertible is written with a '?' for each byte of 0x80 and above. save 0 writes no ordinary
  // line to a file. Use DUNRA_TRACE, which tests the level before anything is evaluated.
  [[gnu::format(printf, 8, 9)]] static void LogTrace(char type, long level, long channel, long save,
                                                     const char* file, const char* function, int line,
                                                     const char* format, ...);
  // Whether a line of this level passes the filter: 0 up to the level that is set.
  static bool LevelPasses(long level) {
    return level >= 0 && level <= mDunraSTTLogLvl.load(std::memory_order_relaxed);
  }

  // Folders of the trace logs and of the hang log, as a prefix (so with a closing "/"); 4,095 bytes are kept.
  // A shorter text set over a longer one leaves the old one's tail.
  static void SetPath(const char* path);
  static const char* GetPath();
  static void SetHangPath(const char* path);
  static const char* GetHangPath();
  static void SetLogLevel(long level);
  static long GetLogLevel();
  static void SetLogHostnameFlag(long flag);
  static long GetLogHostnameFlag();

  // Makes every folder of a path ("/" or "\" between) and sets the mode of the last to 0755; prints
  // "path: %s\n" when that fails. Always 0. Paths of 4,095 bytes or more are cut.
  static int MakeFolders(const char* path);
  // As strncpy(dst, src, len): exactly len characters, zeros behind a shorter src, no terminator when src is
  // at least that long. size is ignored.
  static void StrNCopy(char* dst, unsigned size, const char* src, unsigned len);
  // strcat(dst, src); size is ignored. Returns dst.
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

// The same for the agent's own lines: a lambda, whose name is "operator()", is no place that a reader finds.
#define DUNRA_NAMED_TRACE(...)                                                                \
  do {                                                                                        \
    static_assert(std::string_view(__func__) != "operator()", "trace from a named function"); \
    DUNRA_TRACE(__VA_ARGS__);                                                                 \
  } while (false)

#endif
