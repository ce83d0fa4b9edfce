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
// Writers wait so long for a slow reader in each second.
constexpr std::chrono::milliseconds READER_PATIENCE{250};

bool MayStall(int stream_fd) {
  struct stat stream_status;
  if (::fstat(stream_fd, &stream_status) != 0) return false;
  if (S_ISCHR(stream_status.st_mode)) return major(stream_status.st_rdev) != MEMORY_DEVICES;
  return S_ISFIFO(stream_status.st_mode) || S_ISSOCK(stream_status.st_mode);
}

// The time that writers still have to wait for a reader.
class Patience {
 public:
  // Waits until fd can be written. Returns false when the time for that is used up.
  bool WaitForRoom(int fd) {
    if (patience_exhausted_) return false;
    const auto wait_start = PatienceClock::now();
    if (!patient_second_ || wait_start - *patient_second_ >= std::chrono::seconds(1)) {
      patient_second_ = wait_start;
      patience_left_ = READER_PATIENCE;
    }
    pollfd room{fd, POLLOUT, 0};
    const timespec wait_limit{0, std::max<int64_t>(patience_left_.count(), 0)};
    ::ppoll(&room, 1, &wait_limit, nullptr);
    patience_left_ -= PatienceClock::now() - wait_start;
    patience_exhausted_ = patience_left_.count() <= 0;
    return !patience_exhausted_;
  }
  void Renew() { patience_exhausted_ = false; }

 private:
  using PatienceClock = std::chrono::steady_clock;

  std::optional<PatienceClock::time_point> patient_second_;  // start of the second of patience_left_
  std::chrono::nanoseconds patience_left_{0};
  bool patience_exhausted_ = false;
};

// One write that does not block. Returns the number of bytes written, or -1 with errno (EAGAIN: no space
// now).
using WriteNow = ssize_t (*)(int fd, const char* data, size_t size);

ssize_t WriteOwnStream(int fd, const char* data, size_t size) {
  return ::write(fd, data, size);
}

ssize_t WriteSocketStream(int fd, const char* data, size_t size) {
  return ::send(fd, data, size, MSG_DONTWAIT);
}

// For a file description that other processes use in blocking mode. A kernel without RWF_NOWAIT for this file
// gets at most PIPE_BUF bytes after poll(2): so many fit whenever anything fits.
ssize_t WriteSharedStream(int fd, const char* data, size_t size) {
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
      : sink_fd_(fd), write_now_(write), own_sink_fd_(std::move(own)), own_sink_file_(std::move(file)) {}

  // Returns 0 when the text was written or dropped, or -1 with errno.
  [[gnu::noinline]] int Write(std::string_view text) {
    const std::lock_guard<std::mutex> sink_lock(sink_mutex_);
    if (line_cut_) {
      const ssize_t line_ended = PutUntilFull("\n");
      if (line_ended <= 0) return static_cast<int>(line_ended);
    }
    const ssize_t written = PutUntilFull(text);
    line_cut_ = written > 0 && static_cast<size_t>(written) < text.size() && text[written - 1] != '\n';
    return written < 0 ? -1 : 0;
  }

 private:
  // Returns how many bytes were written before space ran out, or -1 with errno.
  ssize_t PutUntilFull(std::string_view text) {
    size_t put_size = 0;
    while (put_size < text.size()) {
      const ssize_t written = write_now_(sink_fd_, text.data() + put_size, text.size() - put_size);
      if (written > 0) {
        put_size += static_cast<size_t>(written);
        patience_.Renew();
        continue;
      }
      const int put_error = written < 0 ? errno : EAGAIN;
      if (put_error == EINTR) continue;
      if (put_error != EAGAIN && put_error != ENOBUFS) return -1;
      if (!patience_.WaitForRoom(sink_fd_)) break;
    }
    return static_cast<ssize_t>(put_size);
  }

  std::mutex sink_mutex_;
  int sink_fd_;
  WriteNow write_now_;
  UniqueFd own_sink_fd_;
  UniqueFile own_sink_file_;
  Patience patience_;
  bool line_cut_ = false;  // the last text ended in the middle of a line
};

ssize_t WriteToLossySink(void* sink, const char* data, size_t size) {
  return static_cast<LossySink*>(sink)->Write({data, size}) == 0 ? static_cast<ssize_t>(size) : 0;
}

int CloseLossySink(void* sink) {
  delete static_cast<LossySink*>(sink);
  return 0;
}

// Returns null with errno when memory runs out; else *taken is the sink, which closing the stream deletes.
FILE* LossyStreamInto(std::unique_ptr<LossySink> sink, LossySink** taken_sink) {
  FILE* const lossy_stream =
      ::fopencookie(sink.get(), "w", {nullptr, WriteToLossySink, nullptr, CloseLossySink});
  if (lossy_stream != nullptr) *taken_sink = sink.release();
  return lossy_stream;
}

// Opens what fd refers to once more, as a file description of the agent's own. Returns an invalid descriptor
// where the system does not allow that. The new number is high, so that the low numbers stay the same as
// without it.
UniqueFd OpenStreamAgain(int fd) {
  const std::string fd_path = Format("/proc/self/fd/%d", fd);
  const UniqueFd low_fd(::open(fd_path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  rlimit descriptor_limit{};
  ::getrlimit(RLIMIT_NOFILE, &descriptor_limit);
  const rlim_t numbers_end = std::min(descriptor_limit.rlim_cur, DESCRIPTOR_NUMBERS_END);
  if (!low_fd.Valid() || numbers_end < RESERVED_DESCRIPTORS) return {};
  return UniqueFd(
      ::fcntl(low_fd.Get(), F_DUPFD_CLOEXEC, static_cast<int>(numbers_end - RESERVED_DESCRIPTORS)));
}

std::unique_ptr<LossySink> LossySinkTo(int fd) {
  struct stat stream_status {};
  ::fstat(fd, &stream_status);
  if (S_ISSOCK(stream_status.st_mode)) return std::make_unique<LossySink>(fd, WriteSocketStream);
  UniqueFd own_sink_fd = OpenStreamAgain(fd);
  if (!own_sink_fd.Valid()) return std::make_unique<LossySink>(fd, WriteSharedStream);
  const int number = own_sink_fd.Get();
  return std::make_unique<LossySink>(number, WriteOwnStream, std::move(own_sink_fd));
}

// A standard stream and its lossy replacement.
struct StandardStream {
  FILE** stream_variable;
  FILE* plain_stream;
  int standard_fd;
  int buffering_mode;
  LossySink* lossy_sink;  // of the replacement; null when there is none

  void MakePlain() {
    if (lossy_sink == nullptr) return;
    lossy_sink = nullptr;
    std::fclose(std::exchange(*stream_variable, plain_stream));
  }
  void MakeLossy() {
    FILE* const lossy_stream = LossyStreamInto(LossySinkTo(standard_fd), &lossy_sink);
    if (lossy_stream == nullptr) return;
    std::setvbuf(lossy_stream, nullptr, buffering_mode, BUFSIZ);
    std::fflush(plain_stream);
    *stream_variable = lossy_stream;
  }
};

StandardStream standard_output = {&stdout, stdout, STDOUT_FILENO, _IOLBF, nullptr};
StandardStream standard_errors = {&stderr, stderr, STDERR_FILENO, _IONBF, nullptr};

void WritePlain(int fd, std::string_view unwritten) {
  while (!unwritten.empty()) {
    const ssize_t written = ::write(fd, unwritten.data(), unwritten.size());
    if (written <= 0) return;
    unwritten.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void MakeStandardStreamsLossy() {
  for (StandardStream* standard_stream : {&standard_output, &standard_errors}) {
    standard_stream->MakePlain();
    if (MayStall(standard_stream->standard_fd)) standard_stream->MakeLossy();
  }
}

UniqueFile LossyStream(UniqueFile file) {
  const int stream_fd = file ? ::fileno(file.get()) : -1;
  if (!MayStall(stream_fd)) return file;
  ::fcntl(stream_fd, F_SETFL, ::fcntl(stream_fd, F_GETFL) | O_NONBLOCK);
  LossySink* taken_sink = nullptr;
  return UniqueFile(LossyStreamInto(
      std::make_unique<LossySink>(stream_fd, WriteOwnStream, UniqueFd(), std::move(file)), &taken_sink));
}

// Without the lock of stdout, which costs as much as the rest: what another thread prints at this very moment
// may come before or after the text.
void Echo(std::string_view text) {
  if (::__fpending(stdout) != 0) {
    std::fwrite(text.data(), 1, text.size(), stdout);
  } else if (standard_output.lossy_sink != nullptr) {
    standard_output.lossy_sink->Write(text);
  } else {
    WritePlain(STDOUT_FILENO, text);
  }
}

}  // namespace base
