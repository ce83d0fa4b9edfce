// Frames, and one report to a scripted management server.
#include <gtest/gtest.h>

#include <climits>

#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "DIOSVC/server_frames.h"
#include "support/support.h"
#include "utils/trace_log.h"

namespace {

constexpr size_t TAG = 7;  // length of a frame's first field, the number of the agent's socket
const std::string OPEN_OK = "000001 C 000007 OPEN_OK";
const std::string DATA_OK = "000001 C 000015 DATA_RECEIVE_OK";

// Receives one frame, which arrives as a whole; empty at the end of the connection.
std::string Frame(int fd) {
  char bytes[256];
  return {bytes, static_cast<size_t>(std::max<ssize_t>(0, ::recv(fd, bytes, sizeof bytes, 0)))};
}

class ReportTest : public testing::Test {
 protected:
  // Sends a report to a server that gives these two replies. Returns the result.
  long Report(const std::string& first, const std::string& second, int type, const void* data) {
    support::Conversation peer([&](int fd) {
      open_ = Frame(fd);
      support::Send(fd, first);
      data_ = second.empty() ? "" : Frame(fd);
      support::Send(fd, second);
    });
    testing::internal::CaptureStdout();
    CDIOSVC service;
    long result = service.initialize_svc(3, "127.0.0.1", peer.Port(), 0, "", TRACE_INFO);
    if (result == 1) result = service.DIO_SVC_PROC(type, data);
    peer.Finish();
    traced_ = testing::internal::GetCapturedStdout();
    DunraSTTUtils::SetLogLevel(0);
    return result;
  }
  bool Traced(const std::string& text) const {
    return traced_.find("[00003]") != std::string::npos && traced_.find(text) != std::string::npos;
  }
  std::string open_;
  std::string data_;
  std::string traced_;
};

TEST_F(ReportTest, SendsTheFramesOfEachType) {
  LVCSR_CHANNEL channels[] = {{1, 0}, {2, -1}};
  LVCSR_DATA_CHANNEL status{};
  status.pChannel = channels;
  status.nEntries = 2;
  status.nChannelCnt = 2'000'000'000;  // more than the engine has sent
  const int32_t figures[] = {12, 40};
  const auto* const cpu = reinterpret_cast<const void*>(ALARM_CPU);
  const std::tuple<int, const void*, std::string, const char*> cases[] = {
      {REPORT_ALARM, cpu, "C 000015 ALARM+Cpu Check" + std::string(8, '\0'), "svc Alam Send fail."},
      {REPORT_CHANNEL_STATUS, &status, "C 000030 CH_STATE_DATA+1:0,2:4294967295", "svc ch data send fail."},
      {REPORT_RESOURCE_USAGE, figures, "C 000023 RESOURCE_INFO+c:12,m:40", "svc ch resource send fail."}};
  for (const auto& [type, data, frame, failure] : cases) {
    EXPECT_EQ(Report(OPEN_OK, DATA_OK, type, data), 1);
    EXPECT_EQ(open_.substr(TAG), "C 000008 OPEN -e ");
    EXPECT_EQ(data_.substr(TAG), frame);
    EXPECT_EQ(Report(OPEN_OK, "no", type, data), -1);
    EXPECT_TRUE(Traced(std::string("[ SOCK_SVC ] : ") + failure)) << traced_;
  }
  status.nChannelCnt = 1;
  EXPECT_EQ(frames::ChannelList(status), "1:0");
  EXPECT_STREQ(AlarmText(-1), "");
  EXPECT_EQ(Report(OPEN_OK, DATA_OK, 9, nullptr), 1);
  EXPECT_EQ(data_, "") << "an unknown type opens the channel only";
}

TEST_F(ReportTest, TracesEachFailureOfTheServer) {
  const std::tuple<const char*, std::string, std::string, const char*> cases[] = {
      {"short header", "short", "", "[ SVC_OPEN ] : Header Pack Recv Failed."},
      {"short body", "000001 C 999999 OPEN_OK", "", "[ SVC_OPEN ] : Data Pack Recv Failed(999999 )"},
      {"other answer", "000001 C 000007 OPEN_NO", "", "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(7)"},
      {"conversions, negative length", "%n%s%n%s%-00005 ", "",
       "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(0)"},
      {"short second header", OPEN_OK, "bad", "[ CH_DATA ] : Header Pack Recv Failed."},
      {"reply too long", OPEN_OK + "and more", DATA_OK, "[ CH_DATA ] : Data Pack Recv Failed("},
      {"second answer cut", OPEN_OK, "000001 C 000014 DATA_RECEIVE_O",
       "[ CH_DATA ] : Data Pack Recv Failed(14)"}};
  for (const auto& [what, open, data, failure] : cases) {
    EXPECT_EQ(Report(open, data, REPORT_ALARM, nullptr), -1) << what;
    EXPECT_TRUE(Traced(failure)) << what << "\n" << traced_;
    EXPECT_TRUE(Traced(data.empty() ? "svc ch open fail." : "svc Alam Send fail.")) << what;
  }
}

TEST(ReportData, RefusesNegativeLengths) {
  DunraSTTUtils::SetLogLevel(TRACE_INFO);
  testing::internal::CaptureStdout();
  for (const long length : {-1L, LONG_MIN}) EXPECT_EQ(CDIOSVC().SOCK_SVC_DATA_SEND("x", length, 1), -1);
  const std::string traced = testing::internal::GetCapturedStdout();
  DunraSTTUtils::SetLogLevel(0);
  for (const char* size : {"[30]", "[31]"})
    EXPECT_EQ(support::Count(traced, std::string("malloc fail Request Size") + size + ", Error[12]"), 1U);
}

}  // namespace
