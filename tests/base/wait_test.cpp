// Waits, with and without a stop. A stop lasts as long as its process, so each case that requests one runs in
// a child.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "base/net.h"
#include "base/stop.h"
#include "support/support.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// True when the check holds in a child process.
bool HoldsInChild(const std::function<bool()>& check) {
  const pid_t child = fork();
  if (child == 0) std::_Exit(check() ? 0 : 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

milliseconds Since(steady_clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

struct Pair {
  base::UniqueFd one;
  base::UniqueFd other;
  Pair() {
    int fds[2] = {-1, -1};
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
    one.Reset(fds[0]);
    other.Reset(fds[1]);
  }
};

TEST(WaitTest, TellsReadyTimeOutAndError) {
  const Pair pair;
  EXPECT_EQ(base::WaitDescriptor(pair.one.Get(), POLLIN, 10), 0);
  support::Send(pair.other.Get(), "x");
  EXPECT_EQ(base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER), 1);
  EXPECT_EQ(base::WaitDescriptor(-1, POLLIN, 0), -1);
  EXPECT_EQ(base::WaitDescriptor(9999, POLLIN, base::FOREVER), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(WaitTest, WorksAboveThe1024thDescriptor) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const Pair pair;
  const base::UniqueFd high(::fcntl(pair.one.Get(), F_DUPFD_CLOEXEC, 3000));
  ASSERT_TRUE(high.Valid());
  support::Send(pair.other.Get(), "abc");
  char buffer[3];
  EXPECT_EQ(base::ReceiveExactly(high.Get(), buffer, sizeof buffer, 1000), 3);
  EXPECT_EQ(base::ReceiveSome(high.Get(), buffer, sizeof buffer, 10), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST(NetTest, ConnectGivesTheKernelsErrors) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  {
    const support::Listener closedSoon;
    address.sin_port = htons(static_cast<uint16_t>(closedSoon.Port()));
    const base::UniqueFd fd = base::OpenSocket(AF_INET);
    EXPECT_EQ(base::Connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::fcntl(fd.Get(), F_GETFL) & O_NONBLOCK, 0);
  }
  const base::UniqueFd fd = base::OpenSocket(AF_INET);
  EXPECT_EQ(base::Connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST(NetTest, SendsMoreThanTheBuffersHold) {
  const Pair pair;
  const std::string data(4'000'000, 'd');
  std::string got;
  std::thread reader([&] {
    while (got.size() < data.size()) got += support::Receive(pair.other.Get(), 65536);
  });
  EXPECT_EQ(base::SendAll(pair.one.Get(), data.data(), data.size()), 0);
  ::shutdown(pair.one.Get(), SHUT_WR);
  reader.join();
  EXPECT_EQ(got.size(), data.size());
}

TEST(StopTest, EndsSleepsAtOnceAndWaitsAfterTheGrace) {
  EXPECT_TRUE(HoldsInChild([] {
    const Pair pair;
    if (base::StopPrepare() < 0) return false;
    std::thread stopper([] {
      base::SleepMilliseconds(20);
      base::StopRequest();
    });
    const auto start = steady_clock::now();
    const bool slept = base::SleepSeconds(600);
    const bool quick = Since(start) < milliseconds(2000);
    stopper.join();
    const int waited = base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER);
    const bool cut = waited == -1 && errno == ECANCELED && base::StopGraceOver();
    const bool inGrace = Since(start) >= milliseconds(4900) && Since(start) < milliseconds(8000);
    support::Send(pair.other.Get(), "x");
    return !slept && quick && cut && inGrace &&
           base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER) == 1;
  }));
}

TEST(StopTest, APendingSignalEndsTheWaitsOfStartUp) {
  EXPECT_TRUE(HoldsInChild([] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    const Pair pair;
    const base::StopOnPendingSignal stoppable;
    ::kill(::getpid(), SIGTERM);
    const bool slept = base::SleepSeconds(600);
    const int waited = base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER);
    const bool cut = waited == -1 && errno == ECANCELED;
    sigpending(&set);
    return !slept && cut && sigismember(&set, SIGTERM) == 1;
  }));
}

}  // namespace
