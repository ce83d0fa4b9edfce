#include "Tovik/timer_rules.h"

#include <gtest/gtest.h>

#include <string>

#include "support/support.h"

namespace {

TEST(TimerRulesTest, ShortHangPeriodsGetAMinuteMore) {
  const int64_t cases[][2] = {{30, 90}, {60, 60}, {59, 119}, {0, 60}, {3600, 3600}, {-1, 59}};
  for (const auto& [configured, pause] : cases) EXPECT_EQ(HangPause(configured), pause);
}

// What happens in each of a minute's looks: "a" armed or nothing to do, "r" run.
std::string Looks(int minute, int64_t period, ErrorCheckState* state, int count, int succeedsAt) {
  std::string looks;
  for (int i = 0; i < count; ++i) {
    const bool due = ErrorCheckDue(minute, period, state);
    if (due) state->succeeded = i >= succeedsAt ? 1 : 0;
    looks += due ? 'r' : '-';
  }
  return looks;
}

TEST(TimerRulesTest, ErrorCheckRunsFromTheSecondSecondOfADueMinute) {
  ErrorCheckState state;
  EXPECT_EQ(Looks(0, 15, &state, 4, 0), "-r--") << "the first minute after the start is a minute like any";
  EXPECT_EQ(Looks(1, 15, &state, 3, 0), "---");
  EXPECT_EQ(Looks(15, 15, &state, 5, 3), "-rrr-") << "a failed run is repeated until it succeeds";
  EXPECT_EQ(Looks(30, 15, &state, 3, 99), "-rr");
  EXPECT_EQ(Looks(31, 15, &state, 2, 0), "--");
  EXPECT_EQ(Looks(45, 15, &state, 1, 0), "-");
  EXPECT_EQ(Looks(0, 90, &state, 3, 0), "-r-") << "of a period above an hour only minute 0 is left";
  EXPECT_EQ(Looks(30, 90, &state, 3, 0), "---");
}

TEST(TimerRulesTest, AFileWithoutATimeIsNotNewer) {
  const support::TempFolder folder;
  EXPECT_EQ(NewerBy(ModificationTime((folder / "none").c_str()), 5), 0.0);
  const std::string file = folder.Write("file", "x");
  EXPECT_GT(NewerBy(ModificationTime(file.c_str()), 5), 0.0);
  EXPECT_LT(NewerBy(10, 15), 0.0);
}

}  // namespace
