// Waits, and what a signal that is pending during start-up does to them.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <semaphore>
#include <tuple>

#include "base/net.h"
#include "base/resolve.h"
#include "base/stop.h"
#include "support/support.h"

namespace {

std::counting_semaphore<> release(0);
std::counting_semaphore<> released(0);

}  // namespace

// The system's resolver, replaced for one name, whose look-up hangs.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** list) {
  if (std::strcmp(host, "hanging.test") == 0 && (hints->ai_flags & AI_NUMERICHOST) == 0) {
    release.acquire();
    released.release();
    return EAI_AGAIN;
  }
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return real(host, service, hints, list);
}

namespace {

class WaitTest : public testing::Test {
 protected:
  WaitTest() { std::tie(one_, other_) = support::SocketPair(); }
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
  std::thread reader(
      [&] { EXPECT_GT(base::ReceiveExactly(other_.Get(), got.data(), got.size(), 10'000), 0); });
  EXPECT_EQ(base::SendAll(one_.Get(), data.data(), data.size()), 0);
  reader.join();
  EXPECT_TRUE(got == data);
}

TEST_F(WaitTest, APendingSignalEndsTheWaitsOfStartUp) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  base::AddressList list;
  {
    const base::StopOnPendingSignal stoppable;
    ::kill(::getpid(), SIGTERM);
    EXPECT_FALSE(base::SleepSeconds(600));
    EXPECT_EQ(base::WaitDescriptor(one_.Get(), POLLIN, base::FOREVER), -1);
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_EQ(base::Resolve("hanging.test", "25", AF_UNSPEC, IPPROTO_TCP, &list), EAI_SYSTEM);
    EXPECT_EQ(errno, ECANCELED);
  }
  const timespec none{};
  EXPECT_EQ(::sigtimedwait(&set, nullptr, &none), SIGTERM) << "it is kept";
  release.release();  // the late answer meets nobody
  released.acquire();
  release.release();
  EXPECT_EQ(base::Resolve("hanging.test", "25", AF_UNSPEC, IPPROTO_TCP, &list), EAI_AGAIN);
  EXPECT_EQ(base::Resolve("localhost", "25", AF_UNSPEC, IPPROTO_TCP, &list), 0);
}

}  // namespace
