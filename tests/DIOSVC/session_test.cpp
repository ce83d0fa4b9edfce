// One report to a scripted management server.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "DIOSVC/CDIOSVC.h"
#include "base/engine_records.h"
#include "support/support.h"
#include "utils/DunraSTTUtils.h"

namespace {

using std::string_literals::operator""s;

constexpr const char* OPEN_OK = "000001 C 000007 OPEN_OK";
constexpr const char* DATA_OK = "000001 C 000015 DATA_RECEIVE_OK";
constexpr size_t OPEN_FRAME = 24;
constexpr int PORT_OF_NOBODY = 1;

const void* Code(intptr_t code) {
  return reinterpret_cast<const void*>(code);
}

class SessionTest : public testing::Test {
 protected:
  void SetUp() override { testing::internal::CaptureStdout(); }
  // The result of a report to a peer, and in traced_ what was traced meanwhile.
  long Report(const std::function<void(int)>& script, int type, const void* data) {
    support::Peer peer(script);
    CDIOSVC service;
    long result = service.initialize_svc(3, "127.0.0.1", peer.Port(), 0, "", TRACE_INFO);
    if (result == 1) result = service.DIO_SVC_PROC(type, data);
    peer.Finish();
    Collect();
    return result;
  }
  void Collect() {
    traced_ = testing::internal::GetCapturedStdout();
    DunraSTTUtils::SetLogLevel(0);
    testing::internal::CaptureStdout();
  }
  void TearDown() override { testing::internal::GetCapturedStdout(); }
  bool Traced(const std::string& text) const {
    return traced_.find("[00003]") != std::string::npos && traced_.find(text) != std::string::npos;
  }
  std::string traced_;
};

TEST_F(SessionTest, DeliversEachReportType) {
  LVCSR_CHANNEL channels[] = {{1, 0}, {2, -1}};
  LVCSR_DATA_CHANNEL status{};
  status.pChannel = channels;
  status.nEntries = status.nChannelCnt = 2;
  const int32_t figures[] = {12, 40};
  const struct {
    int type;
    const void* data;
    std::string frame;
  } cases[] = {
      {1, Code(2), "C 000015 ALARM+Cpu Check" + std::string(8, '\0')},
      {2, &status, "C 000030 CH_STATE_DATA+1:0,2:4294967295"},
      {3, figures, "C 000023 RESOURCE_INFO+c:12,m:40"},
  };
  for (const auto& c : cases) {
    std::string frame;
    const auto script = [&](int fd) {
      support::Receive(fd, OPEN_FRAME);
      support::Send(fd,
                    OPEN_OK + "and more"s);  // the length says seven: the rest is the next reply's trouble
      frame = support::Receive(fd, 7 + c.frame.size()).substr(7);
    };
    const auto polite = [&](int fd) {
      support::Receive(fd, OPEN_FRAME);
      support::Send(fd, OPEN_OK);
      frame = support::Receive(fd, 7 + c.frame.size()).substr(7);
      support::Send(fd, DATA_OK);
    };
    EXPECT_EQ(Report(polite, c.type, c.data), 1);
    EXPECT_EQ(frame, c.frame);
    EXPECT_EQ(Report(script, c.type, c.data), -1);
  }
}

TEST_F(SessionTest, TracesWhatTheServerDidWrong) {
  const auto replies = [](const std::string& first, const std::string& second) {
    return [=](int fd) {
      support::Receive(fd, OPEN_FRAME);
      support::Send(fd, first);
      if (second.empty()) return;
      support::Receive(fd, 16);
      support::Send(fd, second);
    };
  };
  const struct {
    std::string open;
    std::string data;
    const char* traced;
  } cases[] = {
      {"short", "", "[ SVC_OPEN ] : Header Pack Recv Failed."},
      {"000001 C 000007 OPE", "", "[ SVC_OPEN ] : Data Pack Recv Failed(000007 )"},
      {"000001 C 999999 OPEN_OK", "", "[ SVC_OPEN ] : Data Pack Recv Failed(999999 )"},
      {"000001 C 000007 OPEN_NO", "", "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(7)"},
      {"000001 C 000000 ", "", "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(0)"},
      {"%n%s%n%s%n 00000%n%n%s%s", "", "[ SOCK_SVC ] : svc ch open fail."},
      {OPEN_OK, "bad", "[ CH_DATA ] : Header Pack Recv Failed."},
      {OPEN_OK, "000001 C 000015 DATA", "[ CH_DATA ] : Data Pack Recv Failed(000015 )"},
      {OPEN_OK, "000001 C 000014 DATA_RECEIVE_O", "[ CH_DATA ] : Data Pack Recv Failed(14)"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Report(replies(c.open, c.data), 1, Code(0)), -1);
    EXPECT_TRUE(Traced(c.traced)) << c.traced << "\n" << traced_;
    EXPECT_TRUE(Traced(c.data.empty() ? "svc ch open fail." : "svc Alam Send fail."));
  }
}

TEST_F(SessionTest, AnUnknownTypeOnlyOpens) {
  bool ended = false;
  const auto script = [&](int fd) {
    support::Receive(fd, OPEN_FRAME);
    support::Send(fd, OPEN_OK);
    ended = support::Receive(fd, 1).empty();
  };
  EXPECT_EQ(Report(script, 9, nullptr), 1);
  EXPECT_TRUE(ended);
}

TEST_F(SessionTest, ClosesAChannelWhenAsked) {
  support::Peer peer([](int fd) {
    support::Receive(fd, 21);
    support::Send(fd, "000001 C 000008 CLOSE_OK");
  });
  CDIOSVC service;
  ASSERT_EQ(service.initialize_svc(3, "127.0.0.1", peer.Port(), 0, "", TRACE_INFO), 1);
  EXPECT_EQ(service.SOCK_SVC_CLOS(), 1);
  Collect();
  EXPECT_TRUE(Traced("[ SVC_CLOSE ] : Channel Close(000021:")) << traced_;
}

TEST_F(SessionTest, TracesAConnectThatFails) {
  CDIOSVC service;
  EXPECT_EQ(service.initialize_svc(3, "no address", PORT_OF_NOBODY, 0, "", TRACE_INFO), -1);
  EXPECT_EQ(service.initialize_svc(3, "127.0.0.1", PORT_OF_NOBODY, 0, "", TRACE_INFO), -1);
  Collect();
  EXPECT_TRUE(Traced("[ SOCK_SVC ] : CONNECT SOCK FAIL(no address:1) : ")) << traced_;
  EXPECT_TRUE(Traced("[ SOCK_SVC ] : CONNECT SOCK FAIL(127.0.0.1:1) : 111"));
  EXPECT_TRUE(Traced("[ SOCK_SVC ] : initialize sock svc fail"));
}

TEST_F(SessionTest, FormatsATimeInTwoModes) {
  std::tm when{};
  when.tm_year = 126;
  when.tm_mon = 10;
  when.tm_mday = 21;
  when.tm_hour = 9;
  EXPECT_STREQ(CDIOSVC::timeToString(&when, 0), "202611\\21\\09\\");
  EXPECT_STREQ(CDIOSVC::timeToString(&when, 1), "202611/21/09");
  when.tm_year = -1900;
  EXPECT_STREQ(CDIOSVC::timeToString(&when, 2), "202611/21/09");
}

}  // namespace
