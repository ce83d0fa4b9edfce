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

#include "Tovik/checks/error_log_check.h"
#include "Tovik/checks/result_table.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/findings/findings.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/number.h"
#include "base/regular_file.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "utils/DunraSTTUtils.h"

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

constexpr mode_t RESULT_DAY_MODE = 0644;
constexpr size_t RESULT_DAY_SIZE = 8;

// The day of a report that was made in its minute but could not be noted in the file.
std::string unkeptDay;

std::string ResultDayPath() {
  const auto host = HostNameInFiles();
  return m_sz_txt_path + (host ? *host + "." : "") + "result.day";
}

std::string DayText(const std::tm& local) {
  return base::Format("%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

// The day in the file; empty when there is none.
std::string KeptDay(const std::string& path) {
  const base::UniqueFd file = base::OpenRegular(path.c_str(), nullptr, O_NOFOLLOW);
  std::array<char, RESULT_DAY_SIZE> text;
  return file.Valid() ? std::string(text.data(), base::ReadUpTo(file.Get(), text.data(), text.size())) : "";
}

// Writes a new file and renames it. A full disk or a crash leaves either the old or the new file whole.
bool WriteResultDay(const std::string& path, const std::string& day) {
  const std::string next = path + ".new";
  ::unlink(next.c_str());
  base::UniqueFd file(
      ::open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, RESULT_DAY_MODE));
  if (!file.Valid()) return false;
  const std::string line = day + "\n";
  const bool written = ::write(file.Get(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
  return written && file.Reset() == 0 && ::rename(next.c_str(), path.c_str()) == 0;
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

bool TakeResultDay(bool inTime, const std::tm& local) {
  const std::string path = ResultDayPath();
  const std::string day = DayText(local);
  if (day == unkeptDay || day == KeptDay(path)) return false;
  if (Keep(path, day)) {
    if (!inTime) TRACE(TRACE_INFO, "Result check missed its minute and is made up for");
    return true;
  }
  if (inTime) unkeptDay = day;
  return inTime;
}
