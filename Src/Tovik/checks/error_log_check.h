// Picks the lines of one minute out of the engine's error log and sends them as an alarm.
//
// grep(1) does the search: it is as fast as the disk and holds no more than a line in memory. It runs without
// a shell, so no character in a path is special. With LC_ALL=C and -a it also finds lines in code page 949
// and in logs with NUL bytes, and adds no text of its own. Its output goes to a file with a fixed name in the
// log folder, created for each search and removed after it.
#ifndef TOVIK_CHECKS_ERROR_LOG_CHECK_H
#define TOVIK_CHECKS_ERROR_LOG_CHECK_H

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>

inline constexpr int ERROR_TEXT = 81920;  // bytes of an alarm's text, terminator included

// One look at the clock, the check when it is due, and the pause of a second. For one thread.
void ErrorLogCycle();

// Decides when the check is due. The first look in a due minute arms it; later looks in that minute run it
// until it succeeds.
struct ErrorCheckState {
  int succeeded = 1;
  int lastMinute = -1;
};
// Returns true when the check should run now; the caller then puts its success into errorCheck->succeeded.
// minute is 0 to 59, period above 0.
bool ErrorCheckDue(int minute, int64_t period, ErrorCheckState* errorCheck);

// Searches the error log for the minute of 120 seconds ago and raises an alarm with the lines found. Returns
// 1 when there were lines, whether or not the alarm could be sent; -1 when there were none or the search
// failed (traced when grep could not be run). Blocks for the search, the mail and the post; a stop cuts each.
int errorCheckProc();
// The same with a given moment as the present.
int ErrorCheckAt(time_t errorCheckTime);

// Reads at most ERROR_TEXT - 1 bytes of a file into errorText (ERROR_TEXT bytes). The text ends at the first
// NUL byte; that of a longer file ends after its last whole character of code page 949. Returns the length of
// the text; 0, with a message on standard output, when the file cannot be opened or is a symbolic link.
int ReadTextFile(const char* path, char* errorText);

// The search of one check.
struct ErrorLogSearch {
  std::string pattern;   // of grep
  std::string errorLog;  // path of the engine's error log
  std::string extract;   // path of the lines found
  std::string command;   // the search as a shell command, for the trace
};
// The search to make at this moment. logFolder is a path prefix. host, when present, becomes part of the
// files' names, even if it is empty.
ErrorLogSearch ErrorLogSearchAt(time_t errorCheckTime, const char* logFolder,
                                const std::optional<std::string>& host);

// Runs a search and fills errorText (ERROR_TEXT bytes) with the lines found, cut as by ReadTextFile. Returns
// their length; 0 when there are none, when the file for them cannot be created (told on standard output),
// when grep could not be run (traced), or when a stop cut the search.
int FindErrorLines(const ErrorLogSearch& errorSearch, char* errorText);

// Traces the result of a check and returns true for a success, which is every result but 0. The line names
// errorCheckProc, and the result check traces the same line.
bool TraceErrorCheckOutcome(int errorCheckResult);

#endif
