// Start-up: who may start, what ends it, and what a configuration may hold.
#include <sys/wait.h>

#include "system/harness.h"

namespace harness {
namespace {

constexpr int REFUSED = 255;

class Startup : public AgentTest {
 protected:
  void ExpectRefused(Process& agent, std::string_view reason) {
    const int status = agent.Wait();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), REFUSED);
    EXPECT_NE(Out().find(reason), std::string::npos);
  }
};

TEST_F(Startup, RefusesAWatchdogNameThatIsNotItsOwn) {
  config_.Set("WATCHDOG_NAME", "nobody-has-this");
  Process agent = Start();
  ExpectRefused(agent, "DunraSTT_Admin Already Running");
  EXPECT_EQ(ReadFile(folder_ / "agent.pid"), "");
}

TEST_F(Startup, RefusesASecondInstance) {
  config_.Set("RESTART_CHECK", 0);
  Process first = StartedAgent();
  EXPECT_EQ(ReadFile(folder_ / "agent.pid"), std::to_string(first.Pid()));
  Process second = Start();
  ExpectRefused(second, "DunraSTT_Admin Already Running");
  EXPECT_TRUE(first.Alive());
  EXPECT_EQ(ReadFile(folder_ / "agent.pid"), std::to_string(first.Pid()));
}

class ResultTime : public Startup, public testing::WithParamInterface<const char*> {};

// The refusal comes late, with threads at work: it may not wait for them.
TEST_P(ResultTime, WithoutColonEndsTheStart) {
  const ManagementServer silent(folder_, "silent", "silent");
  config_.Set("ALARM_1", silent.Address()).Set("FIRST_ALARM_SEND", 1);
  config_.Set("RESULT_CHECK", 1).Set("RESULT_TIME", GetParam());
  Process agent = StartedAgent();
  ExpectRefused(agent, "Create RESULT_CHECK_TIMER send_timer fail..Errcode [ ");
}

INSTANTIATE_TEST_SUITE_P(Rows, ResultTime, testing::Values("0730", ""));

// Lines that a careless editor, or a hostile one, leaves in the file: the rest of it counts as it stands.
TEST_F(Startup, LivesWithABadConfiguration) {
  const ManagementServer server(folder_, "server");
  config_.Set("RESTART_CHECK", 0).Set("FIRST_ALARM_SEND", 1);
  config_.Raw("# no comment, an unknown key\n;comment\n:comment\n/comment\n\n   \t \n=\n");
  config_.Raw("LOG_LEVEL=0\nlog_level 0\n ; LOG_LEVEL 0\n");
  config_.Raw(std::string(100'000, 'x') + " LOG_LEVEL 0\n");
  config_.Raw(std::string("NUL\0LOG_LEVEL 0\0\n", 17));
  config_.Raw("RECG_PATH " + std::string(1'000, 'p') + "\nCERT_FILE " + std::string(5'000, 'c') + "\n");
  config_.Raw("HANG_TIME 99999999999999999999999\nLOG_CHECK_MIN -5\nRESULT_CHECK none\n");
  config_.Raw("CPU_OVER_VALUE %n%n%s%s\nCERT_FILE %s%n%1$n\n");
  config_.Raw("ALARM_\nALARM_NOPORT 127.0.0.1\nALARM_NOTHING :\nALARM_BAD 127.0.0.1:abc\n");
  config_.Raw("ALARM_LONG " + std::string(900, '1') + ":1\n");
  config_.Raw("ALARM_GOOD " + server.Address() + "   \t \r\n");
  config_.Raw("KEY_FILE");  // no value, no line end
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitFor([&] { return server.CountBodies("ALARM+Tovik Start") == 1; }));
  EXPECT_TRUE(agent.Alive());
}

TEST_F(Startup, TakesAHundredServersAndNoMore) {
  const ManagementServer server(folder_, "server");
  config_.Set("RESTART_CHECK", 0).Set("FIRST_ALARM_SEND", 1);
  for (int i = 0; i < 120; ++i) config_.Set("ALARM_" + std::to_string(i), server.Address());
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return server.CountBodies("ALARM+Tovik Start") == 100; }));
  // A stop waits for the end of the pass.
  agent.Signal(SIGTERM);
  agent.Wait();
  EXPECT_EQ(server.CountBodies("ALARM+Tovik Start"), 100U);
}

TEST_F(Startup, GoesOnWithoutALogFolder) {
  const ManagementServer server(folder_, "server");
  WriteFile(folder_ / "file", "");
  config_.Set("DEBUG_PATH", folder_ / "file/").Set("ALARM_1", server.Address());
  StartEngine();
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitForOut("log file open error"));
  EXPECT_TRUE(WaitFor([&] { return server.CountBodies("RESOURCE_INFO+") >= 1; }));
  EXPECT_TRUE(agent.Alive());
}

}  // namespace
}  // namespace harness
