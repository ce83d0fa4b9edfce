// The life of the process: command line, heartbeat, hangup, daemon mode. Stops: stop_storm_test.
#include <sys/wait.h>
#include <unistd.h>

#include "system/harness.h"

namespace harness {
namespace {

constexpr int REFUSED = 255;
constexpr char HELP[] =
    " [OPTIONS]\n\n"
    "  Options:\n"
    "   -h --help                 Print this help\n"
    "   -f --conf_file filename   Read configuration from the file\n"
    "   -t --test_conf filename   Test configuration file\n"
    "   -l --log_file  filename   Write logs to the file\n"
    "   -d --daemon               Daemonize this application\n"
    "   -p --pid_file  filename   PID file used by daemonized app\n\n";
constexpr char BANNER[] = "DunraSTT Service Admin - 2";

class Life : public AgentTest {
 protected:
  Life() { config_ += "RESTART_CHECK 0\n"; }
  // A daemon, once it is up. The words are executed by another program.
  pid_t StartedDaemon(const Words& by = {}) {
    EXPECT_EQ(Start({"-d"}, by).ExitStatus(), 0);
    EXPECT_TRUE(WaitUntil([this] { return !ReadFile(folder_ / "agent.pid").empty(); }));
    return std::atoi(ReadFile(folder_ / "agent.pid").c_str());
  }
};

TEST_F(Life, OptionsEndWithTheirStatus) {
  folder_.Write("number", "  12 seconds\n");
  folder_.Write("word", "twelve\n");
  // "@" stands for the test's folder.
  const struct {
    Words words;
    int status;
    const char *out, *err;  // what standard output holds, and how standard error begins
  } rows[] = {{{"-h"}, 0, HELP, ""},
              {{"--help"}, 0, "  DUNRA STT Service Daemon Ver.2.3.x.x\n\n  Usage: ", ""},
              {{"-x"}, 1, HELP, ""},
              {{"-f"}, 1, HELP, ""},
              {{"-t", "@number", "-x"}, 0, "", ""},
              {{"--test_conf", "@word"}, 1, "", "Wrong config file @word\n"},
              {{"-t", "@absent"}, 1, "", "Can't read config file @absent\n"},
              {{}, REFUSED, BANNER, ""},
              {{"-f", "@"}, REFUSED, BANNER, ""}};
  const auto expanded = [this](std::string text) {
    const size_t at = text.find('@');
    return at == std::string::npos ? text : text.replace(at, 1, folder_.Path());
  };
  for (const auto& row : rows) {
    Words words{folder_ / agent_};
    for (const std::string& word : row.words) words.push_back(expanded(word));
    SCOPED_TRACE(words.back());
    folder_.Write("out.txt", "");
    folder_.Write("err.txt", "");
    EXPECT_EQ(Run(words).ExitStatus(), row.status);
    EXPECT_TRUE(Has(Out(), row.out));
    EXPECT_TRUE(ReadFile(folder_ / "err.txt").starts_with(expanded(row.err)));
  }
}

// Starts processes as fast as it can. They end by themselves, at any moment of another's look at the process
// table.
[[noreturn]] void Churn(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGCHLD, SIG_IGN);
  for (useconds_t life = 0; getppid() == parent; life = (life + 1'237) % 20'000) {
    if (fork() != 0) continue;
    usleep(life);
    _exit(0);
  }
  _exit(0);
}

// Somebody's process has a blank name, too. START_RUNS chooses how many starts; scripts/start-storm makes
// 200.
TEST_F(Life, OtherProcessesKeepNoAgentFromStarting) {
  fs::create_symlink("/bin/sleep", folder_ / " ");
  const Process blank({folder_ / " ", "600"});
  const pid_t test = getpid();
  const pid_t loop = fork();
  if (loop == 0) Churn(test);
  for (int64_t runs = Number("START_RUNS", 1); runs > 0; --runs) {
    Process agent = StartedAgent();
    ExpectStops(agent, seconds(2));
  }
  kill(loop, SIGKILL);
}

TEST_F(Life, HeartbeatGoesToItsFileAndOutlivesAHangup) {
  folder_.Write("beat", "older\n");
  Process agent = StartedAgent("", {"-l", folder_ / "beat"});
  const auto beat = [this] { return ReadFile(folder_ / "beat"); };
  EXPECT_TRUE(WaitUntil([&] { return beat() == "older\nDebug: 0\nDebug: 1\n"; }));
  // It proves the configuration and changes nothing.
  folder_.Write("agent.conf", "LOG_LEVEL 0\n");
  kill(agent.Pid(), SIGHUP);
  EXPECT_TRUE(WaitUntil([&] { return Count(beat(), "Debug: reloading daemon config file ...\n") == 1; }));
  EXPECT_TRUE(WaitUntil([&] { return Count(beat(), "Debug: 3\n") == 1; }));
  ExpectStops(agent, seconds(2));
  EXPECT_EQ(Count(beat(), "Debug: stopping daemon ...\n"), 1U);
  EXPECT_EQ(Count(Out(), "Debug: "), 0U);
  Process other = StartedAgent("", {"-l", folder_ / "absent/beat"});
  EXPECT_TRUE(WaitForOut("Debug: 1\n"));
}

// A full disk under the heartbeat ends the agent, by way of the stop sequence, whatever signals wait for the
// first beat.
TEST_F(Life, BrokenHeartbeatStopsTheAgent) {
  config_ += "RESTART_CHECK 1\nSEND_EMAIL_CHECK 1\n";
  StartEngine();
  const std::vector<int> rows[] = {{},        {SIGHUP},         {SIGHUP, SIGALRM},
                                   {SIGTERM}, {SIGINT, SIGHUP}, {SIGHUP, SIGINT, SIGALRM, SIGTERM}};
  for (const auto& signals : rows) {
    SCOPED_TRACE(testing::PrintToString(signals));
    folder_.Write("p.pid", "1");
    folder_.Write("out.txt", "");
    Process agent = Start({"-l", "/dev/full", "-p", folder_ / "p.pid"});
    ASSERT_TRUE(WaitForHandlers(agent));
    for (const int number : signals) kill(agent.Pid(), number);
    EXPECT_EQ(agent.ExitStatus(), 0);
    EXPECT_EQ(Count(Out(), "Stop DunraSTT_Admin Service"), 1U);
    EXPECT_FALSE(fs::exists(folder_ / "p.pid"));
  }
}

// Without a signal that kills it, as the first process of a container, it ends all the same.
TEST_F(Life, FirstProcessStops) {
  const Words unshare{"unshare", "-rpf", "--kill-child", "--mount-proc"};
  if (Process(Joined(unshare, {"true"})).ExitStatus() != 0) GTEST_SKIP() << "no processes of its own";
  Process outside = Start({}, unshare);
  ASSERT_TRUE(WaitForOut("Debug: 1\n"));
  for (const pid_t pid : Named(agent_)) kill(pid, SIGTERM);
  EXPECT_EQ(outside.ExitStatus(), 0);
  EXPECT_EQ(Count(Out(), "Stop DunraSTT_Admin Service"), 1U);
}

TEST_F(Life, WaitsForItsChildrenThoughItsParentIgnoresThem) {
  config_ += "RESTART_CHECK 1\n";
  Process agent = Start({}, {"env", "--ignore-signal=CHLD"});
  EXPECT_TRUE(WaitForOut("send_timer Process Time", 2));
  EXPECT_TRUE(EngineAlive());
  EXPECT_EQ(Count(Out(), "Unable to start service"), 0U);
}

TEST_F(Life, DaemonDetachesAndGuardsItsLock) {
  const pid_t daemon = StartedDaemon();
  ASSERT_GT(daemon, 0);
  EXPECT_EQ(ReadFile(folder_ / "agent.lock"), std::to_string(daemon) + "\n");
  const std::string proc = "/proc/" + std::to_string(daemon);
  EXPECT_EQ(getsid(daemon), daemon);
  for (const char* fd : {"/fd/0", "/fd/1", "/fd/2"}) EXPECT_EQ(fs::read_symlink(proc + fd), "/dev/null");
  EXPECT_EQ(Count(ReadFile(proc + "/status"), "Umask:\t0022"), 1U);
  EXPECT_EQ(fs::read_symlink(proc + "/cwd").string() + "/", folder_.Path());

  // The second: its parent knows nothing of the refusal, its child ends with 1. Without PWD, too.
  EXPECT_EQ(Start({"-d"}, {"env", "-u", "PWD"}).ExitStatus(), 0);
  int status = -1;
  EXPECT_TRUE(WaitUntil([&] { return waitpid(-1, &status, WNOHANG) > 0; }));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  EXPECT_EQ(ReadFile(folder_ / "agent.lock"), std::to_string(daemon) + "\n");

  kill(daemon, SIGTERM);
  EXPECT_TRUE(WaitUntil([&] { return waitpid(daemon, &status, WNOHANG) > 0; }));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  // Found by a search path, the program has no folder of its own: the daemon stays where PWD says.
  fs::create_directory(folder_ / "elsewhere");
  fs::remove(folder_ / "agent.pid");
  const pid_t other =
      StartedDaemon({"bash", "-c", "PWD='" + folder_ / "elsewhere' exec -a " + agent_ + " \"$0\" \"$@\""});
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(other) + "/cwd"), folder_ / "elsewhere");
}

}  // namespace
}  // namespace harness
