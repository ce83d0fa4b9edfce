#include "DIOSVC/frames.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using std::string_literals::operator""s;

TEST(FramesTest, AreByteExact) {
  EXPECT_EQ(frames::OpenFrame(7), "000007 C 000008 OPEN -e ");
  EXPECT_EQ(frames::CloseFrame(7), "000007 C 000005 CLOSE");
  EXPECT_EQ(frames::DataFrame(7, 1, "Tovik Start"),
            "000007 C 000017 ALARM+Tovik Start"s + std::string(8, '\0'));
  EXPECT_EQ(frames::DataFrame(7, 1, ""), "000007 C 000006 ALARM+"s + std::string(8, '\0'));
  EXPECT_EQ(frames::DataFrame(7, 2, ""), "000007 C 000014 CH_STATE_DATA+");
  EXPECT_EQ(frames::DataFrame(7, 3, "c:12,m:40"), "000007 C 000023 RESOURCE_INFO+c:12,m:40");
}

TEST(FramesTest, BodyLengthIsWhatTheDigitsSay) {
  const struct {
    const char* header;
    int length;
  } cases[] = {{"000000 C 000015 ", 15}, {"xxxxxxxxx999999x", 999999}, {"000000 C abcdef ", 0},
               {"000000 C     7  ", 7},  {"000000 C -00005 ", 0},      {"000000 C 12x456 ", 12}};
  for (const auto& c : cases) EXPECT_EQ(frames::BodyLength(c.header), c.length) << c.header;
}

TEST(FramesTest, AlarmTextsByCode) {
  const char* texts[] = {
      "Tovik Start", "Memory Check", "Cpu Check", "DunraSTT Check", "", "", "Work Channel Check", ""};
  for (int code = 0; code < 8; ++code) EXPECT_STREQ(frames::AlarmText(code), texts[code]);
  EXPECT_STREQ(frames::AlarmText(-1), "");
}

TEST(FramesTest, ListsNoMoreChannelsThanThereAre) {
  LVCSR_CHANNEL channels[] = {{1, 0}, {2, -1}};
  LVCSR_DATA_CHANNEL status{};
  status.pChannel = channels;
  status.nEntries = 2;
  for (const int32_t claimed : {2, 2'000'000'000}) {
    status.nChannelCnt = claimed;
    EXPECT_EQ(frames::ChannelList(status), "1:0,2:4294967295");
  }
  status.nChannelCnt = -5;
  EXPECT_EQ(frames::ChannelList(status), "");
}

}  // namespace
