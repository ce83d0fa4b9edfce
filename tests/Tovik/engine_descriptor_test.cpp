#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_session.h"
#include "Tovik/engine/engine_socket.h"
#include "Tovik/engine_fixture.h"
#include "base/descriptors.h"

namespace {

bool IsNullDevice(int fd) {
  struct stat given {};
  struct stat null {};
  return ::fstat(fd, &given) == 0 && ::stat("/dev/null", &null) == 0 && given.st_rdev == null.st_rdev;
}

TEST(CloseDescriptor, LeavesTheNullDeviceOnStandardInput) {
  const base::UniqueFd saved(::fcntl(0, F_DUPFD_CLOEXEC, 3));
  auto [near, far] = test::SocketPair();
  ASSERT_EQ(::dup2(near.Get(), 0), 0);
  near.Reset();
  EXPECT_EQ(base::CloseDescriptor(0), 0);
  EXPECT_TRUE(IsNullDevice(0));
  EXPECT_EQ(::fcntl(0, F_GETFD), 0);
  char byte = 0;
  EXPECT_EQ(base::ReceiveSome(far.Get(), &byte, 1, 1000), 0);  // what was there is closed
  ::close(0);
  EXPECT_EQ(base::CloseDescriptor(0), 0);  // a number that was free is so no more
  EXPECT_TRUE(IsNullDevice(0));
  EXPECT_EQ(::fcntl(0, F_GETFD), 0);
  if (saved.Valid()) ::dup2(saved.Get(), 0);
}

TEST(CloseDescriptor, ClosesEveryOther) {
  auto [near, far] = test::SocketPair();
  const int fd = near.Release();
  EXPECT_EQ(base::CloseDescriptor(fd), 0);
  EXPECT_EQ(base::CloseDescriptor(fd), -1);
  EXPECT_EQ(base::CloseDescriptor(-1), -1);
}

// One exchange over a fresh pair and one line into a fresh file; false when a descriptor was lost under it.
bool Exchange(const std::string& path) {
  const auto [near, far] = test::SocketPair();
  base::UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!near.Valid() || !far.Valid() || !file.Valid()) return false;
  std::array<char, 8> got{};
  return base::SendAll(near.Get(), "message", 8) == 0 && ::write(file.Get(), "message", 8) == 8 &&
         base::ReceiveExactly(far.Get(), got.data(), got.size(), 1000) > 0 &&
         std::strcmp(got.data(), "message") == 0 && ::pread(file.Get(), got.data(), got.size(), 0) == 8 &&
         file.Reset() == 0;
}

// Probes and queries that fail close descriptor 0, over and over, while other threads open and close.
TEST(EngineDescriptors, FailedProbesAndQueriesShootNobodysDescriptor) {
  constexpr int ROUNDS = 1'000;
  int port = 0;
  const base::UniqueFd closed = test::BoundSocket(false, &port);
  m_PROC_PORT = port;
  char pattern[] = "/tmp/descriptors.XXXXXX";
  const std::string folder = ::mkdtemp(pattern);
  base::CloseDescriptor(0);  // as at the agent's start: 0 is not free
  std::atomic<bool> done{false};
  std::atomic<long> exchanges{0};
  std::atomic<long> lost{0};
  std::vector<std::thread> others;
  others.reserve(3);
  for (int i = 0; i < 3; ++i) {
    others.emplace_back([&, path = folder + "/" + std::to_string(i)] {
      while (!done) (Exchange(path) ? exchanges : lost)++;
    });
  }
  for (int i = 0; i < ROUNDS; ++i) {
    long session = 0;
    EXPECT_EQ(Session_Create("127.0.0.1", port, &session), -3);
    EXPECT_EQ(Session_Destroy(session), 0);
    LVCSR_SOCK_HEAD head{};
    EXPECT_EQ(DunraSTT_EXIT(&head), 0);
    EXPECT_EQ(SHM_OPEN(), -1);
  }
  done = true;
  for (std::thread& other : others) other.join();
  EXPECT_EQ(lost, 0);
  EXPECT_GT(exchanges, 0);
  EXPECT_TRUE(IsNullDevice(0));
  std::filesystem::remove_all(folder);
}

}  // namespace
