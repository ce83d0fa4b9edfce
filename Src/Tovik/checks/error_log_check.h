// Picks the lines of one minute out of the engine's error log and sends them as an alarm.
//
// The search is left to grep(1), which is as fast as the disk and holds no more than a line in memory. It is
// run without a shell, so a path is a path whatever is in it, and with LC_ALL=C and -a, so lines in code page
// 949 and lines of a log with NUL bytes are found and no word of grep's own gets among them. Its output goes
// to a file of a fixed name in the log folder, which is made anew for every search and gone after it.
#ifndef TOVIK_CHECKS_ERROR_LOG_CHECK_H
#define TOVIK_CHECKS_ERROR_LOG_CHECK_H

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>

inline constexpr int ERROR_TEXT = 81920;  // bytes of an alarm's text, terminator included

// One look at the clock, the check when it is due, and the pause of a second. For one thread.
void ErrorLogCycle();

// When the check is due: the first second of a due minute arms it, the later ones run it until it succeeds.
struct ErrorCheckState {
  int succeeded = 1;
  int lastMinute = -1;
};
// True when the check is to be run now; its success goes into state->succeeded. minute 0 to 59, period above
// 0.
bool ErrorCheckDue(int minute, int64_t period, ErrorCheckState* state);

// 1 when the minute that began two minutes ago has error lines; they were sent, with whatever success. -1
// without such lines, or when they could not be searched for (traced when grep could not be run). Blocks for
// the search, the mail and the post; a stop cuts each.
int errorCheckProc();
// The same for a given moment.
int ErrorCheckAt(time_t now);

// Reads a text of at most ERROR_TEXT - 1 bytes into out (ERROR_TEXT bytes); it ends at the first NUL byte,
// and where the file is longer, behind the last whole character of code page 949. The length of the text; 0,
// with a message on standard output, when the file cannot be opened or is a symbolic link.
int ReadTextFile(const char* path, char* out);

// The search of one check.
struct ErrorLogSearch {
  std::string pattern;  // of grep
  std::string log;      // path of the engine's error log
  std::string extract;  // path of the lines found
  std::string command;  // the search as a shell would be told it
};
// The one of now. folder is a prefix; host is in the files' names when there is one, an empty one too.
ErrorLogSearch ErrorLogSearchAt(time_t now, const char* folder, const std::optional<std::string>& host);

// Runs a search and fills out (ERROR_TEXT bytes) with the lines found, cut as by ReadTextFile. Their length,
// 0 without any, when grep could not be run (traced), or when a stop cut it.
int FindErrorLines(const ErrorLogSearch& search, char* out);

#endif
