#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>

#include "support/has.h"
#include "support/support.h"
#include "utils/trace_log.h"

namespace {

using support::Has;

// 3 March 2024, 04:05:06.789.
const trace::TraceSecond AT = trace::TraceSecondOf({6, 5, 4, 3, 2, 124, 0, 0, 0, 0, nullptr});
constexpr long NANOSECONDS = 789'999'999;

std::string Formatted(size_t limit, const char* format, ...) {
  char buffer[64];
  trace::TraceText text(buffer);
  va_list arguments;
  va_start(arguments, format);
  text.Add("<").AddFormatted(limit, format, arguments);
  va_end(arguments);
  return text.Terminated();
}

TEST(TraceLineTest, BeginsWithTimeLevelChannelAndPlace) {
  const auto head = [](long level, long channel) {
    char buffer[100];
    trace::TraceText line(buffer);
    trace::BeginOrdinaryLine(&line, AT, NANOSECONDS, level, channel, {"Src/a.cpp", "Run", 42});
    return std::string(line.View());
  };
  EXPECT_EQ(head(1, -1), "[2024/03/03 04:05:06:789][ERROR][ MAIN][Src/a.cpp/Run:42] : [");
  EXPECT_EQ(head(6, 7), "[2024/03/03 04:05:06:789][][00007][Src/a.cpp/Run:42] : [");
  EXPECT_EQ(head(0, -7), "[2024/03/03 04:05:06:789][FATAL][-0007][Src/a.cpp/Run:42] : [");
}

TEST(TraceLineTest, ConvertsWhatIsNotPlain) {
  EXPECT_EQ(trace::MessageToUtf8("\xB0\xA1"), "\xEA\xB0\x80");
  EXPECT_EQ(trace::MessageToUtf8("a\xFE\xA1z"), "a??z") << "a code that cannot be converted";
  for (const char* other : {"%", "\x80", "1234567%", "12345678%", "1234567\xFF", "12345678\xFF%"})
    EXPECT_FALSE(trace::IsPlainMessage(other)) << other;
  EXPECT_TRUE(trace::IsPlainMessage("") && trace::IsPlainMessage("$&\x7F\x01 12345678 $&\x7F"));
}

TEST(TraceLineTest, FormatsAsPrintfDoes) {
  EXPECT_EQ(Formatted(60, "%s[%d]%ld %s", "a", INT_MIN, LONG_MIN, ""),
            "<a[-2147483648]-9223372036854775808 ");
  EXPECT_EQ(Formatted(60, "%s %lld%%%03d %c.", "word", 5LL, 7, 'c'), "<word 5%007 c.");
  EXPECT_EQ(Formatted(60, "%d %s", 0, static_cast<const char*>(nullptr)), "<0 (null)");
  EXPECT_EQ(Formatted(60, "a%cb", '\0'), "<a");
  for (const char* format : {"%s", "%4s"}) {
    EXPECT_EQ(Formatted(3, format, "12345"), "<123");
    EXPECT_EQ(Formatted(80, format, std::string(100, 'x').c_str()), "<" + std::string(62, 'x'));
  }
}

TEST(TraceLineTest, NamesItsFiles) {
  const auto name = [](char type, long channel, const char* host) {
    char buffer[100];
    trace::TraceText path(buffer);
    trace::AddDatedLogFolder(&path, "/l/", AT);
    trace::AddLogFileName(&path, type, channel, AT, host);
    return std::string(path.View());
  };
  EXPECT_EQ(name('A', -1, nullptr), "/l/20240303/MAIN.LOG");
  EXPECT_EQ(name('A', 7, nullptr), "/l/20240303/00007.0303.LOG");
  EXPECT_EQ(name('A', 7, "host"), "/l/20240303/00007.host.0303.LOG");
  EXPECT_EQ(name('H', 7, "host"), "/l/20240303/hang.host.20240303.log");
}

unsigned Mode(const std::string& path) {
  return static_cast<unsigned>(std::filesystem::status(path).permissions());
}

class LogTraceTest : public testing::Test {
 protected:
  // Traces the lines at a level. Returns what is printed, and adds all MAIN.LOG files to saved_, all others
  // to hang_.
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

TEST_F(LogTraceTest, FiltersByLevelAndCutsMessagesTo99999Bytes) {
  const std::string printed = Trace(2, [] {
    for (long level = -1; level <= 6; ++level) DUNRA_TRACE('A', level, -1, 1, "level %ld;", level);
    DUNRA_TRACE('A', 1L, -1, 0, "echo only");
    DUNRA_TRACE('A', 1L, -1, 1, "%s", std::string(120'000, 'y').c_str());
  });
  EXPECT_TRUE(Has(saved_, "[WARN][ MAIN][tests/utils/trace_test.cpp/operator():"));
  for (const char* absent : {"level -1", "level 3"}) EXPECT_FALSE(Has(saved_, absent));
  EXPECT_TRUE(Has(saved_, "[" + std::string(99'999, 'y') + "]"));
  EXPECT_TRUE(Has(printed, "[echo only]"));
  EXPECT_FALSE(std::filesystem::exists("MAIN.LOG")) << "a line that is not saved needs no folder";
}

TEST_F(LogTraceTest, CutsConvertedAndHangMessages) {
  std::string syllables;
  for (int i = 0; i < 40'000; ++i) syllables += "\xB0\xA1";
  Trace(1, [&] {
    DUNRA_TRACE('A', 1L, -1, 1, "%s", syllables.c_str());
    DUNRA_TRACE('H', 1L, -1, 1, "%s", syllables.c_str());
    DUNRA_TRACE('H', 1L, -1, 1, "%s", std::string(5000, 'z').c_str());
    DUNRA_TRACE('X', 1L, -1, 1, "no such type");
  });
  const auto longest = [](const std::string& text) { return text.rfind(']') - text.rfind('[') - 1; };
  EXPECT_EQ(longest(saved_), 100'000U);
  EXPECT_EQ(longest(hang_), 4000U);
  EXPECT_EQ(longest(hang_.substr(0, hang_.find('\n'))), 4000U);
  EXPECT_FALSE(Has(saved_ + hang_, "no such"));
}

TEST_F(LogTraceTest, RestoresItsFolderAndTheMode) {
  const auto line = [] { DUNRA_TRACE('A', 1L, -1, 1, "line"); };
  Trace(1, line);
  const std::string day = std::filesystem::directory_iterator(folder_ / "log")->path();
  for (const mode_t changed : {0700, 0777, 01755}) {
    ::chmod(day.c_str(), changed);
    Trace(1, line);
    EXPECT_EQ(Mode(day), 0755U) << changed;
  }
  EXPECT_EQ(support::Count(support::ReadFile(day + "/MAIN.LOG"), "[line]\n"), 4U);
  std::filesystem::remove_all(folder_ / "log");
  Trace(1, line);
  EXPECT_EQ(Mode(day), 0755U);
}

TEST_F(LogTraceTest, KeepsTheLinesOfConcurrentThreadsApart) {
  const auto lines = [](long channel) {
    for (int i = 0; i < 200; ++i) DUNRA_TRACE('A', 1L, channel, 1, "%ld %s", channel, "text");
  };
  Trace(1, [&] {
    const std::jthread others[] = {std::jthread(lines, 1), std::jthread(lines, 2)};
    lines(3);
  });
  for (const char* text : {"[00001][", "[1 text]\n", "[00002][", "[2 text]\n", "[00003][", "[3 text]\n"})
    EXPECT_EQ(support::Count(hang_, text), 200U) << text;
}

TEST_F(LogTraceTest, WritesHangLinesEvenAtLevelZero) {
  const std::string printed = Trace(0, [] {
    DUNRA_TRACE('A', 0L, -1, 1, "ordinary");
    DUNRA_TRACE('H', 0L, -1, 1, "hang %s", "50%% of %n");
  });
  EXPECT_EQ(saved_, "");
  EXPECT_TRUE(hang_.ends_with("[hang 50%% of %n]\n")) << hang_;
  EXPECT_TRUE(printed.ends_with("[hang 50% of %n]\n")) << "only the echo is expanded";
  EXPECT_FALSE(Has(printed, "ordinary"));
}

TEST_F(LogTraceTest, MakesFoldersWithTheirModes) {
  EXPECT_EQ(DunraSTTUtils::MakeFolders((folder_ / "a\\b/c").c_str()), 0);
  EXPECT_EQ(Mode(folder_ / "a/b"), 0754U);
  DunraSTTUtils::MakeFolders((folder_ / "d/e/").c_str());
  EXPECT_EQ(Mode(folder_ / "d"), 0754U);
  EXPECT_EQ(Mode(folder_ / "d/e"), 0755U);
}

TEST_F(LogTraceTest, KeepsAtMost4095BytesOfAPath) {
  DunraSTTUtils::SetPath(std::string(9000, 'p').c_str());
  EXPECT_EQ(std::strlen(DunraSTTUtils::GetPath()), 4095U);
}

}  // namespace
