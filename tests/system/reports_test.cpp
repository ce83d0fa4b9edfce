// The agent's main job on the wire: a dead engine, and what management servers can do to a report.
#include <sys/wait.h>

#include <cstring>
#include <filesystem>

#include "system/harness.h"

namespace harness {
namespace {

namespace fs = std::filesystem;

// Signals 32 and 33, which the C library keeps to itself and its posix_spawn leaves ignored.
constexpr uint64_t LIBC_SIGNALS = 0x180000000;

class Reports : public AgentTest {
 protected:
  // "NNNNNN C LLLLLL " with any connection tag.
  static void ExpectFrame(const Frame& frame, const std::string& body, const std::string& extra) {
    EXPECT_EQ(frame.body, body);
    EXPECT_EQ(frame.extra, extra);
    ASSERT_EQ(frame.header.size(), 16U);
    EXPECT_EQ(frame.header.find_first_not_of("0123456789"), 6U);
    char rest[11];
    snprintf(rest, sizeof rest, " C %06zu ", body.size());
    EXPECT_EQ(frame.header.substr(6), rest);
  }
  void ExpectEngineInheritedNothing() const {
    EXPECT_EQ(ReadFile(folder_ / "descriptors"), "0\n1\n2\n3\n");  // 3 is the listing's own
    const std::string signals = ReadFile(folder_ / "signals");
    for (const char* mask : {"SigBlk:\t", "SigIgn:\t"}) {
      const size_t at = signals.find(mask);
      ASSERT_NE(at, std::string::npos);
      EXPECT_EQ(std::stoull(signals.substr(at + strlen(mask)), nullptr, 16) & ~LIBC_SIGNALS, 0U) << signals;
    }
  }
};

constexpr char PAD[] = "0000000000000000";

TEST_F(Reports, DeadEngineIsRestartedAndReported) {
  const ManagementServer server(folder_, "server");
  config_.Set("ALARM_1", server.Address()).Set("SHELL_METHOD", "start 'two words' $((6 * 7))");
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return server.CountBodies("ALARM+") >= 1 && EngineAlive(); }));
  EXPECT_EQ(ReadFile(folder_ / "arguments"), "<start>\n<two words>\n<42>\n");
  ExpectEngineInheritedNothing();

  // Alive: figures, and no alarm.
  ASSERT_TRUE(WaitFor([&] { return server.CountBodies("RESOURCE_INFO+c:") >= 1; }));
  EXPECT_EQ(server.CountBodies("ALARM+"), 1U);
  EXPECT_EQ(ReadFile(folder_ / "runs"), "run\n");

  KillEngine();
  ASSERT_TRUE(WaitFor([&] { return server.CountBodies("ALARM+") >= 2 && EngineAlive(); }));
  EXPECT_EQ(ReadFile(folder_ / "runs"), "run\nrun\n");
  const std::vector<Frame> frames = server.Frames();
  ExpectFrame(frames[0], "OPEN -e ", "");
  ExpectFrame(frames[1], "ALARM+DunraSTT Check", PAD);
  for (const Frame& frame : frames) {
    if (frame.body.starts_with("RESOURCE_INFO+")) ExpectFrame(frame, frame.body, "");
  }
  const std::string log = Log("MAIN.LOG");
  EXPECT_NE(log.find(engine_ + " process start."), std::string::npos);
  EXPECT_NE(log.find("process exec [ \"" + folder_ / "start engine.sh" + "\" start 'two words' $((6 * 7)) ]"),
            std::string::npos);
  EXPECT_TRUE(agent.Alive());
}

// A daemon has signals blocked and no terminal: its engine starts as clean.
TEST_F(Reports, EngineOfADaemonInheritsNothing) {
  ASSERT_GT(StartedDaemon(), 0);
  ASSERT_TRUE(WaitFor([&] { return EngineAlive() && fs::exists(folder_ / "arguments"); }));
  ExpectEngineInheritedNothing();
}

// Where nothing tells the engine from the name of its process, a pid file decides nothing.
TEST_F(Reports, OnlyTheNameDecidesThatTheEngineLives) {
  const ManagementServer server(folder_, "server");
  StartEngine();
  fs::remove(folder_ / "engine.pid");
  config_.Set("ALARM_1", server.Address());
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return server.CountBodies("RESOURCE_INFO+c:") >= 1; }));
  EXPECT_EQ(server.CountBodies("ALARM+"), 0U);
  EXPECT_FALSE(fs::exists(folder_ / "runs"));
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
  const ManagementServer first(folder_, "first");
  const ManagementServer last(folder_, "last");
  const DeadPort refusing(DeadPort::Kind::REFUSING);
  config_.Set("RESTART_CHECK", 0).Set("FIRST_ALARM_SEND", 1);
  config_.Set("ALARM_FIRST", first.Address()).Set("ALARM_REFUSING", refusing.Address());
  std::vector<ManagementServer> servers;
  servers.reserve(std::size(bad));
  for (const BadServer& row : bad) {
    servers.emplace_back(folder_, row.behaviour, row.behaviour);
    config_.Set(std::string("ALARM_") + row.behaviour, servers.back().Address());
  }
  config_.Set("ALARM_NAME", "localhost:1").Set("ALARM_LAST", last.Address());

  Process agent = StartedAgent();
  ASSERT_TRUE(WaitFor([&] { return last.CountBodies("ALARM+") == 1; }));
  EXPECT_TRUE(agent.Alive());
  const Frame alarm = last.Reports().at(0);
  ExpectFrame(alarm, "ALARM+Tovik Start", PAD);
  EXPECT_LT(first.Reports().at(0).time, alarm.time);

  const std::string trace = Out();
  const std::string port = std::to_string(refusing.Port());
  EXPECT_NE(trace.find("[00001]"), std::string::npos);
  EXPECT_NE(trace.find("[ SOCK_SVC ] : CONNECT SOCK FAIL(127.0.0.1:" + port + ") : 111"), std::string::npos);
  EXPECT_NE(trace.find("[ SOCK_SVC ] : CONNECT SOCK FAIL(localhost:1) : "), std::string::npos);
  int index = 2;
  for (const BadServer& row : bad) {
    char channel[16];
    snprintf(channel, sizeof channel, "[%05d]", index++);
    bool found = false;
    for (size_t at = trace.find(channel); at != std::string::npos && !found;
         at = trace.find(channel, at + 1)) {
      const std::string line = trace.substr(at, trace.find('\n', at) - at);
      found = line.find(row.trace) != std::string::npos;
    }
    EXPECT_TRUE(found) << row.behaviour;
  }
}

TEST_F(Reports, ThresholdsThatAreReachedRaiseAlarms) {
  const ManagementServer server(folder_, "server");
  StartEngine();
  config_.Set("ALARM_1", server.Address()).Set("CPU_OVER_VALUE", 0);
  Process agent = StartedAgent();
  // The later request of a tick replaces the earlier one in the mailbox.
  EXPECT_TRUE(WaitFor([&] { return server.CountBodies("ALARM+Cpu Check") >= 1; }));
  EXPECT_TRUE(WaitForOut("CPU Over"));
}

}  // namespace
}  // namespace harness
