#include "tls/tls_socket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "base/net.h"
#include "base/stop.h"
#include "tls/certificates.h"

namespace {

using test::CertificateFolder;
using Steps = std::function<void(LVCSR_SOCK_HEAD*)>;

const CertificateFolder& Files() {
  static const CertificateFolder files;
  return files;
}

int Load(LVCSR_SOCK_HEAD* head, const std::string& certificate, const std::string& key, const char* pass) {
  return CertificateLoad(head, Files().Path(certificate).c_str(), Files().Path(key).c_str(), pass);
}

int LoadCa(LVCSR_SOCK_HEAD* head, const std::string& ca) {
  return CACheck(head, Files().Path(ca).c_str());
}

// A client record with its context, released at the end.
struct Client {
  LVCSR_SOCK_HEAD head{};
  Client() { CreateClientContext(SSLInit(&head)); }
  ~Client() { SSLClose(&head); }
};

// The other end of a pair of sockets: shakes hands with what the set-up loaded, then serves.
class Server {
 public:
  explicit Server(
      const Steps& setup, const Steps& serve = [](LVCSR_SOCK_HEAD*) {}) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    client_ = base::UniqueFd(ends[0]);
    thread_ = std::thread([=, end = ends[1]] {
      const base::UniqueFd socket(end);
      LVCSR_SOCK_HEAD head{};
      CreateServerContext(SSLInit(&head));
      setup(&head);
      if (ServerSockSetting(&head, socket.Get()) == 1) serve(&head);
      SSLClose(&head);
    });
  }
  ~Server() {
    client_.Reset();
    thread_.join();
  }
  int Socket() const { return client_.Get(); }
  void WaitForEnd() {
    thread_.join();
    thread_ = std::thread([] {});
  }

 private:
  base::UniqueFd client_;
  std::thread thread_;
};

Steps Presents(const std::string& name) {
  return [name](LVCSR_SOCK_HEAD* head) { EXPECT_EQ(Load(head, name + ".pem", name + ".key", ""), 1); };
}

void Greet(LVCSR_SOCK_HEAD* head) {
  EXPECT_EQ(Write(head, "hello", 5), 5);
}

TEST(TlsSocket, ShakesHandsAndMovesBytesBothWays) {
  const std::string sent(100'000, 'x');
  Server server(Presents("server"), [&](LVCSR_SOCK_HEAD* head) {
    std::string got;
    std::array<char, 4096> buffer{};
    while (got.size() < sent.size()) {
      const int count = Read(head, buffer.data(), buffer.size());
      ASSERT_GT(count, 0);
      got.append(buffer.data(), static_cast<size_t>(count));
    }
    EXPECT_EQ(got, sent);
    Greet(head);
    SSL_shutdown(head->pSSL);
  });
  Client client;
  ASSERT_EQ(LoadCa(&client.head, "ca.pem"), 1);
  testing::internal::CaptureStdout();
  ASSERT_EQ(ClientSockSetting(&client.head, server.Socket()), 1);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "SSL connection on socket " + std::to_string(server.Socket()) +
                ",Version: TLSv1.3, Cipher: TLS_AES_256_GCM_SHA384\n");
  EXPECT_EQ(CertificateCheck(&client.head), 1);
  EXPECT_EQ(client.head.uSock, server.Socket());
  EXPECT_EQ(SSL_get_fd(client.head.pSSL), server.Socket());
  EXPECT_EQ(Write(&client.head, sent.data(), static_cast<int>(sent.size())), static_cast<int>(sent.size()));

  std::array<char, 16> buffer{};
  EXPECT_EQ(Read(&client.head, buffer.data(), buffer.size()), 5);
  // What failed before on this thread must not be taken for the reason of the end that follows.
  EXPECT_EQ(Load(&client.head, "missing.pem", "server.key", ""), -1);
  EXPECT_EQ(Read(&client.head, buffer.data(), buffer.size()), -1);
  EXPECT_EQ(ErrorCode(&client.head), SSL_ERROR_ZERO_RETURN);
  EXPECT_EQ(client.head.pSSL, nullptr);
  EXPECT_NE(client.head.pCTX, nullptr);
  EXPECT_EQ(client.head.uSock, server.Socket());
  EXPECT_EQ(Read(&client.head, buffer.data(), buffer.size()), -1);
  EXPECT_EQ(ErrorCode(&client.head), SSL_ERROR_SSL);
}

TEST(TlsSocket, ReadFailsWhenThePeerVanishesWithoutAWord) {
  Server server(Presents("server"), Greet);
  Client client;
  ASSERT_EQ(ClientSockSetting(&client.head, server.Socket()), 1);
  std::array<char, 16> buffer{};
  EXPECT_EQ(Read(&client.head, buffer.data(), buffer.size()), 5);
  EXPECT_EQ(Read(&client.head, buffer.data(), buffer.size()), -1);
  EXPECT_TRUE(ErrorCode(&client.head) == SSL_ERROR_SSL || ErrorCode(&client.head) == SSL_ERROR_SYSCALL);
}

// The default action of SIGPIPE would end this process.
TEST(TlsSocket, WriteToAVanishedPeerRaisesNoSignal) {
  Server server(Presents("server"));
  Client client;
  ASSERT_EQ(ClientSockSetting(&client.head, server.Socket()), 1);
  server.WaitForEnd();
  EXPECT_EQ(Write(&client.head, "hello", 5), -1);
  EXPECT_EQ(ErrorCode(&client.head), SSL_ERROR_SYSCALL);
}

TEST(TlsSocket, HandshakeFailsOnWhatIsNoTls) {
  struct Case {
    const char* what;
    const char* bytes;
  };
  for (const auto& [what, bytes] : {Case{"garbage", "220 welcome\r\n"}, Case{"nothing", ""}}) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const base::UniqueFd near(ends[0]);
    base::UniqueFd far(ends[1]);
    ASSERT_EQ(base::SendAll(far.Get(), bytes, std::string(bytes).size()), 0);
    ASSERT_EQ(::shutdown(far.Get(), SHUT_WR), 0);
    Client client;
    EXPECT_EQ(ClientSockSetting(&client.head, near.Get()), -1) << what;
    EXPECT_NE(ErrorCode(&client.head), SSL_ERROR_NONE) << what;
    EXPECT_EQ(client.head.pSSL, nullptr) << what;
    EXPECT_EQ(client.head.uSock, near.Get()) << what;
  }
}

TEST(TlsSocket, HandshakeNeedsAContext) {
  LVCSR_SOCK_HEAD head{};
  EXPECT_EQ(ClientSockSetting(&head, 99), -1);
  EXPECT_EQ(ServerSockSetting(&head, 99), -1);
  EXPECT_EQ(ErrorCode(&head), SSL_ERROR_SSL);
  EXPECT_EQ(CertificateLoad(&head, "a", "b", "c"), -1);
  EXPECT_EQ(CACheck(&head, "a"), -1);
  SSLClose(&head);
  EXPECT_EQ(head.uSock, 0);
}

// A peer that stops in the middle of the handshake holds the thread until a signal of start-up is pending.
TEST(TlsSocket, PendingStopSignalCutsAHandshake) {
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  pthread_sigmask(SIG_BLOCK, &set, &before);
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const base::UniqueFd near(ends[0]);
  const base::UniqueFd far(ends[1]);
  std::thread stopper([&] {
    char first = 0;
    EXPECT_EQ(base::ReceiveSome(far.Get(), &first, 1), 1);  // the hello has come, the handshake is under way
    ::kill(::getpid(), SIGTERM);
  });
  {
    const base::StopOnPendingSignal cut;
    Client client;
    EXPECT_EQ(ClientSockSetting(&client.head, near.Get()), -1);
    EXPECT_EQ(ErrorCode(&client.head), SSL_ERROR_SYSCALL);
  }
  stopper.join();
  const timespec none{};
  ::sigtimedwait(&set, nullptr, &none);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

struct VerifyCase {
  const char* server;  // certificate that the server presents
  const char* ca;      // what the client trusts, null: nothing
  int handshake;
  int check;
};

TEST(TlsSocket, VerifiesTheServer) {
  for (const auto& row :
       {VerifyCase{"server", "ca.pem", 1, 1}, VerifyCase{"server", nullptr, 1, -1},
        VerifyCase{"server", "foreign.pem", -1, -2}, VerifyCase{"expired", "ca.pem", -1, -2},
        VerifyCase{"expired", nullptr, 1, -1}, VerifyCase{"foreign", "ca.pem", -1, -2}}) {
    Server server(Presents(row.server));
    Client client;
    if (row.ca != nullptr) {
      ASSERT_EQ(LoadCa(&client.head, row.ca), 1);
    }
    client.head.uLastError = 99;
    EXPECT_EQ(ClientSockSetting(&client.head, server.Socket()), row.handshake) << row.server;
    if (row.handshake < 0) {
      EXPECT_EQ(ErrorCode(&client.head), SSL_ERROR_SSL) << row.server;
    }
    EXPECT_EQ(CertificateCheck(&client.head), row.check) << row.server;
    EXPECT_EQ(ErrorCode(&client.head), 0);
  }
}

TEST(TlsSocket, ServerWithoutACertificateIsToldApart) {
  const Steps anonymous = [](LVCSR_SOCK_HEAD* head) {
    SSL_CTX_set_max_proto_version(head->pCTX, TLS1_2_VERSION);
    EXPECT_EQ(SSL_CTX_set_cipher_list(head->pCTX, "aNULL@SECLEVEL=0"), 1);
  };
  Server server(anonymous);
  Client client;
  anonymous(&client.head);
  EXPECT_EQ(ClientSockSetting(&client.head, server.Socket()), 1);
  EXPECT_EQ(CertificateCheck(&client.head), -2);
}

TEST(TlsSocket, PresentsItsCertificateToAServerThatDemandsOne) {
  const Steps demanding = [](LVCSR_SOCK_HEAD* head) {
    Presents("server")(head);
    EXPECT_EQ(LoadCa(head, "ca.pem"), 1);
    SSL_CTX_set_verify(head->pCTX, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  };
  for (const bool with : {true, false}) {
    Server server(demanding, [](LVCSR_SOCK_HEAD* head) {
      EXPECT_EQ(CertificateCheck(head), 1);
      Greet(head);
    });
    Client client;
    if (with) {
      ASSERT_EQ(Load(&client.head, "client.pem", "client.key", "secret"), 1);
    }
    std::array<char, 16> buffer{};
    const bool met = ClientSockSetting(&client.head, server.Socket()) == 1 &&
                     Read(&client.head, buffer.data(), buffer.size()) == 5;
    EXPECT_EQ(met, with);
  }
}

// OpenSSL's own server, which demands a certificate and gives a line back reversed.
TEST(TlsSocket, TalksToTheLibrarysOwnServer) {
  const auto path = [](const char* file) { return Files().Path(file); };
  const std::string command = "exec openssl s_server -accept 127.0.0.1:0 -naccept 1 -rev -Verify 1 -CAfile " +
                              path("ca.pem") + " -cert " + path("server.pem") + " -key " +
                              path("server.key") + " </dev/null 2>&1";
  const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "re"), ::pclose);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::array<char, 256> line{};
  while (address.sin_port == 0 && std::fgets(line.data(), line.size(), output.get()) != nullptr) {
    const std::string text = line.data();
    if (text.starts_with("ACCEPT ")) {
      address.sin_port = htons(static_cast<uint16_t>(std::stoi(text.substr(text.rfind(':') + 1))));
    }
  }
  const base::UniqueFd socket = base::OpenSocket(AF_INET);
  ASSERT_EQ(base::Connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  Client client;
  ASSERT_EQ(Load(&client.head, "client.pem", "client.key", "secret"), 1);
  ASSERT_EQ(LoadCa(&client.head, "ca.pem"), 1);
  ASSERT_EQ(ClientSockSetting(&client.head, socket.Get()), 1);
  EXPECT_EQ(CertificateCheck(&client.head), 1);
  EXPECT_EQ(Write(&client.head, "stressed\n", 9), 9);
  EXPECT_EQ(Read(&client.head, line.data(), line.size()), 9);
  EXPECT_EQ(std::string(line.data(), 9), "desserts\n");
}

struct LoadCase {
  const char* certificate;
  const char* key;
  const char* pass_phrase;
  int result;
};

TEST(TlsSocket, LoadsOnlyAKeyThatFitsItsCertificate) {
  for (const auto& row : {
           LoadCase{"server.pem", "server.key", "", 1},
           LoadCase{"server.pem", "server.key", nullptr, 1},
           LoadCase{"client.pem", "client.key", "secret", 1},
           LoadCase{"client.pem", "client.key", "wrong", -1},
           LoadCase{"client.pem", "client.key", "", -1},
           LoadCase{"client.pem", "client.key", nullptr, -1},
           LoadCase{"client.pem", "server.key", "", -1},
           LoadCase{"missing.pem", "server.key", "", -1},
           LoadCase{"server.pem", "missing.key", "", -1},
           LoadCase{"server.key", "server.key", "", -1},
           LoadCase{"", "server.key", "", -1},  // the folder itself
           LoadCase{"server.pem", "", "", -1},
       }) {
    Client client;
    EXPECT_EQ(Load(&client.head, row.certificate, row.key, row.pass_phrase), row.result)
        << row.certificate << " " << row.key;
  }
}

TEST(TlsSocket, TakesAsAuthorityOnlyAFileOfCertificates) {
  Client client;
  EXPECT_EQ(LoadCa(&client.head, "missing.pem"), -1);
  EXPECT_EQ(LoadCa(&client.head, ""), -1);
  EXPECT_EQ(LoadCa(&client.head, "server.key"), -1);
  EXPECT_EQ(SSL_CTX_get_verify_mode(client.head.pCTX), SSL_VERIFY_NONE);
  EXPECT_EQ(LoadCa(&client.head, "ca.pem"), 1);
  EXPECT_EQ(SSL_CTX_get_verify_depth(client.head.pCTX), 1);
}

TEST(TlsSocket, SaysWhetherACertificateHasExpired) {
  const auto check = [](const std::string& path) {
    testing::internal::CaptureStdout();
    const int result = ExpiresCheck(path.c_str());
    std::fflush(stdout);
    return std::to_string(result) + " " + testing::internal::GetCapturedStdout();
  };
  const auto path = [](const char* file) { return Files().Path(file); };
  EXPECT_EQ(check(path("server.pem")), "1 ");
  EXPECT_EQ(check(path("expired.pem")), "-1 SSL Certificate Expired \n");
  EXPECT_EQ(check(path("now.pem")), "-1 SSL Certificate Expired \n");
  EXPECT_EQ(check(path("missing.pem")), "-1 SSL Certificate File Open Error \n");
  EXPECT_EQ(check(path("server.key")), "-1 SSL Not Found Certificate (Path: " + path("server.key") + ") \n");
  EXPECT_EQ(check(path("")), "-1 SSL Not Found Certificate (Path: " + path("") + ") \n");
}

}  // namespace
