#include "charset/cp949.h"

#include <gtest/gtest.h>

#include "base/unique_handles.h"
#include "charset/cp949_length.h"
#include "charset/is_utf8.h"
#include "charset/utf8_repair.h"
#include "charset/utf8_text.h"

namespace {

using namespace std::string_literals;

const std::string FAILED = "(-1)";

std::string Encode(const std::string& text) {
  char* out = nullptr;
  uint32_t length = 0;
  if (encode_UTF8(text.c_str(), static_cast<uint32_t>(text.size()), &out, &length) != 0) return FAILED;
  const base::UniqueText owned(out);
  return {out, length};
}

TEST(Encode, ConvertsEachCharacterAtEveryOffset) {
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"ASCII", "plain\r\n\x7F", "plain\r\n\x7F"},
      {"NUL", "a\0b"s, "a\0b"s},
      {"Hangul", "1\xB0\xA1\x81\x41" + "2"s, "1\xEA\xB0\x80\xEA\xB0\x82" + "2"s},
      {"the middle dot, not in UTF-8", "\xA1\xA4", "\x82\xB7"},
      {"euro and registered sign, not mapped", "\xA2\xE6\xA2\xE7", "\xC0\xA0\xC0\xA0"},
      {"a lead byte at the end", "\xB0", "\xC0\xA0"},
      {"below the first code", "\x81\x40", FAILED},
      {"Hanja after Hangul", "\xB0\xA1\xCA\xA1", FAILED},
  };
  for (const auto& [what, in, out] : cases) {
    for (std::string head; head.size() < 40; head += 'x')
      EXPECT_EQ(Encode(head + in), out == FAILED ? FAILED : head + out) << what << " behind " << head;
  }
}

TEST(Encode, ConvertsAllCodesAndDecodeReturnsTheHangul) {
  size_t failed = 0, unmapped = 0, twoBytes = 0, hangul = 0;
  for (unsigned code = 0x8000; code <= 0xFFFF; code++) {
    const std::string in = {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    const std::string out = Encode(in);
    failed += out == FAILED ? 1 : 0;
    unmapped += out == "\xC0\xA0" ? 1 : 0;
    twoBytes += out.size() == 2 ? 1 : 0;
    char back[3] = "";
    if (out.size() == 3 && decode_UTF8(out.c_str(), 3, back, sizeof back) == 2 && back == in) hangul++;
  }
  EXPECT_EQ(failed, 32768U - 18366U);
  EXPECT_EQ(unmapped, 6208U);
  EXPECT_EQ(twoBytes, 6208U + 170U);
  EXPECT_EQ(hangul, 11172U);
}

TEST(Decode, ConvertsOnlyAsciiAndSyllables) {
  char out[6];
  EXPECT_EQ(decode_UTF8("x\xC3\xA9\xEA\xB0", 5, out, sizeof out), 5);  // a two-byte character, a cut one
  EXPECT_STREQ(out, "x    ");
  EXPECT_EQ(decode_UTF8("\xED\x9E\xA4", 3, out, sizeof out), -1);  // beyond the last syllable
  EXPECT_EQ(decode_UTF8("abcdef", 6, out, sizeof out), -1);        // no room for the terminator
}

TEST(IsUtf8, JudgesEachFormAtEveryOffset) {
  const std::tuple<const char*, std::string, int> cases[] = {
      {"two bytes", "\xC3\xA9", 1},
      {"four bytes", "\xF7\xBF\xBF\xBF", 1},
      {"six bytes", "\xFD\xBF\xBF\xBF\xBF\xBF", 1},
      {"a continuation byte too many", "\xEA\xB0\x80\x80", 0},
      {"a continuation byte too few", "\xFC\x80\x80\x80\x80", 0},
      {"a continuation byte too late", "\xC3" + std::string(32, 'a') + "\xA9", 0},
      {"seven bytes", "\xFE\x80\x80\x80\x80\x80\x80", 0},
  };
  for (const auto& [what, form, result] : cases) {
    for (const std::string filler : {"a", "\xEA\xB0\x80", "\xEA\xB0\x80 ", "\xFC\x80\x80\x80\x80\x80"}) {
      for (std::string head; head.size() < 100; head += filler) {
        for (const std::string& text : {head + form, head + form + head})
          EXPECT_EQ(is_UTF8(text.c_str()), result) << what << ": " << text;
      }
    }
  }
}

TEST(Length, PrefixHoldsWholeCharactersWithinTheLimitOfUtf8) {
  const std::tuple<const char*, const char*, size_t, size_t> cases[] = {
      {"ASCII", "abc", 2, 2},
      {"a syllable too much", "\xB0\xA1\xB0\xA2", 5, 2},
      {"two syllables that fit", "\xB0\xA1\xB0\xA2", 6, 4},
      {"a two-byte sign that fits", "a\xA1\xA4z", 3, 3},
      {"a code without mapping too much", "a\x81\xFF", 2, 1},
      {"half a character", "a\xB0", 9, 1},
  };
  for (const auto& [what, text, limit, bytes] : cases)
    EXPECT_EQ(charset::Cp949PrefixWithinUtf8(text, limit).size(), bytes) << what;
  EXPECT_EQ(charset::Utf8LengthOfCp949("a\xB0\xA1\xFE\xA1"), 1U + 3U + 2U);
}

TEST(Repair, EachLineByItself) {
  const std::string bad = "\xEF\xBF\xBD";
  const std::pair<std::string, std::string> cases[] = {
      {"plain\n", "plain\n"},
      {"\xB0\xA1\n\xEA\xB0\x80\n\n\xF0\x9F\x98\x80", "\xEA\xB0\x80\n\xEA\xB0\x80\n\n\xF0\x9F\x98\x80"},
      {"\xA1\xA4\xD3\xDE\xA2\xE6", "\xC2\xB7\xE5\xA4\xA7\xE2\x82\xAC"},  // middle dot, Hanja, euro
      {"\xC7\xD1", "\xED\x95\x9C"},  // its bytes are the leads of two UTF-8 characters
      {"half \xB0", "half " + bad},
      {"\xB0\"<", bad + "\"<"},                    // a byte of ASCII is never part of what is bad
      {"\xC9\xA1\xB0\xA1", bad + "\xEA\xB0\x80"},  // user-defined
      {"\x80\xFF", bad + bad},
      {"\xEA\xB0\x80\xEA\xB0", "\xEA\xB0\x80" + bad},  // cut UTF-8
      {"\xED\xA0\x80.", bad + bad + "."},              // a surrogate
      {"a\0b\xB0\xA1"s, "a\0b\xEA\xB0\x80"s},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(charset::Repaired(in), out);
  EXPECT_EQ(charset::Repaired(std::string(5000, 'x') + "\xB0\xA1"), std::string(5000, 'x') + "\xEA\xB0\x80");
  EXPECT_EQ(charset::OneLine("\t a\r\nb\x7F\xEA\xB0\x80 ", 7), "a  b ");
}

// Every character that the other conversion writes well comes out the same; none is malformed.
TEST(Repair, SweepOfAllCodes) {
  for (unsigned code = 0x8000; code <= 0xFFFF; code++) {
    const std::string in = {'\xFF', static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    const std::string old = Encode(in.substr(1));
    const std::string text = charset::Repaired(in);
    if (old.size() == 3 && is_UTF8(old.c_str()) == 1 && (code & 0xFF) >= 0x81) {
      EXPECT_TRUE(text.ends_with(old)) << code;
    }
    EXPECT_EQ(is_UTF8(text.c_str()), 1) << code;
  }
}

}  // namespace
