#include "base/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "support/support.h"

namespace {

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
