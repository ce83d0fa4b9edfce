#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/owners.h"
#include "charset/cp949.h"

namespace {

using namespace std::string_literals;

// A heap copy of exactly these bytes: the address sanitizer sees any read or write beside it.
class Exact {
 public:
  explicit Exact(const std::string& bytes) : bytes_(new char[bytes.size()]) {
    bytes.copy(bytes_.get(), bytes.size());
  }
  char* Get() { return bytes_.get(); }

 private:
  std::unique_ptr<char[]> bytes_;
};

const std::string kFailed = "(-1)";
char untouched[] = "untouched";

// The result of encoding the first len bytes of a source that has no byte more than given.
std::string Encode(const std::string& readable, uint32_t len) {
  char* out = untouched;
  uint32_t out_len = 949;
  if (encode_UTF8(Exact(readable).Get(), len, &out, &out_len) != 0) {
    EXPECT_EQ(out, untouched);
    EXPECT_EQ(out_len, 949U);
    return kFailed;
  }
  const base::UniqueText owned(out);
  EXPECT_EQ(out[out_len], '\0');
  return {out, out_len};
}
std::string Encode(const std::string& text) {
  return Encode(text, static_cast<uint32_t>(text.size()));
}

TEST(EncodeUtf8, EdgeCases) {
  const struct {
    std::string in, out;
  } cases[] = {
      {"", ""},
      {"plain\r\n\x7F", "plain\r\n\x7F"},
      {"a\0b"s, "a\0b"s},
      {"\xB0\xA1", "\xEA\xB0\x80"},
      {"\x81\x41", "\xEA\xB0\x82"},
      {"\xC8\xFE", "\xED\x9E\x9D"},
      {"\xA1\xA1", "\xE3\x80\x80"},
      {"\xA1\xA4", "\x82\xB7"},                  // the middle dot, in its own two bytes
      {"\x81\xFF", "\xC0\xA0"},                  // no mapping
      {"\xA2\xE6\xA2\xE7", "\xC0\xA0\xC0\xA0"},  // euro and registered sign came later
      {"1\xB0\xA1"
       "2",
       "1\xEA\xB0\x80"
       "2"},
      {"\x81\x40", kFailed},
      {"\xC8\xFF", kFailed},
      {"\x80\xA1", kFailed},
      {"\xC9\xA1", kFailed},
      {"\xB0\xA1\xCA\xA1", kFailed},  // a Hanja spoils the whole text
      {"\xFF\xFF", kFailed},
  };
  for (const auto& c : cases) {
    for (size_t before = 0; before < 40; before++) {
      const std::string head(before, 'x');
      EXPECT_EQ(Encode(head + c.in), c.out == kFailed ? kFailed : head + c.out) << before << c.in;
    }
  }
}

TEST(EncodeUtf8, TakesTheByteBehindALeadByteAtTheEnd) {
  for (uint32_t before = 0; before < 40; before++) {
    const std::string head(before, 'x');
    EXPECT_EQ(Encode(head + "\xB0\0"s, before + 1), head + "\xC0\xA0");
    EXPECT_EQ(Encode(head + "\x81\0"s, before + 1), kFailed);
    EXPECT_EQ(Encode(head + "\xB0\xA1", before + 1), head + "\xEA\xB0\x80");
  }
}

TEST(EncodeUtf8, RefusesLengthsWhoseDoubleIsNoSigned32BitNumber) {
  for (const uint32_t len : {0x40000000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    EXPECT_EQ(Encode("", len), kFailed);
}

[[noreturn]] void EncodeWithLittleMemory() {
  const rlimit limit = {256U << 20, 256U << 20};
  if (setrlimit(RLIMIT_AS, &limit) != 0) std::exit(2);
  std::exit(Encode("", 0x3FFFFFFF) == kFailed ? 0 : 1);
}

TEST(EncodeUtf8, FailsWithoutMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers take the address space for themselves";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(EncodeWithLittleMemory(), testing::ExitedWithCode(0), "");
}

// Every pair of a lead byte and another: how many come out in each form, and all Hangul comes back.
TEST(Codec, SweepOfAllCodes) {
  size_t failed = 0, unmapped = 0, two_bytes = 0, three_bytes = 0, hangul = 0;
  for (unsigned code = 0x8000; code <= 0xFFFF; code++) {
    const std::string in = {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    const std::string out = Encode(in);
    if (out == kFailed) {
      EXPECT_TRUE(code < 0x8141 || code > 0xC8FE) << std::hex << code;
      failed++;
    } else if (out == "\xC0\xA0") {
      unmapped++;
    } else if (out.size() == 2) {
      EXPECT_EQ(is_UTF8(out.c_str()), 0) << std::hex << code;
      two_bytes++;
    } else {
      ASSERT_EQ(out.size(), 3U) << std::hex << code;
      EXPECT_EQ(is_UTF8(out.c_str()), 1) << std::hex << code;
      three_bytes++;
      char back[3] = "";
      if (decode_UTF8(out.c_str(), 3, back, sizeof back) == 2 && back == in) hangul++;
    }
  }
  EXPECT_EQ(failed, 32768U - 18366U);
  EXPECT_EQ(unmapped, 6208U);
  EXPECT_EQ(two_bytes, 170U);
  EXPECT_EQ(three_bytes, 18366U - 6208U - 170U);
  EXPECT_EQ(hangul, 11172U);
}

TEST(Codec, SyllablesInOrderRoundTrip) {
  std::string codes, utf8;
  for (unsigned c = 0xAC00; c <= 0xD7A3; c++) {
    const uint16_t code = uni2ksc_code[c - 0xAC00];
    codes += {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    utf8 += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
             static_cast<char>(0x80 | (c & 0x3F))};
  }
  EXPECT_EQ(Encode(codes), utf8);
  std::string back(codes.size() + 1, '?');
  EXPECT_EQ(decode_UTF8(utf8.c_str(), static_cast<int32_t>(utf8.size()), back.data(),
                        static_cast<int32_t>(back.size())),
            codes.size());
  EXPECT_EQ(back, codes + '\0');
}

TEST(DecodeUtf8, EdgeCases) {
  const struct {
    std::string in;
    int32_t cap, result;
    std::string dst;  // of cap bytes, '?' where nothing is written
  } cases[] = {
      {"", 1, 0, "\0"s},
      {"", 0, -1, ""},
      {"a", 0, -1, ""},
      {"ab", 4, 2, "ab\0?"s},
      {"ab", 3, 2, "ab\0"s},
      {"ab", 2, -1, "ab"},
      {"ab", 1, -1, "a"},
      {"\xEA\xB0\x80", 3, 2, "\xB0\xA1\0"s},
      {"\xEA\xB0\x80", 2, -1, "\xB0\xA1"},
      {"\xEA\xB0\x80", 1, -1, "\xB0"},
      {"a\xEA\xB0\x80", 2, -1, "a\xB0"},
      {"\xED\x9E\xA3", 3, 2, "\xC6\x52\0"s},  // the last syllable
      {"x\xED\x9E\xA4", 4, -1, "x ??"},       // behind it
      {"x\xEA\xAF\xBF", 4, -1, "x ??"},       // before the first
      {"x\xE3\x80\x80y", 4, -1, "x ??"},      // no Hangul
      {"A\xC3\xA9", 4, 3, "A  \0"s},          // two bytes long
      {"\xF0\x9F\x98\x80", 5, 4, "    \0"s},  // four bytes long
      {"\xEA\xB0"
       "a",
       4, 3, "  a\0"s},
      {"\xEA", 2, 1, " \0"s},  // truncated
      {"\xEA\xB0", 3, 2, "  \0"s},
      {"\xEA\xB0", 2, -1, "  "},
  };
  for (const auto& c : cases) {
    Exact in(c.in + '\0');
    Exact dst(std::string(c.cap, '?'));
    EXPECT_EQ(decode_UTF8(in.Get(), static_cast<int32_t>(c.in.size()), dst.Get(), c.cap), c.result) << c.in;
    EXPECT_EQ(std::string(dst.Get(), c.cap), c.dst) << c.in;
  }
}

TEST(DecodeUtf8, ACharacterThatGoesOnBehindTheLengthIsReadToItsEnd) {
  Exact in("\xEA\xB0\x80");
  Exact dst("????");
  EXPECT_EQ(decode_UTF8(in.Get(), 1, dst.Get(), 4), 2);
  EXPECT_EQ(std::string(dst.Get(), 4), "\xB0\xA1\0?"s);
  EXPECT_EQ(decode_UTF8(in.Get(), -1, dst.Get(), 4), 0);
}

TEST(IsUtf8, EdgeCasesAtEveryPlaceInAText) {
  const struct {
    std::string text;
    int result;
  } cases[] = {
      {"", 1},
      {"a", 1},
      {"\xC3\xA9", 1},
      {"\xEA\xB0\x80", 1},
      {"\xF0\x9F\x98\x80", 1},
      {"\xF8\x80\x80\x80\x80", 1},
      {"\xFD\xBF\xBF\xBF\xBF\xBF", 1},
      {"\xC0\x80", 1},          // overlong
      {"\xED\xA0\x80", 1},      // a surrogate
      {"\xF7\xBF\xBF\xBF", 1},  // above U+10FFFF
      {"\x80", 0},
      {"\xBF", 0},
      {"\xC3\xA9\xA9", 0},
      {"\xEA\xB0\x80\x80", 0},
      {"\xC3", 0},
      {"\xE0\x80", 0},
      {"\xF0\x80\x80", 0},
      {"\xF8\x80\x80\x80", 0},
      {"\xFC\x80\x80\x80\x80", 0},
      {"\xFE\x80\x80\x80\x80\x80\x80", 0},
      {"\xFF\x80\x80\x80\x80\x80\x80\x80", 0},
      {"\xC3\xC3\xA9", 0},
      {"\xEA\xB0\xEA\xB0\x80", 0},
      {"\xE0"
       "a\x80",
       0},
  };
  for (const auto& c : cases) {
    for (const std::string filler :
         {"a", "\xEA\xB0\x80", "\xEA\xB0\x80 ", "\xC3\xA9", "\xFC\x80\x80\x80\x80\x80"}) {
      std::string head;
      for (; head.size() < 100; head += filler) {
        const std::string text = head + c.text;
        EXPECT_EQ(is_UTF8(Exact(text + '\0').Get()), c.result) << text;
        EXPECT_EQ(is_UTF8(Exact(text + head + '\0').Get()), c.result) << text;
      }
    }
  }
}

}  // namespace
