#include "Tovik/checks/error_log_check.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/findings/findings.h"
#include "Tovik/trace.h"
#include "base/child_process.h"
#include "base/format.h"
#include "base/regular_file.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "charset/cp949_length.h"

namespace {

constexpr time_t ERROR_LOG_LOOK_BACK = 120;  // seconds
constexpr size_t LONGEST_ERROR_TEXT = ERROR_TEXT - 1;
constexpr const char* ERROR_EXTRACT_NAME = "STTAlarmLog.txt";
constexpr int64_t ERROR_LOG_CHECK_PAUSE = 1;  // seconds between two looks at the clock
// A matching line has at least 8 bytes, so no alarm's text can hold more lines than this. The limit keeps a
// log flooded with errors from being copied onto its own disk.
constexpr const char* MAX_ERROR_LINES = "10240";

void ReportErrorTextUnread(const char* errorTextPath, int errorTextErrno) {
  std::printf("[%s] file open fail : file name = %s, error = %d", "ReadTextFile", errorTextPath,
              errorTextErrno);
}

// The file that receives the lines found. It is newly created with mode 0600, never reached through a link,
// and removed by the destructor.
class ErrorExtract {
 public:
  explicit ErrorExtract(const std::string& path) : errorExtractPath_(path) {
    ::unlink(errorExtractPath_.c_str());
    errorExtractFile_.Reset(
        ::open(errorExtractPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    errorExtractErrno_ = errorExtractFile_.Valid() ? 0 : errno;
  }
  ErrorExtract(const ErrorExtract&) = delete;
  ErrorExtract& operator=(const ErrorExtract&) = delete;
  ~ErrorExtract() {
    if (errorExtractFile_.Valid()) ::unlink(errorExtractPath_.c_str());
  }
  int Descriptor() const { return errorExtractFile_.Get(); }
  // errno when the file could not be created, else 0.
  int Error() const { return errorExtractErrno_; }

 private:
  std::string errorExtractPath_;
  base::UniqueFd errorExtractFile_;
  int errorExtractErrno_ = 0;
};

int CheckErrorLog(time_t errorCheckTime) {
  const ErrorLogSearch errorSearch = ErrorLogSearchAt(errorCheckTime, m_sz_svc_txt_path, HostNameInFiles());
  const base::UniqueText errorText(static_cast<char*>(std::malloc(ERROR_TEXT)));
  if (errorText == nullptr) throw std::bad_alloc();
  if (FindErrorLines(errorSearch, errorText.get()) < 1) return -1;
  Raise({Finding::ERROR_LINES, m_sz_proc_name, errorText.get()});
  return 1;
}

}  // namespace

void ErrorLogCycle() {
  static ErrorCheckState errorCheck;
  const time_t errorCheckTime = std::time(nullptr);
  std::tm errorCheckLocal{};
  localtime_r(&errorCheckTime, &errorCheckLocal);
  if (ErrorCheckDue(errorCheckLocal.tm_min, m_errorlog_period, &errorCheck)) {
    errorCheck.succeeded = TraceErrorCheckOutcome(errorCheckProc()) ? 1 : 0;
  }
  TRACE(TRACE_INFO, "send_timer ErrorCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(ERROR_LOG_CHECK_PAUSE);
}

bool ErrorCheckDue(int minute, int64_t period, ErrorCheckState* errorCheck) {
  if (minute % period == 0 && errorCheck->succeeded == 0 && minute == errorCheck->lastMinute) return true;
  if (minute != errorCheck->lastMinute) {
    errorCheck->succeeded = 0;
    errorCheck->lastMinute = minute;
  }
  return false;
}

int errorCheckProc() {
  return ErrorCheckAt(std::time(nullptr));
}

int ErrorCheckAt(time_t errorCheckTime) {
  try {
    return CheckErrorLog(errorCheckTime);
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the error-log check");
    return -1;
  }
}

int ReadTextFile(const char* path, char* errorText) {
  errorText[0] = 0;
  // Without O_NONBLOCK a FIFO put in the file's place would hold up the check.
  const base::UniqueFd errorTextFile(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!errorTextFile.Valid()) {
    const int errorTextErrno = errno;
    ReportErrorTextUnread(path, errorTextErrno);
    return 0;
  }
  size_t errorLength = base::ReadUpTo(errorTextFile.Get(), errorText, LONGEST_ERROR_TEXT);
  if (errorLength == LONGEST_ERROR_TEXT)
    errorLength = charset::WholeCp949Characters({errorText, errorLength}).size();
  errorText[errorLength] = 0;
  return static_cast<int>(std::strlen(errorText));
}

ErrorLogSearch ErrorLogSearchAt(time_t errorCheckTime, const char* logFolder,
                                const std::optional<std::string>& host) {
  const time_t errorMinuteTime = errorCheckTime - ERROR_LOG_LOOK_BACK;
  std::tm errorMinute{};
  localtime_r(&errorMinuteTime, &errorMinute);
  const int errorMonth = errorMinute.tm_mon + 1;
  const std::string logHostPrefix = host ? *host + "." : "";
  ErrorLogSearch errorSearch;
  errorSearch.pattern = base::Format(" %02d:%02d:", errorMinute.tm_hour, errorMinute.tm_min);
  errorSearch.errorLog =
      base::Format("%s%d%02d%02d/%s%02d%02d.ERR.LOG", logFolder, errorMinute.tm_year + 1900, errorMonth,
                   errorMinute.tm_mday, logHostPrefix.c_str(), errorMonth, errorMinute.tm_mday);
  errorSearch.extract = logFolder + logHostPrefix + ERROR_EXTRACT_NAME;
  errorSearch.command = base::Format("grep \"%s\" %s > %s", errorSearch.pattern.c_str(),
                                     errorSearch.errorLog.c_str(), errorSearch.extract.c_str());
  return errorSearch;
}

int FindErrorLines(const ErrorLogSearch& errorSearch, char* errorText) {
  errorText[0] = 0;
  const ErrorExtract errorExtract(errorSearch.extract);
  if (errorExtract.Error() != 0) {
    ReportErrorTextUnread(errorSearch.extract.c_str(), errorExtract.Error());
    return 0;
  }
  // "-D skip" keeps grep from waiting for a writer when the log is a FIFO.
  const int grepStatus = base::RunProgram({"grep", "-a", "-D", "skip", "-m", MAX_ERROR_LINES, "-e",
                                           errorSearch.pattern, "--", errorSearch.errorLog},
                                          errorExtract.Descriptor(), {"LC_ALL=C"});
  if (grepStatus < 0) {
    const int grepError = errno;
    // The stop ended the wait. The search was started all the same, so this is no failure.
    if (grepError == ECANCELED) return 0;
    TRACE(TRACE_DEBUG, "Unable to execute distrib server error log script (%d)\n%s, command = %s", grepError,
          std::strerror(grepError), errorSearch.command.c_str());
    return 0;
  }
  return ReadTextFile(errorSearch.extract.c_str(), errorText);
}

bool TraceErrorCheckOutcome(int errorCheckResult) {
  if (errorCheckResult == 0) {
    TRACE(TRACE_WARN, "errorCheckProc fail");
    return false;
  }
  TRACE(TRACE_INFO, "errorCheckProc success");
  return true;
}
