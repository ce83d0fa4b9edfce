// The engine's result file of one day: comma-separated text, one recognition job a line, no header line and
// no quoting.
#ifndef TOVIK_CHECKS_RESULT_READER_H
#define TOVIK_CHECKS_RESULT_READER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr int RESULT_TEXTS = 5;
inline constexpr int RESULT_FIELDS = 24;  // of a line; what follows is dropped
inline constexpr int RESULT_LINE = 4096;  // line buffer, terminator included

// One recognition job. A field that is missing or holds no number gives 0.
struct RESULT_LIST {
  int64_t recognition_time;        // ms
  int64_t response_time;           // ms
  float file_time;                 // ms
  float xrt;                       // real-time factor
  const char* texts;               // fields 3, 5, 7, 9 and 11, end to end and without terminators
  uint16_t lengths[RESULT_TEXTS];  // bytes of each
};

// Text 0..4 of a record; valid as long as its array.
std::string_view ResultText(const RESULT_LIST& record, int index);

// More lines than this a day are not the engine's: they would only cost memory (48 bytes a line).
inline constexpr int64_t MAX_RESULT_RECORDS = int64_t{1} << 24;
// All texts of a file together; the texts of the lines beyond stay empty, their times are read.
inline constexpr size_t MAX_RESULT_TEXTS = size_t{192} << 20;

// Copies src up to the next sep or the end of the text into dst (RESULT_LINE bytes; what does not fit is
// dropped) and terminates it; a newline at the end of the copy goes. The position after the separator, or the
// end of the text when none followed.
char* GetNextString(char* src, char sep, char* dst);

// Reads a file into an array of count records, to be given to FreeResultData. Lines are taken as fgets(3)
// with RESULT_LINE bytes takes them and end at their first NUL byte; numbers as atoi(3) and atof(3) do, at
// the end of int's range when out of it. Lines beyond count are left, records without a line are zero. Null,
// with errno: that of open(2), EINVAL when the path is no regular file, ENOMEM without memory, and EFBIG for
// a count above MAX_RESULT_RECORDS (below 0: EINVAL).
RESULT_LIST* GetResultReadData(const char* path, int64_t count, size_t maxTexts = MAX_RESULT_TEXTS);
// Null is allowed.
void FreeResultData(RESULT_LIST* records);

#endif
