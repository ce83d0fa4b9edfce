// Shared by all tests: temporary folders, waits for a condition, and loopback peers in a thread. The standard
// headers of texts, files, times and threads come with it.
#ifndef TESTS_SUPPORT_H
#define TESTS_SUPPORT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "base/unique_handles.h"

namespace support {

class TempFolder {
 public:
  explicit TempFolder(std::string pattern = "/tmp/dunra-test-XXXXXX")
      : path_(std::string(mkdtemp(pattern.data())) + "/") {}
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + name; }
  std::string Write(const std::string& name, const std::string& text, mode_t mode = 0644) const {
    std::ofstream(path_ + name, std::ios::binary) << text;
    ::chmod((path_ + name).c_str(), mode);
    return path_ + name;
  }

 private:
  std::string path_;
};

// The text of a file; empty when there is none.
inline std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Waits until the condition holds. Returns false when the limit passes first. The default limit is long, for
// loaded machines and sanitizers.
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    ::poll(nullptr, 0, 5);
  }
  return true;
}

// A listening port of 127.0.0.1 (AF_INET6: of every address, without those of IPv4), chosen by the kernel.
// With refuses it is only bound, so connections are refused.
class Listener {
 public:
  explicit Listener(bool refuses = false, int family = AF_INET)
      : fd_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in loopback{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    if (family == AF_INET) std::memcpy(&address, &loopback, sizeof loopback);
    const int one = 1;
    ::setsockopt(fd_.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
    socklen_t length = family == AF_INET ? sizeof loopback : sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    ::bind(fd_.Get(), generic, length);
    if (!refuses) ::listen(fd_.Get(), SOMAXCONN);
    ::getsockname(fd_.Get(), generic, &length);
    port_ = ntohs(address.sin6_port);
  }
  int Port() const { return port_; }
  // Takes connections from now on.
  void Listen(int backlog = SOMAXCONN) const { ::listen(fd_.Get(), backlog); }
  base::UniqueFd Accept() const {
    return base::UniqueFd(::accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  // A client that has connected or is connecting.
  base::UniqueFd Connect() const {
    base::UniqueFd client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    ::getsockname(fd_.Get(), generic, &length);
    ::connect(client.Get(), generic, length);
    return client;
  }
  // True when a client waits to be accepted.
  bool Visited() const {
    pollfd waiting{fd_.Get(), POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 1;
  }

 private:
  base::UniqueFd fd_;
  int port_ = 0;
};

// Serves one connection with a function, on a thread that the destructor joins.
class Conversation {
 public:
  explicit Conversation(std::function<void(int)> script)
      : thread_([this, script = std::move(script)] { script(listener_.Accept().Get()); }) {}
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  ~Conversation() { Finish(); }
  int Port() const { return listener_.Port(); }
  void Finish() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  Listener listener_;
  std::thread thread_;
};

// Two connected sockets.
inline std::pair<base::UniqueFd, base::UniqueFd> SocketPair() {
  int ends[2] = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  return {base::UniqueFd(ends[0]), base::UniqueFd(ends[1])};
}

inline std::string Receive(int fd, size_t length) {
  std::string text(length, '\0');
  text.resize(static_cast<size_t>(std::max<ssize_t>(0, ::recv(fd, text.data(), length, MSG_WAITALL))));
  return text;
}

inline void Send(int fd, const std::string& text) {
  ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
}

// How often part occurs in text.
inline size_t Count(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

// Sets a text variable of the configuration.
template <size_t Size>
void SetText(char (&variable)[Size], const std::string& text) {
  std::snprintf(variable, Size, "%s", text.c_str());
}

}  // namespace support

#endif
