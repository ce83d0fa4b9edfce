// The engine's result file of one day: comma-separated text, one recognition job a line, no header line and
// no quoting.
#ifndef TOVIK_CHECKS_RESULT_FILE_H
#define TOVIK_CHECKS_RESULT_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>

inline constexpr int RESULT_LINE = 4096;  // line buffer, terminator included

// One recognition job. A field that is missing or holds no number gives 0.
struct RESULT_LIST {
  int64_t recognition_time;  // ms
  int64_t response_time;     // ms
  float file_time;           // ms
  float xrt;                 // real-time factor
};

// No engine writes more lines a day than this. A longer file would only cost memory, 24 bytes a line.
inline constexpr int64_t MAX_RESULT_RECORDS = int64_t{1} << 24;

// Copies src up to the next sep or the end of the text into dst (RESULT_LINE bytes; what does not fit is
// dropped) and terminates it. A newline at the end of the copy is removed. Returns the position after the
// separator, or the end of the text when there was none.
char* GetNextString(char* src, char sep, char* dst);

// Reads a file into an array of count records, which the caller frees with FreeResultData. Lines are split as
// by fgets(3) with RESULT_LINE bytes and end at their first NUL byte. Numbers are read as by atoi(3) and
// atof(3); an integer out of int's range becomes the nearest int. Lines beyond count are not read, records
// without a line are zero. Returns null with errno on failure: that of open(2); EINVAL for a count below 0 or
// a path that is no regular file; EFBIG for a count above MAX_RESULT_RECORDS; ENOMEM.
RESULT_LIST* GetResultReadData(const char* path, int64_t count);
// Null is allowed.
void FreeResultData(RESULT_LIST* records);

struct ResultsRelease {
  void operator()(RESULT_LIST* records) const { FreeResultData(records); }
};
using UniqueResults = std::unique_ptr<RESULT_LIST, ResultsRelease>;

#endif
