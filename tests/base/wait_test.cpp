// Waits, and what a signal that is pending during start-up does to them.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "base/net.h"
#include "base/stop.h"
#include "support/support.h"

namespace {

class WaitTest : public testing::Test {
 protected:
  WaitTest() {
    int fds[2] = {-1, -1};
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
    one_.Reset(fds[0]);
    other_.Reset(fds[1]);
  }
  base::UniqueFd one_;
  base::UniqueFd other_;
};

TEST_F(WaitTest, TellsReadyTimeOutAndError) {
  char byte = 0;
  EXPECT_EQ(base::WaitDescriptor(one_.Get(), POLLIN, 10), 0);
  EXPECT_EQ(base::ReceiveSome(one_.Get(), &byte, 1, 10), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  support::Send(other_.Get(), "x");
  EXPECT_EQ(base::WaitDescriptor(one_.Get(), POLLIN, base::FOREVER), 1);
  for (const int bad : {-1, 9999}) {
    errno = 0;
    EXPECT_EQ(base::WaitDescriptor(bad, POLLIN, base::FOREVER), -1);
    EXPECT_EQ(errno, EBADF);
  }
}

TEST_F(WaitTest, MovesMoreThanTheBuffersHold) {
  std::string data(4'000'000, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i % 251);
  std::string got(data.size(), '\0');
  std::thread reader([&] { base::ReceiveExactly(other_.Get(), got.data(), got.size(), 10'000); });
  EXPECT_EQ(base::SendAll(one_.Get(), data.data(), data.size()), 0);
  reader.join();
  EXPECT_TRUE(got == data);
}

TEST_F(WaitTest, APendingSignalEndsTheWaitsOfStartUp) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  {
    const base::StopOnPendingSignal stoppable;
    ::kill(::getpid(), SIGTERM);
    EXPECT_FALSE(base::SleepSeconds(600));
    EXPECT_EQ(base::WaitDescriptor(one_.Get(), POLLIN, base::FOREVER), -1);
    EXPECT_EQ(errno, ECANCELED);
  }
  const timespec none{};
  EXPECT_EQ(::sigtimedwait(&set, nullptr, &none), SIGTERM) << "it is kept";
}

}  // namespace
