// Every call that can fail, failed once on the agent's way through a restart alarm on all channels: it lives,
// later alarms arrive, and nothing stays behind.
//
// In the ordinary run a few calls, spread evenly. TORTURE_FROM, TORTURE_TO and TORTURE_STEP choose others
// (scripts/torture runs them all).
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <iostream>

#include "system/harness.h"
#include "system/torture.h"

namespace harness {
namespace {

class Torture : public AllChannels {
 protected:
  struct Held {
    int64_t descriptors = INT64_MAX, threads = INT64_MAX, blocks = INT64_MAX;
  };

  Torture() {
    const std::string path = folder_.Write("control", std::string(sizeof(TortureControl), '\0'));
    const base::UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    control_ = static_cast<TortureControl*>(
        mmap(nullptr, sizeof *control_, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0));
    config_ += "LOG_CHECK_MIN 1\nASR_PORT " + link_.Port() + "\n";
  }
  ~Torture() override { munmap(control_, sizeof *control_); }

  // The engine dies with the n-th call failing from then on; how many calls there were until it had been
  // restarted and its alarm was told.
  int64_t FailingPass(int64_t n) {
    const size_t runs = ReadFile(folder_ / "runs").size();
    control_->count = 0;
    control_->failed = 0;
    control_->fail_at = n;
    control_->armed = 1;
    EXPECT_TRUE(KillUntil([&] { return ReadFile(folder_ / "runs").size() > runs && EngineAlive(); })) << n;
    // Until the call has come, or a pass is over.
    WaitUntil([&] { return control_->failed > 0; }, milliseconds(n > 0 ? 2500 : 1500));
    control_->armed = 0;
    return control_->count;
  }
  // The least that is held at any moment: what comes and goes with each cycle does not count.
  Held Least(const Process& agent) const {
    const auto entries = [&agent](const std::string& folder) {
      const fs::directory_iterator first("/proc/" + std::to_string(agent.Pid()) + folder);
      return std::distance(first, fs::directory_iterator());
    };
    Held least;
    const auto look = [&] {
      least.descriptors = std::min<int64_t>(least.descriptors, entries("/fd"));
      least.threads = std::min<int64_t>(least.threads, entries("/task"));
      least.blocks = std::min<int64_t>(least.blocks, control_->live);
      return false;
    };
    WaitUntil(look, milliseconds(2500));
    return least;
  }
  // The variable tells the library what to do.
  Process StartPreloaded(const std::string& variable) const {
    return Start({}, {"env", std::string("LD_PRELOAD=") + TORTURE_SHIM, variable});
  }

  TortureControl* control_;
  Peer link_{folder_, "link", "engine_peer.py", {"--script", "garbage"}};
};

TEST_F(Torture, NoCallThatFailsOnceEndsTheAgentOrAnAlarm) {
  constexpr int64_t CLEAN_EVERY = 8;
  Process agent = StartPreloaded("TORTURE_CONTROL=" + folder_ / "control");
  ASSERT_TRUE(WaitForOut("Start DunraSTT_Admin Service"));
  ExpectAlarmOnAllChannels("first");
  const int64_t calls = FailingPass(0);
  const Held before = Least(agent);
  const int64_t from = Number("TORTURE_FROM", calls / 12);
  const int64_t step = Number("TORTURE_STEP", std::max<int64_t>(calls / 6, 1));
  const int64_t to = Number("TORTURE_TO", calls);
  std::cerr << "calls in a pass: " << calls << "\n";
  int64_t done = 0;
  for (int64_t n = from; n <= to; n += step) {
    FailingPass(n);
    std::cerr << "failed " << n << " " << control_->name << "\n";
    ASSERT_TRUE(agent.Alive()) << "call " << n << ", " << control_->name;
    if (++done % CLEAN_EVERY == 0) ExpectAlarmOnAllChannels("after call " + std::to_string(n));
  }
  ExpectAlarmOnAllChannels("at the end");
  const Held after = Least(agent);
  std::cerr << "held before and after: descriptors " << before.descriptors << " " << after.descriptors
            << ", threads " << before.threads << " " << after.threads << ", blocks " << before.blocks << " "
            << after.blocks << "\n";
  EXPECT_LE(after.descriptors, before.descriptors);
  EXPECT_LE(after.threads, before.threads);
  // Fewer than one for ten failed calls: caches grow with what was met.
  EXPECT_LE(after.blocks, before.blocks + 24 + done / 10) << done << " calls failed";
  kill(agent.Pid(), SIGTERM);
  EXPECT_NE(agent.Wait(seconds(9)), -1);
}

TEST_F(Torture, TellsThatPostsCannotWork) {
  Process agent = StartPreloaded("TORTURE_CURL=1");
  EXPECT_TRUE(WaitForOut("[WebHook: libcurl cannot be made ready]"));
  EXPECT_TRUE(agent.Alive());
}

}  // namespace
}  // namespace harness
