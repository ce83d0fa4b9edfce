#include "Tovik/checks/average_table.h"

#include <cinttypes>
#include <cstdio>

// Mail readers drop style sheets and most styles of a row, so every cell has its own style. Borders are not
// collapsed: the headers' border would hide the coloured one of the values.
#define CELL_STYLE                                                                               \
  "box-sizing:border-box;height:50px;padding:14px 15px;text-align:center;vertical-align:middle;" \
  "font-family:sans-serif;font-size:13px;line-height:20px;letter-spacing:-1px;color:#333;"       \
  "background-color:#fff;border-left:0;border-right:0;border-bottom:1px solid #eee;"
#define ROW "<tr style='width:100%%;height:50px;color:#333;background-color:#fff;'>"
#define TITLE(text) "<td colspan='5' style='" CELL_STYLE "'>" text "</td>"
#define HEADER(width, text) "<th style='" CELL_STYLE "width:" width ";font-weight:bold;'>" text "</th>"
#define VALUE(more, text) "<td style='" CELL_STYLE "border-top:1px solid #00a1b9;" more "'>" text "</td>"

// In code page 949.
#define CELL_AVERAGE "\xC6\xF2\xB1\xD5"
#define CELL_TOTAL_COUNT "\xC0\xFC\xC3\xBC \xB0\xC7\xBC\xF6"
#define CELL_FILE_TIME "\xC6\xC4\xC0\xCF \xBD\xC3\xB0\xA3"
#define CELL_RECOGNITION_TIME "\xC0\xCE\xBD\xC4 \xBD\xC3\xB0\xA3"
#define CELL_RESPONSE_TIME "\xC0\xC0\xB4\xE4 \xBD\xC3\xB0\xA3"
#define CELL_ITEMS "\xB0\xC7"

// clang-format off
#define TABLE_FORMAT                                                                                   \
  "<table cellspacing='0' cellpadding='0' style='border-collapse:separate;border-spacing:0;"           \
  "border-top:1px solid #dcdcdc;border-bottom:1px solid #dcdcdc;border-left:0;border-right:0;'>"       \
  ROW TITLE("[%s] / [" CELL_AVERAGE "]") "</tr>"                                                       \
  ROW HEADER("140px", CELL_TOTAL_COUNT)                                                                \
      HEADER("140px", "xRT")                                                                           \
      HEADER("160px", CELL_FILE_TIME "(ms)")                                                           \
      HEADER("160px", CELL_RECOGNITION_TIME "(ms)")                                                    \
      HEADER("160px", CELL_RESPONSE_TIME "(ms)") "</tr>"                                               \
  ROW VALUE("", "%" PRId64 CELL_ITEMS)                                                                 \
      VALUE("", "%.2f xRT")                                                                            \
      VALUE("", "%.2f ms")                                                                             \
      VALUE("font-weight:500;", "%.2f ms")                                                             \
      VALUE("font-weight:500;", "%.2f ms") "</tr>"                                                     \
  "</table>"
// clang-format on

ResultAverages AverageOf(const RESULT_LIST* records, int64_t count) {
  ResultAverages averageSum = {};
  for (int64_t i = 0; i < count; ++i) {
    averageSum.xrt += static_cast<double>(records[i].xrt);
    averageSum.file_time += static_cast<double>(records[i].file_time);
    averageSum.recognition_time += static_cast<double>(records[i].recognition_time);
    averageSum.response_time += static_cast<double>(records[i].response_time);
  }
  const auto averagedJobs = static_cast<double>(count);
  return {averageSum.xrt / averagedJobs, averageSum.file_time / averagedJobs,
          averageSum.recognition_time / averagedJobs, averageSum.response_time / averagedJobs};
}

void FormatAverageTable(const char* date, int64_t count, const ResultAverages& averages, char* averageTable) {
  std::snprintf(averageTable, AVERAGE_TABLE_SIZE, TABLE_FORMAT, date, count, averages.xrt, averages.file_time,
                averages.recognition_time, averages.response_time);
}
