// status walks the states of an engine and its agent: real processes, real sockets, the real tool.
#include <fcntl.h>

#include <atomic>
#include <ctime>
#include <memory>
#include <sstream>

#include "ctl/clock.h"
#include "ctl/process_table.h"
#include "ctl/status_rules.h"
#include "tool_test.h"

namespace tooltest {
namespace {

using ctl::LocalTime;

// A process of a name that does nothing.
class StandIn {
 public:
  explicit StandIn(const std::string& name)
      : process_({(fs::create_symlink("/bin/sleep", folder_ / name), folder_ / name), "600"}) {
    const std::string comm = "/proc/" + std::to_string(Pid()) + "/comm";
    WaitUntil([&] { return ReadFile(comm) == name + "\n"; });
  }
  pid_t Pid() const { return process_.Pid(); }
  void Stop() const {
    kill(Pid(), SIGSTOP);
    waitpid(Pid(), nullptr, WUNTRACED);
  }
  void BecomeZombie() const {
    kill(Pid(), SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(Pid()), &info, WEXITED | WNOWAIT);
  }

 private:
  support::TempFolder folder_;
  Process process_;
};

constexpr int BACKLOG = 8;

// A listener that takes nothing, and those who wait at it.
class Port {
 public:
  explicit Port(bool six_only = false)
      : listener_(std::make_unique<support::Listener>(true, six_only ? AF_INET6 : AF_INET)),
        number_(static_cast<uint16_t>(listener_->Port())) {
    listener_->Listen(BACKLOG);
  }
  void Fill(int count) {
    for (int i = 0; i < count; ++i) clients_.push_back(listener_->Connect());
  }
  void Close() { listener_.reset(); }
  uint16_t Number() const { return number_; }

 private:
  std::unique_ptr<support::Listener> listener_;
  std::vector<base::UniqueFd> clients_;
  uint16_t number_;
};

class StatusTest : public ToolTest {
 protected:
  StatusTest() {
    config_ +=
        "WATCHDOG_NAME " + agent_ +
        "\nADM_PID_FILE ./agent.pid\nSVC_PID_FILE ./engine.pid\nWATCH_SAVE 1\nLOG_LEVEL 3\nHANG_SAVE 1\n"
        "RESTART_CHECK 1\nRESTART_CHECK_SEC 5\nCPU_OVER_VALUE 90\nMEM_OVER_VALUE 101\nCH_OVER_VALUE 50\n"
        "ALARM_A 10.0.0.7:9500\n";
    MainLog(60, "g_shm_open_flag = 1");
    MainLog(60, "System CPU [ 12 ] Config CPU [ 90 ]");
    HangLog(60, "alived");
    UsePort(port_->Number());
    agent_process_ = std::make_unique<StandIn>(agent_);
    engine_process_ = std::make_unique<StandIn>(engine_);
    // Written before the agent was started.
    home_.Write("agent.conf", config_);
    Age("agent.conf", 600);
  }

  void UsePort(uint16_t number) { config_ += "ASR_PORT " + std::to_string(number) + "\n"; }
  void Age(const std::string& name, int seconds) const {
    fs::last_write_time(home_ / name, fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
  }
  void Log(const std::string& name, int ago, const char* head, const std::string& rest) const {
    const time_t time = std::time(nullptr) - ago;
    fs::create_directories(home_ / ("log/" + LocalTime(time, "%Y%m%d")));
    std::ofstream(home_ / ("log/" + LocalTime(time, "%Y%m%d/") + LocalTime(time, name.c_str())),
                  std::ios::app)
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

  // The tool's words with a configuration as old as it was.
  Words StatusWords(const Words& more) const {
    const Words words = Tool(Joined({"status"}, more));
    if (config_age_ > 0) Age("agent.conf", config_age_);
    return words;
  }
  int Status(const Words& more, std::string* text) const {
    std::error_code absent;
    fs::remove(home_ / "out", absent);
    const int status = Run(StatusWords(more)).ExitStatus();
    *text = ReadFile(home_ / "out");
    return status;
  }
  Json StatusJson() const {
    std::string text;
    const int status = Status({"--json"}, &text);
    Json json = Json::parse(text, nullptr, false);
    EXPECT_TRUE(json.is_object()) << text << Errors();
    EXPECT_EQ(json["code"], status);
    return json;
  }
  // "CRITICAL queue-full queue-half".
  std::string Found() const {
    const Json json = StatusJson();
    std::string found = json["verdict"];
    for (const auto& one : json["findings"]) found += " " + one["id"].get<std::string>();
    return found;
  }

  std::string agent_ = "adm" + std::to_string(getpid());
  std::unique_ptr<Port> port_ = std::make_unique<Port>();
  std::unique_ptr<StandIn> agent_process_;
  std::unique_ptr<StandIn> engine_process_;
  int config_age_ = 600;
};

class StatusWalk : public StatusTest {
 protected:
  void Walk(const char* name, const std::string& found) {
    EXPECT_EQ(Found(), found) << name;
    std::string line;
    const int status = Status({"--plugin"}, &line);
    const std::string verdict = found.substr(0, found.find(' '));
    EXPECT_TRUE(line.starts_with("DUNRASTT " + verdict + " - ")) << line;
    EXPECT_EQ(support::Count(line, "\n"), 1U) << line;
    EXPECT_EQ(support::Count(line, "|"), 1U) << line;
    std::string words;
    EXPECT_EQ(Status({}, &words), status);
    EXPECT_TRUE(words.starts_with(verdict + "  ")) << words;
  }
};

TEST_F(StatusWalk, AgentStates) {
  Walk("all is well", "OK");
  const int gone = Process({"sleep", "600"}).Pid();
  home_.Write("agent.pid", std::to_string(gone));
  Walk("its PID file is of a process that is gone", "OK");
  agent_process_->Stop();
  Walk("stopped", "CRITICAL agent-stopped");
  agent_process_.reset();
  Walk("gone", "CRITICAL agent-gone");
  home_.Write("agent.pid", std::to_string(engine_process_->Pid()));
  Walk("gone, its PID is another's now", "CRITICAL agent-gone");
  EXPECT_NE(StatusJson()["findings"][0]["text"].get<std::string>().find(engine_), std::string::npos);
  agent_process_ = std::make_unique<StandIn>(agent_);
  config_age_ = 0;
  Age("agent.conf", -30);
  config_ += "\n";
  EXPECT_EQ(Process({"touch", "-d", "+30 seconds", home_.Write("agent.conf", config_)}).ExitStatus(), 0);
  EXPECT_EQ(Run({TOOL, "-f", home_ / "agent.conf", "status", "--plugin"}).ExitStatus(), 1);
  EXPECT_NE(ReadFile(home_ / "out").find("works with the old one"), std::string::npos);
}

TEST_F(StatusWalk, EngineStates) {
  port_->Fill(1);
  EXPECT_EQ(Found(), "OK");
  port_->Fill(BACKLOG / 2 - 1);
  EXPECT_EQ(Found(), "WARNING queue-half");
  port_->Fill(BACKLOG / 2 + 1);
  Walk("takes no connections", "CRITICAL queue-full");
  engine_process_->Stop();
  Walk("the same, stopped", "CRITICAL queue-full engine-stopped");
  port_->Close();
  EXPECT_EQ(Found(), "CRITICAL engine-stopped port-not-yet");
  engine_process_->BecomeZombie();
  Walk("a zombie", "CRITICAL engine-zombie");
  engine_process_.reset();
  Walk("gone", "CRITICAL engine-gone");
}

TEST_F(StatusWalk, AStoppedEngineIsBrokenHoweverManyWait) {
  engine_process_->Stop();
  for (const int more : {0, 1, BACKLOG / 2 - 1}) {
    port_->Fill(more);
    EXPECT_TRUE(Found().starts_with("CRITICAL engine-stopped")) << more;
  }
}

TEST_F(StatusWalk, WhatTheLogsTell) {
  HangLog(50, "deaded - disconnect");
  HangLog(40, "deaded - process");
  Walk("said of an engine before this one", "OK");
  HangLog(-2, "deaded - disconnect");
  Walk("hang check", "WARNING hang-deaded");
  EXPECT_EQ(StatusJson()["hang"]["in_a_row"], 3);
  HangLog(-3, "alived");
  MainLog(1, "g_shm_open_flag = 0");
  Walk("channels", "WARNING channels-not-watched");
  MainLog(1, "g_shm_open_flag = 1");
  MainLog(7000, engine_ + " process start.");
  Walk("restarted two hours ago", "OK");
  MainLog(900, engine_ + " process start.");
  Walk("restarted", "WARNING restarted");
}

TEST_F(StatusWalk, DeliveriesThatFailed) {
  MainLog(2, "Mail lost: [ 10.0.0.5 ] x Alarm Occured - Cpu Check, kind 4: Failed to connect | \x1b[2J");
  MainLog(2, "Mail Send [ 10.0.0.5 ] x Alarm Occured - Cpu Check");
  ServerLog(2, "INFO", "[ SOCK_SVC ] : SEND_ALARM start.");
  ServerLog(1, "INFO", "[ SVC_OPEN ] : Channel Open Filed(000007:x:11)");
  ServerLog(1, "ERROR", "[ SOCK_SVC ] : svc ch open fail.");
  Walk("mail and a server", "WARNING not-delivered");
  const Json json = StatusJson();
  EXPECT_EQ(json["undelivered"][0]["destination"], "10.0.0.7:9500");
  EXPECT_EQ(json["undelivered"][0]["reason"], "gave no reply");
  EXPECT_EQ(json["undelivered"][1]["reason"], "Failed to connect | \\x1b[2J");
  MainLog(0, "Mail Send [ 10.0.0.5 ] x Alarm Occured - Cpu Check");
  ServerLog(0, "INFO", "send resource usage reqeust data = c:1,m:0");
  EXPECT_EQ(Found(), "OK");
}

TEST_F(StatusWalk, PortsThatAreNotTheEngines) {
  config_ += "RESTART_CHECK_SEC 0\n";
  port_->Close();
  EXPECT_EQ(Found(), "WARNING port-not-yet");
  const Port six(true);
  UsePort(six.Number());
  Walk("IPv6 only", "CRITICAL port-elsewhere");
  UsePort(port_->Number());
  // An engine that has had its minute: the oldest process.
  config_ += "PROC_NAME " + ReadFile("/proc/1/comm");
  home_.Write("engine.pid", "1");
  const auto age = ctl::BootMilliseconds() / 1000 -
                   static_cast<int64_t>(ctl::ReadProcess(1)->start) / sysconf(_SC_CLK_TCK);
  if (age > 61) Walk("another port", "CRITICAL port-closed");
}

TEST_F(StatusTest, APauseIsShown) {
  EXPECT_EQ(Run(Tool({"pause", "5m", "--reason", "new \"model\"|\n\xea\xb0\x80"})).ExitStatus(), 0)
      << Errors();
  EXPECT_EQ(Found(), "WARNING paused");
  EXPECT_EQ(StatusJson()["pause"]["reason"], "new \"model\"|\\n\xea\xb0\x80");
}

TEST_F(StatusTest, WhatCannotBeReadIsUnknownAndNamed) {
  const auto unknown = [&](const std::string& what) {
    std::string line;
    EXPECT_EQ(Status({"--plugin"}, &line), 3) << line;
    EXPECT_NE(line.find(what), line.npos) << line;
  };
  config_ += "WATCH_PATH ./none/\n";
  unknown("the log folder " + (home_ / "none/") + ": No such file");
  config_ += "WATCH_PATH ./log/\nHANG_PATH ./nohang/\n";
  unknown("the hang log's folder " + (home_ / "nohang/"));
  config_ += "HANG_PATH ./log/\nASR_PORT 0\n";
  unknown("ASR_PORT is 0");
  config_ += "ASR_PORT " + std::to_string(port_->Number()) + "\n";
  config_.replace(config_.find("PROC_NAME"), 9, "PROC_NONE");
  unknown("PROC_NAME is missing");
  EXPECT_EQ(Run({TOOL, "-f", home_ / "missing.conf", "status", "--plugin"}).ExitStatus(), 3);
  EXPECT_NE(ReadFile(home_ / "out").find("missing.conf: No such file"), std::string::npos);
}

// A FIFO in the file's place is never read to its end.
TEST_F(StatusTest, AnswersWithinItsTime) {
  ASSERT_EQ(mkfifo((home_ / "fifo").c_str(), 0600), 0);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(Run({TOOL, "-f", home_ / "fifo", "status", "--plugin", "-t", "1"}).ExitStatus(), 3);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(9));
  EXPECT_NE(ReadFile(home_ / "out").find("the configuration: not read within 1 s"), std::string::npos);
}

TEST_F(StatusTest, ReadsTheTailOfALargeLog) {
  MainLog(5, std::string(3'000'000, 'x'));
  MainLog(1, "System CPU [ 95 ] Config CPU [ 90 ]");
  EXPECT_EQ(Found(), "WARNING cpu-over");
  const auto figures = StatusJson()["figures"];
  EXPECT_EQ(figures["cpu"]["value"], 95);
}

// As nobody, in a /proc that does or does not hide the others.
TEST_F(StatusTest, WhatAnotherUserMayNotSeeIsSaidAndNotGuessed) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  fs::permissions(home_.Path(), fs::perms(0755));
  const std::string command =
      "mount -t proc -o hidepid=\"$0\" proc /proc || exit 77; exec setpriv --reuid 65534 --regid 65534 "
      "--clear-groups \"$@\"";
  const auto seen = [&](const char* hidepid, const char* closed) {
    const Words words = StatusWords({"--plugin"});
    if (closed != nullptr) fs::permissions(home_ / closed, fs::perms(0));
    std::error_code absent;
    fs::remove(home_ / "out", absent);
    const int status = Run(Joined({"unshare", "-m", "sh", "-c", command, hidepid}, words)).ExitStatus();
    if (closed != nullptr) fs::permissions(home_ / closed, fs::perms(0755));
    return std::to_string(status) + " " + ReadFile(home_ / "out");
  };
  const std::string open = seen("0", nullptr);
  if (open.starts_with("77 ") || open.starts_with("1 ")) GTEST_SKIP() << "no mount name space";
  EXPECT_TRUE(open.starts_with("0 DUNRASTT OK - ")) << open;
  EXPECT_EQ(open.find("descriptors="), open.npos) << open;
  for (const auto& [hidepid, closed, what] :
       {std::tuple("2", static_cast<const char*>(nullptr), "the processes: /proc hides"),
        std::tuple("0", "agent.conf", "the configuration: "),
        std::tuple("0", "log", "the main log below ")}) {
    const std::string text = seen(hidepid, closed);
    EXPECT_TRUE(text.starts_with("3 DUNRASTT UNKNOWN - cannot tell: ")) << text;
    EXPECT_NE(text.find(what), text.npos) << text;
  }
}

TEST_F(StatusTest, ConnectsNowhereAndWritesNothing) {
  if (support::NoStrace() != nullptr) GTEST_SKIP() << support::NoStrace();
  port_->Fill(1);
  const std::string trace = home_ / "trace";
  const Words strace = {"strace", "-f", "-o",
                        trace,    "-e", "trace=open,openat,creat,connect,mkdir,unlink,rename,flock"};
  for (const Words& form : {Words{}, Words{"--json"}, Words{"--plugin"}}) {
    EXPECT_LT(Run(Joined(strace, StatusWords(form))).ExitStatus(), 2) << Errors();
    const std::string calls = ReadFile(trace);
    EXPECT_NE(calls.find("agent.conf"), calls.npos);
    for (const char* call :
         {"O_WRONLY", "O_RDWR", "O_CREAT", "creat(", "connect(", "mkdir(", "unlink(", "rename(", "flock("})
      EXPECT_EQ(calls.find(call), calls.npos) << call << " in\n" << calls;
  }
}

// What ss -lnt shows in the columns Recv-Q and Send-Q.
TEST_F(StatusTest, QueueFiguresAreThoseOfSs) {
  for (const int more : {0, 5, BACKLOG + 1 - 5}) {
    port_->Fill(more);
    std::error_code absent;
    fs::remove(home_ / "out", absent);
    if (Run({"ss", "-lntH", "sport", "=", ":" + std::to_string(port_->Number())}).ExitStatus() != 0)
      GTEST_SKIP() << "no ss here";
    std::istringstream row(ReadFile(home_ / "out"));
    std::string state;
    int waiting = 0;
    int backlog = 0;
    row >> state >> waiting >> backlog;
    const Json port = StatusJson()["port"];
    EXPECT_EQ(port["waiting"], waiting);
    EXPECT_EQ(port["backlog"], backlog);
    EXPECT_EQ(backlog, BACKLOG);
    EXPECT_TRUE(waiting == 0 || more > 0) << waiting;
  }
}

TEST_F(StatusTest, MetricsAreReplacedAsAWhole) {
  config_ += "PROC_NAME a\"b\\\xea\xb0\x80\n";
  const std::string file = home_ / "m.prom";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Run(StatusWords({"--prom", file})).ExitStatus(), 0) << Errors();
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
  EXPECT_NE(ReadFile(file).find("engine=\"a\\\"b\\\\\xea\xb0\x80\""), std::string::npos) << ReadFile(file);
  for (const auto& entry : fs::directory_iterator(home_.Path()))
    EXPECT_FALSE(entry.path().filename().string().starts_with("m.prom."));
  EXPECT_EQ(Run(StatusWords({"--prom", home_ / "no/m.prom"})).ExitStatus(), 3);
  const int judged = Run({"sh", "-c", "promtool check metrics < \"$0\"", file}).ExitStatus();
  EXPECT_TRUE(judged == 0 || judged == 127) << Errors();  // 127: not installed
  std::atomic<bool> ended = false;
  std::atomic<int> halves = 0;
  std::thread reader([&] {
    while (!ended) halves += ReadFile(file).ends_with("\ndunrastt_pause_remaining_seconds 0\n") ? 0 : 1;
  });
  for (int i = 0; i < 20; ++i) Run(StatusWords({"--prom", file})).ExitStatus();
  ended = true;
  reader.join();
  EXPECT_EQ(halves, 0);
}

TEST(StatusRules, StandInTheManual) {
  const std::string manual = ReadFile(TREE "/man/dunrasttctl.8");
  for (const ctl::StatusRule& rule : ctl::StatusRules())
    EXPECT_NE(manual.find(std::string("\n.It ") + rule.id + "\n"), manual.npos) << rule.id;
}

}  // namespace
}  // namespace tooltest
