#include "Tovik/checks/result_check.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Tovik/checks/result_table.h"
#include "Tovik/core/config.h"
#include "support/support.h"
#include "utils/DunraSTTUtils.h"

namespace {

using namespace std::string_literals;

struct Release {
  void operator()(RESULT_LIST* records) const { FreeResultData(records); }
};
using Records = std::unique_ptr<RESULT_LIST, Release>;

// A clock change at 2 o'clock of 31 March and at 3 o'clock of 27 October 2024, as in Central Europe.
class CentralEuropeanTime : public testing::Test {
 protected:
  void SetUp() override { Set("CET-1CEST,M3.5.0,M10.5.0/3"); }
  void TearDown() override { Set(nullptr); }
  static void Set(const char* zone) {
    zone == nullptr ? unsetenv("TZ") : setenv("TZ", zone, 1);
    tzset();
  }
  static time_t Utc(const char* text) {
    std::tm time{};
    strptime(text, "%Y-%m-%d %H:%M", &time);
    return timegm(&time);
  }
};

TEST_F(CentralEuropeanTime, YesterdayIsTheDayOf86400SecondsAgo) {
  const struct {
    time_t now;
    const char* date;
  } cases[] = {
      {Utc("2024-02-01 06:30"), "2024/01/31"},
      {Utc("2024-01-01 06:30"), "2023/12/31"},
      {Utc("2024-03-01 06:30"), "2024/02/29"},
      {Utc("2023-03-01 06:30"), "2023/02/28"},
      {Utc("2024-01-31 22:59"), "2024/01/30"},
      {Utc("2024-01-31 23:00"), "2024/01/31"},
      {Utc("2024-03-31 22:30"), "2024/03/30"},  // 00:30 after the day of 23 hours: two dates back
      {Utc("2024-03-31 23:00"), "2024/03/31"},
      {Utc("2024-10-27 22:30"), "2024/10/27"},  // 23:30 of the day of 25 hours: the same date
      {Utc("2024-10-27 23:30"), "2024/10/27"},
  };
  for (const auto& item : cases) EXPECT_EQ(ResultDayAt(item.now, "", {}).date, item.date) << item.now;
}

TEST_F(CentralEuropeanTime, FileIsNamedByDateAndHost) {
  const time_t now = Utc("2024-02-01 06:30");
  const std::string host(64, 'h');
  EXPECT_EQ(ResultDayAt(now, "/e/log/", {}).path, "/e/log/20240131/Result.csv");
  EXPECT_EQ(ResultDayAt(now, "/e/log/", host).path, "/e/log/20240131/Result." + host + ".csv");
  EXPECT_EQ(ResultDayAt(now, "/e/log/", "").path, "/e/log/20240131/Result..csv");
}

TEST(ResultMomentTest, ComparesHourThenMinute) {
  const struct {
    const char* configured;
    int hour, minute;
    ResultMoment moment;
  } cases[] = {
      {"07:30", 7, 30, ResultMoment::DUE},
      {"07:30", 7, 31, ResultMoment::OTHER_MINUTE},
      {"07:30", 8, 30, ResultMoment::OTHER_HOUR},
      {"7:5", 7, 5, ResultMoment::DUE},
      {" 7: 5x", 7, 5, ResultMoment::DUE},
      {"07:30:99", 7, 30, ResultMoment::DUE},
      {"aa:bb", 0, 0, ResultMoment::DUE},
      {":30", 0, 30, ResultMoment::DUE},
      {"07", 7, 0, ResultMoment::DUE},
      {"24:00", 0, 0, ResultMoment::OTHER_HOUR},
      {"00:60", 0, 0, ResultMoment::OTHER_MINUTE},
      {"4294967303:30", 7, 30, ResultMoment::OTHER_HOUR},
      {"-99999999999999999999:0", 0, 0, ResultMoment::OTHER_HOUR},
      {"", 1, 0, ResultMoment::OTHER_HOUR},
  };
  for (const auto& item : cases) {
    std::tm local{};
    local.tm_hour = item.hour;
    local.tm_min = item.minute;
    EXPECT_EQ(ResultMomentOf(item.configured, local), item.moment) << item.configured;
  }
}

TEST(GetNextStringTest, CutsAtEverySeparator) {
  std::string line = "a,,\"b,c\n";
  std::vector<std::string> fields;
  char field[RESULT_LINE];
  char* at = line.data();
  for (int i = 0; i < 5; ++i) {
    at = GetNextString(at, ',', field);
    fields.emplace_back(field);
  }
  EXPECT_EQ(fields, (std::vector<std::string>{"a", "", "\"b", "c", ""}));
  EXPECT_EQ(at, line.data() + line.size());
}

TEST(GetNextStringTest, DropsWhatDoesNotFit) {
  std::string line(RESULT_LINE + 100, 'x');
  char field[RESULT_LINE];
  EXPECT_EQ(GetNextString(line.data(), ',', field), line.data() + line.size());
  EXPECT_EQ(std::strlen(field), size_t{RESULT_LINE} - 1);
}

class ResultFileTest : public testing::Test {
 protected:
  Records Read(const std::string& content, int64_t count, size_t maxTexts = MAX_RESULT_TEXTS) {
    return Records(GetResultReadData(folder_.Write("Result.csv", content).c_str(), count, maxTexts));
  }
  // A line of 24 fields "f<number>", save the four that are averaged.
  static std::string Line(const std::string& recognition, const std::string& file, const std::string& xrt,
                          const std::string& response, const std::string& end = "\n") {
    std::string line = "f1";
    for (int i = 2; i <= RESULT_FIELDS; ++i) {
      const std::string field = i == 13   ? recognition
                                : i == 16 ? file
                                : i == 19 ? xrt
                                : i == 22 ? response
                                          : "f" + std::to_string(i);
      line += "," + field;
    }
    return line + end;
  }
  support::TempFolder folder_;
};

TEST_F(ResultFileTest, ReadsEveryFieldOfTheRecord) {
  const Records records = Read(Line("120", "3500.5", "0.5", "140") + Line("1", "2", "3", "4", "\r\n"), 2);
  ASSERT_NE(records, nullptr);
  const RESULT_LIST& record = records.get()[0];
  EXPECT_EQ(record.recognition_time, 120);
  EXPECT_EQ(record.file_time, 3500.5F);
  EXPECT_EQ(record.xrt, 0.5F);
  EXPECT_EQ(record.response_time, 140);
  const char* texts[] = {"f3", "f5", "f7", "f9", "f11"};
  for (int i = 0; i < RESULT_TEXTS; ++i) EXPECT_EQ(ResultText(record, i), texts[i]);
  EXPECT_EQ(records.get()[1].response_time, 4);
}

TEST_F(ResultFileTest, NumbersReadAsTheCLibraryReadsThem) {
  const char* texts[] = {"",
                         "abc",
                         " 12",
                         "+7",
                         "-8 ",
                         "12.5x",
                         "1e3",
                         "0x1p4",
                         "inf",
                         "-Infinity",
                         "1e39",
                         "-1e400",
                         "1e-60",
                         ".5",
                         "5.",
                         ".",
                         "1.2.3",
                         "0.1234567890123456789",
                         "16777217",
                         "000000000000001",
                         "3.4028235e38",
                         "\t6"};
  for (const char* text : texts) {
    const Records records = Read(Line(text, text, text, text), 1);
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(records.get()->recognition_time, std::atoi(text)) << text;
    EXPECT_EQ(records.get()->file_time, static_cast<float>(std::atof(text))) << text;
  }
  const Records odd = Read(Line("99999999999999999999", "nan", "9007199254740993", "-2147483649"), 1);
  EXPECT_EQ(odd.get()->recognition_time, INT_MAX);
  EXPECT_EQ(odd.get()->response_time, INT_MIN);
  EXPECT_TRUE(std::isnan(odd.get()->file_time));
  EXPECT_EQ(odd.get()->xrt, static_cast<float>(std::atof("9007199254740993")));
}

TEST_F(ResultFileTest, LinesAreTakenAsTheLineBufferTakesThem) {
  const std::string line = Line("1", "2", "3", "4");
  const std::string inTwo = std::string(4095, 'x') + line;  // the second piece begins at "f1"
  const std::string fits = "a,b," + std::string(4090, 'y') + "\n" + line;
  const struct {
    const char* what;
    std::string content;
    size_t index;
    int64_t response;
  } cases[] = {
      {"no newline at the end", Line("1", "2", "3", "4", ""), 0, 4},
      {"a long line is two", inTwo, 1, 4},
      {"the longest line is one", fits, 1, 4},
      {"a text ends at NUL", line.substr(0, 30) + '\0' + line, 0, 0},
      {"a NUL hides its line only", "\0x,y\n"s + line, 1, 4},
      {"few fields", "a,b,c\n", 0, 0},
      {"many fields", Line("1", "2", "3", "4", std::string(3000, ',') + "\n"), 0, 4},
      {"records without a line", line, 3, 0},
  };
  for (const auto& item : cases) {
    const Records records = Read(item.content, 4);
    ASSERT_NE(records, nullptr) << item.what;
    EXPECT_EQ(records.get()[item.index].response_time, item.response) << item.what;
  }
  EXPECT_EQ(ResultText(*Read(fits, 1), 0), std::string(4090, 'y'));
}

TEST_F(ResultFileTest, ReadsThroughEveryBufferBorder) {
  std::string content;
  for (int i = 0; i < 20000; ++i) content += Line(std::to_string(i), "1", "1", "1");
  const Records records = Read(content, 20000);
  ASSERT_NE(records, nullptr);
  for (int i = 0; i < 20000; ++i) ASSERT_EQ(records.get()[i].recognition_time, i);
}

TEST_F(ResultFileTest, LimitsHold) {
  const std::string line = Line("1", "2", "3", "4");  // 11 bytes of text
  EXPECT_NE(Read(line + line + line, 2), nullptr);    // more lines than were counted
  const Records records = Read(line + line, 2, 15);
  EXPECT_EQ(ResultText(records.get()[0], 4), "f11");
  EXPECT_EQ(ResultText(records.get()[1], 4), "");
  EXPECT_EQ(records.get()[1].response_time, 4);
  EXPECT_NE(Read("", 0), nullptr);
  EXPECT_EQ(Read(line, -1), nullptr);
  EXPECT_EQ(Read(line, MAX_RESULT_RECORDS + 1), nullptr);
  EXPECT_EQ(GetResultReadData((folder_ / "none").c_str(), 1), nullptr);
  EXPECT_EQ(GetResultReadData(folder_.Path().c_str(), 1), nullptr);
  const std::string fifo = folder_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(GetResultReadData(fifo.c_str(), 1), nullptr);
}

TEST_F(ResultFileTest, AveragesIntoTheTable) {
  const Records records = Read(Line("100", "3000", "0.5", "200") + Line("201", "4001", "1.0", "300"), 2);
  char table[RESULT_TABLE];
  FormatResultTable("2024/01/31", 2, AverageOf(records.get(), 2), table);
  // In code page 949: average, items.
  for (const char* text : {">[2024/01/31] / [\xC6\xF2\xB1\xD5]<", ">2\xB0\xC7<", ">0.75 xRT<", ">3500.50 ms<",
                           ">150.50 ms<", ">250.00 ms<"}) {
    EXPECT_NE(std::strstr(table, text), nullptr) << text;
  }
  EXPECT_EQ(std::strpbrk(table, "\"\\\r\n"), nullptr);
}

TEST(ResultTableTest, IsWholeForAnyValues) {
  char table[RESULT_TABLE];
  FormatResultTable(std::string(RESULT_DATE - 1, '9').c_str(), INT64_MIN,
                    {-static_cast<double>(FLT_MAX), -static_cast<double>(FLT_MAX), INT_MIN, INT_MIN}, table);
  EXPECT_TRUE(std::string(table).ends_with("</tr></table>"));
}

// The whole check, sending by webhook to a peer at most.
class ResultCheckTest : public CentralEuropeanTime {
 protected:
  void SetUp() override {
    CentralEuropeanTime::SetUp();
    std::snprintf(m_sz_svc_txt_path, sizeof m_sz_svc_txt_path, "%s", folder_.Path().c_str());
    std::snprintf(m_result_check_time, sizeof m_result_check_time, "07:30");
    std::snprintf(m_sz_proc_name, sizeof m_sz_proc_name, "stt");
    m_send_email_used = m_send_webhook_used = m_log_hostname_inc_flag = m_txt_save = 0;
    DunraSTTUtils::SetLogLevel(TRACE_INFO);
  }
  void TearDown() override {
    m_send_webhook_used = 0;
    DunraSTTUtils::SetLogLevel(0);
    CentralEuropeanTime::TearDown();
  }
  std::string CheckAt(time_t now, int expected) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(ResultCheckAt(now), expected);
    return testing::internal::GetCapturedStdout();
  }
  support::TempFolder folder_;
  const time_t due_ = Utc("2024-02-01 06:30");  // 07:30 local time
};

TEST_F(ResultCheckTest, ReportsInItsMinuteOnly) {
  std::filesystem::create_directory(folder_ / "20240131");
  folder_.Write("20240131/Result.csv", "1,2\n");
  EXPECT_EQ(CheckAt(due_, 1), "");
  EXPECT_NE(CheckAt(due_ + 60, -1).find("Result check Min Over"), std::string::npos);
  EXPECT_NE(CheckAt(due_ + 3600, -1).find("Result check Hour Over"), std::string::npos);
}

TEST_F(ResultCheckTest, PostsTheTable) {
  std::filesystem::create_directory(folder_ / "20240131");
  folder_.Write("20240131/Result.csv", "1,2\n3,4\nnot counted");
  std::string request;
  support::Peer peer([&request](int fd) {
    while (!request.ends_with("}]}")) {
      const std::string byte = support::Receive(fd, 1);
      if (byte.empty()) return;
      request += byte;
    }
    support::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
  });
  m_send_webhook_used = 1;
  std::snprintf(m_webhook_server_url, sizeof m_webhook_server_url, "http://127.0.0.1:%d/", peer.Port());
  const std::string traced = CheckAt(due_, 1);
  peer.Finish();
  EXPECT_NE(traced.find("WebHook Send [  ] stt Alarm Occured - Result Check"), std::string::npos) << traced;
  EXPECT_NE(request.find("[2024/01/31] / [\xED\x8F\x89\xEA\xB7\xA0]"), std::string::npos) << request;
  EXPECT_NE(request.find(">2\xEA\xB1\xB4<"), std::string::npos);
  EXPECT_NE(request.find("\"activitySubtitle\": \"STT Service Result\""), std::string::npos);
}

TEST_F(ResultCheckTest, FailsSilentlyWithoutAReadableFile) {
  const std::string path = folder_ / "20240131/Result.csv";
  EXPECT_EQ(CheckAt(due_, -1), "");
  std::filesystem::create_directories(path);
  EXPECT_EQ(CheckAt(due_, -1), "");
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(CheckAt(due_, -1), "");
}

}  // namespace
