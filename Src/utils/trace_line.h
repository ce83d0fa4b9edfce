// What a trace line and its file are made of: functions of texts and of a moment.
#ifndef UTILS_TRACE_LINE_H
#define UTILS_TRACE_LINE_H

#include <ctime>
#include <string>
#include <string_view>

namespace trace {

// A moment in local time.
struct Moment {
  std::tm local;
  long nanoseconds;
};

// Where a line was traced.
struct Place {
  const char* file;
  const char* function;
  int line;
};

// "FATAL" to "TRACE" for the levels 0 to 5, empty for any other.
const char* LevelTag(long level);

// The message in UTF-8: as it is when it is valid, else converted from code page 949, else with a '?' for
// each byte of 0x80 and above.
std::string ToUtf8(std::string message);

// The lines, "\n" included. The message is cut to 100,000 bytes in the first and to 4,000 in the second.
std::string OrdinaryLine(const Moment& moment, long level, long channel, const Place& place,
                         std::string_view message);
std::string HangLine(const Moment& moment, std::string_view message);

// The text that printf would make of a line that is its own format and has no arguments: "%%" becomes "%",
// and every other conversion stands as it is, since there is nothing that it could print.
std::string AsPrintFormat(std::string_view line);

// "<folder>YYYYMMDD/".
std::string DatedFolder(const char* folder, const std::tm& local);

// The file of a line; empty for a type that has none. An empty host leaves the host name out only when
// withHost is false.
std::string FileName(char type, long channel, std::string datedFolder, const std::tm& local, bool withHost,
                     const std::string& host);

}  // namespace trace

#endif
