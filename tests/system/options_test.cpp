// Runs that end by themselves: the command line, and starts that the agent refuses.
#include "system/harness.h"

namespace harness {
namespace {

constexpr int REFUSED = 255;
constexpr char HELP[] =
    " [OPTIONS]\n\n"
    "  Options:\n"
    "   -h --help                 Print this help\n"
    "   -f --conf_file filename   Read configuration from the file\n"
    "   -t --test_conf filename   Test configuration file\n"
    "   -l --log_file  filename   Write logs to the file\n"
    "   -d --daemon               Daemonize this application\n"
    "   -p --pid_file  filename   PID file used by daemonized app\n\n";
constexpr char BANNER[] = "DunraSTT Service Admin - 2";

// "@" stands for the test's folder.
struct Row {
  Words words;
  int status;
  const char* out;  // what standard output must hold
  const char* err;  // how standard error begins
};
const Row ROWS[] = {{{"-h"}, 0, HELP, ""},
                    {{"--help"}, 0, "  DUNRA STT Service Daemon Ver.2.3.x.x\n\n  Usage: ", ""},
                    {{"-x"}, 1, HELP, ""},
                    {{"-f"}, 1, HELP, ""},
                    {{"-t", "@number", "-x"}, 0, "", ""},
                    {{"--test_conf", "@number"}, 0, "", ""},
                    {{"-t", "@word"}, 1, "", "Wrong config file @word\n"},
                    {{"-t", "@absent"}, 1, "", "Can't read config file @absent\n"},
                    {{}, REFUSED, BANNER, ""},
                    {{"-f", "@absent"}, REFUSED, BANNER, ""},
                    {{"-f", "@%n%s%999999999d"}, REFUSED, BANNER, ""},
                    {{"-f", "@empty"}, REFUSED, BANNER, ""},
                    {{"-f", "@nul"}, REFUSED, BANNER, ""},
                    {{"-f", "@long"}, REFUSED, BANNER, ""},
                    {{"-f", "@"}, REFUSED, BANNER, ""}};

class Refusal : public AgentTest {
 protected:
  std::string Expanded(std::string text) const {
    const size_t at = text.find('@');
    return at == std::string::npos ? text : text.replace(at, 1, folder_.Path());
  }
};

TEST_F(Refusal, OptionsEndWithTheirStatus) {
  folder_.Write("number", "  12 seconds\n");
  folder_.Write("word", "twelve\n");
  folder_.Write("empty", "");
  folder_.Write("nul", std::string(70'000, '\0'));
  folder_.Write("long", std::string(100'000, 'x') + "\n");
  for (const Row& row : ROWS) {
    Words words{folder_ / agent_};
    for (const std::string& word : row.words) words.push_back(Expanded(word));
    SCOPED_TRACE(words.back());
    folder_.Write("out.txt", "");
    folder_.Write("err.txt", "");
    EXPECT_EQ(Run(words).ExitStatus(), row.status);
    EXPECT_NE(Out().find(Expanded(row.out)), std::string::npos) << Out();
    EXPECT_TRUE(ReadFile(folder_ / "err.txt").starts_with(Expanded(row.err)));
  }
}

TEST_F(Refusal, OfASecondInstanceAndOfANameThatIsNotItsOwn) {
  config_ += "RESTART_CHECK 0\n";
  Process first = StartedAgent();
  const std::string pid = std::to_string(first.Pid());
  for (const char* name : {"", "WATCHDOG_NAME nobody-has-this\n"}) {
    config_ += name;
    folder_.Write("out.txt", "");
    EXPECT_EQ(Start().ExitStatus(), REFUSED);
    EXPECT_EQ(Count(Out(), "DunraSTT_Admin Already Running"), 1U);
    EXPECT_EQ(ReadFile(folder_ / "agent.pid"), pid);
  }
  EXPECT_TRUE(first.Alive());
}

// The refusal comes late, with threads at work: it may not wait for them.
TEST_F(Refusal, OfAResultTimeWithoutColon) {
  const Listener silent;
  config_ += "ALARM_1 127.0.0.1:" + std::to_string(silent.Port()) + "\nFIRST_ALARM_SEND 1\nRESULT_CHECK 1\n";
  EXPECT_EQ(StartedAgent().ExitStatus(), REFUSED);
  config_ += "RESULT_TIME 0730\n";
  EXPECT_EQ(StartedAgent().ExitStatus(), REFUSED);
  EXPECT_EQ(Count(Out(), "Create RESULT_CHECK_TIMER send_timer fail..Errcode [ "), 1U);
}

// Lines that a careless editor, or a hostile one, leaves in the file: the rest of it counts as it stands.
TEST_F(Refusal, OfNothingThatABadConfigurationHolds) {
  const ManagementServer server(folder_, "server");
  config_ += "RESTART_CHECK 0\nFIRST_ALARM_SEND 1\n";
  config_ += "# no comment, an unknown key\n;comment\n:comment\n/comment\n\n   \t \n=\n";
  config_ += "LOG_LEVEL=0\nlog_level 0\n ; LOG_LEVEL 0\n" + std::string(100'000, 'x') + " LOG_LEVEL 0\n";
  config_ += std::string("NUL\0LOG_LEVEL 0\0\n", 17);
  config_ += "RECG_PATH " + std::string(1'000, 'p') + "\nCERT_FILE " + std::string(5'000, 'c') + "\n";
  config_ += "HANG_TIME 99999999999999999999999\nLOG_CHECK_MIN -5\nRESULT_CHECK none\n";
  config_ += "CPU_OVER_VALUE %n%n%s%s\nCERT_FILE %s%n%1$n\n";
  config_ += "ALARM_\nALARM_NOPORT 127.0.0.1\nALARM_NOTHING :\nALARM_BAD 127.0.0.1:abc\n";
  config_ += "ALARM_LONG " + std::string(900, '1') + ":1\nALARM_GOOD " + server.Address() + "   \t \r\n";
  config_ += "KEY_FILE";  // no value, no line end
  Process agent = StartedAgent();
  EXPECT_TRUE(WaitUntil([&] { return server.CountBodies("ALARM+Tovik Start") == 1; }));
  EXPECT_TRUE(agent.Alive());
}

}  // namespace
}  // namespace harness
