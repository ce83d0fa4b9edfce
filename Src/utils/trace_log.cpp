// What LogTrace does with a line: putting it together, the echo, the file.
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
#include "utils/DunraSTTUtils.h"

namespace {

constexpr size_t FORMATTED_LIMIT = 99'999;
constexpr size_t LOG_FOLDER_SIZE = 4096;
constexpr size_t HOST_NAME_SIZE = 4096;
constexpr mode_t LOG_FILE_MODE = 0655;
constexpr mode_t LOG_FOLDER_MODE = 0755;
constexpr mode_t MODE_BITS = 07777;

// What the path of a log file depends on, unless it contains the host name.
struct PathKey {
  time_t since;
  unsigned settings;
  char type;
  bool dated;
  long channel;
  bool operator==(const PathKey&) const = default;
};

std::atomic<unsigned> logSettings{0};  // the number of changes

// The buffers for one line. The arrays are never cleared: usually only their first bytes are touched.
struct LineWorkspace {
  time_t since;  // the time of `second`; 0: none yet
  trace::Second second;
  PathKey pathKey;  // what `path` was made from; its `since` is 0 at first
  char line[trace::LINE_SIZE];
  char folder[trace::PATH_SIZE];
  char path[trace::PATH_SIZE];
  char host[HOST_NAME_SIZE];
};

// One workspace serves all threads; it is too large for a thread's stack. A thread that finds it in use
// allocates another.
LineWorkspace sharedWorkspace;
std::atomic_flag sharedInUse;

class BorrowedWorkspace {
 public:
  BorrowedWorkspace() {
    if (!sharedInUse.test_and_set(std::memory_order_acquire)) return;
    own_.reset(new LineWorkspace);
    own_->since = 0;
    own_->pathKey.since = 0;
  }
  ~BorrowedWorkspace() {
    if (!own_) sharedInUse.clear(std::memory_order_release);
  }
  BorrowedWorkspace(const BorrowedWorkspace&) = delete;
  BorrowedWorkspace& operator=(const BorrowedWorkspace&) = delete;
  LineWorkspace& operator*() const { return own_ ? *own_ : sharedWorkspace; }

 private:
  std::unique_ptr<LineWorkspace> own_;
};

// What few lines need is kept out of the way of the others (gnu::cold): between two lines the kernel takes
// most of the processor's cache, and code that is not there costs more than code that runs.

[[gnu::cold]] void BeginSecond(time_t now, LineWorkspace* work) {
  std::tm local{};
  localtime_r(&now, &local);
  work->second = trace::SecondOf(local);
  work->since = now;
}

// Returns the nanoseconds of the present time and updates the workspace's second. Most lines share their
// second with the line before, so it is kept.
long TellTime(LineWorkspace* work) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec != work->since) BeginSecond(now.tv_sec, work);
  return now.tv_nsec;
}

[[gnu::cold]] const char* HostName(LineWorkspace* work) {
  if (gethostname(work->host, HOST_NAME_SIZE) != 0) work->host[0] = '\0';
  work->host[HOST_NAME_SIZE - 1] = '\0';
  return work->host;
}

[[gnu::cold]] void MakePath(const PathKey& key, const char* host, LineWorkspace* work) {
  const auto [since, changes, type, dated, channel] = key;
  work->pathKey = key;
  trace::Text path(work->path);
  if (dated) {
    const char* const parent = type == TRACE_HANG ? DunraSTTUtils::GetHangPath() : DunraSTTUtils::GetPath();
    trace::AddDatedFolder(&path, parent, work->second);
    trace::Text(work->folder).Add(path.View()).Terminated();
  }
  trace::AddFileName(&path, type, channel, work->second, host);
  path.Terminated();
}

// Sets the paths of the line's file and of its folder. Both are kept, because most lines go to the same file
// as the line before.
void SetPaths(char type, long channel, bool dated, LineWorkspace* work) {
  const char* const host = DunraSTTUtils::GetLogHostnameFlag() != 0 ? HostName(work) : nullptr;
  const PathKey key{work->since, logSettings.load(std::memory_order_relaxed), type, dated, channel};
  if (key != work->pathKey || host != nullptr) MakePath(key, host, work);
}

// Creates the folder unless it exists with the right mode.
void EnsureFolder(const char* path) {
  struct stat status;
  if (::stat(path, &status) == 0 && (status.st_mode & MODE_BITS) == LOG_FOLDER_MODE) return;
  DunraSTTUtils::MakeFolders(path);
}

int AppendToLogFile(const char* path, std::string_view line) {
  const base::UniqueFd file(::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, LOG_FILE_MODE));
  if (!file.Valid()) return -1;
  [[maybe_unused]] const ssize_t written = ::write(file.Get(), line.data(), line.size());
  return 0;
}

void SaveInLogFile(char type, long channel, long save, LineWorkspace* work, std::string_view line) {
  const bool dated = save != 0;
  SetPaths(type, channel, dated, work);
  if (dated) EnsureFolder(work->folder);
  if (AppendToLogFile(work->path, line) != 0 && type == TRACE_ORDINARY)
    std::fputs("log file open error", stdout);
}

// The message follows the head of a line.
[[gnu::cold]] void ConvertMessage(size_t head, size_t limit, trace::Text* line) {
  const std::string message = trace::ToUtf8(std::string(line->View().substr(head)));
  line->CutTo(head);
  line->Add(std::string_view(message).substr(0, limit));
}

[[gnu::cold]] void EchoAsFormat(std::string_view line) {
  base::Echo(trace::AsPrintFormat(line));
}

[[gnu::format(printf, 6, 0)]] void LogLine(char type, long level, long channel, long save,
                                           const trace::Place& place, const char* format, va_list arguments) {
  const bool hang = type == TRACE_HANG;
  const size_t limit = hang ? trace::HANG_LIMIT : trace::MESSAGE_LIMIT;
  const BorrowedWorkspace borrowed;
  LineWorkspace& work = *borrowed;
  const long nanoseconds = TellTime(&work);
  trace::Text line(work.line);
  if (hang) {
    trace::BeginHangLine(&line, work.second, nanoseconds);
  } else {
    trace::BeginOrdinaryLine(&line, work.second, nanoseconds, level, channel, place);
  }
  const size_t head = line.Size();
  line.AddFormatted(FORMATTED_LIMIT, format, arguments);
  const bool plain = trace::IsPlain(line.View().substr(head));
  if (!plain || line.Size() - head > limit) ConvertMessage(head, limit, &line);
  line.Add("]\n");
  if (plain) {
    base::Echo(line.View());
  } else {
    EchoAsFormat(line.View());
  }
  if (hang || save != 0) SaveInLogFile(type, channel, save, &work, line.View());
}

}  // namespace

void DunraSTTUtils::LogTrace(char type, long level, long channel, long save, const char* file,
                             const char* function, int line, const char* format, ...) {
  if (!LevelPasses(level)) return;
  // At level 0 only the hang log is kept.
  if (type != TRACE_HANG && (type != TRACE_ORDINARY || GetLogLevel() <= 0)) return;
  va_list arguments;
  va_start(arguments, format);
  try {
    LogLine(type, level, channel, save, {file, function, line}, format, arguments);
  } catch (const std::bad_alloc&) {
    std::fputs("no memory for a trace line\n", stderr);
  }
  va_end(arguments);
}

namespace trace {
namespace {

std::string_view Day(const Second& second) {
  return {second.day, sizeof second.day - 1};
}

}  // namespace

[[gnu::cold]] void AddDatedFolder(Text* path, const char* folder, const Second& second) {
  path->Add(folder).Add(Day(second)).Add("/");
}

[[gnu::cold]] void AddFileName(Text* path, char type, long channel, const Second& second, const char* host) {
  const auto addHost = [&] {
    if (host != nullptr) path->Add(host).Add(".");
  };
  if (type == TRACE_HANG) {
    path->Add("hang.");
    addHost();
    path->Add(Day(second)).Add(".log");
  } else if (channel == TRACE_MAIN_CHANNEL) {
    path->Add("MAIN.");
    addHost();
    path->Add("LOG");
  } else {
    path->AddNumber(channel, 5).Add(".");
    addHost();
    path->Add(Day(second).substr(4)).Add(".LOG");  // without the year
  }
}

// An unchanged path is not written again: every report sets the paths, and writing would race with readers.
void KeepLogFolder(char* buffer, const char* path) {
  const auto length = static_cast<unsigned>(std::min(std::strlen(path), LOG_FOLDER_SIZE - 1));
  if (std::strncmp(buffer, path, length) == 0) return;
  DunraSTTUtils::StrNCopy(buffer, LOG_FOLDER_SIZE, path, length);
  LogPathChanged();
}

void LogPathChanged() {
  ++logSettings;
}

}  // namespace trace
