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
    const std::string folder = trace::DatedFolder("/l/", AT.local);
    EXPECT_EQ(trace::FileName(c.type, c.channel, folder, AT.local, c.withHost, "host"), c.name);
  }
}

class LogTraceTest : public testing::Test {
 protected:
  void Use(const std::string& path, long level) {
    DunraSTTUtils().SetPath("");  // the constructor clears the path
    DunraSTTUtils::SetPath(path.c_str());
    DunraSTTUtils::SetHangPath((folder_ / "hang/").c_str());
    DunraSTTUtils::SetLogLevel(level);
    testing::internal::CaptureStdout();
  }
  // All files below a folder.
  std::string Saved(const std::string& parent) const {
    std::string text;
    std::error_code none;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ / parent, none)) {
      if (entry.is_regular_file()) text += support::ReadFile(entry.path());
    }
    return text;
  }
  support::TempFolder folder_;
};

TEST_F(LogTraceTest, FiltersByLevelAndEndsMessagesAt99999Bytes) {
  Use(folder_ / "log/", 2);
  for (long level = -1; level <= 6; ++level) DUNRA_TRACE('A', level, -1, 1, "level %ld;", level);
  DUNRA_TRACE('A', 1L, -1, 0, "echo only");
  DUNRA_TRACE('A', 1L, -1, 1, "%s", std::string(120'000, 'y').c_str());
  const std::string printed = testing::internal::GetCapturedStdout();
  const std::string saved = Saved("log");
  EXPECT_NE(saved.find("[WARN][ MAIN][tests/utils/trace_test.cpp/TestBody:"), std::string::npos) << saved;
  EXPECT_EQ(saved.find("level -1"), std::string::npos);
  EXPECT_EQ(saved.find("level 3"), std::string::npos);
  EXPECT_NE(saved.find("[" + std::string(99'999, 'y') + "]"), std::string::npos);
  EXPECT_EQ(saved.find("echo only"), std::string::npos);
  EXPECT_NE(printed.find("echo only"), std::string::npos);
}

TEST_F(LogTraceTest, WritesHangLinesEvenAtLevelZero) {
  Use(folder_ / "log/", 0);
  DUNRA_TRACE('A', 0L, -1, 1, "ordinary");
  DUNRA_TRACE('H', 0L, -1, 1, "hang %s", "50%% of %n");
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(Saved("log"), "");
  EXPECT_NE(Saved("hang").find("[hang 50%% of %n]\n"), std::string::npos);
  EXPECT_NE(printed.find("[hang 50% of %n]\n"), std::string::npos) << "only the echo is expanded";
  EXPECT_EQ(printed.find("ordinary"), std::string::npos);
}

TEST_F(LogTraceTest, MakesFoldersWithTheirModes) {
  const auto mode = [&](const char* name) {
    struct stat status {};
    return ::stat((folder_ / name).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  };
  EXPECT_EQ(DunraSTTUtils::MakeFolders((folder_ / "a\\b/c").c_str()), 0);
  EXPECT_EQ(mode("a/b"), 0754U);
  DunraSTTUtils::MakeFolders((folder_ / "d/e/").c_str());
  EXPECT_EQ(mode("a/b/c"), 0755U);
  EXPECT_EQ(mode("d"), 0754U);
  EXPECT_EQ(mode("d/e"), 0755U);
}

TEST(TextCopyTest, CopiesWithoutATerminator) {
  DunraSTTUtils::SetPath(std::string(9000, 'p').c_str());
  EXPECT_EQ(std::strlen(DunraSTTUtils::GetPath()), 4095U);
  DunraSTTUtils::SetPath("/a/");
  EXPECT_EQ(std::string(DunraSTTUtils::GetPath(), 6), "/a/ppp");
  char buffer[] = "zzzzz";
  DunraSTTUtils::StrNCopy(buffer, 0, "a", 3);
  EXPECT_EQ(std::string(buffer, 5), std::string("a\0\0zz", 5));
}

}  // namespace
