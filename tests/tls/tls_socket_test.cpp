#include "tls/tls_socket.h"
#include "tls/tls_error.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <future>

#include "tls/certificates.h"
#include "utils/trace_line.h"

namespace {

std::string Path(const std::string& file) {
  static const test::CertificateFolder files;
  return files.Path(file);
}

int Load(LVCSR_SOCK_HEAD* head, const std::string& certificate, const std::string& key, const char* pass) {
  return CertificateLoad(head, Path(certificate).c_str(), Path(key).c_str(), pass);
}

// A client's record on one end of a socket pair, and a server thread for the other end.
struct Link {
  LVCSR_SOCK_HEAD client{};
  base::UniqueFd near;
  base::UniqueFd far;
  std::thread server;

  Link() {
    std::tie(near, far) = support::SocketPair();
    CreateClientContext(SSLInit(&client));
  }
  ~Link() {
    SSLClose(&client);
    near.Reset();
    if (server.joinable()) server.join();
  }

  // Runs a server that does the handshake, then its steps, and closes.
  void Serve(const std::function<void(LVCSR_SOCK_HEAD*)>& steps) {
    server = std::thread([=, this] {
      LVCSR_SOCK_HEAD head{};
      CreateServerContext(SSLInit(&head));
      // Asks for a certificate but does not require one.
      EXPECT_EQ(CACheck(&head, Path("ca.pem").c_str()), 1);
      EXPECT_EQ(Load(&head, "server.pem", "server.key", ""), 1);
      if (ServerSockSetting(&head, far.Get()) == 1) steps(&head);
      SSLClose(&head);
      far.Reset();
    });
  }
};

TEST(TlsSocket, TransfersBytesBothWaysUntilThePeerEnds) {
  const std::string sent(100'000, 'x');
  Link link;
  link.Serve([&](LVCSR_SOCK_HEAD* head) {
    EXPECT_EQ(CertificateCheck(head), 1);
    char buffer[4096];
    size_t got = 0;
    for (int count = 1; got < sent.size() && count > 0; got += size_t(count))
      count = Read(head, buffer, sizeof buffer);
    EXPECT_EQ(Write(head, "hello", 5), 5);
    SSL_shutdown(head->pSSL);
  });
  LVCSR_SOCK_HEAD* client = &link.client;
  ASSERT_EQ(CACheck(client, Path("ca.pem").c_str()), 1);
  ASSERT_EQ(Load(client, "client.pem", "client.key", "secret"), 1);
  testing::internal::CaptureStdout();
  ASSERT_EQ(ClientSockSetting(client, link.near.Get()), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "SSL connection on socket " + std::to_string(link.near.Get()) +
                ",Version: TLSv1.3, Cipher: TLS_AES_256_GCM_SHA384\n");
  EXPECT_EQ(Write(client, sent.data(), 100'000), 100'000);
  char buffer[16];
  EXPECT_EQ(Read(client, buffer, sizeof buffer), 5);
  // The error of this failed load must not show up as the reason for the end that follows.
  EXPECT_EQ(Load(client, "missing.pem", "client.key", "secret"), -1);
  // The peer's end, then a read without a session.
  for (const int error : {SSL_ERROR_ZERO_RETURN, SSL_ERROR_SSL}) {
    EXPECT_EQ(Read(client, buffer, sizeof buffer), -1);
    EXPECT_EQ(ErrorCode(client), error);
    EXPECT_EQ(client->pSSL, nullptr);
  }
  EXPECT_NE(client->pCTX, nullptr);
  EXPECT_EQ(client->uSock, link.near.Get());
}

TEST(TlsSocket, WritesToAPeerThatHasGoneFailWithoutASignal) {
  Link link;
  link.Serve([](LVCSR_SOCK_HEAD* head) { EXPECT_EQ(CertificateCheck(head), -2); });
  ASSERT_EQ(ClientSockSetting(&link.client, link.near.Get()), 1);
  EXPECT_EQ(CertificateCheck(&link.client), -1);  // signed by an unknown authority
  link.server.join();
  EXPECT_EQ(Write(&link.client, "hello", 5), -1);
  EXPECT_EQ(ErrorCode(&link.client), SSL_ERROR_SYSCALL);
}

TEST(TlsSocket, WritesThatNobodyReadsEndAtTheTimeOut) {
  std::promise<void> over;
  Link link;
  link.Serve([&](LVCSR_SOCK_HEAD*) { over.get_future().wait(); });
  ASSERT_EQ(ClientSockSetting(&link.client, link.near.Get()), 1);
  link.client.uRecvTimeout = 1;
  const std::string more_than_fits(10'000'000, 'x');
  EXPECT_EQ(Write(&link.client, more_than_fits.data(), 10'000'000), -1);
  EXPECT_EQ(ErrorCode(&link.client), SSL_ERROR_WANT_WRITE);
  over.set_value();
}

TEST(TlsSocket, HandshakesWithoutEndStopAtTheTimeOut) {
  const std::tuple<const char*, std::string, std::string, int> cases[] = {
      {"a long record, byte by byte", {"\x16\x03\x03\x3f\xff", 5}, "x", 100},
      {"hello requests without end", "", {"\x16\x03\x03\x00\x04\x00\x00\x00\x00", 9}, 0}};
  for (const auto& [what, first, next, pause] : cases) {
    SCOPED_TRACE(what);
    Link link;
    link.server = std::thread([&link, first = first, next = next, pause = pause] {
      support::Send(link.far.Get(), first);
      while (::send(link.far.Get(), next.data(), next.size(), MSG_NOSIGNAL) > 0) ::poll(nullptr, 0, pause);
    });
    link.client.uRecvTimeout = 1;
    EXPECT_EQ(ClientSockSetting(&link.client, link.near.Get()), -1);
    EXPECT_EQ(ErrorCode(&link.client), SSL_ERROR_WANT_READ);
  }
}

TEST(TlsSocket, LoadsACertificateOnlyWithItsKey) {
  Link link;
  EXPECT_EQ(Load(&link.client, "server.pem", "server.key", nullptr), 1);
  EXPECT_EQ(Load(&link.client, "client.pem", "client.key", nullptr), -1) << "without its pass phrase";
  EXPECT_EQ(Load(&link.client, "client.pem", "server.key", ""), -1) << "the key of another";
}

TEST(TlsSocket, TellsExpiredCertificates) {
  EXPECT_EQ(ExpiresCheck(Path("server.pem").c_str()), 1);
  EXPECT_EQ(ExpiresCheck(Path("expired.pem").c_str()), -1);
}

TEST(TlsErrorMessage, HasTheNameOfTheCodeAndAKoreanSentence) {
  const std::pair<int, const char*> cases[] = {
      {SSL_ERROR_SYSCALL, "SSL_ERROR_SYSCALL: 입출력 오류가 발생했습니다."},
      {SSL_ERROR_WANT_ACCEPT, "SSL_ERROR_WANT_ACCEPT: connect/accept에서 호출이 차단되었습니다."},
      {SSL_ERROR_WANT_ASYNC_JOB + 1, "알 수 없는 오류입니다."},
      {-1, "알 수 없는 오류입니다."},
  };
  LVCSR_SOCK_HEAD head{};
  for (const auto& [code, text] : cases) {
    head.uLastError = code;
    EXPECT_EQ(trace::MessageToUtf8(ErrorMessage(&head)), text);
  }
}

}  // namespace
