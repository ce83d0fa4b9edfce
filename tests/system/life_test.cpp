// The life of the process: heartbeat, hangup, daemon mode, and the stop.
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

#include "system/harness.h"

namespace harness {
namespace {

class Life : public AgentTest {};

TEST_F(Life, HangupProvesTheConfigurationAndChangesNothing) {
  config_ += "RESTART_CHECK 0\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitForOut("Debug: 0\n"));
  folder_.Write("agent.conf", "LOG_LEVEL 0\n");
  agent.Signal(SIGHUP);
  EXPECT_TRUE(WaitForOut("Debug: reloading daemon config file ...\n"));
  EXPECT_TRUE(WaitForOut("Debug: 2\n"));
  ExpectStops(agent, seconds(2));
  EXPECT_EQ(Count(Out(), "Debug: stopping daemon ...\n"), 1U);
}

TEST_F(Life, HeartbeatGoesToItsFileOrToStandardOutput) {
  config_ += "RESTART_CHECK 0\n";
  folder_.Write("beat", "older\n");
  Process agent = StartedAgent({"-l", folder_ / "beat"});
  EXPECT_TRUE(WaitUntil([&] { return ReadFile(folder_ / "beat") == "older\nDebug: 0\nDebug: 1\n"; }));
  ExpectStops(agent, seconds(2));
  EXPECT_EQ(Count(ReadFile(folder_ / "beat"), "Debug: stopping daemon ...\n"), 1U);
  EXPECT_EQ(Count(Out(), "Debug: "), 0U);
  Process other = StartedAgent({"-l", folder_ / "absent/beat"});
  EXPECT_TRUE(WaitForOut("Debug: 1\n"));
}

// A full disk under the heartbeat ends the agent, by way of the stop sequence.
TEST_F(Life, BrokenHeartbeatStopsTheAgent) {
  folder_.Write("p.pid", "1");
  Process agent = StartedAgent({"-l", "/dev/full", "-p", folder_ / "p.pid"});
  const int status = agent.Wait();
  EXPECT_TRUE(WIFEXITED(status) ? WEXITSTATUS(status) == 0 : WTERMSIG(status) == SIGINT) << status;
  EXPECT_EQ(Count(Out(), "Stop DunraSTT_Admin Service"), 1U);
  EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
}

TEST_F(Life, DaemonDetachesAndGuardsItsLock) {
  config_ += "RESTART_CHECK 0\n";
  const pid_t daemon = StartedDaemon();
  ASSERT_GT(daemon, 0);
  EXPECT_EQ(ReadFile(folder_ / "agent.lock"), std::to_string(daemon) + "\n");
  const std::string proc = "/proc/" + std::to_string(daemon);
  EXPECT_EQ(getsid(daemon), daemon);
  for (const char* fd : {"/fd/0", "/fd/1", "/fd/2"}) EXPECT_EQ(fs::read_symlink(proc + fd), "/dev/null");
  EXPECT_EQ(Count(ReadFile(proc + "/status"), "Umask:\t0022"), 1U);
  EXPECT_EQ(fs::read_symlink(proc + "/cwd").string() + "/", folder_.Path());

  // The second: its parent knows nothing of the refusal, its child ends with 1. Without PWD, too.
  EXPECT_EQ(Run({folder_ / agent_, "-d", "-f", folder_ / "agent.conf"}, {"PWD"}).ExitStatus(), 0);
  int status = -1;
  EXPECT_TRUE(WaitUntil([&] { return waitpid(-1, &status, WNOHANG) > 0; }));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  EXPECT_EQ(ReadFile(folder_ / "agent.lock"), std::to_string(daemon) + "\n");

  kill(daemon, SIGTERM);
  EXPECT_TRUE(WaitUntil([&] { return waitpid(daemon, &status, WNOHANG) > 0; }));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

// Found by a search path, the program has no folder of its own: the daemon stays where PWD says. A daemon has
// signals blocked and no terminal: its engine starts as clean.
TEST_F(Life, DaemonWorksInThePwdOfItsCallerAndItsEngineInheritsNothing) {
  fs::create_directory(folder_ / "elsewhere");
  const pid_t daemon = StartedDaemon({"PWD=" + folder_ / "elsewhere"}, agent_);
  ASSERT_GT(daemon, 0);
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(daemon) + "/cwd"), folder_ / "elsewhere");
  ASSERT_TRUE(WaitUntil([&] { return EngineAlive() && fs::exists(folder_ / "arguments"); }));
  ExpectEngineInheritedNothing();
}

class Stop : public AgentTest {};

// Timers that sleep for minutes; also signals that come again while the stop is under way.
TEST_F(Stop, TakesAMomentWhenIdle) {
  StartEngine();
  config_ += "RESTART_CHECK_SEC 600\nHANG_SAVE 1\nHANG_TIME 600\nRESULT_CHECK 1\nRESULT_TIME 24:60\n";
  config_ += "LOG_CHECK_MIN 1\n";
  for (const std::vector<int>& signals :
       {std::vector{SIGTERM}, {SIGINT}, {SIGTERM, SIGHUP, SIGALRM, SIGTERM}}) {
    folder_.Write("p.pid", "1");
    Process agent = StartedAgent({"-p", folder_ / "p.pid"});
    ASSERT_TRUE(WaitForOut("System CPU ["));
    ExpectStops(agent, seconds(2), signals);
    EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
    EXPECT_EQ(ReadFile(folder_ / "agent.pid"), std::to_string(agent.Pid()));
    EXPECT_TRUE(EngineAlive());
  }
}

// The process-table snapshots of start-up take a second.
TEST_F(Stop, TakesAMomentDuringStartUp) {
  Process agent = Start();
  ASSERT_TRUE(WaitForHandlers(agent));
  ExpectStops(agent, seconds(2));
}

struct SilentPeer {
  const char* name;
  const char* lines;    // that lead to a port, "@", that takes the connection and never says a word
  bool endless_script;  // is under way besides
  seconds limit;
};
void PrintTo(const SilentPeer& row, std::ostream* out) {
  *out << row.name;
}

class SilentPeerStop : public AgentTest, public testing::WithParamInterface<SilentPeer> {};

TEST_P(SilentPeerStop, EndsInTime) {
  const SilentPeer& row = GetParam();
  const Listener silent;
  std::string lines = row.lines;
  config_ += lines.replace(lines.find('@'), 1, std::to_string(silent.Port()));
  if (row.endless_script) {
    folder_.Write("start engine.sh", "#!/bin/sh\n\"${0%/*}/" + engine_ + "\" 600\n", 0755);
  }
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitUntil([&] { return silent.Visited() && (!row.endless_script || EngineAlive()); }));
  ExpectStops(agent, row.limit);
  EXPECT_TRUE(!row.endless_script || EngineAlive());
}

// An engine that hangs holds up the start of the agent for half a minute: a stop does not wait for that.
INSTANTIATE_TEST_SUITE_P(
    Rows, SilentPeerStop,
    testing::Values(
        SilentPeer{"management", "ALARM_1 127.0.0.1:@\n", true, seconds(7)},
        SilentPeer{"mail", "SEND_EMAIL_CHECK 1\nSMTP_SERVER_URL 127.0.0.1\nSMTP_SERVER_PORT @\nSMTP_AUTH 1\n",
                   false, seconds(7)},
        SilentPeer{"webhook", "SEND_WEBHOOK_CHECK 1\nWEBHOOK_SERVER_URL http://127.0.0.1:@/hook\n", false,
                   seconds(7)},
        SilentPeer{"engine", "ASR_PORT @\n", false, seconds(2)}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Stop, FinishesAnExchangeThatMovesAndServesTheRest) {
  const ManagementServer server(folder_, "server");
  const Peer slow(folder_, "slow", "flaky_proxy.py", {"--to", server.Port(), "--script", "drip:0.03"});
  const ManagementServer last(folder_, "last");
  config_ += "RESTART_CHECK 0\nFIRST_ALARM_SEND 1\nALARM_1 " + slow.Address() + "\n";
  config_ += "ALARM_2 " + last.Address() + "\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitUntil([&] { return server.Frames().size() == 1; }));
  ExpectStops(agent, seconds(5));
  EXPECT_EQ(server.CountBodies("ALARM+Tovik Start"), 1U);
  EXPECT_EQ(last.CountBodies("ALARM+Tovik Start"), 1U);
}

}  // namespace
}  // namespace harness
