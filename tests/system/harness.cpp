#include "system/harness.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace harness {
namespace {

// Records what it was given and what it inherited, then starts the engine in the background. (The shell makes
// a background command ignore SIGINT, hence the record of the foreground.)
constexpr char START_SCRIPT[] = R"(#!/bin/sh
home=$(dirname "$0")
grep '^Sig' /proc/self/status > "$home/signals"
ls /proc/self/fd > "$home/descriptors"
printf '<%s>\n' "$@" > "$home/arguments.new"
mv "$home/arguments.new" "$home/arguments"
echo run >> "$home/runs"
)";
// The agent refuses to start when a process ends in the moment in which it reads the process table, and other
// tests end processes all the time.
constexpr int ATTEMPTS = 5;
// Signals 32 and 33, which the C library keeps to itself and its posix_spawn leaves ignored.
constexpr uint64_t LIBC_SIGNALS = 0x180000000;

void Redirect(int target, const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags | O_CLOEXEC, 0644);
  if (fd < 0 || dup2(fd, target) < 0) _exit(126);
}

[[noreturn]] void Execute(const Process::Options& options, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(126);
  for (const std::string& entry : options.environment) putenv(strdup(entry.c_str()));
  Redirect(0, "/dev/null", O_RDONLY);
  if (!options.out.empty()) Redirect(1, options.out, O_WRONLY | O_CREAT | O_APPEND);
  if (!options.err.empty()) Redirect(2, options.err, O_WRONLY | O_CREAT | O_APPEND);
  std::vector<char*> words;
  for (const std::string& word : options.words) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  if (!options.name.empty()) words[0] = const_cast<char*>(options.name.c_str());
  execv(options.words[0].c_str(), words.data());
  _exit(127);
}

// A text of a line of JSON.
std::string Field(const std::string& line, const std::string& name) {
  const std::string start = "\"" + name + "\": \"";
  const size_t begin = line.find(start) + start.size();
  return line.substr(begin, line.find('"', begin) - begin);
}

Words Joined(Words first, const Words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// A mask of signals in the text of a status file; 0 when it is not there.
uint64_t Mask(const std::string& status, const char* name) {
  const size_t at = status.find(name);
  return at == std::string::npos ? 0 : std::stoull(status.substr(at + strlen(name)), nullptr, 16);
}

}  // namespace

size_t Count(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

int64_t Number(const char* name, int64_t otherwise) {
  const char* text = getenv(name);
  return text == nullptr ? otherwise : atoll(text);
}

Process::Process(const Options& options) {
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) Execute(options, parent);
}

Process::~Process() {
  if (pid_ < 0 || !Alive()) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Process::Signal(int number) const {
  kill(pid_, number);
}

int Process::Wait(milliseconds limit) {
  WaitUntil([this] { return status_ != -1 || waitpid(pid_, &status_, WNOHANG) != 0; }, limit);
  return status_;
}

int Process::ExitStatus() {
  const int status = Wait();
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Peer::Peer(const support::TempFolder& folder, const std::string& name, const std::string& script,
           const Words& words)
    : folder_(folder / name + "/"),
      process_({.words = Joined({"/usr/bin/python3", PEERS_FOLDER "/" + script}, words),
                .out = (fs::create_directory(folder_), folder_ + "out"),
                .err = folder_ + "err"}) {
  std::string out;
  WaitUntil([&] { return (out = ReadFile(folder_ + "out")).ends_with('\n'); });
  if (out.empty()) throw std::runtime_error(script + ": " + ReadFile(folder_ + "err"));
  port_ = std::stoi(out.substr(out.find_first_of("0123456789")));
}

std::string Peer::Kept(const std::string& name) const {
  std::string text;
  WaitUntil([&] {
    text = ReadFile(folder_ + name);
    return !text.empty();
  });
  return text;
}

ManagementServer::ManagementServer(const support::TempFolder& folder, const std::string& name,
                                   const std::string& behaviour)
    : Peer(folder, name, "mgmt_server.py",
           {"--record", folder / name + "/frames", "--behaviour", behaviour}) {}

std::vector<Frame> ManagementServer::Frames() const {
  std::vector<Frame> frames;
  std::istringstream in(ReadFile(folder_ + "frames"));
  for (std::string line; std::getline(in, line);) {
    if (!line.ends_with('}')) break;
    frames.push_back({Field(line, "header"), Field(line, "body"), Field(line, "extra")});
  }
  return frames;
}

size_t ManagementServer::CountBodies(std::string_view prefix) const {
  size_t count = 0;
  for (const Frame& frame : Frames()) count += frame.body.starts_with(prefix) ? 1 : 0;
  return count;
}

AgentTest::AgentTest() {
  // Orphans come to this process: it reaps them, as init would.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  fs::create_symlink(AGENT_EXECUTABLE, folder_ / agent_);
  fs::create_symlink("/bin/sleep", folder_ / engine_);
  folder_.Write("start engine.sh",
                START_SCRIPT + ("\"$home/" + engine_ + "\" 600 > /dev/null 2>&1 &\n") +
                    "echo $! > \"$home/engine.pid\"\n",
                0755);
  config_ = "PROC_NAME " + engine_ + "\nWATCHDOG_NAME " + agent_ + "\nBASE_PATH " + folder_.Path() +
            "\nDEBUG_PATH " + folder_.Path() + "\nASR_PORT " + std::to_string(engine_port_.Port()) +
            "\nSHELL_FILE ./start engine.sh\nSHELL_METHOD start\nSVC_PID_FILE ./engine.pid\n"
            "ADM_PID_FILE ./agent.pid\nTOUCH_ADMIN_FILE ./agent.lock\nRECEIVER_FILE ./to.txt\n"
            "REFERENCE_FILE ./cc.txt\nBLIND_FILE ./bcc.txt\nRESTART_CHECK 1\nRESTART_CHECK_SEC 1\n"
            "CPU_OVER_VALUE 1000\nMEM_OVER_VALUE 1000\nCH_OVER_VALUE 1000\nWATCH_SAVE 1\n"
            "WATCH_PATH ./log/\nHANG_PATH ./log/\nLOG_LEVEL 4\n";
}

AgentTest::~AgentTest() {
  for (const pid_t pid : Named(agent_)) kill(pid, SIGKILL);
  // A start script may have started one more engine meanwhile: until nothing of either name is left.
  WaitUntil([this] {
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    for (const pid_t pid : Named(engine_)) kill(pid, SIGKILL);
    return !EngineAlive() && Named(agent_).empty();
  });
}

void AgentTest::TearDown() {
  std::string findings;
  for (const auto& entry : fs::directory_iterator(folder_.Path())) {
    if (entry.path().filename().string().starts_with("sanitizer")) findings += ReadFile(entry.path());
  }
  EXPECT_EQ(findings, "");
  EXPECT_EQ(Count(ReadFile(folder_ / "err.txt"), "Sanitizer"), 0U);
  if (!HasFailure()) return;
  std::cerr << "--- standard output of the agent\n" << Out();
  std::cerr << "--- standard error of the agent\n" << ReadFile(folder_ / "err.txt") << "---\n";
}

Process AgentTest::Run(const Words& arguments, const Words& environment, const std::string& name) {
  // Sanitizers write their findings where TearDown finds them, also those of a daemon. With TZ unset the C
  // library reads the zone anew in every mktime, under a lock that the thread sanitizer does not see.
  Words variables;
  for (const char* kind : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const char* given = getenv(kind);
    variables.push_back(std::string(kind) + "=" + (given == nullptr ? "" : given) + ":log_path='" +
                        folder_ / "sanitizer'");
  }
  folder_.Write("tsan", "race:tzset_internal\n");
  variables[1] += ":suppressions='" + folder_ / "tsan'";
  if (getenv("TZ") == nullptr) variables.emplace_back("TZ=:/etc/localtime");
  return Process({.words = arguments,
                  .environment = Joined(variables, environment),
                  .out = folder_ / "out.txt",
                  .err = folder_ / "err.txt",
                  .name = name});
}

Process AgentTest::Start(const Words& arguments, const Words& environment, Words by) {
  by.insert(by.end(), {folder_ / agent_, "-f", folder_.Write("agent.conf", config_)});
  return Run(Joined(by, arguments), environment);
}

Process AgentTest::StartedAgent(const Words& arguments) {
  for (int attempt = 1;; ++attempt) {
    folder_.Write("out.txt", "");
    Process agent = Start(arguments);
    EXPECT_TRUE(
        WaitUntil([&] { return !agent.Alive() || Count(Out(), "Start DunraSTT_Admin Service") > 0; }));
    if (Count(Out(), "DunraSTT_Admin Already Running") == 0 || attempt == ATTEMPTS) return agent;
  }
}

pid_t AgentTest::StartedDaemon(const Words& environment, const std::string& name) {
  const std::string file = folder_.Write("agent.conf", config_);
  for (int attempt = 1; attempt <= ATTEMPTS; ++attempt) {
    EXPECT_EQ(Run({folder_ / agent_, "-d", "-f", file}, environment, name).ExitStatus(), 0);
    bool ended = false;
    EXPECT_TRUE(WaitUntil([&] {
      ended = waitpid(-1, nullptr, WNOHANG) > 0;
      return ended || !ReadFile(folder_ / "agent.pid").empty();
    }));
    if (!ended) return std::stoi("0" + ReadFile(folder_ / "agent.pid"));
  }
  ADD_FAILURE() << "the daemon does not start";
  return 0;
}

bool AgentTest::WaitForOut(std::string_view text) const {
  return WaitUntil([&] { return Count(Out(), text) > 0; });
}

bool AgentTest::WaitForHandlers(const Process& agent) {
  const std::string status = "/proc/" + std::to_string(agent.Pid()) + "/status";
  return WaitUntil([&] { return (Mask(ReadFile(status), "SigCgt:\t") >> (SIGALRM - 1) & 1) != 0; });
}

void AgentTest::ExpectStops(Process& agent, seconds limit, const std::vector<int>& signals) const {
  const auto start = std::chrono::steady_clock::now();
  for (const int number : signals) agent.Signal(number);
  const int status = agent.Wait();
  EXPECT_LT(std::chrono::steady_clock::now() - start, limit);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  // Unless its output went elsewhere.
  const std::string out = Out();
  EXPECT_EQ(Count(out, "Stop DunraSTT_Admin Service"), out.empty() ? 0U : 1U);
}

std::vector<pid_t> AgentTest::Named(const std::string& name) {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    if (pid > 0 && ReadFile(entry.path() / "comm") == name + "\n") found.push_back(pid);
  }
  return found;
}

void AgentTest::StartEngine() {
  Process({.words = {folder_ / "start engine.sh"}}).Wait();
  ASSERT_TRUE(WaitUntil([this] { return EngineAlive(); }));
  fs::remove(folder_ / "runs");
}

void AgentTest::KillEngine() {
  for (const pid_t pid : Named(engine_)) kill(pid, SIGKILL);
  // Only a reaped engine is gone from the process table.
  for (const pid_t pid : Named(engine_)) waitpid(pid, nullptr, 0);
}

void AgentTest::ExpectEngineInheritedNothing() const {
  EXPECT_EQ(ReadFile(folder_ / "descriptors"), "0\n1\n2\n3\n");  // 3 is the listing's own
  const std::string signals = ReadFile(folder_ / "signals");
  EXPECT_EQ(Mask(signals, "SigBlk:\t") & ~LIBC_SIGNALS, 0U) << signals;
  EXPECT_EQ(Mask(signals, "SigIgn:\t") & ~LIBC_SIGNALS, 0U) << signals;
}

std::string AgentTest::Log(const std::string& name) const {
  std::string text;
  std::error_code absent;
  // More than one dated folder when the test runs over midnight.
  for (const auto& day : fs::directory_iterator(folder_ / "log", absent)) text += ReadFile(day.path() / name);
  return text;
}

AllChannels::AllChannels() {
  folder_.Write("to.txt", "Kim kim@example.com\nLee lee@example.com\n");
  config_ += "ALARM_1 " + server_.Address() +
             "\nHANG_SAVE 1\nHANG_TIME 1\nLOG_LEVEL 3\nSEND_EMAIL_CHECK 1\n" +
             "SMTP_SERVER_URL localhost\nSMTP_SERVER_PORT " + mails_.Port() +
             "\nSMTP_AUTH 1\nSENDER_NAME Agent\nSENDER_EMAIL agent@example.com\nCFG_FILE ./agent.conf\n" +
             "SEND_WEBHOOK_CHECK 1\nWEBHOOK_SERVER_URL http://" + posts_.Address() + "/\n";
}

// A report on the channels may have replaced the alarm in the mailbox: that is as good a sign of life.
AllChannels::Delivered AllChannels::Now() const {
  return {server_.CountBodies("ALARM+DunraSTT") + server_.CountBodies("CH_STATE_DATA+"), mails_.Arrived(),
          posts_.Arrived()};
}

bool AllChannels::KillUntil(const std::function<bool()>& condition) {
  for (int attempt = 0; attempt < 5; ++attempt) {
    KillEngine();
    if (WaitUntil(condition, seconds(10))) return true;
  }
  return false;
}

void AllChannels::ExpectAlarmOnAllChannels(const std::string& when) {
  const Delivered before = Now();
  EXPECT_TRUE(KillUntil([&] {
    const Delivered now = Now();
    return now.reports > before.reports && now.mails > before.mails && now.posts > before.posts &&
           EngineAlive();
  })) << when;
}

}  // namespace harness
