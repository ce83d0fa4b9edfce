// The agent in bad surroundings, all channels on: alarms arrive all the same, and what failed comes back by
// itself. (In a namespace of its own where that takes one.)
#include <fcntl.h>
#include <sys/resource.h>

#include "system/harness.h"

namespace harness {
namespace {

class Adversity : public AllChannels {
 protected:
  // Runs the agent behind shell commands in new namespaces; null where the system grants none.
  std::unique_ptr<Process> StartUnshared(const std::string& kinds, const std::string& prepare) const {
    if (Process({"unshare", "-r" + kinds, "true"}).ExitStatus() != 0) return nullptr;
    return std::make_unique<Process>(
        Start({}, {"unshare", "-r" + kinds, "sh", "-c", prepare + "\nexec \"$0\" \"$@\""}));
  }
  // Of an agent whose output, the start script's too, may be without end.
  Process StartUnheard() const { return Start({}, {"sh", "-c", "exec \"$0\" \"$@\" > /dev/null"}); }
  static void Limit(const Process& agent, rlim_t descriptors) {
    rlimit limit{};
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = descriptors;
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  }
};

TEST_F(Adversity, FullLogFolder) {
  fs::create_directory(folder_ / "log");
  const auto agent = StartUnshared("m", "mount -t tmpfs -o size=16k none '" + folder_ / "log" + "'\n" +
                                            "head -c 100000 /dev/zero > '" + folder_ / "log/fill" + "'");
  if (agent == nullptr) GTEST_SKIP() << "no mounts of its own";
  const std::string inside = "/proc/" + std::to_string(agent->Pid()) + "/root" + folder_ / "log/";
  ExpectAlarmOnAllChannels("full");
  EXPECT_TRUE(fs::remove(inside + "fill"));
  // Room for three pages: the first lines that fit are there.
  EXPECT_TRUE(WaitUntil([&] {
    for (const auto& entry : fs::directory_iterator(inside)) {
      if (Count(ReadFile(entry.path() / "MAIN.LOG"), "send_timer") > 0) return true;
    }
    return false;
  }));
  ExpectAlarmOnAllChannels("full again");
  EXPECT_TRUE(agent->Alive());
}

// 64 bytes, the most that the kernel keeps, among them what texts of any kind may trip over.
TEST_F(Adversity, HostNameOfSixtyFourOddBytes) {
  config_ += "LOG_HOSTNAME_INC 1\nTXT_PATH ./log/\nLOG_CHECK_MIN 1\n";
  const auto agent = StartUnshared("u",
                                   "python3 -c 'import socket; socket.sethostname("
                                   "b\"\\r\\n\\\"%s%n$(id)`\\x27\" + b\"h\" * 47)' || exit 9");
  if (agent == nullptr) GTEST_SKIP() << "no host name of its own";
  ExpectAlarmOnAllChannels("host name");
  EXPECT_NE(Log("MAIN.\r\n\"%s%n$(id)`'" + std::string(47, 'h') + ".LOG"), "");
  EXPECT_TRUE(agent->Alive());
}

// Of standard output and error. Alarms arrive and the heart beats on; what the reader missed is lost.
TEST_F(Adversity, AReaderThatDoesNotRead) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const base::UniqueFd reader(open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  while (write(reader.Get(), "full\n", 5) == 5) continue;
  Process agent = Start({}, {"sh", "-c", "exec \"$0\" \"$@\" > '" + pipe + "' 2>&1"});
  ExpectAlarmOnAllChannels("not read");
  EXPECT_EQ(Count(Log("MAIN.LOG"), "DunraSTT_Admin Already Running"), 0U);
  std::string heard;
  for (const char* text : {"\nDebug: ", "[INFO][ MAIN]"}) {
    EXPECT_TRUE(WaitUntil([&] {
      char buffer[65536];
      const ssize_t got = read(reader.Get(), buffer, sizeof buffer);
      heard.append(buffer, got > 0 ? static_cast<size_t>(got) : 0);
      return Count(heard, text) > 0;
    })) << text;
  }
  ExpectAlarmOnAllChannels("no longer read");
  ExpectStops(agent, seconds(7));
}

TEST_F(Adversity, DescriptorsExhaustedAndGivenBack) {
  Process agent = Start();
  ExpectAlarmOnAllChannels("first");
  // None is left, not even those in use: nothing opens, and poll(2) refuses sets of more.
  for (const rlim_t left : {6, 3, 0}) {
    Limit(agent, left);
    KillEngine();
    // Two ticks; nothing tells of them outside.
    std::this_thread::sleep_for(seconds(2));
    ASSERT_TRUE(agent.Alive()) << left;
    Limit(agent, 1024);
    ExpectAlarmOnAllChannels("after " + std::to_string(left));
  }
  ExpectStops(agent, seconds(7));
}

TEST_F(Adversity, DescriptorsAboveAThousand) {
  Process agent = Start({}, {"/usr/bin/python3", "-c",
                             "import os, resource, sys\n"
                             "resource.setrlimit(resource.RLIMIT_NOFILE, (4096, resource.getrlimit(7)[1]))\n"
                             "for fd in range(3, 1500): os.dup2(0, fd)\n"
                             "os.execv(sys.argv[1], sys.argv[1:])"});
  ExpectAlarmOnAllChannels("high");
  // The tag of a frame is the descriptor that it went through.
  const std::string frames = ReadFile(folder_ / "server/frames");
  EXPECT_GE(std::stoi(frames.substr(frames.find(R"("header": ")") + 11)), 1500);
  ExpectStops(agent, seconds(7));
}

// What may stand where the start script should. The engine's name is that of the program in the foreground.
struct Script {
  const char* name;
  const char* text;  // ENGINE stands for the engine; empty: no file
  mode_t mode;
  bool endless;
};
constexpr Script SCRIPTS[] = {{"endless", "#!/bin/sh\nENGINE > /dev/null\n", 0755, true},
                              {"printing", "#!/bin/sh\nENGINE\n", 0755, true},
                              {"bash", "#!/bin/bash\nset -m; ENGINE & wait\n", 0755, true},
                              {"not executable", "ENGINE\n", 0644, false},
                              {"no interpreter", "#!/no/such ENGINE\n", 0755, false},
                              {"missing", "", 0, false}};

TEST_F(Adversity, StartScriptsHoldUpNothingElse) {
  fs::remove(folder_ / engine_);
  fs::create_symlink("/usr/bin/yes", folder_ / engine_);
  for (const Script& script : SCRIPTS) {
    SCOPED_TRACE(script.name);
    std::string text = script.text;
    fs::remove(folder_ / "start engine.sh");
    if (!text.empty()) {
      text.replace(text.find("ENGINE"), 6, "\"${0%/*}/" + engine_ + "\"");
      folder_.Write("start engine.sh", text, script.mode);
    }
    const Delivered before = Now();
    Process agent = StartUnheard();
    ASSERT_TRUE(WaitUntil([&] { return Now().AllBeyond(before); }));
    EXPECT_TRUE(!script.endless || WaitUntil([this] { return EngineAlive(); }));
    const size_t lines = Count(Log("MAIN.LOG"), "send_timer EmailCheck");
    EXPECT_TRUE(WaitUntil([&] { return Count(Log("MAIN.LOG"), "send_timer EmailCheck") >= lines + 2; }));
    EXPECT_TRUE(script.endless || WaitUntil([&] { return Now().posts >= before.posts + 2; }));
    ExpectStops(agent, seconds(7));
    EXPECT_EQ(EngineAlive(), script.endless);
    KillEngine();
  }
}

// Every channel's server is cut, reset, garbled, slow and endless by turns; another management server behind
// the spoilt one gets its alarm each time, and all of them get theirs once they are sound.
TEST_F(Adversity, SpoiltRepliesOnEveryChannel) {
  const auto spoilt = [this](const std::string& name, const Peer& peer) {
    return Peer(
        folder_, name, "flaky_proxy.py",
        {"--to", peer.Port(), "--script",
         "cut:0,cut:1,cut:3,cut:4,cut:15,cut:16,cut:17,cut:22,cut:23,cut:38,cut:39,cut:53,cut:100,cut:180,"
         "reset,reset:20,reset:40,close,garbage,endless:0,endless:23,endless:39,drip:0.003,pass"});
  };
  const Peer behind(folder_, "behind", "mgmt_server.py");
  const Peer report = spoilt("report", behind);
  const Peer mail = spoilt("mail", mails_);
  const Peer post = spoilt("post", posts_);
  // The engine never comes up, so every tick tells of it.
  folder_.Write("start engine.sh", "#!/bin/sh\n", 0755);
  const std::string sound = "ALARM_1 " + server_.Address();
  config_.replace(config_.find(sound), sound.size(),
                  "ALARM_REFUSED localhost:1\nALARM_0 " + report.Address() + "\n" + sound);
  config_ += "RESTART_CHECK_SEC 0\nSMTP_SERVER_PORT " + mail.Port() + "\nWEBHOOK_SERVER_URL http://" +
             post.Address() + "/\n";
  Process agent = StartUnheard();
  EXPECT_TRUE(WaitUntil([&] { return behind.Seen("ALARM+") >= 2 && Now().mails >= 6 && Now().posts >= 6; },
                        seconds(80)))
      << behind.Seen("ALARM+") << " " << Now().mails << " " << Now().posts;
  EXPECT_GE(Now().reports, 20U);
  ExpectStops(agent, seconds(7));
}

// The engine answers the first query for its channels; what comes of the next, and for how long it takes,
// holds up no alarm and no stop.
TEST_F(Adversity, EngineLinkSilentAndEndless) {
  const std::string config = config_;
  folder_.Write("figures", "3 1");
  for (const std::string spoilt : {"stall:0", "stall:40", "endless:16"}) {
    SCOPED_TRACE(spoilt);
    const Peer engine(folder_, "engine " + spoilt, "engine_peer.py",
                      {"--figures", folder_ / "figures", "--script", "ok,announce:2000000000"});
    const Peer link(folder_, spoilt, "flaky_proxy.py", {"--to", engine.Port(), "--script", "pass," + spoilt});
    config_ = config + "HANG_SAVE 0\nASR_PORT " + link.Port() + "\n";
    Process agent = StartedAgent();
    ASSERT_TRUE(WaitForOut("Thread Count ["));
    const auto start = std::chrono::steady_clock::now();
    ExpectAlarmOnAllChannels(spoilt);
    // Not by way of the link's own limit, half a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(25));
    EXPECT_EQ(Count(Out(), "Thread Count ["), 1U);
    ExpectStops(agent, seconds(7));
  }
}

}  // namespace
}  // namespace harness
