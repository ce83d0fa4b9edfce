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

#include "support/has.h"
#include "support/process.h"

namespace harness {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::Count;
using support::Has;
using support::Joined;
using support::Listener;
using support::Peer;
using support::Process;
using support::ReadFile;
using support::WaitUntil;
using support::Words;

// A number from the environment.
int64_t Number(const char* name, int64_t otherwise);

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
  // Until the last of the handled signals has its handler.
  static bool WaitForHandlers(const Process& agent);
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
