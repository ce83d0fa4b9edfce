// The engine's protocol: connection, packets, channel status, probe and TLS. The fuzz target "engine" has the
// replies' details.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "Tovik/checks/channel_check.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_packet.h"
#include "Tovik/engine/engine_text_session.h"
#include "Tovik/traced.h"
#include "support/process.h"
#include "tls/certificates.h"
#include "tls/tls_socket.h"

namespace {

using support::Peer;
using support::Receive;
using support::Send;
using support::SocketPair;
using test::Lines;
using test::MessagesOf;

template <typename Integer = int32_t>
std::string Bytes(const std::vector<Integer>& numbers) {
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(Integer)};
}

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

// A listener whose queue is full drops the attempt: the wait runs out without a message.
TEST(EngineConnection, SaysWhyThereIsNone) {
  const support::Listener listener(true);
  listener.Listen(0);
  const int full = listener.Port();
  LVCSR_SOCK_HEAD first{};
  ASSERT_EQ(DunraSTT_INIT("127.0.0.1", full, 0, -5, &first), ENGINE_OK);
  EXPECT_TRUE(first.uConnTimeout == 1 && first.uRecvTimeout == 1);
  const std::tuple<const char*, int, const char*> cases[] = {
      {nullptr, 1, "ERROR [INIT] HOST Nothing"},
      {"", 1, "ERROR [INIT] HOST Nothing Data is Null"},
      {"no.such.host.invalid", 5, "ERROR [INIT] getaddrinfo error: -"},
      {"127.0.0.1", 1, "ERROR [INIT] 111: "},
      {"127.0.0.1", full, "ERROR [INIT] HOST Connent("}};
  for (const auto& [host, port, last] : cases) {
    LVCSR_SOCK_HEAD head{};
    const Lines lines = MessagesOf([&] { EXPECT_EQ(DunraSTT_INIT(host, port, 1, 1, &head), -1); });
    ASSERT_FALSE(lines.empty()) << last;
    EXPECT_TRUE(lines.back().starts_with(last)) << lines.back();
  }
  long session = 0;
  EXPECT_EQ(Session_Create("127.0.0.1", full, &session), -3);
  EXPECT_EQ(Session_Create("127.0.0.1", 1, &session), -3);
  EXPECT_EQ(Session_Destroy(first.uSock), 0);
  EXPECT_EQ(Session_Destroy(first.uSock), -1);
}

// Failed probes and queries close descriptor 0, which must never become free for somebody else's file.
TEST(EngineConnection, LeavesTheNullDeviceOnStandardInput) {
  struct stat input {};
  struct stat null {};
  ASSERT_EQ(::stat("/dev/null", &null), 0);
  LVCSR_SOCK_HEAD head{};
  for (const auto& close : {std::function<int()>([] { return Session_Destroy(0); }),
                            std::function<int()>([&] { return DunraSTT_EXIT(&head); })}) {
    ::close(0);
    EXPECT_EQ(close(), 0);
    EXPECT_TRUE(::fstat(0, &input) == 0 && input.st_rdev == null.st_rdev);
    EXPECT_EQ(::fcntl(0, F_GETFD), 0);
  }
}

TEST(EnginePacket, IsSentWhole) {
  auto [near, far] = SocketPair();
  LVCSR_SOCK_HEAD head{};
  const auto send = [&](int32_t length, const char* data) {
    const LVCSR_NET_HEADER header{5, 0, length, 9};
    return SendData(&head, &header, data, 0);
  };
  EXPECT_EQ(send(0, nullptr), ENGINE_FAILED);  // descriptor 0
  head.uSock = near.Get();
  EXPECT_TRUE(send(4, "data") == ENGINE_OK && send(4, nullptr) == ENGINE_OK);
  EXPECT_EQ(Receive(far.Get(), 40), Bytes({5, 0, 4, 9}) + "data" + Bytes({5, 0, 4, 9, 0}));
}

TEST(EngineChannel, TakesEveryReplyForAClaim) {
  const std::tuple<const char*, std::string, int, std::vector<int32_t>> cases[] = {
      {"whole", Packet(1, TWO), 0, TWO_COUNTS},
      {"status 2", Packet(2, TWO), -1, TWO_COUNTS},
      {"status 4", Packet(4, TWO), -3, TWO_COUNTS},
      {"no payload", Packet(0, {}), 0, UNTOUCHED},
      {"three counts", Packet(0, {4, 5, 6}), 0, {4, 5, 6, 0, 0, 0}},
      {"half an entry", Packet(0, {3, 3, 1, 0, 2, 1, 1, 2}), 0, {3, 3, 1, 0, 2, 1}},
      {"more than claimed", Packet(0, {1, 1, 0, 0, 0, 1, 1, 2, 2}), 0, {1, 1, 0, 0, 0, 1}},
      {"two thousand million bytes", Bytes({5, 0, 2'000'000'000, 7, 1}), -1, UNTOUCHED},
  };
  for (const auto& [what, reply, result, counts] : cases) {
    auto [near, far] = SocketPair();
    Send(far.Get(), reply);
    ::shutdown(far.Get(), SHUT_WR);
    LVCSR_SOCK_HEAD head{};
    head.uSock = near.Get();
    LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
    EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), result) << what;
    EXPECT_EQ(Counts(record), counts) << what;
    EXPECT_EQ(head.uChannel, result == 0 ? 7 : -1) << what;
    dataFree(record.pChannel);
  }
}

TEST(EngineChannel, NeedsAConnection) {
  LVCSR_SOCK_HEAD head{};
  LVCSR_DATA_CHANNEL record{};
  EXPECT_EQ(MessagesOf([&] { EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), -1); }),
            Lines{"ERROR [CHANNEL] Socket ID Create Failed"});
}

class EngineStatus : public testing::Test {
 protected:
  // One query of an engine that gives this answer and closes; what readers see meanwhile goes to seen_.
  void Query(const std::string& answer) {
    const support::Conversation engine([&](int fd) {
      EXPECT_EQ(Receive(fd, 16), Bytes({5, 0, 0, -1}));
      seen_ = Counts(*CurrentChannelStatus());
      Send(fd, answer);
    });
    m_PROC_PORT = engine.Port();
    EXPECT_EQ(SHM_OPEN(), 1);
  }
  std::vector<int32_t> seen_;
};

TEST_F(EngineStatus, IsTraced) {
  Lines lines = MessagesOf([&] { Query(Packet(0, TWO)); });
  std::erase(lines, "INFO [INIT] getsockopt2 Successed");  // of a connection that took a moment
  const std::string place = "(127.0.0.1:" + std::to_string(m_PROC_PORT) + ")";
  ASSERT_EQ(lines.size(), 9U);
  const std::string number = std::to_string(std::atoi(lines[7].c_str() + lines[7].find("[ ") + 2));
  EXPECT_EQ(lines,
            (Lines{"ERROR [INIT] HOST Connent" + place, "INFO [INIT] Successed" + place + "(" + number + ")",
                   "INFO VALID_SOCKET pHEAD->uSock [ " + number + " ] uSOCK[ " + number + " ]",
                   "INFO [Recv_Wait] select", "INFO [Recv_Wait] select end[ 1 ]",
                   "ERROR [CHANNEL] RecvData packets Check[0] Stat[0] Len[36]",
                   "INFO Thread Count [ 2 ], Channel Count [ 2 ], Used Count [ 1 ], Wait Count [ 0 ], "
                   "Idle Count [ 1 ]",
                   "INFO [EXIT] Successed [ " + number + " ]", "INFO Shared memory"}));
  EXPECT_EQ(MessagesOf([] { EXPECT_EQ(get_recg_svr_wrk_ch_cnt(), 50); }),
            (Lines{"INFO ch_status_check TotalCh cnt [ 2 ] MaxCh cnt [ 1 ] Percent [ 50 ]",
                   "INFO recog_channel_status CHID [100], STAT[1]",
                   "INFO recog_channel_status CHID [101], STAT[0]"}));
}

TEST_F(EngineStatus, GivesTheShareInUse) {
  const std::tuple<int32_t, int32_t, int64_t> cases[] = {
      {3, 2, 66}, {0, 5, INT64_MIN}, {100, 29, 29}, {-4, 1, -25}, {1, INT32_MAX, 214'748'364'800}};
  for (const auto& [channels, used, percent] : cases) {
    Query(Packet(0, {1, channels, used, 0, 0, 1, 1}));
    EXPECT_EQ(get_recg_svr_wrk_ch_cnt(), percent) << used << "/" << channels;
  }
}

// Readers see the old answer, zeros while the query is under way, then the new one; who is in the middle of
// an array keeps it, and an engine that is away leaves it.
TEST_F(EngineStatus, IsHandedOverWhole) {
  std::vector<int32_t> many = {30'000, 30'000, 0, 0, 0};  // beyond the first buffer
  for (int32_t i = 0; i < 30'000; ++i) many.insert(many.end(), {i, 1});
  Query(Packet(0, many));
  const auto kept = CurrentChannelStatus();
  Query(Packet(4, TWO));  // the counts came, whatever the engine's status says
  EXPECT_EQ(seen_, ZEROS);
  EXPECT_EQ(Counts(*CurrentChannelStatus()), TWO_COUNTS);
  m_PROC_PORT = 1;
  const Lines lines = MessagesOf([] { EXPECT_EQ(SHM_OPEN(), -1); });
  EXPECT_EQ(lines[lines.size() - 2], "ERROR [ 1 ] disconnect");
  EXPECT_EQ(Counts(*CurrentChannelStatus()), TWO_COUNTS);
  Query(Packet(0, {}));
  EXPECT_EQ(Counts(*CurrentChannelStatus()), ZEROS);
  ASSERT_EQ(kept->nEntries, 30'000);
  EXPECT_EQ(kept->pChannel[29'999].id, 29'999);
}

TEST(EngineSession, ReadsATextReply) {
  auto [near, far] = SocketPair();
  Send(far.Get(), "000001 D         70  D ASR_ACK -c " + Bytes<int64_t>({2'000'000'000, 1, 7, 1, 8, 0, 9}));
  LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
  EXPECT_EQ(ASR_SVC_CHANNEL(near.Get(), &record), 0);
  EXPECT_EQ(Counts(record), (std::vector<int32_t>{9, 2'000'000'000, 1, 0, 9, 2}));
  EXPECT_EQ(Receive(far.Get(), 24).substr(6), std::string(" D          4  Q \0", 18));
  dataFree(record.pChannel);
}

class EngineTls : public testing::Test {
 protected:
  ~EngineTls() override { m_ssl_check = 0; }
  Peer Engine(const char* name, const std::string& identity, support::Words words = {}) const {
    words.insert(words.end(), {"--cert", Path(identity + ".pem"), "--key", Path(identity + ".key")});
    return {folder_, name, "engine_peer.py", words};
  }
  // An empty name stays empty: the key is not configured.
  std::string Path(const std::string& file) const { return file.empty() ? "" : files_.Path(file); }
  test::CertificateFolder files_;
  support::TempFolder folder_;
};

TEST_F(EngineTls, QueriesWithAndWithoutCertificates) {
  const Peer sound = Engine("sound", "server");
  const Peer demanding = Engine("demanding", "server", {"--client-ca", Path("ca.pem")});
  const Peer expired = Engine("expired", "expired");
  const Peer garbage = Engine("garbage", "server", {"--script", "garbage"});
  const Peer cut = Engine("cut", "server", {"--script", "cut:30"});
  const struct {
    const Peer& engine;
    const char *certificate, *ca;
    int result;       // of SHM_OPEN
    int32_t entries;  // of the record
    const char* traced;
  } cases[] = {
      {sound, "", "", 1, 8, "INFO [INIT] SSL Connect Successed"},  // nothing is checked
      {sound, "client.pem", "foreign.pem", -1, 0, "ERROR [INIT] SSL_ERROR_SSL: "},
      {sound, "client.pem", "missing.pem", -1, 0, "INFO [INIT] Successed("},
      {demanding, "client.pem", "ca.pem", 1, 8, "INFO [RecvData] recvData start"},
      // The refusal comes after the handshake: connected, but the query fails.
      {demanding, "", "", 1, 0, "INFO Shared memory"},
      {expired, "client.pem", "ca.pem", -1, 0, "ERROR [INIT] SSL_ERROR_SSL: "},
      {garbage, "", "", -1, 0, "INFO [INIT] Successed("},
      {cut, "", "", 1, 0, "ERROR recvData End [ -1 ]"},
  };
  m_ssl_check = 1;
  support::SetText(m_sz_key_file, Path("client.key"));
  support::SetText(m_sz_ssl_password, "secret");
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.certificate) + " " + c.ca + " " + c.traced);
    SHM_CLOS();
    m_PROC_PORT = std::stoi(c.engine.Port());
    support::SetText(m_sz_cert_file, Path(c.certificate));
    support::SetText(m_sz_ca_file, Path(c.ca));
    const Lines lines = MessagesOf([&] { EXPECT_EQ(SHM_OPEN(), c.result); });
    const auto traced = [&](const std::string& beginning) {
      return std::any_of(lines.begin(), lines.end(), [&](auto& line) { return line.starts_with(beginning); });
    };
    EXPECT_TRUE(traced(c.traced));
    // A failed handshake leaves nothing to close: whoever gets the socket's number next keeps it.
    EXPECT_EQ(traced("INFO [EXIT]"), c.result == 1);
    EXPECT_EQ(CurrentChannelStatus()->nEntries, c.entries);
  }
}

// Under TLS 1.3 the tickets after the handshake make the socket readable, and nothing follows.
TEST_F(EngineTls, GivesASilentEngineUpAfterTheReceiveTimeOut) {
  const std::string nothing = "SSL_ERROR_WANT_READ: 읽을 수 있는 데이터가 없습니다.";
  const struct {
    const char* what;
    support::Words words;
    int connected, queried;
    std::string last;
  } cases[] = {
      {"tickets", {"--script", "silent"}, 0, -2, "ERROR [RecvData] " + nothing + " "},
      {"no tickets", {"--script", "silent", "--tls12"}, 0, -2, "INFO [Recv_Wait] select end[ 0 ]"},
      {"half a reply", {"--script", "stall:30"}, 0, -1, "ERROR [RecvData] " + nothing + " "},
      {"no handshake", {"--script", "mute"}, -1, -1, "ERROR [INIT] " + nothing},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const Peer engine = Engine(c.what, "server", c.words);
    LVCSR_SOCK_HEAD head{};
    LVCSR_DATA_CHANNEL record{};
    CreateClientContext(SSLInit(&head));
    DunraSTT_SSL("", "", "", "", &head);
    const auto start = std::chrono::steady_clock::now();
    const Lines lines = MessagesOf([&] {
      ASSERT_EQ(DunraSTT_INIT("127.0.0.1", std::stoi(engine.Port()), 1, 1, &head), c.connected);
      EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), c.queried);
    });
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
    EXPECT_EQ(lines.back(), c.last);
    EXPECT_EQ(DunraSTT_EXIT(&head), c.connected);
    EXPECT_EQ(head.uSock, -1);
    EXPECT_EQ(DunraSTT_EXIT(&head), 0) << "nothing is left to close";
  }
}

}  // namespace
