// Stops at random moments, with everything at work or everybody silent. STOP_RUNS (8) and STOP_SEED choose
// how many and which; scripts/stop-storm runs 200.
#include <iostream>
#include <random>

#include "system/harness.h"

namespace harness {
namespace {

// What the agent is in when it is told to stop, and how long the end may take: the grace of a stop is 5
// seconds; the rest is for a loaded machine.
struct Situation {
  const char* name;
  const char* lines;  // of the configuration; SILENT, MUTE and SLOW stand for such ports
  bool engine;        // lives
  bool endless_script;
  seconds limit;
};
constexpr Situation SITUATIONS[] = {
    {"idle", "", true, false, seconds(2)},
    {"busy", "", false, false, seconds(6)},
    {"silent management server", "ALARM_2 127.0.0.1:SILENT\n", false, false, seconds(6)},
    {"silent after the open", "ALARM_2 127.0.0.1:MUTE\n", false, true, seconds(6)},
    {"silent webhook", "WEBHOOK_SERVER_URL http://127.0.0.1:SILENT/\n", false, false, seconds(6)},
    {"silent mail server", "SMTP_SERVER_PORT SILENT\n", false, false, seconds(6)},
    {"slow management server", "ALARM_2 127.0.0.1:SLOW\nWEBHOOK_SERVER_URL http://127.0.0.1:SILENT/\n", false,
     true, seconds(6)},
};

class StopStorm : public AllChannels {
 protected:
  std::string Expanded(std::string lines) const {
    const std::pair<const char*, std::string> ports[] = {
        {"SILENT", std::to_string(silent_.Port())}, {"MUTE", mute_.Port()}, {"SLOW", slow_.Port()}};
    for (const auto& [word, port] : ports) {
      const size_t at = lines.find(word);
      if (at != std::string::npos) lines.replace(at, strlen(word), port);
    }
    return lines;
  }

  Listener silent_;
  ManagementServer mute_{folder_, "mute", "silent-data"};
  Peer slow_{folder_, "slow", "flaky_proxy.py", {"--to", server_.Port(), "--script", "drip:0.02"}};
};

TEST_F(StopStorm, EveryStopEndsInTime) {
  std::mt19937 random(static_cast<unsigned>(Number("STOP_SEED", 1)));
  const auto runs = static_cast<size_t>(Number("STOP_RUNS", 8));
  const std::string script = ReadFile(folder_ / "start engine.sh");
  config_ += "FIRST_ALARM_SEND 1\nCPU_OVER_VALUE 0\nLOG_CHECK_MIN 1\nRESULT_CHECK 1\nRESULT_TIME 24:60\n";
  const std::string config = config_;
  for (size_t run = 0; run < runs; ++run) {
    const Situation& situation = SITUATIONS[run % std::size(SITUATIONS)];
    SCOPED_TRACE(situation.name);
    config_ = config + Expanded(situation.lines);
    folder_.Write("start engine.sh", script, 0755);
    if (situation.engine) StartEngine();
    if (situation.endless_script) {
      folder_.Write("start engine.sh", "#!/bin/sh\n\"${0%/*}/" + engine_ + "\" 600\n", 0755);
    }
    folder_.Write("p.pid", "1");
    folder_.Write("out.txt", "");
    Process agent = Start({"-p", folder_ / "p.pid"});
    ASSERT_TRUE(WaitForHandlers(agent));
    const milliseconds moment(random() % 3'000);
    std::this_thread::sleep_for(moment);
    const bool engine_alive = EngineAlive();
    const std::vector<int> signals[] = {{SIGTERM}, {SIGINT}, {SIGTERM, SIGINT}};
    const auto start = std::chrono::steady_clock::now();
    ExpectStops(agent, situation.limit, signals[random() % 3]);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::cerr << "stop after " << moment.count() << " ms, " << situation.name << ": " << taken.count()
              << " s\n";
    EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
    EXPECT_TRUE(!engine_alive || EngineAlive());
    KillEngine();
  }
}

}  // namespace
}  // namespace harness
