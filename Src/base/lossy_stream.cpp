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

constexpr unsigned NEVER_LOSSY_DEVICES = 1;  // major number of the null device and similar ones
constexpr rlim_t LOSSY_NUMBERS_END = 1024;
constexpr rlim_t LOSSY_NUMBERS_RESERVED = 8;
// Writers wait so long for a slow reader in each second.
constexpr std::chrono::milliseconds LOSSY_PATIENCE{250};

bool MayStall(int candidate_fd) {
  struct stat lossy_candidate;
  if (::fstat(candidate_fd, &lossy_candidate) != 0) return false;
  if (S_ISCHR(lossy_candidate.st_mode)) return major(lossy_candidate.st_rdev) != NEVER_LOSSY_DEVICES;
  return S_ISFIFO(lossy_candidate.st_mode) || S_ISSOCK(lossy_candidate.st_mode);
}

// The time that writers still have to wait for a reader.
class LossyPatience {
 public:
  // Waits until lossy_fd can be written. Returns false when the time for that is used up.
  bool WaitForRoom(int lossy_fd) {
    if (lossy_patience_spent_) return false;
    const auto lossy_wait_start = LossyClock::now();
    if (!lossy_second_ || lossy_wait_start - *lossy_second_ >= std::chrono::seconds(1)) {
      lossy_second_ = lossy_wait_start;
      lossy_patience_left_ = LOSSY_PATIENCE;
    }
    pollfd lossy_room{lossy_fd, POLLOUT, 0};
    const timespec lossy_wait_limit{0, std::max<int64_t>(lossy_patience_left_.count(), 0)};
    ::ppoll(&lossy_room, 1, &lossy_wait_limit, nullptr);
    lossy_patience_left_ -= LossyClock::now() - lossy_wait_start;
    lossy_patience_spent_ = lossy_patience_left_.count() <= 0;
    return !lossy_patience_spent_;
  }
  void Renew() { lossy_patience_spent_ = false; }

 private:
  using LossyClock = std::chrono::steady_clock;

  std::optional<LossyClock::time_point> lossy_second_;  // start of the second of lossy_patience_left_
  std::chrono::nanoseconds lossy_patience_left_{0};
  bool lossy_patience_spent_ = false;
};

// One write that does not block. Returns the number of bytes written, or -1 with errno (EAGAIN: no space
// now).
using WriteNow = ssize_t (*)(int lossy_fd, const char* data, size_t size);

ssize_t WriteOwnStream(int lossy_fd, const char* data, size_t size) {
  return ::write(lossy_fd, data, size);
}

ssize_t WriteSocketStream(int lossy_fd, const char* data, size_t size) {
  return ::send(lossy_fd, data, size, MSG_DONTWAIT);
}

// For a file description that other processes use in blocking mode. A kernel without RWF_NOWAIT for this file
// gets at most PIPE_BUF bytes after poll(2): so many fit whenever anything fits.
ssize_t WriteSharedStream(int lossy_fd, const char* data, size_t size) {
  const iovec lossy_piece{const_cast<char*>(data), std::min<size_t>(size, PIPE_BUF)};
  const ssize_t lossy_written = ::pwritev2(lossy_fd, &lossy_piece, 1, -1, RWF_NOWAIT);
  if (lossy_written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS)) return lossy_written;
  pollfd lossy_room{lossy_fd, POLLOUT, 0};
  if (::poll(&lossy_room, 1, 0) > 0) return ::write(lossy_fd, lossy_piece.iov_base, lossy_piece.iov_len);
  errno = EAGAIN;
  return -1;
}

// The destination of a lossy stream.
class LossySink {
 public:
  // lossy_fd belongs to own or to file, or outlives the sink.
  LossySink(int lossy_fd, WriteNow write, UniqueFd own = {}, UniqueFile file = nullptr)
      : lossy_sink_fd_(lossy_fd),
        write_now_(write),
        own_lossy_fd_(std::move(own)),
        own_lossy_file_(std::move(file)) {}

  // Returns 0 when the text was written or dropped, or -1 with errno.
  [[gnu::noinline]] int Write(std::string_view lossy_text) {
    const std::lock_guard<std::mutex> lossy_sink_lock(lossy_sink_mutex_);
    if (lossy_line_cut_) {
      const ssize_t lossy_line_ended = PutUntilFull("\n");
      if (lossy_line_ended <= 0) return static_cast<int>(lossy_line_ended);
    }
    const ssize_t lossy_written = PutUntilFull(lossy_text);
    lossy_line_cut_ = lossy_written > 0 && static_cast<size_t>(lossy_written) < lossy_text.size() &&
                      lossy_text[lossy_written - 1] != '\n';
    return lossy_written < 0 ? -1 : 0;
  }

 private:
  // Returns how many bytes were written before space ran out, or -1 with errno.
  ssize_t PutUntilFull(std::string_view lossy_text) {
    size_t lossy_size = 0;
    while (lossy_size < lossy_text.size()) {
      const ssize_t lossy_written =
          write_now_(lossy_sink_fd_, lossy_text.data() + lossy_size, lossy_text.size() - lossy_size);
      if (lossy_written > 0) {
        lossy_size += static_cast<size_t>(lossy_written);
        lossy_patience_.Renew();
        continue;
      }
      const int lossy_error = lossy_written < 0 ? errno : EAGAIN;
      if (lossy_error == EINTR) continue;
      if (lossy_error != EAGAIN && lossy_error != ENOBUFS) return -1;
      if (!lossy_patience_.WaitForRoom(lossy_sink_fd_)) break;
    }
    return static_cast<ssize_t>(lossy_size);
  }

  std::mutex lossy_sink_mutex_;
  int lossy_sink_fd_;
  WriteNow write_now_;
  UniqueFd own_lossy_fd_;
  UniqueFile own_lossy_file_;
  LossyPatience lossy_patience_;
  bool lossy_line_cut_ = false;  // the last text ended in the middle of a line
};

ssize_t WriteToLossySink(void* sink, const char* data, size_t size) {
  return static_cast<LossySink*>(sink)->Write({data, size}) == 0 ? static_cast<ssize_t>(size) : 0;
}

int CloseLossySink(void* sink) {
  delete static_cast<LossySink*>(sink);
  return 0;
}

// Returns null with errno when memory runs out; else *taken_sink is the sink, which closing the stream
// deletes.
FILE* LossyStreamInto(std::unique_ptr<LossySink> sink, LossySink** taken_sink) {
  FILE* const lossy_stream =
      ::fopencookie(sink.get(), "w", {nullptr, WriteToLossySink, nullptr, CloseLossySink});
  if (lossy_stream != nullptr) *taken_sink = sink.release();
  return lossy_stream;
}

// Opens what lossy_fd refers to once more, as a file description of the agent's own. Returns an invalid
// descriptor where the system does not allow that. The new number is high, so that the low numbers stay the
// same as without it.
UniqueFd OpenStreamAgain(int lossy_fd) {
  const std::string lossy_fd_path = Format("/proc/self/fd/%d", lossy_fd);
  const UniqueFd low_lossy_fd(::open(lossy_fd_path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  rlimit lossy_fd_limit{};
  ::getrlimit(RLIMIT_NOFILE, &lossy_fd_limit);
  const rlim_t lossy_numbers_end = std::min(lossy_fd_limit.rlim_cur, LOSSY_NUMBERS_END);
  if (!low_lossy_fd.Valid() || lossy_numbers_end < LOSSY_NUMBERS_RESERVED) return {};
  return UniqueFd(::fcntl(low_lossy_fd.Get(), F_DUPFD_CLOEXEC,
                          static_cast<int>(lossy_numbers_end - LOSSY_NUMBERS_RESERVED)));
}

std::unique_ptr<LossySink> LossySinkTo(int lossy_fd) {
  struct stat lossy_candidate {};
  ::fstat(lossy_fd, &lossy_candidate);
  if (S_ISSOCK(lossy_candidate.st_mode)) return std::make_unique<LossySink>(lossy_fd, WriteSocketStream);
  UniqueFd own_sink_fd = OpenStreamAgain(lossy_fd);
  if (!own_sink_fd.Valid()) return std::make_unique<LossySink>(lossy_fd, WriteSharedStream);
  const int own_lossy_fd = own_sink_fd.Get();
  return std::make_unique<LossySink>(own_lossy_fd, WriteOwnStream, std::move(own_sink_fd));
}

// A standard stream and its lossy replacement.
struct LossyStandardStream {
  FILE** stream_variable;
  FILE* lossless_stream;
  int standard_fd;
  int buffering_mode;
  LossySink* lossy_sink;  // of the replacement; null when there is none

  void MakePlain() {
    if (lossy_sink == nullptr) return;
    lossy_sink = nullptr;
    std::fclose(std::exchange(*stream_variable, lossless_stream));
  }
  void MakeLossy() {
    FILE* const lossy_stream = LossyStreamInto(LossySinkTo(standard_fd), &lossy_sink);
    if (lossy_stream == nullptr) return;
    std::setvbuf(lossy_stream, nullptr, buffering_mode, BUFSIZ);
    std::fflush(lossless_stream);
    *stream_variable = lossy_stream;
  }
};

LossyStandardStream lossy_output = {&stdout, stdout, STDOUT_FILENO, _IOLBF, nullptr};
LossyStandardStream lossy_errors = {&stderr, stderr, STDERR_FILENO, _IONBF, nullptr};

void WriteLossless(int plain_fd, std::string_view lossless_rest) {
  while (!lossless_rest.empty()) {
    const ssize_t written = ::write(plain_fd, lossless_rest.data(), lossless_rest.size());
    if (written <= 0) return;
    lossless_rest.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void MakeStandardStreamsLossy() {
  for (LossyStandardStream* lossy_standard_stream : {&lossy_output, &lossy_errors}) {
    lossy_standard_stream->MakePlain();
    if (MayStall(lossy_standard_stream->standard_fd)) lossy_standard_stream->MakeLossy();
  }
}

UniqueFile LossyStream(UniqueFile file) {
  const int lossy_fd = file ? ::fileno(file.get()) : -1;
  if (!MayStall(lossy_fd)) return file;
  ::fcntl(lossy_fd, F_SETFL, ::fcntl(lossy_fd, F_GETFL) | O_NONBLOCK);
  LossySink* taken_sink = nullptr;
  return UniqueFile(LossyStreamInto(
      std::make_unique<LossySink>(lossy_fd, WriteOwnStream, UniqueFd(), std::move(file)), &taken_sink));
}

// Without the lock of stdout, which costs as much as the rest: what another thread prints at this very moment
// may come before or after the text.
void Echo(std::string_view lossy_text) {
  if (::__fpending(stdout) != 0) {
    std::fwrite(lossy_text.data(), 1, lossy_text.size(), stdout);
  } else if (lossy_output.lossy_sink != nullptr) {
    lossy_output.lossy_sink->Write(lossy_text);
  } else {
    WriteLossless(STDOUT_FILENO, lossy_text);
  }
}

}  // namespace base
