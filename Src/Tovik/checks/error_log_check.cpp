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
constexpr size_t MAX_ERROR_TEXT = ERROR_TEXT - 1;
constexpr const char* EXTRACT_NAME = "STTAlarmLog.txt";
constexpr int64_t LOG_LOOK_PAUSE = 1;  // seconds between two looks at the clock
// A matching line has at least 8 bytes, so no alarm's text can hold more lines than this. The limit keeps a
// log flooded with errors from being copied onto its own disk.
constexpr const char* MAX_ERROR_LINES = "10240";

void ReportOpenFailure(const char* path, int error) {
  std::printf("[%s] file open fail : file name = %s, error = %d", "ReadTextFile", path, error);
}

// The file that receives the lines found. It is newly created with mode 0600, never reached through a link,
// and removed by the destructor.
class Extract {
 public:
  explicit Extract(const std::string& path) : path_(path) {
    ::unlink(path_.c_str());
    file_.Reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    error_ = file_.Valid() ? 0 : errno;
  }
  Extract(const Extract&) = delete;
  Extract& operator=(const Extract&) = delete;
  ~Extract() {
    if (file_.Valid()) ::unlink(path_.c_str());
  }
  int Descriptor() const { return file_.Get(); }
  // errno when the file could not be created, else 0.
  int Error() const { return error_; }

 private:
  std::string path_;
  base::UniqueFd file_;
  int error_ = 0;
};

int Check(time_t now) {
  const ErrorLogSearch search = ErrorLogSearchAt(now, m_sz_svc_txt_path, HostNameInFiles());
  const base::UniqueText text(static_cast<char*>(std::malloc(ERROR_TEXT)));
  if (text == nullptr) throw std::bad_alloc();
  if (FindErrorLines(search, text.get()) < 1) return -1;
  Raise({Finding::ERROR_LINES, m_sz_proc_name, text.get()});
  return 1;
}

}  // namespace

void ErrorLogCycle() {
  static ErrorCheckState state;
  const time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  if (ErrorCheckDue(local.tm_min, m_errorlog_period, &state)) {
    state.succeeded = TraceOutcome(errorCheckProc()) ? 1 : 0;
  }
  TRACE(TRACE_INFO, "send_timer ErrorCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(LOG_LOOK_PAUSE);
}

bool ErrorCheckDue(int minute, int64_t period, ErrorCheckState* state) {
  if (minute % period == 0 && state->succeeded == 0 && minute == state->lastMinute) return true;
  if (minute != state->lastMinute) {
    state->succeeded = 0;
    state->lastMinute = minute;
  }
  return false;
}

int errorCheckProc() {
  return ErrorCheckAt(std::time(nullptr));
}

int ErrorCheckAt(time_t now) {
  try {
    return Check(now);
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the error-log check");
    return -1;
  }
}

int ReadTextFile(const char* path, char* out) {
  out[0] = 0;
  // Without O_NONBLOCK a FIFO put in the file's place would hold up the check.
  const base::UniqueFd file(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.Valid()) {
    const int error = errno;
    ReportOpenFailure(path, error);
    return 0;
  }
  size_t length = base::ReadUpTo(file.Get(), out, MAX_ERROR_TEXT);
  if (length == MAX_ERROR_TEXT) length = charset::WholeCharacters({out, length}).size();
  out[length] = 0;
  return static_cast<int>(std::strlen(out));
}

ErrorLogSearch ErrorLogSearchAt(time_t now, const char* folder, const std::optional<std::string>& host) {
  const time_t when = now - ERROR_LOG_LOOK_BACK;
  std::tm local{};
  localtime_r(&when, &local);
  const int month = local.tm_mon + 1;
  const std::string prefix = host ? *host + "." : "";
  ErrorLogSearch search;
  search.pattern = base::Format(" %02d:%02d:", local.tm_hour, local.tm_min);
  search.log = base::Format("%s%d%02d%02d/%s%02d%02d.ERR.LOG", folder, local.tm_year + 1900, month,
                            local.tm_mday, prefix.c_str(), month, local.tm_mday);
  search.extract = folder + prefix + EXTRACT_NAME;
  search.command =
      base::Format("grep \"%s\" %s > %s", search.pattern.c_str(), search.log.c_str(), search.extract.c_str());
  return search;
}

int FindErrorLines(const ErrorLogSearch& search, char* out) {
  out[0] = 0;
  const Extract extract(search.extract);
  if (extract.Error() != 0) {
    ReportOpenFailure(search.extract.c_str(), extract.Error());
    return 0;
  }
  // "-D skip" keeps grep from waiting for a writer when the log is a FIFO.
  const int status = base::RunProgram(
      {"grep", "-a", "-D", "skip", "-m", MAX_ERROR_LINES, "-e", search.pattern, "--", search.log},
      extract.Descriptor(), {"LC_ALL=C"});
  if (status < 0) {
    const int error = errno;
    // The stop ended the wait. The search was started all the same, so this is no failure.
    if (error == ECANCELED) return 0;
    TRACE(TRACE_DEBUG, "Unable to execute distrib server error log script (%d)\n%s, command = %s", error,
          std::strerror(error), search.command.c_str());
    return 0;
  }
  return ReadTextFile(search.extract.c_str(), out);
}

bool TraceOutcome(int result) {
  if (result == 0) {
    TRACE(TRACE_WARN, "errorCheckProc fail");
    return false;
  }
  TRACE(TRACE_INFO, "errorCheckProc success");
  return true;
}
