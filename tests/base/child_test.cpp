#include "base/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "support/support.h"

namespace {

TEST(ChildTest, RunsTheShellAndTellsItsStatus) {
  const support::TempFolder folder;
  const std::string out = folder / "out $;' \"x";
  const base::UniqueFd file(::open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const int status = base::RunProgram({"printf", "%s|%s", "a b", "$HOME;'"}, file.Get());
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(support::ReadFile(out), "a b|$HOME;'");
  EXPECT_EQ(WEXITSTATUS(base::RunShell("exit 7")), 7);
  EXPECT_EQ(base::RunProgram({"/nonexistent/program"}), -1);
}

TEST(ChildTest, PutsEnvironmentEntriesInPlace) {
  const support::TempFolder folder;
  ::setenv("LC_ALL", "ko_KR.UTF-8", 1);
  const base::UniqueFd file(::open((folder / "out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  base::RunProgram({"sh", "-c", "echo $LC_ALL$DUNRA_X"}, file.Get(), {"LC_ALL=C", "DUNRA_X=y"});
  ::unsetenv("LC_ALL");
  EXPECT_EQ(support::ReadFile(folder / "out"), "Cy\n");
}

TEST(ChildTest, HandsDownNoSignalStateAndNoDescriptor) {
  const support::TempFolder folder;
  const base::UniqueFd leaky(::open("/dev/null", O_RDONLY));  // without close-on-exec, as from a parent
  sigset_t set;
  sigfillset(&set);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  const std::string out = folder / "out";
  base::RunShell(
      "exec > " + out +
      "; sed -nE 's/^Sig(Blk|Ign):[[:space:]]*//p' /proc/self/status"
      "; n=0; for fd in $(seq 3 99); do if [ -e /proc/$$/fd/$fd ]; then n=$((n + 1)); fi; done; echo $n");
  std::signal(SIGPIPE, SIG_DFL);
  sigemptyset(&set);
  pthread_sigmask(SIG_SETMASK, &set, nullptr);
  std::ifstream lines(out);
  unsigned long long blocked = 1;
  unsigned long long ignored = 1;
  int descriptors = -1;
  lines >> std::hex >> blocked >> ignored >> std::dec >> descriptors;
  EXPECT_EQ(blocked, 0U);
  EXPECT_EQ(ignored & 0x7FFFFFFFU, 0U) << "above are the C library's own two";
  EXPECT_EQ(descriptors, 0);
}

}  // namespace
