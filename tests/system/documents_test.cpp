// What operators read must be what the program does: the sample configuration, the manual pages and the
// completion against the tables in the source and the parser itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "Tovik/config/config.h"
#include "Tovik/notices/notices.h"
#include "charset/cp949.h"
#include "support/has.h"
#include "support/support.h"

namespace {

using Names = std::set<std::string>;
using support::AllMatches;

std::string Read(const std::string& path) {
  return support::ReadFile(std::string(TREE) + "/" + path);
}

TEST(Documents, ExplainExactlyTheKeysOfTheParser) {
  Names keys =
      AllMatches(Read("Src/Tovik/config/config_keys.inc"), R"re(^CONFIG_[A-Z]+\("([A-Za-z_]+)", )re");
  EXPECT_GT(keys.size(), 50U);
  keys.insert("ALARM_SERVER1");  // for those that only their beginning names
  const std::string sample = Read("conf/DunraSTT.conf.sample");
  EXPECT_EQ(AllMatches(sample, "\n\n; ([A-Za-z0-9_]+): "), keys);
  // Beside words of the explanations.
  const Names set = AllMatches(sample, "^(?:; )?([A-Za-z0-9_]+)  *[^ ]+$");
  EXPECT_TRUE(std::includes(set.begin(), set.end(), keys.begin(), keys.end()));
  EXPECT_EQ(AllMatches(Read("man/DunraSTT.conf.5"), R"(^\.It Cm ([A-Za-z0-9_]+)$)"), keys);
}

TEST(Documents, ParserTakesTheSampleAsItReads) {
  char* converted = nullptr;
  uint32_t length = 0;
  const std::string sample = Read("conf/DunraSTT.conf.sample");
  ASSERT_EQ(encode_UTF8(sample.data(), static_cast<uint32_t>(sample.size()), &converted, &length), 0);
  const base::UniqueText text(converted);
  EXPECT_NE(std::strstr(converted, "한글"), nullptr);

  SEND_INFO info{};
  gSendInfo = &info;
  std::snprintf(m_sz_configfile, sizeof m_sz_configfile, "%s/conf/DunraSTT.conf.sample", TREE);
  ASSERT_EQ(ReadCfg(), 1);
  EXPECT_EQ(info.server_count, 1);
  EXPECT_EQ(info.cpu_over_value, 90);
  EXPECT_STREQ(m_sz_shell_file, "/opt/stt/bin/start_engine.sh");
  EXPECT_STREQ(m_sz_cert_file, "");
  EXPECT_STREQ(m_webhook_server_url, "https://chat.example.com/hook");
  gSendInfo = nullptr;
}

TEST(Documents, EveryNoticeIsExplained) {
  const std::string operating = Read("docs/operating.md");
  for (const notices::NoticeRow& row : notices::NOTICES) {
    const std::string sentence = row.sentence;
    EXPECT_NE(operating.find(sentence.substr(0, sentence.find('{'))), std::string::npos) << sentence;
  }
}

TEST(Documents, ManualPageAndCompletionHaveExactlyTheOptionsOfTheProgram) {
  const Names options =
      AllMatches(Read("Src/Tovik/process/options.h"), R"re(\{"([a-z_]+)", (?:required|no)_argument)re");
  EXPECT_EQ(options.size(), 6U);
  EXPECT_EQ(AllMatches(Read("man/DunraSTT_Admin.8"), R"(^\.It Fl [a-z](?: Ar file)? , Fl -([a-z_]+))"),
            options);
  const Names offered = AllMatches(Read("completions/DunraSTT_Admin"), R"(compgen -W '([^']*)')");
  ASSERT_EQ(offered.size(), 1U);
  EXPECT_EQ(AllMatches(*offered.begin(), "--([a-z_]+)"), options);
}

}  // namespace
