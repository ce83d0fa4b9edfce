// What the tests of the engine link share: sockets, packets, and a look at the trace.
#ifndef TESTS_TOVIK_ENGINE_FIXTURE_H
#define TESTS_TOVIK_ENGINE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Tovik/core/config.h"
#include "base/net.h"
#include "support/support.h"
#include "utils/DunraSTTUtils.h"

namespace test {

// The standard output of a call, trace lines of every level included.
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

// A connected pair of sockets.
inline std::pair<base::UniqueFd, base::UniqueFd> SocketPair() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {base::UniqueFd(ends[0]), base::UniqueFd(ends[1])};
}

// A loopback socket on a free port that queues so many connections; -1: refuses them.
inline base::UniqueFd BoundSocket(int queue, int* port) {
  base::UniqueFd socket = base::OpenSocket(AF_INET);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  EXPECT_EQ(::bind(socket.Get(), generic, length), 0);
  EXPECT_EQ(queue >= 0 ? ::listen(socket.Get(), queue) : 0, 0);
  EXPECT_EQ(::getsockname(socket.Get(), generic, &length), 0);
  *port = ntohs(address.sin_port);
  return socket;
}

template <typename Integer = int32_t>
std::string Bytes(const std::vector<Integer>& numbers) {
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(Integer)};
}

}  // namespace test

#endif
