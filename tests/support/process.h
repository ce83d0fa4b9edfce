// The processes of a test: programs that it runs, and the scripted peers of tests/peers.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "support/support.h"

namespace support {

using Words = std::vector<std::string>;

inline Words Joined(Words first, const Words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// A child process. Its output is appended to the given files. The destructor kills and reaps it; it is also
// killed when the test ends without one.
class Process {
 public:
  explicit Process(Words words, const std::string& out = "/dev/null", const std::string& err = "/dev/null") {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent && freopen("/dev/null", "r", stdin) != nullptr &&
        freopen(out.c_str(), "a", stdout) != nullptr && freopen(err.c_str(), "a", stderr) != nullptr) {
      execvp(pointers[0], pointers.data());
    }
    _exit(127);
  }
  Process(Process&& other) noexcept : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}
  Process& operator=(Process&&) = delete;
  ~Process() {
    if (pid_ < 0 || !Alive()) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  pid_t Pid() const { return pid_; }
  bool Alive() { return Wait(std::chrono::milliseconds(0)) == -1; }
  // Waits for the end of the process. Returns the wait status, or -1 when it has not ended within the limit.
  int Wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    WaitUntil([this] { return status_ != -1 || waitpid(pid_, &status_, WNOHANG) != 0; }, limit);
    return status_;
  }
  // Returns the exit status, or -1 when a signal ended the process.
  int ExitStatus() {
    const int status = Wait();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

// A running script of tests/peers. It stores what it receives in a folder named after it. Throws when the
// script does not print its port.
class Peer {
 public:
  Peer(const TempFolder& folder, const std::string& name, const std::string& script, const Words& words = {})
      : folder_((std::filesystem::create_directory(folder / name), folder / name + "/")),
        process_(Joined({"env", "-C", folder_, "/usr/bin/python3", PEERS_FOLDER "/" + script}, words),
                 folder_ + "out", folder_ + "err") {
    WaitUntil([&] { return ReadFile(folder_ + "out").ends_with('\n'); });
    if (sscanf(ReadFile(folder_ + "out").c_str(), "port %d", &port_) != 1)
      throw std::runtime_error(script + ": " + ReadFile(folder_ + "err"));
  }
  std::string Port() const { return std::to_string(port_); }
  std::string Address() const { return "127.0.0.1:" + Port(); }
  // Waits for a file and returns its text; empty when it does not appear. Peers rename files into place, so a
  // file is always complete.
  std::string Kept(const std::string& name) const {
    WaitUntil([&] { return std::filesystem::exists(folder_ + name); });
    return ReadFile(folder_ + name);
  }
  // How often the text occurs in all of its files together.
  size_t Seen(std::string_view text) const {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
      count += Count(ReadFile(entry.path()), text);
    return count;
  }
  bool WaitFor(std::string_view text, size_t count = 1) const {
    return WaitUntil([&] { return Seen(text) >= count; });
  }
  int Arrived() const { return atoi(ReadFile(folder_ + "count").c_str()); }

 private:
  std::string folder_;
  Process process_;
  int port_ = 0;
};

// Why a program's system calls cannot be judged here; null when they can.
inline const char* NoStrace() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return "a sanitizer makes calls of its own";
#else
  return std::filesystem::exists("/usr/bin/strace") ? nullptr : "without strace";
#endif
}

}  // namespace support

#endif
