// status in the states of an engine and its agent: real processes, real sockets, the real tool.
#include <sys/inotify.h>

#include <ctime>
#include <memory>
#include <optional>

#include "ctl/clock.h"
#include "ctl/process_table.h"
#include "tool_test.h"

namespace tooltest {
namespace {

using ctl::LocalTime;
using support::Listener;

constexpr int BACKLOG = 8;

// A living agent and engine, and a port that takes no connection from its queue.
class StatusTest : public ToolTest {
 protected:
  StatusTest() {
    config_ +=
        "WATCHDOG_NAME " + agent_ +
        "\nADM_PID_FILE ./agent.pid\nSVC_PID_FILE ./engine.pid\nWATCH_SAVE 1\nLOG_LEVEL 3\nHANG_SAVE 1\n"
        "RESTART_CHECK 1\nRESTART_CHECK_SEC 5\nCPU_OVER_VALUE 90\nMEM_OVER_VALUE 101\nCH_OVER_VALUE 50\n"
        "ALARM_A 10.0.0.7:9500\n";
    fs::create_symlink("/bin/sleep", home_ / agent_);
    MainLog(60, "g_shm_open_flag = 1");
    MainLog(60, "System CPU [ 12 ] Config CPU [ 90 ]");
    HangLog(60, "alived");
    port_->Listen(BACKLOG);
    UsePort(port_->Port());
    agent_process_ = StandIn(agent_);
    engine_process_ = StandIn(engine_);
  }

  // A process of this name that does nothing.
  std::unique_ptr<Process> StandIn(const std::string& name) const {
    auto process = std::make_unique<Process>(Words{home_ / name, "600"});
    const std::string comm = "/proc/" + std::to_string(process->Pid()) + "/comm";
    WaitUntil([&] { return ReadFile(comm) == name + "\n"; });
    return process;
  }
  static void Stop(const Process& process) {
    kill(process.Pid(), SIGSTOP);
    waitpid(process.Pid(), nullptr, WUNTRACED);
  }

  void UsePort(int number) { config_ += "ASR_PORT " + std::to_string(number) + "\n"; }
  void Log(const std::string& name, int ago, const char* head, const std::string& rest) const {
    const time_t time = std::time(nullptr) - ago;
    const std::string folder = home_ / LocalTime(time, "log/%Y%m%d/");
    fs::create_directories(folder);
    std::ofstream(folder + LocalTime(time, name.c_str()), std::ios::app)
        << head << LocalTime(time, "[%Y/%m/%d %H:%M:%S:123]") << rest << "\n";
  }
  void MainLog(int ago, const std::string& message) const {
    Log("MAIN.LOG", ago, "", "[INFO][ MAIN][x.cpp/f:1] : [" + message + "]");
  }
  void ServerLog(int ago, const std::string& tag, const std::string& message) const {
    Log("00000.%m%d.LOG", ago, "", "[" + tag + "][00000][x.cpp/f:1] : [" + message + "]");
  }
  void HangLog(int ago, const std::string& verdict) const {
    Log("hang.%Y%m%d.log", ago, "[HANG]", " : [[ " + engine_ + " ] health check : " + verdict + "]");
  }

  // status with this configuration, as old as it shall be.
  Words StatusWords(const Words& form) const {
    const Words words = Tool(Joined({"status"}, form));
    fs::last_write_time(home_ / "agent.conf", fs::file_time_type::clock::now() - config_age_);
    return words;
  }
  Answer Status(const Words& form) const { return Ask(StatusWords(form)); }
  Json StatusJson() const {
    const auto [status, text] = Status({"--json"});
    Json json = Json::parse(text, nullptr, false);
    EXPECT_TRUE(json.is_object()) << text << Errors();
    EXPECT_EQ(json["code"], status);
    return json;
  }
  // Expects a verdict and findings, as in "CRITICAL queue-full queue-half".
  void ExpectStatus(const char* when, const std::string& expected) const {
    const Json json = StatusJson();
    std::string found = json["verdict"];
    for (const auto& one : json["findings"]) found += " " + one["id"].get<std::string>();
    EXPECT_EQ(found, expected) << when;
  }

  std::string agent_ = "adm" + std::to_string(getpid());
  std::optional<Listener> port_ = Listener(true);
  std::unique_ptr<Process> agent_process_;
  std::unique_ptr<Process> engine_process_;
  std::chrono::seconds config_age_{600};
};

TEST_F(StatusTest, AgentStates) {
  ExpectStatus("all is well", "OK");
  home_.Write("agent.pid", std::to_string(Process({"sleep", "600"}).Pid()));
  ExpectStatus("its PID file is of a process that is gone", "OK");
  config_age_ = std::chrono::seconds(-30);
  ExpectStatus("its configuration was changed after its start", "WARNING config-newer");
  config_age_ = -config_age_;
  Stop(*agent_process_);
  ExpectStatus("stopped", "CRITICAL agent-stopped");
  agent_process_.reset();
  home_.Write("agent.pid", std::to_string(engine_process_->Pid()));
  ExpectStatus("gone, its PID is another's now", "CRITICAL agent-gone");
  EXPECT_TRUE(Has(StatusJson()["findings"][0]["text"], ", now " + engine_));
}

TEST_F(StatusTest, EngineStates) {
  std::vector<base::UniqueFd> clients;
  const auto expect_queue = [&](size_t waiting, const char* when, const char* expected) {
    while (clients.size() < waiting) clients.push_back(port_->Connect());
    ExpectStatus(when, expected);
    EXPECT_EQ(StatusJson()["port"]["waiting"], waiting);
    EXPECT_EQ(StatusJson()["port"]["backlog"], BACKLOG);
  };
  expect_queue(1, "one waits", "OK");
  EXPECT_TRUE(Status({}).text.starts_with("WARNING  the queue of port ")) << "does not shrink";
  expect_queue(BACKLOG / 2, "half full", "WARNING queue-half");
  expect_queue(BACKLOG + 1, "takes no connections", "CRITICAL queue-full");
  EXPECT_TRUE(Status({}).text.starts_with("CRITICAL  " + engine_ + " takes no connections"));
  Stop(*engine_process_);
  ExpectStatus("the same, stopped", "CRITICAL queue-full engine-stopped");
  port_.reset();
  ExpectStatus("stopped, its port closed", "CRITICAL engine-stopped port-not-yet");
  kill(engine_process_->Pid(), SIGKILL);
  siginfo_t ended;
  waitid(P_PID, static_cast<id_t>(engine_process_->Pid()), &ended, WEXITED | WNOWAIT);
  ExpectStatus("a zombie", "CRITICAL engine-zombie");
  engine_process_.reset();
  ExpectStatus("gone", "CRITICAL engine-gone");
}

TEST_F(StatusTest, WhatTheLogsTell) {
  HangLog(50, "deaded - disconnect");
  HangLog(40, "deaded - process");
  ExpectStatus("said of an engine before this one", "OK");
  HangLog(-2, "deaded - disconnect");
  ExpectStatus("hang check", "WARNING hang-deaded");
  EXPECT_EQ(StatusJson()["hang"]["in_a_row"], 3);
  HangLog(-3, "alived");
  MainLog(1, "g_shm_open_flag = 0");
  ExpectStatus("channels", "WARNING channels-not-watched");
  MainLog(1, "g_shm_open_flag = 1");
  MainLog(7000, engine_ + " process start.");
  ExpectStatus("restarted two hours ago", "OK");
  MainLog(900, engine_ + " process start.");
  ExpectStatus("restarted", "WARNING restarted");
}

TEST_F(StatusTest, ReadsTheTailOfALargeLog) {
  MainLog(5, std::string(3'000'000, 'x'));
  MainLog(1, "System CPU [ 95 ] Config CPU [ 90 ]");
  ExpectStatus("its last line", "WARNING cpu-over");
  EXPECT_EQ(StatusJson()["figures"]["cpu"]["value"], 95);
}

TEST_F(StatusTest, DeliveriesThatFailed) {
  MainLog(2, "Mail lost: [ 10.0.0.5 ] x Alarm Occured - Cpu Check, kind 4: Failed to connect | \x1b[2J");
  MainLog(2, "Mail Send [ 10.0.0.5 ] x Alarm Occured - Cpu Check");
  ExpectStatus("a mail", "WARNING not-delivered");
  ServerLog(2, "INFO", "[ SOCK_SVC ] : SEND_ALARM start.");
  ServerLog(1, "INFO", "[ SVC_OPEN ] : Channel Open Filed(000007:x:11)");
  ServerLog(1, "ERROR", "[ SOCK_SVC ] : svc ch open fail.");
  ExpectStatus("and a report to a server", "WARNING not-delivered");
  const Json failed = StatusJson()["undelivered"];
  EXPECT_EQ(failed[0]["destination"], "10.0.0.7:9500");
  EXPECT_EQ(failed[0]["reason"], "gave no reply");
  EXPECT_EQ(failed[1]["reason"], "Failed to connect | \\x1b[2J");
  MainLog(0, "Mail Send [ 10.0.0.5 ] x Alarm Occured - Cpu Check");
  ServerLog(0, "INFO", "send resource usage reqeust data = c:1,m:0");
  ExpectStatus("the next ones arrived", "OK");
}

TEST_F(StatusTest, APortForIPv6OnlyTakesNoConnectionOfOurs) {
  const Listener six(true, AF_INET6);
  six.Listen();
  UsePort(six.Port());
  ExpectStatus("IPv6 only", "CRITICAL port-elsewhere");
}

// The oldest process stands for an engine that has had its minute.
TEST_F(StatusTest, AnOldEngineOwesItsPort) {
  const auto ticks = static_cast<int64_t>(ctl::ReadProcess(1)->start);
  if (ctl::BootMilliseconds() / 1000 - ticks / sysconf(_SC_CLK_TCK) < 62) GTEST_SKIP() << "a young host";
  config_ += "PROC_NAME " + ReadFile("/proc/1/comm");
  home_.Write("engine.pid", "1");
  port_.reset();
  ExpectStatus("closed", "CRITICAL port-closed");
}

TEST_F(StatusTest, APauseIsShownWhateverItsReason) {
  EXPECT_EQ(Run(Tool({"pause", "5m", "--reason", "new \"model\"|\n\xea\xb0\x80"})).ExitStatus(), 0)
      << Errors();
  ExpectStatus("paused", "WARNING paused");
  EXPECT_EQ(StatusJson()["pause"]["reason"], "new \"model\"|\\n\xea\xb0\x80");
  const auto [status, line] = Status({"--plugin"});
  EXPECT_EQ(status, 1);
  EXPECT_TRUE(line.starts_with("DUNRASTT WARNING - ")) << line;
  EXPECT_EQ(support::Count(line, "\n"), 1U) << line;
  EXPECT_EQ(support::Count(line, "|"), 1U) << line;
}

TEST_F(StatusTest, WhatCannotBeReadIsUnknownAndNamed) {
  // A folder in the main log's place: today's and, just before midnight, tomorrow's.
  for (const int later : {0, 60})
    fs::create_directories(home_ / LocalTime(std::time(nullptr) + later, "odd/%Y%m%d/MAIN.LOG"));
  const std::pair<std::string, std::string> cases[] = {
      {config_ + "WATCH_PATH ./none/\n", "the log folder " + (home_ / "none/") + ": No such file"},
      {config_ + "WATCH_PATH ./odd/\n", "the main log below " + (home_ / "odd/") + ": Invalid argument"},
      {config_ + "HANG_PATH ./none/\n", "the hang log's folder " + (home_ / "none/")},
      {config_ + "ASR_PORT 0\n", "ASR_PORT is 0"},
      {"", "PROC_NAME is missing"}};
  for (const auto& [config, told] : cases) {
    config_ = config;
    const auto [status, text] = Status({"--plugin"});
    EXPECT_EQ(status, 3);
    EXPECT_TRUE(Has(text, told));
  }
  EXPECT_TRUE(Has(Ask({TOOL, "-f", home_ / "missing.conf", "status"}).text, "missing.conf: No such file"));
}

// A FIFO in the file's place is never read to its end.
TEST_F(StatusTest, AnswersWithinItsTime) {
  ASSERT_EQ(mkfifo((home_ / "fifo").c_str(), 0600), 0);
  const auto began = std::chrono::steady_clock::now();
  const auto [status, text] = Ask({TOOL, "-f", home_ / "fifo", "status", "--plugin", "-t", "1"});
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(9));
  EXPECT_EQ(status, 3);
  EXPECT_TRUE(Has(text, "the configuration: not read within 1 s"));
}

// As nobody, in a /proc that does or does not hide the others.
TEST_F(StatusTest, WhatAnotherUserMayNotSeeIsSaidAndNotGuessed) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  fs::permissions(home_.Path(), fs::perms(0755));
  const auto seen = [&](const char* hidepid) {
    const Words as_nobody = {"unshare",
                             "-m",
                             "sh",
                             "-c",
                             "mount -t proc -o hidepid=\"$0\" proc /proc || exit 77; "
                             "exec setpriv --reuid 65534 --regid 65534 --clear-groups \"$@\"",
                             hidepid};
    return Ask(Joined(as_nobody, StatusWords({"--plugin"})));
  };
  const auto [status, open] = seen("0");
  if (status == 77 || open.empty()) GTEST_SKIP() << "no mount name space";
  EXPECT_TRUE(open.starts_with("DUNRASTT OK - ")) << open;
  EXPECT_EQ(open.find("descriptors="), open.npos) << open;
  const std::string hidden = seen("2").text;
  EXPECT_TRUE(hidden.starts_with("DUNRASTT UNKNOWN - cannot tell: the processes: /proc hides")) << hidden;
}

TEST_F(StatusTest, ConnectsNowhereAndWritesNothing) {
  if (support::NoStrace() != nullptr) GTEST_SKIP() << support::NoStrace();
  const base::UniqueFd client = port_->Connect();
  const std::string trace = home_ / "trace";
  const Words strace = {"strace", "-f", "-o",
                        trace,    "-e", "trace=open,openat,creat,connect,mkdir,unlink,rename,flock"};
  for (const Words& form : {Words{}, Words{"--json"}, Words{"--plugin"}}) {
    EXPECT_LT(Run(Joined(strace, StatusWords(form))).ExitStatus(), 2) << Errors();
    const std::string calls = ReadFile(trace);
    EXPECT_TRUE(Has(calls, "agent.conf"));
    const auto forbidden =
        "(O_WRONLY|O_RDWR|O_CREAT|creat\\(|connect\\(|mkdir\\(|unlink\\(|rename\\(|flock\\()";
    EXPECT_EQ(support::AllMatches(calls, forbidden), std::set<std::string>()) << calls;
  }
}

TEST_F(StatusTest, MetricsAreReplacedAsAWhole) {
  const std::string file = home_ / "m.prom";
  const Words write = StatusWords({"--prom", file});
  EXPECT_EQ(Run(write).ExitStatus(), 0) << Errors();
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
  const int judged = Run({"sh", "-c", "promtool check metrics < \"$0\"", file}).ExitStatus();
  EXPECT_TRUE(judged == 0 || judged == 127) << Errors();  // 127: not installed
  EXPECT_TRUE(ReadFile(file).ends_with("\ndunrastt_pause_remaining_seconds 0\n"));
  const base::UniqueFd watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  inotify_add_watch(watch.Get(), home_.Path().c_str(), IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVED_TO);
  EXPECT_EQ(Run(write).ExitStatus(), 0) << Errors();
  alignas(inotify_event) char events[4096];
  const ssize_t length = read(watch.Get(), events, sizeof events);
  uint32_t happened = 0;
  for (ssize_t at = 0; at < length;) {
    const auto* event = reinterpret_cast<const inotify_event*>(events + at);
    if (event->name == std::string("m.prom")) happened |= event->mask;
    at += static_cast<ssize_t>(sizeof *event + event->len);
  }
  EXPECT_EQ(happened, uint32_t{IN_MOVED_TO});
  for (const auto& entry : fs::directory_iterator(home_.Path()))
    EXPECT_FALSE(entry.path().filename().string().starts_with("m.prom.")) << "left behind";
  EXPECT_EQ(Run(StatusWords({"--prom", home_ / "no/m.prom"})).ExitStatus(), 3);
}

}  // namespace
}  // namespace tooltest
