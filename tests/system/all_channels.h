// An agent with every alarm channel on and an engine that can be killed.
#ifndef TESTS_SYSTEM_ALL_CHANNELS_H
#define TESTS_SYSTEM_ALL_CHANNELS_H

#include "Tovik/alarm_sink.h"
#include "system/harness.h"

namespace harness {

class AllChannels : public AgentTest {
 protected:
  struct Delivered {
    size_t reports = 0;
    int mails = 0;
    int posts = 0;
  };

  AllChannels() {
    WriteFile(folder_ / "to.txt", "Kim kim@example.com\nLee lee@example.com\n");
    WriteFile(folder_ / "agent.conf", "");
    config_.Set("ALARM_1", server_.Address()).Set("HANG_SAVE", 1).Set("HANG_TIME", 1).Set("LOG_LEVEL", 3);
    config_.Set("SEND_EMAIL_CHECK", 1)
        .Set("SMTP_SERVER_URL", "localhost")
        .Set("SMTP_SERVER_PORT", mails_.Port());
    config_.Set("SMTP_AUTH", 1).Set("SENDER_NAME", "Agent").Set("SENDER_EMAIL", "agent@example.com");
    config_.Set("CFG_FILE", "./agent.conf").Set("SEND_WEBHOOK_CHECK", 1).Set("WEBHOOK_APPS", 1);
    config_.Set("WEBHOOK_SERVER_URL", "http://127.0.0.1:" + posts_.Port() + "/");
  }

  // Behind another program the sanitizers write to its standard error.
  void TearDown() override {
    EXPECT_EQ(ReadFile(folder_ / "err.txt").find("Sanitizer"), std::string::npos);
    AgentTest::TearDown();
  }
  // Runs the agent by way of another program, which executes the words that follow its own.
  Process StartBy(const std::vector<std::string>& wrapper, std::vector<std::string> environment = {}) {
    WriteFile(folder_ / "agent.conf", config_.Text());
    // The C library sets its time zone behind a lock of its own that the thread sanitizer cannot see.
    WriteFile(folder_ / "tsan", "race:tzset_internal\n");
    environment.push_back("TSAN_OPTIONS=suppressions='" + folder_ / "tsan" + "'");
    if (wrapper.empty()) return Run({"-f", folder_ / "agent.conf"}, environment);
    std::vector<std::string> words = wrapper;
    words.insert(words.end(), {folder_ / agent_, "-f", folder_ / "agent.conf"});
    return Process({.program = wrapper[0],
                    .words = words,
                    .environment = environment,
                    .out = folder_ / "out.txt",
                    .err = folder_ / "err.txt"});
  }
  static int Kept(const alarm_test::Sink& sink) {
    return atoi(support::ReadFile(sink.Folder() / "count").c_str());
  }
  // A report on the channels may have replaced the alarm in the mailbox: that is as good a sign of life.
  Delivered Now() const {
    return {server_.CountBodies("ALARM+DunraSTT") + server_.CountBodies("CH_STATE_DATA+"), Kept(mails_),
            Kept(posts_)};
  }
  // Kills the engine until that has the effect: a start script that is under way may bring up another one.
  bool KillUntil(const std::function<bool()>& condition) {
    for (int attempt = 0; attempt < 5; ++attempt) {
      KillEngine();
      if (WaitFor(condition, LIMIT / 2)) return true;
    }
    return false;
  }
  void ExpectAlarmOnAllChannels(const std::string& when) {
    const Delivered before = Now();
    EXPECT_TRUE(KillUntil([&] {
      const Delivered now = Now();
      return now.reports > before.reports && now.mails > before.mails && now.posts > before.posts &&
             EngineAlive();
    })) << when;
  }

  ManagementServer server_{folder_, "server"};
  alarm_test::Sink mails_{"mail_sink.py", {"--count-only"}};
  alarm_test::Sink posts_{"webhook_sink.py", {"--count-only"}};
};

}  // namespace harness

#endif
