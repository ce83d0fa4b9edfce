// Texts, dates and files of mails. The fuzz target "mail" checks the round trips; these tests check the rest.
#include "smtp/smtp_base64.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_date.h"
#include "smtp/smtp_file.h"
#include "smtp/smtp_fold.h"
#include "smtp/smtp_line_split.h"
#include "smtp/smtp_strings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/support.h"

namespace {

// The text of a result, or "(null)".
std::string Text(char* result) {
  const base::UniqueText owned(result);
  return owned == nullptr ? "(null)" : owned.get();
}

TEST(SmtpText, FoldsAtTheLastBlankBeforeTheLimit) {
  const std::string x(74, 'x');
  const std::string y(73, 'y');
  const std::pair<std::string, std::string> cases[] = {
      {"a " + y, "a " + y},                            // 75 characters: below the limit
      {"a " + y + " b", "a " + y + "\r\n b"},          // a blank at 75: still before it
      {"a " + x + " b", "a\r\n " + x + "\r\n b"},      // a blank at 76: cut at the one before
      {"a \t " + x + x, "a \t\r\n " + x + x},          // other blanks of a run stay on their line
      {"  " + x + x + " c", "  " + x + x + "\r\n c"},  // no cut at leading blanks
  };
  for (const auto& [line, folded] : cases) EXPECT_EQ(Text(smtp_fold_whitespace(line.c_str(), 78)), folded);
}

TEST(SmtpText, WritesDatesWithTheZoneInWholeHours) {
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

TEST(SmtpText, EncodesFilesLikeMemoryWhateverTheSize) {
  const support::TempFolder folder;
  size_t length = 0;
  for (const size_t size : {0UL, 513UL, 59903UL, 59904UL, 59905UL, 200000UL}) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    const std::string path = folder.Write("file", data);
    const std::string lines = Text(smtp_base64_lines(data.data(), size, &length));
    EXPECT_TRUE(Text(smtp_file_base64_lines(path.c_str(), &length)) == lines) << size;
    EXPECT_EQ(length, lines.size());
    const std::string encoded = Text(smtp_base64_encode(data.data(), size, &length));
    EXPECT_TRUE(Text(smtp_chunk_split(encoded.c_str(), 78, "\r\n")) == lines) << size;
  }
}

TEST(SmtpText, EncodesSpecialFiles) {
  const support::TempFolder folder;
  size_t length = 0;
  // Its size reads 0.
  EXPECT_EQ(Text(smtp_file_base64_lines("/proc/self/status", &length)).substr(0, 4), "TmFt");
  EXPECT_EQ(smtp_file_base64_lines(folder.Path().c_str(), &length), nullptr);
  EXPECT_EQ(errno, EISDIR);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(Text(smtp_file_base64_lines((folder / "fifo").c_str(), &length)), "\r\n");
}

TEST(SmtpText, RefusesArraysThatOverflow) {
  EXPECT_EQ(smtp_reallocarray(nullptr, SIZE_MAX / 2 + 2, 2), nullptr) << "2 bytes when it wraps around";
}

}  // namespace
