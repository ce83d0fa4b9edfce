// The agent under another clock (libfaketime): the turn of days and years, both clock changes, jumps, and
// times beyond 32 bits. Only the time of day is faked, so waits last what they say.
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <ostream>
#include <thread>

#include "Tovik/alarm_sink.h"
#include "system/harness.h"

namespace harness {
namespace {

namespace fs = std::filesystem;

constexpr const char* LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1";
constexpr const char* UTC = "UTC0";
constexpr const char* BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";

class OtherTime : public AgentTest {
 protected:
  void SetUp() override {
    if (!fs::exists(LIBRARY)) GTEST_SKIP() << "no " << LIBRARY;
    StartEngine();
    config_.Set("SEND_WEBHOOK_CHECK", 1).Set("WEBHOOK_APPS", 2).Set("TXT_PATH", "./engine/");
    config_.Set("WEBHOOK_SERVER_URL", "http://127.0.0.1:" + posts_.Port() + "/");
  }
  Process StartAt(const char* zone, const std::vector<std::string>& clock) {
    WriteFile(folder_ / "agent.conf", config_.Text());
    std::vector<std::string> environment = {std::string("LD_PRELOAD=") + LIBRARY, std::string("TZ=") + zone,
                                            "FAKETIME_DONT_FAKE_MONOTONIC=1", "NO_FAKE_STAT=1"};
    environment.insert(environment.end(), clock.begin(), clock.end());
    return Run({"-f", folder_ / "agent.conf"}, environment);
  }
  void WriteEngineFile(const std::string& day, const std::string& name, const std::string& content) {
    fs::create_directories(folder_ / "engine/" + day);
    WriteFile(folder_ / "engine/" + day + "/" + name, content);
  }
  bool HasLogOf(const std::string& day) const { return fs::exists(folder_ / "log/" + day + "/MAIN.LOG"); }
  // Beats of the heartbeat and supervision ticks in three seconds.
  void ExpectIntervalsHold() const {
    const size_t beats = Count(Out(), "Debug: ");
    const size_t ticks = Count(Out(), "send_timer Process Time");
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_GE(Count(Out(), "Debug: "), beats + 2);
    EXPECT_LE(Count(Out(), "Debug: "), beats + 4);
    EXPECT_GE(Count(Out(), "send_timer Process Time"), ticks + 1);
    EXPECT_LE(Count(Out(), "send_timer Process Time"), ticks + 2);
  }

  alarm_test::Sink posts_{"webhook_sink.py"};
};

struct Moment {
  const char* name;
  const char* zone;
  const char* epoch;  // seconds of a turn of the minute, less 5
  const char* result_time;
  const char* result_day;  // whose results are told at that time
  const char* result_date;
  const char* error_day;  // whose errors are looked for after the turn
  const char* error_log;
  const char* error_minute;
  const char* day_before;  // folders of the log
  const char* day_after;
};
void PrintTo(const Moment& row, std::ostream* out) {
  *out << row.name;
}

class Turn : public OtherTime, public testing::WithParamInterface<Moment> {};

TEST_P(Turn, TellsOfTheRightDayAndMinute) {
  const Moment& moment = GetParam();
  WriteEngineFile(moment.result_day, "Result.csv", "a,b,c\n");
  WriteEngineFile(moment.error_day, moment.error_log,
                  std::string("E 11:11:00 other\nE ") + moment.error_minute + ":07 wanted\n");
  config_.Set("RESULT_CHECK", 1).Set("RESULT_TIME", moment.result_time).Set("LOG_CHECK_MIN", 1);
  Process agent = StartAt(moment.zone, {"FAKETIME_FMT=%s", std::string("FAKETIME=@") + moment.epoch});
  const std::string result = posts_.Kept("1.body");
  EXPECT_NE(result.find(moment.result_date), std::string::npos) << result;
  const std::string errors = posts_.Kept("2.body");
  EXPECT_NE(errors.find("wanted"), std::string::npos) << errors;
  EXPECT_EQ(errors.find("other"), std::string::npos) << errors;
  ExpectIntervalsHold();
  EXPECT_TRUE(HasLogOf(moment.day_before));
  EXPECT_TRUE(HasLogOf(moment.day_after));
  EXPECT_FALSE(posts_.Has("3.body"));
  EXPECT_TRUE(agent.Alive());
}

// A day of the results is 86,400 seconds: after a change of the clock that may be the day before yesterday,
// or today.
INSTANTIATE_TEST_SUITE_P(
    Rows, Turn,
    testing::Values(Moment{"year", UTC, "1735689595", "23:59", "20241230", "2024/12/30", "20241231",
                           "1231.ERR.LOG", "23:58", "20241231", "20250101"},
                    Moment{"spring", BERLIN, "1743296395", "01:59", "20250329", "2025/03/29", "20250330",
                           "0330.ERR.LOG", "01:58", "20250330", "20250330"},
                    Moment{"dayAfterSpring", BERLIN, "1743373795", "00:29", "20250329", "2025/03/29",
                           "20250331", "0331.ERR.LOG", "00:28", "20250331", "20250331"},
                    Moment{"autumn", BERLIN, "1761440395", "02:59", "20251025", "2025/10/25", "20251026",
                           "1026.ERR.LOG", "02:58", "20251026", "20251026"},
                    Moment{"eveningOfAutumn", BERLIN, "1761517795", "23:29", "20251026", "2025/10/26",
                           "20251026", "1026.ERR.LOG", "23:28", "20251026", "20251026"},
                    Moment{"beyond2038", UTC, "2214172795", "23:59", "20400228", "2040/02/28", "20400229",
                           "0229.ERR.LOG", "23:58", "20400229", "20400301"}),
    [](const auto& row) { return std::string(row.param.name); });

// The clock is set a day ahead, then a day back, under the running agent.
TEST_F(OtherTime, JumpsChangeFoldersAndNoInterval) {
  const std::string clock = folder_ / "clock";
  WriteFile(clock, "+0d\n");
  Process agent = StartAt(UTC, {"FAKETIME_TIMESTAMP_FILE=" + clock, "FAKETIME_NO_CACHE=1"});
  ASSERT_TRUE(WaitForOut("System CPU ["));
  const auto folders = [this] {
    return std::distance(fs::directory_iterator(folder_ / "log"), fs::directory_iterator());
  };
  for (const char* offset : {"+1d\n", "-1d\n"}) {
    const auto before = folders();
    // Replaced in one step: it is read at any moment.
    WriteFile(clock + ".new", offset);
    fs::rename(clock + ".new", clock);
    EXPECT_TRUE(WaitFor([&] { return folders() > before; })) << offset;
    ExpectIntervalsHold();
  }
  KillEngine();
  EXPECT_TRUE(WaitFor([this] { return EngineAlive(); }));
  agent.Signal(SIGTERM);
  const int status = agent.Wait(milliseconds(3'000));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

}  // namespace
}  // namespace harness
