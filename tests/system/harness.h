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

// A child of the test. It dies with the test, and is killed and reaped by the destructor.
class Process {
 public:
  struct Options {
    Words words;  // the first is the path of the program
    Words environment = {};
    std::string out = {};  // file that its standard output is added to
    std::string err = {};
    std::string name = {};  // what it is told that it is called, if not by its path
  };
  explicit Process(const Options& options);
  ~Process();
  Process(Process&& other) noexcept : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}
  Process& operator=(Process&&) = delete;

  pid_t Pid() const { return pid_; }
  bool Alive() { return Wait(milliseconds(0)) == -1; }
  void Signal(int number) const;
  // The wait status; -1 when it has not ended within the limit.
  int Wait(milliseconds limit = seconds(20));
  // The exit status; -1 when a signal ended it.
  int ExitStatus();

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

// A script of tests/peers in a process of its own, with a folder of its own for what it keeps.
class Peer {
 public:
  Peer(const support::TempFolder& folder, const std::string& name, const std::string& script,
       const Words& words);
  std::string Port() const { return std::to_string(port_); }
  std::string Address() const { return "127.0.0.1:" + Port(); }
  // What it keeps under a name; waits for it.
  std::string Kept(const std::string& name) const;
  int Arrived() const { return atoi(ReadFile(folder_ + "count").c_str()); }

 protected:
  std::string folder_;

 private:
  Process process_;
  int port_ = 0;
};

// A frame as a management server got it.
struct Frame {
  std::string header;  // 16 characters
  std::string body;
  std::string extra;  // uncounted bytes that followed, in hexadecimal
};

class ManagementServer : public Peer {
 public:
  ManagementServer(const support::TempFolder& folder, const std::string& name,
                   const std::string& behaviour = "normal");
  std::vector<Frame> Frames() const;
  size_t CountBodies(std::string_view prefix) const;
};

// Fixture: a folder with an engine stand-in, its start script and a configuration that runs the process check
// every second, and no other check.
class AgentTest : public testing::Test {
 protected:
  AgentTest();
  ~AgentTest() override;
  void TearDown() override;

  // Runs the agent with these words after its name; its output goes to out.txt and err.txt.
  Process Run(const Words& arguments, const Words& environment = {}, const std::string& name = {});
  // Writes the configuration and runs the agent on it, with further words; by another program, which executes
  // the words that follow its own.
  Process Start(const Words& arguments = {}, const Words& environment = {}, Words by = {});
  // The same, and waits until it is up.
  Process StartedAgent(const Words& arguments = {});
  // The same as a daemon: its process id.
  pid_t StartedDaemon(const Words& environment = {}, const std::string& name = {});
  std::string Out() const { return ReadFile(folder_ / "out.txt"); }
  bool WaitForOut(std::string_view text) const;
  // Until the last of the handled signals has its handler.
  static bool WaitForHandlers(const Process& agent);
  // Stops the agent: it says good-bye and dies of SIGINT in time.
  void ExpectStops(Process& agent, seconds limit, const std::vector<int>& signals = {SIGTERM}) const;

  // Process ids that bear this short name (zombies too).
  static std::vector<pid_t> Named(const std::string& name);
  void StartEngine();
  void KillEngine();  // and reaps every one
  bool EngineAlive() const { return !Named(engine_).empty(); }
  // What the start script saw: no descriptor, no blocked and no ignored signal of the agent's.
  void ExpectEngineInheritedNothing() const;
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
  };

  AllChannels();
  Delivered Now() const;
  // Kills the engine until that has the effect: a start script that is under way may bring up another one.
  bool KillUntil(const std::function<bool()>& condition);
  void ExpectAlarmOnAllChannels(const std::string& when);

  ManagementServer server_{folder_, "server"};
  Peer mails_{folder_, "mails", "mail_sink.py", {"--folder", folder_ / "mails"}};
  Peer posts_{folder_, "posts", "webhook_sink.py", {"--folder", folder_ / "posts"}};
};

}  // namespace harness

#endif
