#include "Tovik/checks/error_log_check.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Tovik/core/config.h"
#include "utils/DunraSTTUtils.h"

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

// A folder of its own with an engine's error log; clocks of Central Europe.
class ErrorLogTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    char pattern[] = "/tmp/dunra errors;$'\"-XXXXXX";
    folder_ = mkdtemp(pattern) + "/"s;
  }
  void TearDown() override {
    unsetenv("TZ");
    tzset();
    fs::remove_all(folder_);
  }
  static time_t Utc(const char* text) {
    std::tm time{};
    strptime(text, "%Y-%m-%d %H:%M", &time);
    return timegm(&time);
  }
  // Of 14:07 local time on 31 January 2024.
  ErrorLogSearch Search() const { return ErrorLogSearchAt(now_, folder_.c_str(), {}); }
  void WriteLog(const std::string& content) const {
    fs::create_directory(folder_ + "20240131");
    std::ofstream(folder_ + "20240131/0131.ERR.LOG", std::ios::binary) << content;
  }
  std::string Find() {
    const int length = FindErrorLines(Search(), out_.get());
    EXPECT_EQ(std::string(out_.get()).size(), static_cast<size_t>(length));
    EXPECT_FALSE(fs::exists(fs::symlink_status(folder_ + "STTAlarmLog.txt")));
    return out_.get();
  }
  std::string Read(const std::string& content) {
    const std::string path = folder_ + "text";
    std::ofstream(path, std::ios::binary) << content;
    const int length = ReadTextFile(path.c_str(), out_.get());
    EXPECT_EQ(std::string(out_.get()).size(), static_cast<size_t>(length));
    return out_.get();
  }
  std::string folder_;
  const time_t now_ = Utc("2024-01-31 13:07");
  std::unique_ptr<char[]> out_ = std::make_unique<char[]>(ERROR_TEXT);
};

TEST_F(ErrorLogTest, LooksAtTheMinuteTwoMinutesAgo) {
  const struct {
    time_t now;
    const char* pattern;
    const char* log;
  } cases[] = {
      {now_ + 59, " 14:05:", "20240131/0131.ERR.LOG"},
      {Utc("2024-01-31 23:01"), " 23:59:", "20240131/0131.ERR.LOG"},
      {Utc("2024-01-31 23:02"), " 00:00:", "20240201/0201.ERR.LOG"},
      {Utc("2023-12-31 23:01"), " 23:59:", "20231231/1231.ERR.LOG"},
      {Utc("2024-02-29 23:01"), " 23:59:", "20240229/0229.ERR.LOG"},
      {Utc("2024-03-31 01:01"), " 01:59:", "20240331/0331.ERR.LOG"},  // 03:01 after the skipped hour
      {Utc("2024-10-27 01:01"), " 02:59:", "20241027/1027.ERR.LOG"},  // 02:01 of the repeated hour
      {Utc("2024-10-27 02:01"), " 02:59:", "20241027/1027.ERR.LOG"},
  };
  for (const auto& item : cases) {
    const ErrorLogSearch search = ErrorLogSearchAt(item.now, "/e/", {});
    EXPECT_EQ(search.pattern, item.pattern) << item.now;
    EXPECT_EQ(search.log, "/e/"s + item.log) << item.now;
    EXPECT_EQ(search.extract, "/e/STTAlarmLog.txt");
  }
}

TEST_F(ErrorLogTest, NamesCarryTheHost) {
  const ErrorLogSearch search = ErrorLogSearchAt(now_, "/e/", "stt1");
  EXPECT_EQ(search.log, "/e/20240131/stt1.0131.ERR.LOG");
  EXPECT_EQ(search.extract, "/e/stt1.STTAlarmLog.txt");
  EXPECT_EQ(search.command, "grep \" 14:05:\" /e/20240131/stt1.0131.ERR.LOG > /e/stt1.STTAlarmLog.txt");
  EXPECT_EQ(ErrorLogSearchAt(now_, "", "").log, "20240131/.0131.ERR.LOG");
}

TEST_F(ErrorLogTest, FindsExactlyTheMinutesLines) {
  std::string expected;
  std::string log = "[2024/01/31 14:04:59] before\n";
  for (int i = 0; i < 10; ++i) expected += "[2024/01/31 14:05:0" + std::to_string(i) + "] error\n";
  log += expected + "[2024/01/31 14:06:00] after\n[x14:05:00] no blank\n";
  WriteLog(log);
  EXPECT_EQ(Find(), expected);
  WriteLog("[2024/01/31 14:06:00] after\n");
  EXPECT_EQ(Find(), "");
}

TEST_F(ErrorLogTest, FindsLinesOfAnyBytes) {
  // Code page 949 text, and a log with NUL bytes elsewhere: neither is "binary".
  WriteLog("junk\0junk\n a 14:05:00 \xC6\xF2\xB1\xD5\n b 14:05:01 a\0b\n c 14:05:02 no newline"s);
  EXPECT_EQ(Find(), " a 14:05:00 \xC6\xF2\xB1\xD5\n b 14:05:01 a");
}

TEST_F(ErrorLogTest, FindsNothingWithoutALog) {
  EXPECT_EQ(Find(), "");
  fs::create_directories(folder_ + "20240131/0131.ERR.LOG");
  EXPECT_EQ(Find(), "");
  fs::remove(folder_ + "20240131/0131.ERR.LOG");
  ASSERT_EQ(mkfifo((folder_ + "20240131/0131.ERR.LOG").c_str(), 0600), 0);
  EXPECT_EQ(Find(), "");
}

TEST_F(ErrorLogTest, CutsAFloodAtTheTextsSize) {
  std::string flood;
  while (flood.size() < 3 * size_t{ERROR_TEXT}) flood += " 14:05:\n";
  WriteLog(flood);
  EXPECT_EQ(Find(), flood.substr(0, ERROR_TEXT - 1));
}

TEST_F(ErrorLogTest, NeverFollowsWhatStandsInTheExtractsPlace) {
  WriteLog(" 14:05:00 error\n");
  const std::string victim = folder_ + "victim";
  std::ofstream(victim) << "kept";
  fs::create_symlink(victim, folder_ + "STTAlarmLog.txt");
  EXPECT_EQ(Find(), " 14:05:00 error\n");
  EXPECT_EQ(fs::file_size(victim), 4U);

  fs::create_directory(folder_ + "STTAlarmLog.txt");
  testing::internal::CaptureStdout();
  EXPECT_EQ(FindErrorLines(Search(), out_.get()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[ReadTextFile] file open fail : file name = " + folder_ +
                                                        "STTAlarmLog.txt, error = " + std::to_string(EEXIST));
}

TEST_F(ErrorLogTest, TracesASearchThatCannotBeRun) {
  WriteLog(" 14:05:00 error\n");
  const char* const inherited = getenv("PATH");
  ASSERT_NE(inherited, nullptr);
  const std::string path = inherited;
  setenv("PATH", "/nowhere", 1);
  DunraSTTUtils::SetLogLevel(TRACE_DEBUG);
  m_txt_save = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(Find(), "");
  const std::string traced = testing::internal::GetCapturedStdout();
  DunraSTTUtils::SetLogLevel(0);
  setenv("PATH", path.c_str(), 1);
  EXPECT_NE(traced.find("Unable to execute distrib server error log script (2)\nNo such file or directory, "
                        "command = grep \" 14:05:\" "),
            std::string::npos)
      << traced;
}

TEST_F(ErrorLogTest, ReadsATextUpToItsLimit) {
  const std::string ascii(ERROR_TEXT - 2, 'a');
  const struct {
    std::string content, text;
  } cases[] = {
      {"", ""},
      {"a\nb", "a\nb"},
      {"a\0b"s, "a"},
      {"\0a"s, ""},
      {ascii + "b", ascii + "b"},
      {ascii + "bc", ascii + "b"},
      {ascii + "\xB0\xA1", ascii},                                    // no half of a character
      {ascii.substr(1) + "\xB0\xA1z", ascii.substr(1) + "\xB0\xA1"},  // a whole one stays
      {"\xB0", "\xB0"},                                               // as the log has it
  };
  for (const auto& item : cases) EXPECT_EQ(Read(item.content), item.text) << item.content.size();
}

TEST_F(ErrorLogTest, SaysWhichFileCannotBeOpened) {
  const std::string path = folder_ + "none";
  testing::internal::CaptureStdout();
  EXPECT_EQ(ReadTextFile(path.c_str(), out_.get()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[ReadTextFile] file open fail : file name = " + path + ", error = 2");
  WriteLog("text");
  fs::create_symlink(folder_ + "20240131/0131.ERR.LOG", path);
  EXPECT_EQ(ReadTextFile(path.c_str(), out_.get()), 0);
}

TEST_F(ErrorLogTest, CheckSucceedsWithErrorLinesOnly) {
  std::snprintf(m_sz_svc_txt_path, sizeof m_sz_svc_txt_path, "%s", folder_.c_str());
  m_send_email_used = m_send_webhook_used = m_log_hostname_inc_flag = 0;
  EXPECT_EQ(ErrorCheckAt(now_), -1);
  WriteLog(" 14:05:00 error\n");
  EXPECT_EQ(ErrorCheckAt(now_), 1);
  EXPECT_EQ(ErrorCheckAt(now_ + 60), -1);
}

}  // namespace
