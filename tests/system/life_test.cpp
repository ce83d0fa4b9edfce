// The life of the process: heartbeat, hangup, daemon mode.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "system/harness.h"

namespace harness {
namespace {

using std::chrono::seconds;
namespace fs = std::filesystem;

class Life : public AgentTest {};

TEST_F(Life, HangupProvesTheConfigurationAndChangesNothing) {
  config_.Set("RESTART_CHECK", 0);
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitForOut("Debug: 0\n"));
  WriteFile(folder_ / "agent.conf", "LOG_LEVEL 0\n");
  agent.Signal(SIGHUP);
  EXPECT_TRUE(WaitForOut("Debug: reloading daemon config file ...\n"));
  EXPECT_TRUE(WaitForOut("Debug: 2\n"));
  agent.Signal(SIGTERM);
  ExpectStopped(agent, seconds(2));
}

TEST_F(Life, HeartbeatGoesToTheLogFile) {
  config_.Set("RESTART_CHECK", 0);
  WriteFile(folder_ / "beat", "older\n");
  Process agent = StartedAgent({"-l", folder_ / "beat"});
  const std::string expected = "older\nDebug: 0\nDebug: 1\n";
  EXPECT_TRUE(WaitFor([&] { return ReadFile(folder_ / "beat") == expected; }));
  agent.Signal(SIGTERM);
  agent.Wait();
  EXPECT_NE(ReadFile(folder_ / "beat").find("Debug: stopping daemon ...\n"), std::string::npos);
  EXPECT_EQ(Out().find("Debug: "), std::string::npos);
}

TEST_F(Life, HeartbeatFallsBackToStandardOutput) {
  config_.Set("RESTART_CHECK", 0);
  Process agent = StartedAgent({"-l", folder_ / "absent/beat"});
  EXPECT_TRUE(WaitForOut("Debug: 1\n"));
}

// A full disk under the heartbeat ends the agent, by way of the stop sequence.
TEST_F(Life, BrokenHeartbeatStopsTheAgent) {
  WriteFile(folder_ / "p.pid", "1");
  Process agent = StartedAgent({"-l", "/dev/full", "-p", folder_ / "p.pid"});
  const int status = agent.Wait();
  EXPECT_NE(status, -1);
  EXPECT_TRUE(WIFEXITED(status) ? WEXITSTATUS(status) == 0 : WTERMSIG(status) == SIGINT) << status;
  EXPECT_EQ(Count(Out(), "Stop DunraSTT_Admin Service"), 1U);
  EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
}

TEST_F(Life, DaemonDetachesAndGuardsItsLock) {
  config_.Set("RESTART_CHECK", 0);
  const pid_t daemon = StartedDaemon();
  ASSERT_GT(daemon, 0);
  EXPECT_EQ(ReadFile(folder_ / "agent.lock"), std::to_string(daemon) + "\n");
  const std::string proc = "/proc/" + std::to_string(daemon);
  EXPECT_EQ(getsid(daemon), daemon);
  for (const char* fd : {"/fd/0", "/fd/1", "/fd/2"}) EXPECT_EQ(fs::read_symlink(proc + fd), "/dev/null");
  EXPECT_NE(ReadFile(proc + "/status").find("Umask:\t0022"), std::string::npos);
  EXPECT_EQ(fs::read_symlink(proc + "/cwd").string() + "/", folder_ / "");

  // The second: its parent knows nothing of the refusal, its child ends with 1. Without PWD, too.
  Process second = Run({"-d", "-f", folder_ / "agent.conf"}, {"PWD"});
  EXPECT_EQ(second.Wait(), 0);
  int status = -1;
  EXPECT_TRUE(WaitFor([&] { return waitpid(-1, &status, WNOHANG) > 0; }));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  EXPECT_EQ(ReadFile(folder_ / "agent.lock"), std::to_string(daemon) + "\n");

  kill(daemon, SIGTERM);
  status = -1;
  EXPECT_TRUE(WaitFor([&] { return waitpid(daemon, &status, WNOHANG) > 0; }));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

// Found by a search path, the program has no folder of its own: the daemon stays where PWD says.
TEST_F(Life, DaemonWorksInThePwdOfItsCaller) {
  config_.Set("RESTART_CHECK", 0);
  fs::create_directory(folder_ / "elsewhere");
  const pid_t daemon = StartedDaemon({"PWD=" + folder_ / "elsewhere"}, agent_);
  ASSERT_GT(daemon, 0);
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(daemon) + "/cwd"), folder_ / "elsewhere");
}

}  // namespace
}  // namespace harness
