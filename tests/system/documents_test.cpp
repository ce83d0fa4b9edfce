// What operators read must be what the program does: the sample configuration, the manual pages and the
// completion against the tables in the source and the parser itself.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Tovik/core/config.h"
#include "base/owners.h"
#include "charset/cp949.h"

namespace {

using Names = std::set<std::string>;

std::string Read(const std::string& path) {
  std::ifstream file(std::string(TREE) + "/" + path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string Sample() {
  return Read("conf/DunraSTT.conf.sample");
}

// Every first group of a pattern in a text, in order.
std::vector<std::string> All(const std::string& text, const char* pattern) {
  const std::regex expression(pattern, std::regex::ECMAScript | std::regex::multiline);
  std::vector<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match)
    found.push_back((*match)[1]);
  return found;
}

Names Set(const std::vector<std::string>& names) {
  return {names.begin(), names.end()};
}

// The keys of the parser's table, and one for those that only their beginning names.
Names ParserKeys() {
  Names keys = Set(All(Read("Src/Tovik/core/config.cpp"), R"re(^    \{"([A-Za-z_]+)", )re"));
  EXPECT_GT(keys.size(), 50U);
  keys.insert("ALARM_SERVER1");
  return keys;
}

TEST(Documents, SampleExplainsAndSetsExactlyTheKeysOfTheParser) {
  const std::vector<std::string> explained = All(Sample(), "\n\n; ([A-Za-z0-9_]+): ");
  EXPECT_EQ(Set(explained), ParserKeys());
  EXPECT_EQ(Set(explained).size(), explained.size());
  const Names set = Set(All(Sample(), "^(?:; )?([A-Za-z0-9_]+)  *[^ ]+$"));
  for (const std::string& key : ParserKeys()) EXPECT_EQ(set.count(key), 1U) << key;
}

TEST(Documents, EveryKeyOfTheSampleStandsBelowItsExplanationAndSaysWhatEmptyMeans) {
  std::istringstream lines(Sample());
  std::string explanation;
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LT(line.size(), 1023U);
    if (line.empty()) {
      explanation.clear();
    } else if (line.front() == ';') {
      explanation += line + "\n";
    } else {
      const std::string key = line.substr(0, line.find(' '));
      EXPECT_EQ(explanation.rfind("; " + key + ": ", 0), 0U) << line;
      // The rule for paths, in the sample's first lines, says it once for all of them.
      const std::regex empty("Empty|Without any|Path,\\s(?:; )?base|for nothing|without effect");
      EXPECT_TRUE(std::regex_search(explanation, empty)) << key;
    }
  }
}

TEST(Documents, SampleIsCodePage949ThroughAndThrough) {
  const std::string sample = Sample();
  char* converted = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(encode_UTF8(sample.data(), static_cast<uint32_t>(sample.size()), &converted, &length), 0);
  const base::UniqueText text(converted);
  EXPECT_EQ(is_UTF8(text.get()), 1);
  EXPECT_EQ(std::strstr(text.get(), "\xC0\xA0"), nullptr);
  EXPECT_NE(std::strstr(text.get(), "한글"), nullptr);
}

TEST(Documents, ParserTakesTheSampleAsItReads) {
  gSendInfo = new SEND_INFO{};
  std::snprintf(m_sz_configfile, sizeof m_sz_configfile, "%s/conf/DunraSTT.conf.sample", TREE);
  ASSERT_EQ(ReadCfg(), 1);
  EXPECT_EQ(gSendInfo->server_count, 1);
  EXPECT_EQ(gSendInfo->cpu_over_value, 90);
  EXPECT_STREQ(m_sz_shell_file, "/opt/stt/bin/start_engine.sh");
  EXPECT_STREQ(m_sz_proc_file, "/opt/stt/bin/stt_server");
  EXPECT_STREQ(m_sz_txt_path, "/var/log/dunrastt/agent/");
  EXPECT_STREQ(m_hang_path, "/var/log/dunrastt/hang/");
  EXPECT_STREQ(m_receiver_email, "/etc/dunrastt/mail_to.txt");
  EXPECT_STREQ(m_sz_cert_file, "");
  EXPECT_STREQ(m_webhook_server_url, "https://chat.example.com/hook");
  delete gSendInfo;
  gSendInfo = nullptr;
}

TEST(Documents, ManualPageOfTheConfigurationHasExactlyTheKeysOfTheParser) {
  EXPECT_EQ(Set(All(Read("man/DunraSTT.conf.5"), R"(^\.It Cm ([A-Za-z0-9_]+)$)")), ParserKeys());
}

TEST(Documents, ManualPageAndCompletionHaveExactlyTheOptionsOfTheProgram) {
  const Names options =
      Set(All(Read("Src/Tovik/options.cpp"), R"re(\{"([a-z_]+)", (?:required|no)_argument)re"));
  EXPECT_EQ(options.size(), 6U);
  EXPECT_EQ(Set(All(Read("man/DunraSTT_Admin.8"), R"(^\.It Fl [a-z](?: Ar file)? , Fl -([a-z_]+))")),
            options);
  const std::vector<std::string> offered = All(Read("completions/DunraSTT_Admin"), R"(compgen -W '([^']*)')");
  ASSERT_EQ(offered.size(), 1U);
  EXPECT_EQ(Set(All(offered[0], "--([a-z_]+)")), options);
}

}  // namespace
