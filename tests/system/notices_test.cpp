// What the administrator reads in the journal of mistakes, and that nobody else reads it.
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "system/harness.h"

namespace harness {
namespace {

// Standard error is a pipe that JOURNAL_STREAM names.
class Notices : public AgentTest {
 protected:
  Notices() {
    struct stat status {};
    stat(pipe_.c_str(), &status);
    journal_ = "JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    folder_.Write("to.txt", "kim kim@example.com\nlee\n\npark park@example.com x\n");
    config_ +=
        "LOG_LEVEL 3\nSEND_EMAIL_CHECK 1\nSMTP_SERVER_URL 127.0.0.1\nSMTP_AUTH 2\nSMTP_AUTHID agent\n"
        "SMTP_AUTHPASSWORD secret\nSENDER_EMAIL agent@example.com\nSEND_WEBHOOK_CHECK 1\nMAIL_SKIP_BAD 1\n";
  }
  Words ByPipe(const std::string& variable) const {
    return {"env", variable, "sh", "-c", "exec \"$@\" 2>\"$0\"", pipe_};
  }
  // The notices in the journal; "#" stands for what differs by host: its address, seconds, its network's
  // error.
  std::multiset<std::string> Told() const {
    static const std::regex notice("^<[3-5]>.*$", std::regex::multiline);
    static const std::regex varies(R"(\[ [0-9.]+ \]|[0-9.]+ s$|(IPv4 address: ).*$)");
    const std::string text = ReadFile(folder_ / "journal");
    std::multiset<std::string> told;
    for (std::sregex_iterator at(text.begin(), text.end(), notice), end; at != end; ++at)
      told.insert(std::regex_replace(at->str(), varies, "$1#"));
    return told;
  }
  // Waits for so many, which are to be these.
  void ExpectTold(const std::multiset<std::string>& notices) const {
    WaitUntil([&] { return Told().size() >= notices.size(); });
    EXPECT_EQ(Told(), notices) << ReadFile(folder_ / "journal");
  }

  std::string Pipe() const {
    EXPECT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    return folder_ / "pipe";
  }

  const std::string pipe_ = Pipe();
  // Opens it for writing, too: it must not end with the first agent.
  const Process reader_{{"sh", "-c", "exec cat <>\"$0\"", pipe_}, folder_ / "journal"};
  std::string journal_;
};

TEST_F(Notices, ARefusedStartSaysWhy) {
  const Listener silent;
  const std::string file = folder_ / "agent.conf";
  const struct {
    Words words;
    std::string config, reason;
    int status = 255;
  } rows[] = {
      {{"-x"}, "", "an option is unknown or lacks its argument", 1},
      {{"-f", ""}, "", "no configuration is given (option -f)"},
      {{"-f", "/none\n"}, "", R"(the configuration /none\n cannot be read: No such file or directory)"},
      {{},
       "WATCHDOG_NAME nobody\n",
       "WATCHDOG_NAME in " + file + " is \"nobody\", and this program is named \"" + agent_ + '"'},
      // Late, with threads at work: it may not wait for them.
      {{},
       "RESTART_CHECK 1\nFIRST_ALARM_SEND 1\nALARM_1 127.0.0.1:" + std::to_string(silent.Port()) +
           "\nRESULT_CHECK 1\nRESULT_TIME 0730\n",
       "RESULT_TIME in " + file + " is \"0730\", no time of day as 07:30, and RESULT_CHECK is set"}};
  std::multiset<std::string> told;
  const auto expectRefused = [&](const Words& words, const std::string& reason, int status) {
    EXPECT_EQ(Start(words, ByPipe(journal_)).ExitStatus(), status);
    told.insert("<3>The agent does not start: " + reason);
    ExpectTold(told);
  };
  StartEngine();
  const std::string sound = config_ + "RESTART_CHECK 0\nSEND_EMAIL_CHECK 0\n";
  for (const auto& row : rows) {
    config_ = sound + row.config;
    expectRefused(row.words, row.reason, row.status);
  }
  EXPECT_EQ(Count(Out(), "Create RESULT_CHECK_TIMER send_timer fail..Errcode [ "), 1U);
  EXPECT_EQ(Count(Out(), "DunraSTT_Admin Already Running"), 1U);  // as a process of another name

  config_ = sound;
  Process first = StartedAgent();
  const std::string pid = std::to_string(first.Pid());
  expectRefused({}, "process " + pid + " bears its name " + agent_ + " (WATCHDOG_NAME) already", 255);
  EXPECT_EQ(Count(Out(), "DunraSTT_Admin Already Running"), 1U);
  EXPECT_EQ(ReadFile(folder_ / "agent.pid"), pid);
  EXPECT_TRUE(first.Alive());
}

TEST_F(Notices, OneThatRunsTellsEachMistakeOnceAndNoSecret) {
  const Peer mails(folder_, "mails", "answers.py", {"--script", "smtp:kim"});
  const Peer posts(folder_, "posts", "answers.py", {"--script", "http:400 Bad payload"});
  const Peer server(folder_, "server", "answers.py", {"--script", "garble"});
  engine_port_.Listen();
  config_ += "SHELL_FILE start engine.sh\nCFG_FILE ./none.cfg\nALARM_1 localhost:9\nALARM_2 " +
             server.Address() + "\nSMTP_SERVER_PORT " + mails.Port() + "\nWEBHOOK_SERVER_URL http://" +
             posts.Address() + "/secret\n";
  const Process agent = Start({}, ByPipe(journal_));
  // The engine is found dead more often.
  EXPECT_TRUE(WaitForOut("process exec [ ", 3));
  ExpectTold({
      "<3>The recipients' file " + folder_ / "to.txt has 1 line that cannot be used: line 2: no address",
      "<3>No process is named " + engine_ + " (PROC_NAME), but port " + std::to_string(engine_port_.Port()) +
          " (ASR_PORT) listens: the name is wrong, or another program has the port; " + folder_.Path() +
          " is run",
      "<4>Mails go out without a file: the file " + folder_ / "none.cfg (CFG_FILE) cannot be read: No such " +
          "file or directory",
      "<3>The mail server 127.0.0.1:" + mails.Port() +
          " refused recipients of a mail that others got: <kim@example.com>: 550 5.1.1 Not here",
      "<3>The post \"# " + engine_ + " Alarm Occured - Process Restart\" was not delivered to http://" +
          posts.Address() + ": 400: Bad payload",
      "<3>The start script " + folder_.Path() + " ended with status 126 (that is BASE_PATH: SHELL_FILE has " +
          "no value, or one without \"./\" or \"/\" at its beginning) after #",
      "<3>A report was not delivered to the management server localhost:9: no connection; the address is "
      "no dotted IPv4 address: #",
      "<3>A report was not delivered to the management server " + server.Address() +
          ": another reply than expected",
  });
  EXPECT_EQ(Count(ReadFile(folder_ / "journal"), "secret"), 0U);
}

TEST_F(Notices, RoutineIsNoErrorAndElsewhereNothingIsTold) {
  config_ += "SEND_EMAIL_CHECK 0\nSEND_WEBHOOK_CHECK 0\n";
  {
    const Process agent = Start({}, ByPipe(journal_));
    EXPECT_TRUE(WaitForOut("match inputProcessName", 2));
    ExpectTold({"<3>The engine is dead: no process is named " + engine_ + " (PROC_NAME); " +
                    folder_ / "start engine.sh is run",
                "<5>The start script " + folder_ / "start engine.sh ended with status 0 after #",
                "<4>The channels are not watched: port " + std::to_string(engine_port_.Port()) +
                    " (ASR_PORT) did not answer when the agent started; restart it beside a living engine, " +
                    "or set CHANNEL_RETRY 1"});
  }
  KillEngine();
  config_ += "SEND_EMAIL_CHECK 1\nSMTP_SERVER_PORT 1\nSHELL_FILE none\nALARM_1 localhost:9\n";
  const auto before = Told();
  const Process agent = Start({}, ByPipe("JOURNAL_STREAM=1:1"));
  EXPECT_TRUE(WaitForOut("process exec [ ", 2));
  EXPECT_NE(ReadFile(folder_ / "journal").find("smtp failed: "), std::string::npos);
  EXPECT_EQ(Told(), before);
}

}  // namespace
}  // namespace harness
