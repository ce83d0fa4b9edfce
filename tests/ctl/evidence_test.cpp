// Engines that die in known ways, and what the real tool says of them.
#include <sys/resource.h>

#include "ctl/memory_group.h"
#include "ctl/tool_test.h"

namespace tooltest {
namespace {

class Deaths : public ToolTest {
 protected:
  Deaths() {
    fs::remove(home_ / engine_);
    fs::create_symlink("/usr/bin/python3", home_ / engine_);
  }

  // Brings up an engine that runs the first text, is ready and runs the other; waits until the tool saw it.
  void StartEngine(const std::string& first, const std::string& then, const std::string& before = ":") {
    home_.Write("engine.py", first + "\nopen('ready', 'w').write('1')\n" + then);
    home_.Write("run.sh",
                "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n" + before + "\n./" + engine_ +
                    " engine.py > /dev/null 2>&1 &\n",
                0755);
    ASSERT_EQ(Start(), 0) << Errors();
    ASSERT_TRUE(WaitUntil([this] { return ReadFile(home_ / "ready") == "1"; }));
    const std::string seen = "\"engine\":{\"pid\":" + std::to_string(Engines().at(0));
    ASSERT_TRUE(WaitUntil([&] { return Has(ReadFile(Records() + "state"), seen); })) << seen;
  }
  std::string VerdictOfTheNextStart() {
    KillEngine(0);  // waits for its end
    home_.Write("run.sh", "#!/bin/sh\n", 0755);
    EXPECT_EQ(Start(), 0) << Errors();
    return History().back()["verdict"];
  }
};

TEST_F(Deaths, ForWantOfMemoryAreTheGroupsKills) {
  const std::string parent = ctl::MemoryGroupFolder(ctl::ReadGroupText(getpid()));
  const std::string group = parent + "/" + engine_;
  std::error_code refused;
  if (parent.empty() || !fs::create_directory(group, refused)) GTEST_SKIP() << "no control group may be made";
  for (const char* limit : {"/memory.limit_in_bytes", "/memory.max", "/memory.swap.max"}) {
    if (fs::exists(group + limit))
      std::ofstream(group + limit) << (strstr(limit, "swap") == nullptr ? 64 << 20 : 0);
  }
  StartEngine("import time",
              "while open('ready').read() == '1': time.sleep(0.01)\n"
              "kept = [bytearray(1 << 20) for i in range(1 << 12)]\n",
              "echo $$ > " + group + "/cgroup.procs");
  home_.Write("ready", "2");
  const std::string verdict = VerdictOfTheNextStart();
  EXPECT_TRUE(verdict.starts_with("killed for want of memory (kills in its control group: ")) << verdict;
  fs::remove(group, refused);
}

TEST_F(Deaths, WithACoreTellTheSignal) {
  const std::string pattern = ReadFile("/proc/sys/kernel/core_pattern");
  if (pattern.empty() || pattern.find_first_of("|/") != pattern.npos) GTEST_SKIP() << "cores go elsewhere";
  for (const char* options : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) setenv(options, "disable_coredump=0", 1);
  const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
  if (setrlimit(RLIMIT_CORE, &unlimited) != 0) GTEST_SKIP() << "no cores";
  StartEngine("import time", "time.sleep(600)");
  KillEngine(SIGSEGV);
  const std::string verdict = VerdictOfTheNextStart();
  EXPECT_TRUE(verdict.starts_with("ended by SIGSEGV, core in " + (home_ / "core"))) << verdict;
}

TEST_F(Deaths, OfAHungEngineNameItsQueue) {
  config_ += "ASR_PORT " + std::to_string(support::Listener(true).Port()) + "\n";
  const std::string port = config_.substr(config_.rfind(' ') + 1);
  StartEngine(
      "import socket, time\none = socket.socket()\none.bind(('127.0.0.1', " + port +
          "))\none.listen(1)\nclients = [socket.create_connection(one.getsockname()) for i in range(2)]",
      "time.sleep(600)");
  EXPECT_TRUE(WaitUntil([this] { return History()[0]["seconds_to_port"].is_number(); }));
  // A start beside it sees the queue.
  ASSERT_EQ(Start(), 0);
  KillEngine();
  const std::string verdict = VerdictOfTheNextStart();  // names what others of this host are killed for, too
  EXPECT_TRUE(verdict.starts_with("not known; ")) << verdict;
  EXPECT_TRUE(verdict.ends_with("; it took no connections before: 2 waited, room for 1")) << verdict;
}

}  // namespace
}  // namespace tooltest
