#include "system/harness.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace harness {
namespace {

namespace fs = std::filesystem;

// Records what it was given and what it inherited, then starts the engine in the background. (The shell makes
// a background command ignore SIGINT, hence the record of the foreground.)
constexpr char START_SCRIPT[] = R"(#!/bin/sh
home=$(dirname "$0")
grep '^Sig' /proc/self/status > "$home/signals"
ls /proc/self/fd > "$home/descriptors"
printf '<%s>\n' "$@" > "$home/arguments.new"
mv "$home/arguments.new" "$home/arguments"
echo run >> "$home/runs"
"$home/ENGINE" 600 > /dev/null 2>&1 &
echo $! > "$home/engine.pid"
)";

// The agent refuses to start when a process ends in the moment in which it reads the process table, and other
// tests end processes all the time.
constexpr int ATTEMPTS = 5;

// Sanitizers write their findings where TearDown finds them, also those of a daemon. With TZ unset the C
// library reads the zone anew in every mktime, under a lock that the thread sanitizer does not see.
std::vector<std::string> AgentEnvironment(const Folder& folder) {
  std::vector<std::string> result;
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const char* given = getenv(name);
    result.push_back(std::string(name) + "=" + (given != nullptr ? std::string(given) + ":" : std::string()) +
                     "log_path='" + folder / "sanitizer'");
  }
  if (getenv("TZ") == nullptr) result.emplace_back("TZ=:/etc/localtime");
  return result;
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
  text.replace(text.find(from), from.size(), to);
}

}  // namespace

Config& Config::Set(const std::string& key, const std::string& value) {
  for (auto& [known, old] : lines_) {
    if (known == key) {
      old = value;
      return *this;
    }
  }
  lines_.emplace_back(key, value);
  return *this;
}

Config& Config::Raw(std::string_view text) {
  raw_ += text;
  return *this;
}

std::string Config::Text() const {
  std::string text;
  for (const auto& [key, value] : lines_) text.append(key).append("\t").append(value).append("\n");
  return text + raw_;
}

AgentTest::AgentTest() : agent_("agt" + std::to_string(getpid())), engine_("eng" + std::to_string(getpid())) {
  // Orphans come to this process: it reaps them, as init would.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  fs::create_symlink(AGENT_EXECUTABLE, folder_ / agent_);
  fs::create_symlink("/bin/sleep", folder_ / engine_);
  std::string script = START_SCRIPT;
  Replace(script, "ENGINE", engine_);
  WriteFile(folder_ / "start engine.sh", script, 0755);
  config_.Set("PROC_NAME", engine_)
      .Set("WATCHDOG_NAME", agent_)
      .Set("BASE_PATH", folder_ / "")
      .Set("DEBUG_PATH", folder_ / "")
      .Set("ASR_PORT", engine_port_.Port())
      .Set("SHELL_FILE", "./start engine.sh")
      .Set("SHELL_METHOD", "start")
      .Set("SVC_PID_FILE", "./engine.pid")
      .Set("ADM_PID_FILE", "./agent.pid")
      .Set("TOUCH_ADMIN_FILE", "./agent.lock")
      .Set("RECEIVER_FILE", "./to.txt")
      .Set("REFERENCE_FILE", "./cc.txt")
      .Set("BLIND_FILE", "./bcc.txt")
      .Set("RESTART_CHECK", 1)
      .Set("RESTART_CHECK_SEC", 1)
      .Set("CPU_OVER_VALUE", 1000)
      .Set("MEM_OVER_VALUE", 1000)
      .Set("CH_OVER_VALUE", 1000)
      .Set("WATCH_SAVE", 1)
      .Set("WATCH_PATH", "./log/")
      .Set("HANG_PATH", "./log/")
      .Set("LOG_LEVEL", 4);
}

AgentTest::~AgentTest() {
  for (const std::string& name : {agent_, engine_}) {
    for (const pid_t pid : Named(name)) kill(pid, SIGKILL);
  }
  // A start script may have started one more engine meanwhile: until nothing of either name is left.
  WaitFor([this] {
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    std::vector<pid_t> left = Named(engine_);
    for (const pid_t pid : left) kill(pid, SIGKILL);
    return left.empty() && Named(agent_).empty();
  });
}

void AgentTest::TearDown() {
  for (const auto& entry : fs::directory_iterator(folder_ / "")) {
    if (!entry.path().filename().string().starts_with("sanitizer")) continue;
    ADD_FAILURE() << ReadFile(entry.path().string());
  }
  if (!HasFailure()) return;
  std::cerr << "--- standard output of the agent\n" << Out();
  std::cerr << "--- standard error of the agent\n" << ReadFile(folder_ / "err.txt") << "---\n";
}

Process AgentTest::Run(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                       const std::string& name) {
  std::vector<std::string> words{name.empty() ? folder_ / agent_ : name};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = AgentEnvironment(folder_);
  variables.insert(variables.end(), environment.begin(), environment.end());
  return Process({.program = folder_ / agent_,
                  .words = words,
                  .environment = variables,
                  .out = folder_ / "out.txt",
                  .err = folder_ / "err.txt"});
}

Process AgentTest::Start(const std::vector<std::string>& arguments) {
  WriteFile(folder_ / "agent.conf", config_.Text());
  std::vector<std::string> words{"-f", folder_ / "agent.conf"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return Run(words);
}

Process AgentTest::StartedAgent(const std::vector<std::string>& arguments) {
  constexpr char up[] = "Start DunraSTT_Admin Service";
  for (int attempt = 1;; ++attempt) {
    Process agent = Start(arguments);
    EXPECT_TRUE(WaitFor([&] { return !agent.Alive() || Out().find(up) != std::string::npos; }));
    if (Out().find("DunraSTT_Admin Already Running") == std::string::npos || attempt == ATTEMPTS)
      return agent;
    WriteFile(folder_ / "out.txt", "");
  }
}

pid_t AgentTest::StartedDaemon(const std::vector<std::string>& environment, const std::string& name) {
  WriteFile(folder_ / "agent.conf", config_.Text());
  const std::vector<std::string> arguments{"-d", "-f", folder_ / "agent.conf"};
  for (int attempt = 1; attempt <= ATTEMPTS; ++attempt) {
    EXPECT_EQ(Run(arguments, environment, name).Wait(), 0);
    bool ended = false;
    EXPECT_TRUE(WaitFor([&] {
      ended = waitpid(-1, nullptr, WNOHANG) > 0;
      return ended || !ReadFile(folder_ / "agent.pid").empty();
    }));
    if (!ended) return std::stoi("0" + ReadFile(folder_ / "agent.pid"));
  }
  ADD_FAILURE() << "the daemon does not start";
  return 0;
}

bool AgentTest::WaitForOut(std::string_view text, milliseconds limit) const {
  return WaitFor([&] { return Out().find(text) != std::string::npos; }, limit);
}

void AgentTest::ExpectStopped(Process& agent, std::chrono::seconds limit) {
  const auto start = std::chrono::steady_clock::now();
  const int status = agent.Wait();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(WTERMSIG(status), SIGINT);
  EXPECT_LT(taken, limit);
  EXPECT_EQ(Count(Out(), "Debug: stopping daemon ...\n"), 1U);
  EXPECT_EQ(Count(Out(), "Stop DunraSTT_Admin Service"), 1U);
}

std::vector<pid_t> AgentTest::Named(const std::string& name) {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string id = entry.path().filename().string();
    if (!std::all_of(id.begin(), id.end(), [](unsigned char c) { return std::isdigit(c) != 0; })) continue;
    if (ReadFile(entry.path() / "comm") == name + "\n") found.push_back(std::stoi(id));
  }
  return found;
}

void AgentTest::StartEngine() {
  Process script({.program = folder_ / "start engine.sh", .words = {folder_ / "start engine.sh"}});
  script.Wait();
  ASSERT_TRUE(WaitFor([this] { return EngineAlive(); }));
  fs::remove(folder_ / "runs");
}

void AgentTest::KillEngine() {
  for (const pid_t pid : Named(engine_)) kill(pid, SIGKILL);
  // Only a reaped engine is gone from the process table.
  for (const pid_t pid : Named(engine_)) waitpid(pid, nullptr, 0);
}

std::string AgentTest::Log(const std::string& name) const {
  const std::string root = folder_ / "log";
  std::string text;
  std::error_code absent;
  // More than one dated folder when the test runs over midnight.
  for (const auto& day : fs::directory_iterator(root, absent)) text += ReadFile(day.path() / name);
  return text;
}

}  // namespace harness
