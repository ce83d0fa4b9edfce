// The agent's main job on the wire: a dead engine, and what management servers can do to a report.
#include "system/harness.h"

namespace harness {
namespace {

constexpr char PAD[] = "0000000000000000";

class Reports : public AgentTest {
 protected:
  // "NNNNNN C LLLLLL " with any connection tag.
  static void ExpectFrame(const Frame& frame, const std::string& body, const std::string& extra) {
    EXPECT_EQ(frame.body, body);
    EXPECT_EQ(frame.extra, extra);
    EXPECT_EQ(frame.header.find_first_not_of("0123456789"), 6U);
    char rest[11];
    snprintf(rest, sizeof rest, " C %06zu ", body.size());
    EXPECT_EQ(frame.header.substr(6), rest);
  }
};

TEST_F(Reports, DeadEngineIsRestartedAndReported) {
  const ManagementServer server(folder_, "server");
  config_ += "ALARM_1 " + server.Address() + "\nSHELL_METHOD start 'two words' $((6 * 7))\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitUntil([&] { return server.CountBodies("ALARM+") >= 1 && EngineAlive(); }));
  EXPECT_EQ(ReadFile(folder_ / "arguments"), "<start>\n<two words>\n<42>\n");
  ExpectEngineInheritedNothing();

  // Alive: figures, and no alarm. Only the name decides that: a pid file does not.
  fs::remove(folder_ / "engine.pid");
  ASSERT_TRUE(WaitUntil([&] { return server.CountBodies("RESOURCE_INFO+c:") >= 1; }));
  EXPECT_EQ(server.CountBodies("ALARM+"), 1U);
  EXPECT_EQ(ReadFile(folder_ / "runs"), "run\n");

  KillEngine();
  ASSERT_TRUE(WaitUntil([&] { return server.CountBodies("ALARM+") >= 2 && EngineAlive(); }));
  EXPECT_EQ(ReadFile(folder_ / "runs"), "run\nrun\n");
  const std::vector<Frame> frames = server.Frames();
  ExpectFrame(frames[0], "OPEN -e ", "");
  ExpectFrame(frames[1], "ALARM+DunraSTT Check", PAD);
  for (const Frame& frame : frames) {
    if (frame.body.starts_with("RESOURCE_INFO+")) ExpectFrame(frame, frame.body, "");
  }
  const std::string log = Log("MAIN.LOG");
  EXPECT_GE(Count(log, engine_ + " process start."), 2U);
  EXPECT_GE(
      Count(log, "process exec [ \"" + folder_ / "start engine.sh" + "\" start 'two words' $((6 * 7)) ]"),
      1U);
  EXPECT_TRUE(agent.Alive());
}

struct BadServer {
  const char* behaviour;
  const char* trace;
};

// Every bad server stands ahead of one that is sound, in one pass of the start alarm.
TEST_F(Reports, BadServersDelayNobody) {
  const BadServer bad[] = {
      {"wrong-word", "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(7)"},
      {"announce-close", "[ SVC_OPEN ] : Data Pack Recv Failed(999999 )"},
      {"half-header", "[ SVC_OPEN ] : Header Pack Recv Failed."},
      {"percent", "[ SVC_OPEN ] : Data Pack Recv Failed(9%n%s%x)"},
      {"wrong-data", "[ CH_DATA ] : Data Pack Recv Failed(15)"},
      {"garbage", "[ SOCK_SVC ] : svc ch open fail."},
      {"close", "[ SOCK_SVC ] : svc ch open fail."},
  };
  const ManagementServer last(folder_, "last");
  const Listener refusing(true);
  const std::string refused = "127.0.0.1:" + std::to_string(refusing.Port());
  config_ += "RESTART_CHECK 0\nFIRST_ALARM_SEND 1\nALARM_REFUSING " + refused + "\n";
  std::vector<ManagementServer> servers;
  for (const BadServer& row : bad) {
    servers.emplace_back(folder_, row.behaviour, row.behaviour);
    config_ += std::string("ALARM_") + row.behaviour + " " + servers.back().Address() + "\n";
  }
  config_ += "ALARM_NAME localhost:1\nALARM_LAST " + last.Address() + "\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitUntil([&] { return last.CountBodies("ALARM+") == 1; }));
  EXPECT_TRUE(agent.Alive());
  ExpectFrame(last.Frames().at(1), "ALARM+Tovik Start", PAD);

  const std::string trace = Out();
  EXPECT_EQ(Count(trace, "[ SOCK_SVC ] : CONNECT SOCK FAIL(" + refused + ") : 111"), 1U);
  EXPECT_EQ(Count(trace, "[ SOCK_SVC ] : CONNECT SOCK FAIL(localhost:1) : "), 1U);
  for (size_t row = 0; row < std::size(bad); ++row) {
    const std::string channel = "[0000" + std::to_string(row + 1) + "]";
    bool found = false;
    for (size_t at = trace.find(channel); at != std::string::npos; at = trace.find(channel, at + 1)) {
      found = found || Count(trace.substr(at, trace.find('\n', at) - at), bad[row].trace) == 1;
    }
    EXPECT_TRUE(found) << bad[row].behaviour;
  }
}

TEST_F(Reports, ThresholdsThatAreReachedRaiseAlarmsAlsoWithoutALogFolder) {
  const ManagementServer server(folder_, "server");
  folder_.Write("file", "");
  StartEngine();
  config_ += "DEBUG_PATH " + folder_ / "file/\nALARM_1 " + server.Address() + "\nCPU_OVER_VALUE 0\n";
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitForOut("log file open error"));
  EXPECT_TRUE(WaitForOut("CPU Over"));
  // The later request of a tick replaces the earlier one in the mailbox.
  EXPECT_TRUE(WaitUntil([&] { return server.CountBodies("ALARM+Cpu Check") >= 1; }));
  EXPECT_TRUE(agent.Alive());
  EXPECT_FALSE(fs::exists(folder_ / "runs"));
}

}  // namespace
}  // namespace harness
