#include "Tovik/core/config.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tovik/core/config_line.h"

namespace {

// A configuration file of its own, read into the agent's variables.
class ConfigTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/dunra-config-XXXXXX";
    folder_ = mkdtemp(pattern);
    gSendInfo = new SEND_INFO{};
  }
  void TearDown() override {
    delete gSendInfo;
    gSendInfo = nullptr;
    std::filesystem::remove_all(folder_);
  }
  int Read(const std::string& text, const std::string& name = "conf") {
    const std::string path = folder_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    std::snprintf(m_sz_configfile, sizeof m_sz_configfile, "%s", path.c_str());
    return ReadCfg();
  }
  std::string folder_;
};

TEST_F(ConfigTest, ReadsKeysOfEveryType) {
  ASSERT_EQ(
      Read("BASE_PATH /opt/a/\nPROC_NAME \t stt server  \nLOG_LEVEL 3   \nASR_PORT 12x\nCPU_OVER_VALUE 90\n"
           "PROC_FIlE ./bin/stt\nPROC_FILE ./ignored\nALARM_A 10.0.0.1:9000\nALARM_B nocolon\n"),
      1);
  EXPECT_STREQ(m_sz_proc_name, "stt server");
  EXPECT_EQ(m_log_level, 3);
  EXPECT_EQ(m_PROC_PORT, 12);
  EXPECT_EQ(gSendInfo->cpu_over_value, 90);
  EXPECT_STREQ(m_sz_proc_file, "/opt/a/bin/stt");
  EXPECT_STREQ(g_szDebugMsg, "ReadCfg : PROC_NAME( stt server ), PROC_FIlE( /opt/a/bin/stt )");
  ASSERT_EQ(gSendInfo->server_count, 2);
  EXPECT_STREQ(gSendInfo->servers[0].address, "10.0.0.1");
  EXPECT_EQ(gSendInfo->servers[0].port, 9000);
  EXPECT_STREQ(gSendInfo->servers[1].address, "nocolon");
  EXPECT_EQ(gSendInfo->servers[1].port, 0);
  EXPECT_EQ(gSendInfo->servers[1].index, 1);
}

TEST_F(ConfigTest, CommentsCountInTheFirstColumnOnly) {
  ASSERT_EQ(Read(";PROC_NAME a\n:PROC_NAME b\n/PROC_NAME c\n#PROC_NAME d\n  ; PROC_NAME e\n  PROC_NAME  f\n"),
            1);
  EXPECT_STREQ(m_sz_proc_name, "f");
}

TEST_F(ConfigTest, AValueIsLeftOverFromTheLineBefore) {
  ASSERT_EQ(Read("PROC_NAME first\nSHELL_METHOD start\n;comment\nWATCHDOG_NAME"), 1);
  EXPECT_STREQ(m_sz_watchdog_name, "start");
  ASSERT_EQ(Read("PROC_NAME  \nSHELL_METHOD\n"), 1);
  EXPECT_STREQ(m_sz_proc_name, "\n");
  EXPECT_STREQ(m_sz_shell_method, "\n");
}

TEST_F(ConfigTest, HoldsAtItsLimits) {
  std::string text;
  for (int i = 0; i < 120; ++i)
    text += "ALARM_" + std::to_string(i) + " 10.0.0.1:" + std::to_string(i) + "\n";
  text += "ALARM_LONG " + std::string(400, '9') + ":1\n";
  text += "PROC_NAME " + std::string(100'000, 'x') + "\n";
  text += std::string(5000, '\0') + "\nLOG_LEVEL 4\n";
  ASSERT_EQ(Read(text), 1);
  EXPECT_EQ(gSendInfo->server_count, 100);
  EXPECT_EQ(gSendInfo->servers[99].index, 99);
  EXPECT_EQ(gSendInfo->servers[99].port, 99);
  EXPECT_EQ(std::strlen(m_sz_proc_name), 1023U - std::strlen("PROC_NAME "));
  EXPECT_EQ(m_log_level, 4);
  ASSERT_EQ(Read("ALARM_X " + std::string(400, '7') + ":5\n"), 1);
  EXPECT_EQ(std::strlen(gSendInfo->servers[0].address), 255U);
  EXPECT_EQ(gSendInfo->servers[0].port, 5);
  EXPECT_STREQ(gSendInfo->servers[1].address, "") << "the table is cleared before each reading";
}

TEST_F(ConfigTest, AServerCountOutlivesAFileWithoutServers) {
  ASSERT_EQ(Read("ALARM_A 1.2.3.4:5\n"), 1);
  ASSERT_EQ(Read("PROC_NAME a\n"), 1);
  EXPECT_EQ(gSendInfo->server_count, 1);
}

TEST_F(ConfigTest, FailsOnlyWithoutAFile) {
  m_sz_configfile[0] = '\0';
  EXPECT_EQ(ReadCfg(), -1);
  EXPECT_EQ(Read(""), 1);
  EXPECT_EQ(Read("LOG_LEVEL 2\n", "a%d%nb"), 1) << "a percent sign in the name reaches no memory";
  EXPECT_EQ(m_log_level, 2);
}

TEST(ConfigLineTest, TrimsFewerBlanksTheShorterTheValue) {
  const struct {
    const char* value;
    const char* trimmed;
  } cases[] = {{"3   \n", "3  "}, {"abcdef  \r\n", "abcdef"}, {"\n", "\n"}, {"\r\n", "\r"}, {"", ""},
               {"a\n", "a"}};
  for (const auto& c : cases) {
    std::string value = c.value;
    TrimValue(&value);
    EXPECT_EQ(value, c.trimmed);
  }
}

TEST(ConfigLineTest, ExpandsTheFileNameByItself) {
  EXPECT_EQ(ConfigFileName("/a/b.conf"), "/a/b.conf");
  EXPECT_EQ(ConfigFileName("a%%b%d%n%"), "a%b%d%n%");
  EXPECT_EQ(ConfigFileName("x%s%s"), "xx%s%s%s");
}

TEST(FullPathTest, FollowsTheFirstCharacter) {
  const struct {
    const char* path;
    const char* result;
    int status;
  } cases[] = {{"/abs", "/abs", 1}, {"./log/", "/opt/a/log/", 1}, {"../x", "/opt/a//x", 1},
               {".", "/opt/a/", 1}, {"log/", "/opt/a/", -1},      {"", "/opt/a/", -1}};
  for (const auto& c : cases) {
    char path[64];
    std::snprintf(path, sizeof path, "%s", c.path);
    EXPECT_EQ(FullPath("/opt/a/", path, sizeof path), c.status) << c.path;
    EXPECT_STREQ(path, c.result);
  }
  char small[8] = "./abcde";
  EXPECT_EQ(FullPath("/base/", small, sizeof small), 1);
  EXPECT_STREQ(small, "/base/a");
}

}  // namespace
