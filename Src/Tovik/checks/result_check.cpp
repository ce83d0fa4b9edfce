#include "Tovik/checks/result_check.h"

#include <cerrno>
#include <cinttypes>
#include <memory>
#include <new>

#include "Tovik/checks/outcome.h"
#include "Tovik/checks/result_day.h"
#include "Tovik/checks/result_table.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/findings/findings.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/number.h"
#include "base/stop.h"
#include "base/text_file.h"

namespace {

constexpr time_t ONE_DAY = 86400;            // seconds
constexpr int64_t PAUSE_AFTER_A_CHECK = 60;  // seconds
constexpr int64_t PAUSE_BETWEEN_LOOKS = 1;

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
  if (m_result_catch_up != 0 && (inTime || TimeHasPassed(m_result_check_time, local))) {
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

int Report(time_t now) {
  const ResultDay day = ResultDayAt(now, m_sz_svc_txt_path, HostNameInFiles());
  const int64_t count = base::CountNewlines(day.path.c_str());
  if (count < 0) return -1;
  const std::unique_ptr<RESULT_LIST, RecordsRelease> records(GetResultReadData(day.path.c_str(), count));
  if (records == nullptr) {
    const int error = errno;
    TraceUnread(day.path, error);
    return -1;
  }
  GetResultShowData(day.path.c_str(), count, records.get(), day.date.c_str());
  return 1;
}

}  // namespace

void ResultCycle() {
  TraceOutcome(resultCheckProc());
  base::SleepSeconds(PAUSE_AFTER_A_CHECK);
  base::SleepSeconds(PAUSE_BETWEEN_LOOKS);
}

bool IsTimeOfDay(const char* text) {
  return std::string_view(text).find(':') != std::string_view::npos;
}

int resultCheckProc() {
  return ResultCheckAt(std::time(nullptr));
}

int ResultCheckAt(time_t now) {
  try {
    return IsDue(now) ? Report(now) : -1;
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the result check");
    return -1;
  }
}

void GetResultShowData(const char* path, int64_t count, const RESULT_LIST* records, const char* date) {
  char table[RESULT_TABLE] = "";
  if (count > 0) FormatResultTable(date, count, AverageOf(records, count), table);
  Raise({Finding::DAILY_RESULT, m_sz_proc_name, table, path});
}

ResultMoment ResultMomentOf(const char* timeOfDay, const std::tm& local) {
  std::string copy(timeOfDay);
  char part[RESULT_LINE];
  char* rest = GetNextString(copy.data(), ':', part);
  if (base::LeadingNumber(part) != local.tm_hour) return ResultMoment::OTHER_HOUR;
  GetNextString(rest, ':', part);
  return base::LeadingNumber(part) == local.tm_min ? ResultMoment::DUE : ResultMoment::OTHER_MINUTE;
}

bool TimeHasPassed(const char* timeOfDay, const std::tm& local) {
  std::string copy(timeOfDay);
  char part[RESULT_LINE];
  char* rest = GetNextString(copy.data(), ':', part);
  const int64_t hour = base::LeadingNumber(part);
  GetNextString(rest, ':', part);
  const int64_t minute = base::LeadingNumber(part);
  if (hour < 0 || hour >= 24 || minute < 0 || minute >= 60) return false;
  return local.tm_hour != hour ? local.tm_hour > hour : local.tm_min > minute;
}

ResultDay ResultDayAt(time_t now, const char* folder, const std::optional<std::string>& host) {
  const std::tm day = LocalTime(now - ONE_DAY);
  const int year = day.tm_year + 1900;
  const int month = day.tm_mon + 1;
  const std::string name = host ? base::Format("Result.%s.csv", host->c_str()) : "Result.csv";
  return {base::Format("%s%d%02d%02d/%s", folder, year, month, day.tm_mday, name.c_str()),
          base::Format("%d/%02d/%02d", year, month, day.tm_mday)};
}
