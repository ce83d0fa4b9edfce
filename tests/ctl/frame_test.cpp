// The parts of the operator's tool that work on words and texts alone.
#include <gtest/gtest.h>

#include "ctl/commands.h"
#include "ctl/duration.h"
#include "ctl/near_name.h"
#include "ctl/process_table.h"
#include "ctl/running_agent.h"
#include "ctl/text.h"
#include "ctl/tool.h"
#include "support/has.h"
#include "support/support.h"

namespace ctl {
namespace {

using support::AllMatches;
using support::Has;
using Words = std::vector<std::string>;

TEST(NearNames, AreThoseOfSlips) {
  const std::string_view names[] = {"history", "pause", "-f"};
  for (const char* slip : {"hsitory", "hsitroy", "histry", "hisstory", "hystori"})
    EXPECT_EQ(NearName(slip, names), "history") << slip;
  for (const char* word : {"psa", "", "x", "status"}) EXPECT_EQ(NearName(word, names), "") << word;
  EXPECT_EQ(NearName("PAUSE", names), "pause");
  EXPECT_EQ(NearNameHint("histroy", names), ", history?");
  EXPECT_EQ(NearName(std::string(100000, 'h'), names), "");
}

TEST(Durations, AreANumberWithItsUnit) {
  const std::pair<const char*, int64_t> cases[] = {
      {"10s", 10}, {"5m", 300}, {"24h", 86400}, {"0s", 0}, {"999999999h", 3599999996400}};
  for (const auto& [text, seconds] : cases) EXPECT_EQ(ParseDuration(text), seconds) << text;
  for (const char* text : {"", "s", "10", "10 s", "-1s", "1.5h", "10d", "1000000000s", "0x1s", "m5"})
    EXPECT_FALSE(ParseDuration(text).has_value()) << text;
}

TEST(Durations, AreToldInTwoUnits) {
  const std::pair<int64_t, const char*> cases[] = {{-5, "0 s"},          {80, "80 s"},  {360, "6 min"},
                                                   {7860, "2 h 11 min"}, {7200, "2 h"}, {273600, "3 d 4 h"}};
  for (const auto& [seconds, words] : cases) EXPECT_EQ(DurationWords(seconds), words);
}

TEST(Texts, OfOthersAreMadeFitToBeShown) {
  const std::pair<std::string, const char*> cases[] = {
      {"a\n\t\x1b[31m\x7f", "a\\n\\t\\x1b[31m\\x7f"},
      {"\xc2\x9bJ \xe2\x80\xae", "\\x9bJ \\u202e"},  // a control character, a change of direction
      {"한글", "한글"},
      {"\xc7\xd1\xb1\xdb", "한글"},  // code page 949
      {"5 \xa1\xbe 1", "5 ± 1"},     // a two-byte character
      {"x\xc9\x41", "x\uFFFDA"},     // no character of either
      {std::string("a\0b", 3), "a\\x00b"},
      {"\xed\xa0\x80", "\uFFFD\uFFFD"}};  // a surrogate is no UTF-8
  for (const auto& [text, shown] : cases) EXPECT_EQ(Shown(text), shown);
}

TEST(Texts, AreCutAtACharacter) {
  std::string hangul;
  while (hangul.size() < 3000) hangul += "한";
  const std::string shown = Shown(hangul);
  EXPECT_EQ(shown, hangul.substr(0, 297) + "...");
  EXPECT_EQ(Shown("a" + hangul), "a" + hangul.substr(0, 294) + "...");
  EXPECT_EQ(Shown(std::string(300, 'a')), std::string(300, 'a'));
  EXPECT_EQ(Shown(std::string(1 << 20, '\x1b')).size(), 299U);
}

TEST(Texts, AlignWithHangul) {
  EXPECT_EQ(DisplayWidth("한글 ab"), 7U);
  EXPECT_EQ(Padded("한글", 6), "한글  ");
  EXPECT_EQ(Padded("longer", 3), "longer");
}

TEST(ProcessTable, ReadsNamesThatLookLikeSomethingElse) {
  const char* rest = " S 7 4711 4711 0 -1 4194560 1 0 0 0 1 2 0 0 20 0 3 0 12345 1000 10";
  const auto row = ParseProcessStat(std::string("4711 (a) R (b)") + rest);
  ASSERT_TRUE(row);
  EXPECT_EQ(row->name, "a) R (b");
  EXPECT_EQ(row->state, 'S');
  EXPECT_EQ(row->parent, 7);
  EXPECT_EQ(row->start, 12345U);
  for (const char* text : {"", "4711", "4711 (a", "4711 (a) S 7", "x (a) S 7 1", ") ("})
    EXPECT_FALSE(ParseProcessStat(text)) << text;
}

TEST(RunningAgent, TellsItsConfigurationFile) {
  const std::pair<Words, const char*> cases[] = {{{"agent", "-f", "/etc/a.conf"}, "/etc/a.conf"},
                                                 {{"agent", "-d", "-f/etc/a"}, "/etc/a"},
                                                 {{"agent", "-df", "a"}, "a"},
                                                 {{"agent", "--conf_file=b", "-l", "-f"}, "b"},
                                                 {{"agent", "-f", "a", "-f", "b"}, "b"},
                                                 {{"agent", "-f"}, ""},
                                                 {{}, ""}};
  for (const auto& [words, file] : cases) EXPECT_EQ(ConfigFileIn(words), file);
}

Parsed Parse(Words words) {
  static Words kept;
  static std::vector<char*> pointers;
  kept = std::move(words);
  kept.insert(kept.begin(), "dunrasttctl");
  pointers.clear();
  for (std::string& word : kept) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return ParseCommandLine(static_cast<int>(kept.size()), pointers.data());
}

TEST(CommandLine, TakesCommonOptionsOnBothSides) {
  for (const auto& words : {Words{"-f", "a", "--json", "history", "--since", "2h"},
                            {"history", "--since=2h", "--json", "-fa"},
                            {"--config=a", "history", "--since", "2h", "--json"}}) {
    const Parsed parsed = Parse(words);
    EXPECT_EQ(parsed.complaint, "");
    EXPECT_STREQ(parsed.command->name, "history");
    EXPECT_EQ(parsed.call.config, "a");
    EXPECT_TRUE(parsed.call.json);
    EXPECT_EQ(*parsed.call.Value("since"), "2h");
  }
  const Parsed pause = Parse({"pause", "5m", "--reason", "a b"});
  EXPECT_STREQ(pause.call.operands[0], "5m");
}

TEST(CommandLine, LeavesTheOptionsOfTheCommandToRun) {
  const Parsed parsed = Parse({"start", "--now", "--", "run.sh", "--json", "-f", "x"});
  EXPECT_EQ(parsed.complaint, "");
  ASSERT_EQ(parsed.call.operands.size(), 4U);
  EXPECT_STREQ(parsed.call.operands[3], "x");
  EXPECT_EQ(parsed.call.operands.data()[4], nullptr);
  EXPECT_FALSE(parsed.call.json);
  EXPECT_EQ(Parse({"start", "run.sh", "--now"}).call.operands.size(), 2U);
}

TEST(CommandLine, NamesWhatMayHaveBeenMeant) {
  const std::pair<Words, const char*> cases[] = {
      {{"histroy"}, "no command histroy, history?"},
      {{"x\x1b"}, "no command x\\x1b"},
      {{}, "no command"},
      {{"history", "--sinec", "1h"}, "no option --sinec, --since?"},
      {{"--jsno", "history"}, "no option --jsno, --json?"},
      {{"history", "-x"}, "no option -x"},
      {{"history", "--since"}, "option --since lacks its argument"},
      {{"history", "--json=1"}, "option --json takes no argument"}};
  for (const auto& [words, complaint] : cases) EXPECT_EQ(Parse(words).complaint, complaint);
}

// Manual, completion and tables say the same.
TEST(Documents, HaveExactlyTheCommandsOptionsAndStatusesOfTheTool) {
  const std::string manual = support::ReadFile(TREE "/man/dunrasttctl.8");
  const std::string completion = support::ReadFile(TREE "/completions/dunrasttctl");
  std::set<std::string> commands;
  std::set<std::string> options;
  for (const Option& option : CommonOptions()) options.insert(option.name);
  for (const Command* command : Commands()) {
    commands.insert(command->name);
    std::string row = std::string("[") + command->name + "]=\"";
    for (const Option& option : command->options) {
      options.insert(option.name);
      row += std::string(row.ends_with('"') ? "" : " ") + "--" + option.name;
    }
    EXPECT_TRUE(Has(completion, row + "\"")) << row;
  }
  EXPECT_EQ(
      *AllMatches(support::ReadFile(TREE "/debian/changelog").substr(0, 80), R"(\(([0-9.]+)\))").begin(),
      VERSION);
  EXPECT_EQ(AllMatches(manual, R"(^\.Ss ([a-z-]+))"), commands);
  EXPECT_EQ(AllMatches(manual, R"(^\.It Fl (?:[a-z] (?:Ar file )?, Fl )?-([a-z]+))"), options);
  EXPECT_EQ(AllMatches(completion, R"(\[([a-z-]+)\]=")"), commands);
  for (const ExitRow& row : EXIT_STATUSES) {
    std::string meaning = row.meaning;
    meaning[0] = static_cast<char>(std::toupper(meaning[0]));
    EXPECT_TRUE(Has(manual, ".It " + std::to_string(row.status) + "\n" + meaning + ".\n")) << meaning;
  }
}

}  // namespace
}  // namespace ctl
