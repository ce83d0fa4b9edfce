// The functions below status: texts of logs, rules on a picture, the forms.
#include <gtest/gtest.h>

#include <ctime>

#include "ctl/status_forms.h"
#include "ctl/status_logs.h"
#include "support/has.h"
#include "support/support.h"

namespace ctl {
namespace {

constexpr time_t NOW = 1'795'301'598;

Picture Well() {
  Picture seen;
  seen.time = NOW;
  seen.config = AgentConfig{};
  seen.config->process = "stt_server";
  seen.config->port = 9100;
  seen.agent.known = seen.engine.known = true;
  seen.agent.process.emplace();
  seen.engine.process.emplace();
  seen.engine.process->start = NOW - 1000;
  seen.port.queue = AcceptQueue{true, 0, 128, true};
  return seen;
}

std::string Ids(const Picture& seen) {
  std::string ids;
  for (const StatusFinding& one : Judge(seen)) ids += std::string(one.rule->id) + " ";
  return ids;
}

TEST(StatusRules, QueueAtItsEdges) {
  const auto found = [](uint32_t waiting, std::optional<uint32_t> room, std::optional<uint32_t> later = {}) {
    Picture seen = Well();
    seen.port.queue = AcceptQueue{true, waiting, room, true};
    seen.port.second_look = later;
    return Ids(seen);
  };
  EXPECT_EQ(found(0, 0), "");
  EXPECT_EQ(found(63, 128), "");
  EXPECT_EQ(found(64, 128), "queue-half ");
  EXPECT_EQ(found(128, 128), "queue-half ");
  EXPECT_EQ(found(129, 128), "queue-full ");
  EXPECT_EQ(found(1, 0), "queue-full ");
  EXPECT_EQ(found(15, {}), "");
  EXPECT_EQ(found(16, {}), "queue-half ");
  EXPECT_EQ(found(2, 128, 2), "queue-stays ");
  EXPECT_EQ(found(2, 128, 1), "");
  EXPECT_EQ(found(UINT32_MAX, UINT32_MAX), "queue-half ");
}

TEST(StatusRules, AStoppedEngineIsBrokenHoweverManyWait) {
  Picture seen = Well();
  seen.engine.process->state = 'T';
  seen.port.queue->waiting = 64;
  EXPECT_EQ(Ids(seen), "engine-stopped queue-half ");
}

TEST(StatusRules, NothingKnownIsNothingFound) {
  Picture seen;
  EXPECT_EQ(Ids(seen), "");
  seen.not_known.push_back({"the configuration", "gone"});
  EXPECT_EQ(Ids(seen), "not-known ");
  for (auto* form : {StatusWords, StatusJson, StatusPlugin, StatusMetrics})
    EXPECT_FALSE(form(seen, Judge(seen)).empty());
  EXPECT_EQ(StatusPlugin(seen, Judge(seen)), "DUNRASTT UNKNOWN - cannot tell: the configuration: gone\n");
}

TEST(StatusRules, TheWorstComesFirst) {
  Picture seen = Well();
  seen.not_known.push_back({"x", "y"});
  seen.restarts = RestartsPicture{2, 3, true, NOW - 60, "not known", "e"};
  seen.engine.process->start = NOW - 5;
  seen.port.queue->listening = false;
  EXPECT_EQ(Ids(seen), "port-not-yet restarted not-known ");
  seen.engine.process->start = NOW - 500;
  EXPECT_EQ(Ids(seen), "port-closed restarted not-known ");
  seen.config->checks.period = 600;
  EXPECT_EQ(Ids(seen), "port-not-yet restarted not-known ");
}

TEST(StatusRules, DescriptorsAndSilence) {
  Picture seen = Well();
  seen.engine.process->fd_limit = 1024;
  seen.engine.process->fds = 921;
  EXPECT_EQ(Ids(seen), "");
  seen.engine.process->fds = 922;
  EXPECT_EQ(Ids(seen), "descriptors-few ");
  seen = Well();
  seen.config->checks.traces = seen.config->checks.processes = true;
  seen.log.emplace();
  seen.log->last = NOW - 599;
  EXPECT_EQ(Ids(seen), "");
  seen.log->last = NOW - 600;
  EXPECT_EQ(Ids(seen), "agent-silent ");
}

TEST(StatusRules, StandInTheManual) {
  const std::string manual = support::ReadFile(TREE "/man/dunrasttctl.8");
  for (const StatusRule& rule : StatusRules())
    EXPECT_TRUE(support::Has(manual, std::string("\n.It ") + rule.id + "\n"));
}

TEST(StatusLogs, ReadWhatTheAgentWrites) {
  const auto line = ParseTraceLine("[2026/11/21 03:14:07:123][INFO][ MAIN][a.cpp/f:12] : [x ] : [y]");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->tag, "INFO");
  EXPECT_EQ(line->message, "x ] : [y");
  EXPECT_EQ(ParseTraceLine("[HANG][2026/11/21 03:14:07:123] : [z]")->message, "z");
  const std::string whole =
      "[2026/11/21 03:14:07:123][INFO][ MAIN][a.cpp/f:12] : [System CPU [ 12 ] Config CPU [ 90 ]]\n";
  for (size_t cut = 0; cut < whole.size(); ++cut) {
    MainLogPicture picture;
    AddMainLog(whole.substr(0, cut), "e", &picture);
    EXPECT_FALSE(picture.cpu);
    AddMainLog(whole.substr(cut), "e", &picture);
  }
  MainLogPicture picture;
  AddMainLog(whole, "e", &picture);
  EXPECT_EQ(picture.cpu->limit, 90);
  EXPECT_EQ(picture.cpu->time, StampTime("2026/11/21 03:14:07"));
  EXPECT_EQ(StampTime("yesterday"), 0);
}

TEST(StatusLogs, OneAlarmByTwoChannelsIsToldOnce) {
  MainLogPicture picture;
  AddMainLog(
      "[2026/11/21 03:13:57:1][INFO][ MAIN][a/f:1] : [Mail Send [ 1.2.3.4 ] e Alarm Occured - Cpu Check]\n"
      "[2026/11/21 03:13:58:1][ERROR][ MAIN][a/f:1] : [WebHook lost: [ 1.2.3.4 ] e Alarm Occured - Cpu "
      "Check, kind 4: no: x]\n"
      "[2026/11/21 03:13:58:1][INFO][ MAIN][a/f:1] : [WebHook Send [ 1.2.3.4 ] e Alarm Occured - Cpu "
      "Check]\n",
      "e", &picture);
  EXPECT_TRUE(picture.told->mail);
  EXPECT_FALSE(picture.told->chat);
  ASSERT_EQ(picture.undelivered.size(), 1U);
  EXPECT_EQ(picture.undelivered[0].reason, "no: x");
}

TEST(StatusForms, TellWhatTheOperatorNeeds) {
  Picture seen = Well();
  seen.port = {AcceptQueue{true, 129, 128, true}, std::nullopt, 3117};
  auto& engine = *seen.engine.process;
  engine.pid = 4711;
  engine.start = NOW - 7860;
  engine.threads = 412;
  engine.fds = 918;
  engine.fd_limit = 1024;
  engine.rss = 65712999628;
  seen.host_memory = 68719476736;
  EXPECT_EQ(
      StatusPlugin(seen, Judge(seen)),
      "DUNRASTT CRITICAL - stt_server takes no connections: 129 wait, room for 128 (port 9100) | "
      "waiting=129;63;128;0;129 overflows=3117c;;;0 uptime=7860s;;;0 memory=65712999628B;;;0;68719476736 "
      "threads=412;;;0 descriptors=918;921;;0;1024\n");
  const std::string words = StatusWords(seen, Judge(seen));
  EXPECT_TRUE(words.starts_with(
      "CRITICAL  stt_server takes no connections: 129 wait, room for 128 (port 9100)\n\nagent     0, up "))
      << words;
  EXPECT_TRUE(
      support::Has(words,
                   "engine    4711, up 2 h 11 min, 412 threads, 918 of 1024 descriptors, 61.2 of 64.0 GB\n"
                   "port      9100 listening, 129 of 128 waiting; 3117 overflows on this host since boot\n"));
}

TEST(StatusMetrics, EscapeTheEnginesName) {
  Picture seen = Well();
  seen.config->process = "a\"b\\\xea\xb0\x80";
  EXPECT_TRUE(support::Has(StatusMetrics(seen, {}), "engine=\"a\\\"b\\\\\xea\xb0\x80\""));
}

// Dashboard and alerting rules name only metrics that exist, and each metric stands in the fleet's page.
TEST(StatusMetrics, AreThoseThatTheExamplesName) {
  std::set<std::string> known;
  const std::string page = support::ReadFile(TREE "/docs/fleet.md");
  for (const MetricRow& row : MetricRows()) {
    known.insert(row.name);
    EXPECT_TRUE(support::Has(page, "`" + std::string(row.name) + "`"));
  }
  for (const char* file : {"alerts.yml", "alerts-test.yml", "dashboard.json"}) {
    const auto names =
        support::AllMatches(support::ReadFile(std::string(TREE "/examples/") + file), "(dunrastt_[a-z_]+)");
    EXPECT_GT(names.size(), 5U) << file;
    for (const std::string& name : names) EXPECT_EQ(known.count(name), 1U) << name << " in " << file;
  }
}

}  // namespace
}  // namespace ctl
