// The agent in bad surroundings, all channels on: alarms arrive all the same, and what failed comes back by
// itself. (In a namespace of its own where that takes one.)
#include <fcntl.h>

#include "system/harness.h"

namespace harness {
namespace {

class Adversity : public AllChannels {
 protected:
  // Of an agent whose output, the start script's too, may be without end.
  Process StartUnheard() const { return Start({}, {"sh", "-c", "exec \"$0\" \"$@\" > /dev/null"}); }
  // Of the agent's descriptors.
  static void Limit(const Process& agent, int most) {
    const std::string limit = "--nofile=" + std::to_string(most) + ":";
    ASSERT_EQ(Process({"prlimit", "--pid=" + std::to_string(agent.Pid()), limit}).ExitStatus(), 0);
  }
};

// The files bear the host's name: 64 bytes, the most that the kernel keeps, among them what texts of any kind
// may trip over.
TEST_F(Adversity, FullLogFolderOnAHostWithAnOddName) {
  const Words unshare{"unshare", "-rmu"};
  if (Process(Joined(unshare, {"true"})).ExitStatus() != 0) GTEST_SKIP() << "no mounts of its own";
  const std::string host = "\r\n\"%s%n$(id)`'" + std::string(50, 'h');
  fs::create_directory(folder_ / "log");
  folder_.Write("host", host);
  folder_.Write("prepare.py", "import socket\nsocket.sethostname(open('host', 'rb').read())\n");
  config_ += "LOG_HOSTNAME_INC 1\nTXT_PATH ./log/\nLOG_CHECK_MIN 1\n";
  Process agent =
      Start({}, Joined(unshare, {"sh", "-ec",
                                 "cd '" + folder_.Path() + "'\npython3 prepare.py\n" +
                                     "mount -t tmpfs -o size=16k none log\n" +
                                     "head -c 100000 /dev/zero > log/fill || exec \"$0\" \"$@\""}));
  const std::string root = "/proc/" + std::to_string(agent.Pid()) + "/root";
  ExpectAlarmOnAllChannels("full");
  EXPECT_TRUE(fs::remove(root + folder_ / "log/fill"));
  // Room for three pages: the first lines that fit are there.
  EXPECT_TRUE(WaitUntil([&] { return Count(Log("MAIN." + host + ".LOG", root), "send_timer") > 0; }));
  ExpectAlarmOnAllChannels("full again");
  EXPECT_TRUE(agent.Alive());
}

// Of standard output and error. Alarms arrive and the heart beats on; what the reader missed is lost.
TEST_F(Adversity, AReaderThatDoesNotRead) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const base::UniqueFd full(open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  while (write(full.Get(), "full\n", 5) == 5) continue;
  Process agent = Start({}, {"sh", "-c", "exec \"$0\" \"$@\" > '" + pipe + "' 2>&1"});
  ExpectAlarmOnAllChannels("not read");
  EXPECT_EQ(Count(Log("MAIN.LOG"), "DunraSTT_Admin Already Running"), 0U);
  const Process reader({"cat", pipe}, folder_ / "heard");
  for (const char* text : {"\nDebug: ", "[INFO][ MAIN]"})
    EXPECT_TRUE(WaitUntil([&] { return Count(ReadFile(folder_ / "heard"), text) > 0; })) << text;
  ExpectStops(agent, seconds(7));
}

TEST_F(Adversity, DescriptorsExhaustedAndGivenBack) {
  Process agent = Start();
  ExpectAlarmOnAllChannels("first");
  // None is left, not even those in use: nothing opens, and poll(2) refuses sets of more.
  for (const int left : {6, 3, 0}) {
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

// What may stand where the start script should, with the engine's name for that of a program that prints
// without end. The last one cannot be executed.
TEST_F(Adversity, StartScriptsHoldUpNothingElse) {
  fs::remove(folder_ / engine_);
  fs::create_symlink("/usr/bin/yes", folder_ / engine_);
  const std::string engine = "\"${0%/*}/" + engine_ + "\"";
  for (const std::string& script : {"#!/bin/sh\n" + engine + " > /dev/null\n", "#!/bin/sh\n" + engine + "\n",
                                    "#!/bin/bash\nset -m; " + engine + " & wait\n", "#!/no/such " + engine}) {
    SCOPED_TRACE(script);
    const bool starts = script.starts_with("#!/bin/");
    folder_.Write("start engine.sh", script, 0755);
    const Delivered before = Now();
    Process agent = StartUnheard();
    ASSERT_TRUE(WaitUntil([&] { return Now().AllBeyond(before); }));
    EXPECT_TRUE(WaitUntil([&] { return starts ? EngineAlive() : Now().posts >= before.posts + 2; }));
    const size_t lines = Count(Log("MAIN.LOG"), "send_timer EmailCheck");
    EXPECT_TRUE(WaitUntil([&] { return Count(Log("MAIN.LOG"), "send_timer EmailCheck") >= lines + 2; }));
    ExpectStops(agent, seconds(7));
    EXPECT_EQ(EngineAlive(), starts);
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
  config_ = "ALARM_REFUSED localhost:1\nALARM_0 " + report.Address() + "\n" + config_;
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
  folder_.Write("figures", "3 1");
  for (const std::string spoilt : {"stall:0", "stall:40", "endless:16"}) {
    SCOPED_TRACE(spoilt);
    const Peer engine(folder_, "engine " + spoilt, "engine_peer.py",
                      {"--figures", folder_ / "figures", "--script", "ok,announce:2000000000"});
    const Peer link(folder_, spoilt, "flaky_proxy.py", {"--to", engine.Port(), "--script", "pass," + spoilt});
    config_ += "HANG_SAVE 0\nASR_PORT " + link.Port() + "\n";
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
