// Runs the real agent in a temporary folder, with an engine stand-in and scripted peers.
//
// Each test gives agent and engine their own short process names, so any number of tests can run at once. The
// names are symbolic links in the test's folder, as the kernel takes the name from the path that is executed.
// Everything that a test starts is killed and reaped when the test ends, in any way, including a daemon and
// the engines that the agent started.
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

// The number in this variable of the environment; otherwise when it is not set.
int64_t Number(const char* name, int64_t otherwise);

// A fixture with a folder that holds an engine stand-in, its start script and a configuration. The process
// check runs every second; the other checks are off.
class AgentTest : public testing::Test {
 protected:
  AgentTest();
  ~AgentTest() override;
  void TearDown() override;

  // Runs a program; its output goes to out.txt and err.txt.
  Process Run(const Words& words) const { return Process(words, folder_ / "out.txt", folder_ / "err.txt"); }
  // Writes the configuration and runs the agent with it and these arguments. by, when given, is a program
  // (env, say) that in turn executes the agent.
  Process Start(const Words& arguments = {}, Words by = {}) const;
  // The same with these lines of configuration more, and waits until the agent is up.
  Process StartedAgent(const std::string& lines = "", const Words& arguments = {});
  std::string Out() const { return ReadFile(folder_ / "out.txt"); }
  bool WaitForOut(const std::string& text, size_t count = 1) const;
  // Waits until the agent handles signals.
  static bool WaitForHandlers(const Process& agent);
  // Sends the signals and expects that the agent prints its last line and dies of SIGINT within the limit.
  void ExpectStops(Process& agent, seconds limit, const std::vector<int>& signals = {SIGTERM}) const;

  // The pids of the processes of this short name, zombies too.
  static std::vector<pid_t> Named(const std::string& name);
  void StartEngine() const;
  void KillEngine() const;  // kills and reaps every engine
  bool EngineAlive() const { return !Named(engine_).empty(); }
  // The text of the agent's log of that name, from all dated folders, as a process with this root sees it.
  std::string Log(const std::string& name, const std::string& root = "") const;

  support::TempFolder folder_{"/tmp/agent test XXXXXX"};
  std::string agent_ = "agt" + std::to_string(getpid());  // short process names
  std::string engine_ = "eng" + std::to_string(getpid());
  Listener engine_port_{true};
  std::string config_;  // a test may append lines: the last line of a key counts
};

// The same with every alarm channel on and a peer for each.
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
  // Kills the engine until the condition holds. Once may not be enough: a start script that is running may
  // start another engine.
  bool KillUntil(const std::function<bool()>& condition) const;
  void ExpectAlarmOnAllChannels(const std::string& when) const;

  Peer server_{folder_, "server", "mgmt_server.py"};
  Peer mails_{folder_, "mails", "mail_sink.py"};
  Peer posts_{folder_, "posts", "webhook_sink.py"};
};

}  // namespace harness

#endif
