// The daily report on the engine's result file: averages as an HTML table, by mail with the file attached
// and by webhook.
//
// The day of the last report is kept for RESULT_CATCH_UP, in a file: a report whose minute was missed is
// made later that day, and no report is made twice, even when the agent is restarted.
//
// The file is result.day in WATCH_PATH, with the host's name before it where log files have it. That folder
// is writable under the hardened profile too, survives a reboot, and is cleaned by last change only. The file
// holds the local date, as 20240131.
#ifndef TOVIK_CHECKS_RESULT_CHECK_H
#define TOVIK_CHECKS_RESULT_CHECK_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "Tovik/checks/result_file.h"

// One check and the pause of 61 seconds. For one thread.
void ResultCycle();

// Returns true when the text can be a time of day: it holds a ":".
bool IsResultTime(const char* resultTime);

// Makes the daily report when it is due. Call it about once a minute. Returns 1 when the report was made,
// whether or not it could be sent. Returns -1 when RESULT_TIME is another minute (traced); with
// RESULT_CATCH_UP, when that minute is still to come or today's report was made already. Also
// returns -1 when yesterday's result file cannot be opened, and, with a trace line, when it is no regular
// file, has more than MAX_RESULT_RECORDS lines or does not fit into memory. Blocks while the file is read and
// for the mail and the post.
int resultCheckProc();
// The same with a given moment as the present.
int ResultCheckAt(time_t resultCheckTime);

// Raises the alarm with a table of the averages over resultCount records; the mail carries the file at
// resultPath. Without records the table is an empty text. The table shows resultDate.
void GetResultShowData(const char* resultPath, int64_t resultCount, const RESULT_LIST* resultRecords,
                       const char* resultDate);

// How a local time compares with a configured time of day.
enum class ResultMoment { DUE, OTHER_HOUR, OTHER_MINUTE };
// resultTime is "HH:MM". A part that is missing or not a number counts as 0. A time like "25:00" is never
// due.
ResultMoment ResultMomentOf(const char* resultTime, const std::tm& resultLocal);

// Returns true when that minute of today has passed; never for a time like "25:00".
bool ResultTimePassed(const char* resultTime, const std::tm& resultLocal);

// The day that is reported: the local date of 86,400 seconds ago.
struct ResultDay {
  std::string path;  // of the result file
  std::string date;  // as the table shows it
};
// folder is a path prefix. host, when present, becomes part of the file's name, even if it is empty.
ResultDay ResultDayAt(time_t resultCheckTime, const char* folder, const std::optional<std::string>& host);

// Returns true when today's report should be made now; today then counts as done, even if the report fails.
// resultInTime: RESULT_TIME is this minute; otherwise it has passed. When the day cannot be written (traced),
// the report is made in its own minute only, so that it is not repeated in every later minute. For one
// thread.
bool TakeResultDay(bool resultInTime, const std::tm& resultLocal);

#endif
