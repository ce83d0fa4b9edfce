#include "Tovik/engine/engine_session.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>
#include <string>
#include <vector>

#include "Tovik/engine_fixture.h"

namespace {

using test::Send;

std::string Longs(const std::vector<int64_t>& numbers) {
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(int64_t)};
}

std::string Framed(const std::string& body) {
  char header[32];
  std::snprintf(header, sizeof header, "%06d D %10zu ", 1, body.size());
  return header + body;
}

TEST(EngineSession, ConnectsAndCloses) {
  int port = 0;
  const base::UniqueFd listener = test::BoundSocket(true, &port);
  long session = 0;
  ASSERT_EQ(Session_Create("127.0.0.1", port + 65536, &session), 0);
  const int fd = static_cast<int>(session);
  EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  timeval limit{};
  socklen_t length = sizeof limit;
  ::getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, &length);
  EXPECT_EQ(limit.tv_sec, 5);
  EXPECT_EQ(Session_Destroy(session), 0);
  EXPECT_EQ(Session_Destroy(session), -1);
}

TEST(EngineSession, SaysWhyThereIsNone) {
  int port = 0;
  const base::UniqueFd closed = test::BoundSocket(false, &port);
  long session = 0;
  EXPECT_EQ(Session_Create("127.0.0.1", port, &session), -3);
  EXPECT_EQ(Session_Create("no address", port, &session), -3);
  EXPECT_EQ(Session_Create(nullptr, port, &session), -1);
  EXPECT_EQ(session, 0);
  EXPECT_EQ(Session_Destroy(-1), 0);
  EXPECT_EQ(Session_Destroy(-2), -1);
  EXPECT_EQ(Session_Destroy(1L << 40), -1);
}

TEST(EngineSession, GivesUpAfterFiveSeconds) {
  int port = 0;
  const base::UniqueFd listener = test::BoundSocket(false, &port);
  ASSERT_EQ(::listen(listener.Get(), 0), 0);  // the second connection finds the queue full
  long first = 0;
  ASSERT_EQ(Session_Create("127.0.0.1", port, &first), 0);
  const auto start = std::chrono::steady_clock::now();
  long session = 0;
  EXPECT_EQ(Session_Create("127.0.0.1", port, &session), -3);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took.count(), 4.9);
  EXPECT_LT(took.count(), 20.0);
  EXPECT_EQ(Session_Destroy(first), 0);
}

TEST(EngineSession, WaitMapsItsOutcome) {
  const auto [near, far] = test::SocketPair();
  EXPECT_EQ(ASR_CLIENT_WAIT(near.Get(), 0), -2);
  EXPECT_EQ(ASR_CLIENT_WAIT(near.Get(), -1), -1);
  EXPECT_EQ(ASR_CLIENT_WAIT(-1, 1), -1);
  Send(far, "x");
  EXPECT_EQ(ASR_CLIENT_WAIT(near.Get(), INT64_MAX), 0);
}

struct TextCase {
  const char* what;
  std::string reply;
  int result;
  LVCSR_DATA_CHANNEL record;
};

// The answer lies ready before the question is asked; the peer sends no more.
int Query(const std::string& reply, LVCSR_DATA_CHANNEL* record) {
  auto [near, far] = test::SocketPair();
  Send(far, reply);
  ::shutdown(far.Get(), SHUT_WR);
  const int result = ASR_SVC_CHANNEL(near.Get(), record);
  char request[32];
  std::snprintf(request, sizeof request, "%06d D %10d  Q ", near.Get(), 4);
  EXPECT_EQ(test::Receive(far, 24), std::string(request, 24));
  return result;
}

TEST(EngineSession, TakesEveryTextReplyAtItsWord) {
  const std::string data = " D ASR_ACK -c ";
  const LVCSR_DATA_CHANNEL untouched{9, 9, 9, 9, 9, 0, nullptr};
  for (const auto& row : {
           TextCase{"no channel data", Framed("123ASR_ACK"), 0, untouched},
           TextCase{"other text", Framed("123ASR_NAK"), -1, untouched},
           TextCase{"too short a body", Framed("AS"), -1, untouched},
           TextCase{"no body", Framed(""), -1, untouched},
           TextCase{"negative length", "000001 D        -14 " + data, -1, untouched},
           TextCase{"no number", "000001 D ABCDEFGHIJ " + data, -1, untouched},
           TextCase{"length beyond the body", "000001 D 9999999999 " + data, -1, untouched},
           TextCase{"cut header", "000001 D", -1, untouched},
           TextCase{"nothing", "", -1, untouched},
           TextCase{"no numbers", Framed(data), 0, untouched},
           TextCase{"cut number", Framed(data + "1234567"), 0, untouched},
           TextCase{"count alone", Framed(data + Longs({4})), 0, {9, 4, 9, 9, 9, 0, nullptr}},
           TextCase{"no channels", Framed(data + Longs({0, 0})), 0, {9, 0, 0, 0, 9, 0, nullptr}},
           TextCase{
               "high half", Framed(data + Longs({0, 0x0000000300000002})), 0, {9, 0, 2, 3, 9, 0, nullptr}},
           TextCase{"negative", Framed(data + Longs({-4, -1})), 0, {9, -4, -1, -1, 9, 0, nullptr}},
       }) {
    LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
    EXPECT_EQ(Query(row.reply, &record), row.result) << row.what;
    EXPECT_EQ(std::memcmp(&record, &row.record, sizeof record), 0) << row.what;
  }
}

TEST(EngineSession, KeepsOnlyTheChannelsThatCame) {
  for (const int64_t claimed : {2L, 3L, 2'000'000'000L}) {
    LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
    const std::string reply =
        Framed(" D ASR_ACK -c " + Longs({claimed, 1, 10, 1, 0x500000014, 0}) + std::string(9, 'x'));
    EXPECT_EQ(Query(reply, &record), 0);
    EXPECT_EQ(record.nChannelCnt, claimed);
    EXPECT_EQ(record.nThreadCnt, 9);
    ASSERT_EQ(record.nEntries, 2);
    EXPECT_EQ(record.pChannel[0].id, 10);
    EXPECT_EQ(record.pChannel[0].state, 1);
    EXPECT_EQ(record.pChannel[1].id, 20);
    dataFree(record.pChannel);
  }
  dataFree(nullptr);
}

TEST(EngineSession, QueryNeedsSessionAndRecord) {
  LVCSR_DATA_CHANNEL record{};
  EXPECT_EQ(ASR_SVC_CHANNEL(-1, &record), -1);
  auto [near, far] = test::SocketPair();
  EXPECT_EQ(ASR_SVC_CHANNEL(near.Get(), nullptr), -1);
  far.Reset();
  EXPECT_EQ(ASR_SVC_CHANNEL(near.Get(), &record), -1);
}

TEST(EngineSession, AsksTheScriptedEngine) {
  const test::EnginePeer engine({"--channels", "4", "--used", "3"});
  long session = 0;
  ASSERT_EQ(Session_Create("127.0.0.1", engine.Port(), &session), 0);
  LVCSR_DATA_CHANNEL record{};
  EXPECT_EQ(ASR_SVC_CHANNEL(session, &record), 0);
  EXPECT_EQ(record.nChannelCnt, 4);
  EXPECT_EQ(record.nUsedCnt, 3);
  EXPECT_EQ(record.nEntries, 4);
  dataFree(record.pChannel);
  EXPECT_EQ(Session_Destroy(session), 0);
}

}  // namespace
