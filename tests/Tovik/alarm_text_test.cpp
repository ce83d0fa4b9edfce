#include "Tovik/alarms/alarm_text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/webhook.h"

namespace {

using alarms::AlarmText;

TEST(ReplaceAll, ReplacesFromLeftToRight) {
  const struct {
    const char *text, *from, *to, *result;
  } cases[] = {
      {"aaa", "aa", "b", "ba"},
      {"", "a", "b", ""},
      {"a\nb\n", "\n", "<br />", "a<br />b<br />"},
      {"abc", "abc", "", ""},
      {"abcabc", "b", "xx", "axxcaxxc"},
      {"same", "am", "ma", "smae"},
      {"none", "zz", "y", "none"},
      {"ab", "abc", "x", "ab"},
      {"aXa", "a", "aa", "aaXaa"},
  };
  for (const auto& entry : cases) {
    std::string text = entry.text;
    const base::UniqueText result(replaceAll(text.data(), entry.from, entry.to));
    EXPECT_STREQ(result.get(), entry.result) << entry.text;
    EXPECT_NE(result.get(), text.data());
  }
  char text[] = "kept";
  EXPECT_EQ(replaceAll(text, "", "x"), text);
}

TEST(AlarmText, PrefixEndsAtACharacter) {
  const struct {
    std::string text;
    size_t limit;
    size_t bytes;
  } cases[] = {
      {"abc", 2, 2},
      {"abc", 9, 3},
      {"", 0, 0},
      {"\xB0\xA1\xB0\xA2", 2, 0},  // three bytes each
      {"\xB0\xA1\xB0\xA2", 3, 2},
      {"\xB0\xA1\xB0\xA2", 5, 2},
      {"\xB0\xA1\xB0\xA2", 6, 4},
      {"a\xA1\xA4z", 3, 3},  // two bytes
      {"a\x81\xFF", 2, 1},   // no mapping: two bytes
      {"a\xB0", 9, 1},       // half a character
      {"\x80\x80z", 9, 3},   // does not convert, whatever its length
  };
  for (const auto& entry : cases) {
    EXPECT_EQ(alarms::PrefixWithin(entry.text, entry.limit).size(), entry.bytes) << entry.text;
  }
}

std::string Brackets(const AlarmText& alarm) {
  return alarm.title + "[" + alarm.label + alarm.title + "|" + alarm.message + "]";
}

TEST(AlarmText, CutsTheMessageAndKeepsTheLayout) {
  std::string korean;
  for (int i = 0; i < 300'000; ++i) korean += "\xB0\xA1";
  for (const std::string& title : {std::string("t"), std::string("tt"), std::string("ttt"), korean}) {
    const std::string filled = alarms::FillLayout({title, korean, korean, "", ""}, Brackets);
    const char* reason = "";
    const base::UniqueText body = alarms::ConvertBody(filled, &reason);
    ASSERT_NE(body, nullptr) << reason;
    const size_t length = std::strlen(body.get());
    EXPECT_LE(length, alarms::BODY_LIMIT);
    EXPECT_GT(length, alarms::BODY_LIMIT - 3);
    EXPECT_EQ(std::string(body.get()).substr(length - 4), "\xEA\xB0\x80]");
  }
}

TEST(AlarmText, FillsTheBodyToTheLastByte) {
  for (const size_t size : {alarms::BODY_LIMIT - 3, alarms::BODY_LIMIT - 2}) {
    const std::string filled = alarms::FillLayout({"", "", std::string(size, 'x'), "", ""}, Brackets);
    EXPECT_EQ(filled, "[|" + std::string(alarms::BODY_LIMIT - 3, 'x') + "]") << size;
  }
}

TEST(AlarmText, ConvertsAsOneText) {
  const char* reason = "";
  EXPECT_STREQ(alarms::ConvertBody("\xB0\xA1\n\n\xB0\xA2\n", &reason).get(),
               "\xEA\xB0\x80<br /><br />\xEA\xB0\x81<br />");
  // A title that ends within a character takes the byte behind it.
  EXPECT_STREQ(alarms::ConvertBody("\xB0</b>", &reason).get(), "\xC0\xA0/b>");
  for (const char* text : {"\xCA\xA1", "a\x80z", "\xFF"}) {
    EXPECT_EQ(alarms::ConvertBody(text, &reason), nullptr);
    EXPECT_STREQ(reason, "its text does not convert to UTF-8");
  }
}

TEST(AlarmText, DateIsLocalTime) {
  setenv("TZ", "KST-9", 1);
  tzset();
  EXPECT_EQ(alarms::DateText(1'772'982'301), "2026/03/09 00:05:01");
  unsetenv("TZ");
  tzset();
}

TEST(AlarmPictures, ArePngOfAboutTheLengthsThatTheServicesTake) {
  const struct {
    uint32_t kind;
    double mail, webhook;
  } cases[] = {{1, 998, 7554}, {2, 854, 6846}, {3, 1022, 7274}, {4, 938, 7106}};
  for (const auto& entry : cases) {
    const std::string mail = alarms::PictureOf(entry.kind, &alarms::AlarmPictures::mail);
    const std::string webhook = alarms::PictureOf(entry.kind, &alarms::AlarmPictures::webhook);
    EXPECT_NEAR(static_cast<double>(mail.size()), entry.mail, entry.mail / 10);
    EXPECT_NEAR(static_cast<double>(webhook.size()), entry.webhook, entry.webhook / 10);
    for (const std::string& text : {mail, webhook}) {
      EXPECT_TRUE(text.starts_with("data:image/png;base64,iVBORw0KGgo")) << entry.kind;
    }
  }
  for (const uint32_t kind : {0U, 5U, 0xFFFFFFFFU}) {
    EXPECT_STREQ(alarms::PictureOf(kind, &alarms::AlarmPictures::mail), "");
    EXPECT_STREQ(alarms::PictureOf(kind, &alarms::AlarmPictures::webhook), "");
  }
}

}  // namespace
