#include "Tovik/engine/engine_socket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <thread>

#include "Tovik/engine_fixture.h"
#include "base/stop.h"

namespace {

using test::Bytes;
using test::HasLine;
using test::Lines;
using test::Messages;
using test::Send;
using test::TraceOf;

struct Received {
  std::string payload;
  bool null = true;
  int status = 99;
  LVCSR_NET_HEADER header{};
};

// RecvData of a record on this socket, after which the other end has sent these bytes, and closed or not.
Received Receive(const std::string& bytes, bool close = true) {
  auto [near, far] = test::SocketPair();
  Send(far, bytes);
  if (close) far.Reset();
  LVCSR_SOCK_HEAD head{};
  head.uSock = near.Get();
  head.uRecvTimeout = 1;
  Received received;
  const base::UniqueText payload(RecvData(&head, &received.header, &received.status, 0));
  received.null = payload == nullptr;
  if (payload != nullptr)
    received.payload.assign(payload.get(), static_cast<size_t>(received.header.nLength));
  return received;
}

TEST(EngineInit, NeedsAHost) {
  LVCSR_SOCK_HEAD head{};
  EXPECT_EQ(Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT(nullptr, 1, 1, 1, &head), -1); })),
            (Lines{"ERROR [INIT] HOST Nothing"}));
  EXPECT_EQ(Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT("", 1, 1, 1, &head), -1); })),
            (Lines{"ERROR [INIT] HOST Nothing Data is Null"}));
  EXPECT_EQ(head.uSock, 0);
}

TEST(EngineInit, TracesANameThatResolvesToNothing) {
  LVCSR_SOCK_HEAD head{};
  const auto lines =
      Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT("no.such.host.invalid", 5, 1, 1, &head), -1); }));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "ERROR [INIT] HOST Connent(no.such.host.invalid:5)");
  EXPECT_TRUE(lines[1].starts_with("ERROR [INIT] getaddrinfo error: -")) << lines[1];
}

TEST(EngineInit, ConnectsAndSaysSo) {
  int port = 0;
  const base::UniqueFd listener = test::BoundSocket(true, &port);
  LVCSR_SOCK_HEAD head{};
  head.uChannel = 12;
  const auto lines =
      Messages(TraceOf([&] { ASSERT_EQ(DunraSTT_INIT("127.0.0.1", port, 0, -5, &head), ENGINE_OK); }));
  const std::string number = std::to_string(head.uSock);
  const std::string place = "127.0.0.1:" + std::to_string(port);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), "ERROR [INIT] HOST Connent(" + place + ")");
  EXPECT_EQ(lines[lines.size() - 2], "INFO [INIT] Successed(" + place + ")(" + number + ")");
  EXPECT_EQ(lines.back(), "INFO VALID_SOCKET pHEAD->uSock [ " + number + " ] uSOCK[ " + number + " ]");
  EXPECT_EQ(head.uChannel, -1);
  EXPECT_EQ(head.uConnTimeout, 1);
  EXPECT_EQ(head.uRecvTimeout, 1);
  EXPECT_EQ(::fcntl(head.uSock, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(::fcntl(head.uSock, F_GETFD), FD_CLOEXEC);
  linger set{};
  socklen_t length = sizeof set;
  ::getsockopt(head.uSock, SOL_SOCKET, SO_LINGER, &set, &length);
  EXPECT_EQ(set.l_onoff, 1);
  EXPECT_EQ(set.l_linger, 0);
  EXPECT_EQ(Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_EXIT(&head), 0); })),
            (Lines{"INFO [EXIT] Successed [ " + number + " ]"}));
  EXPECT_EQ(::fcntl(std::stoi(number), F_GETFD), -1);
}

TEST(EngineInit, TracesARefusal) {
  int port = 0;
  const base::UniqueFd closed = test::BoundSocket(false, &port);
  LVCSR_SOCK_HEAD head{};
  const auto lines =
      Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT("127.0.0.1", port, 1, 1, &head), ENGINE_FAILED); }));
  ASSERT_FALSE(lines.empty());
  const Lines either = {"ERROR [INIT] 111: getsockopt3 refuse: Connection refused",
                        "ERROR [INIT] 111: connect error: Connection refused"};
  EXPECT_NE(std::find(either.begin(), either.end(), lines.back()), either.end()) << lines.back();
  EXPECT_EQ(head.uSock, 0);
}

// A listener whose queue is full drops the attempt: the wait runs out after its second, without a message.
TEST(EngineInit, GivesUpSilentlyWhenTheWaitRunsOut) {
  int port = 0;
  base::UniqueFd listener = test::BoundSocket(false, &port);
  ASSERT_EQ(::listen(listener.Get(), 0), 0);
  LVCSR_SOCK_HEAD first{};
  ASSERT_EQ(DunraSTT_INIT("127.0.0.1", port, 1, 1, &first), ENGINE_OK);
  LVCSR_SOCK_HEAD head{};
  const auto lines = Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT("127.0.0.1", port, 1, 1, &head), -1); }));
  EXPECT_EQ(lines.size(), 1U);
  EXPECT_TRUE(HasLine(lines, "ERROR [INIT] HOST Connent("));
  DunraSTT_EXIT(&first);
}

// The stop of start-up: a signal that waits to be taken ends the connect that nobody answers.
TEST(EngineInit, PendingStopSignalCutsTheWait) {
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, &before);
  int port = 0;
  const base::UniqueFd listener = test::BoundSocket(false, &port);
  ASSERT_EQ(::listen(listener.Get(), 0), 0);
  LVCSR_SOCK_HEAD first{};
  ASSERT_EQ(DunraSTT_INIT("127.0.0.1", port, 1, 1, &first), ENGINE_OK);
  ::kill(::getpid(), SIGTERM);
  {
    const base::StopOnPendingSignal cut;
    LVCSR_SOCK_HEAD head{};
    const auto lines =
        Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT("127.0.0.1", port, 100, 1, &head), -1); }));
    EXPECT_EQ(lines.back(), "ERROR [INIT] 125: select error: Operation canceled");
  }
  const timespec none{};
  ::sigtimedwait(&set, nullptr, &none);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  DunraSTT_EXIT(&first);
}

TEST(EngineSend, SendsHeaderAndPayloadAsOnePacket) {
  const auto [near, far] = test::SocketPair();
  LVCSR_SOCK_HEAD head{};
  head.uSock = near.Get();
  LVCSR_NET_HEADER header{5, 0, 4, 9};
  EXPECT_EQ(SendData(&head, &header, "data", 0), ENGINE_OK);
  EXPECT_EQ(test::Receive(far, 20), Bytes({5, 0, 4, 9}) + "data");
  EXPECT_EQ(SendData(&head, &header, nullptr, 0), ENGINE_OK);
  EXPECT_EQ(test::Receive(far, 20), Bytes({5, 0, 4, 9, 0}));
  header.nLength = -3;
  EXPECT_EQ(SendData(&head, &header, "data", 0), ENGINE_OK);
  EXPECT_EQ(test::Receive(far, 16), Bytes({5, 0, -3, 9}));
}

TEST(EngineSend, RefusesWhatCannotBeSent) {
  LVCSR_SOCK_HEAD head{};
  const LVCSR_NET_HEADER header{5, 0, 0, 9};
  EXPECT_EQ(SendData(&head, &header, nullptr, 0), ENGINE_FAILED);  // descriptor 0
  auto [near, far] = test::SocketPair();
  head.uSock = near.Get();
  EXPECT_EQ(SendData(&head, nullptr, nullptr, 0), ENGINE_FAILED);
  far.Reset();
  EXPECT_EQ(SendData(&head, &header, nullptr, 0), ENGINE_FAILED);  // no SIGPIPE either
  head.bUseSSL = 1;
  const auto lines =
      Messages(TraceOf([&] { EXPECT_EQ(SendData(&head, &header, nullptr, 0), ENGINE_FAILED); }));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "INFO [SendData] sendData start");
  EXPECT_EQ(lines[1], "ERROR [SendData] sendData End [ -1 ]");
  EXPECT_TRUE(lines[2].starts_with("ERROR [SendData] SSL_ERROR_SSL: SSL 라이브러리에서")) << lines[2];
}

TEST(EngineReceive, TakesAPacketThatIsWhole) {
  const std::string payload(200'000, 'p');  // beyond the buffer's first size
  auto [near, far] = test::SocketPair();
  std::thread sender([&, &far = far] { Send(far, Bytes({5, 3, 200'000, 7}) + payload); });
  LVCSR_SOCK_HEAD head{};
  head.uSock = near.Get();
  head.uRecvTimeout = 5;
  LVCSR_NET_HEADER header{};
  int status = 99;
  const base::UniqueText got(RecvData(&head, &header, &status, 0));
  sender.join();
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(status, ENGINE_OK);
  EXPECT_EQ(std::string(got.get(), payload.size()), payload);
  EXPECT_EQ(header.nStatus, 3);
  EXPECT_EQ(header.nChannel, 7);
}

struct BadReply {
  const char* what;
  std::string bytes;
  int status;
};

TEST(EngineReceive, GivesTheStatedResultForEveryOtherReply) {
  for (const auto& row : {
           BadReply{"no payload", Bytes({5, 0, 0, 1}), ENGINE_OK},
           BadReply{"negative length", Bytes({5, 0, -1, 1}), ENGINE_OK},
           BadReply{"lowest length", Bytes({5, 0, INT32_MIN, 1}), ENGINE_OK},
           BadReply{"nothing", "", ENGINE_FAILED},
           BadReply{"part of a header", "0123456789", ENGINE_FAILED},
           BadReply{"payload cut short", Bytes({5, 0, 8, 1, 1}), ENGINE_FAILED},
           BadReply{"two thousand million bytes", Bytes({5, 0, 2'000'000'000, 1, 1}), ENGINE_FAILED},
       }) {
    const Received received = Receive(row.bytes);
    EXPECT_TRUE(received.null) << row.what;
    EXPECT_EQ(received.status, row.status) << row.what;
  }
}

TEST(EngineReceive, WaitsForTheFirstByteOnly) {
  std::string trace;
  trace = TraceOf([] { EXPECT_EQ(Receive("", false).status, ENGINE_TIMED_OUT); });
  EXPECT_EQ(Messages(trace), (Lines{"INFO [Recv_Wait] select", "INFO [Recv_Wait] select end[ 0 ]"}));
}

// A peer that sends 10 bytes and stops holds the read; the stop of start-up frees it.
TEST(EngineReceive, PendingStopSignalCutsAHeaderThatNeverEnds) {
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, &before);
  ::kill(::getpid(), SIGTERM);
  {
    const base::StopOnPendingSignal cut;
    EXPECT_EQ(Receive("0123456789", false).status, ENGINE_FAILED);
    EXPECT_EQ(Receive(Bytes({5, 0, 100, 1, 1}), false).status, ENGINE_FAILED);
  }
  const timespec none{};
  ::sigtimedwait(&set, nullptr, &none);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(EngineReceive, RefusesWithoutSocketOrHeader) {
  LVCSR_SOCK_HEAD head{};
  LVCSR_NET_HEADER header{};
  int status = 0;
  EXPECT_EQ(RecvData(&head, &header, &status, 0), nullptr);
  EXPECT_EQ(status, ENGINE_FAILED);
  head.uSock = 5;
  EXPECT_EQ(RecvData(&head, nullptr, &status, 0), nullptr);
  EXPECT_EQ(status, ENGINE_FAILED);
}

TEST(EngineReceive, WaitMapsItsOutcome) {
  const auto [near, far] = test::SocketPair();
  EXPECT_EQ(Recv_Wait(near.Get(), 0), ENGINE_TIMED_OUT);
  EXPECT_EQ(Recv_Wait(near.Get(), -1), ENGINE_FAILED);
  EXPECT_EQ(Recv_Wait(1'000'000, 1), ENGINE_FAILED);
  Send(far, "x");
  EXPECT_EQ(Recv_Wait(near.Get(), 1), ENGINE_OK);
  EXPECT_EQ(Messages(TraceOf([] { EXPECT_EQ(Recv_Wait(-1, 1), ENGINE_FAILED); })),
            (Lines{"INFO [Recv_Wait] Socket ID Create Failed"}));
}

TEST(EngineReceive, WorksAboveTheDescriptorsThatSelectKnows) {
  auto [near, far] = test::SocketPair();
  const base::UniqueFd high(::fcntl(near.Get(), F_DUPFD_CLOEXEC, 1'500));
  ASSERT_GE(high.Get(), 1'500);
  EXPECT_EQ(Recv_Wait(high.Get(), 0), ENGINE_TIMED_OUT);
  Send(far, "x");
  EXPECT_EQ(Recv_Wait(high.Get(), 1), ENGINE_OK);
}

}  // namespace
