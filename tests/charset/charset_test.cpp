#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "base/owners.h"
#include "charset/cp949.h"
#include "charset/cp949_length.h"
#include "charset/repair.h"

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

TEST(Encode, TextsAtEveryPlaceInALongerOne) {
  const struct {
    std::string in, out;
  } cases[] = {
      {"plain\r\n\x7F", "plain\r\n\x7F"},
      {"a\0b"s, "a\0b"s},
      {"1\xB0\xA1\x81\x41" + "2"s, "1\xEA\xB0\x80\xEA\xB0\x82" + "2"s},
      {"\xA1\xA4", "\x82\xB7"},                  // the middle dot, in its own two bytes
      {"\xA2\xE6\xA2\xE7", "\xC0\xA0\xC0\xA0"},  // euro and registered sign came later
      {"\xB0", "\xC0\xA0"},                      // a lead byte at the end, with the terminator
      {"\x81\x40", FAILED},
      {"\xB0\xA1\xCA\xA1", FAILED},  // a Hanja spoils the whole text
  };
  for (const auto& c : cases) {
    for (size_t before = 0; before < 40; before++) {
      const std::string head(before, 'x');
      EXPECT_EQ(Encode(head + c.in), c.out == FAILED ? FAILED : head + c.out) << before << c.in;
    }
  }
}

// Every pair of a lead byte and another: how many come out in each form, and all Hangul comes back.
TEST(Codec, SweepOfAllCodes) {
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

TEST(Decode, KnowsSyllablesOnly) {
  char out[6];
  EXPECT_EQ(decode_UTF8("x\xC3\xA9\xEA\xB0", 5, out, sizeof out), 5);  // two bytes long, or cut off
  EXPECT_STREQ(out, "x    ");
  EXPECT_EQ(decode_UTF8("\xED\x9E\xA4", 3, out, sizeof out), -1);  // behind the last one
}

TEST(IsUtf8, FormsAtEveryPlaceInAText) {
  const struct {
    std::string text;
    int result;
  } cases[] = {
      {"\xC3\xA9", 1},
      {"\xEA\xB0\x80", 1},
      {"\xF7\xBF\xBF\xBF", 1},
      {"\xFD\xBF\xBF\xBF\xBF\xBF", 1},
      {"\x80", 0},
      {"\xEA\xB0\x80\x80", 0},
      {"\xFC\x80\x80\x80\x80", 0},
      {"\xC3" + std::string(32, 'a') + "\xA9", 0},
      {"\xFE\x80\x80\x80\x80\x80\x80", 0},
  };
  for (const auto& c : cases) {
    for (const std::string filler : {"a", "\xEA\xB0\x80", "\xEA\xB0\x80 ", "\xFC\x80\x80\x80\x80\x80"}) {
      for (std::string head; head.size() < 100; head += filler) {
        EXPECT_EQ(is_UTF8((head + c.text).c_str()), c.result) << head << c.text;
        EXPECT_EQ(is_UTF8((head + c.text + head).c_str()), c.result) << head << c.text;
      }
    }
  }
}

// The limit is of UTF-8: three bytes for Hangul, two for what has no mapping and for half a character.
TEST(Length, PrefixEndsAtACharacter) {
  const std::tuple<const char*, size_t, size_t> cases[] = {
      {"abc", 2, 2},        {"abc", 9, 3},      {"\xB0\xA1\xB0\xA2", 5, 2}, {"\xB0\xA1\xB0\xA2", 6, 4},
      {"a\xA1\xA4z", 3, 3}, {"a\x81\xFF", 2, 1}};
  for (const auto& [text, limit, bytes] : cases)
    EXPECT_EQ(charset::PrefixWithinUtf8(text, limit).size(), bytes) << text;
}

TEST(Repair, EachLineByItself) {
  const std::string bad = "\xEF\xBF\xBD";
  const struct {
    std::string in, out;
  } cases[] = {
      {"", ""},
      {"plain\n", "plain\n"},
      {"\xB0\xA1\n\xEA\xB0\x80\n\n\xF0\x9F\x98\x80", "\xEA\xB0\x80\n\xEA\xB0\x80\n\n\xF0\x9F\x98\x80"},
      {"\xA1\xA4\xD3\xDE\xA2\xE6", "\xC2\xB7\xE5\xA4\xA7\xE2\x82\xAC"},  // middle dot, Hanja, euro
      {"half \xB0", "half " + bad},
      {"\xB0\"<", bad + "\"<"},                    // a byte of ASCII is never part of what is bad
      {"\xC9\xA1\xB0\xA1", bad + "\xEA\xB0\x80"},  // user-defined
      {"\x80\xFF", bad + bad},
      {"\xEA\xB0\x80\xEA\xB0", "\xEA\xB0\x80" + bad},  // cut UTF-8
      {"\xED\xA0\x80.", bad + bad + "."},              // a surrogate
      {"a\0b\xB0\xA1"s, "a\0b\xEA\xB0\x80"s},
  };
  for (const auto& c : cases) EXPECT_EQ(charset::Repaired(c.in), c.out);
  EXPECT_EQ(charset::Repaired(std::string(5000, 'x') + "\xB0\xA1"), std::string(5000, 'x') + "\xEA\xB0\x80");
  EXPECT_EQ(charset::OneLine("\t a\r\nb\x7F\xEA\xB0\x80 ", 7), "a  b ");
}

// Every character that the other conversion writes well comes out the same; none is malformed.
TEST(Repair, SweepOfAllCodes) {
  for (unsigned code = 0x8000; code <= 0xFFFF; code++) {
    const std::string in = {'\xFF', static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    const std::string old = Encode(in.substr(1));
    const std::string text = charset::Repaired(in);
    if (old.size() == 3 && old != FAILED && is_UTF8(old.c_str()) == 1 && (code & 0xFF) >= 0x81) {
      EXPECT_TRUE(text.ends_with(old)) << code;
    }
    for (std::string_view out = text; !out.empty();) {
      const size_t length = charset::Utf8Character(out);
      ASSERT_NE(length, 0U) << code;
      out.remove_prefix(length);
    }
  }
}

}  // namespace
