// The day of the last report, for RESULT_CATCH_UP: kept in a file, so that a report whose minute was missed
// is made later that day, and none is made twice, whoever restarts the agent.
//
// The file is result.day in WATCH_PATH (with the host's name before it where log files have it): a folder
// that every agent can write to, also under the hardened profile, that outlives a reboot, and that is cleaned
// by last change only. It holds the local date, as 20240131.
#ifndef TOVIK_CHECKS_RESULT_DAY_H
#define TOVIK_CHECKS_RESULT_DAY_H

#include <ctime>

// Whether this day's report is to be made now; then the day counts as done, whatever comes of the report.
// inTime: RESULT_TIME is this minute, else it is over. When the day cannot be kept, which is traced, a report
// is made in its minute alone, lest it be made in each that follows. For one thread.
bool TakeResultDay(bool inTime, const std::tm& local);

#endif
