// The day of the last report, for RESULT_CATCH_UP. It is kept in a file: a report whose minute was missed is
// made later that day, and no report is made twice, even when the agent is restarted.
//
// The file is result.day in WATCH_PATH, with the host's name before it where log files have it. That folder
// is writable under the hardened profile too, survives a reboot, and is cleaned by last change only. The file
// holds the local date, as 20240131.
#ifndef TOVIK_CHECKS_RESULT_DAY_H
#define TOVIK_CHECKS_RESULT_DAY_H

#include <ctime>

// Returns true when today's report should be made now; today then counts as done, even if the report fails.
// inTime: RESULT_TIME is this minute; otherwise it has passed. When the day cannot be written (traced), the
// report is made in its own minute only, so that it is not repeated in every later minute. For one thread.
bool TakeResultDay(bool inTime, const std::tm& local);

#endif
