// Stops with everything at work or everybody silent: each situation once where it is met, then at random
// moments. STOP_RUNS and STOP_SEED choose how many and which; scripts/stop-storm runs 200.
#include <cstring>
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
  // The agent in this situation, or on its way there; the waits for it are Meet's.
  Process StartIn(const Situation& situation, const Listener& silent) {
    std::string lines = situation.lines;
    for (const auto& [word, port] : {std::pair("SILENT", std::to_string(silent.Port())),
                                     {"MUTE", mute_.Port()},
                                     {"SLOW", slow_.Port()}}) {
      const size_t at = lines.find(word);
      if (at != std::string::npos) lines.replace(at, strlen(word), port);
    }
    config_ = common_ + lines;
    folder_.Write("start engine.sh", script_, 0755);
    if (situation.engine) StartEngine();
    if (situation.endless_script)
      folder_.Write("start engine.sh", "#!/bin/sh\n\"${0%/*}/" + engine_ + "\" 600\n", 0755);
    folder_.Write("p.pid", "1");
    folder_.Write("out.txt", "");
    Process agent = Start({"-p", folder_ / "p.pid"});
    EXPECT_TRUE(WaitForHandlers(agent));
    return agent;
  }
  void Meet(const Situation& situation, const Listener& silent) const {
    EXPECT_TRUE(WaitForOut(situation.met));
    if (strstr(situation.lines, "SILENT") != nullptr) {
      EXPECT_TRUE(WaitUntil([&] { return silent.Visited(); }));
    }
    if (strstr(situation.lines, "MUTE") != nullptr) {
      EXPECT_TRUE(WaitUntil([&] { return mute_.Seen("OPEN -e ") > 0; }));
    }
  }
  // It ends in time, leaves an engine that lives alone, and takes its PID file along.
  void Stop(Process& agent, const Situation& situation, const std::vector<int>& signals) const {
    const bool engine_alive = EngineAlive();
    ExpectStops(agent, situation.limit, signals);
    EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
    EXPECT_TRUE(!engine_alive || EngineAlive());
    KillEngine();
  }

  Peer mute_{folder_, "mute", "mgmt_server.py", {"--silent"}};
  Peer slow_{folder_, "slow", "flaky_proxy.py", {"--to", server_.Port(), "--script", "drip:0.02"}};
  const std::string script_ = ReadFile(folder_ / "start engine.sh");
  const std::string common_ =
      config_ + "FIRST_ALARM_SEND 1\nCPU_OVER_VALUE 0\nLOG_CHECK_MIN 1\nRESULT_CHECK 1\nRESULT_TIME 24:60\n";
};

TEST_F(StopStorm, EveryStopEndsInTime) {
  std::mt19937 random(static_cast<unsigned>(Number("STOP_SEED", 1)));
  const auto runs = static_cast<size_t>(Number("STOP_RUNS", std::size(SITUATIONS)));
  const std::vector<int> signals[] = {{SIGTERM}, {SIGINT}, {SIGTERM, SIGHUP, SIGALRM, SIGINT}};
  for (size_t run = 0; run < runs; ++run) {
    const Situation& situation = SITUATIONS[run % std::size(SITUATIONS)];
    const milliseconds moment(random() % 3'000);
    SCOPED_TRACE(situation.name);
    const Listener silent;
    Process agent = StartIn(situation, silent);
    run < std::size(SITUATIONS) ? Meet(situation, silent) : std::this_thread::sleep_for(moment);
    const auto start = std::chrono::steady_clock::now();
    Stop(agent, situation, signals[random() % 3]);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::cerr << "stop after " << moment.count() << " ms, " << situation.name << ": " << taken.count()
              << " s\n";
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
