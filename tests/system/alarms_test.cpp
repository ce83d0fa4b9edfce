// The agent's main job: what it finds, and that every channel tells of it; the keys that answer its own
// faults; and what a service manager hears.
#include "system/harness.h"

namespace harness {
namespace {

class Alarms : public AllChannels {};

TEST_F(Alarms, DeadEngineIsRestartedAndTold) {
  Process agent = StartedAgent("SHELL_METHOD start 'two words' $((6 * 7))\n");
  ExpectAlarmOnAllChannels("first");
  const std::string subject = engine_ + " Alarm Occured - Process Restart";
  EXPECT_GE(mails_.Seen(R"("to": ["kim@example.com", "lee@example.com"])"), 1U);
  EXPECT_GE(mails_.Seen(subject), 1U);
  EXPECT_GE(mails_.Seen(engine_ + " is Die and Restart"), 1U);
  EXPECT_EQ(ReadFile(folder_ / "mails/1.attached-1"), config_);
  EXPECT_GE(posts_.Seen(subject), 1U);
  EXPECT_GE(posts_.Seen(R"("value": ")" + engine_ + " is Die and Restart\""), 1U);
  // The body and the bytes that follow it uncounted.
  EXPECT_GE(server_.Seen(R"( C 000020 ", "body": "ALARM+DunraSTT Check", "extra": "0000000000000000")"), 1U);
  EXPECT_EQ(ReadFile(folder_ / "runs").rfind("<start><two words><42>", 0), 0U);
  EXPECT_GE(Count(Log("MAIN.LOG"),
                  "process exec [ \"" + folder_ / "start engine.sh" + "\" start 'two words' $((6 * 7)) ]"),
            1U);

  // Alive: figures, and no alarm. Only the name decides that: a pid file does not.
  const std::string runs = ReadFile(folder_ / "runs");
  const size_t figures = server_.Seen("RESOURCE_INFO+c:");
  fs::remove(folder_ / "engine.pid");
  EXPECT_TRUE(WaitUntil([&] { return server_.Seen("RESOURCE_INFO+c:") >= figures + 2; }));
  EXPECT_EQ(ReadFile(folder_ / "runs"), runs);

  // A list that is newer than at the start is read again.
  fs::last_write_time(folder_.Write("to.txt", "Park park@example.com\n"),
                      fs::file_time_type::clock::now() + seconds(9));
  ASSERT_TRUE(WaitForOut("ReceiverDiff ["));
  EXPECT_TRUE(KillUntil([&] { return mails_.Seen(R"("to": ["park@example.com"])") > 0; }));
  EXPECT_TRUE(agent.Alive());
}

TEST_F(Alarms, ChannelsInUseReachTheThreshold) {
  folder_.Write("figures", "3 1");  // channels, and how many are in use
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", folder_ / "figures"});
  StartEngine();
  const Process agent = StartedAgent("ASR_PORT " + engine.Port() + "\nCH_OVER_VALUE 66\n");
  EXPECT_TRUE(WaitForOut("System Channel [ 33 ] Config Channel [ 66 ]"));
  EXPECT_TRUE(WaitForOut("[ " + engine_ + " ] health check : alived]"));
  EXPECT_TRUE(WaitUntil([&] { return server_.Seen("CH_STATE_DATA+1:1,2:0,3:0") >= 1; }));
  EXPECT_EQ(Count(Out(), "Channel Over"), 0U);
  folder_.Write("figures", "3 2");
  EXPECT_TRUE(WaitUntil([&] {
    return mails_.Seen("Channel Check") > 0 && server_.Seen("CH_STATE_DATA+1:1,2:1,3:0") > 0 &&
           posts_.Seen(" System Channel[66 %] Config Channel[66 %] is check") > 0;
  }));
}

class Keys : public AllChannels {
 protected:
  Keys() { config_ += "HANG_SAVE 0\nSEND_EMAIL_CHECK 0\nSEND_WEBHOOK_CHECK 0\n"; }
  // Heartbeats after now: what did not come until then does not come.
  void WaitForBeats(size_t count) const {
    EXPECT_TRUE(WaitForOut("Debug: ", Count(Out(), "Debug: ") + count));
  }
  // As an engine: 2 of 8 channels are in use.
  static void AnswerQuery(int fd) {
    const int32_t reply[] = {5, 0, 20, 7, 0, 8, 2, 0, 6};
    support::Receive(fd, 16);
    support::Send(fd, std::string(reinterpret_cast<const char*>(reply), sizeof reply));
  }
};

TEST_F(Keys, ChannelRetryTakesUpAnEngineThatComesLate) {
  StartEngine();
  Process agent = StartedAgent("CHANNEL_RETRY 1\n");
  ASSERT_TRUE(WaitForOut("Debug: 0\n"));  // the first query is over
  engine_port_.Listen();
  EXPECT_TRUE(WaitUntil([&] {
    if (engine_port_.Visited()) AnswerQuery(engine_port_.Accept().Get());
    return server_.Seen("CH_STATE_DATA+") > 0 && Count(Out(), "System Channel [ 25 ]") > 0;
  }));
  ExpectStops(agent, seconds(7));
}

TEST_F(Keys, HungEngineIsSeenAndTold) {
  StartEngine();
  // A second between two probes; no process check that would restart anything.
  config_ += "HANG_SAVE 1\nHANG_TIME -59\nRESTART_CHECK 0\nSEND_EMAIL_CHECK 1\nSEND_WEBHOOK_CHECK 1\n";
  const std::string check = "[ " + engine_ + " ] health check : ";
  {
    const Process agent = StartedAgent();
    EXPECT_TRUE(WaitForOut(check + "deaded - disconnect", 3));
    EXPECT_EQ(mails_.Arrived(), 0);
    EXPECT_EQ(Count(Out(), "[ " + std::to_string(engine_port_.Port()) + " ] disconnect]"), 1U);  // one query
  }
  // Connections are taken, and nobody accepts them: each probe leaves one.
  engine_port_.Listen();
  Process agent = StartedAgent("HANG_QUEUE 1\nHANG_ALARM 2\n");
  EXPECT_TRUE(mails_.WaitFor(engine_ + " health check : deaded - queue, 2 in a row"));
  EXPECT_TRUE(mails_.WaitFor(engine_ + " Alarm Occured - Hang Check\", \"Date\""));
  EXPECT_GE(Count(Out(), check + "alived"), 1U);
  EXPECT_TRUE(posts_.WaitFor("Hang Check"));
  EXPECT_EQ(server_.Seen("ALARM+"), 0U);
  ExpectStops(agent, seconds(7));
}

TEST_F(Keys, ReportQueueDeliversEveryReport) {
  folder_.Write("figures", "3 3");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", folder_ / "figures"});
  StartEngine();
  // One tick, in which everything is over.
  config_ += "ASR_PORT " + engine.Port() +
             "\nFIRST_ALARM_SEND 1\nRESTART_CHECK_SEC 600\n"
             "CH_OVER_VALUE 50\nMEM_OVER_VALUE 0\nCPU_OVER_VALUE 0\nREPORT_QUEUE 32\n";
  Process agent = StartedAgent();
  for (const char* body : {"ALARM+Tovik Start", "CH_STATE_DATA+", "ALARM+Work Channel Check",
                           "ALARM+Memory Check", "RESOURCE_INFO+", "ALARM+Cpu Check"}) {
    EXPECT_TRUE(server_.WaitFor(body)) << body;
    EXPECT_EQ(server_.Seen(body), 1U) << body;
  }
  ExpectStops(agent, seconds(7));
}

// Its pages are mapped many times over: what it has of the host's memory is large, what it takes is not.
TEST_F(Keys, MemOverPercentTellsTheTrueShare) {
  fs::remove(folder_ / engine_);
  fs::create_symlink("/usr/bin/python3", folder_ / engine_);
  folder_.Write("engine.py", R"(import mmap, signal
total = int(open("/proc/meminfo").readline().split()[1])
pages = open("pages", "w+b")
pages.truncate(1 << 24)
kept = [mmap.mmap(pages.fileno(), 1 << 24, mmap.MAP_SHARED | mmap.MAP_POPULATE, mmap.PROT_READ)
        for _ in range(total * 3 // 100 // (1 << 14) + 1)]
signal.pause()
)");
  folder_.Write("start engine.sh",
                "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n./" + engine_ + " engine.py > /dev/null 2>&1 &\n",
                0755);
  StartEngine();
  Process agent = StartedAgent("MEM_OVER_VALUE 1\nMEM_OVER_PERCENT 2\nSEND_WEBHOOK_CHECK 1\n");
  EXPECT_TRUE(posts_.WaitFor(" Config Memory[2 %] is check"));
  EXPECT_GE(Count(Out(), "System Memory [ 0 ] Config Memory [ 1 ]"), 1U);
  ExpectStops(agent, seconds(7));
}

// The test is the engine's parent and does not reap it.
TEST_F(Keys, ZombieIsStartedAgain) {
  StartEngine();
  for (const pid_t pid : Named(engine_)) kill(pid, SIGKILL);
  {
    const Process agent = StartedAgent("ZOMBIE_DEAD -1\n");  // counts as absent
    ASSERT_TRUE(WaitForOut("match inputProcessName [ ", 2));
    EXPECT_EQ(Count(Out(), R"(ZOMBIE_DEAD: "-1" is no value for it and counts as absent)"), 1U);
    EXPECT_FALSE(fs::exists(folder_ / "runs"));
  }
  const Process agent = StartedAgent("ZOMBIE_DEAD 1\n");
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(folder_ / "runs"); }));
  // A living one behind the zombie is found.
  EXPECT_TRUE(WaitForOut("match inputProcessName [ "));
  EXPECT_EQ(ReadFile(folder_ / "runs"), "<start>");
}

class Managed : public Keys {
 protected:
  // WATCHDOG_PID is the agent's pid.
  Process StartManaged(const std::string& patience) const {
    return Start({}, {"sh", "-c",
                      "export NOTIFY_SOCKET='" + folder_ / "manager/notify' DUNRASTT_PATIENCE=" + patience +
                          " WATCHDOG_USEC=200000 WATCHDOG_PID=$$; exec \"$0\" \"$@\""});
  }
  Peer manager_{folder_, "manager", "service_manager.py"};
};

TEST_F(Managed, HearsThatTheAgentIsReadyThoughTheEngineHangs) {
  engine_port_.Listen();  // takes a connection, and answers nothing
  folder_.Write("start engine.sh",
                "#!/bin/sh\ncd \"${0%/*}\" && env > environment && mv environment environment.whole\n", 0755);
  Process agent = StartManaged("600");
  EXPECT_TRUE(manager_.WaitFor("[WATCHDOG=1]", 4));
  EXPECT_TRUE(manager_.Kept("told").starts_with("[READY=1][STATUS=Watching; its channels are not watched: "));
  EXPECT_EQ(Count(Out(), "Debug: 0"), 0U);
  EXPECT_TRUE(manager_.WaitFor("[STATUS=The engine was found dead and is started again; "));
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(folder_ / "environment.whole"); }));
  const std::string environment = ReadFile(folder_ / "environment.whole");
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_", "PATIENCE"}) EXPECT_EQ(Count(environment, name), 0U);
  ExpectStops(agent, seconds(7));
  EXPECT_TRUE(manager_.WaitFor("[STOPPING=1\nSTATUS=Stopping]"));
  EXPECT_EQ(manager_.Seen("[READY=1]"), 1U);
}

TEST_F(Managed, HearsNothingMoreOnceATimerHangs) {
  const Listener silent;
  config_ +=
      "SEND_WEBHOOK_CHECK 1\nWEBHOOK_SERVER_URL http://127.0.0.1:" + std::to_string(silent.Port()) + "/\n";
  Process agent = StartManaged("1");
  EXPECT_TRUE(manager_.WaitFor("[WATCHDOG=1]"));
  EXPECT_TRUE(manager_.WaitFor("[STATUS=Hangs: PROCESS_STATUS_CHECK_TIMER has not moved for too long]"));
  const size_t signs = manager_.Seen("WATCHDOG=1");
  WaitForBeats(2);
  EXPECT_EQ(manager_.Seen("WATCHDOG=1"), signs);
  EXPECT_EQ(Count(Out(), "has not moved for too long: the service manager hears no more"), 1U);
  ExpectStops(agent, seconds(7));
}

}  // namespace
}  // namespace harness
