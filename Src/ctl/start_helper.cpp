#include "ctl/start_helper.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <functional>
#include <optional>
#include <utility>

#include "ctl/accept_queue.h"
#include "ctl/agent_config.h"
#include "ctl/claim.h"
#include "ctl/clock.h"
#include "ctl/evidence.h"
#include "ctl/output.h"
#include "ctl/pause.h"
#include "ctl/process_table.h"
#include "ctl/restart_state.h"
#include "ctl/start_record.h"
#include "ctl/start_watch.h"

namespace ctl {
namespace {

constexpr const char* ALL_THE_SAME = "; the engine is started all the same";
constexpr int64_t LIFE_LIMIT_S = HELPER_LIMIT_MS / 1000 + 2;
constexpr int64_t SLACK_MS = 200;  // the starter may have begun to wait this much earlier

struct Hold {
  Answer answer;
  std::string reason;  // the word for the record
  std::string note;    // the reason in words
};

class Helper {
 public:
  Helper(const StartPlan& plan, int channel)
      : plan_(plan),
        channel_(channel),
        starter_(static_cast<int>(::syscall(SYS_pidfd_open, plan.starter, 0))) {}

  void Run() {
    config_ = FindAgentConfig(plan_.config, plan_.starter, &complaint_);
    if (!config_) {
      Complain(complaint_ + ALL_THE_SAME);
      return Send(Answer::START);
    }
    folder_ = RecordFolder::Open(*config_, RecordFolder::For::WRITING, &complaint_);
    if (!folder_) Complain("no record: " + complaint_ + ALL_THE_SAME);
    if (const auto hold = WhyHeld()) return Held(*hold);
    Start();
  }

 private:
  std::optional<Hold> WhyHeld() {
    if (auto hold = AnotherStart()) return hold;
    // From here on no other start is under way: what the last one left is complete, and not younger than now.
    now_ = Now();
    if (folder_) state_ = ReadState(*folder_);
    if (auto hold = Paused()) return hold;
    if (auto hold = EngineIsBack()) return hold;
    return BackOff();
  }

  std::optional<Hold> AnotherStart() {
    const auto starter = ReadProcess(plan_.starter);
    if (!folder_ || !starter) return std::nullopt;
    const Claim ours = {starter->pid, starter->start, now_.boot_ms, now_.boot_id};
    switch (TakeClaim(*folder_, ours, &complaint_)) {
      case Claimed::OURS:
        break;
      case Claimed::ANOTHERS:
        return Hold{Answer::HELD, "another-start", "another start is under way"};
      case Claimed::UNSURE:
        Complain("no lock: " + complaint_ + ALL_THE_SAME);
    }
    return std::nullopt;
  }

  std::optional<Hold> Paused() {
    const auto pause = folder_ ? ReadPause(*folder_, now_) : std::nullopt;
    if (!pause) return std::nullopt;
    return Hold{Answer::HELD, "pause", PauseWords(*pause)};
  }

  std::optional<Hold> EngineIsBack() {
    const auto engine = FindLiving(config_->process);
    if (!engine) return std::nullopt;
    if (folder_) {
      Change([&](RestartState* state) { NoteEngine(*engine, config_->port, state); });
    }
    return Hold{Answer::BACK, "engine-is-back", "process " + std::to_string(engine->pid) + " runs"};
  }

  std::optional<Hold> BackOff() {
    const auto seen = [this](RestartState* state) {
      state->row = SeenDead(state->row, plan_.backoff, now_.boot_id, now_.boot_ms);
    };
    seen(&state_);
    const int64_t wait = plan_.now ? 0 : SecondsToWait(state_.row, plan_.backoff, now_.boot_ms);
    if (wait == 0) return std::nullopt;
    Change(seen);
    return Hold{Answer::HELD, "back-off", WaitWords(state_.row, wait, now_.boot_ms)};
  }

  void Held(const Hold& hold) {
    Complain("start held, " + hold.reason + ": " + hold.note);
    StartRecord record = NewRecord();
    record.held = hold.reason;
    record.note = hold.note;
    Append(record);
    Send(hold.answer);
  }

  void Start() {
    StartRecord record = NewRecord();
    if (folder_) AddEvidence(&record);
    if (WasKilled()) return;
    Change([this](RestartState* state) {
      state->row = Started(state_.row, now_.boot_id, now_.boot_ms);
      state->start_wall = now_.wall;
      state->counters = state_.counters;
      state->engine = {};
    });
    const auto line = Append(record);
    if (line) LeaveWatch(*line, state_.row);
    Send(Answer::START);
  }

  void AddEvidence(StartRecord* record) {
    const auto evidence = GatherEvidence(*config_, state_, EVIDENCE_LIMIT_MS, &complaint_);
    if (!evidence) return Complain(complaint_ + ALL_THE_SAME);
    state_.counters = evidence->counters;
    record->verdict = evidence->verdict;
    std::string id;
    if (KeepEvidence(*folder_, now_, evidence->text, &id) == 0) {
      record->evidence = id;
    } else {
      Complain(std::string("evidence not kept: ") + std::strerror(errno) + ALL_THE_SAME);
    }
    Complain("the engine is started; why it had died: " + evidence->verdict +
             (id.empty() ? "" : "; evidence " + id));
  }

  StartRecord NewRecord() const {
    StartRecord record;
    record.at = now_.wall;
    record.time = IsoTime(now_.wall);
    return record;
  }

  std::optional<AppendedLine> Append(const StartRecord& record) {
    auto line = folder_ ? AppendStart(*folder_, record) : std::nullopt;
    if (folder_ && !line) Complain(std::string("not recorded: ") + std::strerror(errno));
    return line;
  }

  void Change(const std::function<void(RestartState* state)>& change) {
    if (folder_ && ChangeState(*folder_, change) != 0)
      Complain(std::string("state not kept: ") + std::strerror(errno) + ALL_THE_SAME);
  }

  // True when the starter closed the channel before its time to give up: it was killed and starts nothing.
  bool WasKilled() const {
    pollfd end = {channel_, 0, 0};
    return ::poll(&end, 1, 0) == 1 && BootMilliseconds() - begin_ms_ < HELPER_LIMIT_MS - SLACK_MS;
  }

  void LeaveWatch(const AppendedLine& line, const StartRow& before) {
    const bool named = config_->port > 0 && config_->port <= UINT16_MAX;
    const auto port = named ? ReadAcceptQueue(static_cast<uint16_t>(config_->port)) : std::nullopt;
    const bool listens = port && port->listening;
    WatchPlan watch{*config_, line, std::move(starter_), named && !listens, now_.boot_ms, before};
    if (::fork() == 0) RunStartWatch(*folder_, std::move(watch), channel_);
  }

  void Send(Answer answer) const {
    const char byte = static_cast<char>(answer);
    ::send(channel_, &byte, 1, MSG_NOSIGNAL);
  }

  const StartPlan& plan_;
  int channel_;
  base::UniqueFd starter_;
  const int64_t begin_ms_ = BootMilliseconds();
  Moment now_ = Now();
  std::string complaint_;
  std::optional<AgentConfig> config_;
  std::optional<RecordFolder> folder_;
  RestartState state_;
};

// Sets default signals, opens the standard descriptors, closes all others but the channel, and limits this
// process's life by a timer.
void BecomeHelper(int channel) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int signal : {SIGALRM, SIGCHLD}) std::signal(signal, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  ::umask(027);
  ::close_range(STDERR_FILENO + 1, static_cast<unsigned>(channel) - 1, 0);
  ::close_range(static_cast<unsigned>(channel) + 1, ~0U, 0);
  int fd = ::open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = ::dup(fd);
  if (fd >= 0) ::close(fd);
  const itimerval life = {{0, 0}, {LIFE_LIMIT_S, 0}};
  ::setitimer(ITIMER_REAL, &life, nullptr);
}

}  // namespace

void RunStartHelper(const StartPlan& plan, int channel) {
  BecomeHelper(channel);
  try {
    Helper(plan, channel).Run();
  } catch (const std::exception& failure) {
    Complain(std::string(failure.what()) + ALL_THE_SAME);
  }
  ::_exit(0);
}

}  // namespace ctl
