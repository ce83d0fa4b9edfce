// crowd COUNT COMMAND [WORD...]: runs the command among that many sleeping processes, and ends with its
// status. Orphans come to this program, which reaps them as init would; it is meant to be process 1 of a pid
// namespace of its own, so that the process table holds the same processes in every run.
//
// It is linked statically. A kernel that watches page accesses (DAMON, in some virtual machines) walks all
// mappings of a page with the file's lock held; while it does so for libc's pages, mapped by thousands of
// sleepers, every start of a program waits, up to 100 ms, whoever starts it.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void Sleep(pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  while (::getppid() == parent) ::pause();
  ::_exit(0);
}

// The wait status of the command, when it has ended.
int ReapUntil(pid_t command) {
  while (true) {
    int status = 0;
    const pid_t pid = ::wait(&status);
    if (pid < 0 || pid == command) return status;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("crowd COUNT COMMAND [WORD...]\n", stderr);
    return 2;
  }
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t parent = ::getpid();
  for (int left = std::atoi(argv[1]); left > 0; --left) {
    const pid_t pid = ::fork();
    if (pid == 0) Sleep(parent);
    if (pid < 0) return 2;
  }
  const pid_t command = ::fork();
  if (command == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::execvp(argv[2], argv + 2);
    ::_exit(127);
  }
  const int status = ReapUntil(command);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
