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
  const char* lines = "";  // of the configuration
  const char* met = "\n";  // by the output
  const char* peer = "";   // a line but for its port, of somebody who takes connections and is silent
  bool opened = false;     // who answers the opening of a channel, and is silent then
  bool engine = false;     // lives
  bool endless_script = false;
  bool queue = false;  // of reports: the stop drops what waits there
  seconds limit{6};
};
constexpr Situation SITUATIONS[] = {
    {.name = "starting", .engine = true, .limit = seconds(2)},
    {.name = "idle",
     .lines = "RESTART_CHECK_SEC 600\nHANG_TIME 600\nCPU_OVER_VALUE 1000\n",
     .met = "System CPU [",
     .engine = true,
     .limit = seconds(2)},
    {.name = "busy", .met = "CPU Over"},
    {.name = "silent management server", .met = "CPU Over", .peer = "ALARM_2 127.0.0.1:"},
    {.name = "silent management server and a queue",
     .lines = "LOG_LEVEL 4\nREPORT_QUEUE 8\n",
     .met = "waits already and is sent once",
     .peer = "ALARM_2 127.0.0.1:",
     .queue = true},
    {.name = "silent after the open", .peer = "ALARM_2 127.0.0.1:", .opened = true, .endless_script = true},
    {.name = "silent webhook", .peer = "WEBHOOK_SERVER_URL http://127.0.0.1:"},
    {.name = "silent mail server", .peer = "SMTP_SERVER_PORT "},
    {.name = "silent server of a URL", .peer = "MAIL_URL smtp://127.0.0.1:"},
    // It holds up the start of the agent for half a minute: a stop does not wait for that.
    {.name = "silent engine", .peer = "ASR_PORT ", .engine = true, .limit = seconds(2)},
};

class StopStorm : public AllChannels {
 protected:
  // The agent in this situation, or on its way there; the waits for it are Meet's.
  Process StartIn(const Situation& situation, const Listener& silent) {
    const std::string port = situation.opened ? opened_.Port() : std::to_string(silent.Port());
    config_ = common_ + situation.lines;
    if (*situation.peer != '\0') config_ += situation.peer + port + "\n";
    folder_.Write("start engine.sh", script_, 0755);
    if (situation.engine) StartEngine();
    if (situation.endless_script)
      folder_.Write("start engine.sh", "#!/bin/sh\n\"${0%/*}/" + engine_ + "\" 600\n", 0755);
    folder_.Write("out.txt", "");
    Process agent = Start();
    EXPECT_TRUE(WaitForHandlers(agent));
    return agent;
  }
  void Meet(const Situation& situation, const Listener& silent) const {
    EXPECT_TRUE(WaitForOut(situation.met));
    EXPECT_TRUE(*situation.peer == '\0' || WaitUntil([&] {
      return situation.opened ? opened_.Seen("OPEN -e ") > 0 : silent.Visited();
    }));
  }
  // It ends in time, and leaves an engine that lives alone.
  void Stop(Process& agent, const Situation& situation, const std::vector<int>& signals) const {
    const bool engine_alive = EngineAlive();
    const bool some_wait = Count(Out(), "waits already and is sent once") > 0;
    ExpectStops(agent, situation.limit, signals);
    const size_t dropped = Count(Out(), " reports that wait for the management servers");
    EXPECT_TRUE(dropped >= (some_wait ? 1U : 0U) && dropped <= (situation.queue ? 1U : 0U)) << dropped;
    EXPECT_TRUE(!engine_alive || EngineAlive());
    KillEngine();
  }

  Peer opened_{folder_, "opened", "mgmt_server.py", {"--silent"}};
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
  const Peer slow(folder_, "slow", "flaky_proxy.py", {"--to", server_.Port(), "--script", "drip:0.02"});
  const Peer last(folder_, "last", "mgmt_server.py");
  config_ += "RESTART_CHECK 0\nHANG_SAVE 0\nFIRST_ALARM_SEND 1\nALARM_1 " + slow.Address() + "\nALARM_2 " +
             last.Address() + "\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(server_.WaitFor("OPEN -e ", 2));
  ExpectStops(agent, seconds(5));
  EXPECT_EQ(server_.Seen("ALARM+Tovik Start"), 2U);
  EXPECT_EQ(last.Seen("ALARM+Tovik Start"), 1U);
}

}  // namespace
}  // namespace harness
