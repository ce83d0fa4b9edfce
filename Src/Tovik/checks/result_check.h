// The daily report on the engine's result file: averages as an HTML table, by mail with the file attached
// and by webhook.
#ifndef TOVIK_CHECKS_RESULT_CHECK_H
#define TOVIK_CHECKS_RESULT_CHECK_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "Tovik/checks/result_file.h"

// One check and the pause of 61 seconds. For one thread.
void ResultCycle();

// Whether RESULT_TIME is a time of day at all: it holds a ":".
bool IsTimeOfDay(const char* text);

// To be called about once a minute: 1 when the report was made in this minute, whether or not it could be
// sent; -1 when RESULT_TIME is another minute (traced; with RESULT_CATCH_UP: is yet to come, or this day's
// report was made, see result_day.h), or yesterday's result file cannot be opened, or is no regular file,
// longer than MAX_RESULT_RECORDS lines or too large for the memory (all three traced). Blocks while the file
// is read and for the mail and the post.
int resultCheckProc();
// The same for a given moment.
int ResultCheckAt(time_t now);

// Makes the table of the averages over count records and sends it with the file at path; without a record
// the table is empty. date goes into the table.
void GetResultShowData(const char* path, int64_t count, const RESULT_LIST* records, const char* date);

// How a local time stands to a configured time of day.
enum class ResultMoment { DUE, OTHER_HOUR, OTHER_MINUTE };
// timeOfDay is "HH:MM"; a part that is missing or no number is 0, one outside the clock never comes.
ResultMoment ResultMomentOf(const char* timeOfDay, const std::tm& local);

// Whether that minute of this day is over; never for one outside the clock.
bool TimeHasPassed(const char* timeOfDay, const std::tm& local);

// The day that is reported: the one of 86,400 seconds ago, local time.
struct ResultDay {
  std::string path;  // of the result file
  std::string date;  // as the table shows it
};
// folder is a prefix; host is in the file's name when there is one, an empty one too.
ResultDay ResultDayAt(time_t now, const char* folder, const std::optional<std::string>& host);

#endif
