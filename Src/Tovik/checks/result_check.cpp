#include "Tovik/checks/result_check.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
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

std::tm LocalResultTime(time_t resultTime) {
  std::tm resultLocal{};
  localtime_r(&resultTime, &resultLocal);
  return resultLocal;
}

bool ResultIsDue(time_t resultCheckTime) {
  const std::tm resultLocal = LocalResultTime(resultCheckTime);
  const ResultMoment resultMoment = ResultMomentOf(m_result_check_time, resultLocal);
  const bool resultInTime = resultMoment == ResultMoment::DUE;
  if (m_result_catch_up != 0 && (resultInTime || ResultTimePassed(m_result_check_time, resultLocal))) {
    if (TakeResultDay(resultInTime, resultLocal)) return true;
    if (resultInTime) return false;
  }
  switch (resultMoment) {
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
void TraceUnreadResult(const std::string& resultPath, int resultErrno) {
  switch (resultErrno) {
    case EFBIG:
      TRACE(TRACE_ERROR, "Result file %s has more than %" PRId64 " lines", resultPath.c_str(),
            MAX_RESULT_RECORDS);
      break;
    case EINVAL:
      TRACE(TRACE_ERROR, "Result file %s is no regular file", resultPath.c_str());
      break;
    case ENOMEM:
      TRACE(TRACE_ERROR, "Result file %s: no memory to read it", resultPath.c_str());
      break;
    default:
      break;
  }
}

int ReportResults(time_t resultCheckTime) {
  const ResultDay resultDay = ResultDayAt(resultCheckTime, m_sz_svc_txt_path, HostNameInFiles());
  const int64_t resultJobs = base::CountFileNewlines(resultDay.path.c_str());
  if (resultJobs < 0) return -1;
  const UniqueResults resultRecords(GetResultReadData(resultDay.path.c_str(), resultJobs));
  if (resultRecords == nullptr) {
    const int resultErrno = errno;
    TraceUnreadResult(resultDay.path, resultErrno);
    return -1;
  }
  GetResultShowData(resultDay.path.c_str(), resultJobs, resultRecords.get(), resultDay.date.c_str());
  return 1;
}

constexpr mode_t RESULT_CHECK_DAY_MODE = 0644;
constexpr size_t RESULT_CHECK_DAY_SIZE = 8;

// The day of a report that was made in its minute but could not be noted in the file.
std::string unkeptResultDay;

std::string ResultCheckDayPath() {
  const auto resultHost = HostNameInFiles();
  return m_sz_txt_path + (resultHost ? *resultHost + "." : "") + "result.day";
}

std::string ResultCheckDayText(const std::tm& resultLocal) {
  return base::Format("%04d%02d%02d", resultLocal.tm_year + 1900, resultLocal.tm_mon + 1,
                      resultLocal.tm_mday);
}

// The day in the file; empty when there is none.
std::string KeptResultDay(const std::string& resultDayPath) {
  const base::UniqueFd resultDayFile = base::OpenRegular(resultDayPath.c_str(), nullptr, O_NOFOLLOW);
  std::array<char, RESULT_CHECK_DAY_SIZE> keptDay;
  return resultDayFile.Valid() ? std::string(keptDay.data(), base::ReadUpTo(resultDayFile.Get(),
                                                                            keptDay.data(), keptDay.size()))
                               : "";
}

// Writes a new file and renames it. A full disk or a crash leaves either the old or the new file whole.
bool WriteResultDay(const std::string& resultDayPath, const std::string& resultDay) {
  const std::string newResultDayPath = resultDayPath + ".new";
  ::unlink(newResultDayPath.c_str());
  base::UniqueFd resultDayFile(::open(
      newResultDayPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, RESULT_CHECK_DAY_MODE));
  if (!resultDayFile.Valid()) return false;
  const std::string dayLine = resultDay + "\n";
  const bool dayWritten =
      ::write(resultDayFile.Get(), dayLine.data(), dayLine.size()) == static_cast<ssize_t>(dayLine.size());
  return dayWritten && resultDayFile.Reset() == 0 &&
         ::rename(newResultDayPath.c_str(), resultDayPath.c_str()) == 0;
}

bool KeepResultDay(const std::string& resultDayPath, const std::string& resultDay) {
  if (WriteResultDay(resultDayPath, resultDay)) return true;
  const int resultDayErrno = errno;
  TRACE(TRACE_WARN, "RESULT_CATCH_UP: %s cannot be written: %s", resultDayPath.c_str(),
        std::strerror(resultDayErrno));
  return false;
}

}  // namespace

void ResultCycle() {
  TraceErrorCheckOutcome(resultCheckProc());
  base::SleepSeconds(RESULT_CHECK_PAUSE);
}

bool IsResultTime(const char* resultTime) {
  return std::string_view(resultTime).find(':') != std::string_view::npos;
}

int resultCheckProc() {
  return ResultCheckAt(std::time(nullptr));
}

int ResultCheckAt(time_t resultCheckTime) {
  try {
    return ResultIsDue(resultCheckTime) ? ReportResults(resultCheckTime) : -1;
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the result check");
    return -1;
  }
}

void GetResultShowData(const char* resultPath, int64_t resultCount, const RESULT_LIST* resultRecords,
                       const char* resultDate) {
  char averageTable[AVERAGE_TABLE_SIZE] = "";
  if (resultCount > 0)
    FormatAverageTable(resultDate, resultCount, AverageOf(resultRecords, resultCount), averageTable);
  Raise({Finding::DAILY_RESULT, m_sz_proc_name, averageTable, resultPath});
}

ResultMoment ResultMomentOf(const char* resultTime, const std::tm& resultLocal) {
  std::string resultTimeText(resultTime);
  char resultTimePart[RESULT_LINE];
  char* resultMinutePart = GetNextString(resultTimeText.data(), ':', resultTimePart);
  if (base::LeadingNumber(resultTimePart) != resultLocal.tm_hour) return ResultMoment::OTHER_HOUR;
  GetNextString(resultMinutePart, ':', resultTimePart);
  return base::LeadingNumber(resultTimePart) == resultLocal.tm_min ? ResultMoment::DUE
                                                                   : ResultMoment::OTHER_MINUTE;
}

bool ResultTimePassed(const char* resultTime, const std::tm& resultLocal) {
  std::string resultTimeText(resultTime);
  char resultTimePart[RESULT_LINE];
  char* resultMinutePart = GetNextString(resultTimeText.data(), ':', resultTimePart);
  const int64_t resultHour = base::LeadingNumber(resultTimePart);
  GetNextString(resultMinutePart, ':', resultTimePart);
  const int64_t resultMinute = base::LeadingNumber(resultTimePart);
  if (resultHour < 0 || resultHour >= 24 || resultMinute < 0 || resultMinute >= 60) return false;
  return resultLocal.tm_hour != resultHour ? resultLocal.tm_hour > resultHour
                                           : resultLocal.tm_min > resultMinute;
}

ResultDay ResultDayAt(time_t resultCheckTime, const char* folder, const std::optional<std::string>& host) {
  const std::tm resultDay = LocalResultTime(resultCheckTime - RESULT_AGE);
  const int resultYear = resultDay.tm_year + 1900;
  const int resultMonth = resultDay.tm_mon + 1;
  const std::string resultDayFile = host ? base::Format("Result.%s.csv", host->c_str()) : "Result.csv";
  const std::string resultDate = base::Format("%d/%02d/%02d", resultYear, resultMonth, resultDay.tm_mday);
  return {base::Format("%s%d%02d%02d/%s", folder, resultYear, resultMonth, resultDay.tm_mday,
                       resultDayFile.c_str()),
          resultDate};
}

bool TakeResultDay(bool resultInTime, const std::tm& resultLocal) {
  const std::string resultDayPath = ResultCheckDayPath();
  const std::string resultDay = ResultCheckDayText(resultLocal);
  if (resultDay == unkeptResultDay || resultDay == KeptResultDay(resultDayPath)) return false;
  if (KeepResultDay(resultDayPath, resultDay)) {
    if (!resultInTime) TRACE(TRACE_INFO, "Result check missed its minute and is made up for");
    return true;
  }
  if (resultInTime) unkeptResultDay = resultDay;
  return resultInTime;
}
