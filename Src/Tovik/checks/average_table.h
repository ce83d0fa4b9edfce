// The averages of a day's recognition jobs and the HTML table that shows them.
#ifndef TOVIK_CHECKS_AVERAGE_TABLE_H
#define TOVIK_CHECKS_AVERAGE_TABLE_H

#include <cstdint>

#include "Tovik/checks/result_file.h"

inline constexpr int AVERAGE_TABLE_SIZE = 4096;  // bytes, terminator included

// One value that is infinite or NaN makes the average infinite or NaN.
struct ResultAverages {
  double xrt;               // average real-time factor
  double file_time;         // average, ms
  double recognition_time;  // average, ms
  double response_time;     // average, ms
};

// Over the first count records, count above 0.
ResultAverages AverageOf(const RESULT_LIST* records, int64_t count);

// Formats the table into averageTable (AVERAGE_TABLE_SIZE bytes), in code page 949. The table fits for all
// averages of records and dates of up to 64 bytes. It holds no double quote, backslash or
// line break, so it may stand inside a JSON text.
void FormatAverageTable(const char* date, int64_t count, const ResultAverages& averages, char* averageTable);

#endif
