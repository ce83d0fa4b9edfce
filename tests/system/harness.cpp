#include "system/harness.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

namespace harness {

int64_t Number(const char* name, int64_t otherwise) {
  const char* text = getenv(name);
  return text == nullptr ? otherwise : atoll(text);
}

AgentTest::AgentTest() {
  // Orphans become children of this process, which reaps them as init would.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  // Sanitizers, also that of a daemon, write their findings to files that TearDown reads. Without TZ the C
  // library reads the time zone anew in every mktime, under a lock that the thread sanitizer does not see.
  const std::string log = "log_path='" + folder_ / "sanitizer'";
  const std::string known = ":suppressions='" + folder_.Write("tsan", "race:tzset_internal\n") + "'";
  setenv("ASAN_OPTIONS", log.c_str(), 1);
  setenv("UBSAN_OPTIONS", log.c_str(), 1);
  setenv("TSAN_OPTIONS", (log + known).c_str(), 1);
  setenv("TZ", ":/etc/localtime", 0);
  fs::create_symlink(AGENT_EXECUTABLE, folder_ / agent_);
  fs::create_symlink("/bin/sleep", folder_ / engine_);
  folder_.Write("start engine.sh",
                "#!/bin/sh\nhome=$(dirname \"$0\")\nprintf '<%s>' \"$@\" >> \"$home/runs\"\n\"$home/" +
                    engine_ + "\" 600 > /dev/null 2>&1 &\necho $! > \"$home/engine.pid\"\n",
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
  // A start script may have started one more engine meanwhile, so repeat until no process of either name is
  // left.
  WaitUntil([this] {
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    for (const pid_t pid : Named(engine_)) kill(pid, SIGKILL);
    return !EngineAlive() && Named(agent_).empty();
  });
}

void AgentTest::TearDown() {
  for (const auto& entry : fs::directory_iterator(folder_.Path())) {
    if (entry.path().filename().string().starts_with("sanitizer")) ADD_FAILURE() << ReadFile(entry.path());
  }
  if (!HasFailure()) return;
  std::cerr << "--- output of the agent\n" << Out();
  std::cerr << "--- its errors\n" << ReadFile(folder_ / "err.txt") << "---\n";
}

Process AgentTest::Start(const Words& arguments, Words by) const {
  by.insert(by.end(), {folder_ / agent_, "-f", folder_.Write("agent.conf", config_)});
  return Run(Joined(by, arguments));
}

Process AgentTest::StartedAgent(const std::string& lines, const Words& arguments) {
  config_ += lines;
  folder_.Write("out.txt", "");
  Process agent = Start(arguments);
  EXPECT_TRUE(WaitUntil([&] { return !agent.Alive() || Count(Out(), "Start DunraSTT_Admin Service") > 0; }));
  EXPECT_EQ(Count(Out(), "DunraSTT_Admin Already Running"), 0U);
  return agent;
}

bool AgentTest::WaitForOut(const std::string& text, size_t count) const {
  return WaitUntil([&] { return Count(Out(), text) >= count; });
}

bool AgentTest::WaitForHandlers(const Process& agent) {
  return WaitUntil([&] {
    const std::string status = ReadFile("/proc/" + std::to_string(agent.Pid()) + "/status");
    const auto caught = support::AllMatches(status, "^SigCgt:\\s*(\\w+)$");
    return !caught.empty() && (std::stoull(*caught.begin(), nullptr, 16) >> (SIGALRM - 1) & 1) != 0;
  });
}

void AgentTest::ExpectStops(Process& agent, seconds limit, const std::vector<int>& signals) const {
  const auto start = std::chrono::steady_clock::now();
  for (const int number : signals) kill(agent.Pid(), number);
  const int status = agent.Wait();
  EXPECT_LT(std::chrono::steady_clock::now() - start, limit);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  // There is no output here when the test sent it elsewhere.
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

void AgentTest::StartEngine() const {
  Process({folder_ / "start engine.sh"}).Wait();
  ASSERT_TRUE(WaitUntil([this] { return EngineAlive(); }));
  fs::remove(folder_ / "runs");
}

void AgentTest::KillEngine() const {
  for (const pid_t pid : Named(engine_)) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);  // only a reaped engine is gone from the process table
  }
}

std::string AgentTest::Log(const std::string& name, const std::string& root) const {
  std::string text;
  std::error_code absent;
  // There are two dated folders when the test runs over midnight.
  for (const auto& day : fs::directory_iterator(root + folder_ / "log", absent))
    text += ReadFile(day.path() / name);
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

// A report on the channels may have replaced the alarm in the mailbox, so it counts as well.
AllChannels::Delivered AllChannels::Now() const {
  return {server_.Seen("ALARM+DunraSTT") + server_.Seen("CH_STATE_DATA+"), mails_.Arrived(),
          posts_.Arrived()};
}

bool AllChannels::KillUntil(const std::function<bool()>& condition) const {
  for (int attempt = 0; attempt < 5; ++attempt) {
    KillEngine();
    if (WaitUntil(condition, seconds(10))) return true;
  }
  return false;
}

void AllChannels::ExpectAlarmOnAllChannels(const std::string& when) const {
  const Delivered before = Now();
  EXPECT_TRUE(KillUntil([&] { return Now().AllBeyond(before) && EngineAlive(); })) << when;
}

}  // namespace harness
