// Alarms beyond the management servers: mail, chat, the engine's channels, hang log, error log, daily report.
#include <ctime>
#include <iomanip>
#include <sstream>

#include "system/harness.h"

namespace harness {
namespace {

constexpr time_t MINUTE = 60;
constexpr time_t DAY = 86'400;

class Alarms : public AllChannels {
 protected:
  Alarms() { config_ += "TXT_PATH ./engine/\nHANG_SAVE 0\n"; }
  // The number of the first mail or post whose record holds the text; waits for it.
  static std::string First(const Peer& sink, const std::string& suffix, const std::string& text) {
    for (int number = 1; number < 100; ++number) {
      const std::string record = sink.Kept(std::to_string(number) + suffix);
      if (record.empty()) break;
      if (Count(record, text) > 0) return std::to_string(number);
    }
    ADD_FAILURE() << text;
    return "0";
  }
  std::string Mail(const std::string& subject) const { return First(mails_, ".json", subject); }
  std::string Card(const std::string& text) const { return First(posts_, ".body", text); }
  // Adds to a file of the engine in the dated folder of a moment.
  void WriteEngineFile(time_t moment, const std::string& name, const std::string& text) const {
    const std::string folder = "engine/" + Local(moment, "%Y%m%d/");
    fs::create_directories(folder_ / folder);
    folder_.Write(folder + name, ReadFile(folder_ / folder + name) + text);
  }
  static std::string Local(time_t moment, const char* format) {
    std::tm local{};
    localtime_r(&moment, &local);
    return (std::ostringstream() << std::put_time(&local, format)).str();
  }
  void WriteFigures(const char* channels_and_used) const { folder_.Write("figures", channels_and_used); }
};

TEST_F(Alarms, DeadEngineIsMailedAndPosted) {
  Process agent = StartedAgent();
  const std::string subject = engine_ + " Alarm Occured - Process Restart";
  const std::string mail = Mail(subject);
  const std::string record = mails_.Kept(mail + ".json");
  EXPECT_EQ(Count(record, R"("to": ["kim@example.com", "lee@example.com"])"), 1U) << record;
  EXPECT_EQ(Count(record, R"("attached": ["agent.conf"])"), 1U) << record;
  EXPECT_EQ(mails_.Kept(mail + ".attached-1"), config_);
  EXPECT_EQ(Count(mails_.Kept(mail + ".html"), engine_ + " is Die and Restart"), 1U);
  EXPECT_EQ(Count(posts_.Kept(Card(subject) + ".body"), R"("value": ")" + engine_ + " is Die and Restart\""),
            1U);
  EXPECT_TRUE(WaitUntil([&] { return EngineAlive(); }));
}

TEST_F(Alarms, ChannelsInUseReachTheThreshold) {
  WriteFigures("3 1");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", folder_ / "figures"});
  StartEngine();
  config_ += "ASR_PORT " + engine.Port() + "\nCH_OVER_VALUE 66\n";
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitForOut("System Channel [ 33 ] Config Channel [ 66 ]"));
  EXPECT_TRUE(WaitUntil([&] { return server_.CountBodies("CH_STATE_DATA+1:1,2:0,3:0") >= 1; }));
  EXPECT_EQ(Count(Out(), "Channel Over"), 0U);
  WriteFigures("3 2");
  Mail("Channel Check");
  Card(" System Channel[66 %] Config Channel[66 %] is check");
  EXPECT_TRUE(WaitUntil([&] { return server_.CountBodies("CH_STATE_DATA+1:1,2:1,3:0") >= 1; }));
}

TEST_F(Alarms, HangLogTellsAProcessFromItsPort) {
  WriteFigures("3 1");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", folder_ / "figures"});
  StartEngine();
  config_ += "RESTART_CHECK 0\nHANG_SAVE 1\n";
  for (const char* verdict : {"deaded - disconnect", "alived", "deaded - process"}) {
    if (verdict == std::string("alived")) config_ += "ASR_PORT " + engine.Port() + "\n";
    if (verdict == std::string("deaded - process")) KillEngine();
    // The check comes with the start.
    Process agent = StartedAgent();
    EXPECT_TRUE(WaitForOut("[ " + engine_ + " ] health check : " + verdict + "]"));
    ExpectStops(agent, seconds(7));
  }
}

TEST_F(Alarms, ErrorLinesOfTwoMinutesAgo) {
  config_ += "RESTART_CHECK 0\nLOG_CHECK_MIN 1\n";
  const time_t now = time(nullptr);
  // One line a minute, whichever minute it is when the check runs.
  for (int minutes = 4; minutes >= 0; --minutes) {
    const time_t moment = now - minutes * MINUTE;
    WriteEngineFile(moment, Local(moment, "%m%d.ERR.LOG"), Local(moment, "E %Y/%m/%d %H:%M:00 at %H%M\n"));
  }
  Process agent = StartedAgent();
  EXPECT_EQ(Count(mails_.Kept(Mail("Service Check") + ".html"), ":00 at "), 1U);
  EXPECT_FALSE(fs::exists(folder_ / "engine/STTAlarmLog.txt"));
}

TEST_F(Alarms, DailyReportAtItsMinute) {
  constexpr char row[] = ",,,,,,,,,,,,100,,,5000,,,0.5,,,40,,\n";
  WriteEngineFile(time(nullptr) - DAY, "Result.csv", row);
  config_ += "RESTART_CHECK 0\nRESULT_CHECK 1\n";
  // Anew when the minute turned between the configuration and the check.
  for (int attempt = 0; attempt < 3; ++attempt) {
    config_ += "RESULT_TIME " + Local(time(nullptr), "%H:%M\n");
    Process agent = StartedAgent();
    ASSERT_TRUE(WaitUntil([&] { return Count(Out(), "Result check ") + Count(Out(), "Mail Send [") > 0; }));
    if (Count(Out(), "Mail Send [") > 0) break;
  }
  const std::string mail = Mail("Result Check");
  EXPECT_EQ(Count(mails_.Kept(mail + ".json"), R"("attached": ["Result.csv"])"), 1U);
  EXPECT_EQ(mails_.Kept(mail + ".attached-1"), row);
  EXPECT_EQ(Count(mails_.Kept(mail + ".html"), "5000.00 ms"), 1U);
}

}  // namespace
}  // namespace harness
