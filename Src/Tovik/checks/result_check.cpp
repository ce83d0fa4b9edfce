#include "Tovik/checks/result_check.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "Tovik/checks/average_table.h"
#include "Tovik/checks/error_log_check.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/findings/findings.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/number.h"
#include "base/regular_file.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "utils/trace_log.h"

namespace {

constexpr time_t RESULT_AGE = 86400;        // seconds: the file of yesterday is reported
constexpr int64_t RESULT_CHECK_PAUSE = 61;  // seconds

struct RecordsRelease {
  void operator()(RESULT_LIST* records) const { FreeResultData(records); }
};

std::tm LocalTime(time_t when) {
  std::tm local{};
  localtime_r(&when, &local);
  return local;
}

bool IsDue(time_t now) {
  const std::tm local = LocalTime(now);
  const ResultMoment moment = ResultMomentOf(m_result_check_time, local);
  const bool inTime = moment == ResultMoment::DUE;
  if (m_result_catch_up != 0 && (inTime || ResultTimePassed(m_result_check_time, local))) {
    if (TakeResultDay(inTime, local)) return true;
    if (inTime) return false;
  }
  switch (moment) {
    case ResultMoment::OTHER_HOUR:
      TRACE(TRACE_ERROR, "Result check Hour Over");
      return false;
    case ResultMoment::OTHER_MINUTE:
      TRACE(TRACE_ERROR, "Result check Min Over");
      return false;
    case ResultMoment::DUE:
      break;
  }
  return true;
}

// A file that is missing or may not be opened is not traced.
void TraceUnread(const std::string& path, int error) {
  switch (error) {
    case EFBIG:
      TRACE(TRACE_ERROR, "Result file %s has more than %" PRId64 " lines", path.c_str(), MAX_RESULT_RECORDS);
      break;
    case EINVAL:
      TRACE(TRACE_ERROR, "Result file %s is no regular file", path.c_str());
      break;
    case ENOMEM:
      TRACE(TRACE_ERROR, "Result file %s: no memory to read it", path.c_str());
      break;
    default:
      break;
  }
}

int ReportResults(time_t now) {
  const ResultDay resultDay = ResultDayAt(now, m_sz_svc_txt_path, HostNameInFiles());
  const int64_t jobs = base::CountFileNewlines(resultDay.path.c_str());
  if (jobs < 0) return -1;
  const std::unique_ptr<RESULT_LIST, RecordsRelease> records(GetResultReadData(resultDay.path.c_str(), jobs));
  if (records == nullptr) {
    const int error = errno;
    TraceUnread(resultDay.path, error);
    return -1;
  }
  GetResultShowData(resultDay.path.c_str(), jobs, records.get(), resultDay.date.c_str());
  return 1;
}

constexpr mode_t RESULT_CHECK_DAY_MODE = 0644;
constexpr size_t RESULT_CHECK_DAY_SIZE = 8;

// The day of a report that was made in its minute but could not be noted in the file.
std::string unkeptResultDay;

std::string ResultCheckDayPath() {
  const auto host = HostNameInFiles();
  return m_sz_txt_path + (host ? *host + "." : "") + "result.day";
}

std::string ResultCheckDayText(const std::tm& local) {
  return base::Format("%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

// The day in the file; empty when there is none.
std::string KeptResultDay(const std::string& path) {
  const base::UniqueFd dayFile = base::OpenRegular(path.c_str(), nullptr, O_NOFOLLOW);
  std::array<char, RESULT_CHECK_DAY_SIZE> day;
  return dayFile.Valid() ? std::string(day.data(), base::ReadUpTo(dayFile.Get(), day.data(), day.size()))
                         : "";
}

// Writes a new file and renames it. A full disk or a crash leaves either the old or the new file whole.
bool WriteResultDay(const std::string& path, const std::string& day) {
  const std::string newDayPath = path + ".new";
  ::unlink(newDayPath.c_str());
  base::UniqueFd dayFile(::open(newDayPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                RESULT_CHECK_DAY_MODE));
  if (!dayFile.Valid()) return false;
  const std::string line = day + "\n";
  const bool written = ::write(dayFile.Get(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
  return written && dayFile.Reset() == 0 && ::rename(newDayPath.c_str(), path.c_str()) == 0;
}

bool Keep(const std::string& path, const std::string& day) {
  if (WriteResultDay(path, day)) return true;
  const int error = errno;
  TRACE(TRACE_WARN, "RESULT_CATCH_UP: %s cannot be written: %s", path.c_str(), std::strerror(error));
  return false;
}

}  // namespace

void ResultCycle() {
  TraceOutcome(resultCheckProc());
  base::SleepSeconds(RESULT_CHECK_PAUSE);
}

bool IsResultTime(const char* resultTime) {
  return std::string_view(resultTime).find(':') != std::string_view::npos;
}

int resultCheckProc() {
  return ResultCheckAt(std::time(nullptr));
}

int ResultCheckAt(time_t now) {
  try {
    return IsDue(now) ? ReportResults(now) : -1;
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the result check");
    return -1;
  }
}

void GetResultShowData(const char* path, int64_t count, const RESULT_LIST* records, const char* date) {
  char averageTable[AVERAGE_TABLE_SIZE] = "";
  if (count > 0) FormatAverageTable(date, count, AverageOf(records, count), averageTable);
  Raise({Finding::DAILY_RESULT, m_sz_proc_name, averageTable, path});
}

ResultMoment ResultMomentOf(const char* timeOfDay, const std::tm& local) {
  std::string timeText(timeOfDay);
  char timePart[RESULT_LINE];
  char* minutePart = GetNextString(timeText.data(), ':', timePart);
  if (base::LeadingNumber(timePart) != local.tm_hour) return ResultMoment::OTHER_HOUR;
  GetNextString(minutePart, ':', timePart);
  return base::LeadingNumber(timePart) == local.tm_min ? ResultMoment::DUE : ResultMoment::OTHER_MINUTE;
}

bool ResultTimePassed(const char* timeOfDay, const std::tm& local) {
  std::string timeText(timeOfDay);
  char timePart[RESULT_LINE];
  char* minutePart = GetNextString(timeText.data(), ':', timePart);
  const int64_t hour = base::LeadingNumber(timePart);
  GetNextString(minutePart, ':', timePart);
  const int64_t minute = base::LeadingNumber(timePart);
  if (hour < 0 || hour >= 24 || minute < 0 || minute >= 60) return false;
  return local.tm_hour != hour ? local.tm_hour > hour : local.tm_min > minute;
}

ResultDay ResultDayAt(time_t now, const char* folder, const std::optional<std::string>& host) {
  const std::tm day = LocalTime(now - RESULT_AGE);
  const int year = day.tm_year + 1900;
  const int month = day.tm_mon + 1;
  const std::string resultFile = host ? base::Format("Result.%s.csv", host->c_str()) : "Result.csv";
  return {base::Format("%s%d%02d%02d/%s", folder, year, month, day.tm_mday, resultFile.c_str()),
          base::Format("%d/%02d/%02d", year, month, day.tm_mday)};
}

bool TakeResultDay(bool inTime, const std::tm& local) {
  const std::string path = ResultCheckDayPath();
  const std::string day = ResultCheckDayText(local);
  if (day == unkeptResultDay || day == KeptResultDay(path)) return false;
  if (Keep(path, day)) {
    if (!inTime) TRACE(TRACE_INFO, "Result check missed its minute and is made up for");
    return true;
  }
  if (inTime) unkeptResultDay = day;
  return inTime;
}
