// What a channel query costs over TCP and over TLS 1.3 on loopback, beside a bare loop that connects, sends,
// receives and closes the same bytes; and whether a day's worth of queries leaves anything behind.
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_packet.h"
#include "base/stoppable_socket.h"
#include "base/unique_handles.h"
#include "tls/certificates.h"
#include "tls/tls_socket.h"

namespace {

constexpr int QUERIES = 2'000;
constexpr int DAY = 24 * 60 * 60 / 10;
constexpr int CHANNELS = 20;
constexpr size_t REQUEST = sizeof(LVCSR_NET_HEADER);

std::string Reply() {
  std::vector<int32_t> numbers = {5, 0, 20 + CHANNELS * 8, 7, CHANNELS, CHANNELS, 3, 0, CHANNELS - 3};
  for (int i = 0; i < CHANNELS; ++i) numbers.insert(numbers.end(), {i, 1});
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(int32_t)};
}

// Answers one query per connection, under TLS when it has a context, for as long as the process lives.
class Engine {
 public:
  explicit Engine(SSL_CTX* context) : context_(context), listener_(base::OpenSocket(AF_INET)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    auto* generic = reinterpret_cast<sockaddr*>(&address_);
    if (::bind(listener_.Get(), generic, length) < 0 || ::listen(listener_.Get(), 128) < 0 ||
        ::getsockname(listener_.Get(), generic, &length) < 0) {
      std::perror("listen");
      std::exit(1);
    }
    std::thread([this] { Serve(); }).detach();
  }
  const sockaddr_in& Address() const { return address_; }

 private:
  void Serve() {
    const std::string reply = Reply();
    std::array<char, REQUEST> request{};
    while (true) {
      const base::UniqueFd connection(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      LVCSR_SOCK_HEAD head{};
      head.pCTX = context_;
      if (context_ == nullptr) {
        if (base::ReceiveExactly(connection.Get(), request.data(), request.size()) > 0) {
          base::SendAll(connection.Get(), reply.data(), reply.size());
        }
      } else if (ServerSockSetting(&head, connection.Get()) == 1 &&
                 Read(&head, request.data(), request.size()) == static_cast<int>(request.size())) {
        Write(&head, reply.data(), static_cast<int>(reply.size()));
      }
      SSLReset(&head);
    }
  }

  SSL_CTX* context_;
  base::UniqueFd listener_;
  sockaddr_in address_{};
};

template <typename Call>
double MedianMicroseconds(Call call) {
  std::vector<double> times;
  for (int i = 0; i < QUERIES; ++i) {
    const auto start = std::chrono::steady_clock::now();
    call();
    times.push_back(
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  }
  std::nth_element(times.begin(), times.begin() + QUERIES / 2, times.end());
  return times[QUERIES / 2];
}

void Query() {
  if (SHM_OPEN() == 1 && CurrentChannelStatus()->nEntries == CHANNELS) return;
  std::fprintf(stderr, "a query failed\n");
  std::exit(1);
}

void BareLoop(const sockaddr_in& address) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const linger at_once{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  const LVCSR_NET_HEADER request{5, 0, 0, -1};
  std::array<char, 36 + CHANNELS * 8> reply{};
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0 ||
      ::send(fd, &request, sizeof request, 0) < 0 ||
      ::recv(fd, reply.data(), reply.size(), MSG_WAITALL) < 0) {
    std::perror("bare loop");
    std::exit(1);
  }
  ::close(fd);
}

long ResidentKb() {
  long size = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * 4;
}

long Descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

void Measure(const char* name, const Engine& engine, bool tls) {
  m_ssl_check = tls ? 1 : 0;
  m_PROC_PORT = ntohs(engine.Address().sin_port);
  std::fprintf(stderr, "%s: median of %d queries %.1f us\n", name, QUERIES, MedianMicroseconds(Query));
  const long resident = ResidentKb();
  const long descriptors = Descriptors();
  for (int i = 0; i < DAY; ++i) Query();
  std::fprintf(stderr, "%s: %d queries: resident %ld -> %ld kB, descriptors %ld -> %ld\n", name, DAY,
               resident, ResidentKb(), descriptors, Descriptors());
}

}  // namespace

int main() {
  const test::CertificateFolder files;
  if (std::freopen("/dev/null", "we", stdout) == nullptr) return 1;  // a line per handshake
  LVCSR_SOCK_HEAD server{};
  CreateServerContext(SSLInit(&server));
  const auto path = [&](const char* file) { return files.Path(file); };
  CertificateLoad(&server, path("server.pem").c_str(), path("server.key").c_str(), "");
  static const Engine plain(nullptr);
  static const Engine secure(server.pCTX);
  std::fprintf(stderr, "bare loop: median of %d %.1f us\n", QUERIES,
               MedianMicroseconds([] { BareLoop(plain.Address()); }));
  Measure("TCP", plain, false);
  Measure("TLS", secure, true);
  std::snprintf(m_sz_cert_file, sizeof m_sz_cert_file, "%s", path("client.pem").c_str());
  std::snprintf(m_sz_key_file, sizeof m_sz_key_file, "%s", path("client.key").c_str());
  std::snprintf(m_sz_ca_file, sizeof m_sz_ca_file, "%s", path("ca.pem").c_str());
  std::snprintf(m_sz_ssl_password, sizeof m_sz_ssl_password, "secret");
  Measure("TLS with certificates", secure, true);
}
