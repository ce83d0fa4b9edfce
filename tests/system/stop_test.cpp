// The stop: what it ends, what it still finishes, and how long it takes.
#include <csignal>
#include <filesystem>

#include "system/harness.h"

namespace harness {
namespace {

using std::chrono::seconds;
namespace fs = std::filesystem;

class Stop : public AgentTest {};

class IdleStop : public AgentTest, public testing::WithParamInterface<std::vector<int>> {};

// Timers that sleep for minutes; also signals that come again while the stop is under way.
TEST_P(IdleStop, TakesAMoment) {
  StartEngine();
  WriteFile(folder_ / "p.pid", "1");
  config_.Set("RESTART_CHECK_SEC", 600).Set("HANG_SAVE", 1).Set("HANG_TIME", 600);
  config_.Set("RESULT_CHECK", 1).Set("RESULT_TIME", "24:60").Set("LOG_CHECK_MIN", 1);
  Process agent = StartedAgent({"-p", folder_ / "p.pid"});
  ASSERT_TRUE(WaitForOut("System CPU ["));
  for (const int number : GetParam()) agent.Signal(number);
  ExpectStopped(agent, seconds(2));
  EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
  EXPECT_EQ(ReadFile(folder_ / "agent.pid"), std::to_string(agent.Pid()));
  EXPECT_TRUE(EngineAlive());
}

INSTANTIATE_TEST_SUITE_P(Rows, IdleStop,
                         testing::Values(std::vector{SIGTERM}, std::vector{SIGINT},
                                         std::vector{SIGTERM, SIGHUP, SIGALRM, SIGTERM}));

TEST_F(Stop, TakesAMomentDuringStartUp) {
  Process agent = Start();
  // Installed handlers show as caught signals; the process-table snapshots of start-up take a second.
  ASSERT_TRUE(WaitFor([&] {
    const std::string status = ReadFile("/proc/" + std::to_string(agent.Pid()) + "/status");
    const size_t caught = status.find("SigCgt:");
    if (caught == std::string::npos) return false;
    return (std::stoull(status.substr(caught + 7), nullptr, 16) >> (SIGALRM - 1) & 1) != 0;
  }));
  agent.Signal(SIGTERM);
  ExpectStopped(agent, seconds(2));
}

TEST_F(Stop, EndsASilentExchangeAndAnEndlessStartScript) {
  const ManagementServer silent(folder_, "silent", "silent");
  config_.Set("ALARM_1", silent.Address());
  const std::string script = folder_ / "start engine.sh";
  WriteFile(script, "#!/bin/sh\n\"${0%/*}/" + engine_ + "\" 600\n", 0755);
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return EngineAlive() && silent.Frames().size() == 1; }));
  agent.Signal(SIGTERM);
  ExpectStopped(agent, seconds(7));
  EXPECT_TRUE(EngineAlive());
}

TEST_F(Stop, FinishesAnExchangeThatMovesAndServesTheRest) {
  const ManagementServer slow(folder_, "slow", "slow", "0.03");
  const ManagementServer last(folder_, "last");
  config_.Set("RESTART_CHECK", 0).Set("FIRST_ALARM_SEND", 1);
  config_.Set("ALARM_1", slow.Address()).Set("ALARM_2", last.Address());
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return slow.Frames().size() == 1; }));
  agent.Signal(SIGTERM);
  ExpectStopped(agent, seconds(5));
  EXPECT_EQ(slow.CountBodies("ALARM+Tovik Start"), 1U);
  EXPECT_EQ(last.CountBodies("ALARM+Tovik Start"), 1U);
}

struct SilentPeer {
  const char* name;
  std::vector<std::pair<std::string, std::string>> keys;  // "@" stands for the silent port
};

void PrintTo(const SilentPeer& row, std::ostream* out) {
  *out << row.name;
}

class SilentPeerStop : public AgentTest, public testing::WithParamInterface<SilentPeer> {
 protected:
  void Configure(const DeadPort& peer) {
    for (auto [key, value] : GetParam().keys) {
      const size_t at = value.find('@');
      if (at != std::string::npos) value.replace(at, 1, std::to_string(peer.Port()));
      config_.Set(key, value);
    }
  }
};

// The alarm of a dead engine goes to a server that takes the connection and never says a word.
TEST_P(SilentPeerStop, EndsWithTheGrace) {
  const DeadPort peer(DeadPort::Kind::SILENT);
  Configure(peer);
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return peer.Visited(); }));
  agent.Signal(SIGTERM);
  ExpectStopped(agent, seconds(7));
}

INSTANTIATE_TEST_SUITE_P(Rows, SilentPeerStop,
                         testing::Values(SilentPeer{"Mail",
                                                    {{"SEND_EMAIL_CHECK", "1"},
                                                     {"SMTP_SERVER_URL", "127.0.0.1"},
                                                     {"SMTP_SERVER_PORT", "@"},
                                                     {"SMTP_AUTH", "1"}}},
                                         SilentPeer{"Webhook",
                                                    {{"SEND_WEBHOOK_CHECK", "1"},
                                                     {"WEBHOOK_SERVER_URL", "http://127.0.0.1:@/hook"}}}));

// An engine that hangs holds the start of the agent up for half a minute: a stop does not wait for that.
TEST_F(Stop, TakesAMomentDuringTheFirstEngineQuery) {
  const DeadPort engine(DeadPort::Kind::SILENT);
  config_.Set("ASR_PORT", engine.Port());
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return engine.Visited(); }));
  agent.Signal(SIGTERM);
  ExpectStopped(agent, seconds(2));
}

}  // namespace
}  // namespace harness
