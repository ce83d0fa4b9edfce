#include "ctl/start_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "ctl/accept_queue.h"
#include "ctl/clock.h"
#include "ctl/process_table.h"
#include "ctl/restart_state.h"
#include "ctl/start_helper.h"

namespace ctl {
namespace {

constexpr int64_t LIMIT_MS = 60'000;
constexpr int LOOK_MS = 250;  // between two looks at the port
constexpr double MS = 1000;

// As in <linux/pidfd.h> since kernel 6.15; Debian 12's headers do not have it.
struct PidfdInfo {
  uint64_t mask;
  uint64_t cgroup;
  std::array<uint32_t, 11> ids;
  int32_t exit_code;
};
constexpr uint64_t INFO_EXIT = 1U << 3;
constexpr unsigned long GET_INFO = _IOWR(0xFF, 11, PidfdInfo);

class Watch {
 public:
  Watch(const RecordFolder& folder, WatchPlan plan, int channel)
      : folder_(folder), plan_(std::move(plan)), channel_(channel), record_(plan_.line.record) {}

  void Run() {
    while (!Done() && BootMilliseconds() - begin_ < LIMIT_MS) {
      Wait();
      LookAtCommand();
      LookAtPort();
      LookAtEngine();
      Complete();
    }
  }

 private:
  bool Done() const {
    const bool port = !plan_.watch_port || record_.seconds_to_port;
    return over_ || (ended_ && port && noted_);
  }

  void Wait() {
    std::array<pollfd, 2> ready{};
    nfds_t count = 0;
    if (!ended_ && plan_.command.Valid()) ready[count++] = {plan_.command.Get(), POLLIN, 0};
    if (!ended_ && channel_ >= 0) ready[count++] = {channel_, POLLIN, 0};
    ::poll(ready.data(), count, LOOK_MS);
  }

  // A starter that stays as the command's parent sends its status. Otherwise the starter has become the
  // command.
  void LookAtCommand() {
    int said = 0;
    ssize_t got = -1;
    while (channel_ >= 0 && (got = ::recv(channel_, &said, sizeof said, MSG_DONTWAIT)) > 0) {
      if (said != RUNNING) return End(said);
      running_ = true;
    }
    if (got == 0) channel_ = -1;
    if (channel_ >= 0 || ended_) return;
    if (!running_) return TakeBack();
    pollfd process = {plan_.command.Get(), POLLIN, 0};
    if (plan_.command.Valid() && ::poll(&process, 1, 0) == 0) return;
    // It has ended but is perhaps not reaped yet; the kernel tells the status once it is.
    const int64_t end = BootMilliseconds() + LOOK_MS;
    int told = -1;
    while ((told = ReapedStatus(plan_.command.Get())) < 0 && BootMilliseconds() < end) ::poll(nullptr, 0, 10);
    End(told);
  }

  // Nothing was started, so the next start has nothing to wait for.
  void TakeBack() {
    ChangeState(folder_, [this](RestartState* state) {
      if (state->row.last_ms == plan_.started_ms) state->row = plan_.before;
    });
    ::_exit(0);
  }

  void End(int status) {
    ended_ = true;
    if (status >= 0) record_.command_status = ShellStatus(status);
  }

  void LookAtPort() {
    if (!plan_.watch_port || record_.seconds_to_port) return;
    const auto found = ReadAcceptQueue(static_cast<uint16_t>(plan_.config.port));
    if (found && found->listening)
      record_.seconds_to_port = static_cast<double>(BootMilliseconds() - begin_) / MS;
  }

  void LookAtEngine() {
    if (noted_) return;
    over_ = ReadState(folder_).row.last_ms != plan_.started_ms;
    const auto engine = over_ ? std::nullopt : FindLiving(plan_.config.process);
    if (!engine) return;
    noted_ = true;
    ChangeState(folder_, [&](RestartState* state) { NoteEngine(*engine, plan_.config.port, state); });
  }

  void Complete() {
    if (StartLine(record_) == StartLine(plan_.line.record)) return;
    if (CompleteStart(folder_, plan_.line, record_) == 0) plan_.line.record = record_;
  }

  const RecordFolder& folder_;
  WatchPlan plan_;
  int channel_;
  StartRecord record_;
  int64_t begin_ = BootMilliseconds();
  bool running_ = false;
  bool ended_ = false;
  bool noted_ = plan_.config.process.empty();
  bool over_ = false;  // another start has begun since
};

void Detach() {
  ::setsid();
  [[maybe_unused]] const int changed = ::chdir("/");
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int fd = STDIN_FILENO; null >= 0 && fd <= STDERR_FILENO; ++fd) ::dup2(null, fd);
}

}  // namespace

int ReapedStatus(int pidfd) {
  PidfdInfo info{};
  info.mask = INFO_EXIT;
  if (::ioctl(pidfd, GET_INFO, &info) != 0 || (info.mask & INFO_EXIT) == 0) return -1;
  return info.exit_code;
}

int ShellStatus(int wait_status) {
  return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

void RunStartWatch(const RecordFolder& folder, WatchPlan plan, int channel) {
  Detach();
  Watch(folder, std::move(plan), channel).Run();
  ::_exit(0);
}

}  // namespace ctl
