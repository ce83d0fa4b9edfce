// The agent in bad surroundings, all channels on: alarms arrive all the same, and what failed comes back by
// itself. (In a namespace of its own where that takes one.)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <ostream>
#include <thread>

#include "system/all_channels.h"

namespace harness {
namespace {

namespace fs = std::filesystem;

class Adversity : public AllChannels {
 protected:
  // Runs the agent behind shell commands in new namespaces; null where the system grants none.
  std::unique_ptr<Process> StartUnshared(const std::string& kinds, const std::string& prepare) {
    Process probe({.program = "/usr/bin/unshare", .words = {"unshare", "-r" + kinds, "true"}});
    if (probe.Wait() != 0) return nullptr;
    return std::make_unique<Process>(
        StartBy({"/usr/bin/unshare", "-r" + kinds, "sh", "-c", prepare + "\nexec \"$0\" \"$@\""}));
  }
  void Limit(const Process& agent, rlim_t descriptors) {
    rlimit limit{};
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = descriptors;
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  }
  void ExpectStops(Process& agent, milliseconds limit) {
    agent.Signal(SIGTERM);
    const int status = agent.Wait(limit);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  }
};

TEST_F(Adversity, FullLogFolder) {
  fs::create_directory(folder_ / "log");
  const auto agent = StartUnshared("m", "mount -t tmpfs -o size=16k none '" + folder_ / "log" + "'\n" +
                                            "head -c 100000 /dev/zero > '" + folder_ / "log/fill" + "'");
  if (agent == nullptr) GTEST_SKIP() << "no mounts of its own";
  const std::string inside = "/proc/" + std::to_string(agent->Pid()) + "/root" + folder_ / "log/";
  ExpectAlarmOnAllChannels("full");
  EXPECT_TRUE(fs::exists(inside + "fill"));
  fs::remove(inside + "fill");
  // Room for three pages: the first lines that fit are there.
  EXPECT_TRUE(WaitFor([&] {
    for (const auto& entry : fs::directory_iterator(inside)) {
      if (ReadFile(entry.path() / "MAIN.LOG").find("send_timer") != std::string::npos) return true;
    }
    return false;
  }));
  ExpectAlarmOnAllChannels("full again");
  EXPECT_TRUE(agent->Alive());
}

// 64 bytes, the most that the kernel keeps, among them what texts of any kind may trip over.
TEST_F(Adversity, HostNameOfSixtyFourOddBytes) {
  config_.Set("LOG_HOSTNAME_INC", 1).Set("TXT_PATH", "./log/").Set("LOG_CHECK_MIN", 1);
  const auto agent =
      StartUnshared("u",
                    "python3 -c 'import socket; socket.sethostname(b\"\\r\\n\\\"%s%n$(id)`\\x27\" + b\"h\" * "
                    "47)' || exit 9");
  if (agent == nullptr) GTEST_SKIP() << "no host name of its own";
  ExpectAlarmOnAllChannels("host name");
  bool found = false;
  for (const auto& day : fs::directory_iterator(folder_ / "log")) {
    for (const auto& log : fs::directory_iterator(day)) {
      found = found || log.path().filename() == "MAIN.\r\n\"%s%n$(id)`'" + std::string(47, 'h') + ".LOG";
    }
  }
  EXPECT_TRUE(found);
  EXPECT_TRUE(agent->Alive());
}

TEST_F(Adversity, DescriptorsExhaustedAndGivenBack) {
  Process agent = StartBy({});
  ExpectAlarmOnAllChannels("first");
  // None is left, not even those in use: nothing opens, and poll(2) refuses sets of more.
  for (const rlim_t left : {6, 3, 0}) {
    Limit(agent, left);
    KillEngine();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ASSERT_TRUE(agent.Alive()) << left;
    Limit(agent, 1024);
    ExpectAlarmOnAllChannels("after " + std::to_string(left));
  }
  ExpectStops(agent, milliseconds(7'000));
}

TEST_F(Adversity, DescriptorsAboveAThousand) {
  Process agent = StartBy({"/usr/bin/python3", "-c",
                           "import os, resource, sys\n"
                           "resource.setrlimit(resource.RLIMIT_NOFILE, (4096, resource.getrlimit(7)[1]))\n"
                           "for fd in range(3, 1500): os.dup2(0, fd)\n"
                           "os.execv(sys.argv[1], sys.argv[1:])"});
  ExpectAlarmOnAllChannels("high");
  // The tag of a frame is the descriptor that it went through.
  EXPECT_GE(std::stoi(server_.Reports().at(0).header), 1500);
  ExpectStops(agent, milliseconds(7'000));
}

// What may stand where the start script should. The engine's name is that of the program in the foreground.
struct Script {
  const char* name;
  const char* text;  // ENGINE stands for the engine; null: no file
  mode_t mode;
  bool endless;
};
void PrintTo(const Script& row, std::ostream* out) {
  *out << row.name;
}

class StartScript : public Adversity, public testing::WithParamInterface<Script> {};

TEST_P(StartScript, HoldsUpNothingElse) {
  const Script& script = GetParam();
  const std::string path = folder_ / "start engine.sh";
  fs::remove(path);
  fs::remove(folder_ / engine_);
  fs::create_symlink("/usr/bin/yes", folder_ / engine_);
  if (script.text != nullptr) {
    std::string text = script.text;
    text.replace(text.find("ENGINE"), 6, "\"${0%/*}/" + engine_ + "\"");
    WriteFile(path, text, script.mode);
  }
  // Its own output is the script's too, and may be without end.
  Process agent = StartBy({"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/null"});
  ASSERT_TRUE(WaitFor([&] { return Now().reports >= 1 && Now().mails >= 1 && Now().posts >= 1; }));
  EXPECT_TRUE(!script.endless || WaitFor([this] { return EngineAlive(); }));
  const size_t lines = Count(Log("MAIN.LOG"), "send_timer EmailCheck");
  EXPECT_TRUE(WaitFor([&] { return Count(Log("MAIN.LOG"), "send_timer EmailCheck") >= lines + 2; }));
  EXPECT_TRUE(script.endless || WaitFor([&] { return Now().posts >= 2; }));
  ExpectStops(agent, milliseconds(7'000));
  EXPECT_EQ(EngineAlive(), script.endless);
}

INSTANTIATE_TEST_SUITE_P(Rows, StartScript,
                         testing::Values(Script{"endless", "#!/bin/sh\nENGINE > /dev/null\n", 0755, true},
                                         Script{"printing", "#!/bin/sh\nENGINE\n", 0755, true},
                                         Script{"bash", "#!/bin/bash\nset -m; ENGINE & wait\n", 0755, true},
                                         Script{"notExecutable", "ENGINE\n", 0644, false},
                                         Script{"noInterpreter", "#!/no/such ENGINE\n", 0755, false},
                                         Script{"missing", nullptr, 0, false}),
                         [](const auto& row) { return std::string(row.param.name); });

// The system's shell may be any that is called sh.
TEST_F(Adversity, BashAsTheShell) {
  const auto agent = StartUnshared("m", "mount --bind /bin/bash \"$(readlink -f /bin/sh)\"");
  if (agent == nullptr) GTEST_SKIP() << "no mounts of its own";
  ExpectAlarmOnAllChannels("bash");
  EXPECT_EQ(ReadFile(folder_ / "descriptors"), "0\n1\n2\n3\n");  // 3 is the listing's own
  ExpectStops(*agent, milliseconds(7'000));
  EXPECT_TRUE(EngineAlive());
}

// Every channel's server is cut, reset, garbled, slow and endless by turns; another management server behind
// the spoilt one gets its alarm each time, and all of them get theirs once they are sound.
TEST_F(Adversity, SpoiltRepliesOnEveryChannel) {
  const std::vector<std::string> script = {
      "--script",
      "cut:0,cut:1,cut:3,cut:4,cut:15,cut:16,cut:17,cut:22,cut:23,cut:38,cut:39,cut:53,cut:100,cut:180,reset,"
      "reset:20,reset:40,close,garbage,endless:0,endless:23,endless:39,drip:0.003,pass"};
  const auto proxy = [&](const std::string& port) {
    std::vector<std::string> words = {"--to", port};
    words.insert(words.end(), script.begin(), script.end());
    return std::make_unique<alarm_test::Sink>("flaky_proxy.py", words);
  };
  const ManagementServer behind(folder_, "behind");
  const auto report = proxy(behind.Address().substr(behind.Address().find(':') + 1));
  const auto mail = proxy(mails_.Port());
  const auto post = proxy(posts_.Port());
  // Spoilt first, sound second; the engine never comes up, so every tick tells of it.
  config_.Set("ALARM_1", "127.0.0.1:" + report->Port()).Set("ALARM_2", server_.Address());
  config_.Set("RESTART_CHECK_SEC", 0).Set("SMTP_SERVER_PORT", mail->Port());
  config_.Set("WEBHOOK_SERVER_URL", "http://127.0.0.1:" + post->Port() + "/");
  WriteFile(folder_ / "start engine.sh", "#!/bin/sh\n", 0755);
  Process agent = StartBy({"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/null"});
  const auto sound = [&] {
    return behind.CountBodies("ALARM+") >= 2 && Kept(mails_) >= 6 && Kept(posts_) >= 6;
  };
  EXPECT_TRUE(WaitFor(sound, LIMIT * 4))
      << behind.CountBodies("ALARM+") << " " << Kept(mails_) << " " << Kept(posts_);
  EXPECT_GE(Now().reports, 20U);
  EXPECT_TRUE(agent.Alive());
  ExpectStops(agent, milliseconds(7'000));
}

}  // namespace
}  // namespace harness
