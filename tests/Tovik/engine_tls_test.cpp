#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_socket.h"
#include "Tovik/engine_fixture.h"
#include "base/stop.h"
#include "tls/certificates.h"
#include "tls/tls_socket.h"

namespace {

using test::HasLine;
using test::Lines;
using test::Messages;
using test::TraceOf;

const test::CertificateFolder& Files() {
  static const test::CertificateFolder files;
  return files;
}

// An empty name stays empty: the key is not configured.
std::string PathOf(const std::string& file) {
  return file.empty() ? "" : Files().Path(file);
}

std::vector<std::string> Tls(const std::string& identity, std::vector<std::string> more = {}) {
  more.insert(more.end(),
              {"--cert", Files().Path(identity + ".pem"), "--key", Files().Path(identity + ".key")});
  return more;
}

class EngineTls : public testing::Test {
 protected:
  void SetUp() override {
    m_ssl_check = 1;
    SHM_CLOS();
    Configure("", "", "", "");
  }
  void TearDown() override { m_ssl_check = 0; }

  static void Configure(const std::string& certificate, const std::string& key, const std::string& ca,
                        const std::string& pass) {
    std::snprintf(m_sz_cert_file, sizeof m_sz_cert_file, "%s", PathOf(certificate).c_str());
    std::snprintf(m_sz_key_file, sizeof m_sz_key_file, "%s", PathOf(key).c_str());
    std::snprintf(m_sz_ca_file, sizeof m_sz_ca_file, "%s", PathOf(ca).c_str());
    std::snprintf(m_sz_ssl_password, sizeof m_sz_ssl_password, "%s", pass.c_str());
  }
};

struct Setting {
  const char* certificate;
  const char* key;
  const char* ca;
  const char* pass;
  int result;       // of SHM_OPEN
  int32_t entries;  // of the record
};

TEST_F(EngineTls, QueriesWithAndWithoutCertificates) {
  const std::vector<Setting> rows = {
      {"", "", "", "", 1, 8},  // nothing is checked
      {"client.pem", "client.key", "ca.pem", "secret", 1, 8},
      {"client.pem", "client.key", "ca.pem", "wrong", 1, 8},  // the server asks for none
      {"client.pem", "server.key", "ca.pem", "secret", 1, 8},
      {".", "client.key", "ca.pem", "secret", 1, 8},
      {"missing.pem", "missing.key", "ca.pem", "", 1, 8},
      {"client.pem", "client.key", "foreign.pem", "secret", -1, 0},
      {"client.pem", "client.key", "missing.pem", "secret", -1, 0},
      {"client.pem", "client.key", ".", "secret", -1, 0},
  };
  const test::EnginePeer engine(Tls("server"));
  m_PROC_PORT = engine.Port();
  for (const Setting& row : rows) {
    SHM_CLOS();
    Configure(row.certificate, row.key, row.ca, row.pass);
    EXPECT_EQ(SHM_OPEN(), row.result) << row.certificate << " " << row.ca << " " << row.pass;
    EXPECT_EQ(CurrentChannelStatus()->nEntries, row.entries);
  }
}

TEST_F(EngineTls, PresentsItsCertificateWhenTheEngineDemandsOne) {
  const test::EnginePeer engine(Tls("server", {"--client-ca", Files().Path("ca.pem")}));
  m_PROC_PORT = engine.Port();
  Configure("client.pem", "client.key", "ca.pem", "secret");
  EXPECT_EQ(SHM_OPEN(), 1);
  EXPECT_EQ(CurrentChannelStatus()->nEntries, 8);
  // The refusal comes after the handshake: connected, but the query fails.
  Configure("", "", "", "");
  EXPECT_EQ(SHM_OPEN(), 1);
  EXPECT_EQ(CurrentChannelStatus()->nEntries, 0);
}

TEST_F(EngineTls, RefusesAnExpiredEngine) {
  const test::EnginePeer engine(Tls("expired"));
  m_PROC_PORT = engine.Port();
  EXPECT_EQ(SHM_OPEN(), 1);
  Configure("client.pem", "client.key", "ca.pem", "secret");
  const auto lines = Messages(TraceOf([] { EXPECT_EQ(SHM_OPEN(), -1); }));
  EXPECT_TRUE(HasLine(lines, "ERROR [INIT] SSL_ERROR_SSL: "));
}

TEST_F(EngineTls, OutlivesEveryScriptOfAnEngine) {
  for (const auto& [script, result] : std::vector<std::pair<std::string, int>>{{"garbage", -1},
                                                                               {"reset", -1},
                                                                               {"cut:30", 1},
                                                                               {"header:7", 1},
                                                                               {"announce:2000000000", 1},
                                                                               {"reset-later", 1}}) {
    const test::EnginePeer engine(Tls("server", {"--script", script}));
    m_PROC_PORT = engine.Port();
    EXPECT_EQ(SHM_OPEN(), result) << script;
    EXPECT_EQ(CurrentChannelStatus()->nEntries, 0) << script;
  }
}

TEST_F(EngineTls, TracesALostReplyInWords) {
  const test::EnginePeer engine(Tls("server", {"--script", "cut:30"}));
  m_PROC_PORT = engine.Port();
  const auto lines = Messages(TraceOf([] { EXPECT_EQ(SHM_OPEN(), 1); }));
  for (const char* line : {"INFO [INIT] SSL Connect Successed", "INFO [SendData] sendData start",
                           "INFO [RecvData] recvData start", "ERROR recvData End [ -1 ]",
                           "INFO [EXIT] SSL Close Successed", "INFO Shared memory"}) {
    EXPECT_TRUE(HasLine(lines, line)) << line;
  }
}

// The handshake fails and its socket is closed: whoever gets the number next keeps it.
TEST_F(EngineTls, ExitAfterAFailedHandshakeClosesNobodysSocket) {
  const test::EnginePeer engine(Tls("server", {"--script", "garbage"}));
  LVCSR_SOCK_HEAD head{};
  ASSERT_NE(CreateClientContext(SSLInit(&head)), nullptr);
  DunraSTT_SSL(nullptr, nullptr, nullptr, nullptr, &head);
  EXPECT_EQ(DunraSTT_INIT("127.0.0.1", engine.Port(), 5, 5, &head), ENGINE_FAILED);
  const auto [near, far] = test::SocketPair();
  EXPECT_EQ(DunraSTT_EXIT(&head), 0);
  EXPECT_EQ(DunraSTT_EXIT(&head), 0);
  EXPECT_EQ(head.pCTX, nullptr);
  EXPECT_NE(::fcntl(near.Get(), F_GETFD), -1);
  EXPECT_NE(::fcntl(far.Get(), F_GETFD), -1);
}

// An engine that takes the connection and leaves the handshake lying: the stop of start-up ends it.
TEST_F(EngineTls, PendingStopSignalCutsTheQueryOfStartUp) {
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, &before);
  const test::EnginePeer engine(Tls("server", {"--script", "silence"}));
  m_PROC_PORT = engine.Port();
  ::kill(::getpid(), SIGTERM);
  {
    const base::StopOnPendingSignal cut;
    EXPECT_EQ(SHM_OPEN(), -1);
  }
  const timespec none{};
  ::sigtimedwait(&set, nullptr, &none);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
