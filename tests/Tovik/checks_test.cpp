// The checks of time, files and processes. The fuzz target "result" has the result file's fields.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "Tovik/alarms/recipients.h"
#include "Tovik/alarms/recipients_reload.h"
#include "Tovik/checks/average_table.h"
#include "Tovik/checks/error_log_check.h"
#include "Tovik/checks/hang_check.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/checks/result_check.h"
#include "Tovik/checks/threshold_check.h"
#include "Tovik/config/config.h"
#include "Tovik/traced.h"
#include "base/stoppable_wait.h"

namespace {

using namespace std::string_literals;
using support::Has;
using support::SetText;
using test::Lines;
namespace fs = std::filesystem;

// In Central Europe, where clocks change at 2 o'clock of 31 March and at 3 o'clock of 27 October 2024.
class ChecksTest : public testing::Test {
 protected:
  ChecksTest() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    SetText(m_sz_svc_txt_path, engine_);
    SetText(m_sz_txt_path, folder_.Path());
    SetText(m_result_check_time, "07:30");
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
  ~ErrorLogTest() override { setenv("PATH", programs_.c_str(), 1); }
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
  const std::string programs_ = getenv("PATH");
};

TEST_F(ErrorLogTest, LooksAtTheMinuteTwoMinutesAgo) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"2024-01-31 23:02", " 00:00:", "20240201/0201.ERR.LOG"},
      {"2024-03-31 01:01", " 01:59:", "20240331/0331.ERR.LOG"},  // 03:01 after the skipped hour
      {"2024-10-27 01:01", " 02:59:", "20241027/1027.ERR.LOG"},  // 02:01 of the repeated hour
  };
  for (const auto& [now, pattern, log] : cases) {
    EXPECT_EQ(ErrorLogSearchAt(Utc(now) + 59, "/e/", {}).pattern, pattern) << now;
    EXPECT_EQ(ErrorLogSearchAt(Utc(now), "/e/", {}).errorLog, "/e/"s + log) << now;
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
  setenv("PATH", "/nowhere", 1);
  EXPECT_TRUE(Has(test::TraceOf([&] { EXPECT_EQ(ErrorCheckAt(now_), -1); }),
                  "Unable to execute distrib server error log script (2)\nNo such file or directory, "
                  "command = grep \" 14:05:\" "));
}

// In a process of its own, which the signal would end.
TEST_F(ErrorLogTest, SaysNothingOfASearchThatAStopCuts) {
  folder_.Write("grep", "#!/bin/sh\nexec sleep 5\n", 0755);
  setenv("PATH", (folder_.Path() + ":" + programs_).c_str(), 1);
  const auto cut_search = [&] {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    ::kill(::getpid(), SIGTERM);
    const base::WaitsEndOnSignal stoppable;
    std::_Exit(test::TraceOf([&] { ErrorCheckAt(now_); }).empty() && !fs::exists(extract_) ? 0 : 1);
  };
  EXPECT_EXIT(cut_search(), testing::ExitedWithCode(0), "");
}

class ResultTest : public ChecksTest {
 protected:
  ~ResultTest() override { m_result_catch_up = 0; }
  void WriteResult(const std::string& day, const std::string& text) const {
    fs::create_directories(engine_ + day);
    std::ofstream(engine_ + day + "/Result.csv") << text;
  }
  static Lines CheckAt(time_t now, int expected) {
    return test::MessagesOf([=] { EXPECT_EQ(ResultCheckAt(now), expected); });
  }
  const time_t due_ = Utc("2024-02-01 06:30");  // 07:30 local time
  const std::string path_ = engine_ + "20240131/Result.csv";
  const std::string kept_ = folder_ / "result.day";
  const Lines other_hour_ = {"ERROR Result check Hour Over"};
  const Lines other_minute_ = {"ERROR Result check Min Over"};
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

// RESULT_CATCH_UP, and the days and hours at which the agent is up and looks.
TEST_F(ResultTest, ReportsInItsMinuteAndCatchesUpOnceADay) {
  EXPECT_EQ(CheckAt(due_, -1), Lines());  // no file
  for (const char* day : {"20240131", "20240201"}) WriteResult(day, "1,2\n");
  constexpr time_t DAY = 86400;
  const std::tuple<int64_t, time_t, int, Lines> looks[] = {
      {0, 0, 1, {}},
      {0, 60, -1, other_minute_},
      {0, 3600, -1, other_hour_},
      {1, -3600, -1, other_hour_},
      {1, 3600, 1, {"INFO Result check missed its minute and is made up for"}},
      {1, 3661, -1, other_hour_},
      {1, DAY - 3600, -1, other_hour_},
      {1, DAY, 1, {}},
      {1, DAY + 20, -1, {}},  // started again within the minute
      {1, DAY + 61, -1, other_minute_}};
  for (const auto& [catch_up, after, result, said] : looks) {
    m_result_catch_up = catch_up;
    EXPECT_EQ(CheckAt(due_ + after, result), said) << after;
  }
  EXPECT_EQ(support::ReadFile(kept_), "20240202\n");
}

TEST_F(ResultTest, CatchesUpWithNothingWhereTheDayCannotBeKept) {
  WriteResult("20240131", "1,2\n");
  m_result_catch_up = 1;
  fs::create_directories(kept_ + "/in the way");
  const std::string refused = "WARN RESULT_CATCH_UP: " + kept_ + " cannot be written: Is a directory";
  EXPECT_EQ(CheckAt(due_ + 3600, -1), (Lines{refused, other_hour_[0]}));
  EXPECT_EQ(CheckAt(due_, 1), Lines{refused});
  fs::remove_all(kept_);
  EXPECT_EQ(CheckAt(due_ + 61, -1), other_minute_);
}

TEST_F(ResultTest, SaysWhyAFileIsNotRead) {
  const auto said = [this](const char* why) { return Lines{"ERROR Result file " + path_ + why}; };
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(CheckAt(due_, -1), said(" is no regular file"));
  fs::remove(path_);
  WriteResult("20240131", std::string(MAX_RESULT_RECORDS, '\n'));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  rlimit old{};
  ::getrlimit(RLIMIT_AS, &old);
  const rlimit narrow{rlim_t{256} << 20, old.rlim_max};
  ::setrlimit(RLIMIT_AS, &narrow);
  EXPECT_EQ(CheckAt(due_, -1), said(": no memory to read it"));
  ::setrlimit(RLIMIT_AS, &old);
#endif
  std::ofstream(path_, std::ios::app) << "one more\n";
  EXPECT_EQ(CheckAt(due_, -1), said(" has more than 16777216 lines"));
}

// Of a file that is larger than the buffer it is read by.
TEST_F(ResultTest, AveragesIntoTheTable) {
  std::string text;
  for (int i = 0; i < 20'000; i += 2) {
    text += ",,text,,,,,,,,,," + std::to_string(i) + ",,,3000,,,0.5,,,200,,\n";
    text += ",,text,,,,,,,,,," + std::to_string(i + 1) + ",,,4001,,,1.0,,,300\n";
  }
  const std::unique_ptr<RESULT_LIST, void (*)(RESULT_LIST*)> records(
      GetResultReadData(folder_.Write("Result.csv", text).c_str(), 20'000), FreeResultData);
  ASSERT_NE(records, nullptr);
  char table[AVERAGE_TABLE_SIZE];
  FormatAverageTable("2024/01/31", 20'000, AverageOf(records.get(), 20'000), table);
  // In code page 949: average, items. The columns in their order.
  const char* at = table;
  for (const char* part : {">[2024/01/31] / [\xC6\xF2\xB1\xD5]<", ">20000\xB0\xC7<", ">0.75 xRT<",
                           ">3500.50 ms<", ">9999.50 ms<", ">250.00 ms<"}) {
    at = std::strstr(at, part);
    ASSERT_NE(at, nullptr) << part;
  }
}

TEST(ProcessSearchTest, ReadsNoFurtherThanToWhatDecides) {
  using enum Search;
  const auto ended = [](int32_t pid) { return pid < 3; };
  const std::vector<sysinfo::ProcessName> engines = {{1, "stt"}, {2, "stt"}, {3, "stt"}};
  const std::vector<sysinfo::ProcessName> hidden = {{3, "stt"}, {1, nullptr}, {2, "stt"}};
  const struct {
    const char* what;
    std::vector<sysinfo::ProcessName> processes;
    std::tuple<Search, int32_t, size_t> found;  // the verdict, the pid, and how many were read
    int64_t wanted = SEARCH_ANY_PID;
    bool (*isDead)(int32_t) = nullptr;
  } rows[] = {{"no process at all", {}, {NO_TABLE, 0, 0}},
              {"other names", {{1, ""}, {2, "stt2"}, {3, "st"}}, {ABSENT, 0, 3}},
              {"the first of the name", engines, {FOUND, 1, 1}},
              {"the one of a pid", engines, {FOUND, 2, 2}, 2},
              {"none of a pid", engines, {ABSENT, 0, 3}, 4},
              {"before a nameless one", hidden, {FOUND, 3, 1}},
              {"behind a nameless one", hidden, {NAMELESS, 0, 2}, 2},
              {"alive behind zombies", engines, {FOUND, 3, 3}, SEARCH_ANY_PID, ended},
              {"a zombie of a pid", engines, {ABSENT, 0, 3}, 2, ended}};
  for (const auto& row : rows) {
    size_t read = 0;
    const auto next = [&](sysinfo::ProcessName* process) {
      if (read == row.processes.size()) return false;
      *process = row.processes[read++];
      return true;
    };
    const SearchResult result = FindProcess(next, "stt", row.wanted, row.isDead);
    EXPECT_EQ(std::tuple(result.verdict, result.pid, read), row.found) << row.what;
  }
}

TEST(ProcessSearchTest, CountsNoneWhereOneIsNameless) {
  sysinfo::ProcessNames processes;
  for (const char* name : {"stt", "st", "stt"}) processes.Add({1, name});
  EXPECT_EQ(CountProcesses(processes, "stt"), 2);
  processes.Add({1, nullptr});
  EXPECT_EQ(CountProcesses(processes, "stt"), 0);
}

TEST(ThresholdTest, ShareIsInPercentWhereTheFigureIsNot) {
  const std::pair<int64_t, int> cases[] = {{62'652'416, 95}, {65'536'000, 100}, {655'359, 0}, {-1, 0}};
  for (const auto& [rss, share] : cases) EXPECT_EQ(MemoryThresholdShare(rss, 65'536'000), share) << rss;
  EXPECT_EQ(MemoryThresholdShare(1, 0), 0);
  EXPECT_EQ(MemoryThresholdFigure(62'652'416 / 1024, 65'536'000), 0);
}

TEST(HangTest, TwoLongQueuesInARowAreAHang) {
  const std::pair<int64_t, bool> looks[] = {{17, false}, {17, true}, {99, true},  {16, false},
                                            {17, false}, {0, false}, {17, false}, {18, true}};
  HangState state;
  HangState off;
  for (const auto& [waiting, hangs] : looks) {
    EXPECT_EQ(QueueHangs(waiting, 16, &state), hangs) << waiting;
    EXPECT_FALSE(QueueHangs(waiting, 0, &off));
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

// This process plays the engine.
TEST_F(ChecksTest, HangCheckComparesPidAndFlag) {
  std::ifstream("/proc/self/comm") >> m_sz_proc_name;
  SetText(m_sz_svc_pid_file, folder_ / "pid");
  DunraSTTUtils::SetHangPath(folder_.Path().c_str());
  const support::Listener listener;
  m_PROC_PORT = listener.Port();
  const std::tuple<pid_t, int64_t, const char*> cases[] = {
      {::getpid(), 1, "alived"}, {::getpid(), 2, "deaded - process"}, {::getppid(), 1, "deaded - process"}};
  for (const auto& [pid, save, verdict] : cases) {
    folder_.Write("pid", std::to_string(pid));
    m_hang_save_flag = save;
    EXPECT_TRUE(Has(test::TraceOf([] { EXPECT_EQ(hangCheckProc(m_sz_proc_name), 1); }),
                    "] : [[ "s + m_sz_proc_name + " ] health check : " + verdict + "]\n"));
  }
}

TEST(TimerRulesTest, ErrorCheckRunsFromTheSecondLookOfADueMinuteUntilItSucceeds) {
  enum Look { NO_RUN, FAILS, SUCCEEDS };
  // The minute, the period, and what comes of each look, a second apart.
  const std::tuple<int, int64_t, std::vector<Look>> rows[] = {
      {0, 15, {NO_RUN, SUCCEEDS, NO_RUN, NO_RUN}},
      {15, 15, {NO_RUN, FAILS, FAILS, SUCCEEDS, NO_RUN}},
      {30, 15, {NO_RUN, FAILS, FAILS}},
      {31, 15, {NO_RUN, NO_RUN}},
      {0, 90, {NO_RUN, SUCCEEDS, NO_RUN}},
      {30, 90, {NO_RUN, NO_RUN, NO_RUN}}};
  ErrorCheckState state;
  for (const auto& [minute, period, looks] : rows) {
    for (const Look look : looks) {
      EXPECT_EQ(ErrorCheckDue(minute, period, &state), look != NO_RUN) << minute;
      if (look == SUCCEEDS) state.succeeded = 1;
    }
  }
}

TEST(TimerRulesTest, ShortHangPeriodsGetAMinuteMore) {
  const int64_t cases[][2] = {{30, 90}, {60, 60}, {59, 119}, {0, 60}, {3600, 3600}, {-1, 59}};
  for (const auto& [configured, pause] : cases) EXPECT_EQ(HangPause(configured), pause);
  EXPECT_EQ(RecipientsNewerBy(RecipientFileTime("/nowhere/at/all"), 5), 0.0);
}

}  // namespace
