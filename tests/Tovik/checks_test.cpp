// The checks of time, files and processes. The fuzz target "result" has the result file's fields.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "Tovik/alarms/recipients.h"
#include "Tovik/checks/error_log_check.h"
#include "Tovik/checks/hang_check.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/checks/recipients_check.h"
#include "Tovik/checks/result_check.h"
#include "Tovik/checks/result_table.h"
#include "Tovik/checks/thresholds.h"
#include "Tovik/config/config.h"
#include "Tovik/traced.h"
#include "base/stop.h"

namespace {

using namespace std::string_literals;
using support::Has;
namespace fs = std::filesystem;

// In Central Europe, where clocks change at 2 o'clock of 31 March and at 3 o'clock of 27 October 2024.
class ChecksTest : public testing::Test {
 protected:
  ChecksTest() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    std::snprintf(m_sz_svc_txt_path, sizeof m_sz_svc_txt_path, "%s", engine_.c_str());
    std::snprintf(m_result_check_time, sizeof m_result_check_time, "07:30");
    m_send_email_used = m_send_webhook_used = m_log_hostname_inc_flag = m_txt_save = 0;
    fs::create_directories(engine_ + "20240131");
  }
  ~ChecksTest() override {
    unsetenv("TZ");
    tzset();
  }
  static time_t Utc(const char* text) {
    std::tm time{};
    strptime(text, "%Y-%m-%d %H:%M", &time);
    return timegm(&time);
  }
  support::TempFolder folder_;
  const std::string engine_ = folder_ / "errors;$'\"/";
};

class ErrorLogTest : public ChecksTest {
 protected:
  void WriteLog(const std::string& content) const { std::ofstream(log_, std::ios::binary) << content; }
  std::string Find() {
    const int length = FindErrorLines(ErrorLogSearchAt(now_, engine_.c_str(), {}), out_.data());
    EXPECT_EQ(std::strlen(out_.data()), static_cast<size_t>(length));
    return out_.data();
  }
  const time_t now_ = Utc("2024-01-31 13:07");  // 14:07 local time
  const std::string log_ = engine_ + "20240131/0131.ERR.LOG";
  const std::string extract_ = engine_ + "STTAlarmLog.txt";
  std::string out_ = std::string(ERROR_TEXT, '\0');
};

TEST_F(ErrorLogTest, LooksAtTheMinuteTwoMinutesAgo) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"2024-01-31 23:02", " 00:00:", "20240201/0201.ERR.LOG"},
      {"2024-03-31 01:01", " 01:59:", "20240331/0331.ERR.LOG"},  // 03:01 after the skipped hour
      {"2024-10-27 01:01", " 02:59:", "20241027/1027.ERR.LOG"},  // 02:01 of the repeated hour
  };
  for (const auto& [now, pattern, log] : cases) {
    EXPECT_EQ(ErrorLogSearchAt(Utc(now) + 59, "/e/", {}).pattern, pattern) << now;
    EXPECT_EQ(ErrorLogSearchAt(Utc(now), "/e/", {}).log, "/e/"s + log) << now;
  }
  EXPECT_EQ(ErrorLogSearchAt(now_, "/e/", "stt1").command,
            "grep \" 14:05:\" /e/20240131/stt1.0131.ERR.LOG > /e/stt1.STTAlarmLog.txt");
}

TEST_F(ErrorLogTest, FindsExactlyTheMinutesLines) {
  EXPECT_EQ(Find(), "");  // no log
  std::string flood;
  while (flood.size() < 3 * size_t{ERROR_TEXT}) flood += " 14:05:\n";
  const std::string ascii(ERROR_TEXT - 9, 'a');
  const std::pair<std::string, std::string> cases[] = {
      {"[31 14:04:59] before\n[31 14:05:00] a\n[31 14:05:59] b\n[31 14:06:00] after\n[x14:05:00] no blank\n",
       "[31 14:05:00] a\n[31 14:05:59] b\n"},
      // Code page 949 text, and a log with NUL bytes elsewhere: neither is "binary".
      {"junk\0junk\n a 14:05:00 \xC6\xF2\n b 14:05:01 a\0b\n"s, " a 14:05:00 \xC6\xF2\n b 14:05:01 a"},
      {flood, flood.substr(0, ERROR_TEXT - 1)},
      {" 14:05:" + ascii + "\xB0\xA1", " 14:05:" + ascii},  // no half of a character
      {" 14:05:" + ascii.substr(1) + "\xB0\xA1z", " 14:05:" + ascii.substr(1) + "\xB0\xA1"},
  };
  for (const auto& [log, found] : cases) {
    WriteLog(log);
    EXPECT_EQ(Find(), found) << log.substr(0, 80);
    EXPECT_FALSE(fs::exists(extract_));
  }
  fs::remove(log_);
  ASSERT_EQ(::mkfifo(log_.c_str(), 0600), 0);
  EXPECT_EQ(Find(), "");
}

TEST_F(ErrorLogTest, NeverFollowsALink) {
  WriteLog(" 14:05:00 error\n");
  const std::string victim = folder_.Write("victim", "kept");
  fs::create_symlink(victim, extract_);
  EXPECT_EQ(ReadTextFile(extract_.c_str(), out_.data()), 0);
  EXPECT_EQ(Find(), " 14:05:00 error\n");
  EXPECT_EQ(support::ReadFile(victim), "kept");
  fs::create_directory(extract_);
  const std::string said = "[ReadTextFile] file open fail : file name = ";
  EXPECT_EQ(test::TraceOf([&] { EXPECT_EQ(Find(), ""); }), said + extract_ + ", error = 17");
}

TEST_F(ErrorLogTest, SucceedsWithErrorLinesOnly) {
  EXPECT_EQ(ErrorCheckAt(now_), -1);
  WriteLog(" 14:05:00 error\n");
  EXPECT_EQ(ErrorCheckAt(now_), 1);
  EXPECT_EQ(ErrorCheckAt(now_ + 60), -1);
  const std::string path = getenv("PATH");
  setenv("PATH", "/nowhere", 1);
  const std::string traced = test::TraceOf([&] { EXPECT_EQ(ErrorCheckAt(now_), -1); });
  setenv("PATH", path.c_str(), 1);
  EXPECT_TRUE(Has(traced,
                  "Unable to execute distrib server error log script (2)\nNo such file or directory, "
                  "command = grep \" 14:05:\" "));
}

TEST_F(ErrorLogTest, SaysNothingOfASearchThatAStopCuts) {
  const std::string path = getenv("PATH");
  folder_.Write("grep", "#!/bin/sh\nexec sleep 5 2>&1\n", 0755);
  setenv("PATH", (folder_.Path() + ":" + path).c_str(), 1);
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  ::kill(::getpid(), SIGTERM);
  const std::string traced = test::TraceOf([&] {
    const base::StopOnPendingSignal stoppable;
    EXPECT_EQ(ErrorCheckAt(now_), -1);
  });
  int taken = 0;
  sigwait(&stop, &taken);
  pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(traced, "");
  EXPECT_FALSE(fs::exists(extract_));
}

using Records = std::unique_ptr<RESULT_LIST, void (*)(RESULT_LIST*)>;

class ResultTest : public ChecksTest {
 protected:
  std::string CheckAt(time_t now, int expected) {
    const test::Lines lines = test::Messages(test::TraceOf([&] { EXPECT_EQ(ResultCheckAt(now), expected); }));
    return lines.empty() ? "" : lines.back();
  }
  const time_t due_ = Utc("2024-02-01 06:30");  // 07:30 local time
  const std::string path_ = engine_ + "20240131/Result.csv";
};

TEST_F(ResultTest, YesterdayIsTheDayOf86400SecondsAgo) {
  const std::pair<const char*, const char*> cases[] = {
      {"2024-03-01 06:30", "2024/02/29"},
      {"2024-01-31 22:59", "2024/01/30"},
      {"2024-01-31 23:00", "2024/01/31"},
      {"2024-03-31 22:30", "2024/03/30"},  // 00:30 after the day of 23 hours: two dates back
      {"2024-10-27 22:30", "2024/10/27"},  // 23:30 of the day of 25 hours: the same date
  };
  for (const auto& [now, date] : cases) EXPECT_EQ(ResultDayAt(Utc(now), "", {}).date, date) << now;
  EXPECT_EQ(ResultDayAt(due_, "/e/log/", {}).path, "/e/log/20240131/Result.csv");
  EXPECT_EQ(ResultDayAt(due_, "/e/log/", "h").path, "/e/log/20240131/Result.h.csv");
}

TEST_F(ResultTest, MomentComparesHourThenMinute) {
  using enum ResultMoment;
  const std::tuple<const char*, int, int, ResultMoment> cases[] = {
      {"07:30", 7, 30, DUE},        {"07:30", 7, 31, OTHER_MINUTE},
      {"07:30", 8, 30, OTHER_HOUR}, {" 7: 5x", 7, 5, DUE},
      {"07:30:99", 7, 30, DUE},     {"4294967303:30", 7, 30, OTHER_HOUR},
      {":30", 0, 30, DUE},          {"07", 7, 0, DUE},
      {"24:00", 0, 0, OTHER_HOUR}};
  for (const auto& [configured, hour, minute, moment] : cases) {
    std::tm local{};
    local.tm_hour = hour;
    local.tm_min = minute;
    EXPECT_EQ(ResultMomentOf(configured, local), moment) << configured;
  }
}

TEST_F(ResultTest, ReportsAReadableFileInItsMinute) {
  EXPECT_EQ(CheckAt(due_, -1), "");
  folder_.Write("errors;$'\"/20240131/Result.csv", "1,2\n");
  EXPECT_EQ(CheckAt(due_, 1), "");
  EXPECT_EQ(CheckAt(due_ + 60, -1), "ERROR Result check Min Over");
  EXPECT_EQ(CheckAt(due_ + 3600, -1), "ERROR Result check Hour Over");
  fs::remove(path_);
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(CheckAt(due_, -1), "ERROR Result file " + path_ + " is no regular file");
}

// The days and hours at which the agent is up and looks, and which of its looks report.
TEST_F(ResultTest, CatchesUpWithAMissedMinuteOnceADay) {
  folder_.Write("errors;$'\"/20240131/Result.csv", "1,2\n");
  fs::create_directories(engine_ + "20240201");
  folder_.Write("errors;$'\"/20240201/Result.csv", "1,2\n");
  support::SetText(m_sz_txt_path, folder_.Path());
  EXPECT_EQ(CheckAt(due_ + 3600, -1), "ERROR Result check Hour Over");
  EXPECT_FALSE(fs::exists(folder_ / "result.day"));
  m_result_catch_up = 1;
  constexpr time_t DAY = 86400;
  const std::tuple<time_t, int, const char*> looks[] = {
      {-3600, -1, "ERROR Result check Hour Over"},
      {3600, 1, "INFO Result check missed its minute and is made up for"},
      {3661, -1, "ERROR Result check Hour Over"},
      {DAY - 3600, -1, "ERROR Result check Hour Over"},
      {DAY, 1, ""},
      {DAY + 20, -1, ""},  // started again within the minute
      {DAY + 61, -1, "ERROR Result check Min Over"}};
  for (const auto& [after, result, said] : looks) EXPECT_EQ(CheckAt(due_ + after, result), said) << after;
  EXPECT_EQ(support::ReadFile(folder_ / "result.day"), "20240202\n");
  // Where the day cannot be kept, its minute alone counts.
  fs::remove(folder_ / "result.day");
  fs::create_directory(folder_ / "result.day");
  folder_.Write("result.day/in the way", "");
  const std::string refused =
      "WARN RESULT_CATCH_UP: " + folder_ / "result.day cannot be written: Is a directory";
  const auto lines = [this](time_t now, int result) {
    return test::Messages(test::TraceOf([&] { EXPECT_EQ(ResultCheckAt(now), result); }));
  };
  EXPECT_EQ(lines(due_ + 3600, -1), (test::Lines{refused, "ERROR Result check Hour Over"}));
  EXPECT_EQ(lines(due_, 1), test::Lines{refused});
  fs::remove_all(folder_ / "result.day");
  EXPECT_EQ(CheckAt(due_ + 61, -1), "ERROR Result check Min Over");
  m_result_catch_up = 0;
}

TEST_F(ResultTest, SaysWhyAFileIsNotRead) {
  const auto checkedWithLines = [this](int64_t lines) {
    std::ofstream(path_) << std::string(static_cast<size_t>(lines), '\n');
    return CheckAt(due_, -1);
  };
  EXPECT_EQ(checkedWithLines(MAX_RESULT_RECORDS + 1),
            "ERROR Result file " + path_ + " has more than 16777216 lines");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  rlimit old{};
  ::getrlimit(RLIMIT_AS, &old);
  const rlimit narrow{rlim_t{256} << 20, old.rlim_max};
  ::setrlimit(RLIMIT_AS, &narrow);
  const std::string said = checkedWithLines(MAX_RESULT_RECORDS);
  ::setrlimit(RLIMIT_AS, &old);
  EXPECT_EQ(said, "ERROR Result file " + path_ + ": no memory to read it");
#endif
}

TEST_F(ResultTest, AveragesIntoTheTable) {
  const std::string path = folder_.Write("Result.csv",
                                         ",,text,,,,,,,,,,100,,,3000,,,0.5,,,200,,\n"
                                         ",,text,,,,,,,,,,201,,,4001,,,1.0,,,300\n");
  const Records records(GetResultReadData(path.c_str(), 2), FreeResultData);
  ASSERT_NE(records, nullptr);
  char table[RESULT_TABLE];
  FormatResultTable("2024/01/31", 2, AverageOf(records.get(), 2), table);
  // In code page 949: average, items. The columns in their order.
  const char* at = table;
  for (const char* part : {">[2024/01/31] / [\xC6\xF2\xB1\xD5]<", ">2\xB0\xC7<", ">0.75 xRT<", ">3500.50 ms<",
                           ">150.50 ms<", ">250.00 ms<"}) {
    at = std::strstr(at, part);
    ASSERT_NE(at, nullptr) << part;
  }
  EXPECT_EQ(GetResultReadData(path.c_str(), MAX_RESULT_RECORDS + 1), nullptr);
}

TEST_F(ResultTest, ReadsThroughEveryBufferBorder) {
  std::string content;
  for (int i = 0; i < 20000; ++i) content += ",,,,,,,,,,,," + std::to_string(i) + ",,,1,,,1,,,1,,\n";
  const Records records(GetResultReadData(folder_.Write("Result.csv", content).c_str(), 20000),
                        FreeResultData);
  ASSERT_NE(records, nullptr);
  for (int i = 0; i < 20000; ++i) ASSERT_EQ(records.get()[i].recognition_time, i);
}

// This process plays the engine.
// Hands out processes one by one, and counts them.
struct Table {
  std::vector<sysinfo::ProcessName> processes;
  size_t asked = 0;
  SearchResult Find(int64_t pid = ANY_PID, bool (*isDead)(int32_t) = nullptr) {
    asked = 0;
    const auto next = [this](sysinfo::ProcessName* process) {
      if (asked == processes.size()) return false;
      *process = processes[asked++];
      return true;
    };
    return FindProcess(next, "stt", pid, isDead);
  }
};

TEST(ProcessSearchTest, EndsAtTheFirstMatchAndAtANamelessProcess) {
  constexpr const char* NAMELESS = nullptr;
  const struct {
    std::vector<sysinfo::ProcessName> processes;
    Search any, second;  // whatever its pid; of pid 2
    int32_t pid;         // of the first, where there is one
    size_t asked;        // processes read for it
    int count;
  } rows[] = {{{}, Search::NO_TABLE, Search::NO_TABLE, 0, 0, 0},
              {{{1, ""}, {2, "stt2"}, {3, "st"}}, Search::ABSENT, Search::ABSENT, 0, 3, 0},
              {{{1, "stt"}, {2, "stt"}}, Search::FOUND, Search::FOUND, 1, 1, 2},
              {{{3, "stt"}, {1, NAMELESS}, {2, "stt"}}, Search::FOUND, Search::NAMELESS, 3, 1, 0},
              {{{1, NAMELESS}, {2, "stt"}}, Search::NAMELESS, Search::NAMELESS, 0, 1, 0}};
  for (const auto& row : rows) {
    Table table{row.processes};
    sysinfo::ProcessNames all;
    for (const auto& process : row.processes) all.Add(process);
    EXPECT_EQ(table.Find(2).verdict, row.second);
    const SearchResult any = table.Find();
    EXPECT_EQ(any.verdict, row.any);
    EXPECT_EQ(any.pid, row.pid);
    EXPECT_EQ(table.asked, row.asked);
    EXPECT_EQ(CountProcesses(all, "stt"), row.count);
  }
}

TEST(ProcessSearchTest, PassesOverTheDead) {
  Table table{{{1, "stt"}, {2, "stt"}, {3, "stt"}}};
  const auto found = [&](bool (*isDead)(int32_t)) { return table.Find(ANY_PID, isDead).pid; };
  EXPECT_EQ(found(nullptr), 1);
  EXPECT_EQ(found([](int32_t pid) { return pid < 3; }), 3);  // a living engine behind its zombies
  EXPECT_EQ(found([](int32_t) { return true; }), 0);
  EXPECT_EQ(table.Find(2, [](int32_t pid) { return pid == 2; }).verdict, Search::ABSENT);
}

TEST(ThresholdTest, ShareIsInPercentWhereTheFigureIsNot) {
  const std::pair<int64_t, int> cases[] = {{62'652'416, 95}, {65'536'000, 100}, {655'359, 0}, {-1, 0}};
  for (const auto& [rss, share] : cases) EXPECT_EQ(MemoryShare(rss, 65'536'000), share) << rss;
  EXPECT_EQ(MemoryShare(1, 0), 0);
  EXPECT_EQ(MemoryFigure(62'652'416 / 1024, 65'536'000), 0);
}

TEST(HangTest, TwoLongQueuesInARowAreAHang) {
  constexpr int64_t QUEUES[] = {17, 17, 99, 16, 17, 0, 17, 18};
  constexpr bool HANGS[] = {false, true, true, false, false, false, false, true};
  HangState state;
  HangState off;
  for (size_t look = 0; look < std::size(QUEUES); ++look) {
    EXPECT_EQ(QueueHangs(QUEUES[look], 16, &state), HANGS[look]) << look;
    EXPECT_FALSE(QueueHangs(QUEUES[look], 0, &off));
  }
}

TEST(HangTest, TellsAfterEachSoManyDeathsInARow) {
  for (const int64_t every : {1, 3}) {
    HangState state;
    EXPECT_EQ(HangAlarmDue(false, every, &state), every == 1);
    EXPECT_FALSE(HangAlarmDue(true, every, &state)) << "alive: the count begins anew";
    for (int death = 1; death <= 9; ++death)
      EXPECT_EQ(HangAlarmDue(false, every, &state), death % every == 0) << every << " " << death;
    EXPECT_FALSE(HangAlarmDue(false, 0, &state));
  }
}

TEST_F(ChecksTest, HangCheckComparesPidAndFlag) {
  std::ifstream("/proc/self/comm") >> m_sz_proc_name;
  std::snprintf(m_sz_svc_pid_file, sizeof m_sz_svc_pid_file, "%s", (folder_ / "pid").c_str());
  DunraSTTUtils::SetHangPath(folder_.Path().c_str());
  const support::Listener listener;
  m_PROC_PORT = listener.Port();
  const std::tuple<pid_t, int64_t, const char*> cases[] = {
      {::getpid(), 1, "alived"}, {::getpid(), 2, "deaded - process"}, {::getppid(), 1, "deaded - process"}};
  for (const auto& [pid, save, verdict] : cases) {
    folder_.Write("pid", std::to_string(pid));
    m_hang_save_flag = save;
    const std::string said = test::TraceOf([] { EXPECT_EQ(hangCheckProc(m_sz_proc_name), 1); });
    EXPECT_TRUE(Has(said, "] : [[ "s + m_sz_proc_name + " ] health check : " + verdict + "]\n"));
  }
}

TEST(TimerRulesTest, ErrorCheckRunsFromTheSecondLookOfADueMinuteUntilItSucceeds) {
  enum Look { NO_RUN, RUN_FAILS, RUN_SUCCEEDS };
  const struct {
    int minute;
    int64_t period;
    std::vector<Look> looks;  // a second apart
  } rows[] = {{0, 15, {NO_RUN, RUN_SUCCEEDS, NO_RUN, NO_RUN}},
              {1, 15, {NO_RUN, NO_RUN, NO_RUN}},
              {15, 15, {NO_RUN, RUN_FAILS, RUN_FAILS, RUN_SUCCEEDS, NO_RUN}},
              {30, 15, {NO_RUN, RUN_FAILS, RUN_FAILS}},
              {31, 15, {NO_RUN, NO_RUN}},
              {45, 15, {NO_RUN}},
              {0, 90, {NO_RUN, RUN_SUCCEEDS, NO_RUN}},
              {30, 90, {NO_RUN, NO_RUN, NO_RUN}}};
  ErrorCheckState state;
  for (const auto& row : rows) {
    for (const Look look : row.looks) {
      EXPECT_EQ(ErrorCheckDue(row.minute, row.period, &state), look != NO_RUN) << row.minute;
      if (look == RUN_SUCCEEDS) state.succeeded = 1;
    }
  }
}

TEST(TimerRulesTest, ShortHangPeriodsGetAMinuteMore) {
  const int64_t cases[][2] = {{30, 90}, {60, 60}, {59, 119}, {0, 60}, {3600, 3600}, {-1, 59}};
  for (const auto& [configured, pause] : cases) EXPECT_EQ(HangPause(configured), pause);
  EXPECT_EQ(NewerBy(ModificationTime("/nowhere/at/all"), 5), 0.0);
}

}  // namespace
