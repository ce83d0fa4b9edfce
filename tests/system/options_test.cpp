// The command line, and configurations that the agent refuses: each row a run that ends by itself.
#include <sys/wait.h>

#include <ostream>

#include "system/harness.h"

namespace harness {
namespace {

constexpr int REFUSED = 255;

struct OptionsCase {
  const char* name;
  std::vector<std::string> words;  // "@" stands for the test's folder
  int status;
  std::string out;  // what standard output must hold
  std::string err;
};

void PrintTo(const OptionsCase& row, std::ostream* out) {
  *out << row.name;
}

class Options : public AgentTest, public testing::WithParamInterface<OptionsCase> {
 protected:
  std::string Expanded(std::string text) const {
    const size_t at = text.find('@');
    return at == std::string::npos ? text : text.replace(at, 1, folder_ / "");
  }
};

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

TEST_P(Options, EndWithTheirStatus) {
  WriteFile(folder_ / "number", "  12 seconds\n");
  WriteFile(folder_ / "word", "twelve\n");
  WriteFile(folder_ / "empty", "");
  WriteFile(folder_ / "nul", std::string(70'000, '\0'));
  WriteFile(folder_ / "long", std::string(100'000, 'x') + "\n");
  std::vector<std::string> words;
  for (const std::string& word : GetParam().words) words.push_back(Expanded(word));
  Process agent = Run(words);
  const int status = agent.Wait();
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), GetParam().status);
  EXPECT_NE(Out().find(GetParam().out), std::string::npos);
  EXPECT_EQ(ReadFile(folder_ / "err.txt").find(Expanded(GetParam().err)), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Options,
    testing::Values(
        OptionsCase{"Help", {"-h"}, 0, HELP, ""}, OptionsCase{"LongHelp", {"--help"}, 0, HELP, ""},
        OptionsCase{
            "HelpNamesTheVersion", {"-h"}, 0, "  DUNRA STT Service Daemon Ver.2.3.x.x\n\n  Usage: ", ""},
        OptionsCase{"Unknown", {"-x"}, 1, HELP, ""}, OptionsCase{"NoArgument", {"-f"}, 1, HELP, ""},
        OptionsCase{"TestedNumber", {"-t", "@number", "-x"}, 0, "", ""},
        OptionsCase{"LongTestedNumber", {"--test_conf", "@number"}, 0, "", ""},
        OptionsCase{"TestedWord", {"-t", "@word"}, 1, "", "Wrong config file @word\n"},
        OptionsCase{"TestedNothing", {"-t", "@absent"}, 1, "", "Can't read config file @absent\n"},
        OptionsCase{"NoConfiguration", {}, REFUSED, BANNER, ""},
        OptionsCase{"AbsentConfiguration", {"-f", "@absent"}, REFUSED, BANNER, ""},
        OptionsCase{"PercentConfiguration", {"-f", "@%n%s%999999999d"}, REFUSED, BANNER, ""},
        OptionsCase{"EmptyConfiguration", {"-f", "@empty"}, REFUSED, BANNER, ""},
        OptionsCase{"NulConfiguration", {"-f", "@nul"}, REFUSED, BANNER, ""},
        OptionsCase{"LongLineConfiguration", {"-f", "@long"}, REFUSED, BANNER, ""},
        OptionsCase{"FolderAsConfiguration", {"-f", "@"}, REFUSED, BANNER, ""}),
    [](const testing::TestParamInfo<OptionsCase>& row) { return row.param.name; });

}  // namespace
}  // namespace harness
