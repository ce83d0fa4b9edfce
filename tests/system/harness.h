// Runs the real agent in a folder of its own, beside an engine stand-in and scripted peers.
//
// Agent and engine get short process names of their own, so that any number of tests can run at once: the
// names are symbolic links in the test's folder, since the kernel takes the name from the path executed.
// Whatever a test starts, also a daemon and the engines that the agent started, is killed and reaped when the
// test ends, however it ends.
#ifndef TESTS_SYSTEM_HARNESS_H
#define TESTS_SYSTEM_HARNESS_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/support.h"

namespace harness {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::Listener;
using support::ReadFile;
using support::WaitUntil;
using Words = std::vector<std::string>;

size_t Count(std::string_view text, std::string_view part);
// A number from the environment.
int64_t Number(const char* name, int64_t otherwise);

// A child of the test, its output added to these files. It dies with the test, and is killed and reaped by
// the destructor.
class Process {
 public:
  explicit Process(Words words, const std::string& out = "/dev/null", const std::string& err = "/dev/null");
  ~Process();
  Process(Process&& other) noexcept : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}
  Process& operator=(Process&&) = delete;

  pid_t Pid() const { return pid_; }
  bool Alive() { return Wait(milliseconds(0)) == -1; }
  // The wait status; -1 when it has not ended within the limit.
  int Wait(milliseconds limit = seconds(20));
  // The exit status; -1 when a signal ended it.
  int ExitStatus();

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

// A script of tests/peers in a process of its own, that keeps what it gets in a folder of its own.
class Peer {
 public:
  Peer(const support::TempFolder& folder, const std::string& name, const std::string& script,
       const Words& words = {});
  std::string Port() const { return std::to_string(port_); }
  std::string Address() const { return "127.0.0.1:" + Port(); }
  // How often that stands in what it keeps.
  size_t Seen(std::string_view text) const;
  int Arrived() const { return atoi(ReadFile(folder_ + "count").c_str()); }

 private:
  std::string folder_;
  Process process_;
  int port_ = 0;
};

// Fixture: a folder with an engine stand-in, its start script and a configuration that runs the process check
// every second, and no other check.
class AgentTest : public testing::Test {
 protected:
  AgentTest();
  ~AgentTest() override;
  void TearDown() override;

  // Its output goes to out.txt and err.txt.
  Process Run(const Words& words) const { return Process(words, folder_ / "out.txt", folder_ / "err.txt"); }
  // Writes the configuration and runs the agent on it, with further words; by another program, which executes
  // the words that follow its own.
  Process Start(const Words& arguments = {}, Words by = {}) const;
  // The same, and waits until it is up.
  Process StartedAgent(const Words& arguments = {}) const;
  std::string Out() const { return ReadFile(folder_ / "out.txt"); }
  bool WaitForOut(const std::string& text) const;
  // Stops the agent: it says good-bye and dies of SIGINT in time.
  void ExpectStops(Process& agent, seconds limit, const std::vector<int>& signals = {SIGTERM}) const;

  // Process ids that bear this short name (zombies too).
  static std::vector<pid_t> Named(const std::string& name);
  void StartEngine() const;
  void KillEngine() const;  // and reaps every one
  bool EngineAlive() const { return !Named(engine_).empty(); }
  // The agent's log of that name in its dated folders.
  std::string Log(const std::string& name) const;

  support::TempFolder folder_{"/tmp/agent test XXXXXX"};
  std::string agent_ = "agt" + std::to_string(getpid());  // short process names
  std::string engine_ = "eng" + std::to_string(getpid());
  Listener engine_port_{true};
  std::string config_;  // the last line of a key counts
};

// The same with every alarm channel on.
class AllChannels : public AgentTest {
 protected:
  struct Delivered {
    size_t reports = 0;
    int mails = 0;
    int posts = 0;
    bool AllBeyond(const Delivered& other) const {
      return reports > other.reports && mails > other.mails && posts > other.posts;
    }
  };

  AllChannels();
  Delivered Now() const;
  // Kills the engine until that has the effect: a start script that is under way may bring up another one.
  bool KillUntil(const std::function<bool()>& condition) const;
  void ExpectAlarmOnAllChannels(const std::string& when) const;

  Peer server_{folder_, "server", "mgmt_server.py"};
  Peer mails_{folder_, "mails", "mail_sink.py"};
  Peer posts_{folder_, "posts", "webhook_sink.py"};
};

}  // namespace harness

#endif
