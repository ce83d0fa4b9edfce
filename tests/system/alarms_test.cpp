// Alarms beyond the management servers: mail, chat, the engine's channels, hang log, error log, daily report.
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "system/harness.h"

namespace harness {
namespace {

namespace fs = std::filesystem;

constexpr time_t MINUTE = 60;
constexpr time_t DAY = 86'400;

class Alarms : public AgentTest {
 protected:
  Alarms() {
    fs::create_directory(folder_ / "mails");
    fs::create_directory(folder_ / "cards");
    WriteFile(folder_ / "to.txt", "Operator operator@example.com\n");
    config_.Set("CFG_FILE", "./agent.conf").Set("SENDER_NAME", "Agent").Set("SENDER_EMAIL", "a@example.com");
    config_.Set("SEND_EMAIL_CHECK", 1).Set("SMTP_SERVER_URL", "127.0.0.1").Set("SMTP_AUTH", 1);
    config_.Set("SMTP_SERVER_PORT", mail_.Port());
    config_.Set("SEND_WEBHOOK_CHECK", 1).Set("WEBHOOK_SERVER_URL", "http://" + chat_.Address() + "/hook");
    config_.Set("TXT_PATH", "./engine/");
  }

  // The record of the first mail with this in its subject; waits for it.
  std::string Mail(const std::string& subject) const { return First("mails", ".json", subject); }
  std::string Card(const std::string& title) const { return First("cards", ".body", title); }
  // Adds to a file of the engine in the dated folder of a moment.
  void WriteEngineFile(time_t moment, const std::string& name, const std::string& text) const {
    const std::string folder = folder_ / "engine/" + Local(moment, "%Y%m%d/");
    fs::create_directories(folder);
    std::ofstream(folder + name, std::ios::app) << text;
  }
  static std::string Local(time_t moment, const char* format) {
    std::tm local{};
    localtime_r(&moment, &local);
    std::ostringstream text;
    text << std::put_time(&local, format);
    return text.str();
  }

 private:
  std::string First(const std::string& kind, const std::string& suffix, const std::string& text) const {
    std::string found;
    WaitFor([&] {
      for (int number = 1; found.empty(); ++number) {
        const std::string record = ReadFile(folder_ / kind + "/" + std::to_string(number) + suffix);
        if (record.empty()) return false;
        if (record.find(text) != std::string::npos) found = record;
      }
      return true;
    });
    return found;
  }

  Peer mail_{folder_, "mail", "mail_sink.py", {"--folder", folder_ / "mails"}};
  Peer chat_{folder_, "chat", "webhook_sink.py", {"--folder", folder_ / "cards"}};
};

TEST_F(Alarms, DeadEngineIsMailedAndPosted) {
  Process agent = StartedAgent();
  const std::string subject = engine_ + " Alarm Occured - Process Restart";
  const std::string mail = Mail(subject);
  EXPECT_NE(mail.find(R"("to": ["operator@example.com"])"), std::string::npos) << mail;
  EXPECT_NE(mail.find(R"("attached": ["agent.conf"])"), std::string::npos) << mail;
  EXPECT_EQ(ReadFile(folder_ / "mails/1.attached-1"), config_.Text());
  EXPECT_NE(ReadFile(folder_ / "mails/1.html").find(engine_ + " is Die and Restart"), std::string::npos);
  EXPECT_NE(Card(subject).find(R"("value": ")" + engine_ + " is Die and Restart\""), std::string::npos);
  EXPECT_TRUE(WaitFor([&] { return EngineAlive(); }));
}

TEST_F(Alarms, ChannelsInUseReachTheThreshold) {
  WriteFile(folder_ / "figures", "3 1");
  const Peer engine(folder_, "engine", "engine_standin.py", {"--figures", folder_ / "figures"});
  const ManagementServer server(folder_, "server");
  StartEngine();
  config_.Set("ALARM_1", server.Address()).Set("ASR_PORT", engine.Port()).Set("CH_OVER_VALUE", 66);
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitForOut("System Channel [ 33 ] Config Channel [ 66 ]"));
  EXPECT_TRUE(WaitFor([&] { return server.CountBodies("CH_STATE_DATA+1:1,2:0,3:0") >= 1; }));
  EXPECT_EQ(Out().find("Channel Over"), std::string::npos);
  WriteFile(folder_ / "figures", "3 2");
  EXPECT_NE(Mail("Channel Check"), "");
  EXPECT_NE(Card(" System Channel[66 %] Config Channel[66 %] is check"), "");
  EXPECT_TRUE(WaitFor([&] { return server.CountBodies("CH_STATE_DATA+1:1,2:1,3:0") >= 1; }));
}

TEST_F(Alarms, HangLogTellsAProcessFromItsPort) {
  WriteFile(folder_ / "figures", "3 1");
  const Peer engine(folder_, "engine", "engine_standin.py", {"--figures", folder_ / "figures"});
  StartEngine();
  config_.Set("RESTART_CHECK", 0).Set("HANG_SAVE", 1).Set("HANG_PATH", "./hang/");
  const std::pair<int, const char*> rows[] = {
      {engine.Port(), "alived"}, {engine_port_.Port(), "deaded - disconnect"}, {0, "deaded - process"}};
  for (const auto& [port, verdict] : rows) {
    if (port == 0) KillEngine();
    config_.Set("ASR_PORT", port);
    Process agent = StartedAgent();
    // The check comes with the start.
    EXPECT_TRUE(WaitForOut("[ " + engine_ + " ] health check : " + verdict + "]"));
    agent.Signal(SIGTERM);
    agent.Wait();
  }
}

TEST_F(Alarms, ErrorLinesOfTwoMinutesAgo) {
  config_.Set("RESTART_CHECK", 0).Set("LOG_CHECK_MIN", 1);
  const time_t now = time(nullptr);
  // One line a minute, whichever minute it is when the check runs.
  for (int minutes = 4; minutes >= 0; --minutes) {
    const time_t moment = now - minutes * MINUTE;
    WriteEngineFile(moment, Local(moment, "%m%d.ERR.LOG"), Local(moment, "E %Y/%m/%d %H:%M:00 at %H%M\n"));
  }
  Process agent = StartedAgent();
  EXPECT_NE(Mail("Service Check"), "");
  EXPECT_EQ(Count(ReadFile(folder_ / "mails/1.html"), ":00 at "), 1U);
  EXPECT_FALSE(fs::exists(folder_ / "engine/STTAlarmLog.txt"));
}

TEST_F(Alarms, DailyReportAtItsMinute) {
  config_.Set("RESTART_CHECK", 0).Set("RESULT_CHECK", 1);
  constexpr char row[] = ",,,,,,,,,,,,100,,,5000,,,0.5,,,40,,\n";
  WriteEngineFile(time(nullptr) - DAY, "Result.csv", row);
  // Anew when the minute turned between the configuration and the check.
  for (int attempt = 0; attempt < 3; ++attempt) {
    config_.Set("RESULT_TIME", Local(time(nullptr), "%H:%M"));
    WriteFile(folder_ / "out.txt", "");
    Process agent = StartedAgent();
    ASSERT_TRUE(WaitFor([&] { return Count(Out(), "Result check ") + Count(Out(), "Mail Send [") > 0; }));
    if (Out().find("Mail Send [") != std::string::npos) break;
  }
  EXPECT_NE(Mail("Result Check").find(R"("attached": ["Result.csv"])"), std::string::npos);
  EXPECT_EQ(ReadFile(folder_ / "mails/1.attached-1"), row);
  EXPECT_NE(ReadFile(folder_ / "mails/1.html").find("5000.00 ms"), std::string::npos);
}

}  // namespace
}  // namespace harness
