// The engine's result file of one day: comma-separated text, one recognition job a line, no header line and
// no quoting.
#ifndef TOVIK_CHECKS_RESULT_FILE_H
#define TOVIK_CHECKS_RESULT_FILE_H

#include <cstddef>
#include <cstdint>

inline constexpr int RESULT_FIELDS = 24;  // of a line; what follows is dropped
inline constexpr int RESULT_LINE = 4096;  // line buffer, terminator included

// One recognition job. A field that is missing or holds no number gives 0.
struct RESULT_LIST {
  int64_t recognition_time;  // ms
  int64_t response_time;     // ms
  float file_time;           // ms
  float xrt;                 // real-time factor
};

// More lines than this a day are not the engine's: they would only cost memory (24 bytes a line).
inline constexpr int64_t MAX_RESULT_RECORDS = int64_t{1} << 24;

// Copies src up to the next sep or the end of the text into dst (RESULT_LINE bytes; what does not fit is
// dropped) and terminates it; a newline at the end of the copy goes. The position after the separator, or the
// end of the text when none followed.
char* GetNextString(char* src, char sep, char* dst);

// Reads a file into an array of count records, to be given to FreeResultData. Lines are taken as fgets(3)
// with RESULT_LINE bytes takes them and end at their first NUL byte; numbers as atoi(3) and atof(3) do, at
// the end of int's range when out of it. Lines beyond count are left, records without a line are zero. Null,
// with errno: that of open(2), EINVAL when the path is no regular file, ENOMEM without memory, and EFBIG for
// a count above MAX_RESULT_RECORDS (below 0: EINVAL).
RESULT_LIST* GetResultReadData(const char* path, int64_t count);
// Null is allowed.
void FreeResultData(RESULT_LIST* records);

#endif
