#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "support/support.h"
#include "utils/DunraSTTUtils.h"
#include "utils/trace_line.h"

namespace {

// 3 March 2024, 04:05:06.789.
const trace::Moment AT = {{6, 5, 4, 3, 2, 124, 0, 0, 0, 0, nullptr}, 789'999'999};
constexpr trace::Place PLACE = {"Src/a.cpp", "Run", 42};

TEST(TraceLineTest, HasItsFormsAndLimits) {
  EXPECT_EQ(trace::OrdinaryLine(AT, 1, -1, PLACE, "m"),
            "[2024/03/03 04:05:06:789][ERROR][ MAIN][Src/a.cpp/Run:42] : [m]\n");
  EXPECT_EQ(trace::OrdinaryLine(AT, 6, 7, PLACE, "m"),
            "[2024/03/03 04:05:06:789][][00007][Src/a.cpp/Run:42] : [m]\n");
  EXPECT_EQ(trace::HangLine(AT, "m"), "[HANG][2024/03/03 04:05:06:789] : [m]\n");
  EXPECT_EQ(trace::HangLine(AT, std::string(5000, 'x')).size(), trace::HangLine(AT, "").size() + 4000);
  EXPECT_EQ(trace::ToUtf8("\xB0\xA1"), "\xEA\xB0\x80");
  EXPECT_EQ(trace::ToUtf8("a\xFE\xA1z"), "a??z") << "a code that cannot be converted";
}

TEST(TraceLineTest, NamesItsFiles) {
  const auto name = [](char type, long channel, bool withHost) {
    return trace::FileName(type, channel, trace::DatedFolder("/l/", AT.local), AT.local, withHost, "host");
  };
  EXPECT_EQ(name('A', -1, false), "/l/20240303/MAIN.LOG");
  EXPECT_EQ(name('A', 7, false), "/l/20240303/00007.0303.LOG");
  EXPECT_EQ(name('A', 7, true), "/l/20240303/00007.host.0303.LOG");
  EXPECT_EQ(name('H', 7, true), "/l/20240303/hang.host.20240303.log");
  EXPECT_EQ(name('X', -1, false), "");
}

class LogTraceTest : public testing::Test {
 protected:
  // What is printed when these settings hold; saved_ has the files of the path, hang_ those of hang lines.
  std::string Trace(long level, const std::function<void()>& lines) {
    DunraSTTUtils().SetPath("");  // the constructor clears the path
    DunraSTTUtils::SetPath((folder_ / "log/").c_str());
    DunraSTTUtils::SetHangPath((folder_ / "hang/").c_str());
    DunraSTTUtils::SetLogLevel(level);
    testing::internal::CaptureStdout();
    lines();
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
      const std::string path = entry.path();
      std::string& text = path.ends_with("/MAIN.LOG") ? saved_ : hang_;
      if (entry.is_regular_file()) text += support::ReadFile(path);
    }
    return testing::internal::GetCapturedStdout();
  }
  support::TempFolder folder_;
  std::string saved_;
  std::string hang_;
};

TEST_F(LogTraceTest, FiltersByLevelAndEndsMessagesAt99999Bytes) {
  const std::string printed = Trace(2, [] {
    for (long level = -1; level <= 6; ++level) DUNRA_TRACE('A', level, -1, 1, "level %ld;", level);
    DUNRA_TRACE('A', 1L, -1, 0, "echo only");
    DUNRA_TRACE('A', 1L, -1, 1, "%s", std::string(120'000, 'y').c_str());
  });
  EXPECT_NE(saved_.find("[WARN][ MAIN][tests/utils/trace_test.cpp/operator():"), std::string::npos) << saved_;
  for (const char* absent : {"level -1", "level 3"}) {
    EXPECT_EQ(saved_.find(absent), std::string::npos) << absent;
  }
  EXPECT_NE(saved_.find("[" + std::string(99'999, 'y') + "]"), std::string::npos);
  EXPECT_NE(printed.find("[echo only]"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists("MAIN.LOG")) << "what is not saved has no folder";
}

TEST_F(LogTraceTest, WritesHangLinesEvenAtLevelZero) {
  const std::string printed = Trace(0, [] {
    DUNRA_TRACE('A', 0L, -1, 1, "ordinary");
    DUNRA_TRACE('H', 0L, -1, 1, "hang %s", "50%% of %n");
  });
  EXPECT_EQ(saved_, "");
  EXPECT_TRUE(hang_.ends_with("[hang 50%% of %n]\n")) << hang_;
  EXPECT_TRUE(printed.ends_with("[hang 50% of %n]\n")) << "only the echo is expanded";
  EXPECT_EQ(printed.find("ordinary"), std::string::npos);
}

TEST_F(LogTraceTest, MakesFoldersWithTheirModesAndCutsPaths) {
  const auto mode = [&](const char* name) {
    struct stat status {};
    return ::stat((folder_ / name).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  };
  EXPECT_EQ(DunraSTTUtils::MakeFolders((folder_ / "a\\b/c").c_str()), 0);
  EXPECT_EQ(mode("a/b"), 0754U);
  DunraSTTUtils::MakeFolders((folder_ / "d/e/").c_str());
  EXPECT_EQ(mode("d"), 0754U);
  EXPECT_EQ(mode("d/e"), 0755U);
  DunraSTTUtils::SetPath(std::string(9000, 'p').c_str());
  EXPECT_EQ(std::strlen(DunraSTTUtils::GetPath()), 4095U);
}

}  // namespace
