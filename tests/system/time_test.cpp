// The agent under another clock (libfaketime): the turn of the year, jumps, and times beyond 32 bits. Only
// the time of day is faked, so waits last what they say.
#include "system/harness.h"

namespace harness {
namespace {

constexpr const char* LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1";

class OtherTime : public AllChannels {
 protected:
  void SetUp() override {
    if (!fs::exists(LIBRARY)) GTEST_SKIP() << "no " << LIBRARY;
    StartEngine();
    config_ += "HANG_SAVE 0\nTXT_PATH ./engine/\n";
  }
  Process StartAt(const Words& clock) const {
    const Words env{"env", std::string("LD_PRELOAD=") + LIBRARY, "TZ=UTC0", "FAKETIME_DONT_FAKE_MONOTONIC=1",
                    "NO_FAKE_STAT=1"};
    return Start({}, Joined(env, clock));
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

// The turn of the year to 2041, which 32 bits cannot count to. What other turns change is a matter of
// functions of a moment.
TEST_F(OtherTime, TurnOfTheYearTellsOfTheRightDayAndMinute) {
  const std::string results = ",,,,,,,,,,,,100,,,5000,,,0.5,,,40,,\n";
  for (const char* day : {"20401230", "20401231"}) fs::create_directories(folder_ / "engine/" + day);
  folder_.Write("engine/20401230/Result.csv", results);
  folder_.Write("engine/20401231/1231.ERR.LOG", "E 11:11:00 other\nE 23:58:07 wanted\n");
  config_ += "RESULT_CHECK 1\nLOG_CHECK_MIN 1\nRESULT_TIME 23:59\n";
  // Five seconds before it.
  Process agent = StartAt({"FAKETIME_FMT=%s", "FAKETIME=@2240611195"});
  ASSERT_TRUE(WaitUntil([&] { return Now().mails == 2 && Now().posts == 2; }));
  EXPECT_EQ(ReadFile(folder_ / "mails/1.attached-1"), results);
  EXPECT_EQ(Count(ReadFile(folder_ / "mails/1.html"), "5000.00 ms"), 1U);
  EXPECT_GE(Count(ReadFile(folder_ / "posts/1.body"), "2040/12/30"), 1U);
  EXPECT_EQ(Count(ReadFile(folder_ / "posts/2.body"), "wanted"), 1U);
  EXPECT_EQ(posts_.Seen("other"), 0U);
  ExpectIntervalsHold();
  for (const char* day : {"20401231", "20410101"})
    EXPECT_TRUE(fs::exists(folder_ / "log/" + day + "/MAIN.LOG")) << day;
  EXPECT_EQ(posts_.Arrived(), 2);
  EXPECT_TRUE(agent.Alive());
}

// The clock is set a day ahead, then a day back, under the running agent.
TEST_F(OtherTime, JumpsChangeFoldersAndNoInterval) {
  const std::string clock = folder_.Write("clock", "+0d\n");
  Process agent = StartAt({"FAKETIME_TIMESTAMP_FILE=" + clock, "FAKETIME_NO_CACHE=1"});
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
