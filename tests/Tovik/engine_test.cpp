// The engine's protocol: connection, packets, channel status, probe and TLS. The fuzz target "engine" has the
// replies' details.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Tovik/alarm_sink.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_session.h"
#include "Tovik/engine/engine_socket.h"
#include "Tovik/engine_fixture.h"
#include "base/descriptors.h"
#include "tls/certificates.h"
#include "tls/tls_socket.h"

namespace {

using support::Receive;
using support::Send;
using test::Bytes;
using test::Lines;
using test::Messages;
using test::TraceOf;

std::string Packet(int status, const std::vector<int32_t>& payload) {
  return Bytes({5, status, static_cast<int32_t>(payload.size() * 4), 7}) + Bytes(payload);
}

std::vector<int32_t> Counts(const LVCSR_DATA_CHANNEL& r) {
  return {r.nThreadCnt, r.nChannelCnt, r.nUsedCnt, r.nWaitCnt, r.nIdleCnt, r.nEntries};
}

const std::vector<int32_t> TWO = {2, 2, 1, 0, 1, 100, 1, 101, 0};
const std::vector<int32_t> TWO_COUNTS = {2, 2, 1, 0, 1, 2};
const std::vector<int32_t> UNTOUCHED = {9, 9, 9, 9, 9, 0};
const std::vector<int32_t> ZEROS(6, 0);

TEST(EngineConnection, ConnectsAndSaysSo) {
  int port = 0;
  const base::UniqueFd listener = test::BoundSocket(8, &port);
  LVCSR_SOCK_HEAD head{};
  head.uChannel = 12;
  const Lines lines =
      Messages(TraceOf([&] { ASSERT_EQ(DunraSTT_INIT("127.0.0.1", port, 0, -5, &head), ENGINE_OK); }));
  const std::string number = std::to_string(head.uSock);
  const std::string place = "(127.0.0.1:" + std::to_string(port) + ")";
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines.front(), "ERROR [INIT] HOST Connent" + place);
  EXPECT_EQ(lines[lines.size() - 2], "INFO [INIT] Successed" + place + "(" + number + ")");
  EXPECT_EQ(lines.back(), "INFO VALID_SOCKET pHEAD->uSock [ " + number + " ] uSOCK[ " + number + " ]");
  EXPECT_TRUE(head.uChannel == -1 && head.uConnTimeout == 1 && head.uRecvTimeout == 1);
  EXPECT_EQ(::fcntl(head.uSock, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(::fcntl(head.uSock, F_GETFD), FD_CLOEXEC);
  linger set{};
  socklen_t length = sizeof set;
  ::getsockopt(head.uSock, SOL_SOCKET, SO_LINGER, &set, &length);
  EXPECT_TRUE(set.l_onoff == 1 && set.l_linger == 0);
  EXPECT_EQ(Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_EXIT(&head), 0); })),
            (Lines{"INFO [EXIT] Successed [ " + number + " ]"}));
  EXPECT_EQ(::fcntl(std::stoi(number), F_GETFD), -1);
}

// A listener whose queue is full drops the attempt: the wait runs out without a message.
TEST(EngineConnection, SaysWhyThereIsNone) {
  int refusing = 0;
  int full = 0;
  const base::UniqueFd closed = test::BoundSocket(-1, &refusing);
  const base::UniqueFd listener = test::BoundSocket(0, &full);
  long first = 0;
  ASSERT_EQ(Session_Create("127.0.0.1", full, &first), 0);
  const struct {
    const char* host;
    int port;
    const char* last;  // trace line's start
  } cases[] = {{nullptr, 1, "ERROR [INIT] HOST Nothing"},
               {"", 1, "ERROR [INIT] HOST Nothing Data is Null"},
               {"no.such.host.invalid", 5, "ERROR [INIT] getaddrinfo error: -"},
               {"127.0.0.1", refusing, "ERROR [INIT] 111: "},
               {"127.0.0.1", full, "ERROR [INIT] HOST Connent("}};
  for (const auto& c : cases) {
    LVCSR_SOCK_HEAD head{};
    const Lines lines = Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_INIT(c.host, c.port, 1, 1, &head), -1); }));
    ASSERT_FALSE(lines.empty()) << c.last;
    EXPECT_TRUE(lines.back().starts_with(c.last)) << lines.back();
    EXPECT_EQ(head.uSock, 0);
  }
  const auto start = std::chrono::steady_clock::now();
  long session = 0;
  EXPECT_EQ(Session_Create("127.0.0.1", full, &session), -3);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
  EXPECT_EQ(Session_Create("127.0.0.1", refusing, &session), -3);
  EXPECT_EQ(Session_Create("no address", refusing, &session), -3);
  EXPECT_EQ(Session_Create(nullptr, refusing, &session), -1);
  EXPECT_EQ(session, 0);
  const std::pair<long, int> destroyed[] = {{first, 0}, {first, -1}, {-1, 0}, {-2, -1}, {1L << 40, -1}};
  for (const auto& [number, result] : destroyed) EXPECT_EQ(Session_Destroy(number), result) << number;
}

// Failed probes and queries close descriptor 0, which must never become free for somebody else's file.
TEST(EngineConnection, LeavesTheNullDeviceOnStandardInput) {
  const auto null_device = [] {
    struct stat given {};
    struct stat null {};
    return ::fstat(0, &given) == 0 && ::stat("/dev/null", &null) == 0 && given.st_rdev == null.st_rdev;
  };
  auto [near, far] = test::SocketPair();
  ASSERT_EQ(::dup2(near.Get(), 0), 0);
  near.Reset();
  EXPECT_EQ(Session_Destroy(0), 0);
  EXPECT_TRUE(null_device());
  EXPECT_EQ(Receive(far.Get(), 1), "");  // what was there is closed
  LVCSR_SOCK_HEAD head{};
  ::close(0);
  EXPECT_EQ(DunraSTT_EXIT(&head), 0);
  EXPECT_TRUE(null_device());
  EXPECT_EQ(::fcntl(0, F_GETFD), 0);
}

TEST(EnginePacket, IsSentWhole) {
  auto [near, far] = test::SocketPair();
  LVCSR_SOCK_HEAD head{};
  const auto send = [&](int32_t length, const char* data) {
    const LVCSR_NET_HEADER header{5, 0, length, 9};
    return SendData(&head, &header, data, 0);
  };
  EXPECT_EQ(send(0, nullptr), ENGINE_FAILED);  // descriptor 0
  head.uSock = near.Get();
  EXPECT_EQ(SendData(&head, nullptr, nullptr, 0), ENGINE_FAILED);
  EXPECT_EQ(send(4, "data"), ENGINE_OK);
  EXPECT_EQ(send(4, nullptr), ENGINE_OK);
  EXPECT_EQ(send(-3, "data"), ENGINE_OK);
  EXPECT_EQ(Receive(far.Get(), 56),
            Bytes({5, 0, 4, 9}) + "data" + Bytes({5, 0, 4, 9, 0}) + Bytes({5, 0, -3, 9}));
  far.Reset();
  EXPECT_EQ(send(0, nullptr), ENGINE_FAILED);  // no SIGPIPE either
  head.bUseSSL = 1;
  const Lines lines = Messages(TraceOf([&] { EXPECT_EQ(send(0, nullptr), ENGINE_FAILED); }));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1], "ERROR [SendData] sendData End [ -1 ]");
  EXPECT_TRUE(lines[2].starts_with("ERROR [SendData] SSL_ERROR_SSL: SSL 라이브러리에서")) << lines[2];
}

TEST(EnginePacket, IsReceivedBeyondTheFirstBufferAndHighDescriptors) {
  auto [near, far] = test::SocketPair();
  const std::string payload(200'000, 'p');
  std::thread sender([&, fd = far.Get()] { Send(fd, Bytes({5, 3, 200'000, 7}) + payload); });
  const base::UniqueFd high(::fcntl(near.Get(), F_DUPFD_CLOEXEC, 1'500));
  LVCSR_SOCK_HEAD head{};
  head.uSock = high.Get();
  head.uRecvTimeout = 5;
  LVCSR_NET_HEADER header{};
  int status = 99;
  const base::UniqueText got(RecvData(&head, &header, &status, 0));
  sender.join();
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(std::string(got.get(), payload.size()), payload);
}

TEST(EngineChannel, TakesEveryReplyForAClaim) {
  const struct {
    const char* what;
    std::string reply;
    int result;
    std::vector<int32_t> counts;
    int channel;  // of the connection afterwards
  } cases[] = {
      {"whole", Packet(0, TWO), 0, TWO_COUNTS, 7},
      {"other status", Packet(1, TWO), 0, TWO_COUNTS, 7},
      {"status 2", Packet(2, TWO), -1, TWO_COUNTS, -1},
      {"status 3", Packet(3, TWO), -1, TWO_COUNTS, -1},
      {"status 4", Packet(4, TWO), -3, TWO_COUNTS, -1},
      {"no payload", Packet(0, {}), 0, UNTOUCHED, 7},
      {"three counts", Packet(0, {4, 5, 6}), 0, {4, 5, 6, 0, 0, 0}, 7},
      {"half an entry", Packet(0, {3, 3, 1, 0, 2, 1, 1, 2}), 0, {3, 3, 1, 0, 2, 1}, 7},
      {"fewer than claimed", Packet(0, {INT32_MAX, 9, 1, 0, 1, 1, 1}), 0, {INT32_MAX, 9, 1, 0, 1, 1}, 7},
      {"more than claimed", Packet(0, {1, 1, 0, 0, 0, 1, 1, 2, 2}), 0, {1, 1, 0, 0, 0, 1}, 7},
      {"below zero", Packet(0, {-1, -1, -1, -1, -1, 1, 1}), 0, {-1, -1, -1, -1, -1, 0}, 7},
      {"two thousand million bytes", Bytes({5, 0, 2'000'000'000, 7, 1}), -1, UNTOUCHED, -1},
      {"nothing", "", -1, UNTOUCHED, -1},
  };
  for (const auto& c : cases) {
    auto [near, far] = test::SocketPair();
    Send(far.Get(), c.reply);
    ::shutdown(far.Get(), SHUT_WR);
    LVCSR_SOCK_HEAD head{};
    head.uSock = near.Get();
    head.uChannel = 3;
    LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
    EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), c.result) << c.what;
    EXPECT_EQ(Receive(far.Get(), 16), Bytes({5, 0, 0, 3}));
    EXPECT_EQ(Counts(record), c.counts) << c.what;
    EXPECT_EQ(head.uChannel, c.channel) << c.what;
    dataFree(record.pChannel);
  }
}

TEST(EngineChannel, NeedsAConnectionThatAnswers) {
  auto [near, far] = test::SocketPair();
  auto [other_near, gone] = test::SocketPair();
  gone.Reset();
  const struct {
    int socket, result;
    Lines traced;
  } cases[] = {{0, -1, {"ERROR [CHANNEL] Socket ID Create Failed"}},
               {other_near.Get(), -1, {"ERROR [CHANNEL] SendData packets Failed[0]"}},
               {near.Get(), -2, {"INFO [Recv_Wait] select", "INFO [Recv_Wait] select end[ 0 ]"}}};
  for (const auto& c : cases) {
    LVCSR_SOCK_HEAD head{};
    LVCSR_DATA_CHANNEL record{};
    head.uSock = c.socket;
    head.uRecvTimeout = 1;
    EXPECT_EQ(Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), c.result); })),
              c.traced);
  }
}

class EngineStatus : public testing::Test {
 protected:
  void TearDown() override { SHM_CLOS(); }
  // One query of an engine that gives this answer and closes; what readers see meanwhile goes to seen_.
  void Query(const std::string& answer) {
    const support::Peer engine([&](int fd) {
      EXPECT_EQ(Receive(fd, 16), Bytes({5, 0, 0, -1}));
      seen_ = Counts(*CurrentChannelStatus());
      Send(fd, answer);
    });
    m_PROC_PORT = engine.Port();
    EXPECT_EQ(SHM_OPEN(), 1);
  }
  std::vector<int32_t> seen_;
};

TEST_F(EngineStatus, IsTracedAndPrinted) {
  const Lines lines = Messages(TraceOf([&] { Query(Packet(0, TWO)); }));
  ASSERT_GT(lines.size(), 6U);
  EXPECT_EQ(std::vector(lines.end() - 6, lines.end() - 2),
            (Lines{"INFO [Recv_Wait] select", "INFO [Recv_Wait] select end[ 1 ]",
                   "ERROR [CHANNEL] RecvData packets Check[0] Stat[0] Len[36]",
                   "INFO Thread Count [ 2 ], Channel Count [ 2 ], Used Count [ 1 ], Wait Count [ 0 ], "
                   "Idle Count [ 1 ]"}));
  EXPECT_EQ(lines.back(), "INFO Shared memory");
  EXPECT_EQ(Messages(TraceOf([] { EXPECT_EQ(get_recg_svr_wrk_ch_cnt(), 50); })),
            (Lines{"INFO ch_status_check TotalCh cnt [ 2 ] MaxCh cnt [ 1 ] Percent [ 50 ]",
                   "INFO recog_channel_status CHID [100], STAT[1]",
                   "INFO recog_channel_status CHID [101], STAT[0]"}));
  EXPECT_EQ(TraceOf([] { EXPECT_EQ(ch_status_check(), 2); }),
            "ch_status_check TotalCh cnt [ 2 ] !!CHID [ 100 ], STATUS [ 1 ]CHID [ 101 ], STATUS [ 0 ]");
}

TEST_F(EngineStatus, GivesTheShareInUse) {
  const struct {
    int32_t channels, used;
    int64_t percent;
  } cases[] = {{8, 2, 25},
               {3, 2, 66},
               {0, 0, INT64_MIN},
               {0, 5, INT64_MIN},
               {100, 29, 29},
               {-4, 1, -25},
               {1, INT32_MAX, 214'748'364'800}};
  for (const auto& c : cases) {
    Query(Packet(0, {1, c.channels, c.used, 0, 0, 1, 1}));
    EXPECT_EQ(get_recg_svr_wrk_ch_cnt(), c.percent) << c.used << "/" << c.channels;
  }
}

// Readers see the old answer, zeros while the query is under way, then the new one; who is in the middle of
// an array keeps it, and an engine that is away leaves it.
TEST_F(EngineStatus, IsHandedOverWhole) {
  Query(Packet(0, TWO));
  const auto kept = CurrentChannelStatus();
  Query(Packet(4, TWO));  // the counts came, whatever the engine's status says
  EXPECT_EQ(seen_, ZEROS);
  EXPECT_EQ(Counts(*CurrentChannelStatus()), TWO_COUNTS);
  int port = 0;
  const base::UniqueFd closed = test::BoundSocket(-1, &port);
  m_PROC_PORT = port;
  const Lines lines = Messages(TraceOf([] { EXPECT_EQ(SHM_OPEN(), -1); }));
  EXPECT_EQ(lines[lines.size() - 2], "ERROR [ " + std::to_string(port) + " ] disconnect");
  EXPECT_EQ(lines.back(), "INFO [EXIT] Successed [ 0 ]");
  EXPECT_EQ(Counts(*CurrentChannelStatus()), TWO_COUNTS);
  Query(Packet(0, {}));
  EXPECT_EQ(Counts(*CurrentChannelStatus()), ZEROS);
  EXPECT_EQ(kept->pChannel[1].id, 101);
}

TEST(EngineSession, TakesEveryTextReplyAtItsWord) {
  const auto framed = [](const std::string& body) {
    char header[32];
    std::snprintf(header, sizeof header, "%06d D %10zu ", 1, body.size());
    return header + body;
  };
  const std::string data = " D ASR_ACK -c ";
  const auto longs = [&](const std::vector<int64_t>& numbers) { return data + Bytes(numbers); };
  const struct {
    const char* what;
    std::string reply;
    int result;
    std::vector<int32_t> counts;
  } cases[] = {
      {"no channel data", framed("123ASR_ACK"), 0, UNTOUCHED},
      {"other text", framed("123ASR_NAK"), -1, UNTOUCHED},
      {"too short a body", framed("AS"), -1, UNTOUCHED},
      {"negative length", "000001 D        -14 " + data, -1, UNTOUCHED},
      {"length beyond the body", "000001 D 9999999999 " + data, -1, UNTOUCHED},
      {"cut header", "000001 D", -1, UNTOUCHED},
      {"cut number", framed(data + "1234567"), 0, UNTOUCHED},
      {"count alone", framed(longs({4})), 0, {9, 4, 9, 9, 9, 0}},
      {"high half", framed(longs({0, 0x0000000300000002})), 0, {9, 0, 2, 3, 9, 0}},
      {"negative", framed(longs({-4, -1})), 0, {9, -4, -1, -1, 9, 0}},
      {"fewer than claimed",
       framed(longs({2'000'000'000, 1, 10, 1, 0x500000014, 0, 7})),
       0,
       {9, 2'000'000'000, 1, 0, 9, 2}},
  };
  for (const auto& c : cases) {
    auto [near, far] = test::SocketPair();
    Send(far.Get(), c.reply);
    ::shutdown(far.Get(), SHUT_WR);
    LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
    EXPECT_EQ(ASR_SVC_CHANNEL(near.Get(), &record), c.result) << c.what;
    EXPECT_EQ(Counts(record), c.counts) << c.what;
    char request[32];
    std::snprintf(request, sizeof request, "%06d D %10d  Q ", near.Get(), 4);
    EXPECT_EQ(Receive(far.Get(), 24), std::string(request, 24));
    for (int32_t i = 0; i < record.nEntries; ++i) EXPECT_EQ(record.pChannel[i].id, i == 0 ? 10 : 20);
    dataFree(record.pChannel);
  }
  LVCSR_DATA_CHANNEL record{};
  EXPECT_EQ(ASR_SVC_CHANNEL(-1, &record), -1);
}

class EngineTls : public testing::Test {
 protected:
  EngineTls() { m_ssl_check = 1; }
  ~EngineTls() override {
    Configure("", "", "", "");
    m_ssl_check = 0;
    SHM_CLOS();
  }
  // An engine with this certificate, which demands one of the agent or not.
  std::vector<std::string> Options(const std::string& identity, std::vector<std::string> more = {}) const {
    more.insert(more.end(),
                {"--cert", files_.Path(identity + ".pem"), "--key", files_.Path(identity + ".key")});
    return more;
  }
  // An empty name stays empty: the key is not configured.
  void Configure(const std::string& certificate, const std::string& key, const std::string& ca,
                 const std::string& pass) const {
    const auto path = [&](const std::string& file) { return file.empty() ? "" : files_.Path(file); };
    alarm_test::SetText(m_sz_cert_file, path(certificate));
    alarm_test::SetText(m_sz_key_file, path(key));
    alarm_test::SetText(m_sz_ca_file, path(ca));
    alarm_test::SetText(m_sz_ssl_password, pass);
  }
  test::CertificateFolder files_;
};

TEST_F(EngineTls, QueriesWithAndWithoutCertificates) {
  const alarm_test::Script sound("engine_peer.py", Options("server"));
  const alarm_test::Script demanding("engine_peer.py",
                                     Options("server", {"--client-ca", files_.Path("ca.pem")}));
  const alarm_test::Script expired("engine_peer.py", Options("expired"));
  const alarm_test::Script garbage("engine_peer.py", Options("server", {"--script", "garbage"}));
  const alarm_test::Script cut("engine_peer.py", Options("server", {"--script", "cut:30"}));
  const struct {
    const alarm_test::Script& engine;
    const char *certificate, *key, *ca, *pass;
    int result;       // of SHM_OPEN
    int32_t entries;  // of the record
    const char* traced;
  } cases[] = {
      {sound, "", "", "", "", 1, 8, "INFO [INIT] SSL Connect Successed"},  // nothing is checked
      {sound, "client.pem", "client.key", "ca.pem", "secret", 1, 8, "INFO [SendData] sendData start"},
      {sound, "client.pem", "client.key", "ca.pem", "wrong", 1, 8, ""},  // the server asks for none
      {sound, "missing.pem", "missing.key", "ca.pem", "", 1, 8, ""},
      {sound, "client.pem", "client.key", "foreign.pem", "secret", -1, 0, "ERROR [INIT] SSL_ERROR_SSL: "},
      {sound, "client.pem", "client.key", "missing.pem", "secret", -1, 0, ""},
      {demanding, "client.pem", "client.key", "ca.pem", "secret", 1, 8, ""},
      // The refusal comes after the handshake: connected, but the query fails.
      {demanding, "", "", "", "", 1, 0, "INFO Shared memory"},
      {expired, "", "", "", "", 1, 8, ""},
      {expired, "client.pem", "client.key", "ca.pem", "secret", -1, 0, "ERROR [INIT] SSL_ERROR_SSL: "},
      {garbage, "", "", "", "", -1, 0, "ERROR [INIT] SSL_ERROR_SSL: "},
      {cut, "", "", "", "", 1, 0, "ERROR recvData End [ -1 ]"},
      {cut, "", "", "", "", 1, 0, "INFO [EXIT] SSL Close Successed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.certificate) + " " + c.ca + " " + c.pass + " " + c.traced);
    SHM_CLOS();
    m_PROC_PORT = std::stoi(c.engine.Port());
    Configure(c.certificate, c.key, c.ca, c.pass);
    bool traced = *c.traced == '\0';
    for (const std::string& line : Messages(TraceOf([&] { EXPECT_EQ(SHM_OPEN(), c.result); }))) {
      traced = traced || line.starts_with(c.traced);
    }
    EXPECT_TRUE(traced);
    EXPECT_EQ(CurrentChannelStatus()->nEntries, c.entries);
  }
}

// The handshake fails and its socket is closed: whoever gets the number next keeps it.
TEST_F(EngineTls, ExitAfterAFailedHandshakeClosesNobodysSocket) {
  const alarm_test::Script engine("engine_peer.py", Options("server", {"--script", "garbage"}));
  LVCSR_SOCK_HEAD head{};
  ASSERT_NE(CreateClientContext(SSLInit(&head)), nullptr);
  DunraSTT_SSL(nullptr, nullptr, nullptr, nullptr, &head);
  EXPECT_EQ(DunraSTT_INIT("127.0.0.1", std::stoi(engine.Port()), 5, 5, &head), ENGINE_FAILED);
  const auto [near, far] = test::SocketPair();
  EXPECT_EQ(DunraSTT_EXIT(&head), 0);
  EXPECT_EQ(DunraSTT_EXIT(&head), 0);
  EXPECT_EQ(head.pCTX, nullptr);
  EXPECT_NE(::fcntl(near.Get(), F_GETFD), -1);
  EXPECT_NE(::fcntl(far.Get(), F_GETFD), -1);
}

}  // namespace
