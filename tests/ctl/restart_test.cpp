// What a start decides from texts, times and figures.
#include <gtest/gtest.h>

#include "ctl/backoff.h"
#include "ctl/claim.h"
#include "ctl/core_file.h"
#include "ctl/evidence_parts.h"
#include "ctl/pause.h"
#include "ctl/restart_state.h"
#include "ctl/start_record.h"
#include "ctl/verdict.h"
#include "support/support.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;
constexpr const char* BOOT = "145e8d26-fa58-4c89-8bbc-c6ac20aa68e8";

RecordFolder Folder(const support::TempFolder& folder) {
  std::string complaint;
  return std::move(*RecordFolder::OpenPath(folder.Path(), RecordFolder::For::WRITING, &complaint));
}

TEST(Backoff, DoublesUpToItsEndAndNeverGivesUp) {
  const BackoffRule rule = *ParseBackoff("10s..2m");
  StartRow row;
  int64_t now = 1'000'000;
  for (const int64_t delay : {0, 10, 20, 40, 80, 120, 120, 120}) {
    const StartRow seen = SeenDead(row, rule, BOOT, now);
    EXPECT_EQ(SecondsToWait(seen, rule, now), delay);
    now += delay * 1000;
    EXPECT_EQ(SecondsToWait(seen, rule, now), 0);
    row = Started(SeenDead(seen, rule, BOOT, now), BOOT, now);
  }
  EXPECT_EQ(row.starts, 8);
  row.starts = 1'000'000'000;
  EXPECT_EQ(SecondsToWait(SeenDead(row, rule, BOOT, now), rule, now), 120);
  EXPECT_EQ(WaitWords({BOOT, 0, 0, 0, 4}, 80, 360'000), "next try in 80 s: 4 starts in 6 min");
}

TEST(Backoff, BeginsAnewAfterAHealthyTimeARebootOrAClockThatMakesNoSense) {
  const BackoffRule rule{10, 300, 60};
  const StartRow row{BOOT, 1'000'000, -1, 500'000, 7};
  const auto starts = [&](const StartRow& before, const char* boot, int64_t now) {
    return SeenDead(before, rule, boot, now).starts;
  };
  EXPECT_EQ(starts(row, BOOT, 1'059'999), 7);
  EXPECT_EQ(starts(row, BOOT, 1'060'000), 0);
  // Dead soon after the start, seen again late: a time without a start is no healthy one.
  EXPECT_EQ(starts(SeenDead(row, rule, BOOT, 1'005'000), BOOT, 1'200'000), 7);
  EXPECT_EQ(starts(row, "another boot", 1'005'000), 0);
  EXPECT_EQ(starts(row, BOOT, 999'999), 0);
  EXPECT_EQ(starts(row, "", 1'005'000), 0);
  for (const char* text : {"", "10s", "10s..", "5m..10s", "10s...5m", "10..20"})
    EXPECT_FALSE(ParseBackoff(text)) << text;
}

TEST(Claim, HoldsForALivingProcessOfThisBootAndNotForLong) {
  const Claim claim{4711, 1234, 50'000, BOOT};
  const ProcessRow process{4711, "dunrasttctl", 'S', 1, 1234};
  EXPECT_TRUE(ClaimHolds(claim, {0, 59'999, BOOT}, process));
  EXPECT_FALSE(ClaimHolds(claim, {0, 60'000, BOOT}, process));
  EXPECT_FALSE(ClaimHolds(claim, {0, 49'999, BOOT}, process));
  EXPECT_FALSE(ClaimHolds(claim, {0, 55'000, "another"}, process));
  EXPECT_FALSE(ClaimHolds({4711, 1234, 50'000, ""}, {0, 55'000, ""}, process));
  EXPECT_FALSE(ClaimHolds(claim, {0, 55'000, BOOT}, std::nullopt));
  EXPECT_FALSE(ClaimHolds(claim, {0, 55'000, BOOT}, ProcessRow{4711, "dunrasttctl", 'S', 1, 1235}))
      << "the pid was given to another";
  for (const char state : {'T', 't', 'Z', 'X'}) {
    const ProcessRow dead{4711, "dunrasttctl", state, 1, 1234};
    EXPECT_FALSE(ClaimHolds(claim, {0, 55'000, BOOT}, dead)) << state;
  }
}

TEST(Claim, IsReadBackAndGarbageIsNone) {
  const std::string text = ClaimText({4711, 1234, 50'000, BOOT});
  EXPECT_EQ(ParseClaim(text)->start, 1234U);
  for (const std::string& garbage : {std::string(), text + "x", text.substr(0, 30), std::string(200, '9')})
    EXPECT_FALSE(ParseClaim(garbage)) << garbage;
}

TEST(Claim, IsTakenFromNobodyWhoHoldsIt) {
  const support::TempFolder home;
  const RecordFolder folder = Folder(home);
  const Moment now = Now();
  const auto take = [&](pid_t pid, int64_t age_ms) {
    std::string complaint;
    const Claim claim{pid, ReadProcess(pid)->start, now.boot_ms - age_ms, now.boot_id};
    return TakeClaim(folder, claim, &complaint);
  };
  EXPECT_EQ(take(getppid(), 0), Claimed::OURS);
  EXPECT_EQ(take(getpid(), 1000), Claimed::ANOTHERS) << "although ours began earlier";
  home.Write("lock", "");
  const base::UniqueFd writing = folder.Lock();
  EXPECT_EQ(take(getpid(), 0), Claimed::UNSURE);
}

TEST(Pause, EndsByTheBootsClock) {
  const support::TempFolder home;
  const RecordFolder folder = Folder(home);
  ASSERT_EQ(WritePause(folder, {1'000'000, 5'000'000, BOOT}, 600, "kim", "new model"), 0);
  const auto left = [&](const Moment& now) {
    const auto pause = ReadPause(folder, now);
    return pause ? pause->seconds_left : 0;
  };
  EXPECT_EQ(left({1'000'000, 5'000'000, BOOT}), 600);
  EXPECT_EQ(left({316'360'000, 5'100'000, BOOT}), 500) << "the clock was set ten years forward";
  EXPECT_EQ(left({-30'536'000, 5'599'001, BOOT}), 1) << "the clock was set back a year";
  EXPECT_EQ(left({1'000'000, 5'600'000, BOOT}), 0) << "a suspend counts";
  EXPECT_EQ(left({1'000'000, 5'000'000, "another"}), 0);
  EXPECT_EQ(left({1'000'000, 5'000'000 - 86'400'000, BOOT}), 0) << "longer than any pause: not ours";
  EXPECT_EQ(RemovePause(folder), 1);
  EXPECT_EQ(RemovePause(folder), 0);
  for (const char* text : {"", "{", "[]", "{\"until_ms\":\"x\"}", "{\"until_ms\":1e99,\"boot_id\":7}"})
    EXPECT_FALSE(ParsePause(text, {1'000'000, 5'000'000, BOOT})) << text;
}

TEST(State, IsReadBackAndGarbageIsANewOne) {
  RestartState state;
  state.row = {BOOT, 5, 6, 7, 8};
  state.start_wall = 9;
  state.counters = {1, "/group", 2, 3};
  state.engine = {4711, 12, "stt.service", "/opt/stt", 99, true, {true, 129, 128}};
  const RestartState again = ParseState(StateText(state));
  EXPECT_EQ(StateText(again), StateText(state));
  EXPECT_TRUE(again.engine.queue.Full());
  const std::string whole = StateText(state);
  for (size_t cut = 0; cut < whole.size() - 2; ++cut)
    EXPECT_EQ(ParseState(whole.substr(0, cut)).row.starts, 0);
  EXPECT_EQ(ParseState("{\"starts\":\"many\",\"engine\":[],\"last_ms\":null}").row.last_ms, -1);
  EXPECT_EQ(ParseState(std::string(10000, '[')).row.starts, 0);
}

TEST(StartRecords, AreCompletedInPlaceAndCutLinesAreLeftBehind) {
  const support::TempFolder home;
  const RecordFolder folder = Folder(home);
  StartRecord record;
  record.at = 1'795'301'598;
  record.time = "then";
  record.verdict = "a \"quote\"\n\xff";
  auto first = AppendStart(folder, record);
  ASSERT_TRUE(first);
  const std::string path = home / ("starts/" + first->file);
  fs::resize_file(path, fs::file_size(path) - 20);
  EXPECT_NE(CompleteStart(folder, *first, record), 0);
  const auto second = AppendStart(folder, record);
  record.held = "pause";
  ASSERT_TRUE(AppendStart(folder, record));
  StartRecord done = second->record;
  done.command_status = 137;
  done.seconds_to_port = 59.96;
  EXPECT_EQ(CompleteStart(folder, *second, done), 0);
  std::vector<StartRecord> seen;
  EXPECT_TRUE(VisitStarts(folder, record.at, [&](std::string_view line) {
    if (const auto one = ParseStartLine(line)) seen.push_back(*one);
  }));
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_EQ(seen[0].command_status, 137);
  EXPECT_EQ(seen[0].seconds_to_port, 60.0);
  EXPECT_EQ(seen[0].verdict, "a \"quote\"\n\xef\xbf\xbd");
  EXPECT_EQ(seen[1].held, "pause");
  int later = 0;
  VisitStarts(folder, record.at + 1, [&](std::string_view) { ++later; });
  EXPECT_EQ(later, 0);
}

TEST(RecordFolders, NameEnginesSafely) {
  EXPECT_EQ(SafeName("stt_server-1"), "stt_server-1");
  EXPECT_EQ(SafeName("../a\xc7"), "%2E%2E%2Fa%C7");
}

TEST(RecordFolders, HoldNobodyUpAndAreNotOpenToAll) {
  const support::TempFolder home;
  ASSERT_EQ(mkfifo((home / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(Folder(home).Read("fifo", 10));
  std::string complaint;
  fs::permissions(home.Path(), fs::perms::others_write, fs::perm_options::add);
  EXPECT_FALSE(RecordFolder::OpenPath(home.Path(), RecordFolder::For::WRITING, &complaint));
}

TEST(MemoryGroups, AreOfBothVersions) {
  const char* first =
      "9:name=systemd:/system.slice/stt.service\n4:cpu,memory:/system.slice/stt.service\n0::/\n";
  const char* second = "0::/system.slice/dunrastt-admin.service/engine\n";
  EXPECT_EQ(MemoryGroupFolder(first, "/g"), "/g/memory/system.slice/stt.service");
  EXPECT_EQ(MemoryGroupFolder(second, "/g"), "/g/system.slice/dunrastt-admin.service/engine");
  EXPECT_EQ(MemoryGroupFolder("0::/../../other\n", "/g"), "");
  EXPECT_EQ(MemoryGroupFolder("4:notmemory:/a\nx\n::", "/g"), "");
  EXPECT_EQ(UnitIn(first), "stt.service");
  EXPECT_EQ(UnitIn(second), "dunrastt-admin.service");
  EXPECT_EQ(UnitIn("0::/user.slice\n"), "");
}

TEST(MemoryGroups, CountKillsAsRecordedOnHosts) {
  const support::TempFolder host;
  host.Write("vmstat", "oom_kill_x 9\nnr_free_pages 1\noom_kill 7\n");
  host.Write("memory.events", "low 0\nhigh 0\nmax 112\noom 3\noom_kill 2\noom_group_kill 0\n");
  const KillCounters second = ReadKillCounters(host.Path(), host.Path());
  EXPECT_EQ(second.host, 7);
  EXPECT_EQ(second.kills, 2);
  EXPECT_EQ(second.hits, 112);
  fs::remove(host / "memory.events");
  host.Write("memory.oom_control", "oom_kill_disable 0\nunder_oom 0\noom_kill 5\n");
  host.Write("memory.failcnt", "31\n");
  const KillCounters first = ReadKillCounters(host.Path(), host.Path());
  EXPECT_EQ(first.kills, 5);
  EXPECT_EQ(first.hits, 31);
  EXPECT_FALSE(ReadKillCounters(host / "gone", host / "gone").kills);
}

TEST(Verdicts, OfMemoryAreNeverAGuess) {
  const KillCounters before{1, "/g", 3, {}};
  const auto verdict = [](const KillCounters& then, const KillCounters& now) {
    return Verdict({then, now, {}, {}, {}, {}});
  };
  EXPECT_EQ(verdict(before, before), "not known");
  EXPECT_EQ(verdict(before, {1, "/g", 4, {}}),
            "killed for want of memory (kills in its control group: 3 before, 4 now)");
  EXPECT_EQ(verdict(before, {1, "/g", 0, {}}), "not known") << "a group of that name that was made anew";
  EXPECT_EQ(verdict({1, "/g", {}, {}}, {1, "/g", 4, {}}), "not known") << "nobody counted before";
  EXPECT_EQ(verdict(before, {1, "/other", 4, {}}), "not known") << "kills of another group";
  EXPECT_EQ(verdict(before, {2, "/g", 3, {}}),
            "not known; 1 process of this host killed for want of memory since the last start");
}

TEST(Verdicts, TellWhatElseWasFound) {
  EXPECT_EQ(Verdict({{}, {}, {}, CoreFound{"/c/core.1", {11, 1, "e"}}, {}, {}}),
            "ended by SIGSEGV, core in /c/core.1");
  EngineSeen full;
  full.queue_known = true;
  full.queue = {true, 129, 128};
  EXPECT_EQ(Verdict({{}, {}, {}, {}, full, {}}),
            "not known; it took no connections before: 129 waited, room for 128");
  const auto unit = [](const char* text) {
    return Verdict({{}, {}, ParseUnitWord("stt.service", text), {}, {}, {}});
  };
  EXPECT_EQ(unit("Result=oom-kill\nExecMainStatus=9\n"),
            "killed for want of memory, says the service manager of stt.service");
  EXPECT_EQ(unit("ExecMainStatus=3\nResult=exit-code\n"),
            "ended itself with status 3, says the service manager");
  EXPECT_EQ(unit("Result=signal\nExecMainStatus=9\n"),
            "not known; the service manager names SIGKILL, not who sent it");
  EXPECT_EQ(unit("garbage"), "not known");
}

TEST(Cores, AreLookedForWhereTheKernelLeavesThem) {
  EXPECT_EQ(CoreFolder("core\n", "/opt/stt"), "/opt/stt/");
  EXPECT_EQ(CoreFolder("/var/cores/%e.%p\n", "/opt/stt"), "/var/cores/");
  EXPECT_EQ(CoreFolder("|/lib/systemd/systemd-coredump %P", "/x"), "/var/lib/systemd/coredump");
  EXPECT_EQ(CoreFolder("|/usr/share/other %P", "/x"), "");
  EXPECT_EQ(CoreFolder("/cores/%u/core", "/x"), "");
  EXPECT_EQ(CoreFolder("core", ""), "");
  for (const char* text : {"", "\177ELF", "not a core"}) EXPECT_FALSE(ParseCore(text));
}

TEST(EvidenceTexts, AreTheLastOnesAndHarmless) {
  EXPECT_EQ(LastLines("a\nb\x1b[2J\nc", 2), "  b\\x1b[2J\n  c\n");
  EXPECT_EQ(LastLines("", 2), "");
  EXPECT_EQ(LastFigures("x System CPU [ 1 ]\nSystem Memory [ 2 ]\ny System CPU [ 3 ]\n"),
            "  System Memory [ 2 ]\n  y System CPU [ 3 ]\n");
}

}  // namespace
}  // namespace ctl
