#include "utils/trace_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "base/lossy_stream.h"
#include "base/unique_handles.h"

char DunraSTTUtils::mDunraSTTPath[4096];
char DunraSTTUtils::mDunraHangPath[4096];
std::atomic<long> DunraSTTUtils::mDunraSTTLogLvl{0};
std::atomic<long> DunraSTTUtils::mDunraSTTLogHostFlag{0};

namespace {

constexpr size_t FORMATTED_LOG_LIMIT = 99'999;
constexpr size_t LOG_HOST_NAME_SIZE = 4096;
constexpr mode_t LOG_FILE_MODE = 0655;
constexpr mode_t DATED_LOG_FOLDER_MODE = 0755;
constexpr mode_t LOG_FOLDER_MODE_BITS = 07777;

// What the path of a log file depends on, unless it contains the host name.
struct LogPathKey {
  time_t logSecondTime;
  unsigned settings;
  char logType;
  bool datedFolder;
  long logChannel;
  bool operator==(const LogPathKey&) const = default;
};

// The buffers for one line. The arrays are never cleared: usually only their first bytes are touched.
struct LogWorkspace {
  time_t logSecondTime;  // the time of `logSecond`; 0: none yet
  trace::TraceSecond logSecond;
  LogPathKey logPathKey;  // what `logPath` was made from; its `logSecondTime` is 0 at first
  char logLine[trace::TRACE_LINE_SIZE];
  char logFolder[trace::LOG_PATH_SIZE];
  char logPath[trace::LOG_PATH_SIZE];
  char logHost[LOG_HOST_NAME_SIZE];
};

// One workspace serves all threads; it is too large for a thread's stack. A thread that finds it in use
// allocates another.
LogWorkspace sharedLogWorkspace;
std::atomic_flag sharedLogWorkspaceInUse;

class BorrowedLogWorkspace {
 public:
  BorrowedLogWorkspace() {
    if (!sharedLogWorkspaceInUse.test_and_set(std::memory_order_acquire)) return;
    ownLogWorkspace_.reset(new LogWorkspace);
    ownLogWorkspace_->logSecondTime = 0;
    ownLogWorkspace_->logPathKey.logSecondTime = 0;
  }
  ~BorrowedLogWorkspace() {
    if (!ownLogWorkspace_) sharedLogWorkspaceInUse.clear(std::memory_order_release);
  }
  BorrowedLogWorkspace(const BorrowedLogWorkspace&) = delete;
  BorrowedLogWorkspace& operator=(const BorrowedLogWorkspace&) = delete;
  LogWorkspace& operator*() const { return ownLogWorkspace_ ? *ownLogWorkspace_ : sharedLogWorkspace; }

 private:
  std::unique_ptr<LogWorkspace> ownLogWorkspace_;
};

// What few lines need is kept out of the way of the others (gnu::cold): between two lines the kernel takes
// most of the processor's cache, and code that is not there costs more than code that runs.

[[gnu::cold]] void BeginLogSecond(time_t logNow, LogWorkspace* workspace) {
  std::tm logLocalTime{};
  localtime_r(&logNow, &logLocalTime);
  workspace->logSecond = trace::TraceSecondOf(logLocalTime);
  workspace->logSecondTime = logNow;
}

// Returns the nanoseconds of the present time and updates the workspace's second. Most lines share their
// second with the line before, so it is kept.
long TellLogTime(LogWorkspace* workspace) {
  timespec logNow{};
  clock_gettime(CLOCK_REALTIME, &logNow);
  if (logNow.tv_sec != workspace->logSecondTime) BeginLogSecond(logNow.tv_sec, workspace);
  return logNow.tv_nsec;
}

[[gnu::cold]] const char* LogHostName(LogWorkspace* workspace) {
  if (gethostname(workspace->logHost, LOG_HOST_NAME_SIZE) != 0) workspace->logHost[0] = '\0';
  workspace->logHost[LOG_HOST_NAME_SIZE - 1] = '\0';
  return workspace->logHost;
}

[[gnu::cold]] void MakeLogPath(const LogPathKey& logKey, const char* host, LogWorkspace* workspace) {
  const auto [logSecondTime, changes, type, dated, channel] = logKey;
  workspace->logPathKey = logKey;
  trace::TraceText logPath(workspace->logPath);
  if (dated) {
    const char* const logRoot = type == TRACE_HANG ? DunraSTTUtils::GetHangPath() : DunraSTTUtils::GetPath();
    trace::AddDatedLogFolder(&logPath, logRoot, workspace->logSecond);
    trace::TraceText(workspace->logFolder).Add(logPath.View()).Terminated();
  }
  trace::AddLogFileName(&logPath, type, channel, workspace->logSecond, host);
  logPath.Terminated();
}

// Sets the paths of the line's file and of its folder. Both are kept, because most lines go to the same file
// as the line before.
void SetLogPaths(char type, long channel, bool dated, LogWorkspace* workspace) {
  const char* const host = DunraSTTUtils::GetLogHostnameFlag() != 0 ? LogHostName(workspace) : nullptr;
  const LogPathKey key{workspace->logSecondTime, trace::logSettings.load(std::memory_order_relaxed), type,
                       dated, channel};
  if (key != workspace->logPathKey || host != nullptr) MakeLogPath(key, host, workspace);
}

// Creates the folder unless it exists with the right mode.
void EnsureLogFolder(const char* logFolder) {
  struct stat status;
  if (::stat(logFolder, &status) == 0 && (status.st_mode & LOG_FOLDER_MODE_BITS) == DATED_LOG_FOLDER_MODE)
    return;
  DunraSTTUtils::MakeFolders(logFolder);
}

int AppendToLogFile(const char* logPath, std::string_view logLine) {
  const base::UniqueFd logFile(::open(logPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, LOG_FILE_MODE));
  if (!logFile.Valid()) return -1;
  [[maybe_unused]] const ssize_t written = ::write(logFile.Get(), logLine.data(), logLine.size());
  return 0;
}

void SaveInLogFile(char type, long channel, long save, LogWorkspace* workspace, std::string_view logLine) {
  const bool datedLog = save != 0;
  SetLogPaths(type, channel, datedLog, workspace);
  if (datedLog) EnsureLogFolder(workspace->logFolder);
  if (AppendToLogFile(workspace->logPath, logLine) != 0 && type == TRACE_ORDINARY)
    std::fputs("log file open error", stdout);
}

// The message follows the head of a line.
[[gnu::cold]] void ConvertLogMessage(size_t headSize, size_t logMessageLimit, trace::TraceText* logLine) {
  const std::string logMessage = trace::MessageToUtf8(std::string(logLine->View().substr(headSize)));
  logLine->CutTo(headSize);
  logLine->Add(std::string_view(logMessage).substr(0, logMessageLimit));
}

[[gnu::cold]] void EchoLogLineAsFormat(std::string_view logLine) {
  base::Echo(trace::AsPrintFormat(logLine));
}

[[gnu::format(printf, 6, 0)]] void LogTraceLine(char type, long level, long channel, long save,
                                                const trace::TracePlace& place, const char* logFormat,
                                                va_list logArguments) {
  const bool hangLog = type == TRACE_HANG;
  const size_t logMessageLimit = hangLog ? trace::HANG_LINE_MESSAGE_LIMIT : trace::TRACE_MESSAGE_LIMIT;
  const BorrowedLogWorkspace borrowed;
  LogWorkspace& workspace = *borrowed;
  const long nanoseconds = TellLogTime(&workspace);
  trace::TraceText logLine(workspace.logLine);
  if (hangLog) {
    trace::BeginHangLine(&logLine, workspace.logSecond, nanoseconds);
  } else {
    trace::BeginOrdinaryLine(&logLine, workspace.logSecond, nanoseconds, level, channel, place);
  }
  const size_t logHeadSize = logLine.Size();
  logLine.AddFormatted(FORMATTED_LOG_LIMIT, logFormat, logArguments);
  const bool plainLog = trace::IsPlainMessage(logLine.View().substr(logHeadSize));
  if (!plainLog || logLine.Size() - logHeadSize > logMessageLimit)
    ConvertLogMessage(logHeadSize, logMessageLimit, &logLine);
  logLine.Add("]\n");
  if (plainLog) {
    base::Echo(logLine.View());
  } else {
    EchoLogLineAsFormat(logLine.View());
  }
  if (hangLog || save != 0) SaveInLogFile(type, channel, save, &workspace, logLine.View());
}

constexpr size_t LOG_FOLDER_SIZE = 4096;

// An unchanged path is not written again: every report sets the paths, and writing would race with readers.
void KeepLogFolder(char* keptFolder, const char* logFolder) {
  const auto length = static_cast<unsigned>(std::min(std::strlen(logFolder), LOG_FOLDER_SIZE - 1));
  if (std::strncmp(keptFolder, logFolder, length) == 0) return;
  DunraSTTUtils::StrNCopy(keptFolder, LOG_FOLDER_SIZE, logFolder, length);
  ++trace::logSettings;
}

}  // namespace

DunraSTTUtils::DunraSTTUtils() {
  std::fill(std::begin(mDunraSTTPath), std::end(mDunraSTTPath), '\0');
  ++trace::logSettings;
}

void DunraSTTUtils::SetPath(const char* logFolder) {
  KeepLogFolder(mDunraSTTPath, logFolder);
}
const char* DunraSTTUtils::GetPath() {
  return mDunraSTTPath;
}
void DunraSTTUtils::SetHangPath(const char* hangLogFolder) {
  KeepLogFolder(mDunraHangPath, hangLogFolder);
}
const char* DunraSTTUtils::GetHangPath() {
  return mDunraHangPath;
}
void DunraSTTUtils::SetLogLevel(long level) {
  mDunraSTTLogLvl = level;
}
void DunraSTTUtils::SetLogHostnameFlag(long flag) {
  if (mDunraSTTLogHostFlag.exchange(flag) != flag) ++trace::logSettings;
}

void DunraSTTUtils::StrNCopy(char* dst, unsigned /*size*/, const char* src, unsigned len) {
  const size_t copied = strnlen(src, len);
  std::memcpy(dst, src, copied);
  std::memset(dst + copied, 0, len - copied);
}

char* DunraSTTUtils::StrCate(char* dst, unsigned /*size*/, const char* src) {
  return std::strcat(dst, src);
}

void DunraSTTUtils::LogTrace(char type, long level, long channel, long save, const char* file,
                             const char* function, int line, const char* format, ...) {
  if (!LevelPasses(level)) return;
  // At level 0 only the hang log is kept.
  if (type != TRACE_HANG && (type != TRACE_ORDINARY || GetLogLevel() <= 0)) return;
  va_list logArguments;
  va_start(logArguments, format);
  try {
    LogTraceLine(type, level, channel, save, {file, function, line}, format, logArguments);
  } catch (const std::bad_alloc&) {
    std::fputs("no memory for a trace line\n", stderr);
  }
  va_end(logArguments);
}

namespace trace {
namespace {

std::string_view LogDay(const TraceSecond& logSecond) {
  return {logSecond.day, sizeof logSecond.day - 1};
}

}  // namespace

[[gnu::cold]] void AddDatedLogFolder(TraceText* logPath, const char* logFolder, const TraceSecond& second) {
  logPath->Add(logFolder).Add(LogDay(second)).Add("/");
}

[[gnu::cold]] void AddLogFileName(TraceText* logPath, char type, long channel, const TraceSecond& second,
                                  const char* host) {
  const auto addLogHost = [&] {
    if (host != nullptr) logPath->Add(host).Add(".");
  };
  if (type == TRACE_HANG) {
    logPath->Add("hang.");
    addLogHost();
    logPath->Add(LogDay(second)).Add(".log");
  } else if (channel == TRACE_MAIN_CHANNEL) {
    logPath->Add("MAIN.");
    addLogHost();
    logPath->Add("LOG");
  } else {
    logPath->AddNumber(channel, 5).Add(".");
    addLogHost();
    logPath->Add(LogDay(second).substr(4)).Add(".LOG");  // without the year
  }
}

}  // namespace trace
