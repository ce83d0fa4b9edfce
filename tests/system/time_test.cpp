// The agent under another clock (libfaketime): the turn of days and years, both clock changes, jumps, and
// times beyond 32 bits. Only the time of day is faked, so waits last what they say.
#include "system/harness.h"

namespace harness {
namespace {

constexpr const char* LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1";
constexpr const char* UTC = "UTC0";
constexpr const char* BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";

class OtherTime : public AllChannels {
 protected:
  void SetUp() override {
    if (!fs::exists(LIBRARY)) GTEST_SKIP() << "no " << LIBRARY;
    StartEngine();
    config_ += "HANG_SAVE 0\nTXT_PATH ./engine/\n";
  }
  Process StartAt(const std::string& zone, const Words& clock) const {
    // Children are waited for though the parent ignores its own: no alarm is lost.
    Words by{"env",        "--ignore-signal=CHLD",           std::string("LD_PRELOAD=") + LIBRARY,
             "TZ=" + zone, "FAKETIME_DONT_FAKE_MONOTONIC=1", "NO_FAKE_STAT=1"};
    by.insert(by.end(), clock.begin(), clock.end());
    return Start({}, by);
  }
  void WriteEngineFile(const std::string& day, const std::string& name, const std::string& content) const {
    fs::create_directories(folder_ / "engine/" + day);
    folder_.Write("engine/" + day + "/" + name, content);
  }
  // Beats of the heartbeat and supervision ticks in three seconds.
  void ExpectIntervalsHold() const {
    const size_t beats = Count(Out(), "Debug: ");
    const size_t ticks = Count(Out(), "send_timer Process Time");
    std::this_thread::sleep_for(seconds(3));
    EXPECT_NEAR(double(Count(Out(), "Debug: ") - beats), 3, 1);
    EXPECT_NEAR(double(Count(Out(), "send_timer Process Time") - ticks), 1.5, 0.5);
  }
};

struct Moment {
  const char* name;
  const char* zone;
  const char* epoch;         // seconds of a turn of the minute, less 5
  const char* result_time;   // then yesterday's results are told,
  std::string result_day;    // of this day
  const char* error_minute;  // whose errors are looked for after the turn
  std::string day_before;    // folder of the log before and after the turn
  std::string day_after;
  friend void PrintTo(const Moment& row, std::ostream* out) { *out << row.name; }
};

class Turn : public OtherTime, public testing::WithParamInterface<Moment> {};

TEST_P(Turn, TellsOfTheRightDayAndMinute) {
  const Moment& row = GetParam();
  const std::string results = ",,,,,,,,,,,,100,,,5000,,,0.5,,,40,,\n";
  WriteEngineFile(row.result_day, "Result.csv", results);
  WriteEngineFile(row.day_before, row.day_before.substr(4) + ".ERR.LOG",
                  std::string("E 11:11:00 other\nE ") + row.error_minute + ":07 wanted\n");
  config_ += std::string("RESULT_CHECK 1\nLOG_CHECK_MIN 1\nRESULT_TIME ") + row.result_time + "\n";
  Process agent = StartAt(row.zone, {"FAKETIME_FMT=%s", std::string("FAKETIME=@") + row.epoch});
  std::string date = row.result_day;
  date.insert(6, "/").insert(4, "/");
  ASSERT_TRUE(WaitUntil([&] { return Now().mails == 2 && Now().posts == 2; }));
  EXPECT_EQ(ReadFile(folder_ / "mails/1.attached-1"), results);
  EXPECT_EQ(Count(ReadFile(folder_ / "mails/1.html"), "5000.00 ms"), 1U);
  EXPECT_GE(Count(ReadFile(folder_ / "posts/1.body"), date), 1U);
  EXPECT_EQ(Count(ReadFile(folder_ / "posts/2.body"), "wanted"), 1U);
  EXPECT_EQ(posts_.Seen("other"), 0U);
  ExpectIntervalsHold();
  EXPECT_TRUE(fs::exists(folder_ / "log/" + row.day_before + "/MAIN.LOG"));
  EXPECT_TRUE(fs::exists(folder_ / "log/" + row.day_after + "/MAIN.LOG"));
  EXPECT_EQ(posts_.Arrived(), 2);
  EXPECT_TRUE(agent.Alive());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Turn,
    testing::Values(
        Moment{"year", UTC, "1735689595", "23:59", "20241230", "23:58", "20241231", "20250101"},
        Moment{"spring", BERLIN, "1743296395", "01:59", "20250329", "01:58", "20250330", "20250330"},
        Moment{"autumn", BERLIN, "1761440395", "02:59", "20251025", "02:58", "20251026", "20251026"},
        Moment{"beyond2038", UTC, "2214172795", "23:59", "20400228", "23:58", "20400229", "20400301"}),
    [](const auto& row) { return std::string(row.param.name); });

// It is noon, and the minute was at three.
TEST_F(OtherTime, AReportWhoseMinuteWasMissedIsMadeUpForOnce) {
  WriteEngineFile("20250102", "Result.csv", ",,,,,,,,,,,,100,,,5000,,,0.5,,,40,,\n");
  config_ += "RESULT_CHECK 1\nRESULT_TIME 03:00\n";
  const std::pair<const char*, int> starts[] = {{"", 0}, {"RESULT_CATCH_UP 1\n", 1}, {"", 1}};
  int number = 0;
  for (const auto& [key, mails] : starts) {
    config_ += key;
    folder_.Write("out.txt", "");
    Process agent = StartAt(UTC, {"FAKETIME_FMT=%s", "FAKETIME=@1735905600"});
    EXPECT_TRUE(WaitForOut(++number == 2 ? "is made up for" : "Result check Hour Over"));
    EXPECT_TRUE(WaitUntil([&, told = mails] { return Now().mails == told && Now().posts == told; }));
    ExpectStops(agent, seconds(7));
  }
}

// The clock is set a day ahead, then a day back, under the running agent.
TEST_F(OtherTime, JumpsChangeFoldersAndNoInterval) {
  const std::string clock = folder_.Write("clock", "+0d\n");
  Process agent = StartAt(UTC, {"FAKETIME_TIMESTAMP_FILE=" + clock, "FAKETIME_NO_CACHE=1"});
  ASSERT_TRUE(WaitForOut("System CPU ["));
  const auto folders = [this] {
    return std::distance(fs::directory_iterator(folder_ / "log"), fs::directory_iterator());
  };
  for (const char* offset : {"+1d\n", "-1d\n"}) {
    const auto before = folders();
    // Replaced in one step: it is read at any moment.
    fs::rename(folder_.Write("clock.new", offset), clock);
    EXPECT_TRUE(WaitUntil([&] { return folders() > before; })) << offset;
    ExpectIntervalsHold();
  }
  KillEngine();
  EXPECT_TRUE(WaitUntil([this] { return EngineAlive(); }));
  ExpectStops(agent, seconds(7));
}

}  // namespace
}  // namespace harness
