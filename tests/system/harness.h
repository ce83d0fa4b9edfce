// Runs the real agent in a folder of its own, beside an engine stand-in and scripted management servers.
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
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/owners.h"

namespace harness {

using std::chrono::milliseconds;

// The limit of waits that are expected to succeed: generous, for a loaded machine and sanitizers.
inline constexpr milliseconds LIMIT{20'000};

// Polls until the condition holds; false when it never did within the limit.
bool WaitFor(const std::function<bool()>& condition, milliseconds limit = LIMIT);

// The whole file; empty when there is none.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::string_view content, mode_t mode = 0644);
size_t Count(std::string_view text, std::string_view part);

// A temporary folder with a blank in its name, removed with everything in it.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  // The path of an entry; "" gives the folder itself, with its slash.
  std::string operator/(std::string_view name) const { return path_ + std::string(name); }

 private:
  std::string path_;
};

// A child of the test. It dies with the test, and is killed and reaped by the destructor.
class Process {
 public:
  struct Options {
    std::string program;  // executed; words[0] may differ from it
    std::vector<std::string> words;
    std::vector<std::string> environment = {};  // beside the test's own; "NAME" alone removes
    std::string out = {};                       // file that takes its standard output
    std::string err = {};
  };
  explicit Process(const Options& options);
  ~Process();
  Process(Process&& other) noexcept : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}
  Process& operator=(Process&&) = delete;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t Pid() const { return pid_; }
  bool Alive();
  void Signal(int number) const;
  // The wait status; -1 when it has not ended within the limit.
  int Wait(milliseconds limit = LIMIT);

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

// A frame as a management server got it.
struct Frame {
  double time;         // seconds
  std::string header;  // 16 characters
  std::string body;
  std::string extra;  // uncounted bytes that followed, in hexadecimal
};

// A script of tests/peers that prints "port N" once it listens, in a process of its own.
class Peer {
 public:
  Peer(const Folder& folder, const std::string& name, const std::string& script,
       const std::vector<std::string>& words);
  int Port() const { return port_; }
  std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }

 private:
  std::string out_;
  Process process_;
  int port_ = 0;
};

// A management server.
class ManagementServer : public Peer {
 public:
  ManagementServer(const Folder& folder, const std::string& name, const std::string& behaviour = "normal",
                   const std::string& interval = "1");
  std::vector<Frame> Frames() const;
  // Without the open frames.
  std::vector<Frame> Reports() const;
  size_t CountBodies(std::string_view prefix) const;

 private:
  std::string record_;
};

// A port of 127.0.0.1, taken as long as this lives. It refuses connections, or, when silent, it takes them
// and never says a word.
class DeadPort {
 public:
  enum class Kind { REFUSING, SILENT };
  explicit DeadPort(Kind kind);
  int Port() const { return port_; }
  std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }
  // Of a silent one: somebody has connected.
  bool Visited() const;

 private:
  base::UniqueFd socket_;
  int port_ = 0;
};

// The keys of a configuration file in order; setting a key again replaces its value.
class Config {
 public:
  Config& Set(const std::string& key, const std::string& value);
  Config& Set(const std::string& key, int value) { return Set(key, std::to_string(value)); }
  // Adds text as it is at the end.
  Config& Raw(std::string_view text);
  std::string Text() const;

 private:
  std::vector<std::pair<std::string, std::string>> lines_;
  std::string raw_;
};

// Fixture: a folder with an engine stand-in, its start script and a configuration that runs the process check
// every second, and no other check.
class AgentTest : public testing::Test {
 protected:
  AgentTest();
  ~AgentTest() override;
  void TearDown() override;

  // Runs the agent with these words after its name; its output goes to out.txt and err.txt. The first word it
  // gets is its path, unless another is given.
  Process Run(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {},
              const std::string& name = {});
  // Writes the configuration and runs the agent on it, with further words.
  Process Start(const std::vector<std::string>& arguments = {});
  // The same, and waits until it is up.
  Process StartedAgent(const std::vector<std::string>& arguments = {});
  // The same as a daemon: its process id. The parent's end with 0 is checked.
  pid_t StartedDaemon(const std::vector<std::string>& environment = {}, const std::string& name = {});
  std::string Out() const { return ReadFile(folder_ / "out.txt"); }
  bool WaitForOut(std::string_view text, milliseconds limit = LIMIT) const;

  // Waits for the end of a stop: the agent dies of SIGINT, and had said good-bye before.
  void ExpectStopped(Process& agent, std::chrono::seconds limit);

  // Process ids that bear this short name (zombies too).
  static std::vector<pid_t> Named(const std::string& name);
  void StartEngine();
  // Kills and reaps every engine.
  void KillEngine();
  bool EngineAlive() const { return !Named(engine_).empty(); }
  // The agent's log of that name in its dated folder.
  std::string Log(const std::string& name) const;

  Folder folder_;
  std::string agent_;  // short process names
  std::string engine_;
  DeadPort engine_port_{DeadPort::Kind::REFUSING};
  Config config_;
};

}  // namespace harness

#endif
