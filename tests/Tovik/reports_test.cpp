// How reports wait where more than one may, and what a service manager is told.
#include <gtest/gtest.h>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "Tovik/checks/engine_state.h"
#include "Tovik/config/config.h"
#include "Tovik/process/service_manager.h"
#include "Tovik/reports/report_mailbox.h"
#include "Tovik/reports/report_request.h"
#include "Tovik/timers/timer_budgets.h"
#include "Tovik/traced.h"

namespace {

using Added = ReportQueue::Added;

// More kinds than there are today, so that it fills: then the oldest that is no alarm gives way.
TEST(ReportQueueTest, KeepsTheOrderAndEqualOnesOnceAndWithinItsLimit) {
  ReportQueue queue;
  const auto add = [&](int type, int code) { return queue.Add({type, code}, 1); };
  for (int code = 0; code < 6; ++code) EXPECT_EQ(add(REPORT_ALARM, code), Added::WAITS);
  EXPECT_EQ(add(REPORT_CHANNEL_STATUS, 4), Added::WAITS);
  EXPECT_EQ(add(REPORT_RESOURCE_USAGE, 5), Added::WAITS);
  EXPECT_EQ(add(REPORT_RESOURCE_USAGE, 6), Added::OLDEST_GAVE_WAY);  // the channels
  EXPECT_EQ(add(REPORT_ALARM, 6), Added::OLDEST_GAVE_WAY);
  EXPECT_EQ(add(REPORT_ALARM, 7), Added::OLDEST_GAVE_WAY);
  EXPECT_EQ(queue.Size(), ReportQueue::LEAST_REPORTS);
  EXPECT_EQ(add(REPORT_CHANNEL_STATUS, 4), Added::GAVE_WAY);
  EXPECT_EQ(add(REPORT_ALARM, 0), Added::MERGED);
  for (int code = 0; code < 8; ++code) EXPECT_EQ(queue.Next(), (WaitingReport{REPORT_ALARM, code}));
  EXPECT_EQ(queue.Next(), std::nullopt);
  EXPECT_EQ(add(REPORT_ALARM, 0), Added::WAITS);
}

TEST(ReportMailboxTest, QueuedAlarmsKeepTheirCodesAndAStopCountsThem) {
  m_report_queue = 8;
  for (const int code : {ALARM_MEMORY, ALARM_CPU, ALARM_MEMORY, ALARM_RESTART})
    send_request(REPORT_ALARM, code);
  EXPECT_EQ(NextReport(), 1125);
  EXPECT_EQ(gAlarmFlag, ALARM_MEMORY);
  EXPECT_EQ(NextReport(), 1125);
  EXPECT_EQ(gAlarmFlag, ALARM_CPU);
  send_request(REPORT_RESOURCE_USAGE, CODE_RESOURCE_USAGE);
  EXPECT_EQ(test::MessagesOf(DropReports),
            test::Lines{"WARN the stop drops 2 reports that wait for the management servers"});
  EXPECT_EQ(NextReport(), std::nullopt);
  m_report_queue = 0;
}

TEST(ServiceManagerTest, TakesPathsAndAbstractNames) {
  const std::pair<std::string, size_t> cases[] = {
      {"/run/n", 9}, {"@n", 4}, {"", 0}, {"/", 0}, {"run/n", 0}, {"/" + std::string(107, 'x'), 0}};
  for (const auto& [text, length] : cases) {
    sockaddr_un address;
    EXPECT_EQ(NotifyAddress(text, &address), length) << text;
    EXPECT_EQ(address.sun_path[0] == '\0', length == 0 || text[0] == '@') << text;
  }
}

TEST(ServiceManagerTest, WantsSignsOfLifeOfThisProcessAlone) {
  const std::tuple<const char*, const char*, int64_t> cases[] = {
      {"3000000", "42", 3000}, {"3000000", nullptr, 3000},
      {"3000000", "43", 0},    {nullptr, "42", 0},
      {"x", "42", 0},          {"-1", "42", 0},
      {"5", "42", 1}};
  for (const auto& [usec, pid, expected] : cases) EXPECT_EQ(ManagerWatchdogOf(usec, pid, 42), expected);
}

TEST(BudgetTest, OutlastsWhatPeersMayTake) {
  m_restart_period = 10;
  m_Hang_Time = 60;
  constexpr int64_t SLOW_MAIL = 300 * 20;  // each reply at the last moment
  for (const uint32_t id : {10U, 3000U, 4000U, 5000U})
    EXPECT_GT(CycleBudget(id, 0), SLOW_MAIL + 2 * 61) << id;
  EXPECT_EQ(CycleBudget(10, 5), 25);
  EXPECT_EQ(CycleBudget(3000, 5), 65);
  EXPECT_EQ(CycleBudget(7, 5), 0);
}

TEST(EngineStateTest, IsToldInWords) {
  EXPECT_EQ(EngineStateWords(EngineState::RUNS, 0, true), "The engine runs");
  EXPECT_EQ(
      EngineStateWords(EngineState::STARTED_AGAIN, 3, false),
      "The engine was found dead and is started again; hang check: dead, 3 in a row; its channels are not "
      "watched: it has not answered yet");
}

}  // namespace
