// Keys that answer the agent's own faults: each fault without its key, and the cure with it. And what a
// service manager hears.
#include <sys/un.h>

#include "system/harness.h"

namespace harness {
namespace {

class Keys : public AllChannels {
 protected:
  Keys() { config_ += "HANG_SAVE 0\nSEND_EMAIL_CHECK 0\nSEND_WEBHOOK_CHECK 0\n"; }
  // Heartbeats after now: what did not come until then does not come.
  void WaitForBeats(size_t count) const {
    const size_t before = Count(Out(), "Debug: ");
    EXPECT_TRUE(WaitUntil([&] { return Count(Out(), "Debug: ") >= before + count; }));
  }
};

// An engine on a port of this process that refuses connections until it is told to take them. Then it says
// that 2 of 8 channels are in use.
class LateEngine {
 public:
  ~LateEngine() {
    port_.Shut();
    if (thread_.joinable()) thread_.join();
  }
  std::string Port() const { return std::to_string(port_.Port()); }
  void ComeUp() {
    port_.Listen();
    thread_ = std::thread([this] {
      for (auto client = port_.Accept(); client.Valid(); client = port_.Accept()) {
        const int32_t reply[] = {5, 0, 20, 7, 0, 8, 2, 0, 6};
        support::Receive(client.Get(), 16);
        support::Send(client.Get(), std::string(reinterpret_cast<const char*>(reply), sizeof reply));
      }
    });
  }

 private:
  Listener port_{true};
  std::thread thread_;
};

TEST_F(Keys, ChannelRetryTakesUpAnEngineThatComesLate) {
  StartEngine();
  for (const char* key : {"", "CHANNEL_RETRY 1\n"}) {
    LateEngine engine;
    config_ += "ASR_PORT " + engine.Port() + "\n" + key;
    Process agent = StartedAgent();
    ASSERT_TRUE(WaitForOut("Debug: 0\n"));  // the first query is over
    engine.ComeUp();
    if (*key != '\0') {
      EXPECT_TRUE(WaitUntil([&] { return server_.Seen("CH_STATE_DATA+") > 0; }));
      EXPECT_TRUE(WaitForOut("System Channel [ 25 ]"));
    } else {
      WaitForBeats(4);
      EXPECT_EQ(Count(Out(), "g_shm_open_flag = 1"), 0U);
      EXPECT_EQ(server_.Seen("CH_STATE_DATA+"), 0U);
    }
    ExpectStops(agent, seconds(7));
  }
}

// A listener that accepts nothing. Until its backlog is full it takes connections.
TEST_F(Keys, HungEngineIsSeenAndTold) {
  StartEngine();
  const struct {
    int backlog, waiting;
    const char* keys;
    const char* verdict;
  } rows[] = {{128, 20, "", "alived"},
              {5, 6, "", "deaded - disconnect"},
              {128, 20, "HANG_QUEUE 16\nHANG_ALARM 2\n", "deaded - queue"},
              {5, 6, "HANG_QUEUE 16\nHANG_ALARM 2\n", "deaded - disconnect"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.keys);
    const Listener port(true);
    port.Listen(row.backlog);
    std::vector<base::UniqueFd> clients;
    for (int i = 0; i < row.waiting; ++i) clients.push_back(port.Connect());
    // A second between two probes; no process check that would restart anything.
    config_ +=
        "HANG_SAVE 1\nHANG_TIME -59\nRESTART_CHECK 0\nSEND_EMAIL_CHECK 1\nSEND_WEBHOOK_CHECK 1\nASR_PORT " +
        std::to_string(port.Port()) + "\n" + row.keys;
    const int mails = mails_.Arrived();
    Process agent = StartedAgent();
    const std::string line = "[ " + engine_ + " ] health check : " + row.verdict;
    if (*row.keys == '\0') {
      EXPECT_TRUE(WaitUntil([&] { return Count(Out(), line) >= 2; }, seconds(40)));
      EXPECT_EQ(Count(Out(), "health check : "), Count(Out(), line));
      EXPECT_EQ(mails_.Arrived(), 0);
    } else {
      EXPECT_TRUE(WaitForOut(line));
      EXPECT_TRUE(WaitUntil([&] { return mails_.Arrived() > mails; }, seconds(40)));
      EXPECT_EQ(mails_.Seen(engine_ + " Alarm Occured - Hang Check\", \"Date\""), size_t(mails_.Arrived()));
      EXPECT_GE(
          mails_.Seen(line.substr(2, engine_.size()) + " health check : " + row.verdict + ", 2 in a row"),
          1U);
      EXPECT_TRUE(WaitUntil([&] { return posts_.Seen("Hang Check") > 0; }));
      EXPECT_EQ(server_.Seen("ALARM+"), 0U);
    }
    ExpectStops(agent, seconds(7));
  }
}

TEST_F(Keys, ReportQueueDeliversEachReportInItsTurn) {
  folder_.Write("figures", "3 3");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", folder_ / "figures"});
  StartEngine();
  // One tick, in which everything is over.
  config_ +=
      "ASR_PORT " + engine.Port() +
      "\nFIRST_ALARM_SEND 1\nRESTART_CHECK_SEC 600\nCH_OVER_VALUE 50\nMEM_OVER_VALUE 0\nCPU_OVER_VALUE 0\n";
  {
    Process agent = StartedAgent();
    ASSERT_TRUE(WaitForOut("CPU Over"));
    WaitForBeats(4);
    EXPECT_LT(server_.Seen("ALARM+"), 4U);
    ExpectStops(agent, seconds(7));
  }
  config_ += "REPORT_QUEUE 32\n";
  const size_t before = ReadFile(folder_ / "server/frames").size();
  const auto frames = [&] { return ReadFile(folder_ / "server/frames").substr(before); };
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitUntil([&] { return Count(frames(), "ALARM+Cpu Check") > 0; }));
  const std::string got = frames();
  size_t at = 0;
  for (const char* body : {"ALARM+Tovik Start", "CH_STATE_DATA+", "ALARM+Work Channel Check",
                           "ALARM+Memory Check", "RESOURCE_INFO+", "ALARM+Cpu Check"}) {
    at = got.find(body, at);
    EXPECT_NE(at, got.npos) << body << "\n" << got;
    EXPECT_EQ(Count(got, body), 1U);
  }
  ExpectStops(agent, seconds(7));
}

TEST_F(Keys, AStopDropsWhatWaitsBehindASilentServer) {
  const Listener silent;
  StartEngine();
  config_ += "ALARM_0 127.0.0.1:" + std::to_string(silent.Port()) +
             "\nLOG_LEVEL 4\nREPORT_QUEUE 8\nCPU_OVER_VALUE 0\nMEM_OVER_VALUE 0\n";
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitForOut("waits already and is sent once"));
  ExpectStops(agent, seconds(8));
  EXPECT_EQ(Count(Out(), " reports that wait for the management servers"), 1U);
}

// Its pages are mapped many times over: what it has of the host's memory is large, what it takes is not.
TEST_F(Keys, MemOverPercentTellsTheTrueShare) {
  fs::remove(folder_ / engine_);
  fs::create_symlink("/usr/bin/python3", folder_ / engine_);
  folder_.Write("engine.py", R"(import mmap, signal
total = int(open("/proc/meminfo").readline().split()[1])
pages = open("pages", "w+b")
pages.truncate(1 << 24)
POPULATE = 0x8000
kept = [mmap.mmap(pages.fileno(), 1 << 24, mmap.MAP_SHARED | POPULATE, mmap.PROT_READ)
        for _ in range(total * 3 // 100 // (1 << 14) + 1)]
signal.pause()
)");
  folder_.Write("start engine.sh",
                "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n./" + engine_ + " engine.py > /dev/null 2>&1 &\n",
                0755);
  StartEngine();
  config_ += "MEM_OVER_VALUE 1\nSEND_WEBHOOK_CHECK 1\n";
  for (const char* key : {"", "MEM_OVER_PERCENT 2\n"}) {
    config_ += key;
    Process agent = StartedAgent();
    if (*key == '\0') {
      EXPECT_TRUE(WaitUntil([&] { return Count(Out(), "System Memory [ 0 ] Config Memory [ 1 ]") >= 2; }));
      EXPECT_EQ(Count(Out(), "Memory Over"), 0U);
    } else {
      EXPECT_TRUE(WaitUntil([&] { return posts_.Seen(" Config Memory[2 %] is check") > 0; }));
    }
    ExpectStops(agent, seconds(7));
  }
}

// The test is the engine's parent and does not reap it.
TEST_F(Keys, ZombieIsStartedAgain) {
  StartEngine();
  for (const pid_t pid : Named(engine_)) kill(pid, SIGKILL);
  config_ += "ZOMBIE_DEAD -1\n";  // counts as absent
  {
    Process agent = StartedAgent();
    ASSERT_TRUE(WaitUntil([&] { return Count(Out(), "match inputProcessName [ ") >= 2; }));
    EXPECT_EQ(Count(Out(), "[WARN]"), 1U);
    EXPECT_EQ(Count(Out(), R"(ZOMBIE_DEAD: "-1" is no value for it and counts as absent)"), 1U);
    EXPECT_FALSE(fs::exists(folder_ / "runs"));
    ExpectStops(agent, seconds(2));
  }
  config_ += "ZOMBIE_DEAD 1\n";
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(folder_ / "runs"); }));
  // A living one behind the zombie is found.
  EXPECT_TRUE(WaitForOut("match inputProcessName [ "));
  EXPECT_EQ(ReadFile(folder_ / "runs"), "<start>");
}

// What is sent to NOTIFY_SOCKET.
class Notified {
 public:
  explicit Notified(const std::string& path)
      : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    ::bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  // All so far, in square brackets each.
  const std::string& Text() {
    char buffer[4096];
    for (ssize_t got = 0; (got = ::recv(fd_.Get(), buffer, sizeof buffer, 0)) >= 0;)
      text_ += "[" + std::string(buffer, static_cast<size_t>(got)) + "]";
    return text_;
  }
  bool WaitFor(const std::string& message, size_t count = 1) {
    return WaitUntil([&] { return Count(Text(), message) >= count; });
  }

 private:
  base::UniqueFd fd_;
  std::string text_;
};

class Managed : public Keys {
 protected:
  // WATCHDOG_PID is what the agent's pid will be, or another.
  Process StartManaged(const std::string& variables) const {
    return Start({}, {"sh", "-c",
                      "export NOTIFY_SOCKET='" + folder_ / "notify' " + variables + "; exec \"$0\" \"$@\""});
  }
  Notified manager_{folder_ / "notify"};
};

TEST_F(Managed, HearsThatTheAgentIsReadyThoughTheEngineHangs) {
  const Listener hung;  // takes a connection, and answers nothing
  folder_.Write(
      "start engine.sh",
      "#!/bin/sh\ncd \"$(dirname \"$0\")\" && env > environment && mv environment environment.whole\n", 0755);
  config_ += "ASR_PORT " + std::to_string(hung.Port()) + "\n";
  Process agent = StartManaged("WATCHDOG_USEC=200000 WATCHDOG_PID=$$ DUNRASTT_PATIENCE=600");
  EXPECT_TRUE(manager_.WaitFor("[WATCHDOG=1]", 4));
  EXPECT_TRUE(manager_.Text().starts_with("[READY=1][STATUS=Watching; its channels are not watched: "))
      << manager_.Text();
  EXPECT_EQ(Count(Out(), "Debug: 0"), 0U);
  EXPECT_TRUE(manager_.WaitFor("[STATUS=The engine was found dead and is started again; "));
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(folder_ / "environment.whole"); }));
  const std::string environment = ReadFile(folder_ / "environment.whole");
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_", "PATIENCE"}) EXPECT_EQ(Count(environment, name), 0U);
  EXPECT_EQ(Count(manager_.Text(), "[READY=1]"), 1U);
  ExpectStops(agent, seconds(7));
  EXPECT_TRUE(Has(manager_.Text(), "[STOPPING=1\nSTATUS=Stopping]"));
}

TEST_F(Managed, HearsNothingMoreOnceATimerHangs) {
  const Listener silent;
  config_ +=
      "SEND_WEBHOOK_CHECK 1\nWEBHOOK_SERVER_URL http://127.0.0.1:" + std::to_string(silent.Port()) + "/\n";
  Process agent = StartManaged("WATCHDOG_USEC=200000 WATCHDOG_PID=$$ DUNRASTT_PATIENCE=1");
  EXPECT_TRUE(manager_.WaitFor("[WATCHDOG=1]"));
  EXPECT_TRUE(manager_.WaitFor("[STATUS=Hangs: PROCESS_STATUS_CHECK_TIMER has not moved for too long]"));
  const size_t signs = Count(manager_.Text(), "WATCHDOG=1");
  WaitForBeats(2);
  EXPECT_EQ(Count(manager_.Text(), "WATCHDOG=1"), signs);
  EXPECT_EQ(Count(Out(), "has not moved for too long: the service manager hears no more"), 1U);
  ExpectStops(agent, seconds(7));
}

TEST_F(Managed, GetsNoSignsOfLifeThatItWantsOfAnother) {
  StartEngine();
  Process agent = StartManaged("WATCHDOG_USEC=200000 WATCHDOG_PID=1");
  EXPECT_TRUE(manager_.WaitFor("[STATUS=The engine runs; "));
  WaitForBeats(2);
  EXPECT_EQ(Count(manager_.Text(), "WATCHDOG=1"), 0U);
  ExpectStops(agent, seconds(2));
}

}  // namespace
}  // namespace harness
