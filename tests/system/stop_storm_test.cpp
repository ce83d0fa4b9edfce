// Stops with everything at work or everybody silent: each situation once where it is met, then at random
// moments. STOP_RUNS and STOP_SEED choose how many and which; scripts/stop-storm runs 200.
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
  const char* met;    // by the output
  bool engine;        // lives
  bool endless_script;
  seconds limit;
};
constexpr Situation SITUATIONS[] = {
    {"starting", "", "", true, false, seconds(2)},
    {"idle", "RESTART_CHECK_SEC 600\nHANG_TIME 600\nCPU_OVER_VALUE 1000\n", "System CPU [", true, false,
     seconds(2)},
    {"busy", "", "CPU Over", false, false, seconds(6)},
    {"silent management server", "ALARM_2 127.0.0.1:SILENT\n", "", false, false, seconds(6)},
    {"silent after the open", "ALARM_2 127.0.0.1:MUTE\n", "", false, true, seconds(6)},
    {"silent webhook", "WEBHOOK_SERVER_URL http://127.0.0.1:SILENT/\n", "", false, false, seconds(6)},
    {"silent mail server", "SMTP_SERVER_PORT SILENT\n", "", false, false, seconds(6)},
    {"silent server of a URL", "MAIL_URL smtp://127.0.0.1:SILENT\n", "", false, false, seconds(6)},
    // It holds up the start of the agent for half a minute: a stop does not wait for that.
    {"silent engine", "ASR_PORT SILENT\n", "", true, false, seconds(2)},
    {"slow management server", "ALARM_2 127.0.0.1:SLOW\nWEBHOOK_SERVER_URL http://127.0.0.1:SILENT/\n", "",
     false, true, seconds(6)},
};

class StopStorm : public AllChannels {
 protected:
  Peer mute_{folder_, "mute", "mgmt_server.py", {"--silent"}};
  Peer slow_{folder_, "slow", "flaky_proxy.py", {"--to", server_.Port(), "--script", "drip:0.02"}};
};

TEST_F(StopStorm, EveryStopEndsInTime) {
  std::mt19937 random(static_cast<unsigned>(Number("STOP_SEED", 1)));
  const auto runs = static_cast<size_t>(Number("STOP_RUNS", std::size(SITUATIONS)));
  const std::string script = ReadFile(folder_ / "start engine.sh");
  config_ += "FIRST_ALARM_SEND 1\nCPU_OVER_VALUE 0\nLOG_CHECK_MIN 1\nRESULT_CHECK 1\nRESULT_TIME 24:60\n";
  const std::string config = config_;
  for (size_t run = 0; run < runs; ++run) {
    const Situation& situation = SITUATIONS[run % std::size(SITUATIONS)];
    SCOPED_TRACE(situation.name);
    const Listener silent;
    std::string lines = situation.lines;
    const auto replaced = [&lines](const std::string& word, const std::string& port) {
      const size_t at = lines.find(word);
      if (at != std::string::npos) lines.replace(at, word.size(), port);
      return at != std::string::npos;
    };
    const bool silence = replaced("SILENT", std::to_string(silent.Port()));
    const bool mute = replaced("MUTE", mute_.Port());
    replaced("SLOW", slow_.Port());
    config_ = config + lines;
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
    if (run >= std::size(SITUATIONS)) {
      std::this_thread::sleep_for(moment);
    } else {
      EXPECT_TRUE(WaitForOut(situation.met));
      EXPECT_TRUE(
          WaitUntil([&] { return (!silence || silent.Visited()) && (!mute || mute_.Seen("OPEN -e ") > 0); }));
    }
    const bool engine_alive = EngineAlive();
    const std::vector<int> signals[] = {{SIGTERM}, {SIGINT}, {SIGTERM, SIGHUP, SIGALRM, SIGINT}};
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

TEST_F(StopStorm, FinishesAnExchangeThatMovesAndServesTheRest) {
  const Peer last(folder_, "last", "mgmt_server.py");
  config_ += "RESTART_CHECK 0\nHANG_SAVE 0\nFIRST_ALARM_SEND 1\nALARM_1 " + slow_.Address() + "\nALARM_2 " +
             last.Address() + "\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitUntil([&] { return server_.Seen("OPEN -e ") == 2; }));
  ExpectStops(agent, seconds(5));
  EXPECT_EQ(server_.Seen("ALARM+Tovik Start"), 2U);
  EXPECT_EQ(last.Seen("ALARM+Tovik Start"), 1U);
}

}  // namespace
}  // namespace harness
