// Texts, dates and files of mails. Their round trips are the fuzz target "mail"; here is what it takes for
// granted.
#include "smtp/smtp_base64.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_date.h"
#include "smtp/smtp_file.h"
#include "smtp/smtp_fold.h"
#include "smtp/smtp_line_split.h"
#include "smtp/smtp_strings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "smtp/smtp_base64_lines.h"
#include "support/support.h"

namespace {

// The text of a result, "(null)" for none.
std::string Take(char* result) {
  const base::UniqueText owned(result);
  return owned == nullptr ? "(null)" : owned.get();
}

TEST(SmtpText, FoldsAtTheLastBlankBeforeTheLimitAndNotSooner) {
  const std::string x(74, 'x');
  const std::string y(73, 'y');
  const std::pair<std::string, std::string> cases[] = {
      {"a " + y, "a " + y},                            // 75: below the limit
      {"a " + y + " b", "a " + y + "\r\n b"},          // blank at 75: still a candidate
      {"a " + x + " b", "a\r\n " + x + "\r\n b"},      // blank at 76: the one before
      {"a \t " + x + x, "a \t\r\n " + x + x},          // the rest of a run stays on the line before
      {"  " + x + x + " c", "  " + x + x + "\r\n c"},  // leading blanks are no place to cut
  };
  for (const auto& [line, folded] : cases) EXPECT_EQ(Take(smtp_fold_whitespace(line.c_str(), 78)), folded);
}

TEST(SmtpText, WritesDatesWithWholeHoursOfZone) {
  tm moment{5, 4, 3, 2, 0, 124, 2, 0, 0, 0, nullptr};
  char date[32];
  for (const auto& [offset, zone] :
       {std::pair{0, "+0000"}, {32400, "+0900"}, {19800, "+0500"}, {-12600, "-0300"}}) {
    ASSERT_EQ(smtp_date_format(moment, offset, date), 0);
    EXPECT_EQ(date, "Tue, 02 Jan 2024 03:04:05 " + std::string(zone));
  }
  moment.tm_mon = 12;
  EXPECT_EQ(smtp_date_format(moment, 0, date), -1);
  ::setenv("TZ", "XST3:30", 1);
  ::tzset();
  ASSERT_EQ(smtp_date_rfc_2822(date), 0);
  EXPECT_STREQ(date + 26, "-0300");
}

// Also the way that this processor does not take.
TEST(SmtpText, EncodesTwoLinesInEveryWay) {
  std::array<unsigned char, smtp_base64_lines_writer::UNIT> data{};
  for (unsigned turn = 0; turn < 64; ++turn) {
    for (size_t i = 0; i < data.size(); ++i)
      data[i] = static_cast<unsigned char>((i + turn) * 37 + i * i / 7);
    const std::string encoded = Take(smtp_base64_encode(data.data(), data.size(), nullptr));
    for (auto* const twoLines : {&smtp_base64_two_lines_by_table, smtp_base64_two_lines()}) {
      std::array<char, 160> lines{};
      twoLines(data.data(), lines.data());
      EXPECT_EQ(std::string(lines.data(), lines.size()),
                encoded.substr(0, 78) + "\r\n" + encoded.substr(78) + "\r\n");
    }
  }
}

TEST(SmtpText, TakesAnySize) {
  const support::TempFolder folder;
  size_t length = 0;
  for (const size_t size : {0UL, 513UL, 59903UL, 59904UL, 59905UL, 200000UL}) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    const std::string path = folder.Write("file", data);
    const std::string lines = Take(smtp_base64_lines(data.data(), size, &length));
    EXPECT_TRUE(Take(smtp_file_base64_lines(path.c_str(), &length)) == lines) << size;
    EXPECT_EQ(length, lines.size());
    const std::string encoded = Take(smtp_base64_encode(data.data(), size, &length));
    EXPECT_TRUE(Take(smtp_chunk_split(encoded.c_str(), 78, "\r\n")) == lines) << size;
  }
  EXPECT_EQ(Take(smtp_file_base64_lines("/proc/self/status", &length)).substr(0, 4), "TmFt");  // it says 0
  EXPECT_EQ(smtp_file_base64_lines(folder.Path().c_str(), &length), nullptr);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(smtp_reallocarray(nullptr, SIZE_MAX / 2, 3), nullptr);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(Take(smtp_file_base64_lines((folder / "fifo").c_str(), &length)), "\r\n");
}

}  // namespace
