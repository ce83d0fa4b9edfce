// The agent's main job: what it finds, and that every channel tells of it.
#include "system/harness.h"

namespace harness {
namespace {

class Alarms : public AllChannels {};

TEST_F(Alarms, DeadEngineIsRestartedAndTold) {
  config_ += "SHELL_METHOD start 'two words' $((6 * 7))\n";
  Process agent = StartedAgent();
  ExpectAlarmOnAllChannels("first");
  const std::string subject = engine_ + " Alarm Occured - Process Restart";
  EXPECT_GE(mails_.Seen(R"("to": ["kim@example.com", "lee@example.com"])"), 1U);
  EXPECT_GE(mails_.Seen(R"("attached": ["agent.conf"])"), 1U);
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
  // Channels, and how many are in use.
  const std::string figures = folder_.Write("figures", "3 1");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", figures});
  StartEngine();
  config_ += "ASR_PORT " + engine.Port() + "\nCH_OVER_VALUE 66\n";
  Process agent = StartedAgent();
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

}  // namespace
}  // namespace harness
