#include "base/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "support/support.h"

namespace {

TEST(ChildTest, HandsDownNoSignalStateAndNoDescriptor) {
  const support::TempFolder folder;
  const base::UniqueFd leaky(::open("/dev/null", O_RDONLY));  // without close-on-exec, as from a parent
  sigset_t set;
  sigfillset(&set);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  const base::UniqueFd out(::open((folder / "out").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  EXPECT_EQ(base::RunProgram({"sed", "-nE", "s/^Sig(Blk|Ign):\t//p", "/proc/self/status"}, out.Get()), 0);
  EXPECT_EQ(
      base::RunProgram({"sh", "-c", "for n in $(seq 3 99); do [ -e /proc/$$/fd/$n ] && echo $n; done; true"},
                       out.Get()),
      0);
  EXPECT_EQ(WEXITSTATUS(base::RunShell("exit 7")), 7);
  EXPECT_EQ(base::RunProgram({"/nonexistent/program"}), -1);
  std::signal(SIGPIPE, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  const std::string lines = support::ReadFile(folder / "out");
  ASSERT_EQ(lines.size(), 34U) << lines;
  EXPECT_EQ(std::stoull(lines.substr(0, 16), nullptr, 16), 0U);
  EXPECT_EQ(std::stoull(lines.substr(17, 16), nullptr, 16) & 0x7FFFFFFFU, 0U) << "above: the C library's";
}

}  // namespace
