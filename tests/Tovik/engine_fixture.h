// What the tests of the engine link share: a scripted engine and a look at the trace.
#ifndef TESTS_TOVIK_ENGINE_FIXTURE_H
#define TESTS_TOVIK_ENGINE_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Tovik/core/config.h"
#include "base/net.h"
#include "base/owners.h"
#include "utils/DunraSTTUtils.h"

namespace test {

// tests/peers/engine_peer.py with these arguments; ends with this object.
class EnginePeer {
 public:
  explicit EnginePeer(std::vector<std::string> words = {}) {
    words.insert(words.begin(), {"/usr/bin/python3", PEERS_FOLDER "/engine_peer.py"});
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    EXPECT_EQ(::pipe2(in.data(), O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    stdin_ = base::UniqueFd(in[1]);
    const base::UniqueFd child_in(in[0]);
    const base::UniqueFd child_out(out[1]);
    const base::UniqueFile lines(::fdopen(out[0], "r"));
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    EXPECT_EQ(::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    ::posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(std::fscanf(lines.get(), "%d", &port_), 1);
  }
  EnginePeer(const EnginePeer&) = delete;
  EnginePeer& operator=(const EnginePeer&) = delete;
  ~EnginePeer() {
    stdin_.Reset();
    ::waitpid(pid_, nullptr, 0);
  }
  int Port() const { return port_; }

 private:
  base::UniqueFd stdin_;
  pid_t pid_ = -1;
  int port_ = 0;
};

// The trace and all other standard output of a call, at the highest level.
template <typename Call>
std::string TraceOf(Call call) {
  DunraSTTUtils::SetLogLevel(TRACE_TRACE);
  testing::internal::CaptureStdout();
  call();
  std::fflush(stdout);
  DunraSTTUtils::SetLogLevel(0);
  return testing::internal::GetCapturedStdout();
}

using Lines = std::vector<std::string>;

// The messages of such a text, each with its level: "ERROR [INIT] ...".
inline Lines Messages(const std::string& trace) {
  Lines messages;
  size_t start = 0;
  for (size_t end = trace.find('\n'); end != std::string::npos; end = trace.find('\n', start)) {
    const std::string line = trace.substr(start, end - start);
    start = end + 1;
    const size_t level = line.find("][");
    const size_t message = line.find("] : [");
    if (line.starts_with("[HANG]") || level == std::string::npos || message == std::string::npos) continue;
    messages.push_back(line.substr(level + 2, line.find(']', level + 2) - level - 2) + " " +
                       line.substr(message + 5, line.size() - message - 6));
  }
  return messages;
}

inline bool HasLine(const Lines& lines, const std::string& start) {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.starts_with(start); });
}

// A connected pair of sockets above the standard descriptors.
inline std::pair<base::UniqueFd, base::UniqueFd> SocketPair() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  return {base::UniqueFd(ends[0]), base::UniqueFd(ends[1])};
}

// A loopback socket that is bound to a free port: listening, or refusing connections.
inline base::UniqueFd BoundSocket(bool listening, int* port) {
  base::UniqueFd socket = base::OpenSocket(AF_INET);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  EXPECT_EQ(::bind(socket.Get(), generic, length), 0);
  EXPECT_EQ(listening ? ::listen(socket.Get(), 8) : 0, 0);
  EXPECT_EQ(::getsockname(socket.Get(), generic, &length), 0);
  *port = ntohs(address.sin_port);
  return socket;
}

inline std::string Bytes(const std::vector<int32_t>& numbers) {
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(int32_t)};
}

inline void Send(const base::UniqueFd& fd, const std::string& bytes) {
  ASSERT_EQ(base::SendAll(fd.Get(), bytes.data(), bytes.size()), 0);
}

inline std::string Receive(const base::UniqueFd& fd, size_t length) {
  std::string bytes(length, '\0');
  EXPECT_GT(base::ReceiveExactly(fd.Get(), bytes.data(), length, 10'000), 0);
  return bytes;
}

}  // namespace test

#endif
