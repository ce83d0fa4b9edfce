#include "base/lossy_stream.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "base/format.h"

namespace base {
namespace {

constexpr unsigned MEMORY_DEVICES = 1;  // major number of the null device and similar ones
constexpr rlim_t DESCRIPTOR_NUMBERS_END = 1024;
constexpr rlim_t RESERVED_DESCRIPTORS = 8;
constexpr std::chrono::milliseconds PATIENCE{250};  // writers wait so long for a slow reader in each second

bool MayStall(int fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0) return false;
  if (S_ISCHR(status.st_mode)) return major(status.st_rdev) != MEMORY_DEVICES;
  return S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

// The time that writers still have to wait for a reader.
class Patience {
 public:
  // Waits until fd can be written. Returns false when the time for that is used up.
  bool WaitForRoom(int fd) {
    if (exhausted_) return false;
    const auto start = Clock::now();
    if (!second_ || start - *second_ >= std::chrono::seconds(1)) {
      second_ = start;
      left_ = PATIENCE;
    }
    pollfd room{fd, POLLOUT, 0};
    const timespec limit{0, std::max<int64_t>(left_.count(), 0)};
    ::ppoll(&room, 1, &limit, nullptr);
    left_ -= Clock::now() - start;
    exhausted_ = left_.count() <= 0;
    return !exhausted_;
  }
  void Renew() { exhausted_ = false; }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Clock::time_point> second_;  // start of the second that left_ belongs to
  std::chrono::nanoseconds left_{0};
  bool exhausted_ = false;
};

// One write that does not block. Returns the number of bytes written, or -1 with errno (EAGAIN: no space
// now).
using WriteNow = ssize_t (*)(int fd, const char* data, size_t size);

ssize_t WriteOwn(int fd, const char* data, size_t size) {
  return ::write(fd, data, size);
}

ssize_t WriteSocket(int fd, const char* data, size_t size) {
  return ::send(fd, data, size, MSG_DONTWAIT);
}

// For a file description that other processes use in blocking mode. A kernel without RWF_NOWAIT for this file
// gets at most PIPE_BUF bytes after poll(2): so many fit whenever anything fits.
ssize_t WriteShared(int fd, const char* data, size_t size) {
  const iovec piece{const_cast<char*>(data), std::min<size_t>(size, PIPE_BUF)};
  const ssize_t written = ::pwritev2(fd, &piece, 1, -1, RWF_NOWAIT);
  if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS)) return written;
  pollfd room{fd, POLLOUT, 0};
  if (::poll(&room, 1, 0) > 0) return ::write(fd, piece.iov_base, piece.iov_len);
  errno = EAGAIN;
  return -1;
}

// The destination of a lossy stream.
class LossySink {
 public:
  // fd belongs to own or to file, or outlives the sink.
  LossySink(int fd, WriteNow write, UniqueFd own = {}, UniqueFile file = nullptr)
      : fd_(fd), write_(write), own_(std::move(own)), file_(std::move(file)) {}

  // Returns 0 when the text was written or dropped, or -1 with errno.
  [[gnu::noinline]] int Write(std::string_view text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (cut_) {
      const ssize_t ended = Put("\n");
      if (ended <= 0) return static_cast<int>(ended);
    }
    const ssize_t written = Put(text);
    cut_ = written > 0 && static_cast<size_t>(written) < text.size() && text[written - 1] != '\n';
    return written < 0 ? -1 : 0;
  }

 private:
  // Returns how many bytes were written before space ran out, or -1 with errno.
  ssize_t Put(std::string_view text) {
    size_t done = 0;
    while (done < text.size()) {
      const ssize_t written = write_(fd_, text.data() + done, text.size() - done);
      if (written > 0) {
        done += static_cast<size_t>(written);
        patience_.Renew();
        continue;
      }
      const int error = written < 0 ? errno : EAGAIN;
      if (error == EINTR) continue;
      if (error != EAGAIN && error != ENOBUFS) return -1;
      if (!patience_.WaitForRoom(fd_)) break;
    }
    return static_cast<ssize_t>(done);
  }

  std::mutex mutex_;
  int fd_;
  WriteNow write_;
  UniqueFd own_;
  UniqueFile file_;
  Patience patience_;
  bool cut_ = false;  // the last text ended in the middle of a line
};

ssize_t WriteToSink(void* sink, const char* data, size_t size) {
  return static_cast<LossySink*>(sink)->Write({data, size}) == 0 ? static_cast<ssize_t>(size) : 0;
}

int CloseSink(void* sink) {
  delete static_cast<LossySink*>(sink);
  return 0;
}

// Returns null with errno when memory runs out; else *taken is the sink, which closing the stream deletes.
FILE* StreamInto(std::unique_ptr<LossySink> sink, LossySink** taken) {
  FILE* const stream = ::fopencookie(sink.get(), "w", {nullptr, WriteToSink, nullptr, CloseSink});
  if (stream != nullptr) *taken = sink.release();
  return stream;
}

// Opens what fd refers to once more, as a file description of the agent's own. Returns an invalid descriptor
// where the system does not allow that. The new number is high, so that the low numbers stay the same as
// without it.
UniqueFd OpenAgain(int fd) {
  const std::string path = Format("/proc/self/fd/%d", fd);
  const UniqueFd low(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t end = std::min(limit.rlim_cur, DESCRIPTOR_NUMBERS_END);
  if (!low.Valid() || end < RESERVED_DESCRIPTORS) return {};
  return UniqueFd(::fcntl(low.Get(), F_DUPFD_CLOEXEC, static_cast<int>(end - RESERVED_DESCRIPTORS)));
}

std::unique_ptr<LossySink> SinkTo(int fd) {
  struct stat status {};
  ::fstat(fd, &status);
  if (S_ISSOCK(status.st_mode)) return std::make_unique<LossySink>(fd, WriteSocket);
  UniqueFd own = OpenAgain(fd);
  if (!own.Valid()) return std::make_unique<LossySink>(fd, WriteShared);
  const int number = own.Get();
  return std::make_unique<LossySink>(number, WriteOwn, std::move(own));
}

// A standard stream and its lossy replacement.
struct StandardStream {
  FILE** variable;
  FILE* plain;
  int fd;
  int buffering;
  LossySink* sink;  // of the replacement; null when there is none

  void MakePlain() {
    if (sink == nullptr) return;
    sink = nullptr;
    std::fclose(std::exchange(*variable, plain));
  }
  void MakeLossy() {
    FILE* const stream = StreamInto(SinkTo(fd), &sink);
    if (stream == nullptr) return;
    std::setvbuf(stream, nullptr, buffering, BUFSIZ);
    std::fflush(plain);
    *variable = stream;
  }
};

StandardStream output = {&stdout, stdout, STDOUT_FILENO, _IOLBF, nullptr};
StandardStream errors = {&stderr, stderr, STDERR_FILENO, _IONBF, nullptr};

void WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written <= 0) return;
    text.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void MakeStandardStreamsLossy() {
  for (StandardStream* stream : {&output, &errors}) {
    stream->MakePlain();
    if (MayStall(stream->fd)) stream->MakeLossy();
  }
}

UniqueFile LossyStream(UniqueFile file) {
  const int fd = file ? ::fileno(file.get()) : -1;
  if (!MayStall(fd)) return file;
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  LossySink* taken = nullptr;
  return UniqueFile(
      StreamInto(std::make_unique<LossySink>(fd, WriteOwn, UniqueFd(), std::move(file)), &taken));
}

// Without the lock of stdout, which costs as much as the rest: what another thread prints at this very moment
// may come before or after the text.
void Echo(std::string_view text) {
  if (::__fpending(stdout) != 0) {
    std::fwrite(text.data(), 1, text.size(), stdout);
  } else if (output.sink != nullptr) {
    output.sink->Write(text);
  } else {
    WriteAll(STDOUT_FILENO, text);
  }
}

}  // namespace base
