#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "support/support.h"
#include "utils/DunraSTTUtils.h"
#include "utils/trace_line.h"

namespace {

// 3 March 2024, 04:05:06.789.
trace::Moment MomentOfTest() {
  std::tm local{};
  local.tm_year = 124;
  local.tm_mon = 2;
  local.tm_mday = 3;
  local.tm_hour = 4;
  local.tm_min = 5;
  local.tm_sec = 6;
  return {local, 789'999'999};
}

constexpr trace::Place PLACE = {"Src/a.cpp", "Run", 42};

TEST(TraceLineTest, HasItsForms) {
  const trace::Moment at = MomentOfTest();
  EXPECT_EQ(trace::OrdinaryLine(at, 1, -1, PLACE, "m"),
            "[2024/03/03 04:05:06:789][ERROR][ MAIN][Src/a.cpp/Run:42] : [m]\n");
  EXPECT_EQ(trace::OrdinaryLine(at, 6, 7, PLACE, "m"),
            "[2024/03/03 04:05:06:789][][00007][Src/a.cpp/Run:42] : [m]\n");
  EXPECT_EQ(trace::HangLine(at, "m"), "[HANG][2024/03/03 04:05:06:789] : [m]\n");
  EXPECT_EQ(trace::HangLine(at, std::string(5000, 'x')).size(), trace::HangLine(at, "").size() + 4000);
  EXPECT_EQ(trace::OrdinaryLine(at, 1, -1, PLACE, std::string(150'000, 'x')).size(),
            trace::OrdinaryLine(at, 1, -1, PLACE, "").size() + 100'000);
}

TEST(TraceLineTest, NamesItsFiles) {
  const std::tm day = MomentOfTest().local;
  const struct {
    char type;
    long channel;
    bool withHost;
    const char* name;
  } cases[] = {
      {'A', -1, false, "/l/20240303/MAIN.LOG"},
      {'A', -1, true, "/l/20240303/MAIN.host.LOG"},
      {'A', 7, false, "/l/20240303/00007.0303.LOG"},
      {'A', 7, true, "/l/20240303/00007.host.0303.LOG"},
      {'H', -1, false, "/l/20240303/hang.20240303.log"},
      {'H', 7, true, "/l/20240303/hang.host.20240303.log"},
      {'X', -1, false, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(trace::FileName(c.type, c.channel, trace::DatedFolder("/l/", day), day, c.withHost, "host"),
              c.name);
  }
}

TEST(TraceLineTest, IsItsOwnPrintFormatWithoutArguments) {
  EXPECT_EQ(trace::AsPrintFormat("100%% of %d %s %n%%%"), "100% of %d %s %n%%");
  EXPECT_EQ(trace::AsPrintFormat("[93 %]"), "[93 %]");
}

TEST(TraceLineTest, ComesOutInUtf8) {
  EXPECT_EQ(trace::ToUtf8("\xB0\xA1"), "\xEA\xB0\x80");
  EXPECT_EQ(trace::ToUtf8("\xEA\xB0\x80"), "\xEA\xB0\x80");
  EXPECT_EQ(trace::ToUtf8("a\xFE\xA1z"), "a??z") << "a code that cannot be converted";
}

class LogTraceTest : public testing::Test {
 protected:
  void TearDown() override {
    DunraSTTUtils::SetLogLevel(0);
    DunraSTTUtils().SetPath("");  // the constructor clears the path
  }
  void Use(long level) {
    DunraSTTUtils::SetPath((folder_ / "log/").c_str());
    DunraSTTUtils::SetHangPath((folder_ / "hang/").c_str());
    DunraSTTUtils::SetLogLevel(level);
  }
  std::string Saved(const std::string& parent) {
    std::string text;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
      if (entry.is_regular_file() && entry.path().string().find(parent) != std::string::npos) {
        text += support::ReadFile(entry.path());
      }
    }
    return text;
  }
  support::TempFolder folder_;
};

TEST_F(LogTraceTest, FiltersByLevel) {
  Use(2);
  for (long level = -1; level <= 6; ++level) {
    DUNRA_TRACE('A', level, -1, 1, "level %ld;", level);
  }
  const std::string saved = Saved("/log/");
  EXPECT_NE(saved.find("[WARN][ MAIN][tests/utils/trace_test.cpp/TestBody:"), std::string::npos) << saved;
  EXPECT_EQ(saved.find("level -1"), std::string::npos);
  EXPECT_EQ(saved.find("level 3"), std::string::npos);
}

TEST_F(LogTraceTest, WritesHangLinesEvenAtLevelZero) {
  Use(0);
  testing::internal::CaptureStdout();
  DUNRA_TRACE('A', 0L, -1, 1, "ordinary");
  DUNRA_TRACE('H', 0L, -1, 1, "hang %s", "50%%");
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(Saved("/log/"), "");
  EXPECT_NE(Saved("/hang/").find("[hang 50%%]\n"), std::string::npos);
  EXPECT_NE(printed.find("[hang 50%]\n"), std::string::npos) << "only the echo is expanded";
  EXPECT_EQ(printed.find("ordinary"), std::string::npos);
}

TEST_F(LogTraceTest, SurvivesAnUnusableFolder) {
  DunraSTTUtils::SetPath((folder_.Write("file", "x") + "/").c_str());
  DunraSTTUtils::SetLogLevel(1);
  testing::internal::CaptureStdout();
  DUNRA_TRACE('A', 1L, -1, 1, "%s", std::string(120'000, 'y').c_str());
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_NE(printed.find("\nlog file open error"), std::string::npos) << printed.substr(100'000);
  EXPECT_NE(printed.find(std::string(99'999, 'y') + "]"), std::string::npos)
      << "messages end at 99,999 bytes";
}

TEST_F(LogTraceTest, MakesEveryFolder) {
  const std::string path = folder_ / "a\\b/c";
  EXPECT_EQ(DunraSTTUtils::MakeFolders(path.c_str()), 0);
  struct stat status {};
  ASSERT_EQ(::stat((folder_ / "a/b/c").c_str(), &status), 0);
  EXPECT_EQ(DunraSTTUtils::MakeFolders((folder_ / "d/e/").c_str()), 0);
  ASSERT_EQ(::stat((folder_ / "d").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0754U);
  ASSERT_EQ(::stat((folder_ / "d/e").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0755U);
  EXPECT_EQ(DunraSTTUtils::MakeFolders(nullptr), 0);
}

TEST(TextCopyTest, CopiesWithoutATerminator) {
  char buffer[8] = "zzzzzzz";
  DunraSTTUtils::StrNCopy(buffer, 0, "abc", 3);
  EXPECT_STREQ(buffer, "abczzzz");
  buffer[4] = '\0';
  EXPECT_STREQ(DunraSTTUtils::StrCate(buffer, 0, "de"), "abczde");
  DunraSTTUtils().SetPath("/long/path/");
  DunraSTTUtils::SetPath("/a/");
  EXPECT_STREQ(DunraSTTUtils::GetPath(), "/a/ng/path/");
  DunraSTTUtils::SetPath(std::string(9000, 'p').c_str());
  EXPECT_EQ(std::strlen(DunraSTTUtils::GetPath()), 4095U);
  DunraSTTUtils().SetPath("");
}

}  // namespace
