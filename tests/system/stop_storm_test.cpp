// Stops at random moments, with everything at work or everybody silent. STOP_RUNS (8) and STOP_SEED choose
// how many and which; scripts/stop-storm runs 200.
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <random>
#include <thread>

#include "Tovik/alarm_sink.h"
#include "system/harness.h"

namespace harness {
namespace {

using std::chrono::steady_clock;

int Number(const char* name, int otherwise) {
  const char* text = getenv(name);
  return text == nullptr ? otherwise : atoi(text);
}

// What the agent is in when it is told to stop, and how long the end may take.
struct Situation {
  const char* name;
  bool engine;  // lives
  const char* server;
  const char* post;
  const char* mail;  // behaviour of a management server in the place of a mail server; null: a sound one
  bool endless_script;
  milliseconds limit;
};
// The grace of a stop is 5 seconds; the rest is for a loaded machine.
constexpr milliseconds IDLE{2'000};
constexpr milliseconds GRACE{6'000};
constexpr Situation SITUATIONS[] = {
    {"idle", true, "normal", "normal", nullptr, false, IDLE},
    {"busy", false, "normal", "normal", nullptr, false, GRACE},
    {"silent management server", false, "silent", "normal", nullptr, false, GRACE},
    {"silent after the open", false, "silent-data", "normal", nullptr, true, GRACE},
    {"silent webhook", false, "normal", "silent", nullptr, false, GRACE},
    {"silent mail server", false, "normal", "normal", "silent", false, GRACE},
    {"slow management server", false, "slow", "silent", nullptr, true, GRACE},
};

class StopStorm : public AgentTest {
 protected:
  // Until SIGALRM, the last of the handled signals, has its handler.
  static bool HandlersInstalled(const Process& agent) {
    return WaitFor([&] {
      const std::string status = ReadFile("/proc/" + std::to_string(agent.Pid()) + "/status");
      const size_t caught = status.find("SigCgt:");
      return caught != std::string::npos &&
             (std::stoull(status.substr(caught + 7), nullptr, 16) >> (SIGALRM - 1) & 1) != 0;
    });
  }
  void Configure(const Situation& situation, const ManagementServer& server, const alarm_test::Sink& post,
                 const std::string& mail_port) {
    config_.Set("ALARM_1", server.Address()).Set("FIRST_ALARM_SEND", 1).Set("CPU_OVER_VALUE", 0);
    config_.Set("SEND_WEBHOOK_CHECK", 1).Set("WEBHOOK_SERVER_URL", "http://127.0.0.1:" + post.Port() + "/");
    config_.Set("SEND_EMAIL_CHECK", 1).Set("SMTP_SERVER_URL", "127.0.0.1").Set("SMTP_SERVER_PORT", mail_port);
    config_.Set("SMTP_AUTH", 1)
        .Set("SENDER_NAME", "A")
        .Set("SENDER_EMAIL", "a@example.com")
        .Set("HANG_SAVE", 1);
    config_.Set("HANG_TIME", 1).Set("LOG_CHECK_MIN", 1).Set("RESULT_CHECK", 1).Set("RESULT_TIME", "24:60");
    WriteFile(folder_ / "to.txt", "Kim kim@example.com\n");
    if (situation.engine) StartEngine();
    if (!situation.endless_script) return;
    WriteFile(folder_ / "start engine.sh", "#!/bin/sh\n\"${0%/*}/" + engine_ + "\" 600\n", 0755);
  }
};

TEST_F(StopStorm, EveryStopEndsInTime) {
  std::mt19937 random(static_cast<unsigned>(Number("STOP_SEED", 1)));
  const int runs = Number("STOP_RUNS", 8);
  for (int run = 0; run < runs; ++run) {
    const Situation& situation = SITUATIONS[static_cast<size_t>(run) % std::size(SITUATIONS)];
    SCOPED_TRACE(situation.name);
    const ManagementServer server(folder_, "server" + std::to_string(run), situation.server, "0.02");
    const alarm_test::Sink post("webhook_sink.py", {"--count-only", "--behaviour", situation.post});
    const alarm_test::Sink mail("mail_sink.py", {"--count-only"});
    const ManagementServer no_mail(folder_, "mail" + std::to_string(run), "silent");
    const std::string no_mail_port = no_mail.Address().substr(no_mail.Address().find(':') + 1);
    Configure(situation, server, post, situation.mail == nullptr ? mail.Port() : no_mail_port);
    WriteFile(folder_ / "p.pid", "1");
    WriteFile(folder_ / "out.txt", "");

    Process agent = Start({"-p", folder_ / "p.pid"});
    ASSERT_TRUE(HandlersInstalled(agent));
    const milliseconds moment(random() % 3'000);
    std::this_thread::sleep_for(moment);
    const bool engine_alive = EngineAlive();
    const int signals = 1 + static_cast<int>(random() % 3);  // SIGTERM, SIGINT, both
    const auto start = steady_clock::now();
    if ((signals & 1) != 0) agent.Signal(SIGTERM);
    if ((signals & 2) != 0) agent.Signal(SIGINT);
    const int status = agent.Wait();
    const std::chrono::duration<double> taken = steady_clock::now() - start;
    std::cerr << "stop after " << moment.count() << " ms, " << situation.name << ": " << taken.count()
              << " s\n";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_LT(taken, situation.limit);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "p.pid"));
    EXPECT_EQ(Count(Out(), "Stop DunraSTT_Admin Service"), 1U);
    EXPECT_TRUE(!engine_alive || EngineAlive());
    KillEngine();
  }
}

}  // namespace
}  // namespace harness
