// Waits on descriptors and children, and the signals that cut them during start-up.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <semaphore>

#include "base/child_process.h"
#include "base/resolve.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "support/support.h"

namespace {

std::counting_semaphore<> release(0);
std::counting_semaphore<> released(0);

}  // namespace

// Replaces the system's resolver for one name, whose look-up hangs until `release`.
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

struct WaitTest : testing::Test {
  std::pair<base::UniqueFd, base::UniqueFd> sockets = support::SocketPair();
  const int one = sockets.first.Get();
  const int other = sockets.second.Get();
};

TEST_F(WaitTest, ReturnsReadyTimeOutOrError) {
  char byte = 0;
  EXPECT_EQ(base::WaitDescriptor(one, POLLIN, 10), 0);
  EXPECT_EQ(base::ReceiveSome(one, &byte, 1, 10), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  support::Send(other, "x");
  EXPECT_EQ(base::WaitDescriptor(one, POLLIN, base::FOREVER), 1);
  for (const int bad : {-1, 9999}) {
    errno = 0;
    EXPECT_EQ(base::WaitDescriptor(bad, POLLIN, base::FOREVER), -1);
    EXPECT_EQ(errno, EBADF);
  }
}

TEST_F(WaitTest, TransfersMoreThanTheSocketBuffersHold) {
  std::string data(4'000'000, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i % 251);
  std::string got(data.size(), '\0');
  std::thread reader([&] { EXPECT_GT(base::ReceiveExactly(other, got.data(), got.size(), 10'000), 0); });
  EXPECT_EQ(base::SendAll(one, data.data(), data.size()), 0);
  reader.join();
  EXPECT_TRUE(got == data);
}

TEST_F(WaitTest, APendingSignalCutsEveryWait) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  base::AddressList list;
  {
    const base::WaitsEndOnSignal stoppable;
    ::kill(::getpid(), SIGTERM);
    EXPECT_FALSE(base::SleepSeconds(600));
    EXPECT_EQ(base::WaitDescriptor(one, POLLIN, base::FOREVER), -1);
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_EQ(base::Resolve("hanging.test", "25", AF_UNSPEC, IPPROTO_TCP, &list), EAI_SYSTEM);
    EXPECT_EQ(errno, ECANCELED);
  }
  const timespec none{};
  EXPECT_EQ(::sigtimedwait(&set, nullptr, &none), SIGTERM) << "the signal stays pending";
  release.release(2);  // for the abandoned look-up and for the next one
  released.acquire();
  EXPECT_EQ(base::Resolve("hanging.test", "25", AF_UNSPEC, IPPROTO_TCP, &list), EAI_AGAIN);
  EXPECT_EQ(base::Resolve("localhost", "25", AF_UNSPEC, IPPROTO_TCP, &list), 0);
}

// The output of a program that is started with every signal blocked and SIGPIPE ignored.
std::string OutputOf(const std::vector<std::string>& words,
                     const std::vector<std::string>& environment = {}) {
  const support::TempFolder folder;
  const base::UniqueFd out(::open((folder / "out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(base::RunProgram(words, out.Get(), environment), 0);
  std::signal(SIGPIPE, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &all, nullptr);
  return support::ReadFile(folder / "out");
}

TEST(ChildTest, InheritsNoSignalState) {
  for (const char* set : {"Blk", "Ign"}) {
    const std::string mask =
        OutputOf({"sed", "-n", "s/^Sig" + std::string(set) + ":\t//p", "/proc/self/status"});
    ASSERT_EQ(mask.size(), 17U) << set;
    EXPECT_EQ(std::stoull(mask, nullptr, 16) & 0x7FFFFFFFU, 0U) << set << ", without the C library's signals";
  }
}

TEST(ChildTest, InheritsNoDescriptorAbove2) {
  const base::UniqueFd leaky(::open("/dev/null", O_RDONLY));  // not close-on-exec
  EXPECT_EQ(OutputOf({"sh", "-c", "for n in $(seq 3 99); do [ -e /proc/$$/fd/$n ] && echo $n; done; true"}),
            "");
}

TEST(ChildTest, AddsEntriesToTheEnvironment) {
  ::setenv("DUNRA_KEPT", "kept", 1);
  ::setenv("DUNRA_CHANGED", "old", 1);
  EXPECT_EQ(OutputOf({"sh", "-c", "echo $DUNRA_KEPT $DUNRA_CHANGED; env | grep -c DUNRA_CHANGED"},
                     {"DUNRA_CHANGED=new"}),
            "kept new\n1\n");
}

TEST(ChildTest, ReturnsTheStatusOrMinusOne) {
  EXPECT_EQ(WEXITSTATUS(base::RunShell("exit 7")), 7);
  EXPECT_EQ(base::RunProgram({"/nonexistent/program"}), -1);
  // Whether or not it is overdue.
  static int told = 0;
  for (const int64_t limit : {1, 60'000}) {
    const base::Overdue overdue{limit, [] { ++told; }};
    EXPECT_EQ(WEXITSTATUS(base::RunShell("sleep 0.2; exit 7", &overdue)), 7);
  }
  EXPECT_EQ(told, 1);
}

}  // namespace
