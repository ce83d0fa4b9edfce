// Waits, with and without a stop, and what is built on them.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <semaphore>

#include "base/net.h"
#include "base/resolve.h"
#include "base/stop.h"
#include "support/support.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

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

TEST(OwnerTest, AMoveOverALiveDescriptorClosesIt) {
  Pair pair;
  const int kept = pair.other.Get();
  pair.one = std::move(pair.other);
  EXPECT_EQ(pair.one.Get(), kept);
  char byte = 0;
  EXPECT_EQ(::recv(kept, &byte, 1, MSG_DONTWAIT), 0) << "its peer is gone, itself is not";
}

TEST(WaitTest, TellsReadyTimeOutAndError) {
  const Pair pair;
  char byte = 0;
  EXPECT_EQ(base::WaitDescriptor(pair.one.Get(), POLLIN, 10), 0);
  EXPECT_EQ(base::ReceiveSome(pair.one.Get(), &byte, 1, 10), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  support::Send(pair.other.Get(), "x");
  EXPECT_EQ(base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER), 1);
  for (const int bad : {-1, 9999}) {
    errno = 0;
    EXPECT_EQ(base::WaitDescriptor(bad, POLLIN, base::FOREVER), -1);
    EXPECT_EQ(errno, EBADF);
  }
}

TEST(NetTest, MovesMoreThanTheBuffersHoldAboveThe1024thDescriptor) {
  const rlimit limit{4096, 4096};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  const Pair pair;
  const base::UniqueFd high(::fcntl(pair.one.Get(), F_DUPFD_CLOEXEC, 3000));
  const std::string data(4'000'000, 'd');
  std::string got(data.size(), '\0');
  std::thread reader([&] { base::ReceiveExactly(pair.other.Get(), got.data(), got.size(), 10'000); });
  EXPECT_EQ(base::SendAll(high.Get(), data.data(), data.size()), 0);
  reader.join();
  EXPECT_TRUE(got == data);
}

TEST(ResolveTest, FiguresAndNames) {
  base::AddressList list;
  for (const char* host : {"127.0.0.1", "localhost"}) {
    ASSERT_EQ(base::Resolve(host, "25", AF_INET, IPPROTO_TCP, &list), 0);
    const auto* address = reinterpret_cast<const sockaddr_in*>(list->ai_addr);
    EXPECT_EQ(address->sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(address->sin_port, htons(25));
  }
  EXPECT_EQ(base::Resolve("127.0.0.1", "no such service", AF_UNSPEC, IPPROTO_TCP, &list), EAI_SERVICE);
  EXPECT_EQ(list, nullptr);
}

// Ends the process, for a stop lasts as long as it: with 0 when all went well.
[[noreturn]] void SleepAndWaitThroughAStop() {
  const Pair pair;
  base::StopPrepare();
  const auto start = steady_clock::now();
  std::thread([] {
    base::SleepMilliseconds(20);
    base::StopRequest();
  }).detach();
  const bool quick = !base::SleepSeconds(600) && steady_clock::now() - start < milliseconds(2000);
  const bool cut = base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER) == -1 && errno == ECANCELED;
  const auto passed = steady_clock::now() - start;
  const bool inTime = passed >= milliseconds(4900) && passed < milliseconds(8000);
  support::Send(pair.other.Get(), "x");
  const bool ready = base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER) == 1;
  std::_Exit(quick && cut && inTime && ready && base::StopGraceOver() ? 0 : 1);
}

TEST(StopDeathTest, EndsSleepsAtOnceAndWaitsAfterTheGrace) {
  EXPECT_EXIT(SleepAndWaitThroughAStop(), testing::ExitedWithCode(0), "");
}

TEST(StopTest, APendingSignalEndsTheWaitsOfStartUp) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  const Pair pair;
  base::AddressList list;
  {
    const base::StopOnPendingSignal stoppable;
    ::kill(::getpid(), SIGTERM);
    EXPECT_FALSE(base::SleepSeconds(600));
    EXPECT_EQ(base::WaitDescriptor(pair.one.Get(), POLLIN, base::FOREVER), -1);
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
}

}  // namespace
