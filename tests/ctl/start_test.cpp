// The real tool in front of a start script: whatever fails, the script runs once for each start that is not
// held.
#include <sys/mount.h>

#include "ctl/process_table.h"
#include "ctl/step_killer.h"
#include "ctl/tool_test.h"

namespace tooltest {
namespace {

TEST_F(ToolTest, RunsTheScriptAndRecordsWhatCameOfIt) {
  config_ += "ASR_PORT 1\n";
  EXPECT_EQ(Run(Tool({"start", "--", "sh", "-c", "exit 7"})).ExitStatus(), 7);
  ASSERT_TRUE(WaitUntil([&] { return History()[0]["command_status"] == 7; }));
  const Json one = History()[0];
  EXPECT_TRUE(one["held"].is_null());
  EXPECT_EQ(one["verdict"], "not known");
  EXPECT_TRUE(EvidenceText().starts_with("not known\n"));
  EXPECT_EQ(Run(Tool({"start", "--now", "--", home_ / "none"})).ExitStatus(), 127);
  EXPECT_EQ(Run(Tool({"start", "--now", "--", home_.Path()})).ExitStatus(), 126);
}

// What held each start; "-" for nothing.
std::string Holds(const Json& history) {
  std::string holds;
  for (const Json& one : history)
    holds += one["held"].is_null() ? "- " : one["held"].get<std::string>() + " ";
  return holds;
}

TEST_F(ToolTest, HoldsAStartThatIsNotNeeded) {
  EXPECT_EQ(Start({}, "up"), 0);
  ASSERT_TRUE(WaitUntil([this] { return !Engines().empty(); }));
  EXPECT_EQ(Start({}), 0);
  KillEngine();
  EXPECT_EQ(Start({}), 1);
  EXPECT_TRUE(Has(Errors(), "back-off: next try in "));
  EXPECT_EQ(Start({"--now"}), 0);
  EXPECT_EQ(Run(Tool({"pause", "2m", "--reason", "new\nmodel"})).ExitStatus(), 0);
  EXPECT_EQ(Start({"--now"}), 1);
  EXPECT_EQ(Run(Tool({"resume"})).ExitStatus(), 0);
  EXPECT_EQ(Start({"--now"}), 0);
  EXPECT_EQ(Runs(), 3U);
  EXPECT_EQ(Holds(History()), "- engine-is-back back-off - pause - ");
}

TEST_F(ToolTest, RefusesAPauseThatHoldsNothing) {
  for (const char* duration : {"59s", "25h"})
    EXPECT_EQ(Run(Tool({"pause", duration, "--reason", "x"})).ExitStatus(), 3) << duration;
  EXPECT_EQ(Run(Tool({"pause", "5m"})).ExitStatus(), 3) << "without a reason";
  config_ += "SHELL_FILE " + script_ + "\n";
  EXPECT_EQ(Run(Tool({"pause", "5m", "--reason", "x"})).ExitStatus(), 2)
      << "the agent runs the script itself";
  EXPECT_FALSE(fs::exists(Records() + "pause"));
}

// What stands in the way of the record, and has to leave it alone: put there by a shell in the record folder
// of the engine. OUT is a folder elsewhere.
constexpr std::pair<const char*, const char*> OBSTACLES[] = {
    {"a link in the record folder's place", "here=$PWD; cd ..; rm -r \"$here\"; ln -s \"$OUT\" \"$here\""},
    {"links in the places of the files",
     "for file in lock state pause state.new; do ln -sf \"$OUT/victim\" $file; done; rm -r starts evidence; "
     "ln -s \"$OUT\" starts; ln -s \"$OUT\" evidence"},
    {"a second name of another file in the lock's place", "ln -f \"$OUT/victim\" lock"},
    {"folders and FIFOs in the places of the files",
     "rm -r lock starts; mkdir -p state.new/x; mkfifo lock pause; echo a file > starts"},
    {"records cut short", "find . -type f -exec truncate -s 20 {} +"},
    {"records of 1 GB", "find . -type f -exec truncate -s 1G {} +"},
    {"a record folder that cannot be made", "cd ../..; rm -r record; echo a file > record"},
};

TEST_F(ToolTest, StartsTheEngineWhateverStandsInTheRecordsPlace) {
  for (const auto& [name, put] : OBSTACLES) {
    SCOPED_TRACE(name);
    fs::remove_all(home_ / "record");
    fs::remove(home_ / "runs");
    fs::create_directories(home_ / "outside");
    home_.Write("outside/victim", "mine\n");
    ASSERT_EQ(Start(), 0);
    ASSERT_EQ(Process({"env", "-C", Records(), "OUT=" + (home_ / "outside"), "sh", "-ec", put}).ExitStatus(),
              0);
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(Runs(), 2U) << Errors();
    EXPECT_EQ(ReadFile(home_ / "outside/victim"), "mine\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(home_ / "outside"), {}), 1);
  }
}

TEST_F(ToolTest, StartsTheEngineOnAFullFileSystem) {
  fs::create_directory(home_ / "record");
  if (::mount("none", (home_ / "record").c_str(), "tmpfs", 0, "size=64k,mode=700") != 0)
    GTEST_SKIP() << "may not mount";
  home_.Write("record/filler", std::string(65536, 'x'));
  EXPECT_EQ(Start(), 0);
  EXPECT_TRUE(Has(Errors(), "not recorded: "));
  fs::remove(home_ / "record/filler");
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Runs(), 2U);
  EXPECT_EQ(History().size(), 1U);
  ::umount2((home_ / "record").c_str(), MNT_DETACH);
}

// Root may be the first to work on it.
TEST_F(ToolTest, KeepsTheRecordForTheAgentsUserAndRoot) {
  constexpr uid_t AGENT = 64001, OTHER = 64002;
  const auto as = [](uid_t user, const Words& words) {
    const std::string id = std::to_string(user);
    return Joined({"setpriv", "--reuid", id, "--regid", id, "--clear-groups", "--"}, words);
  };
  if (getuid() != 0 || Run(as(AGENT, {"test", "-x", TOOL})).ExitStatus() != 0)
    GTEST_SKIP() << "needs root, and a tool that every user can reach";
  fs::permissions(home_.Path(), fs::perms(0755));
  ASSERT_EQ(chown(home_.Path().c_str(), AGENT, AGENT), 0);
  const Words start = StartWords();
  // An agent as far as the tool can see.
  fs::copy_file("/bin/sh", home_ / "DunraSTT_Admin");
  const Process agent(
      as(AGENT, {home_ / "DunraSTT_Admin", "-c", "kill -STOP $$", "-f", home_ / "agent.conf"}));
  ASSERT_TRUE(WaitUntil([&] { return ctl::ReadProcess(agent.Pid())->state == 'T'; }));
  const Words pause = Tool({"pause", "5m", "--reason", "x"});
  const Words resume = Tool({"resume"});
  const Words history = Tool({"history"});
  const std::tuple<uid_t, const Words&, int> story[] = {
      {0, pause, 0},     {AGENT, start, 1}, {AGENT, resume, 0}, {AGENT, start, 0},
      {OTHER, pause, 3}, {AGENT, pause, 0}, {OTHER, resume, 3}, {0, start, 1},
      {0, resume, 0},    {0, start, 0},     {AGENT, start, 0},  {OTHER, history, 3}};
  for (const auto& [user, words, status] : story)
    EXPECT_EQ(Run(as(user, words)).ExitStatus(), status) << user << " " << words[3] << "\n" << Errors();
  EXPECT_EQ(Runs(), 3U);
  EXPECT_EQ(History().size(), 5U);
  EXPECT_EQ(Ask({"find", home_ / "record", "!", "-user", std::to_string(AGENT)}).text, "");
}

TEST_F(ToolTest, RunsTheScriptOnceWhenTwoStartAtOnce) {
  home_.Write("run.sh", "#!/bin/sh\necho \"$*\" >> \"$(dirname \"$0\")/runs\"\nexec sleep 0.5\n", 0755);
  const Words words = StartWords();
  for (size_t round = 1; round <= 5; ++round) {
    Process one = Run(words);
    Process two = Run(words);
    EXPECT_EQ(one.ExitStatus() + two.ExitStatus(), 1) << Errors();
    EXPECT_EQ(Runs(), round);
    EXPECT_EQ(support::Count(Holds(History()), "another-start"), round);
  }
}

// With a sanitizer there are far more steps, and each is slow.
#ifdef BLOCKING_SHIM
constexpr int STRIDE = 1;
#else
constexpr int STRIDE = 12;
#endif

TEST_F(ToolTest, RunsTheScriptOnceWhereverItsHelperIsKilled) {
  int step = 1;
  for (; RunKilledAt(StartWords(), Victim::HELPER, step); step += 13 * STRIDE) {
    ASSERT_TRUE(WaitUntil([this] { return Runs() > 0; })) << step;
    ASSERT_EQ(Runs(), 1U) << step;
    fs::remove(home_ / "runs");
  }
  EXPECT_GT(step, 200);
}

// Where even the last word before the script was said, it counts as started, and back-off holds the next.
TEST_F(ToolTest, KilledBeforeTheScriptHindersNoLaterStart) {
  int step = 1;
  int held = 0;
  for (; RunKilledAt(StartWords(), Victim::STARTER, step); step += 5 * STRIDE) {
    ASSERT_EQ(Runs(), 0U) << step;
    // The watch takes the start back.
    const auto started = [&] { return Start({"--backoff", "1h..1h"}) == 0; };
    if (!WaitUntil(started, std::chrono::seconds(5))) {
      ++held;
      ASSERT_EQ(Start({"--now"}), 0);
    }
    ASSERT_EQ(Runs(), 1U) << step;
    fs::remove(home_ / "runs");
    fs::remove(Records() + "state");
  }
  EXPECT_GT(step, 50);
  // Between the starter's last word and the command are three steps, after which the start counts as made. A
  // busy host shifts where they lie, so they can be met more than once.
  EXPECT_LE(held, 3);
}

#ifdef BLOCKING_SHIM
TEST_F(ToolTest, DoesNotWaitLongForAFileSystemThatHangs) {
  const std::string sound = config_;
  const std::pair<const char*, const char*> cases[] = {{"HISTORY_PATH ", "no answer"},
                                                       {"TXT_PATH ", "; evidence 2"}};
  for (const auto& [key, told] : cases) {
    config_ = sound + key + (home_ / "hangs/\n");
    const auto begin = std::chrono::steady_clock::now();
    fs::remove(home_ / "runs");
    EXPECT_EQ(Run(Joined({"env", "LD_PRELOAD=" BLOCKING_SHIM}, StartWords())).ExitStatus(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
    EXPECT_EQ(Runs(), 1U) << key;
    EXPECT_TRUE(Has(Errors(), told));
  }
  EXPECT_TRUE(Has(EvidenceText(), "the rest took too long, beginning with: the engine's last errors"));
}

TEST_F(ToolTest, StaysAsTheParentWhereTheKernelTellsNobodyElse) {
  for (const int status : {7, 0}) {
    const Words start = Tool({"start", "--now", "--", "sh", "-c", "exit " + std::to_string(status)});
    EXPECT_EQ(Run(Joined({"env", "LD_PRELOAD=" BLOCKING_SHIM}, start)).ExitStatus(), status);
    EXPECT_TRUE(WaitUntil([&] { return History().back()["command_status"] == status; }));
  }
}

TEST_F(ToolTest, CountsByNoClockThatCanBeSet) {
  ASSERT_EQ(Start({"--backoff", "1h..1h"}), 0);
  for (const char* shift : {"-1y", "+10y"}) {
    const Words clock = {"env", "FAKETIME_DONT_FAKE_MONOTONIC=1", "faketime", "-f", shift};
    EXPECT_EQ(Run(Joined(clock, StartWords({"--backoff", "1h..1h"}))).ExitStatus(), 1) << shift;
  }
  EXPECT_EQ(History("99999h").size(), 3U);
}
#endif

TEST_F(ToolTest, StartsTheEngineWhoeverReadsItsErrors) {
  int closed[2];
  int full[2];
  ASSERT_EQ(pipe(closed) | pipe2(full, O_NONBLOCK), 0);
  close(closed[0]);
  while (write(full[1], "x", 1) == 1) {
  }
  for (const int err : {closed[1], full[1]}) {
    Process start(StartWords(), "/dev/null", "/proc/self/fd/" + std::to_string(err));
    EXPECT_EQ(start.ExitStatus(), 0);
  }
  EXPECT_EQ(Runs(), 2U);
  for (const int fd : {closed[1], full[0], full[1]}) close(fd);
}

// Environment, descriptors, signals, parent, session, folder, limits: as without the tool.
TEST_F(ToolTest, LeavesTheScriptWhatItInherits) {
  const auto printed = [this](const Words& words) {
    const Words unusual = {
        "sh", "-c",
        "exec <&- 9>&2; exec env --ignore-signal=USR1,CHLD --block-signal=HUP,ALRM \"$0\" \"$@\""};
    const auto [status, text] = Ask(Joined(unusual, words));
    EXPECT_EQ(status, 0);
    return text;
  };
  const Words commands[] = {
      {"sh", "-c", "pwd; umask; ls /proc/self/fd"},
      {"cat", "/proc/self/environ", "/proc/self/limits", "/proc/self/oom_score_adj", "/proc/self/cgroup",
       "/proc/thread-self/children"},
      {"grep", "-E", "^(PPid|NSsid|Sig[^Q]|Shd|Cap|NoNew|Groups|Uid|Gid|Seccomp|Cpus|Mems)",
       "/proc/self/status"}};
  for (const Words& command : commands)
    EXPECT_EQ(printed(Tool(Joined({"start", "--now", "--"}, command))), printed(command));
}

}  // namespace
}  // namespace tooltest
