// Goal: a look-up that hangs does not hold a stop. The system's resolver is replaced for one name.
#include "base/resolve.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "base/stop.h"

namespace {

sem_t release;
sem_t released;

}  // namespace

extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** list) {
  if (host != nullptr && std::strcmp(host, "hanging.test") == 0 && (hints->ai_flags & AI_NUMERICHOST) == 0) {
    ::sem_wait(&release);
    ::sem_post(&released);
    return EAI_AGAIN;
  }
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return real(host, service, hints, list);
}

namespace {

TEST(Resolve, FiguresAndNames) {
  base::AddressList list;
  ASSERT_EQ(base::Resolve("127.0.0.1", "25", AF_UNSPEC, IPPROTO_TCP, &list), 0);
  const auto* address = reinterpret_cast<const sockaddr_in*>(list->ai_addr);
  EXPECT_EQ(address->sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(address->sin_port, htons(25));
  ASSERT_EQ(base::Resolve("localhost", "25", AF_INET, IPPROTO_TCP, &list), 0);
  EXPECT_EQ(list->ai_socktype, SOCK_STREAM);
  EXPECT_EQ(base::Resolve("127.0.0.1", "no such service", AF_UNSPEC, IPPROTO_TCP, &list), EAI_SERVICE);
  EXPECT_EQ(list, nullptr);
  EXPECT_NE(base::Resolve("a..b", "25", AF_UNSPEC, IPPROTO_TCP, &list), 0);
}

TEST(Resolve, AStopAbandonsTheLookUp) {
  ::sem_init(&release, 0, 0);
  ::sem_init(&released, 0, 0);
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  base::AddressList list;
  {
    const base::StopOnPendingSignal cut;
    ::kill(::getpid(), SIGTERM);
    EXPECT_EQ(base::Resolve("hanging.test", "25", AF_UNSPEC, IPPROTO_TCP, &list), EAI_SYSTEM);
    EXPECT_EQ(errno, ECANCELED);
  }
  const timespec none{};
  EXPECT_EQ(::sigtimedwait(&stop, nullptr, &none), SIGTERM);
  ::sem_post(&release);  // the late answer meets nobody
  ::sem_wait(&released);
  ::sem_post(&release);
  EXPECT_EQ(base::Resolve("hanging.test", "25", AF_UNSPEC, IPPROTO_TCP, &list), EAI_AGAIN);
}

}  // namespace
