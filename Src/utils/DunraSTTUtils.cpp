#include "utils/DunraSTTUtils.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "base/owners.h"
#include "charset/cp949.h"
#include "utils/trace_line.h"

char DunraSTTUtils::mDunraSTTPath[4096];
char DunraSTTUtils::mDunraHangPath[4096];
std::atomic<long> DunraSTTUtils::mDunraSTTLogLvl{0};
std::atomic<long> DunraSTTUtils::mDunraSTTLogHostFlag{0};

namespace {

constexpr size_t MESSAGE_SIZE = 100'000;
constexpr size_t PATH_SIZE = 4096;
constexpr size_t HOST_SIZE = 4096;
constexpr mode_t LOG_MODE = 0655;

// The local time of a second is kept, as most lines share theirs with the one before.
trace::Moment Now() {
  static thread_local time_t second = -1;
  static thread_local std::tm local;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec != second) {
    localtime_r(&now.tv_sec, &local);
    second = now.tv_sec;
  }
  return {local, now.tv_nsec};
}

// The formatted message, cut to what a message may hold. Almost all fit the small buffer.
class Message {
 public:
  [[gnu::format(printf, 2, 0)]] Message(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(small_.data(), small_.size(), format, arguments);
    if (length < 0) {
      small_[0] = '\0';
    } else if (static_cast<size_t>(length) >= small_.size()) {
      large_.reset(new char[MESSAGE_SIZE]);
      std::vsnprintf(large_.get(), MESSAGE_SIZE, format, again);
    }
    va_end(again);
  }
  const char* Text() const { return large_ ? large_.get() : small_.data(); }

 private:
  std::array<char, 2048> small_;
  std::unique_ptr<char[]> large_;
};

std::string HostNameForFiles() {
  std::array<char, HOST_SIZE> host{};
  if (gethostname(host.data(), host.size() - 1) != 0) return {};
  return host.data();
}

void Echo(const std::string& line) {
  if (line.find("%%") == std::string::npos) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    return;
  }
  const std::string text = trace::AsPrintFormat(line);
  std::fwrite(text.data(), 1, text.size(), stdout);
}

int Append(const std::string& name, const std::string& line) {
  const base::UniqueFd file(::open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, LOG_MODE));
  if (!file.Valid()) return -1;
  [[maybe_unused]] const ssize_t written = ::write(file.Get(), line.data(), line.size());
  return 0;
}

// The folder of today is nearly always there, so it is only made when the file cannot be opened without.
void Save(char type, long channel, long save, const trace::Moment& moment, const std::string& line) {
  const bool ordinary = type == TRACE_ORDINARY && DunraSTTUtils::GetLogLevel() > 0 && save != 0;
  if (!ordinary && type != TRACE_HANG) return;
  const char* parent = type == TRACE_HANG ? DunraSTTUtils::GetHangPath() : DunraSTTUtils::GetPath();
  const std::string folder = save != 0 ? trace::DatedFolder(parent, moment.local) : std::string();
  const bool withHost = DunraSTTUtils::GetLogHostnameFlag() != 0;
  const std::string name = trace::FileName(type, channel, folder, moment.local, withHost,
                                           withHost ? HostNameForFiles() : std::string());
  if (Append(name, line) == 0) return;
  if (save != 0) {
    DunraSTTUtils::MakeFolders(folder.c_str());
    if (Append(name, line) == 0) return;
  }
  if (ordinary) std::fputs("log file open error", stdout);
}

void TraceLine(char type, long level, long channel, long save, const trace::Place& place, std::string raw) {
  const trace::Moment moment = Now();
  const std::string message = trace::ToUtf8(std::move(raw));
  std::string line;
  if (type == TRACE_ORDINARY) line = trace::OrdinaryLine(moment, level, channel, place, message);
  if (DunraSTTUtils::GetLogLevel() > 0) Echo(line);
  if (type == TRACE_HANG) {
    line = trace::HangLine(moment, message);
    Echo(line);
  }
  Save(type, channel, save, moment, line);
}

// Writing what already stands there would change nothing but race with readers: every report sets the paths
// again.
void SetStaticPath(char* buffer, const char* path) {
  const auto length = static_cast<unsigned>(std::min(std::strlen(path), PATH_SIZE - 1));
  if (std::strncmp(buffer, path, length) != 0) DunraSTTUtils::StrNCopy(buffer, PATH_SIZE, path, length);
}

}  // namespace

DunraSTTUtils::DunraSTTUtils() {
  std::fill(std::begin(mDunraSTTPath), std::end(mDunraSTTPath), '\0');
}

void DunraSTTUtils::LogTrace(char type, long level, long channel, long save, const char* file,
                             const char* function, int line, const char* format, ...) {
  if (!LevelPasses(level)) return;
  va_list arguments;
  va_start(arguments, format);
  try {
    TraceLine(type, level, channel, save, {file, function, line}, Message(format, arguments).Text());
  } catch (const std::bad_alloc&) {
    std::fputs("no memory for a trace line\n", stderr);
  }
  va_end(arguments);
}

void DunraSTTUtils::SetPath(const char* path) {
  SetStaticPath(mDunraSTTPath, path);
}
const char* DunraSTTUtils::GetPath() {
  return mDunraSTTPath;
}
void DunraSTTUtils::SetHangPath(const char* path) {
  SetStaticPath(mDunraHangPath, path);
}
const char* DunraSTTUtils::GetHangPath() {
  return mDunraHangPath;
}
void DunraSTTUtils::SetLogLevel(long level) {
  mDunraSTTLogLvl = level;
}
long DunraSTTUtils::GetLogLevel() {
  return mDunraSTTLogLvl;
}
void DunraSTTUtils::SetLogHostnameFlag(long flag) {
  mDunraSTTLogHostFlag = flag;
}
long DunraSTTUtils::GetLogHostnameFlag() {
  return mDunraSTTLogHostFlag;
}

void DunraSTTUtils::StrNCopy(char* dst, unsigned /*size*/, const char* src, unsigned len) {
  const size_t text = strnlen(src, len);
  std::memcpy(dst, src, text);
  std::memset(dst + text, 0, len - text);
}

char* DunraSTTUtils::StrCate(char* dst, unsigned /*size*/, const char* src) {
  return std::strcat(dst, src);
}
