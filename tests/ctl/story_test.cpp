// The real agent, told to start its engine through the real tool.
#include <nlohmann/json.hpp>

#include "system/harness.h"

namespace harness {
namespace {

class Story : public AgentTest {
 protected:
  Story() {
    config_ += "SHELL_FILE " TOOL "\nSHELL_METHOD start --backoff 0s..0s -- \"" +
               (folder_ / "start engine.sh") + "\" start\nHISTORY_PATH ./record/\n";
  }
  int Tool(const Words& words) const {
    return Process(Joined({TOOL, "-f", folder_ / "agent.conf"}, words), folder_ / "tool", folder_ / "tool")
        .ExitStatus();
  }
  std::string Told(const Words& words) const {
    fs::remove(folder_ / "tool");
    Tool(words);
    return ReadFile(folder_ / "tool");
  }
  // How often the record says so of a start.
  size_t Starts(const char* said) const { return Count(Told({"history", "--json"}), said); }
};

// Without -f the tool takes the file of the agent that runs it, whatever other agents there are.
TEST_F(Story, OfAnEngineThatDiesIsHeldAndStartedAgain) {
  StartEngine();
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitForOut("System CPU"));
  KillEngine();
  ASSERT_TRUE(WaitUntil([this] { return EngineAlive(); }));
  EXPECT_EQ(ReadFile(folder_ / "runs"), "<start>");
  EXPECT_EQ(Starts("\"held\":"), 1U);
  EXPECT_EQ(Starts("\"held\":null"), 1U);
  std::string evidence;
  for (const auto& entry : fs::directory_iterator(folder_ / ("record/restarts-" + engine_ + "/evidence")))
    evidence += ReadFile(entry.path());
  EXPECT_TRUE(evidence.starts_with("not known")) << evidence;
  EXPECT_TRUE(Has(evidence, "System CPU ["));

  EXPECT_EQ(Tool({"pause", "5m", "--reason", "a test"}), 0) << ReadFile(folder_ / "tool");
  KillEngine();
  EXPECT_TRUE(WaitUntil([this] { return Starts("\"held\":\"pause\"") >= 2; }));
  EXPECT_FALSE(EngineAlive());
  EXPECT_EQ(Tool({"resume"}), 0);
  EXPECT_TRUE(WaitUntil([this] { return EngineAlive(); }));
  ExpectStops(agent, seconds(15));
}

TEST_F(Story, StatusSeesTheRealAgentAndItsEngine) {
  StartEngine();
  Process agent = StartedAgent();
  ASSERT_TRUE(WaitForOut("System CPU"));
  const auto status = nlohmann::json::parse(Told({"status", "--json"}), nullptr, false);
  EXPECT_EQ(status["agent"]["pid"], agent.Pid()) << status;
  EXPECT_EQ(status["agent"]["config_newer"], false);
  EXPECT_EQ(status["engine"]["found"], true);
  ExpectStops(agent, seconds(15));
  EXPECT_TRUE(Has(Told({"status", "--plugin"}), "DUNRASTT CRITICAL - the agent does not run"));
}

}  // namespace
}  // namespace harness
