#include "smtp/smtp_text.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/owners.h"

namespace {

// The text of a result, "(null)" for none.
std::string Take(char* result) {
  const base::UniqueText owned(result);
  return owned == nullptr ? "(null)" : owned.get();
}

// Independent of the tables under test: counts the bits.
std::string Decode(const std::string& text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char c : text.substr(0, text.find('='))) {
    bits = bits << 6 | static_cast<unsigned>(alphabet.find(c));
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 255U);
  }
  return bytes;
}

std::string RandomBytes(size_t length) {
  static std::mt19937 random(20240229);
  std::string bytes(length, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

TEST(SmtpText, SizesThatDoNotFitAreSeen) {
  size_t result = 0;
  EXPECT_EQ(smtp_si_add_size_t(SIZE_MAX - 1, 1, &result), 0);
  EXPECT_EQ(result, SIZE_MAX);
  EXPECT_EQ(smtp_si_add_size_t(SIZE_MAX, 1, &result), 1);
  EXPECT_EQ(smtp_si_sub_size_t(1, 2, &result), 1);
  EXPECT_EQ(smtp_si_mul_size_t(SIZE_MAX / 2, 2, &result), 0);
  EXPECT_EQ(smtp_si_mul_size_t(SIZE_MAX / 2 + 1, 2, &result), 1);
  EXPECT_EQ(smtp_reallocarray(nullptr, SIZE_MAX / 2, 3), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

TEST(SmtpText, ReplacesLeftToRight) {
  EXPECT_EQ(Take(smtp_str_replace("\n.", "\n..", ".a\n.\n..b\r\n.")), ".a\n..\n...b\r\n..");
  EXPECT_EQ(Take(smtp_str_replace("aa", "b", "aaaaa")), "bba");
  EXPECT_EQ(Take(smtp_str_replace("a", "", "banana")), "bnn");
  EXPECT_EQ(Take(smtp_str_replace("", "x", "text")), "text");
  EXPECT_EQ(Take(smtp_str_replace("a", "x", "")), "");
}

TEST(SmtpText, Base64DecodesToWhatWasEncoded) {
  EXPECT_EQ(Take(smtp_base64_encode("foobar", SIZE_MAX)), "Zm9vYmFy");
  EXPECT_EQ(Take(smtp_base64_encode("\xff\xfe", 2)), "//4=");
  EXPECT_EQ(Take(smtp_base64_encode("", 0)), "");
  for (size_t length = 1; length < 300; ++length) {
    const std::string data = RandomBytes(length);
    size_t encoded = 0;
    const std::string text = Take(smtp_base64_encode(data.data(), length, &encoded));
    ASSERT_EQ(text.size(), (length + 2) / 3 * 4);
    ASSERT_EQ(encoded, text.size());
    ASSERT_EQ(Decode(text), data);
  }
}

TEST(SmtpText, LinesAreTheSplitOfTheEncoding) {
  EXPECT_EQ(Take(smtp_chunk_split(std::string(136, 'x').c_str(), 78, "\r\n")),
            std::string(78, 'x') + "\r\n" + std::string(58, 'x') + "\r\n");
  for (const size_t length :
       {0UL, 1UL, 57UL, 58UL, 59UL, 100UL, 116UL, 117UL, 118UL, 234UL, 59904UL, 60000UL, 200000UL}) {
    const std::string data = RandomBytes(length);
    const base::UniqueText encoded(smtp_base64_encode(data.data(), length));
    const std::string expected = Take(smtp_chunk_split(encoded.get(), 78, "\r\n"));
    size_t lines = 0;
    EXPECT_EQ(Take(smtp_base64_lines(data.data(), length, &lines)), expected) << length;
    EXPECT_EQ(lines, expected.size());
    const base::UniqueFile stream(std::tmpfile());
    std::fwrite(("skip" + data).data(), 1, length + 4, stream.get());
    std::fseek(stream.get(), 4, SEEK_SET);
    EXPECT_EQ(Take(smtp_ffile_base64_lines(stream.get(), &lines)), expected) << length;
  }
}

TEST(SmtpText, SplitsBetweenCharacters) {
  EXPECT_EQ(Take(smtp_chunk_split("abcdef", 3, "|")), "abc|def|");
  EXPECT_EQ(Take(smtp_chunk_split("abcd", 3, "|")), "abc|d|");
  EXPECT_EQ(Take(smtp_chunk_split("가나다", 4, "|")), "가나|다|");
  EXPECT_EQ(Take(smtp_chunk_split("가나다", 1, "|")), "가|나|다|");
  EXPECT_EQ(Take(smtp_chunk_split("12345678901é3456789é", 12, "|")), "12345678901é|3456789é|");
  EXPECT_EQ(Take(smtp_chunk_split("", 3, "|")), "|");
  EXPECT_EQ(Take(smtp_chunk_split("ab\xF0\x9F", 2, "|")), "ab|\xF0\x9F|");  // cut by the end
  for (const char* bad : {"\x80", "ab\xBF", "abc\xF8", "abcdefghi\xFF"}) {
    errno = 0;
    EXPECT_EQ(smtp_chunk_split(bad, 20, "|"), nullptr);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(smtp_chunk_split("abc", 0, "|"), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

std::string Fold(const std::string& line, size_t width = 78) {
  return Take(smtp_fold_whitespace(line.c_str(), width));
}
std::string X(size_t count) {
  return std::string(count, 'x');
}

TEST(SmtpText, FoldsAtTheLastBlankBeforeTheLimit) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {X(200), X(200)},
      {"a " + X(73), "a " + X(73)},                            // 75: below the limit
      {"a " + X(74), "a\r\n " + X(74)},                        // 76: at it
      {X(75) + " b", X(75) + "\r\n b"},                        // blank at 75 is the only candidate
      {X(80) + " b", X(80) + "\r\n b"},                        // a word too long is not split
      {"a " + X(73) + " b", "a " + X(73) + "\r\n b"},          // blank at 75: still a candidate
      {"a " + X(74) + " b", "a\r\n " + X(74) + "\r\n b"},      // blank at 76: the one before
      {"a " + X(72) + "   b", "a\r\n " + X(72) + "  \r\n b"},  // a run counts by its last blank, at 76
      {"a \t " + X(90), "a \t\r\n " + X(90)},                  // the rest of a run stays on the line before
      {"  " + X(90) + " c", "  " + X(90) + "\r\n c"},          // leading blanks are no place to cut
      {"Subject: " + X(90), "Subject:\r\n " + X(90)},
      {X(90) + " ", X(90) + "\r\n "},
      {std::string(100, ' '), std::string(100, ' ')},
  };
  for (const auto& [line, folded] : cases) EXPECT_EQ(Fold(line), folded) << line;
  EXPECT_EQ(Fold("a b c", 0), "a\r\n b\r\n c");
  EXPECT_EQ(Fold("aa bb cc dd", 8), "aa bb\r\n cc dd");
}

TEST(SmtpText, WritesDatesWithWholeHoursOfZone) {
  tm moment{};
  moment.tm_sec = 5;
  moment.tm_min = 4;
  moment.tm_hour = 3;
  moment.tm_mday = 2;
  moment.tm_year = 124;
  moment.tm_wday = 2;
  const std::vector<std::pair<long, std::string>> cases = {{0, "+0000"},      {9 * 3600, "+0900"},
                                                           {19800, "+0500"},  {-18000, "-0500"},
                                                           {-12600, "-0300"}, {50400, "+1400"}};
  char date[32];
  for (const auto& [offset, zone] : cases) {
    ASSERT_EQ(smtp_date_format(moment, offset, date), 0);
    EXPECT_EQ(date, "Tue, 02 Jan 2024 03:04:05 " + zone);
  }
  tm far = moment;
  far.tm_year = 10000 - 1900;
  EXPECT_EQ(smtp_date_format(far, 0, date), -1);
  far.tm_year = 124;
  far.tm_mon = 12;
  EXPECT_EQ(smtp_date_format(far, 0, date), -1);
  for (const auto& [name, zone] :
       {std::pair{"IST-5:30", "+0500"}, {"XST3:30", "-0300"}, {"KST-9", "+0900"}}) {
    ::setenv("TZ", name, 1);
    ::tzset();
    ASSERT_EQ(smtp_date_rfc_2822(date), 0);
    EXPECT_STREQ(date + 26, zone);
  }
}

TEST(SmtpText, MakesBoundariesOfTenLetters) {
  char boundary[15];
  smtp_gen_mime_boundary(boundary);
  const std::string text(boundary);
  EXPECT_EQ(text.size(), 14U);
  EXPECT_EQ(text.substr(0, 4), "mime");
  EXPECT_EQ(text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ", 4), std::string::npos);
}

TEST(SmtpText, ReadsFilesOfKnownAndUnknownSize) {
  const std::string path = testing::TempDir() + "smtp_text_test." + std::to_string(::getpid());
  size_t length = 0;
  for (const size_t size : {0UL, 1UL, 511UL, 512UL, 513UL, 100000UL}) {
    const std::string data = RandomBytes(size);
    std::ofstream(path, std::ios::binary) << data;
    const base::UniqueText read(smtp_file_get_contents(path.c_str(), &length));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::string(read.get(), length), data);
  }
  ::unlink(path.c_str());
  const base::UniqueText status(smtp_file_get_contents("/proc/self/status", &length));  // says it is empty
  EXPECT_EQ(std::string(status.get()).substr(0, 5), "Name:");
  EXPECT_EQ(smtp_file_get_contents(testing::TempDir().c_str(), &length), nullptr);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(smtp_file_base64_lines("/nonexistent", &length), nullptr);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(Take(smtp_file_base64_lines(path.c_str(), &length)), "\r\n");
  ::unlink(path.c_str());
}

}  // namespace
